// Square matrices of two and three rows, with a cached determinant.
#pragma once

#include <cmath>

#include "vnxstd/export.h"
#include "vnxstd/math/angle.h"
#include "vnxstd/math/error.h"
#include "vnxstd/math/plain.h"
#include "vnxstd/math/vector.h"

class qcArchive;

/// A matrix of N x N doubles (N = 2 or 3) in row-major order, followed by its determinant, which every operation
/// that changes an element computes anew from the elements. A plain value without virtual functions; nothing
/// allocates. Comparisons are exact and look at the elements only. A matrix is singular when its determinant is
/// exactly 0: callers that need a tolerance look at determinant() themselves.
///
/// A matrix of two rows can be made from, and taken apart into, either of two sets of four numbers:
///  - xRot, yRot, xScale, yScale: the x axis is mapped to a vector of length xScale at angle xRot, the y axis to
///    one of length yScale at yRot + 90 degrees;
///  - scale, aspect, shear, rotation: M = scale * R(rotation) * [1, -aspect * tan shear; 0, aspect].
/// The four come back as given up to rounding, for positive scales, rotations within (-pi, pi] and shears within
/// (-pi/2, pi/2).
template <int N>
class VNXSTD_EXPORT qcMatrix {
  static_assert(N == 2 || N == 3, "matrices have two or three rows");

 public:
  /// The identity.
  constexpr qcMatrix() : a_{}, det_(1) {
    for (int i = 0; i < N; ++i) a_[i * N + i] = 1;
  }
  /// The elements, row by row.
  constexpr qcMatrix(double a00, double a01, double a10, double a11) requires(N == 2) : a_{a00, a01, a10, a11} {
    setdt();
  }
  constexpr qcMatrix(double a00, double a01, double a02, double a10, double a11, double a12, double a20, double a21,
                     double a22) requires(N == 3)
      : a_{a00, a01, a02, a10, a11, a12, a20, a21, a22} {
    setdt();
  }
  qcMatrix(const qcRadian& xRot, const qcRadian& yRot, double xScale, double yScale) requires(N == 2)
      : qcMatrix(xScale * std::cos(xRot.plain()), -yScale * std::sin(yRot.plain()), xScale * std::sin(xRot.plain()),
                 yScale * std::cos(yRot.plain())) {}
  qcMatrix(double scale, double aspect, const qcRadian& shear, const qcRadian& rotation) requires(N == 2) {
    const double c = std::cos(rotation.plain()), s = std::sin(rotation.plain()), t = std::tan(shear.plain());
    *this = qcMatrix(scale * c, scale * aspect * (-s - t * c), scale * s, scale * aspect * (c - t * s));
  }
  constexpr qcMatrix(const qmath_matrix& m) requires(N == 2) : qcMatrix(m.a00, m.a01, m.a10, m.a11) {}
  constexpr qcMatrix(const qx2Matrix& m) requires(N == 2)
      : qcMatrix(m.element[0][0], m.element[0][1], m.element[1][0], m.element[1][1]) {}
  constexpr operator qmath_matrix() const requires(N == 2) { return {a_[0], a_[1], a_[2], a_[3]}; }
  constexpr operator qx2Matrix() const requires(N == 2) { return {{{a_[0], a_[1]}, {a_[2], a_[3]}}}; }

  /// The element of a row and a column, counted from 0; they are not checked.
  constexpr double element(int row, int column) const { return a_[row * N + column]; }
  constexpr void element(int row, int column, double value) {
    a_[row * N + column] = value;
    setdt();
  }

  constexpr double determinant() const { return det_; }
  constexpr bool isSingular() const { return det_ == 0; }
  constexpr bool isIdentity() const { return *this == qcMatrix(); }

  /// Throws qcInvariantFailure when the cached determinant is not exactly that of the elements, which can only
  /// be after loading a damaged archive.
  void repInvariant() const {
    const double fresh = determinantOfElements();
    if (fresh != det_ && !(std::isnan(fresh) && std::isnan(det_))) qf_throwInvariantFailure();
  }

  /// The lengths of the images of the axes. These and the other accessors that take the matrix apart throw
  /// qcMathError::Singular when the determinant is exactly 0. scale is another name of xScale.
  double xScale() const { return columnLength(0); }
  double yScale() const { return columnLength(1); }
  double zScale() const requires(N == 3) { return columnLength(2); }
  double scale() const requires(N == 2) { return columnLength(0); }

  /// The angle of the image of the x axis; rotation is another name of xRot. yRot is the angle of the image of
  /// the y axis less a right angle.
  qcRadian xRot() const requires(N == 2) {
    checkRegular();
    return qcRadian(std::atan2(a_[2], a_[0]));
  }
  qcRadian rotation() const requires(N == 2) { return xRot(); }
  qcRadian yRot() const requires(N == 2) {
    checkRegular();
    return qcRadian(std::atan2(-a_[1], a_[3]));
  }
  /// Determinant over squared scale: negative for a matrix that mirrors.
  double aspect() const requires(N == 2) {
    checkRegular();
    return det_ / (a_[0] * a_[0] + a_[2] * a_[2]);
  }
  qcRadian shear() const requires(N == 2) {
    checkRegular();
    return qcRadian(-std::atan((a_[0] * a_[1] + a_[2] * a_[3]) / det_));
  }

  constexpr qcMatrix transpose() const {
    qcMatrix result;
    for (int row = 0; row < N; ++row) {
      for (int column = 0; column < N; ++column) result.a_[column * N + row] = a_[row * N + column];
    }
    result.setdt();
    return result;
  }

