#include "zrtnlxf/deform.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <numeric>
#include <utility>
#include <vector>

#include "zrtnlxf/local.h"
#include "zrtnlxf/points.h"
#include "zrtnlxf/simd.h"

using Numbers = std::vector<double>;

struct qmath_xformDeform {
  double smoothness = 0;
  qmath_vect origin{0, 0};
  double unit = 1;
  std::array<double, 6> affine{0, 1, 0, 0, 0, 1};
  Numbers from, to, weights;  // points
  Numbers nodes;              // the sources as (u, v), none when all weights are 0
};

namespace {

using zrtnlxf::Status;

// A smoothness beyond this, in squared units, leaves the affine map alone, and its square root is still a number.
constexpr double kMostSmoothness = 1e250;

// Sources that are mapped to where they should be to this part of the destinations' extent need no further correction.
constexpr double kGoodError = 1e-10;
constexpr int kMostRounds = 4;

std::size_t countOf(const Numbers& points) { return points.size() / 2; }

void enter(qmath_xformDeform& state) {
  state.nodes.resize(state.from.size());
  for (std::size_t i = 0; i < state.from.size(); i += 2) {
    state.nodes[i] = (state.from[i] - state.origin.x) / state.unit;
    state.nodes[i + 1] = (state.from[i + 1] - state.origin.y) / state.unit;
  }
}

// What does not bend maps points however far away, where kernels are no numbers.
void forgetIdleNodes(qmath_xformDeform& state) {
  if (std::ranges::all_of(state.weights, [](double weight) { return weight == 0; })) state.nodes.clear();
}

// The logarithm of r^2, for r^2 too small for the kernel to matter the finite one of some other number.
template <class V>
[[gnu::always_inline]] inline void logOfSquare(const V& square, V& result) {
  constexpr double kLeast = std::numeric_limits<double>::min();
  const V zero{};
  const V safe = square < kLeast ? kLeast - zero : square;
  zrtnlxf::logarithm(safe, result);
}

// The image of a point, or of a vector of points.
template <class V>
[[gnu::always_inline]] inline void mapOne(const qmath_xformDeform& state, V& x, V& y) {
  const V u = (x - state.origin.x) / state.unit, v = (y - state.origin.y) / state.unit;
  const std::array<double, 6>& a = state.affine;
  x = a[0] + a[1] * u + a[2] * v;
  y = a[3] + a[4] * u + a[5] * v;
  const double *const node = state.nodes.data(), *const weight = state.weights.data();
  const std::size_t size = state.nodes.size();
  for (std::size_t i = 0; i < size; i += 2) {
    const V du = u - node[i], dv = v - node[i + 1], square = du * du + dv * dv;
    V log;
    logOfSquare(square, log);
    const V kernel = 0.5 * square * log;
    x += weight[i] * kernel;
    y += weight[i + 1] * kernel;
  }
}

// The same for one point, with the derivatives.
Status derivatives(const qmath_xformDeform& state, const qmath_vect& p, qmath_vect& image, qmath_matrix& m) {
  const double u = (p.x - state.origin.x) / state.unit, v = (p.y - state.origin.y) / state.unit;
  const std::array<double, 6>& a = state.affine;
  image = {a[0] + a[1] * u + a[2] * v, a[3] + a[4] * u + a[5] * v};
  m = {a[1], a[2], a[4], a[5]};
  for (std::size_t i = 0; i < state.nodes.size(); i += 2) {
    const double du = u - state.nodes[i], dv = v - state.nodes[i + 1], square = du * du + dv * dv;
    double log;
    logOfSquare(square, log);
    const double kernel = 0.5 * square * log, byU = du * (log + 1), byV = dv * (log + 1);
    image.x += state.weights[i] * kernel;
    image.y += state.weights[i + 1] * kernel;
    m.a00 += state.weights[i] * byU;
    m.a01 += state.weights[i] * byV;
    m.a10 += state.weights[i + 1] * byU;
    m.a11 += state.weights[i + 1] * byV;
  }
  m = {m.a00 / state.unit, m.a01 / state.unit, m.a10 / state.unit, m.a11 / state.unit};
  const double all[6] = {image.x, image.y, m.a00, m.a01, m.a10, m.a11};
  return zrtnlxf::areFinite(all, 6) ? zrtnlxf::ok : zrtnlxf::atInfinity;
}

// Gives whether all images are finite.
template <class V>
[[gnu::always_inline]] inline bool mapAll(const qmath_xformDeform& state, const double* in, double* out,
                                          std::size_t count) {
  return zrtnlxf::mapAll<V>(
      in, out, count, [&](auto& x, auto& y, auto&) __attribute__((always_inline)) { mapOne(state, x, y); });
}

#if ZRTNLXF_AVX2
[[gnu::target("avx2")]] bool mapAvx2(const qmath_xformDeform& state, const double* in, double* out, std::size_t count) {
  return mapAll<zrtnlxf::Four>(state, in, out, count);
}
#endif

// Removes pairs that are there before; false when a source has two destinations.
bool mergePairs(Numbers& from, Numbers& to) {
  const std::size_t count = countOf(from);
  std::vector<std::size_t> order(count);
  std::iota(order.begin(), order.end(), std::size_t{0});
  const auto same = [](const Numbers& points, std::size_t a, std::size_t b) {
    return points[2 * a] == points[2 * b] && points[2 * a + 1] == points[2 * b + 1];
  };
  std::ranges::sort(order, [&](std::size_t a, std::size_t b) {
    if (from[2 * a] != from[2 * b]) return from[2 * a] < from[2 * b];
    if (from[2 * a + 1] != from[2 * b + 1]) return from[2 * a + 1] < from[2 * b + 1];
    return a < b;
  });
  std::vector<bool> isRepeated(count);
  for (std::size_t i = 1; i < count; ++i) {
    if (!same(from, order[i - 1], order[i])) continue;
    if (!same(to, order[i - 1], order[i])) return false;
    isRepeated[order[i]] = true;
  }
  std::size_t kept = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (isRepeated[i]) continue;
    std::copy_n(&from[2 * i], 2, &from[2 * kept]);
    std::copy_n(&to[2 * i], 2, &to[2 * kept]);
    ++kept;
  }
  from.resize(2 * kept);
  to.resize(2 * kept);
  return true;
}

