// The least-squares transform that maps points onto points.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vnxstd/cfit/sums.h"
#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/math/xform.h"

/// Sums over pairs of points p and q: those of p, those of q, and those of the products of their coordinates.
struct qc_PairSums {
  qc_PointSums p, q;
  double qxpx = 0, qypx = 0, qxpy = 0, qypy = 0;

  void add(double px, double py, double qx, double qy) noexcept {
    p.add(px, py);
    q.add(qx, qy);
    qxpx += qx * px;
    qypx += qy * px;
    qxpy += qx * py;
    qypy += qy * py;
  }
  qc_PairSums& operator+=(const qc_PairSums& other) noexcept {
    p += other.p;
    q += other.q;
    qxpx += other.qxpx;
    qypx += other.qypx;
    qxpy += other.qxpy;
    qypy += other.qypy;
    return *this;
  }
};

/// Fits the transform T that minimises the sum of |T(q) - p|^2 over pairs of points (p, q): T maps the second point of
/// each pair onto the first. A value of 120 bytes made of running sums; see sums.h for what holds for every fitter.
///
///     qcLSPointToPointFitter fitter(drawing, measured);
///     const qcXform<2> drawingFromImage = fitter.fit(4);  // rotation, scale and translation
class VNXSTD_EXPORT qcLSPointToPointFitter {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// Too few pairs, pairs that do not determine the transform, or more pairs than can be counted.
  class VNXSTD_EXPORT UnstableErr : public qc_ErrorLeaf<UnstableErr, Errors, 0x10003600> {};
  /// A number of degrees of freedom without a fit, or vectors of different length.
  class VNXSTD_EXPORT BadArgErr : public qc_ErrorLeaf<BadArgErr, Errors, 0x10003601> {};

  qcLSPointToPointFitter() = default;
  /// Adds every pair of two equally long vectors; throws BadArgErr when the lengths differ.
  qcLSPointToPointFitter(const std::vector<qcVector<2>>& first, const std::vector<qcVector<2>>& second);

  /// Forgets all pairs.
  void reset() noexcept { *this = qcLSPointToPointFitter(); }

  /// Adds one pair, or `count` pairs from two arrays. Throws UnstableErr when the count would overflow.
  void update(const qcVector<2>& p, const qcVector<2>& q) {
    qf_CountPoints<UnstableErr>(n_, 1);
    sums_.add(p.x(), p.y(), q.x(), q.y());
  }
  void update(const qcVector<2>* p, const qcVector<2>* q, std::size_t count);

  /// The fitter of the pairs of both. Throws UnstableErr when the count would overflow.
  qcLSPointToPointFitter& operator+=(const qcLSPointToPointFitter& other);
  friend qcLSPointToPointFitter operator+(qcLSPointToPointFitter a, const qcLSPointToPointFitter& b) { return a += b; }

  /// The number of pairs held.
  long count() const noexcept { return n_; }

  /// Computes the transform of 3, 4, 5 or 6 degrees of freedom; another number throws BadArgErr, whatever the pairs.
  ///
  ///   3  rotation and translation             2 pairs or more; neither the first nor the second points on one spot
  ///   4  rotation, one scale, translation     2 pairs or more; the second points not on one spot
  ///   5  rotation, two scales along           3 pairs or more; the first points not on one spot, the second
  ///      the axes of q, translation           ones not on one line (the columns of the matrix are perpendicular)
  ///   6  any affine map                       3 pairs or more; the second points not on one line
  ///
  /// Otherwise UnstableErr is thrown; also when a quotient would exceed 1e15, and by the rigid fit when the pairs
  /// favour no rotation or when n times the centred sums of dot and of cross products both lie within 1e-15 of 0
  /// (whatever the unit: scale up coordinates that spread over less than 1e-7).
  ///
  /// The 5-parameter fit has one Lagrange multiplier, the root of smaller magnitude of a quadratic equation; that root
  /// is the minimum. No fit but that of 3 degrees of freedom excludes a singular result, and those of 5 and 6 may
  /// reflect.
  qcXform<2> fit(int degreesOfFreedom) const;

  /// The sum of |T(q) - p|^2 over the pairs; never negative.
  double error(const qcXform<2>& xform) const;

  /// The fitter of the pairs after a transform is applied to both points of every pair.
  friend VNXSTD_EXPORT qcLSPointToPointFitter operator*(const qcXform<2>& xform, const qcLSPointToPointFitter& fitter);

 private:
  std::int32_t n_ = 0;
  qc_PairSums sums_;
};
