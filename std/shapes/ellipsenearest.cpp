#include <algorithm>
#include <cmath>
#include <numbers>

#include "std/shapes/ellipsecurve.h"

namespace qc_shapes {

namespace {

// For a >= b, in the half-angle variable u = tan(t / 2): the derivative of the squared distance becomes a quartic that
// is convex on [0, 1] and changes its sign there once, so that Newton's method from 1 descends to the root. Steps are
// taken until one is below 1e-8.
EllipseFoot orderedFoot(double a, double b, double x, double y) {
  const double unit = std::max({a, x, y});  // numbers of any size, without overflow
  if (!(unit > 0)) return {0, 1};
  a /= unit, b /= unit, x /= unit, y /= unit;
  const double d = (a - b) * (a + b);
  const double c4 = b * y, c3 = 2 * (a * x + d), c1 = 2 * (a * x - d);
  double u = 1;
  for (int i = 0; i < 64; ++i) {
    const double uu = u * u, slope = 4 * c4 * uu * u + 3 * c3 * uu + c1;
    if (slope == 0) break;
    const double step = (c4 * uu * uu + c3 * uu * u + c1 * u - c4) / slope;
    u -= step;
    if (!(step >= 1e-8)) break;
  }
  u = std::clamp(u, 0.0, 1.0);
  return {(1 - u) * (1 + u) / (1 + u * u), 2 * u / (1 + u * u)};
}

EllipseFoot exchanged(const EllipseFoot& foot) { return {foot.s, foot.c}; }

}  // namespace

EllipseFoot firstQuadrantFoot(double a, double b, double x, double y) {
  return a >= b ? orderedFoot(a, b, x, y) : exchanged(orderedFoot(b, a, y, x));
}

bool secondFoot(double a, double b, double x, double y, EllipseFoot& foot) {
  if (a < b) {
    if (!secondFoot(b, a, y, x, foot)) return false;
    foot = exchanged(foot);
    return true;
  }
  const double unit = std::max({a, x, y});
  if (!(unit > 0)) return false;
  const double ax = a / unit * (x / unit), by = b / unit * (y / unit), d = (a - b) / unit * ((a + b) / unit);
  // The slope of the distance at (a * cos t, -b * sin t), over sin t * cos t, is convex, and least here; below 0 only
  // inside the evolute. The minimum of the distance lies between there and the end of the shorter axis.
  const double u = std::cbrt(ax), v = std::cbrt(by);
  if (!(u * u + v * v < std::cbrt(d * d))) return false;
  double low = std::atan2(v, u), high = std::numbers::pi / 2;
  for (int i = 0; i < 60; ++i) {
    const double middle = (low + high) / 2, c = std::cos(middle), s = std::sin(middle);
    (ax * s + by * c < d * s * c ? low : high) = middle;
  }
  foot = {std::cos(high), -std::sin(high)};
  return true;
}

}  // namespace qc_shapes
