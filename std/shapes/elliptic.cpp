#include "std/shapes/elliptic.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qc_shapes {

namespace {

constexpr double kRightAngle = std::numbers::pi / 2;
// With a smaller ratio of the radii an ellipse is flat for any precision asked for; from here on the integrals, which
// grow like the cube of the inverse, stay within the range of doubles.
constexpr double kFlat = 1e-60;
constexpr int kMaxRounds = 600;  // far more than any arguments take; NaN ends at once

// The length from (a, 0) to (a * c, b * s), for c and s of at least 0: the incomplete integral of the second kind, in
// the two of Carlson's forms (DLMF 19.25.9 and 19.25.10) whose terms are all positive, so that nothing cancels.
double quarterArc(double a, double b, double c, double s) {
  const double larger = std::max(a, b);
  if (!(larger > 0) || s == 0) return 0;
  const double x = a / larger, y = b / larger;
  if (y < kFlat) return a * s * s / (1 + c);
  if (x < kFlat) return b * s;
  if (a >= b) {
    const double cc = y * y * c * c, speed = cc + x * x * s * s;
    const double first = carlsonRF(cc, speed, y * y),
                 second = (x - y) * (x + y) / 3 * s * s * carlsonRD(cc, speed, y * y);
    return larger * y * y * s * (first + second);
  }
  const double cc = c * c, speed = cc + x * x * s * s, kk = (1 - x) * (1 + x);
  const double first = carlsonRF(cc, speed, 1), second = kk / 3 * s * s * carlsonRD(cc, 1, speed);
  return larger * s * (x * x * (first + second) + kk * c / std::sqrt(speed));
}

}  // namespace

double carlsonRF(double x, double y, double z) {
  const double mean = (x + y + z) / 3, dx = mean - x, dy = mean - y;
  // The sixth root of three times the rounding error; what the series below leaves out is less.
  double spread = 470 * std::max({std::fabs(dx), std::fabs(dy), std::fabs(mean - z)});
  double a = mean, shrink = 1;
  for (int i = 0; i < kMaxRounds && spread * shrink >= a; ++i) {
    const double rx = std::sqrt(x), ry = std::sqrt(y), rz = std::sqrt(z), lambda = rx * ry + rx * rz + ry * rz;
    a = (a + lambda) / 4;
    x = (x + lambda) / 4;
    y = (y + lambda) / 4;
    z = (z + lambda) / 4;
    shrink /= 4;
  }
  const double X = dx * shrink / a, Y = dy * shrink / a, Z = -X - Y;
  const double e2 = X * Y - Z * Z, e3 = X * Y * Z;
  return (1 - e2 / 10 + e3 / 14 + e2 * e2 / 24 - 3 * e2 * e3 / 44) / std::sqrt(a);
}

double carlsonRD(double x, double y, double z) {
  const double mean = (x + y + 3 * z) / 5, dx = mean - x, dy = mean - y;
  const double spread = 710 * std::max({std::fabs(dx), std::fabs(dy), std::fabs(mean - z)});
  double a = mean, shrink = 1, sum = 0;
  for (int i = 0; i < kMaxRounds && spread * shrink >= a; ++i) {
    const double rx = std::sqrt(x), ry = std::sqrt(y), rz = std::sqrt(z), lambda = rx * ry + rx * rz + ry * rz;
    sum += shrink / (rz * (z + lambda));
    a = (a + lambda) / 4;
    x = (x + lambda) / 4;
    y = (y + lambda) / 4;
    z = (z + lambda) / 4;
    shrink /= 4;
  }
  const double X = dx * shrink / a, Y = dy * shrink / a, Z = -(X + Y) / 3;
  const double xy = X * Y, zz = Z * Z;
  const double e2 = xy - 6 * zz, e3 = (3 * xy - 8 * zz) * Z, e4 = 3 * (xy - zz) * zz, e5 = xy * zz * Z;
  const double series = 1 - 3 * e2 / 14 + e3 / 6 + 9 * e2 * e2 / 88 - 3 * e4 / 22 - 9 * e2 * e3 / 52 + 3 * e5 / 26;
  return shrink * series / (a * std::sqrt(a)) + 3 * sum;
}

double EllipseLength::quarter() const {
  if (quarter_ < 0) quarter_ = quarterArc(std::max(rx_, ry_), std::min(rx_, ry_), 0, 1);
  return quarter_;
}

double EllipseLength::at(double t) const {
  if (rx_ == ry_) return rx_ * t;
  const double quarters = std::floor(t / kRightAngle), rest = t - quarters * kRightAngle;
  const double c = std::max(std::cos(rest), 0.0), s = std::max(std::sin(rest), 0.0);
  const bool odd = std::fmod(quarters, 2) != 0;
  return quarters * quarter() + (odd ? quarterArc(ry_, rx_, c, s) : quarterArc(rx_, ry_, c, s));
}

double EllipseLength::parameterAt(double length) const {
  if (rx_ == ry_) return rx_ > 0 ? length / rx_ : 0;
  const double quarters = std::floor(length / quarter()), rest = length - quarters * quarter();
  const bool odd = std::fmod(quarters, 2) != 0;
  return quarters * kRightAngle + (odd ? inQuarter(ry_, rx_, rest) : inQuarter(rx_, ry_, rest));
}

// Newton's method, kept between bounds that close in on the root: near the tip of a thin ellipse the length starts
// like a square.
double EllipseLength::inQuarter(double a, double b, double length) const {
  if (!(length > 0)) return 0;
  if (length >= quarter()) return kRightAngle;
  double low = 0, high = kRightAngle, t = length / quarter() * kRightAngle;
  for (int i = 0; i < 64; ++i) {
    const double c = std::cos(t), s = std::sin(t), excess = quarterArc(a, b, c, s) - length;
    if (std::fabs(excess) <= 2e-16 * quarter()) break;
    (excess > 0 ? high : low) = t;
    double next = t - excess / std::hypot(a * s, b * c);
    if (!(low < next && next < high)) next = low + (high - low) / 2;
    if (next == t) break;
    t = next;
  }
  return t;
}

}  // namespace qc_shapes
