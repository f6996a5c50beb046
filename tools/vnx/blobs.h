// Finds the bright or dark regions of an image.
#pragma once

#include <optional>
#include <vector>

#include <vnxstd/pelbuf/buffer.h>
#include <vnxstd/rlebuf/regions.h>

struct BlobParams {
  std::optional<unsigned char> threshold;  // chosen from the histogram when there is none
  bool isDark = false;                     // regions are below the threshold instead of at or above it
  long leastArea = 1;                      // pixels; smaller regions are left out
};

struct Blobs {
  unsigned char threshold;
  qcRLERegions regions;           // all of them
  std::vector<std::size_t> kept;  // those that are large enough, by their numbers
};

/// The threshold that divides the pixels into two classes, each as uniform as possible: N. Otsu, "A threshold selection
/// method from gray-level histograms", IEEE Trans. SMC 9 (1979). Pixels at or above it are bright. The middle one of
/// neighbours that divide alike, the lowest such; 255 when all pixels are equal.
unsigned char otsuThreshold(const qcPelBuffer<unsigned char>& image);

/// The eight-connected regions of an image that has pixels.
Blobs findBlobs(const qcPelBuffer<unsigned char>& image, const BlobParams& params);