// Whether no point lies off the line through the first and the one farthest from it.
bool areCollinear(const Numbers& points, double rounding) {
  double direction[2] = {0, 0}, farthest = 0;
  for (std::size_t i = 2; i < points.size(); i += 2) {
    const double du = points[i] - points[0], dv = points[i + 1] - points[1], distance = std::hypot(du, dv);
    if (distance <= farthest) continue;
    farthest = distance;
    direction[0] = du / distance;
    direction[1] = dv / distance;
  }
  double widest = 0;
  for (std::size_t i = 2; i < points.size(); i += 2) {
    const double off = direction[0] * (points[i + 1] - points[1]) - direction[1] * (points[i] - points[0]);
    widest = std::max(widest, std::fabs(off));
  }
  return !(widest > zrtnlxf::degenerateBelow(rounding, countOf(points)));
}

double dot(const double* a, const double* b, std::size_t count) {
  double sums[4] = {0, 0, 0, 0};  // four at once do not wait for each other
  std::size_t i = 0;
  for (; i + 4 <= count; i += 4) {
    for (std::size_t k = 0; k < 4; ++k) sums[k] += a[i + k] * b[i + k];
  }
  for (; i < count; ++i) sums[0] += a[i] * b[i];
  return (sums[0] + sums[1]) + (sums[2] + sums[3]);
}

