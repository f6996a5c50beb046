#include "vnxstd/shapes/circle.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "std/archive/found.h"
#include "std/shapes/samplewriter.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/shapes/ellipse.h"
#include "vnxstd/shapes/ellipsearc.h"
#include "vnxstd/shapes/line.h"
#include "vnxstd/shapes/rect.h"

namespace {

const qc_Instantiator registered(typeid(qcCircle), &qcCircle::make);

bool isRadius(double radius) { return radius >= 0 && std::isfinite(radius); }

double checkedRadius(double radius) {
  if (!isRadius(radius)) throw qcShapesError::BadRadius();
  return radius;
}

// How many points the tolerance asks for.
long pointsForTolerance(double tolerance, double radius, long limit) {
  return qc_shapes::stepsFor(std::numbers::pi, qc_shapes::chordHalfAngle(tolerance, radius), limit);
}

}  // namespace

qcCircle::qcCircle(const qcVector<2>& center, double radius) : center_(center), radius_(checkedRadius(radius)) {}

qcPersistent* qcCircle::make() { return new qcCircle; }

void qcCircle::center(const qcVector<2>& center) {
  mutating();
  center_ = center;
}

void qcCircle::radius(double radius) {
  checkedRadius(radius);
  mutating();
  radius_ = radius;
}

void qcCircle::centerRadius(double x, double y, double radius) {
  checkedRadius(radius);
  mutating();
  center_ = {x, y};
  radius_ = radius;
}

qcVector<2> qcCircle::pointAt(double angle) const {
  return center_ + radius_ * qcVector<2>(std::cos(angle), std::sin(angle));
}

qcVector<2> qcCircle::closestPoint(const qcVector<2>& p) const {
  const qcVector<2> d = p - center_;
  const double length = std::hypot(d.x(), d.y());
  if (length == 0) return center_ + qcVector<2>(radius_, 0);
  return center_ + radius_ * qcVector<2>(d.x() / length, d.y() / length);
}

double qcCircle::distToPoint(const qcVector<2>& p) const {
  return std::fabs(std::hypot(p.x() - center_.x(), p.y() - center_.y()) - radius_);
}

bool qcCircle::intersections(const qcLine& line, qcVector<2>& a, qcVector<2>& b) const {
  const qcVector<2> q = line.proj(center_);
  const double h = center_.distance(q);
  if (h <= radius_) {
    const qcVector<2> w = std::sqrt(std::max(0.0, radius_ * radius_ - h * h)) * line.dir();
    a = q - w;
    b = q + w;
    return true;
  }
  a = center_ - (center_ - q) * (radius_ / h);
  b = q;
  return false;
}

bool qcCircle::intersections(const qcCircle& other, qcVector<2>& a, qcVector<2>& b) const {
  const double d = center_.distance(other.center_), r1 = radius_, r2 = other.radius_;
  const qcVector<2> u = d > 0 ? (other.center_ - center_) / d : qcVector<2>(1, 0);
  if (d > 0 && d <= r1 + r2 && d >= std::fabs(r1 - r2)) {
    const bool touches = d == r1 + r2 || d == std::fabs(r1 - r2);  // the root of a rounding error would part the points
    const double t = (d + (r1 - r2) * (r1 + r2) / d) / 2;
    const qcVector<2> q = center_ + t * u;
    const qcVector<2> w = (touches ? 0.0 : std::sqrt(std::max(0.0, (r1 - t) * (r1 + t)))) * u.perpendicular();
    a = q - w;
    b = q + w;
    return true;
  }
  // Apart, the points face each other; one inside the other, they lie on the same side.
  a = center_ + (d > 0 && d < r2 - r1 ? -r1 : r1) * u;
  b = other.center_ + (d > r1 + r2 || (d > 0 && d < r2 - r1) ? -r2 : r2) * u;
  return false;
}

qcRect qcCircle::boundingBox() const {
  const qcVector<2> reach(radius_, radius_);
  return qcRect::fromCorners(center_ - reach, center_ + reach);
}

qcPerimPos qcCircle::nearestPerimPos(const qcShapeInfo&, const qcVector<2>& p) const {
  const qcVector<2> d = p - center_;
  return {0, d.isNull() ? 0.0 : qcRadian(std::atan2(d.y(), d.x())).norm().plain() * radius_};
}

