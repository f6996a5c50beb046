#include "blobs.h"

#include <vnxstd/pelbuf/measure.h>

unsigned char otsuThreshold(const qcPelBuffer<unsigned char>& image) {
  std::vector<unsigned long> counts(256);
  qfPelHistogram(image, counts);
  double all = 0, sum = 0;
  for (std::size_t v = 0; v < counts.size(); ++v) {
    all += static_cast<double>(counts[v]);
    sum += static_cast<double>(v) * static_cast<double>(counts[v]);
  }
  double dark = 0, darkSum = 0, best = 0;
  std::size_t first = 255, last = 255;
  for (std::size_t v = 0; v < 255; ++v) {
    dark += static_cast<double>(counts[v]);
    darkSum += static_cast<double>(v) * static_cast<double>(counts[v]);
    if (dark == 0 || dark == all) continue;
    const double apart = darkSum / dark - (sum - darkSum) / (all - dark);
    const double between = dark * (all - dark) * apart * apart;
    if (between > best) {
      best = between;
      first = last = v + 1;
    } else if (between == best && last == v) {
      last = v + 1;
    }
  }
  return static_cast<unsigned char>((first + last) / 2);
}

Blobs findBlobs(const qcPelBuffer<unsigned char>& image, const BlobParams& params) {
  const unsigned char threshold = params.threshold ? *params.threshold : otsuThreshold(image);
  qcRLEBuffer mask;
  mask.encode(image, threshold, params.isDark);
  Blobs blobs{threshold, qcRLERegions(mask), {}};
  for (std::size_t i = 0; i < blobs.regions.size(); ++i) {
    if (blobs.regions.region(i).area >= params.leastArea) blobs.kept.push_back(i);
  }
  return blobs;
}