  /// The adjugate times 1/determinant; its own determinant is computed from the result's elements. Throws
  /// qcMathError::Singular when the determinant is exactly 0.
  constexpr qcMatrix inverse() const {
    checkRegular();
    const double d = 1.0 / det_;
    if constexpr (N == 2) {
      return qcMatrix(a_[3] * d, -a_[1] * d, -a_[2] * d, a_[0] * d);
    } else {
      return qcMatrix(minor(1, 2, 1, 2) * d, -minor(0, 2, 1, 2) * d, minor(0, 1, 1, 2) * d,   //
                      -minor(1, 2, 0, 2) * d, minor(0, 2, 0, 2) * d, -minor(0, 1, 0, 2) * d,  //
                      minor(1, 2, 0, 1) * d, -minor(0, 2, 0, 1) * d, minor(0, 1, 0, 1) * d);
    }
  }

  constexpr qcMatrix operator-() const {
    qcMatrix result = *this;
    for (double& element : result.a_) element = -element;
    result.setdt();
    return result;
  }
  constexpr qcMatrix& operator+=(const qcMatrix& other) {
    for (int i = 0; i < N * N; ++i) a_[i] += other.a_[i];
    setdt();
    return *this;
  }
  constexpr qcMatrix& operator-=(const qcMatrix& other) {
    for (int i = 0; i < N * N; ++i) a_[i] -= other.a_[i];
    setdt();
    return *this;
  }
  constexpr qcMatrix& operator*=(const qcMatrix& other) { return *this = *this * other; }
  /// Multiplication by the inverse of the divisor; throws qcMathError::Singular when the divisor is singular.
  constexpr qcMatrix& operator/=(const qcMatrix& divisor) { return *this = *this / divisor; }
  constexpr qcMatrix& operator*=(double factor) {
    for (double& element : a_) element *= factor;
    setdt();
    return *this;
  }
  constexpr qcMatrix& operator/=(double divisor) {
    for (double& element : a_) element /= divisor;
    setdt();
    return *this;
  }

  friend constexpr qcMatrix operator+(qcMatrix a, const qcMatrix& b) { return a += b; }
  friend constexpr qcMatrix operator-(qcMatrix a, const qcMatrix& b) { return a -= b; }
  friend constexpr qcMatrix operator*(qcMatrix a, double factor) { return a *= factor; }
  friend constexpr qcMatrix operator*(double factor, qcMatrix a) { return a *= factor; }
  friend constexpr qcMatrix operator/(qcMatrix a, double divisor) { return a /= divisor; }
  friend constexpr qcMatrix operator/(const qcMatrix& a, const qcMatrix& b) { return a * b.inverse(); }
  friend constexpr qcMatrix operator*(const qcMatrix& a, const qcMatrix& b) {
    qcMatrix result;
    for (int row = 0; row < N; ++row) {
      for (int column = 0; column < N; ++column) {
        double sum = a.a_[row * N] * b.a_[column];
        for (int i = 1; i < N; ++i) sum += a.a_[row * N + i] * b.a_[i * N + column];
        result.a_[row * N + column] = sum;
      }
    }
    result.setdt();
    return result;
  }
  friend constexpr qcVector<N> operator*(const qcMatrix& m, const qcVector<N>& v) {
    qcVector<N> result;
    for (int row = 0; row < N; ++row) {
      double sum = m.a_[row * N] * v[0];
      for (int i = 1; i < N; ++i) sum += m.a_[row * N + i] * v[i];
      result[row] = sum;
    }
    return result;
  }
  /// Replaces v by m * v.
  friend constexpr qcVector<N>& operator*=(qcVector<N>& v, const qcMatrix& m) { return v = m * v; }

  friend constexpr bool operator==(const qcMatrix& a, const qcMatrix& b) {
    for (int i = 0; i < N * N; ++i) {
      if (!(a.a_[i] == b.a_[i])) return false;
    }
    return true;
  }

  /// True when every element of a and b differs by at most eps; the determinants are not compared.
  friend bool qfRealEq(const qcMatrix& a, const qcMatrix& b, double eps) {
    for (int i = 0; i < N * N; ++i) {
      if (!qfRealEq(a.a_[i], b.a_[i], eps)) return false;
    }
    return true;
  }

 private:
  template <int M>
  friend struct qc_MatrixArchive;

  constexpr double minor(int row0, int row1, int column0, int column1) const {
    return a_[row0 * N + column0] * a_[row1 * N + column1] - a_[row1 * N + column0] * a_[row0 * N + column1];
  }
  constexpr double determinantOfElements() const {
    if constexpr (N == 2) {
      return minor(0, 1, 0, 1);
    } else {
      return a_[0] * minor(1, 2, 1, 2) - a_[1] * minor(1, 2, 0, 2) + a_[2] * minor(1, 2, 0, 1);
    }
  }
  constexpr void setdt() { det_ = determinantOfElements(); }
  constexpr void checkRegular() const {
    if (isSingular()) qf_throwSingular();
  }
  double columnLength(int column) const {
    checkRegular();
    double sum = a_[column] * a_[column];
    for (int row = 1; row < N; ++row) sum += a_[row * N + column] * a_[row * N + column];
    return std::sqrt(sum);
  }

  double a_[N * N];
  double det_;
};

/// Store or load a version byte (0), the elements row by row and the determinant; another version throws
/// qcArchive::UnknownVersion. The determinant is kept as stored, so that a file is rewritten byte for byte:
/// repInvariant() tells whether it fits. A load that throws leaves the matrix as it was.
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcMatrix<2>& m);
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcMatrix<3>& m);