// A product of reflections I - 2 v v^T, one for each column of (1, u, v) over the nodes, that turns these columns into
// a triangle: what it leaves of all rows but the first three is orthogonal to every affine map.
class Reflections {
 public:
  explicit Reflections(const Numbers& nodes) : count_(countOf(nodes)) {
    for (Numbers& column : columns_) column.resize(count_);
    for (std::size_t i = 0; i < count_; ++i) {
      columns_[0][i] = 1;
      columns_[1][i] = nodes[2 * i];
      columns_[2][i] = nodes[2 * i + 1];
    }
    for (std::size_t k = 0; k < 3; ++k) {
      Numbers v = columns_[k];
      std::fill_n(v.begin(), k, 0.0);
      const double length = std::sqrt(dot(v.data(), v.data(), count_));
      v[k] += std::copysign(length, v[k]);
      const double norm = std::sqrt(dot(v.data(), v.data(), count_));
      for (double& element : v) element /= norm;
      vectors_[k] = v;
      for (Numbers& column : columns_) reflect(k, column.data());
    }
  }

  // The triangle's element.
  double at(std::size_t row, std::size_t column) const { return columns_[column][row]; }

  void apply(double* vector) const {
    for (std::size_t k = 0; k < 3; ++k) reflect(k, vector);
  }
  void applyTransposed(double* vector) const {
    for (std::size_t k = 3; k-- > 0;) reflect(k, vector);
  }
  // To both sides of a symmetric matrix.
  void apply(Numbers& matrix) const {
    Numbers p(count_);
    for (const Numbers& v : vectors_) {
      for (std::size_t i = 0; i < count_; ++i) p[i] = dot(&matrix[i * count_], v.data(), count_);
      const double half = dot(p.data(), v.data(), count_);
      for (std::size_t i = 0; i < count_; ++i) p[i] = 2 * (p[i] - half * v[i]);
      for (std::size_t i = 0; i < count_; ++i) {
        for (std::size_t j = 0; j < count_; ++j) matrix[i * count_ + j] -= v[i] * p[j] + p[i] * v[j];
      }
    }
  }

 private:
  void reflect(std::size_t k, double* vector) const {
    const double twice = 2 * dot(vectors_[k].data(), vector, count_);
    for (std::size_t i = 0; i < count_; ++i) vector[i] -= twice * vectors_[k][i];
  }

  std::size_t count_;
  std::array<Numbers, 3> columns_, vectors_;
};

// The Cholesky factor, in place, of the rows and columns of a symmetric matrix from `first` on; false when it has none.
bool factor(Numbers& matrix, std::size_t count, std::size_t first) {
  const double rounding = std::numeric_limits<double>::epsilon() * static_cast<double>(count);
  for (std::size_t i = first; i < count; ++i) {
    double* const row = &matrix[i * count];
    for (std::size_t j = first; j < i; ++j) {
      const double* const above = &matrix[j * count];
      row[j] = (row[j] - dot(row + first, above + first, j - first)) / above[j];
    }
    const double pivot = row[i] - dot(row + first, row + first, i - first);
    if (!(pivot > rounding * row[i])) return false;
    row[i] = std::sqrt(pivot);
  }
  return true;
}

void solve(const Numbers& matrix, std::size_t count, std::size_t first, double* x) {
  for (std::size_t i = first; i < count; ++i) {
    x[i] = (x[i] - dot(&matrix[i * count + first], x + first, i - first)) / matrix[i * count + i];
  }
  for (std::size_t i = count; i-- > first;) {
    x[i] /= matrix[i * count + i];
    for (std::size_t j = first; j < i; ++j) x[j] -= matrix[i * count + j] * x[i];
  }
}

