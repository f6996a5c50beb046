#include "zrtnlxf/polynomial.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "zrtnlxf/leastsq.h"
#include "zrtnlxf/local.h"
#include "zrtnlxf/points.h"
#include "zrtnlxf/simd.h"

namespace {

using zrtnlxf::Status;

constexpr std::size_t sizeOf(int order) { return static_cast<std::size_t>((order + 1) * (order + 2) / 2); }
static_assert(sizeOf(zrtnlxf::kMaxPolyOrder) == zrtnlxf::kMaxPolySize);

bool isOrder(std::int32_t order) { return order >= 1 && order <= zrtnlxf::kMaxPolyOrder; }

bool isPoly(const qmath_xformPoly* poly) { return poly && poly->coefs && isOrder(poly->order); }

// Horner's scheme in u for each power of v, and in v over these. The coefficient of u^i v^j is that of degree d = i + j
// at d (d + 1) / 2 + j, so that the one of the next lower power of u lies d before it.
template <class V>
[[gnu::always_inline]] inline void evaluate(int order, const double* c, const V& u, const V& v, V& result) {
  const V zero{};
  std::size_t last = sizeOf(order) - 1;
  V sum = c[last] - zero;
  for (int j = order - 1; j >= 0; --j) {
    std::size_t k = --last;
    V inner = c[k] - zero;
    for (int d = order; d > j; --d) {
      k -= static_cast<std::size_t>(d);
      inner = inner * u + c[k];
    }
    sum = sum * v + inner;
  }
  result = sum;
}

// The same, with the derivatives by u and v.
void evaluate(int order, const double* c, double u, double v, double& result, double& byU, double& byV) {
  std::size_t last = sizeOf(order) - 1;
  result = c[last];
  byU = byV = 0;
  for (int j = order - 1; j >= 0; --j) {
    std::size_t k = --last;
    double inner = c[k], innerByU = 0;
    for (int d = order; d > j; --d) {
      k -= static_cast<std::size_t>(d);
      innerByU = innerByU * u + inner;
      inner = inner * u + c[k];
    }
    byV = byV * v + result;
    byU = byU * v + innerByU;
    result = result * v + inner;
  }
}

template <class V>
[[gnu::always_inline]] inline void mapOne(int order, const qmath_xformPoly& poly, const double* coefs, V& x, V& y) {
  const V u = (x - poly.origin.x) * poly.scale.x, v = (y - poly.origin.y) * poly.scale.y;
  evaluate(order, coefs, u, v, x);
  evaluate(order, coefs + sizeOf(order), u, v, y);
}

// Gives whether all images are finite. A constant order lets the compiler unroll the polynomials.
template <class V>
[[gnu::always_inline]] inline bool mapAll(int order, const qmath_xformPoly& given, const double* in, double* out,
                                          std::size_t count) {
  const qmath_xformPoly poly = given;  // stores to `out` cannot reach copies
  double coefs[2 * zrtnlxf::kMaxPolySize];
  std::copy_n(poly.coefs, 2 * sizeOf(order), coefs);
  return zrtnlxf::mapAll<V>(
      in, out,
      count, [&](auto& x, auto& y, auto&) __attribute__((always_inline)) { mapOne(order, poly, coefs, x, y); });
}

template <class V>
[[gnu::always_inline]] inline bool mapAll(const qmath_xformPoly& poly, const double* in, double* out,
                                          std::size_t count) {
  switch (poly.order) {
    case 2:
      return mapAll<V>(2, poly, in, out, count);
    case 3:
      return mapAll<V>(3, poly, in, out, count);
    case 4:
      return mapAll<V>(4, poly, in, out, count);
    case 5:
      return mapAll<V>(5, poly, in, out, count);
    default:
      return mapAll<V>(poly.order, poly, in, out, count);
  }
}

#if ZRTNLXF_AVX2
[[gnu::target("avx2")]] bool mapAvx2(const qmath_xformPoly& poly, const double* in, double* out, std::size_t count) {
  return mapAll<zrtnlxf::Four>(poly, in, out, count);
}
#endif

auto derivatives(const qmath_xformPoly* poly) {
  return
      [poly](const qmath_vect& p, qmath_vect& f, qmath_matrix& m) { return qmath_xformPolyDerivs_(poly, &p, &f, &m); };
}

// Makes coefficients in u and v those in u - du and v - dv, by repeated synthetic division.
void shift(int order, double* c, double du, double dv) {
  const auto at = [c](int i, int j) -> double& { return c[(i + j) * (i + j + 1) / 2 + j]; };
  for (int j = 0; j <= order; ++j) {
    for (int k = 0; k < order - j; ++k) {
      for (int i = order - j - 1; i >= k; --i) at(i, j) += du * at(i + 1, j);
    }
  }
  for (int i = 0; i <= order; ++i) {
    for (int k = 0; k < order - i; ++k) {
      for (int j = order - i - 1; j >= k; --j) at(i, j) += dv * at(i, j + 1);
    }
  }
}

// As a status; throws std::bad_alloc.
Status distinct(const double* points, std::size_t count, std::size_t& number) {
  if (!points && count != 0) return zrtnlxf::badArgument;
  if (!zrtnlxf::areFinite(points, 2 * count)) return zrtnlxf::badArgument;
  std::vector<std::pair<double, double>> sorted(count);
  for (std::size_t i = 0; i < count; ++i) sorted[i] = {points[2 * i], points[2 * i + 1]};
  std::ranges::sort(sorted);
  number = static_cast<std::size_t>(std::unique(sorted.begin(), sorted.end()) - sorted.begin());
  return zrtnlxf::ok;
}

// The middle of the coordinates that start at `numbers` and lie two apart, and the factor that makes them reach 1.
void fitRange(const double* numbers, std::size_t count, double& middle, double& factor) {
  double low = numbers[0], high = numbers[0];
  for (std::size_t i = 0; i < count; ++i) {
    low = std::min(low, numbers[2 * i]);
    high = std::max(high, numbers[2 * i]);
  }
  middle = low / 2 + high / 2;
  factor = 1 / (high / 2 - low / 2);
}

// By how much the derivative changes over a reach: that of a term of degree n, in any direction, by at most n times the
// largest value of the term over the radius. Along a line it is that of all terms of the degree at the reach; anywhere
// around, where `reach` is the radius in both coordinates, signs are not known.
double bendWithin(const qmath_xformPoly& poly, const qmath_vect& center, const qmath_vect& reach, double radius,
                  bool anywhere) {
  const double u = (center.x - poly.origin.x) * poly.scale.x, v = (center.y - poly.origin.y) * poly.scale.y;
  const auto term = [anywhere](double value) { return anywhere ? std::fabs(value) : value; };
  const double reachU = term(poly.scale.x * reach.x), reachV = term(poly.scale.y * reach.y);
  double powersU[zrtnlxf::kMaxPolyOrder + 1] = {1}, powersV[zrtnlxf::kMaxPolyOrder + 1] = {1};
  for (int i = 1; i <= poly.order; ++i) {
    powersU[i] = powersU[i - 1] * reachU;
    powersV[i] = powersV[i - 1] * reachV;
  }
  double sums[2] = {0, 0};
  for (int k = 0; k < 2; ++k) {
    double c[zrtnlxf::kMaxPolySize];
    std::copy_n(poly.coefs + static_cast<std::size_t>(k) * sizeOf(poly.order), sizeOf(poly.order), c);
    shift(poly.order, c, u, v);
    for (int n = 2; n <= poly.order; ++n) {
      double sum = 0;
      for (int j = 0; j <= n; ++j) sum += term(c[n * (n + 1) / 2 + j]) * powersU[n - j] * powersV[j];
      sums[k] += n * std::fabs(sum);
    }
  }
  const double sum = std::hypot(sums[0], sums[1]);
  return sum == 0 ? 0 : std::isfinite(sum) ? sum / radius : std::numeric_limits<double>::infinity();
}

}  // namespace

