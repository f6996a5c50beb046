#include "std/shapes/ellipsecurve.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>

#include "std/shapes/segment.h"

namespace qc_shapes {

namespace {

constexpr double kPi = std::numbers::pi, kTurn = qcRadian::turn;
constexpr double kRounding = 4 * std::numeric_limits<double>::epsilon();

// A coordinate as a fraction of a radius that may be 0.
double fraction(double x, double radius) {
  if (radius > 0) return x / radius;
  return x == 0 ? 0 : std::copysign(HUGE_VAL, x);
}

// How long an arc may be, if its curvature is nowhere above that at the tips of the longer axis, and it is to deviate
// from its chord by no more than the tolerance. Seen from where it is farthest from the chord, the nearer end cannot
// have come down by more than on a circle of that curvature, nor by more than half the length.
double arcForTolerance(double tolerance, double larger, double smaller) {
  const double ratio = larger / smaller, bend = ratio * (tolerance / smaller);  // curvature times tolerance
  if (!(bend <= 2)) return 2 * tolerance;
  return 4 * std::asin(std::sqrt(bend / 2)) * smaller / ratio;
}

}  // namespace

EllipseCurve::EllipseCurve(const qcVector<2>& center, const qcVector<2>& radii, double angle, double phase,
                           bool rightHanded, double from, double to)
    : center_(center),
      radii_(radii),
      axis_(std::cos(angle), std::sin(angle)),
      phase_(phase),
      sense_(rightHanded ? 1 : -1),
      from_(from),
      to_(to),
      direction_(to < from ? -1 : 1),
      along_(radii.x(), radii.y()) {}

bool EllipseCurve::isFull() const { return std::fabs(to_ - from_) >= kTurn - 2 * kRounding; }

qcVector<2> EllipseCurve::point(double phi) const {
  if (phi == std::max(from_, to_) && isFull()) phi = std::min(from_, to_);  // both ends are one point, exactly
  const double t = phi + phase_;
  return center_ + radii_.x() * std::cos(t) * axis_ + sense_ * radii_.y() * std::sin(t) * axis_.perpendicular();
}

qcRadian EllipseCurve::tangent(double phi) const {
  if (isFlat() || from_ == to_) throw qcShapesError::NoTangent();
  const qcVector<2> left = leftNormal(phi);
  return qcRadian(std::atan2(-left.x(), left.y())).signedNorm();
}

// Points to the left of the direction of travel; of no particular length.
qcVector<2> EllipseCurve::leftNormal(double phi) const {
  const double t = phi + phase_, larger = std::max(radii_.x(), radii_.y());
  const qcVector<2> along =
      -radii_.x() / larger * std::sin(t) * axis_ + sense_ * (radii_.y() / larger) * std::cos(t) * axis_.perpendicular();
  return direction_ * along.perpendicular();
}

// The direction of the tangent runs ahead of that of a circle's by an angle that returns to 0 on every axis.
double EllipseCurve::tangentRotation() const {
  const auto ahead = [this](double t) {
    const double c = std::cos(t), s = std::sin(t);
    return std::atan2(s * c * (radii_.x() - radii_.y()), radii_.x() * s * s + radii_.y() * c * c);
  };
  return sense_ * (to_ - from_ + ahead(to_ + phase_) - ahead(from_ + phase_));
}

// The angle under which the chord is seen, and a whole turn where the chord and the curve have the point between them.
double EllipseCurve::windingAngle(const qcVector<2>& p) const {
  if (from_ == to_ || radii_.isNull()) return 0;
  const qcVector<2> start = point(from_), end = point(to_);
  if (start == end && !isFull()) return 0;
  const bool atStart = p == start, atEnd = p == end;
  const qcVector<2> a = scaled(atStart ? -leftNormal(from_) : start - p),
                    b = scaled(atEnd ? -leftNormal(to_) : end - p);
  // A whole turn depends on the side: rounding must not decide it on arcs that are almost points.
  const double cross = a.cross(b);
  const int side = atStart || atEnd ? (cross > 0) - (cross < 0) : orientation(start, end, p);
  const double chord = std::copysign(std::atan2(side == 0 ? 0 : std::fabs(cross), a * b), side);
  // On the chord counts as left of it. The curve lies on the other side of the chord from where it turns to.
  const bool onCurvesSide = isFull() || (turnsLeft() ? side < 0 : side >= 0);
  const bool between = !isFlat() && onCurvesSide && isLeft(p, atStart || atEnd) == turnsLeft();
  return between ? chord + (turnsLeft() ? kTurn : -kTurn) : chord;
}

// The point is on the left side of the whole ellipse in the direction of travel, or, within rounding, on it.
bool EllipseCurve::isLeft(const qcVector<2>& p, bool onEnd) const {
  if (onEnd) return true;
  const qcVector<2> q = local(p);
  const double u = std::fabs(fraction(q.x(), radii_.x())), v = std::fabs(fraction(q.y(), radii_.y()));
  const double reach = std::fabs(p.x()) + std::fabs(p.y()) + std::fabs(center_.x()) + std::fabs(center_.y());
  const double blur = kRounding * (1 + u * reach / radii_.x() + v * reach / radii_.y());
  return turnsLeft() ? std::hypot(u, v) <= 1 + blur : std::hypot(u, v) >= 1 - blur;
}

double EllipseCurve::lengthTo(double phi) const {
  if (radii_.x() == radii_.y()) return radii_.x() * std::fabs(phi - from_);
  if (phi == to_ && isFull()) return along_.total();
  return std::fabs(along_.at(phi + phase_) - along_.at(from_ + phase_));
}

double EllipseCurve::parameterAt(double distance) const {
  if (distance == 0) return from_;
  if (radii_.x() == radii_.y() && radii_.x() > 0) return from_ + direction_ * distance / radii_.x();
  return along_.parameterAt(along_.at(from_ + phase_) + direction_ * distance) - phase_;
}

// The coordinates in the frame of the axes.
qcVector<2> EllipseCurve::local(const qcVector<2>& p) const {
  const qcVector<2> d = p - center_;
  return {axis_ * d, axis_.cross(d)};
}

double EllipseCurve::localParameter(double c, double s) const { return std::atan2(sense_ * s, c) - phase_; }

qcVector<2> EllipseCurve::nearestOnEllipse(const qcVector<2>& p) const {
  const qcVector<2> q = local(p);
  const EllipseFoot foot = firstQuadrantFoot(radii_.x(), radii_.y(), std::fabs(q.x()), std::fabs(q.y()));
  const double x = (q.x() < 0 ? -1 : 1) * radii_.x() * foot.c, y = (q.y() < 0 ? -1 : 1) * radii_.y() * foot.s;
  return center_ + x * axis_ + y * axis_.perpendicular();
}

double EllipseCurve::nearestParameter(const qcVector<2>& p, bool closed) const {
  const qcVector<2> q = local(p), size(std::fabs(q.x()), std::fabs(q.y()));
  const auto parameter = [&](const EllipseFoot& foot) {
    const double phi = localParameter(q.x() < 0 ? -foot.c : foot.c, q.y() < 0 ? -foot.s : foot.s);
    return from_ + direction_ * behindStart(phi);
  };
  EllipseFoot foot = firstQuadrantFoot(radii_.x(), radii_.y(), size.x(), size.y());
  const double nearest = parameter(foot);
  if (closed) return nearest;
  std::array<double, 4> candidates{from_, to_, to_, to_};
  if (contains(nearest)) candidates[1] = nearest;
  if (secondFoot(radii_.x(), radii_.y(), size.x(), size.y(), foot) && contains(parameter(foot))) {
    candidates[2] = parameter(foot);
  }
  if (direction_ * (candidates[2] - candidates[1]) < 0) std::swap(candidates[1], candidates[2]);
  const auto distance = [&](double phi) {
    const qcVector<2> d = point(phi) - p;
    return std::hypot(d.x(), d.y());
  };
  // Rounding must not choose between points that are equally near.
  const double reach = std::max(radii_.x(), radii_.y()) + std::fabs(center_.x()) + std::fabs(center_.y()) +
                       std::fabs(p.x()) + std::fabs(p.y());
  double first = candidates[0], least = distance(first);
  for (const double phi : candidates) {
    if (!(distance(phi) < least - kRounding * reach)) continue;
    first = phi;
    least = distance(phi);
  }
  return first;
}

double EllipseCurve::parameterOf(const qcVector<2>& p) const {
  const qcVector<2> q = local(p);
  // The zeros of the centre may be negative, and point the other way.
  if (!isFlat()) return q.isNull() ? localParameter(1, 0) : localParameter(q.x() / radii_.x(), q.y() / radii_.y());
  const double c = radii_.x() > 0 ? std::clamp(q.x() / radii_.x(), -1.0, 1.0) : 0;
  const double s = radii_.y() > 0 ? std::clamp(q.y() / radii_.y(), -1.0, 1.0) : 0;
  return radii_.x() > 0 ? localParameter(c, std::sqrt((1 - c) * (1 + c)))
                        : localParameter(std::sqrt((1 - s) * (1 + s)), s);
}

double EllipseCurve::parameterOfDirection(const qcVector<2>& direction) const {
  const double u = axis_ * direction, v = axis_.cross(direction), larger = std::max(radii_.x(), radii_.y());
  return std::atan2(-u * (radii_.y() / larger), sense_ * v * (radii_.x() / larger)) - phase_;
}

bool EllipseCurve::within(const qcVector<2>& p) const {
  const qcVector<2> q = local(p);
  return std::hypot(fraction(q.x(), radii_.x()), fraction(q.y(), radii_.y())) <= 1;
}

// How far one has to go from the start to the parameter, within one round.
double EllipseCurve::behindStart(double phi) const { return qcRadian(direction_ * (phi - from_)).norm().plain(); }

qcRect EllipseCurve::boundingBox() const {
  // Along each coordinate the curve is the larger of two numbers times a cosine.
  const qcVector<2> across = axis_.perpendicular();
  qcVector<2> low, high;
  for (int i = 0; i < 2; ++i) {
    const double c = radii_.x() * axis_[i], s = radii_.y() * across[i], reach = std::hypot(c, s);
    const double start = point(from_)[i], end = point(to_)[i], top = localParameter(c, s);
    low[i] = isFull() || contains(top + kPi) ? center_[i] - reach : std::min(start, end);
    high[i] = isFull() || contains(top) ? center_[i] + reach : std::max(start, end);
  }
  return qcRect::fromCorners(low, high);
}

long EllipseCurve::steps(const qcShape::qcSampleParams& params, double length, bool closed) const {
  const double spacing = params.spacing(), tolerance = params.tolerance();
  const double larger = std::max(radii_.x(), radii_.y()), smaller = std::min(radii_.x(), radii_.y());
  const long limit = params.maxPoints() - (closed ? 0 : 1);
  long n = closed ? 2 : 1;
  if (spacing > 0) n = std::max(n, stepsFor(length, spacing, limit));
  if (tolerance > 0) {
    const double span = std::fabs(to_ - from_);
    n = std::max(n, spacing > 0 ? stepsFor(length, arcForTolerance(tolerance, larger, smaller), limit)
                                : stepsFor(span / 2, chordHalfAngle(tolerance, larger), limit));
  }
  if (n > limit) throw qcShapesError::SampleOverflow();
  return n;
}

void EllipseCurve::sample(SampleWriter& writer, bool closed) const {
  const qcShape::qcSampleParams& params = writer.params();
  const std::int32_t piece = writer.takePiece();
  const double total = length();
  if (params.computeTangents()) tangent(from_);  // or there is none
  if (!(total > 0)) {
    writer.openChain(closed, 1);
    writer.add(point(from_), qcRadian(), {piece, 0});
    return;
  }
  const long n = steps(params, total, closed);
  // An affine map of a circle's points at equal angles keeps the deviation below that of the larger radius.
  const bool equalAngles = params.tolerance() > 0 && params.spacing() == 0;
  const long count = closed ? n : n + 1;
  writer.openChain(closed, count);
  for (long i = 0; i < count; ++i) {
    const double part = static_cast<double>(i) / static_cast<double>(n);
    const double phi = i == n ? to_ : equalAngles ? from_ + part * (to_ - from_) : parameterAt(part * total);
    const double distance = equalAngles && params.recordPositions_() ? lengthTo(phi) : part * total;
    writer.add(point(phi), params.computeTangents() ? tangent(phi) : qcRadian(), {piece, distance});
  }
}

}  // namespace qc_shapes