// The weights w and the affine map a from (K + s I) w + P a = d and P^T w = 0, with P the columns (1, u, v) and K the
// kernel between nodes. The reflections Q give Q^T P = R above zeros, and w = Q y with y zero in the first three rows.
// What is left for y is positive definite, the better the larger the smoothness s; R does not know of it. Throws
// std::bad_alloc.
Status determine(qmath_xformDeform& state) {
  if (!std::isfinite(state.smoothness) || state.smoothness < 0) return zrtnlxf::badDeformArgument;
  if (!zrtnlxf::areFinite(state.from.data(), state.from.size()) ||
      !zrtnlxf::areFinite(state.to.data(), state.to.size()) || !mergePairs(state.from, state.to)) {
    return zrtnlxf::badDeformArgument;
  }
  const std::size_t count = countOf(state.from);
  if (count < 3) return zrtnlxf::badDeformArgument;
  const zrtnlxf::Frame frame(state.from.data(), count);
  state.origin = {frame.x, frame.y};
  state.unit = 1 / frame.scale;
  if (!frame.isUsable() || !std::isfinite(state.unit)) return zrtnlxf::badDeformArgument;
  enter(state);
  if (areCollinear(state.nodes, frame.rounding)) return zrtnlxf::badDeformArgument;

  Numbers matrix(count * count);
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      const double du = state.nodes[2 * i] - state.nodes[2 * j], dv = state.nodes[2 * i + 1] - state.nodes[2 * j + 1];
      double log;
      logOfSquare(du * du + dv * dv, log);
      matrix[i * count + j] = matrix[j * count + i] = 0.5 * (du * du + dv * dv) * log;
    }
  }
  const Reflections reflections(state.nodes);
  reflections.apply(matrix);
  const Numbers top(matrix.begin(), matrix.begin() + static_cast<std::ptrdiff_t>(3 * count));
  // In units a distance is smaller by `unit`, and the bending energy larger by its square.
  const double smoothness = std::min(state.smoothness / state.unit / state.unit, kMostSmoothness);
  for (std::size_t i = 3; i < count; ++i) matrix[i * count + i] += smoothness;
  if (!factor(matrix, count, 3)) return zrtnlxf::degenerate;

  // Each round finds what the map so far leaves of the destinations, and adds a map that takes it there. One is enough
  // unless sources are very close to each other.
  const zrtnlxf::Frame destinations(state.to.data(), count);
  state.affine = {destinations.x, 0, 0, destinations.y, 0, 0};
  state.weights.assign(2 * count, 0.0);
  Numbers left = state.to;
  for (std::size_t i = 0; i < left.size(); i += 2) {
    left[i] -= destinations.x;
    left[i + 1] -= destinations.y;
  }
  double error = std::numeric_limits<double>::infinity();
  for (int round = 0; round < kMostRounds && error > kGoodError * destinations.extent(); ++round) {
    for (std::size_t side = 0; side < 2; ++side) {
      Numbers d(count), y;
      for (std::size_t i = 0; i < count; ++i) d[i] = left[2 * i + side];
      reflections.apply(d.data());
      y = d;
      std::fill_n(y.begin(), 3, 0.0);
      solve(matrix, count, 3, y.data());
      double affine[3];
      for (std::size_t i = 3; i-- > 0;) {
        affine[i] = d[i] - dot(&top[i * count], y.data(), count);
        for (std::size_t j = i + 1; j < 3; ++j) affine[i] -= reflections.at(i, j) * affine[j];
        affine[i] /= reflections.at(i, i);
        state.affine[3 * side + i] += affine[i];
      }
      reflections.applyTransposed(y.data());
      for (std::size_t i = 0; i < count; ++i) state.weights[2 * i + side] += y[i];
    }
    if (qmath_xformDeform_mapPoints(&state, state.from.data(), left.data(), count) < 0) return zrtnlxf::degenerate;
    error = 0;
    for (std::size_t i = 0; i < left.size(); ++i) {
      left[i] = state.to[i] - left[i] - smoothness * state.weights[i];
      error = std::max(error, std::fabs(left[i]));
    }
  }
  forgetIdleNodes(state);
  const bool isFinite =
      zrtnlxf::areFinite(state.affine.data(), 6) && zrtnlxf::areFinite(state.weights.data(), state.weights.size());
  return isFinite && error <= zrtnlxf::kWorstError * destinations.extent() ? zrtnlxf::ok : zrtnlxf::degenerate;
}

// A new state that `fill` completes.
template <class Fill>
Status make(qmath_xformDeform** state, const Fill& fill) {
  return zrtnlxf::guarded([&] {
    auto made = std::make_unique<qmath_xformDeform>();
    const Status status = fill(*made);
    if (status >= 0) *state = made.release();
    return status;
  });
}

auto derivativesOf(const qmath_xformDeform* state) {
  return [state](const qmath_vect& p, qmath_vect& f, qmath_matrix& m) { return derivatives(*state, p, f, m); };
}

}  // namespace

