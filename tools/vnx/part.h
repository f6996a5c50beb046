// The part that the demonstration draws and then measures.
#pragma once

#include <cstdint>

#include <vnxstd/math/vector.h>
#include <vnxstd/pelbuf/buffer.h>

/// A bright, slightly turned rectangle with a dark round hole on a dark ground. All lengths in pixels of the image
/// plane, in which pel (x, y) covers the square from (x, y) to (x + 1, y + 1).
struct Part {
  qcVector<2> centre{331.37, 236.81};
  double halfLength = 210.25, halfWidth = 121.6;
  double turnDegrees = 3.7;
  qcVector<2> hole{70.4, -18.3};  // its centre in the part's own frame
  double holeRadius = 52.63;

  double ground = 45, body = 190;  // grey levels
  double blur = 0.9;               // sigma of the optics, pixels
  double noise = 3.0;              // sigma, grey levels
  std::int32_t seed = 20;          // of the noise

  /// A point of the part's own frame in the image.
  qcVector<2> inImage(const qcVector<2>& p) const;
  bool contains(const qcVector<2>& imagePoint) const;
};

/// The part as a camera sees it: each pixel is the area average over its square (16 x 16 samples where an edge is
/// near), blurred by a Gaussian, with Gaussian noise, rounded. The image is one of the default pool, in which it must
/// have room.
qcPelBuffer<unsigned char> drawPart(const Part& part, long width, long height);
