// Draws what a camera sees of bright things on a dark ground.
#pragma once

#include <cstdint>
#include <functional>

#include <vnxstd/math/vector.h>
#include <vnxstd/pelbuf/buffer.h>

struct Optics {
  double ground = 45, body = 190;  // grey levels
  double blur = 0.9;               // sigma, pixels
  double noise = 3.0;              // sigma, grey levels
  std::int32_t seed = 20;          // of the noise
};

/// Whether a point of the image plane is bright.
using Scenery = std::function<bool(const qcVector<2>&)>;

/// Each pixel is the area average over its square (16 x 16 samples where an edge is near), blurred by a Gaussian, with
/// Gaussian noise, rounded. The image is one of the default pool, in which it must have room.
qcPelBuffer<unsigned char> drawPicture(const Scenery& contains, const Optics& optics, long width, long height);