Status qmath_xformPolySize(std::int32_t order) noexcept {
  return isOrder(order) ? static_cast<Status>(sizeOf(order)) : zrtnlxf::badArgument;
}

Status qmath_xformPolyInitIdentityArray_(std::int32_t order, double* coefs) noexcept {
  if (!isOrder(order) || !coefs) return zrtnlxf::badArgument;
  std::fill_n(coefs, 2 * sizeOf(order), 0.0);
  coefs[1] = coefs[sizeOf(order) + 2] = 1;
  return zrtnlxf::ok;
}

Status qmath_xformPolyMinOrder_(const double* points, std::size_t count) noexcept {
  return std::min(qmath_xformPolyMaxOrder_(points, count), Status{1});
}

Status qmath_xformPolyMaxOrder_(const double* points, std::size_t count) noexcept {
  return zrtnlxf::guarded([&] {
    std::size_t number = 0;
    const Status status = distinct(points, count, number);
    if (status < 0) return status;
    std::int32_t order = 0;
    while (order < zrtnlxf::kMaxPolyOrder && sizeOf(order + 1) <= number) ++order;
    return order == 0 ? zrtnlxf::badArgument : order;
  });
}

Status qmath_xformPolyFit_(const double* from, const double* to, std::size_t count, std::int32_t order,
                           qmath_vect* origin, qmath_vect* scale, double* coefs) noexcept {
  if (!to || !isOrder(order) || !origin || !scale || !coefs) return zrtnlxf::badArgument;
  return zrtnlxf::guarded([&] {
    std::size_t number = 0;
    const Status status = distinct(from, count, number);
    if (status < 0) return status;
    const std::size_t size = sizeOf(order);
    if (number < size || !zrtnlxf::areFinite(to, 2 * count)) return zrtnlxf::badArgument;
    qmath_vect middle, factor;
    fitRange(from, count, middle.x, factor.x);
    fitRange(from + 1, count, middle.y, factor.y);
    if (!std::isfinite(factor.x) || !std::isfinite(factor.y)) return zrtnlxf::degenerate;

    zrtnlxf::Triangle triangle(size + 2);
    for (std::size_t i = 0; i < count; ++i) {
      const double u = (from[2 * i] - middle.x) * factor.x, v = (from[2 * i + 1] - middle.y) * factor.y;
      std::array<double, zrtnlxf::kMaxPolySize + 2> row;
      row[0] = 1;
      std::size_t k = 1;
      for (std::size_t degree = 1; k < size; ++degree) {
        for (std::size_t j = 0; j < degree; ++j, ++k) row[k] = row[k - degree] * u;
        row[k] = row[k - degree - 1] * v;
        ++k;
      }
      row[size] = to[2 * i] - to[0];  // small numbers: what the first point has is added in the end
      row[size + 1] = to[2 * i + 1] - to[1];
      triangle.add(row.data());
    }
    const zrtnlxf::SingularValues svd(triangle, size);
    const auto [least, most] = std::ranges::minmax(svd.values);
    const double farthest = std::max(std::fabs(middle.x * factor.x), std::fabs(middle.y * factor.y));
    const double rounding = std::numeric_limits<double>::epsilon() * std::max(1.0, farthest);
    if (!(least > zrtnlxf::degenerateBelow(rounding, count) * most)) return zrtnlxf::degenerate;
    std::array<double, 2 * zrtnlxf::kMaxPolySize> solution{};
    for (std::size_t side = 0; side < 2; ++side) {
      double* const x = &solution[side * size];
      for (std::size_t i = size; i-- > 0;) {
        x[i] = triangle.at(i, size + side);
        for (std::size_t j = i + 1; j < size; ++j) x[i] -= triangle.at(i, j) * x[j];
        x[i] /= triangle.at(i, i);
      }
    }
    // Within [-1, 1] no image has terms, and so rounding errors, beyond the sum of the coefficients.
    double terms = 0;
    for (const double coef : solution) terms += std::fabs(coef);
    const double worst = zrtnlxf::kWorstError * zrtnlxf::Frame(to, count).extent();
    if (!(std::numeric_limits<double>::epsilon() * terms <= worst)) return zrtnlxf::degenerate;
    solution[0] += to[0];
    solution[size] += to[1];
    if (!zrtnlxf::areFinite(solution.data(), 2 * size)) return zrtnlxf::degenerate;
    std::copy_n(solution.begin(), 2 * size, coefs);
    *origin = middle;
    *scale = factor;
    return zrtnlxf::ok;
  });
}

