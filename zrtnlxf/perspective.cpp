#include "zrtnlxf/perspective.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <type_traits>

#include "zrtnlxf/leastsq.h"
#include "zrtnlxf/local.h"
#include "zrtnlxf/points.h"
#include "zrtnlxf/simd.h"

using Elements = std::array<double, 9>;

struct qmath_xformPerspective {
  Elements h;
};

namespace {

using zrtnlxf::Frame;
using zrtnlxf::Status;

constexpr Elements kIdentity = {1, 0, 0, 0, 1, 0, 0, 0, 1};
constexpr double kVanishes = 1e-12;  // beside the largest element
constexpr double kInfinity = std::numeric_limits<double>::infinity();

Status make(const Elements& h, qmath_xformPerspective** state) {
  return zrtnlxf::guarded([&] {
    *state = new qmath_xformPerspective{h};
    return zrtnlxf::ok;
  });
}

double largestOf(const Elements& h) {
  double largest = 0;
  for (const double element : h) largest = std::max(largest, std::fabs(element));
  return largest;
}

double cross(const double* a, const double* b, const double* c) {
  return (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
}

// Points in their frame; those that come in pairs have the same index.
void enter(const Frame& frame, const double* points, std::size_t count, double* inside) {
  for (std::size_t i = 0; i < count; ++i) {
    inside[2 * i] = (points[2 * i] - frame.x) * frame.scale;
    inside[2 * i + 1] = (points[2 * i + 1] - frame.y) * frame.scale;
  }
}

// The map outside from the one between the frames.
Elements leave(const Elements& inside, const Frame& from, const Frame& to) {
  Elements h;
  for (std::size_t i = 0; i < 9; i += 3) {
    h[i] = inside[i] * from.scale;
    h[i + 1] = inside[i + 1] * from.scale;
    h[i + 2] = inside[i + 2] - h[i] * from.x - h[i + 1] * from.y;
  }
  for (std::size_t j = 0; j < 3; ++j) {
    h[j] = h[j] / to.scale + to.x * h[6 + j];
    h[3 + j] = h[3 + j] / to.scale + to.y * h[6 + j];
  }
  const double largest = largestOf(h);
  const double unit = std::fabs(h[8]) > kVanishes * largest ? h[8] : largest;
  for (double& element : h) element /= unit;
  return h;
}

Status makeFitted(const Elements& h, qmath_xformPerspective** state) {
  return zrtnlxf::areFinite(h.data(), 9) ? make(h, state) : zrtnlxf::degenerate;
}

// The determinant is not told from 0 when it is within the rounding errors of its terms.
struct Determinant {
  explicit Determinant(const Elements& h) {
    double terms = 0;
    for (std::size_t j = 0; j < 3; ++j) {
      const std::size_t k = (j + 1) % 3, l = (j + 2) % 3;
      const double a = h[j] * h[3 + k] * h[6 + l], b = h[j] * h[3 + l] * h[6 + k];
      value += a - b;
      terms += std::fabs(a) + std::fabs(b);
    }
    // Below the smallest normal number rounding errors are no longer relative.
    using Limits = std::numeric_limits<double>;
    isZero = !(std::fabs(value) > 8 * Limits::epsilon() * terms + Limits::min());
  }
  double value = 0;
  bool isZero;
};

// a * d - b * c with the error of one rounding: W. Kahan's way with fused operations. Far from the origin both products
// nearly cancel.
double cofactor(double a, double b, double c, double d) {
  const double bc = b * c, lost = std::fma(-b, c, bc);
  return std::fma(a, d, -bc) + lost;
}

// The elements over a power of two, so that products of three neither overflow nor vanish; all 0 unless all are finite.
Elements scaled(const Elements& h, int& exponent) {
  exponent = 0;
  const double largest = largestOf(h);
  if (largest == 0 || !zrtnlxf::areFinite(h.data(), 9)) return {};
  exponent = std::ilogb(largest);
  Elements result;
  std::ranges::transform(h, result.begin(), [&](double element) { return std::scalbn(element, -exponent); });
  return result;
}

// The image of a point, or of a vector of points. One division serves both coordinates: it costs as much as all else.
// A denominator that is infinite must not pass for one that makes the image 0, hence `w`.
template <class V>
[[gnu::always_inline]] inline void mapOne(const Elements& h, V& x, V& y, V& w) {
  w = h[6] * x + h[7] * y + h[8];
  const V r = 1.0 / w;
  const V u = (h[0] * x + h[1] * y + h[2]) * r;
  y = (h[3] * x + h[4] * y + h[5]) * r;
  x = u;
}

// Gives whether all images are finite.
template <class V>
[[gnu::always_inline]] inline bool mapAll(const Elements& elements, const double* in, double* out, std::size_t count) {
  const Elements h = elements;  // stores to `out` cannot reach it
  return zrtnlxf::mapAll<V>(
      in, out, count, [&](auto& x, auto& y, auto& zeros) __attribute__((always_inline)) {
        std::remove_reference_t<decltype(x)> w;
        mapOne(h, x, y, w);
        zeros += w * 0.0;
      });
}

#if ZRTNLXF_AVX2
[[gnu::target("avx2")]] bool mapAvx2(const Elements& h, const double* in, double* out, std::size_t count) {
  return mapAll<zrtnlxf::Four>(h, in, out, count);
}
#endif

}  // namespace

Status qmath_xformPerspective_construct(qmath_xformPerspective** state) noexcept {
  return state ? make(kIdentity, state) : zrtnlxf::badArgument;
}

// The map takes the homogeneous points s0, s1, s2 to multiples of d0, d1, d2, chosen so that s3 goes to d3. With areas
// of triangles for the multiples, s3 = sum l_i s_i and d3 = sum m_i d_i, it is the sum of (m_i / l_i) d_i (s_j x
// s_k)^T.
Status qmath_xformPerspective_construct4Points(const double* from, const double* to,
                                               qmath_xformPerspective** state) noexcept {
  if (!from || !to || !state || !zrtnlxf::areFinite(from, 8) || !zrtnlxf::areFinite(to, 8)) return zrtnlxf::badArgument;
  const Frame frames[2] = {Frame(from, 4), Frame(to, 4)};
  double points[2][8], areas[2][3];
  for (int side = 0; side < 2; ++side) {
    if (!frames[side].isUsable()) return zrtnlxf::degenerate;
    double* const p = points[side];
    enter(frames[side], side == 0 ? from : to, 4, p);
    const double all[4] = {cross(p + 2, p + 4, p + 6), cross(p + 4, p, p + 6), cross(p, p + 2, p + 6),
                           cross(p, p + 2, p + 4)};
    for (const double area : all) {
      if (!(std::fabs(area) > zrtnlxf::degenerateBelow(frames[side].rounding, 4))) return zrtnlxf::degenerate;
    }
    std::copy_n(all, 3, areas[side]);
  }
  const double *const s = points[0], *const d = points[1];
  Elements h{};
  for (std::size_t i = 0; i < 3; ++i) {
    const double *const sj = s + (i + 1) % 3 * 2, *const sk = s + (i + 2) % 3 * 2;
    const double factor = areas[1][i] / areas[0][i];
    const double row[3] = {sj[1] - sk[1], sk[0] - sj[0], sj[0] * sk[1] - sj[1] * sk[0]};
    const double column[3] = {d[2 * i], d[2 * i + 1], 1};
    for (std::size_t k = 0; k < 9; ++k) h[k] += factor * column[k / 3] * row[k % 3];
  }
  h = leave(h, frames[0], frames[1]);
  const double worst = zrtnlxf::kWorstError * frames[1].extent();
  bool holds = true;
  for (std::size_t i = 0; i < 8; i += 2) {
    double x = from[i], y = from[i + 1], w;
    mapOne(h, x, y, w);
    holds = holds && std::fabs(x - to[i]) <= worst && std::fabs(y - to[i + 1]) <= worst;
  }
  return holds ? makeFitted(h, state) : zrtnlxf::degenerate;
}

Status qmath_xformPerspective_constructPoints(const double* from, const double* to, std::size_t count,
                                              qmath_xformPerspective** state) noexcept {
  if (count == 4) return qmath_xformPerspective_construct4Points(from, to, state);
  if (!from || !to || !state || count < 4) return zrtnlxf::badArgument;
  if (!zrtnlxf::areFinite(from, 2 * count) || !zrtnlxf::areFinite(to, 2 * count)) return zrtnlxf::badArgument;
  const Frame source(from, count), destination(to, count);
  if (!source.isUsable() || !destination.isUsable()) return zrtnlxf::degenerate;
  return zrtnlxf::guarded([&] {
    zrtnlxf::Triangle triangle(9);
    for (std::size_t i = 0; i < count; ++i) {
      double s[2], d[2];
      enter(source, from + 2 * i, 1, s);
      enter(destination, to + 2 * i, 1, d);
      double first[9] = {s[0], s[1], 1, 0, 0, 0, -d[0] * s[0], -d[0] * s[1], -d[0]};
      double second[9] = {0, 0, 0, s[0], s[1], 1, -d[1] * s[0], -d[1] * s[1], -d[1]};
      triangle.add(first);
      triangle.add(second);
    }
    const zrtnlxf::SingularValues svd(triangle, 9);
    std::array<std::size_t, 9> order{0, 1, 2, 3, 4, 5, 6, 7, 8};
    std::ranges::sort(order, {}, [&](std::size_t i) { return svd.values[i]; });
    const double least = zrtnlxf::degenerateBelow(std::max(source.rounding, destination.rounding), count);
    if (!(svd.values[order[1]] > least * svd.values[order[8]])) return zrtnlxf::degenerate;
    Elements h;
    std::copy_n(svd.vectors[order[0]].begin(), 9, h.begin());
    if (!(std::fabs(Determinant(h).value) > least)) return zrtnlxf::degenerate;
    return makeFitted(leave(h, source, destination), state);
  });
}

Status qmath_xformPerspective_constructCopy(const qmath_xformPerspective* from,
                                            qmath_xformPerspective** state) noexcept {
  return from && state ? make(from->h, state) : zrtnlxf::badArgument;
}

Status qmath_xformPerspective_assign(qmath_xformPerspective* to, const qmath_xformPerspective* from) noexcept {
  if (!to || !from) return zrtnlxf::badArgument;
  to->h = from->h;
  return zrtnlxf::ok;
}

void qmath_xformPerspective_destruct(qmath_xformPerspective* state) noexcept { delete state; }

Status qmath_xformPerspective_setMatrix(qmath_xformPerspective* state, const double* elements) noexcept {
  if (!state || !elements) return zrtnlxf::badArgument;
  std::copy_n(elements, 9, state->h.begin());
  return zrtnlxf::ok;
}

Status qmath_xformPerspective_getMatrix(const qmath_xformPerspective* state, double* elements) noexcept {
  if (!state || !elements) return zrtnlxf::badArgument;
  std::copy_n(state->h.begin(), 9, elements);
  return zrtnlxf::ok;
}

Status qmath_xformPerspective_mapPoint(const qmath_xformPerspective* state, const qmath_vect* point,
                                       qmath_vect* image) noexcept {
  if (!state || !point || !image) return zrtnlxf::badArgument;
  double x = point->x, y = point->y, w;
  mapOne(state->h, x, y, w);
  if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(w)) return zrtnlxf::atInfinity;
  *image = {x, y};
  return zrtnlxf::ok;
}

