#include "vnxstd/shapes/lineseg.h"

#include "std/shapes/samplewriter.h"
#include "std/shapes/segment.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/shapes/line.h"
#include "vnxstd/shapes/rect.h"
#include "vnxstd/shapes/shapeinfo.h"

namespace {

const qc_Instantiator registered(typeid(qcLineSeg), &qcLineSeg::make);

double checkedDistance(const qcPerimPos& position) {
  if (position.index() != 0) throw qcShapesError::BadIndex();
  if (std::isnan(position.distance())) throw qcShapesError::BadParams();
  return position.distance();
}

}  // namespace

qcPersistent* qcLineSeg::make() { return new qcLineSeg; }

void qcLineSeg::p1(const qcVector<2>& p1) {
  mutating();
  p1_ = p1;
}

void qcLineSeg::p2(const qcVector<2>& p2) {
  mutating();
  p2_ = p2;
}

qcLine qcLineSeg::line() const {
  if (degen()) throw qcShapesError::DegenerateShape();
  return {qc_shapes::normalized(p2_ - p1_), p1_};
}

qcRect qcLineSeg::boundingBox() const {
  const qcVector<2> low(std::min(p1_.x(), p2_.x()), std::min(p1_.y(), p2_.y()));
  const qcVector<2> high(std::max(p1_.x(), p2_.x()), std::max(p1_.y(), p2_.y()));
  return qcRect::fromCorners(low, high);
}

qcVector<2> qcLineSeg::nearestPoint(const qcVector<2>& p) const {
  return qc_shapes::pointAtFraction(p1_, p2_, qc_shapes::nearestFraction(p1_, p2_, p));
}

double qcLineSeg::perimeter() const { return qc_shapes::segmentLength(p1_, p2_); }

qcPerimPos qcLineSeg::nearestPerimPos(const qcShapeInfo&, const qcVector<2>& p) const {
  return {0, qc_shapes::nearestFraction(p1_, p2_, p) * perimeter()};
}

qcRadian qcLineSeg::startAngle() const {
  if (degen()) throw qcShapesError::NoTangent();
  return qc_shapes::segmentAngle(p1_, p2_);
}

qcRadian qcLineSeg::windingAngle(const qcVector<2>& p) const {
  if (degen()) return qcRadian(0);
  return qcRadian(qc_shapes::angleSubtended(p1_, p2_, p, (p2_ - p1_).perpendicular()));
}

qcPtrHandle<qcShape> qcLineSeg::subShape(const qcShapeInfo&, const std::pair<qcPerimPos, double>& piece) const {
  const double start = std::max(0.0, checkedDistance(piece.first));
  if (!(piece.second >= 0)) throw qcShapesError::BadParams();
  return new qcLineSeg(qc_shapes::pointAtDistance(p1_, p2_, start),
                       qc_shapes::pointAtDistance(p1_, p2_, start + piece.second));
}

void qcLineSeg::sample(const qcSampleParams& params, qcSampleResult& result) const {
  if (params.uniformMode()) return qfUniformSamplePrimitive(*this, params, result);
  qc_shapes::SampleWriter writer(params, result);
  qc_shapes::sampleSegment(writer, p1_, p2_);
  writer.commit();
}

bool qcLineSeg::equal_(const qcShape& that) const { return equalAs(*this, that); }

void qcLineSeg::perimPointAndTangent_(const qcShapeInfo&, const qcPerimPos& position, qcVector<2>& point,
                                      qcRadian* tangent) const {
  const double distance = checkedDistance(position);
  if (tangent) *tangent = startAngle();
  point = qc_shapes::pointAtDistance(p1_, p2_, distance);
}

void qcLineSeg::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shapes", 2925);
  qcShape::dispatchSerialize(archive);
  serializeCommon(archive);
}

bool qcLineSeg::loadLegacy(qcArchive& archive) {
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shapes", 2925);
  serializeCommon(archive);
  return true;
}

void qcLineSeg::serializeCommon(qcArchive& archive) {
  qcVector<2> p1 = p1_, p2 = p2_;
  archive || p1 || p2;
  if (archive.isStoring()) return;
  p1_ = p1;
  p2_ = p2;
}