Status qmath_xformDeform_construct(qmath_xformDeform** state) noexcept {
  if (!state) return zrtnlxf::badDeformArgument;
  return make(state, [](qmath_xformDeform&) { return zrtnlxf::ok; });
}

Status qmath_xformDeform_constructPoints(const double* from, const double* to, std::size_t count, double smoothness,
                                         qmath_xformDeform** state) noexcept {
  if (!from || !to || !state) return zrtnlxf::badDeformArgument;
  return make(state, [&](qmath_xformDeform& made) {
    made.smoothness = smoothness;
    made.from.assign(from, from + 2 * count);
    made.to.assign(to, to + 2 * count);
    return determine(made);
  });
}

Status qmath_xformDeform_constructParts(const qmath_xformDeformParts* parts, qmath_xformDeform** state) noexcept {
  if (!parts || !state) return zrtnlxf::badDeformArgument;
  const double numbers[5] = {parts->smoothness, parts->origin.x, parts->origin.y, parts->unit, 1 / parts->unit};
  if (!zrtnlxf::areFinite(numbers, 5) || parts->smoothness < 0 || parts->unit <= 0 ||
      !zrtnlxf::areFinite(parts->affine, 6)) {
    return zrtnlxf::badDeformArgument;
  }
  const double* const arrays[3] = {parts->from, parts->to, parts->weights};
  for (const double* array : arrays) {
    if ((!array && parts->count != 0) || !zrtnlxf::areFinite(array, 2 * parts->count)) {
      return zrtnlxf::badDeformArgument;
    }
  }
  return make(state, [&](qmath_xformDeform& made) {
    made.smoothness = parts->smoothness;
    made.origin = parts->origin;
    made.unit = parts->unit;
    std::copy_n(parts->affine, 6, made.affine.begin());
    made.from.assign(parts->from, parts->from + 2 * parts->count);
    made.to.assign(parts->to, parts->to + 2 * parts->count);
    made.weights.assign(parts->weights, parts->weights + 2 * parts->count);
    enter(made);
    forgetIdleNodes(made);
    return zrtnlxf::ok;
  });
}

Status qmath_xformDeform_constructCopy(const qmath_xformDeform* from, qmath_xformDeform** state) noexcept {
  if (!from || !state) return zrtnlxf::badDeformArgument;
  return make(state, [&](qmath_xformDeform& made) {
    made = *from;
    return zrtnlxf::ok;
  });
}

void qmath_xformDeform_destruct(qmath_xformDeform* state) noexcept { delete state; }

Status qmath_xformDeform_update(qmath_xformDeform* state, const double* from, const double* to,
                                std::size_t count) noexcept {
  if (!state) return zrtnlxf::badDeformArgument;
  if (count == 0) return zrtnlxf::ok;
  if (!from || !to) return zrtnlxf::badDeformArgument;
  return zrtnlxf::guarded([&] {
    qmath_xformDeform updated;
    updated.smoothness = state->smoothness;
    updated.from = state->from;
    updated.from.insert(updated.from.end(), from, from + 2 * count);
    updated.to = state->to;
    updated.to.insert(updated.to.end(), to, to + 2 * count);
    const Status status = determine(updated);
    if (status >= 0) *state = std::move(updated);
    return status;
  });
}

Status qmath_xformDeform_getSmoothness(const qmath_xformDeform* state, double* smoothness) noexcept {
  if (!state || !smoothness) return zrtnlxf::badDeformArgument;
  *smoothness = state->smoothness;
  return zrtnlxf::ok;
}

Status qmath_xformDeform_getParts(const qmath_xformDeform* state, qmath_xformDeformParts* parts) noexcept {
  if (!state || !parts) return zrtnlxf::badDeformArgument;
  *parts = {state->smoothness,  state->origin,    state->unit,           {},
            state->from.data(), state->to.data(), state->weights.data(), countOf(state->from)};
  std::ranges::copy(state->affine, parts->affine);
  return zrtnlxf::ok;
}

