// Arithmetic on the sums of the fitters, in extended precision.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>

#include "vnxstd/cfit/sums.h"
#include "vnxstd/math/xform.h"

namespace cfit {

using Wide = long double;

/// A quotient whose magnitude would exceed 1 / kQuotient is not taken, whatever the scale of the data.
inline constexpr Wide kQuotient = 1e-15;
/// A difference that is not above this part of what it was taken from is rounding.
inline constexpr Wide kRank = 1e-14;

/// What n additions of rounded products may lose, relative to the sum of their magnitudes: n units of rounding.
inline Wide rounding(Wide n) { return n * 0x1p-53L; }

/// What a sum of n products about the means may lose, relative to the magnitudes of the sum that is not: that sum loses
/// n units, and the product of two plain sums, which is taken from it, 2 * (n - 1).
inline Wide centring(Wide n) { return rounding(3 * n); }

/// Sums over points of products of the homogeneous coordinates (x, y, 1), or a transform of these.
using Vector3 = std::array<Wide, 3>;
using Matrix3 = std::array<Vector3, 3>;

inline Matrix3 homogeneous(const qcXform<2>& xform) {
  const qcMatrix<2>& m = xform.matrix();
  return {{{m.element(0, 0), m.element(0, 1), xform.trans().x()},
           {m.element(1, 0), m.element(1, 1), xform.trans().y()},
           {0, 0, 1}}};
}

inline Matrix3 moments(const qc_PointSums& s, Wide n) {
  return {{{s.xx, s.xy, s.x}, {s.xy, s.yy, s.y}, {s.x, s.y, n}}};
}

inline Wide dot(const Vector3& a, const Vector3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

inline Vector3 mapped(const Matrix3& h, const Vector3& v) { return {dot(h[0], v), dot(h[1], v), dot(h[2], v)}; }

/// h * m * transposed(h): the moments of the mapped points.
inline Matrix3 mapped(const Matrix3& h, const Matrix3& m) {
  Matrix3 result{};
  for (std::size_t i = 0; i < 3; ++i) {
    Vector3 row{};  // of h * m
    for (std::size_t j = 0; j < 3; ++j) {
      for (std::size_t k = 0; k < 3; ++k) row[j] += h[i][k] * m[k][j];
    }
    result[i] = mapped(h, row);
  }
  return result;
}

inline qc_PointSums pointSums(const Matrix3& m) {
  return {static_cast<double>(m[0][2]), static_cast<double>(m[1][2]), static_cast<double>(m[0][0]),
          static_cast<double>(m[1][1]), static_cast<double>(m[0][1])};
}

template <class... Numbers>
bool allFinite(Numbers... numbers) {
  return (std::isfinite(numbers) && ...);
}

inline bool allFinite(const qc_PointSums& s) { return allFinite(s.x, s.y, s.xx, s.yy, s.xy); }

/// Sums of squares come out a little below 0 where rounding has the last word.
inline double notNegative(Wide sum) { return sum < 0 ? 0.0 : static_cast<double>(sum); }

}  // namespace cfit