Status qmath_xformPerspective_mapPoints(const qmath_xformPerspective* state, const double* in, double* out,
                                        std::size_t count) noexcept {
  if (count == 0) return zrtnlxf::ok;
  if (!state || !in || !out) return zrtnlxf::badArgument;
#if ZRTNLXF_AVX2
  if (zrtnlxf::level() > 0) return mapAvx2(state->h, in, out, count) ? zrtnlxf::ok : zrtnlxf::atInfinity;
#endif
  return mapAll<zrtnlxf::Two>(state->h, in, out, count) ? zrtnlxf::ok : zrtnlxf::atInfinity;
}

Status qmath_xformPerspective_getIsLinear(const qmath_xformPerspective* state) noexcept {
  if (!state) return zrtnlxf::badArgument;
  return state->h[6] == 0 && state->h[7] == 0 && state->h[8] != 0 ? 1 : 0;
}

Status qmath_xformPerspective_getIsSingular(const qmath_xformPerspective* state) noexcept {
  if (!state) return zrtnlxf::badArgument;
  int exponent = 0;
  return Determinant(scaled(state->h, exponent)).isZero ? 1 : 0;
}

Status qmath_xformPerspective_getLinearXform(const qmath_xformPerspective* state, const qmath_vect* point,
                                             qmath_xformLinear* linear) noexcept {
  if (!state || !point || !linear) return zrtnlxf::badArgument;
  const auto evaluate = [&h = state->h](const qmath_vect& p, qmath_vect& f, qmath_matrix& m) {
    f = p;
    double w;
    mapOne(h, f.x, f.y, w);
    if (!std::isfinite(w)) return zrtnlxf::atInfinity;
    m = {(h[0] - f.x * h[6]) / w, (h[1] - f.x * h[7]) / w, (h[3] - f.y * h[6]) / w, (h[4] - f.y * h[7]) / w};
    return zrtnlxf::ok;
  };
  const bool isLinear = qmath_xformPerspective_getIsLinear(state) == 1;
  return zrtnlxf::expand(evaluate, isLinear ? qmath_vect{0, 0} : *point, linear);
}

