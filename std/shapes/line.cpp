#include "vnxstd/shapes/line.h"

#include <cmath>

#include "std/archive/found.h"
#include "std/shapes/segment.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/math/rigid.h"
#include "vnxstd/shapes/rect.h"

namespace {

const qc_Instantiator registeredLine(typeid(qcLine), &qcLine::make);
const qc_Instantiator registeredFLine(typeid(qcFLine), &qcFLine::make);

}  // namespace

qcRect qc_InfiniteLine::boundingBox() const { throw qcShapesError::InfiniteExtent(); }
double qc_InfiniteLine::perimeter() const { throw qcShapesError::InfiniteExtent(); }
qcPtrHandle<qcShape> qc_InfiniteLine::decompose() const { throw qcShapesError::InfiniteExtent(); }
void qc_InfiniteLine::sample(const qcSampleParams&, qcSampleResult&) const { throw qcShapesError::InfiniteExtent(); }
qcPerimPos qc_InfiniteLine::nearestPerimPos(const qcShapeInfo&, const qcVector<2>&) const {
  throw qcShapesError::InfiniteExtent();
}
qcPtrHandle<qcShape> qc_InfiniteLine::subShape(const qcShapeInfo&, const std::pair<qcPerimPos, double>&) const {
  throw qcShapesError::InfiniteExtent();
}
void qc_InfiniteLine::perimPointAndTangent_(const qcShapeInfo&, const qcPerimPos&, qcVector<2>&, qcRadian*) const {
  throw qcShapesError::InfiniteExtent();
}

qcLine::qcLine(const qcVector<2>& dir, const qcVector<2>& pos) : dir_(dir), pos_(pos) {
  if (dir.isNull()) throw qcShapesError::DegenerateShape();
}

qcPersistent* qcLine::make() { return new qcLine; }

void qcLine::dir(const qcVector<2>& dir) {
  if (dir.isNull()) throw qcShapesError::DegenerateShape();
  mutating();
  dir_ = dir;
}

void qcLine::pos(const qcVector<2>& pos) {
  mutating();
  pos_ = pos;
}

void qcLine::angle(const qcRadian& angle) {
  mutating();
  dir_ = qcVector<2>(1, angle);
}

qcRadian qcLine::angle(const qcLine& other) const {
  return qcRadian(std::atan2(dir_.cross(other.dir_), dir_ * other.dir_)).signedNorm();
}

double qcLine::distToPoint(const qcVector<2>& p) const { return std::fabs(dir_.cross(p - pos_)); }

qcVector<2> qcLine::intersect(const qcLine& other) const {
  if (isParallel(other)) throw qcShapesError::LinesParallel();
  const double det = other.dir_.y() * dir_.x() - dir_.y() * other.dir_.x();
  const qcVector<2> d = other.pos_ - pos_;
  return pos_ + (d.x() * other.dir_.y() - d.y() * other.dir_.x()) / det * dir_;
}

bool qcLine::isParallel(const qcLine& other) const {
  return std::fabs(other.dir_.y() * dir_.x() - dir_.y() * other.dir_.x()) < kParallel;
}

qcLine qcLine::map(const qcXform<2>& xform) const {
  return {qc_shapes::normalized(xform.mapVector(dir_)), xform.mapPoint(pos_)};
}

qcRect qcLine::encloseRect() const { throw qcShapesError::InfiniteExtent(); }

bool qcLine::equal_(const qcShape& that) const { return equalAs(*this, that); }

void qcLine::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shapes", 2575);
  qcShape::dispatchSerialize(archive);
  serializeCommon(archive);
}

bool qcLine::loadLegacy(qcArchive& archive) {
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shapes", 2575);
  serializeCommon(archive);
  return true;
}

void qcLine::serializeCommon(qcArchive& archive) {
  qcVector<2> dir = dir_, pos = pos_;
  archive || dir || pos;
  if (archive.isStoring()) return;
  if (dir.isNull())
    throw archive.located(qcArchive::BadContent("std/shapes/shapes", 2575), "a direction", "a null vector");
  dir_ = dir;
  pos_ = pos;
}

qcFLine::qcFLine(const qcDegree& angle, double distance) { set(angle, distance); }

qcFLine::qcFLine(const qcVector<2>& a, const qcVector<2>& b) {
  if (a == b) throw qcShapesError::DegenerateShape();
  const qcVector<2> d = b - a;
  *this = through(a, qcRadian(std::atan2(d.y(), d.x())));
}

qcPersistent* qcFLine::make() { return new qcFLine; }

qcFLine qcFLine::Xaxis(const qc2Rigid& frame) { return through(frame.trans(), frame.angle()); }
qcFLine qcFLine::Yaxis(const qc2Rigid& frame) { return through(frame.trans(), frame.angle() + qcDegree(90)); }

// The line in a direction through a point; turned round where its distance would be negative.
qcFLine qcFLine::through(const qcVector<2>& p, const qcDegree& angle) {
  qcFLine line(angle, 0);
  const double distance = line.distanceFrom(p);
  if (distance < 0) {
    line.set(angle + qcDegree(180), -distance);
  } else {
    line.set(angle, distance);
  }
  return line;
}

void qcFLine::set(const qcDegree& angle, double distance) {
  if (!(distance >= 0)) throw qcShapesError::DegenerateShape();
  // Whole turns go first, exactly: the rounding of many of them would show in the sine.
  const double radians = std::fmod(angle.plain(), qcDegree::turn) * qcRadian::perDegree;
  angle_ = angle;
  distance_ = distance;
  sin_ = std::sin(radians);
  cos_ = std::cos(radians);
}

void qcFLine::angle(const qcDegree& angle) {
  mutating();
  set(angle, distance_);
}

void qcFLine::distance(double distance) {
  if (!(distance >= 0)) throw qcShapesError::DegenerateShape();
  mutating();
  distance_ = distance;
}

qc2Rigid qcFLine::rigid_() const { return {angle_, foot()}; }

qcFLine qcFLine::map(const qcXform<2>& xform) const {
  const qcVector<2> mapped = xform.mapVector(dir());
  if (mapped.isNull()) throw qcShapesError::DegenerateShape();
  return through(xform.mapPoint(foot()), qcRadian(std::atan2(mapped.y(), mapped.x())));
}

bool qcFLine::equal_(const qcShape& that) const { return equalAs(*this, that); }

int qcFLine::operator==(const qcFLine& that) const {
  return qfRealEq(distance_, that.distance_, kEqual) && qfRealEq(sin_, that.sin_, kEqual) &&
         qfRealEq(cos_, that.cos_, kEqual);
}

void qcFLine::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shapes", 0);
  qcShape::dispatchSerialize(archive);
  serializeCommon(archive);
}

bool qcFLine::loadLegacy(qcArchive& archive) {
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shapes", 0);
  serializeCommon(archive);
  return true;
}

void qcFLine::serializeCommon(qcArchive& archive) {
  double angle = angle_.plain(), distance = distance_;
  archive || angle || distance;
  if (archive.isStoring()) return;
  if (!(distance >= 0))
    throw archive.located(qcArchive::BadContent("std/shapes/shapes", 0), "a distance >= 0", qf_Found(distance));
  set(qcDegree(angle), distance);
}
