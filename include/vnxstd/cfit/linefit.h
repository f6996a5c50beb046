// The least-squares line through points.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vnxstd/cfit/sums.h"
#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/math/xform.h"
#include "vnxstd/shapes/line.h"

/// Fits the line that minimises the sum of squared perpendicular distances (the principal axis through the mean) from
/// running sums of the points. A value of 48 bytes; see sums.h for what holds for every fitter.
///
/// With B twice the centred sum of products and Sxx - Syy the difference of the centred sums of squares, the direction
/// (c, s) of angle t has cos 2t = (Sxx - Syy) / hypot(B, Sxx - Syy). Its elements follow from the half-angle formulas;
/// near an axis the smaller one follows from 2 s c = |B| / hypot, so that a small slope keeps all its digits.
class VNXSTD_EXPORT qcLSLineFitter {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// Fewer than two points, points without a preferred direction, or more points than can be counted.
  class VNXSTD_EXPORT UnstableErr : public qc_ErrorLeaf<UnstableErr, Errors, 0x10003630> {};

  qcLSLineFitter() = default;
  explicit qcLSLineFitter(const std::vector<qcVector<2>>& points) { update(points.data(), points.size()); }

  /// Forgets all points.
  void reset() noexcept { *this = qcLSLineFitter(); }

  /// Adds one point, or `count` points. Throws UnstableErr when the count would overflow.
  void update(const qcVector<2>& point) {
    qf_CountPoints<UnstableErr>(n_, 1);
    sums_.add(point.x(), point.y());
  }
  void update(const qcVector<2>* points, std::size_t count);

  /// Takes away a point that was added. When no point is left the sums are exactly zero again; before that they keep
  /// the rounding errors of what came and went. Does nothing on an empty fitter.
  void remove(const qcVector<2>& point) noexcept;

  /// The fitter of the points of both. Throws UnstableErr when the count would overflow.
  qcLSLineFitter& operator+=(const qcLSLineFitter& other);
  friend qcLSLineFitter operator+(qcLSLineFitter a, const qcLSLineFitter& b) { return a += b; }

  /// The number of points held.
  long count() const noexcept { return n_; }

  /// Computes the line. Returns false and leaves `line` untouched when fewer than two points are held or they have no
  /// preferred direction: B and Sxx - Syy both exactly 0, or no larger than the rounding of the sums. The direction
  /// angle is in degrees: t, within [0, 180], when c*y - s*x of the mean is positive; else t + 180, and the distance
  /// changes its sign, so that it is never negative. A line through the origin (within a few units in the last place of
  /// the mean) gets the turned angle, 180 for the x axis.
  bool fit(qcFLine& line) const;
  /// The same; throws UnstableErr instead of returning false.
  qcFLine fit() const;

  /// Fit and residual together; null pointers skip an output. Differs from fit() in two details: points also have no
  /// preferred direction when |B| and |Sxx - Syy| are both below 1e-12, and only a negative distance turns the line, so
  /// that a line through the origin keeps its angle (0 for the x axis).
  bool fitAndError(qcFLine* line, double* error) const;

  /// The sum of squared perpendicular distances of the points from a line; never negative.
  double error(const qcFLine& line) const;

  /// The fitter of the points mapped by a transform.
  friend VNXSTD_EXPORT qcLSLineFitter operator*(const qcXform<2>& xform, const qcLSLineFitter& fitter);

 private:
  std::int32_t n_ = 0;
  qc_PointSums sums_;
};
