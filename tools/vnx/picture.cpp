#include "picture.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <vnxstd/math/random.h>
#include <vnxstd/pelbuf/rootpool.h>

namespace {

constexpr int kSamples = 16;  // per pixel and axis

using Plane = std::vector<double>;

double coverage(const Scenery& contains, double x, double y) {
  // Corners and middle that agree, more than a pixel from any thin feature, stand for the whole pixel.
  const bool middle = contains({x + 0.5, y + 0.5});
  bool uniform = true;
  for (const double dx : {-0.25, 1.25})
    for (const double dy : {-0.25, 1.25}) uniform = uniform && contains({x + dx, y + dy}) == middle;
  if (uniform) return middle ? 1 : 0;
  int inside = 0;
  for (int i = 0; i < kSamples; ++i)
    for (int j = 0; j < kSamples; ++j) inside += contains({x + (i + 0.5) / kSamples, y + (j + 0.5) / kSamples}) ? 1 : 0;
  return static_cast<double>(inside) / (kSamples * kSamples);
}

// One axis of the Gaussian; `stride` is the distance between neighbours, `count` their number in a line.
void blurLines(Plane& plane, double sigma, long lines, long lineStride, long count, long stride) {
  const auto reach = static_cast<long>(std::ceil(4 * sigma));
  std::vector<double> taps;
  double sum = 0;
  for (long i = -reach; i <= reach; ++i) {
    taps.push_back(std::exp(-static_cast<double>(i * i) / (2 * sigma * sigma)));
    sum += taps.back();
  }
  std::vector<double> line(static_cast<std::size_t>(count));
  for (long l = 0; l < lines; ++l) {
    double* const start = plane.data() + l * lineStride;
    for (long i = 0; i < count; ++i) line[static_cast<std::size_t>(i)] = start[i * stride];
    for (long i = 0; i < count; ++i) {
      double value = 0;
      for (long k = -reach; k <= reach; ++k)
        value += taps[static_cast<std::size_t>(k + reach)] *
                 line[static_cast<std::size_t>(std::clamp(i + k, 0L, count - 1))];
      start[i * stride] = value / sum;
    }
  }
}

}  // namespace

qcPelBuffer<unsigned char> drawPicture(const Scenery& contains, const Optics& optics, long width, long height) {
  Plane plane;
  plane.reserve(static_cast<std::size_t>(width * height));
  for (long y = 0; y < height; ++y)
    for (long x = 0; x < width; ++x)
      plane.push_back(optics.ground + (optics.body - optics.ground) *
                                          coverage(contains, static_cast<double>(x), static_cast<double>(y)));
  blurLines(plane, optics.blur, height, width, width, 1);
  blurLines(plane, optics.blur, width, 1, height, width);
  qcRandomGaussian random(optics.seed);
  auto image = qfDefaultPelRootPool()->get<unsigned char>(width, height);
  for (long y = 0; y < height; ++y)
    for (long x = 0; x < width; ++x) {
      const double grey = plane[static_cast<std::size_t>(y * width + x)] + random.next(optics.noise, 0);
      image.put(x, y, static_cast<unsigned char>(std::lround(std::clamp(grey, 0.0, 255.0))));
    }
  return image;
}