// With J the derivative at the centre, g the gradient of w over w there and d the way to another point, the derivative
// there is J (1 / (1 + g d) - d g^T / (1 + g d)^2).
Status qmath_xformPerspective_getBend(const qmath_xformPerspective* state, const qmath_vect* center, double radius,
                                      double* bend) noexcept {
  if (!state || !center || !bend || !(radius >= 0)) return zrtnlxf::badArgument;
  *bend = 0;
  if (qmath_xformPerspective_getIsLinear(state) == 1) return zrtnlxf::ok;
  qmath_xformLinear linear;
  const Status status = qmath_xformPerspective_getLinearXform(state, center, &linear);
  if (status < 0) return status;
  const Elements& h = state->h;
  const double w = h[6] * center->x + h[7] * center->y + h[8];
  const double part = std::hypot(h[6], h[7]) / std::fabs(w) * radius;  // of the way to the line at infinity
  const double rest = 1 - part;
  *bend = rest > 0 ? zrtnlxf::norm(linear.matrix) * part * (1 + rest) / (rest * rest) : kInfinity;
  return zrtnlxf::ok;
}

// The same formula for d = a e + b n, with e the direction of the reach and n the one across: along e the difference is
// J e (1 / (1 + g d) - 1 - a (g e) / (1 + g d)^2) - J n b (g e) / (1 + g d)^2, and likewise along n.
Status qmath_xformPerspective_getBendAlong(const qmath_xformPerspective* state, const qmath_vect* center,
                                           const qmath_vect* reach, double width, double* along,
                                           double* across) noexcept {
  if (!state || !center || !reach || !along || !across || !(width >= 0)) return zrtnlxf::badArgument;
  *along = *across = 0;
  if (qmath_xformPerspective_getIsLinear(state) == 1) return zrtnlxf::ok;
  const Elements& h = state->h;
  qmath_vect f = *center;
  double w;
  mapOne(h, f.x, f.y, w);
  if (!std::isfinite(f.x) || !std::isfinite(f.y) || !std::isfinite(w)) return zrtnlxf::atInfinity;
  const double length = std::hypot(reach->x, reach->y), aside = std::min(width, length);
  const qmath_vect e = length > 0 ? qmath_vect{reach->x / length, reach->y / length} : qmath_vect{1, 0}, n{-e.y, e.x};
  const auto growth = [&](const qmath_vect& v) { return (h[6] * v.x + h[7] * v.y) / w; };
  // Not by J, whose elements cancel each other next to the line at infinity.
  const auto speed = [&](const qmath_vect& v) {
    return std::hypot((h[0] * v.x + h[1] * v.y) / w - f.x * growth(v), (h[3] * v.x + h[4] * v.y) / w - f.y * growth(v));
  };
  const double growthAlong = std::fabs(growth(e)), growthAcross = std::fabs(growth(n));
  const double part = growthAlong * length + growthAcross * aside, rest = 1 - part;
  if (!(rest > 0)) {
    *along = *across = kInfinity;
    return zrtnlxf::ok;
  }
  const double speedAlong = speed(e), speedAcross = speed(n), square = rest * rest;
  *along = speedAlong * part / rest + (speedAlong * length + speedAcross * aside) * growthAlong / square;
  *across = speedAcross * part / rest + (speedAlong * length + speedAcross * aside) * growthAcross / square;
  if (!std::isfinite(*along) || !std::isfinite(*across)) *along = *across = kInfinity;
  return zrtnlxf::ok;
}

Status qmath_xformPerspective_getInverse(const qmath_xformPerspective* state,
                                         qmath_xformPerspective** inverse) noexcept {
  if (!state || !inverse) return zrtnlxf::badArgument;
  int exponent = 0;
  const Elements h = scaled(state->h, exponent);
  const Determinant determinant(h);
  if (determinant.isZero) return zrtnlxf::singular;
  Elements result;
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) {  // the cofactor of the transposed element
      const std::size_t a = (j + 1) % 3 * 3, b = (j + 2) % 3 * 3, c = (i + 1) % 3, d = (i + 2) % 3;
      result[i * 3 + j] = std::scalbn(cofactor(h[a + c], h[a + d], h[b + c], h[b + d]) / determinant.value, -exponent);
    }
  }
  return zrtnlxf::areFinite(result.data(), 9) ? make(result, inverse) : zrtnlxf::singular;
}