Status qmath_xformDeform_mapPoint(const qmath_xformDeform* state, const qmath_vect* point, qmath_vect* image) noexcept {
  if (!state || !point || !image) return zrtnlxf::badDeformArgument;
  double x = point->x, y = point->y;
  mapOne(*state, x, y);
  if (!std::isfinite(x) || !std::isfinite(y)) return zrtnlxf::atInfinity;
  *image = {x, y};
  return zrtnlxf::ok;
}

Status qmath_xformDeform_mapPoints(const qmath_xformDeform* state, const double* in, double* out,
                                   std::size_t count) noexcept {
  if (count == 0) return zrtnlxf::ok;
  if (!state || !in || !out) return zrtnlxf::badDeformArgument;
#if ZRTNLXF_AVX2
  if (zrtnlxf::level() > 0) return mapAvx2(*state, in, out, count) ? zrtnlxf::ok : zrtnlxf::atInfinity;
#endif
  return mapAll<zrtnlxf::Two>(*state, in, out, count) ? zrtnlxf::ok : zrtnlxf::atInfinity;
}

Status qmath_xformDeform_getIsLinear(const qmath_xformDeform* state) noexcept {
  if (!state) return zrtnlxf::badDeformArgument;
  return state->nodes.empty() ? 1 : 0;
}

Status qmath_xformDeform_getLinearXform(const qmath_xformDeform* state, const qmath_vect* point,
                                        qmath_xformLinear* linear) noexcept {
  if (!state || !point || !linear) return zrtnlxf::badDeformArgument;
  const bool isLinear = qmath_xformDeform_getIsLinear(state) == 1;
  return zrtnlxf::expand(derivativesOf(state), isLinear ? state->origin : *point, linear);
}

// At the distance t from a source the second derivatives of its kernel t^2 ln t are at most |2 ln t| + 3, the third
// ones at most 3 / t. Sources further than twice the radius away are summed with their second derivatives at the
// centre, which may cancel, and bounds for the third. Around one that is nearer, the derivative changes most along a
// way that passes through it: by the integral of that bound along the way.
Status qmath_xformDeform_getBend(const qmath_xformDeform* state, const qmath_vect* center, double radius,
                                 double* bend) noexcept {
  if (!state || !center || !bend || !(radius >= 0)) return zrtnlxf::badDeformArgument;
  const double u = (center->x - state->origin.x) / state->unit, v = (center->y - state->origin.y) / state->unit;
  const double reach = radius / state->unit, half = std::min(reach / 2, 1.0);
  std::array<double, 6> second{};  // by uu, uv and vv, of x and of y
  double sum = 0;
  for (std::size_t i = 0; reach > 0 && i < state->nodes.size(); i += 2) {
    const double du = u - state->nodes[i], dv = v - state->nodes[i + 1], t = std::hypot(du, dv);
    const double weight = std::hypot(state->weights[i], state->weights[i + 1]);
    if (t > 2 * reach) {
      const double log = 2 * std::log(t) + 1, nu = du / t, nv = dv / t;
      const double parts[3] = {log + 2 * nu * nu, 2 * nu * nv, log + 2 * nv * nv};
      for (std::size_t k = 0; k < 6; ++k) second[k] += state->weights[i + k / 3] * parts[k % 3];
      sum += weight * 1.5 * reach * reach / (t - reach);
    } else {
      const double beyond = std::max(0.0, 2 * std::log(t + reach));
      sum += weight * (4 * half * (1 - std::log(half)) + reach * (beyond + 3));
    }
  }
  double squares = 0;
  for (std::size_t k = 0; k < 6; ++k) squares += (k % 3 == 1 ? 2 : 1) * second[k] * second[k];
  const double whole = (sum + std::sqrt(squares) * reach) / state->unit;
  *bend = std::isfinite(whole) ? whole : std::numeric_limits<double>::infinity();
  return zrtnlxf::ok;
}

Status qmath_xformDeform_getInverse(const qmath_xformDeform* state, const qmath_vect* image,
                                    qmath_vect* point) noexcept {
  if (!state || !image || !point) return zrtnlxf::badDeformArgument;
  return zrtnlxf::invert(derivativesOf(state), *image, state->origin, state->unit, point);
}
