// The least-squares transform that carries points onto lines.
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

/// Sums over points, each with a weight: of the weights, the weighted coordinates and their weighted products.
struct qc_WeightedSums {
  double w = 0, x = 0, y = 0, xx = 0, yy = 0, xy = 0;

  void add(double weight, double px, double py) noexcept {
    const double wx = weight * px, wy = weight * py;
    w += weight;
    x += wx;
    y += wy;
    xx += wx * px;
    yy += wy * py;
    xy += wx * py;
  }
  qc_WeightedSums& operator+=(const qc_WeightedSums& other) noexcept {
    w += other.w;
    x += other.x;
    y += other.y;
    xx += other.xx;
    yy += other.yy;
    xy += other.xy;
    return *this;
  }
};

/// Sums over pairs of a point and a line with the unit normal (nx, ny) and the distance d: over the point, weighted by
/// nx^2, nx*ny and ny^2; of nx*d and ny*d times (qx, qy, 1); and of d^2.
struct qc_PointLineSums {
  qc_WeightedSums xx, xy, yy;
  double dx[3] = {}, dy[3] = {};
  double dd = 0;

  void add(double nx, double ny, double d, double qx, double qy) noexcept {
    xx.add(nx * nx, qx, qy);
    xy.add(nx * ny, qx, qy);
    yy.add(ny * ny, qx, qy);
    const double v[3] = {qx, qy, 1};
    for (int i = 0; i < 3; ++i) {
      dx[i] += nx * d * v[i];
      dy[i] += ny * d * v[i];
    }
    dd += d * d;
  }
  qc_PointLineSums& operator+=(const qc_PointLineSums& other) noexcept {
    xx += other.xx;
    xy += other.xy;
    yy += other.yy;
    for (int i = 0; i < 3; ++i) {
      dx[i] += other.dx[i];
      dy[i] += other.dy[i];
    }
    dd += other.dd;
    return *this;
  }
};

/// Fits the transform T that minimises the sum of squared distances of the points T(q) from their lines, over pairs of
/// a line and a point q: edge points that belong to the straight sides of a known part, for instance, of which nobody
/// knows where along the side they lie. T maps the second member of each pair onto the first, as in the point-to-point
/// fitter. A value of 208 bytes made of running sums; see sums.h for what holds for every fitter.
///
///     qcLSPointToLineFitter fitter;
///     for (const Side& side : part) fitter.update(side.line, side.points.data(), side.points.size());
///     const qcXform<2> partFromImage = fitter.fit(3);  // carries the measured points onto the part
///     const double rms = std::sqrt(fitter.error(partFromImage) / fitter.count());
///
/// With (nx, ny) = (-sin a, cos a) the normal of a line of angle a and distance d, the distance of T(q) is
/// nx * X + ny * Y - d, which is linear in the elements of T: the sums are those of the normal equations.
class VNXSTD_EXPORT qcLSPointToLineFitter {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// Too few pairs, pairs that do not determine the transform, or more pairs than can be counted.
  class VNXSTD_EXPORT UnstableErr : public qc_ErrorLeaf<UnstableErr, Errors, 0x10003610> {};
  /// A number of degrees of freedom without a fit, or vectors of different length.
  class VNXSTD_EXPORT BadArgErr : public qc_ErrorLeaf<BadArgErr, Errors, 0x10003611> {};

  qcLSPointToLineFitter() = default;
  /// Adds every pair of two equally long vectors; throws BadArgErr when the lengths differ.
  qcLSPointToLineFitter(const std::vector<qcFLine>& lines, const std::vector<qcVector<2>>& points);

  /// Forgets all pairs.
  void reset() noexcept { *this = qcLSPointToLineFitter(); }

  /// Adds one pair, or `count` points that belong to one line. Throws UnstableErr when the count would overflow.
  void update(const qcFLine& line, const qcVector<2>& point) { update(line, &point, 1); }
  void update(const qcFLine& line, const qcVector<2>* points, std::size_t count);

  /// The fitter of the pairs of both. Throws UnstableErr when the count would overflow.
  qcLSPointToLineFitter& operator+=(const qcLSPointToLineFitter& other);
  friend qcLSPointToLineFitter operator+(qcLSPointToLineFitter a, const qcLSPointToLineFitter& b) { return a += b; }

  /// The number of pairs held.
  long count() const noexcept { return n_; }

  /// Computes the transform of 3 (rotation and translation), 4 (one scale more) or 6 (any affine map) degrees of
  /// freedom; another number throws BadArgErr, whatever the pairs. UnstableErr is thrown for fewer pairs than degrees
  /// of freedom and for pairs that do not determine the transform: parallel lines leave the position along them open,
  /// six degrees of freedom need lines of three directions, or points spread in two directions for each of two. For 4
  /// and 6 the condition number of the normal equations, rows and columns scaled to unit size, may be up to 1e14, or up
  /// to 2^53 / count(), what the rounding of the sums leaves of it.
  ///
  /// When all lines run through one point, a map that shrinks everything to that point has no residual: fits of 4 and 6
  /// then return that singular map. A rotation has a twin there, half a turn away and just as good: of two equally good
  /// rotations the one by the smaller angle is returned.
  ///
  /// The rotation is the global minimum, found from the secular equation of a quadratic form on the unit circle (G. E.
  /// Forsythe and G. H. Golub, "On the stationary values of a second-degree polynomial on the unit sphere", J. SIAM 13,
  /// 1965).
  qcXform<2> fit(int degreesOfFreedom) const;

  /// The sum of squared distances of the points T(q) from their lines; never negative.
  double error(const qcXform<2>& xform) const;

  /// The fitter of the pairs after a transform is applied to every point q; the lines stay as they are.
  friend VNXSTD_EXPORT qcLSPointToLineFitter operator*(const qcXform<2>& xform, const qcLSPointToLineFitter& fitter);

 private:
  std::int32_t n_ = 0;
  qc_PointLineSums sums_;
};
