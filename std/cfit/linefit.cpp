#include "vnxstd/cfit/linefit.h"

#include <cmath>
#include <numbers>

#include "std/cfit/moments.h"

using cfit::Wide;

namespace {

const qc_ErrorRegistration<qcLSLineFitter::Errors, qcLSLineFitter::UnstableErr> registered;

// Differences this small have no direction for fitAndError.
constexpr Wide kNoDirection = 1e-12;

// A line by direction (c, s) and signed distance c*y - s*x.
struct Axis {
  Wide c = 1, s = 0, distance = 0;

  double error(const qc_PointSums& sums, Wide n) const {
    return cfit::notNegative(s * s * sums.xx + c * c * sums.yy +
                             (n * distance + 2 * (s * sums.x - c * sums.y)) * distance - 2 * s * c * sums.xy);
  }
};

qcFLine makeLine(Wide radians, Wide distance) {
  return {qcDegree(static_cast<double>(radians) * qcDegree::perRadian), static_cast<double>(distance)};
}

// Finds the axis through the mean, with s >= 0. False without a direction: where B and Sxx - Syy are both below a
// limit, or within the rounding of the sums (exact zeros always are), or not finite.
bool principalAxis(const qc_PointSums& sums, Wide n, Wide limit, Axis& axis) {
  if (n < 2 || !cfit::allFinite(sums)) return false;
  const Wide mx = sums.x / n, my = sums.y / n;
  const Wide difference = (sums.xx - sums.x * mx) - (sums.yy - sums.y * my);
  const Wide b = 2 * (sums.xy - sums.x * my);
  const Wide length = std::hypot(b, difference);
  if (std::fabs(b) < limit && std::fabs(difference) < limit) return false;
  const Wide lost = cfit::centring(n) * (Wide{sums.xx} + sums.yy);
  if (std::fabs(b) <= lost && std::fabs(difference) <= lost) return false;
  const Wide cosDouble = difference / length, sinDouble = std::fabs(b) / length;  // of twice the angle
  axis.c = std::sqrt(0.5L * (cosDouble + 1));
  axis.s = std::sqrt((1 - cosDouble) * 0.5L);
  if (cosDouble > 0.5L) axis.s = 0.5L * sinDouble / axis.c;  // the difference from 1 has lost its digits
  if (cosDouble < -0.5L) axis.c = 0.5L * sinDouble / axis.s;
  if (b < 0) axis.c = -axis.c;
  const Wide up = axis.c * my, down = axis.s * mx;
  axis.distance = up - down;
  if (std::fabs(axis.distance) <= cfit::rounding(4) * (std::fabs(up) + std::fabs(down))) axis.distance = 0;
  return std::isfinite(axis.distance);
}

}  // namespace

void qcLSLineFitter::update(const qcVector<2>* points, std::size_t count) {
  qf_CountPoints<UnstableErr>(n_, count);
  qc_PointSums sums = sums_;  // a local of which no one else has the address stays in registers
  for (std::size_t i = 0; i < count; ++i) sums.add(points[i].x(), points[i].y());
  sums_ = sums;
}

void qcLSLineFitter::remove(const qcVector<2>& point) noexcept {
  if (n_ <= 1) {
    reset();
    return;
  }
  --n_;
  sums_.subtract(point.x(), point.y());
}

qcLSLineFitter& qcLSLineFitter::operator+=(const qcLSLineFitter& other) {
  qf_CountPoints<UnstableErr>(n_, static_cast<std::size_t>(other.n_));
  sums_ += other.sums_;
  return *this;
}

bool qcLSLineFitter::fit(qcFLine& line) const {
  Axis axis;
  if (!principalAxis(sums_, n_, 0, axis)) return false;
  const Wide angle = std::atan2(axis.s, axis.c);
  if (axis.distance > 0) {
    line = makeLine(angle, axis.distance);
  } else {
    line = makeLine(angle + std::numbers::pi_v<Wide>, 0 - axis.distance);  // 0 - 0 has no sign
  }
  return true;
}

qcFLine qcLSLineFitter::fit() const {
  qcFLine line;
  if (!fit(line)) throw UnstableErr();
  return line;
}

bool qcLSLineFitter::fitAndError(qcFLine* line, double* error) const {
  Axis axis;
  if (!principalAxis(sums_, n_, kNoDirection, axis)) return false;
  if (axis.distance < 0) axis = {-axis.c, -axis.s, -axis.distance};
  if (line) *line = makeLine(std::atan2(axis.s, axis.c), axis.distance + 0);  // + 0 takes the sign from a zero
  if (error) *error = axis.error(sums_, n_);
  return true;
}

double qcLSLineFitter::error(const qcFLine& line) const {
  return Axis{line.cosAngle(), line.sinAngle(), line.distance()}.error(sums_, n_);
}

qcLSLineFitter operator*(const qcXform<2>& xform, const qcLSLineFitter& fitter) {
  qcLSLineFitter result = fitter;
  result.sums_ = cfit::pointSums(cfit::mapped(cfit::homogeneous(xform), cfit::moments(fitter.sums_, fitter.n_)));
  return result;
}
