// Plain affine transforms of two and three dimensions.
#pragma once

#include <cmath>

#include "vnxstd/export.h"
#include "vnxstd/math/angle.h"
#include "vnxstd/math/error.h"
#include "vnxstd/math/matrix.h"
#include "vnxstd/math/plain.h"
#include "vnxstd/math/vector.h"

class qcArchive;

/// The affine map p -> M * p + t of N = 2 or 3 dimensions: the translation, then the matrix with its cached
/// determinant. A plain value without virtual functions; nothing allocates. A * B applies B first and A second.
/// Comparisons are exact. Operations that need the inverse throw qcMathError::Singular when the determinant is
/// exactly 0.
template <int N>
class VNXSTD_EXPORT qcXform {
  static_assert(N == 2 || N == 3, "transforms have two or three dimensions");

 public:
  /// The identity.
  constexpr qcXform() = default;
  constexpr qcXform(const qcMatrix<N>& matrix, const qcVector<N>& trans) : trans_(trans), matrix_(matrix) {}
  /// The matrix is made of the last four arguments as by qcMatrix<2>.
  qcXform(const qcVector<2>& trans, const qcRadian& xRot, const qcRadian& yRot, double xScale,
          double yScale) requires(N == 2)
      : trans_(trans), matrix_(xRot, yRot, xScale, yScale) {}
  qcXform(const qcVector<2>& trans, double scale, double aspect, const qcRadian& shear,
          const qcRadian& rotation) requires(N == 2)
      : trans_(trans), matrix_(scale, aspect, shear, rotation) {}
  constexpr qcXform(const qmath_xformLinear& xform) requires(N == 2) : trans_(xform.trans), matrix_(xform.matrix) {}
  constexpr qcXform(const qx2Xform& xform) requires(N == 2) : trans_(xform.x, xform.y), matrix_(xform.matrix) {}
  constexpr operator qmath_xformLinear() const requires(N == 2) { return {trans_, matrix_}; }
  constexpr operator qx2Xform() const requires(N == 2) { return {trans_.x(), trans_.y(), matrix_}; }

  constexpr const qcMatrix<N>& matrix() const { return matrix_; }
  constexpr const qcVector<N>& trans() const { return trans_; }
  constexpr void matrix(const qcMatrix<N>& matrix) { matrix_ = matrix; }
  constexpr void trans(const qcVector<N>& trans) { trans_ = trans; }

  /// The parts of the matrix; see qcMatrix. They throw qcMathError::Singular for a singular matrix.
  qcRadian rotation() const requires(N == 2) { return matrix_.rotation(); }
  qcRadian xRot() const requires(N == 2) { return matrix_.xRot(); }
  qcRadian yRot() const requires(N == 2) { return matrix_.yRot(); }
  double scale() const requires(N == 2) { return matrix_.scale(); }
  double xScale() const { return matrix_.xScale(); }
  double yScale() const { return matrix_.yScale(); }
  double zScale() const requires(N == 3) { return matrix_.zScale(); }
  double aspect() const requires(N == 2) { return matrix_.aspect(); }
  qcRadian shear() const requires(N == 2) { return matrix_.shear(); }

  /// M * p + t, and M * v.
  constexpr qcVector<N> mapPoint(const qcVector<N>& p) const { return matrix_ * p + trans_; }
  constexpr qcVector<N> mapVector(const qcVector<N>& v) const { return matrix_ * v; }
  constexpr qcVector<N> operator*(const qcVector<N>& p) const { return mapPoint(p); }

  /// The inverse transform applied to a point, and to a vector.
  constexpr qcVector<N> invMapPoint(const qcVector<N>& p) const { return inverse().mapPoint(p); }
  constexpr qcVector<N> invMapVector(const qcVector<N>& v) const { return matrix_.inverse() * v; }

  /// The matrix inv(M) and the translation -(inv(M) * t).
  constexpr qcXform inverse() const {
    const qcMatrix<N> m = matrix_.inverse();
    return {m, -(m * trans_)};
  }

  /// The transform that applies `first` and then this one: matrix MA * MB, translation tA + MA * tB.
  constexpr qcXform compose(const qcXform& first) const {
    return {matrix_ * first.matrix_, trans_ + matrix_ * first.trans_};
  }
  constexpr qcXform operator*(const qcXform& first) const { return compose(first); }

  /// An area times the absolute value of the determinant, and divided by it.
  double mapArea(double area) const requires(N == 2) { return std::fabs(matrix_.determinant()) * area; }
  double invMapArea(double area) const requires(N == 2) {
    if (isSingular()) qf_throwSingular();
    return area / std::fabs(matrix_.determinant());
  }

  /// The angle of the image of the direction (cos angle, sin angle), within [-pi, pi]; 0 when a singular matrix
  /// maps it to the null vector.
  qcRadian mapAngle(const qcRadian& angle) const requires(N == 2) {
    return direction(matrix_ * qcVector<2>(std::cos(angle.plain()), std::sin(angle.plain())));
  }
  /// The angle of the direction that is mapped to the direction of `angle`.
  qcRadian invMapAngle(const qcRadian& angle) const requires(N == 2) {
    if (isSingular()) qf_throwSingular();
    const double c = std::cos(angle.plain()), s = std::sin(angle.plain());
    // The adjugate is the inverse up to the determinant, of which only the sign matters to a direction.
    const qcVector<2> u(matrix_.element(1, 1) * c - matrix_.element(0, 1) * s,
                        matrix_.element(0, 0) * s - matrix_.element(1, 0) * c);
    return direction(matrix_.determinant() < 0 ? -u : u);
  }

  constexpr bool isSingular() const { return matrix_.isSingular(); }
  constexpr bool isIdentity() const { return trans_.isNull() && matrix_.isIdentity(); }

  friend constexpr bool operator==(const qcXform&, const qcXform&) = default;

  /// True when every element of translation and matrix differs by at most eps.
  friend bool qfRealEq(const qcXform& a, const qcXform& b, double eps) {
    return qfRealEq(a.trans_, b.trans_, eps) && qfRealEq(a.matrix_, b.matrix_, eps);
  }

 private:
  static qcRadian direction(const qcVector<2>& v) {
    return v.isNull() ? qcRadian(0) : qcRadian(std::atan2(v.y(), v.x()));
  }

  qcVector<N> trans_;
  qcMatrix<N> matrix_;
};

/// Store or load a version byte (0), the translation and the matrix, each with its own version byte. In two
/// dimensions one more byte follows, which says whether the transform is the identity and is ignored on loading.
/// Another version throws qcArchive::UnknownVersion. A load that throws leaves the transform as it was.
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcXform<2>& xform);
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcXform<3>& xform);
