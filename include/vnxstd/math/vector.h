// Vectors of two and three doubles.
#pragma once

#include <cmath>
#include <vector>

#include "vnxstd/export.h"
#include "vnxstd/math/angle.h"
#include "vnxstd/math/error.h"
#include "vnxstd/math/pair.h"
#include "vnxstd/math/plain.h"
#include "vnxstd/math/scalar.h"

class qcArchive;

/// A point or vector of N = 2 or 3 doubles, in the order x, y, z. A plain value without virtual functions;
/// nothing allocates. Comparisons are exact. Sums run from x to z; nothing is guarded against overflow, underflow
/// or division by zero unless said so.
template <int N>
class VNXSTD_EXPORT qcVector {
  static_assert(N == 2 || N == 3, "vectors have two or three elements");

 public:
  /// Asks the constructor to leave the elements unset.
  struct NoInit {};

  constexpr qcVector() : v_{} {}
  explicit qcVector(NoInit) {}
  constexpr qcVector(double x, double y) requires(N == 2) : v_{x, y} {}
  constexpr qcVector(double x, double y, double z) requires(N == 3) : v_{x, y, z} {}
  /// The vector (length * cos angle, length * sin angle).
  qcVector(double length, const qcRadian& angle) requires(N == 2)
      : v_{length * std::cos(angle.plain()), length * std::sin(angle.plain())} {}
  template <class T>
  constexpr qcVector(const qcPair<T>& pair) requires(N == 2)
      : v_{static_cast<double>(pair.x()), static_cast<double>(pair.y())} {}
  constexpr qcVector(const qmath_vect& v) requires(N == 2) : v_{v.x, v.y} {}
  constexpr operator qmath_vect() const requires(N == 2) { return {v_[0], v_[1]}; }

  constexpr double x() const { return v_[0]; }
  constexpr double y() const { return v_[1]; }
  constexpr double z() const requires(N == 3) { return v_[2]; }
  constexpr void x(double x) { v_[0] = x; }
  constexpr void y(double y) { v_[1] = y; }
  constexpr void z(double z) requires(N == 3) { v_[2] = z; }

  /// The element of an index from 0 to N - 1; the index is not checked.
  constexpr const double& operator[](int index) const { return v_[index]; }
  constexpr double& operator[](int index) { return v_[index]; }

  constexpr qcVector& operator+=(const qcVector& other) {
    for (int i = 0; i < N; ++i) v_[i] += other.v_[i];
    return *this;
  }
  constexpr qcVector& operator-=(const qcVector& other) {
    for (int i = 0; i < N; ++i) v_[i] -= other.v_[i];
    return *this;
  }
  constexpr qcVector& operator*=(double factor) {
    for (double& element : v_) element *= factor;
    return *this;
  }
  constexpr qcVector& operator/=(double divisor) {
    for (double& element : v_) element /= divisor;
    return *this;
  }
  constexpr qcVector operator-() const {
    qcVector result = *this;
    for (double& element : result.v_) element = -element;
    return result;
  }

  friend constexpr qcVector operator+(qcVector a, const qcVector& b) { return a += b; }
  friend constexpr qcVector operator-(qcVector a, const qcVector& b) { return a -= b; }
  friend constexpr qcVector operator*(qcVector a, double factor) { return a *= factor; }
  friend constexpr qcVector operator*(double factor, qcVector a) { return a *= factor; }
  friend constexpr qcVector operator/(qcVector a, double divisor) { return a /= divisor; }

  /// The dot product.
  friend constexpr double operator*(const qcVector& a, const qcVector& b) {
    double sum = a.v_[0] * b.v_[0];
    for (int i = 1; i < N; ++i) sum += a.v_[i] * b.v_[i];
    return sum;
  }

  /// The cross product: in two dimensions the number x1*y2 - y1*x2, in three a vector.
  constexpr double cross(const qcVector& other) const requires(N == 2) {
    return v_[0] * other.v_[1] - v_[1] * other.v_[0];
  }
  constexpr qcVector cross(const qcVector& other) const requires(N == 3) {
    return {v_[1] * other.v_[2] - v_[2] * other.v_[1], v_[2] * other.v_[0] - v_[0] * other.v_[2],
            v_[0] * other.v_[1] - v_[1] * other.v_[0]};
  }

  /// The square root of the sum of squares, and that of the difference to another point.
  double len() const { return std::sqrt(*this * *this); }
  double distance(const qcVector& other) const { return (*this - other).len(); }

  /// True when every element is exactly 0 (of either sign).
  constexpr bool isNull() const { return *this == qcVector(); }

  /// The vector times 1/len(). Throws qcMathError::NullVector when the vector is null.
  qcVector unit() const {
    if (isNull()) qf_throwNullVector();
    return *this * (1.0 / len());
  }

  /// atan2(y, x). Throws qcMathError::NullVector when the vector is null.
  qcRadian angle() const requires(N == 2) {
    if (isNull()) qf_throwNullVector();
    return qcRadian(std::atan2(v_[1], v_[0]));
  }

  /// (-y, x): the vector turned from the x axis towards the y axis by a right angle.
  constexpr qcVector perpendicular() const requires(N == 2) { return {-v_[1], v_[0]}; }

  /// The projection of another vector onto the direction u of this one: u * (other * u). Throws
  /// qcMathError::NullVector when this vector is null.
  qcVector project(const qcVector& other) const {
    const qcVector u = unit();
    return u * (other * u);
  }

  /// The integers next below and above each element, clamped as qfIFloor and qfICeil do.
  qcPair<long> floor() const requires(N == 2) { return {qfIFloor(v_[0]), qfIFloor(v_[1])}; }
  qcPair<long> ceil() const requires(N == 2) { return {qfICeil(v_[0]), qfICeil(v_[1])}; }

  friend constexpr bool operator==(const qcVector&, const qcVector&) = default;

  /// True when every element of a and b differs by at most eps.
  friend bool qfRealEq(const qcVector& a, const qcVector& b, double eps) {
    for (int i = 0; i < N; ++i) {
      if (!qfRealEq(a.v_[i], b.v_[i], eps)) return false;
    }
    return true;
  }

 private:
  double v_[N];
};

/// Store or load a version byte (0) and the elements; another version throws qcArchive::UnknownVersion. A load
/// that throws leaves the vector as it was.
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcVector<2>& v);
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcVector<3>& v);

/// The same bytes as the archive's general operator for counted vectors, moved in blocks. Loading replaces the
/// vector, also when it throws midway.
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, std::vector<qcVector<2>>& points);
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, std::vector<qcVector<3>>& points);
