// What the demonstration calibrates with and then measures in millimetres: a board of dots and a plate, both seen
// through a lens that distorts.
#pragma once

#include <vector>

#include <vnxstd/math/vector.h>
#include <vnxstd/shapes/circle.h>
#include <vnxstd/shapes/ellipse.h>

#include "picture.h"

/// A camera that looks at the plane from a slant, through a lens with barrel distortion: p = v * (1 + bend * |v|^2),
/// with v the place in the image from its middle in units of the focal length, then a perspective to millimetres.
struct Camera {
  qcVector<2> middle{322.5, 236.2};  // pixels
  double focal = 520;                // pixels
  double bend = 0.11;

  qcVector<2> toWorld(const qcVector<2>& image) const;
  /// By Newton's method, for points in view.
  qcVector<2> toImage(const qcVector<2>& world) const;
};

/// Bright dots in rows and columns.
struct Board {
  int columns = 11, rows = 8;
  double pitch = 5, radius = 1.4;  // millimetres

  qcVector<2> dot(int column, int row) const;
  bool contains(const qcVector<2>& world) const;
};

/// A bright plate with a round hole and an elliptic one; millimetres.
struct Plate {
  qcVector<2> low{-22.4, -14.6}, high{22.8, 15.3};
  qcCircle hole{{-11.3, 1.2}, 7.05};
  qcEllipse2 oval{{9.6, -1.7}, qcRadian(qcDegree(24.0)), {8.6, 5.2}, true, qcRadian(0)};

  bool contains(const qcVector<2>& world) const;
};
