// The least-squares circle through points.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vnxstd/cfit/sums.h"
#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/math/xform.h"
#include "vnxstd/shapes/circle.h"

/// Sums over points: of the cubes of both coordinates, of x*y^2 and of x^2*y.
struct qc_CubicSums {
  double xxx = 0, yyy = 0, xyy = 0, xxy = 0;

  void add(double x, double y) noexcept {
    const double xx = x * x, yy = y * y;
    xxx += xx * x;
    yyy += yy * y;
    xyy += yy * x;
    xxy += xx * y;
  }
  qc_CubicSums& operator+=(const qc_CubicSums& other) noexcept {
    xxx += other.xxx;
    yyy += other.yyy;
    xyy += other.xyy;
    xxy += other.xxy;
    return *this;
  }
};

/// Fits a circle to running sums of points: the algebraic fit, which minimises the sum of the squares of
/// x^2 + y^2 + D*x + E*y + F over D, E and F (I. Kasa, "A circle fitting procedure and its error analysis", IEEE Trans.
/// Instrum. Meas. 25, 1976). It is exact for points on a circle; on short arcs with noise it is biased towards smaller
/// radii. A value of 80 bytes; see sums.h for what holds for every fitter.
///
/// The third powers in the sums limit how far from the origin a circle may lie: with n points all around a circle whose
/// centre is q radii away from the origin, centre and radius are good to about 4e-16 * sqrt(n) * q^3 of the radius. For
/// 100 points that is 1e-6 of the radius at q = 600; a radius of 10 pixels at 5,000 pixels is good to a few 1e-6
/// pixels. Points on a short arc lose more. Where that matters, move the origin near the points.
class VNXSTD_EXPORT qcLSCircleFitter {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// Fewer than three points, points on one line, or more points than can be counted.
  class VNXSTD_EXPORT UnstableErr : public qc_ErrorLeaf<UnstableErr, Errors, 0x10003620> {};

  qcLSCircleFitter() = default;
  explicit qcLSCircleFitter(const std::vector<qcVector<2>>& points) { update(points.data(), points.size()); }

  /// Forgets all points.
  void reset() noexcept { *this = qcLSCircleFitter(); }

  /// Adds one point, or `count` points. Throws UnstableErr when the count would overflow.
  void update(const qcVector<2>& point) {
    qf_CountPoints<UnstableErr>(n_, 1);
    sums_.add(point.x(), point.y());
    cubes_.add(point.x(), point.y());
  }
  void update(const qcVector<2>* points, std::size_t count);

  /// The fitter of the points of both. Throws UnstableErr when the count would overflow.
  qcLSCircleFitter& operator+=(const qcLSCircleFitter& other);
  friend qcLSCircleFitter operator+(qcLSCircleFitter a, const qcLSCircleFitter& b) { return a += b; }

  /// The number of points held.
  long count() const noexcept { return n_; }

  /// Computes the circle. Throws UnstableErr for fewer than three points, and when the condition number of the
  /// equations, rows and columns scaled to unit size, exceeds 1e14 or what the rounding of the sums leaves of it, 2^53
  /// / count().
  qcCircle fit() const;

  /// The sum of (x + y + 1) * ((x - cx)^2 + (y - cy)^2 - r^2) over the points: a signed, weighted algebraic residual
  /// that vanishes for points on the circle. It is not a sum of squares and not a distance.
  double error(const qcCircle& circle) const;

  /// The fitter of the points mapped by a transform.
  friend VNXSTD_EXPORT qcLSCircleFitter operator*(const qcXform<2>& xform, const qcLSCircleFitter& fitter);

 private:
  std::int32_t n_ = 0;
  qc_PointSums sums_;
  qc_CubicSums cubes_;
};
