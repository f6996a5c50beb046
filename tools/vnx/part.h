// The part that the demonstration draws and then measures.
#pragma once

#include "picture.h"

/// A bright, slightly turned rectangle with a dark round hole on a dark ground. All lengths in pixels of the image
/// plane, in which pel (x, y) covers the square from (x, y) to (x + 1, y + 1).
struct Part {
  qcVector<2> centre{331.37, 236.81};
  double halfLength = 210.25, halfWidth = 121.6;
  double turnDegrees = 3.7;
  qcVector<2> hole{70.4, -18.3};  // its centre in the part's own frame
  double holeRadius = 52.63;

  Optics optics;

  /// A point of the part's own frame in the image.
  qcVector<2> inImage(const qcVector<2>& p) const;
  bool contains(const qcVector<2>& imagePoint) const;
};

/// The part as a camera sees it.
qcPelBuffer<unsigned char> drawPart(const Part& part, long width, long height);