Status qmath_xformPolyMapPoint_(const qmath_xformPoly* poly, const qmath_vect* point, qmath_vect* image) noexcept {
  if (!isPoly(poly) || !point || !image) return zrtnlxf::badArgument;
  double x = point->x, y = point->y;
  mapOne(poly->order, *poly, poly->coefs, x, y);
  if (!std::isfinite(x) || !std::isfinite(y)) return zrtnlxf::atInfinity;
  *image = {x, y};
  return zrtnlxf::ok;
}

Status qmath_xformPolyMapPoints_(const qmath_xformPoly* poly, const double* in, double* out,
                                 std::size_t count) noexcept {
  if (count == 0) return zrtnlxf::ok;
  if (!isPoly(poly) || !in || !out) return zrtnlxf::badArgument;
#if ZRTNLXF_AVX2
  if (zrtnlxf::level() > 0) return mapAvx2(*poly, in, out, count) ? zrtnlxf::ok : zrtnlxf::atInfinity;
#endif
  return mapAll<zrtnlxf::Two>(*poly, in, out, count) ? zrtnlxf::ok : zrtnlxf::atInfinity;
}

Status qmath_xformPolyIsLinear_(const qmath_xformPoly* poly) noexcept {
  if (!isPoly(poly)) return zrtnlxf::badArgument;
  const std::size_t size = sizeOf(poly->order);
  const auto isZero = [](double coef) { return coef == 0; };
  return std::all_of(poly->coefs + 3, poly->coefs + size, isZero) &&
                 std::all_of(poly->coefs + size + 3, poly->coefs + 2 * size, isZero)
             ? 1
             : 0;
}

