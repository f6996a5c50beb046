// What the images and derivatives of a map at points give: its expansion at a point, and its inverse.
//
// `evaluate(point, image, derivatives)` gives both, or a negative status where the map has no finite image.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include "vnxstd/math/plain.h"
#include "zrtnlxf/points.h"
#include "zrtnlxf/status.h"

namespace zrtnlxf {

/// The affine map that has the image and the derivatives of a map at a point. atInfinity.
template <class Evaluate>
Status expand(const Evaluate& evaluate, const qmath_vect& at, qmath_xformLinear* linear) {
  qmath_vect f;
  qmath_matrix m;
  const Status status = evaluate(at, f, m);
  if (status < 0) return status;
  const qmath_vect trans{f.x - (m.a00 * at.x + m.a01 * at.y), f.y - (m.a10 * at.x + m.a11 * at.y)};
  const double all[6] = {m.a00, m.a01, m.a10, m.a11, trans.x, trans.y};
  if (!areFinite(all, 6)) return atInfinity;
  *linear = {trans, m};
  return ok;
}

/// Finds the point that a map takes to `image`, by Newton's method with steps that are halved until they bring the
/// image closer (Dennis and Schnabel, "Numerical Methods for Unconstrained Optimization and Nonlinear Equations", 6.3).
/// The first guess is the one of the affine approximation at `centre`; over distances of about `unit` the map bends.
///
/// Steps end when one is below 1e-10, or 1e-9 of a unit where that is less: convergence is quadratic, so that what is
/// left is far smaller. Where rounding errors allow no such step, one that is within them ends it. notConverged when
/// neither happens; `point` is then as it was.
template <class Evaluate>
Status invert(const Evaluate& evaluate, const qmath_vect& image, const qmath_vect& centre, double unit,
              qmath_vect* point) {
  constexpr int kMaxSteps = 60, kMaxHalvings = 12;
  constexpr double kRounding = 64 * std::numeric_limits<double>::epsilon();
  const double tolerance = std::min(1e-10, 1e-9 * unit);
  struct State {
    qmath_vect at, step;  // the step leads to where the affine approximation has the image
    double error, floor;  // the distance to the image, and how far rounding errors reach
  };
  // What is small beside the terms it is summed from has their rounding errors: the terms are about as large as the
  // coordinates of the centre and of its image.
  const double places = std::fabs(centre.x) + std::fabs(centre.y);
  double values = std::fabs(image.x) + std::fabs(image.y);
  const auto look = [&](const qmath_vect& at, State& state) {
    qmath_vect f;
    qmath_matrix j;
    if (evaluate(at, f, j) < 0) return false;
    const double dx = image.x - f.x, dy = image.y - f.y, determinant = j.a00 * j.a11 - j.a01 * j.a10;
    const double size = std::fabs(j.a00) + std::fabs(j.a01) + std::fabs(j.a10) + std::fabs(j.a11);
    const qmath_vect step{(j.a11 * dx - j.a01 * dy) / determinant, (j.a00 * dy - j.a10 * dx) / determinant};
    const double reach = size / std::fabs(determinant) * values;
    state = {at, step, std::hypot(dx, dy), kRounding * (places + std::fabs(at.x) + std::fabs(at.y) + reach)};
    return std::isfinite(step.x) && std::isfinite(step.y) && std::isfinite(state.error);
  };
  State state{};
  if (!look(centre, state)) return notConverged;
  values += 2 * state.error;
  State next{};
  for (int i = 0; i < kMaxSteps; ++i) {
    const double length = std::hypot(state.step.x, state.step.y);
    if (length <= tolerance) {
      *point = {state.at.x + state.step.x, state.at.y + state.step.y};
      return ok;
    }
    double part = 1;
    bool closer = false;
    for (int k = 0; !closer && k < kMaxHalvings; ++k, part /= 2) {
      closer =
          look({state.at.x + part * state.step.x, state.at.y + part * state.step.y}, next) && next.error < state.error;
    }
    if (!closer) {
      if (!(length <= tolerance + state.floor)) return notConverged;
      *point = state.at;
      return ok;
    }
    state = next;
  }
  return notConverged;
}

}  // namespace zrtnlxf
