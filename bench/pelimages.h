// Images for benchmarks of pixel functions, and the same images as OpenCV sees them.
#pragma once

#include <cstddef>
#include <cstdio>
#include <random>
#include <string_view>
#include <vector>

#include "compare.h"
#include "std/pelbuf/dispatch.h"
#include "vnxstd/pelbuf.h"

#if defined(VNXSTD_BENCH_OPENCV)
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wdeprecated-enum-enum-conversion"
#endif
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace pelimages {

/// A session that also takes --baseline and --avx2, which force an instruction-set level on this library's side.
inline compare::Session sessionAtLevel(int argc, char** argv) {
  using vnxstd::simd::Level;
  std::vector<char*> others;
  for (int i = 0; i < argc; ++i) {
    const std::string_view option(argv[i]);
    if (option == "--baseline" || option == "--avx2") {
      vnxstd::simd::setLevel(option == "--avx2" ? Level::Avx2 : Level::Baseline);
    } else {
      others.push_back(argv[i]);
    }
  }
  const char* const names[vnxstd::simd::kLevels] = {"baseline", "AVX2", "AVX2, AVX-512 for byte permutes"};
  compare::Session session(static_cast<int>(others.size()), others.data());
  std::printf("level:     %s\n", names[static_cast<int>(vnxstd::simd::level())]);
  return session;
}

inline constexpr long kSide = 2048;

template <class T>
using Image = qcPelBuffer<T>;

template <class T>
Image<T> touched(long side = kSide) {
  Image<T> image(side, side);
  qfPelClear(image);
  return image;
}

template <class T>
Image<T> noise(long side = kSide) {
  Image<T> image(side, side);
  std::mt19937 random(1);
  for (long y = 0; y < side; ++y) {
    auto* const row = image.pointToRow(y);
    for (long x = 0; x < side; ++x) row[x] = static_cast<qcStoredPel<T>>(random() % 4096);
  }
  return image;
}

/// Values that change every few pels, as in an image of smooth surfaces.
template <class T>
Image<T> smooth() {
  Image<T> image(kSide, kSide);
  for (long y = 0; y < kSide; ++y) {
    auto* const row = image.pointToRow(y);
    for (long x = 0; x < kSide; ++x) row[x] = static_cast<qcStoredPel<T>>((x + y) / 16);
  }
  return image;
}

#if defined(VNXSTD_BENCH_OPENCV)
template <class T>
cv::Mat asMat(const Image<T>& image, int type) {
  return cv::Mat(static_cast<int>(image.height()), static_cast<int>(image.width()), type, image.pointToOffset(),
                 static_cast<std::size_t>(image.rowUpdate()) * sizeof(qcStoredPel<T>));
}
#endif

}  // namespace pelimages