Status qmath_xformPolyDerivs_(const qmath_xformPoly* poly, const qmath_vect* point, qmath_vect* image,
                              qmath_matrix* derivatives) noexcept {
  if (!isPoly(poly) || !point || !image || !derivatives) return zrtnlxf::badArgument;
  const double u = (point->x - poly->origin.x) * poly->scale.x, v = (point->y - poly->origin.y) * poly->scale.y;
  qmath_vect f;
  qmath_matrix m;
  evaluate(poly->order, poly->coefs, u, v, f.x, m.a00, m.a01);
  evaluate(poly->order, poly->coefs + sizeOf(poly->order), u, v, f.y, m.a10, m.a11);
  m = {m.a00 * poly->scale.x, m.a01 * poly->scale.y, m.a10 * poly->scale.x, m.a11 * poly->scale.y};
  const double all[6] = {f.x, f.y, m.a00, m.a01, m.a10, m.a11};
  if (!zrtnlxf::areFinite(all, 6)) return zrtnlxf::atInfinity;
  *image = f;
  *derivatives = m;
  return zrtnlxf::ok;
}

Status qmath_xformPolyBend_(const qmath_xformPoly* poly, const qmath_vect* center, double radius,
                            double* bend) noexcept {
  if (!isPoly(poly) || !center || !bend || !(radius >= 0)) return zrtnlxf::badArgument;
  *bend = bendWithin(*poly, *center, {radius, radius}, radius, true);
  return zrtnlxf::ok;
}

Status qmath_xformPolyBendAlong_(const qmath_xformPoly* poly, const qmath_vect* center, const qmath_vect* reach,
                                 double* bend) noexcept {
  if (!isPoly(poly) || !center || !reach || !bend) return zrtnlxf::badArgument;
  *bend = bendWithin(*poly, *center, *reach, std::hypot(reach->x, reach->y), false);
  return zrtnlxf::ok;
}

Status qmath_xformPolyLinearXform_(const qmath_xformPoly* poly, const qmath_vect* point,
                                   qmath_xformLinear* linear) noexcept {
  if (!isPoly(poly) || !point || !linear) return zrtnlxf::badArgument;
  const qmath_vect at = qmath_xformPolyIsLinear_(poly) == 1 ? poly->origin : *point;
  return zrtnlxf::expand(derivatives(poly), at, linear);
}

Status qmath_xformPolyInvMapPoint_(const qmath_xformPoly* poly, const qmath_vect* image, qmath_vect* point) noexcept {
  if (!isPoly(poly) || !image || !point) return zrtnlxf::badArgument;
  const double unit = 1 / std::max(std::fabs(poly->scale.x), std::fabs(poly->scale.y));
  return zrtnlxf::invert(derivatives(poly), *image, poly->origin, unit, point);
}
