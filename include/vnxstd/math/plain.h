// Plain structures for callers and modules that exchange geometry without the classes. They hold the same
// numbers as the classes, element for element; the cached determinants are not part of them.
#pragma once

/// A point or vector.
struct qmath_vect {
  double x, y;
};

/// A 2x2 matrix in row-major order.
struct qmath_matrix {
  double a00, a01, a10, a11;
};

/// An affine map p -> matrix * p + trans.
struct qmath_xformLinear {
  qmath_vect trans;
  qmath_matrix matrix;
};

/// A 2x2 matrix, indexed by row and column.
struct qx2Matrix {
  double element[2][2];
};

/// An affine map p -> matrix * p + (x, y).
struct qx2Xform {
  double x, y;
  qx2Matrix matrix;
};