bool qcCircle::within(const qcVector<2>& p) const {
  return std::hypot(p.x() - center_.x(), p.y() - center_.y()) <= radius_;
}

qcEllipse qcCircle::map(const qcXform<2>& xform) const { return map2(xform).oldEllipse(); }

qcEllipse2 qcCircle::map2(const qcXform<2>& xform) const {
  return qcEllipse2(center_, qcRadian(0), {radius_, radius_}, true, qcRadian(0)).map(xform);
}

qcPtrHandle<qcShape> qcCircle::mapShape(const qcXform<2>& xform) const {
  const qcVector<2> x = xform.mapVector({1, 0}), y = xform.mapVector({0, 1}), center = xform.mapPoint(center_);
  const double scale = std::hypot(x.x(), x.y());
  if (radius_ == 0) return new qcCircle(center, 0);
  // The other column of a similarity is the first one turned by a right angle, to either side.
  const qcVector<2> turned = x.perpendicular();
  const double eps = kSimilarity * scale;
  if (!qfRealEq(turned, y, eps) && !qfRealEq(-turned, y, eps)) return new qcEllipse2(map2(xform));
  return new qcCircle(center, radius_ * scale);
}

qcPtrHandle<qcShape> qcCircle::decompose() const {
  return new qcEllipseArc2(map2(qcXform<2>()), qcRadian(0), qcRadian(qcRadian::turn));
}

qcPtrHandle<qcShape> qcCircle::subShape(const qcShapeInfo& info, const std::pair<qcPerimPos, double>& piece) const {
  return qcEllipse(center_, {radius_, radius_}, qcRadian(0)).subShape(info, piece);
}

void qcCircle::sample(const qcSampleParams& params, qcSampleResult& result) const {
  if (params.uniformMode()) throw qcShapesError::BadParams();
  qc_shapes::SampleWriter writer(params, result);
  const std::int32_t piece = writer.takePiece();
  if (degen()) {
    if (params.computeTangents()) throw qcShapesError::NoTangent();
    writer.openChain(true, 1);
    writer.add(center_, qcRadian(), {piece, 0});
    return writer.commit();
  }
  const double spacing = params.spacing(), tolerance = params.tolerance();
  const long limit = params.maxPoints();
  long n = std::max(2L, spacing == 0 ? 1L : qc_shapes::stepsFor(perimeter(), spacing, limit));
  if (tolerance > 0) n = std::max(n, pointsForTolerance(tolerance, radius_, limit));
  if (n > limit) throw qcShapesError::SampleOverflow();
  writer.openChain(true, n);
  for (long i = 0; i < n; ++i) {
    const double angle = static_cast<double>(i) * qcRadian::turn / static_cast<double>(n);
    writer.add(pointAt(angle), qcRadian(angle + std::numbers::pi / 2).signedNorm(), {piece, angle * radius_});
  }
  writer.commit();
}

bool qcCircle::equal_(const qcShape& that) const { return equalAs(*this, that); }

void qcCircle::perimPointAndTangent_(const qcShapeInfo&, const qcPerimPos& position, qcVector<2>& point,
                                     qcRadian* tangent) const {
  if (position.index() != 0) throw qcShapesError::BadIndex();
  if (!std::isfinite(position.distance())) throw qcShapesError::BadParams();
  if (tangent && degen()) throw qcShapesError::NoTangent();
  const double angle = degen() ? 0 : std::fmod(position.distance(), perimeter()) / radius_;
  point = pointAt(angle);
  if (tangent) *tangent = qcRadian(angle + std::numbers::pi / 2).signedNorm();
}

void qcCircle::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shapes", 3693);
  qcShape::dispatchSerialize(archive);
  serializeCommon(archive);
}

bool qcCircle::loadLegacy(qcArchive& archive) {
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shapes", 3693);
  serializeCommon(archive);
  return true;
}

void qcCircle::serializeCommon(qcArchive& archive) {
  qcVector<2> center = center_;
  double radius = radius_;
  archive || center || radius;
  if (archive.isStoring()) return;
  if (!isRadius(radius))
    throw archive.located(qcArchive::BadContent("std/shapes/shapes", 3693), "a radius >= 0", qf_Found(radius));
  center_ = center;
  radius_ = radius;
}
