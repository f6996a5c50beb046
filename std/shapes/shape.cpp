#include "vnxstd/shapes/shape.h"

#include <typeinfo>
#include <unordered_set>

#include "std/shapes/held.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/shapes/clipinfo.h"
#include "vnxstd/shapes/contourtree.h"
#include "vnxstd/shapes/polyline.h"
#include "vnxstd/shapes/rect.h"
#include "vnxstd/shapes/shapeinfo.h"

namespace {

const qc_Instantiator registered(typeid(qcShape), nullptr);

// The position along the decomposed shape of a position on a shape that counts as one piece.
qcPerimPos onDecomposed(const qcShapeInfo& info, const qcPerimPos& position) {
  if (position.index() != 0) throw qcShapesError::BadIndex();
  return info.perimPos(position.distance());
}

}  // namespace

qcArchive& operator||(qcArchive& archive, qcPerimPos& position) {
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shapes", 1407);
  std::int32_t index = position.index();
  double distance = position.distance();
  archive || index || distance;
  if (archive.isLoading()) position = qcPerimPos(index, distance);
  return archive;
}

void qcShape::dispatchSerialize(qcArchive& archive) { serializeLevel(archive, this, 0, &qcShape::serialize_); }

void qcShape::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shapes", 599);
  qcPersistent::dispatchSerialize(archive);
}

// The decomposition that the defaults below hand their question to. One of the same class would hand it on for ever.
// That of a region may be an open contour all the way round.
qcPtrHandle<qcShape> qcShape::decomposed() const {
  qcPtrHandle<qcShape> shape = decompose();
  const qcShape& parts = *shape;
  if (!parts.isDecomposed() || typeid(parts) == typeid(*this)) throw qcBadPointer();
  if (isRegion() && parts.isOpenContour()) return new qcContourTree({shape}, true, false);
  return shape;
}

double qcShape::perimeter() const { return decomposed()->perimeter(); }

qcPerimPos qcShape::nearestPerimPos(const qcShapeInfo&, const qcVector<2>& p) const {
  const qcPtrHandle<qcShape> shape = decomposed();
  const qcShapeInfo info(*shape);
  return {0, info.distanceAlong(shape->nearestPerimPos(info, p))};
}

qcVector<2> qcShape::startPoint() const { throw qcShapesError::NotOpenContour(); }
qcVector<2> qcShape::endPoint() const { throw qcShapesError::NotOpenContour(); }
qcRadian qcShape::startAngle() const { throw qcShapesError::NotOpenContour(); }
qcRadian qcShape::endAngle() const { throw qcShapesError::NotOpenContour(); }
qcRadian qcShape::tangentRotation() const { throw qcShapesError::NotOpenContour(); }
qcRadian qcShape::windingAngle(const qcVector<2>&) const { throw qcShapesError::NotOpenContour(); }
bool qcShape::isRightHanded() const { throw qcShapesError::NotRegion(); }
bool qcShape::within(const qcVector<2>&) const { throw qcShapesError::NotRegion(); }
qcPtrHandle<qcShape> qcShape::reverse() const { throw qcShapesError::NotReversible(); }
qcPtrHandle<qcShape> qcShape::reverse_() const { return reverse(); }
bool qcShape::isMultipleContours_() const { return false; }
qcPtrHandle<qcShape> qcShape::cloneThat_(const qcShape& that) const { return that.clone(); }
void qcShape::pieceLengths_(std::vector<double>& lengths) const { lengths.push_back(perimeter()); }
void qcShape::heldShapes_(std::vector<const qcShape*>&) const {}

qcPtrHandle<qcShape> qcShape::subShape(const qcShapeInfo&, const std::pair<qcPerimPos, double>& piece) const {
  const qcPtrHandle<qcShape> shape = decomposed();
  const qcShapeInfo info(*shape);
  return shape->subShape(info, {onDecomposed(info, piece.first), piece.second});
}

void qcShape::perimPointAndTangent_(const qcShapeInfo&, const qcPerimPos& position, qcVector<2>& point,
                                    qcRadian* tangent) const {
  const qcPtrHandle<qcShape> shape = decomposed();
  const qcShapeInfo info(*shape);
  shape->perimPointAndTangent_(info, onDecomposed(info, position), point, tangent);
}

qcPtrHandle<qcShape> qcShape::clip(const qcPolyline& polygon, qcClipInfo& info) const { return clip_(polygon, info); }

qcPtrHandle<qcShape> qcShape::clip(const qcPolyline& polygon, bool rightHanded) const {
  qcClipInfo info;
  if (!rightHanded || polygon.isRightHanded()) return clip_(polygon, info);
  const qcPtrHandle<qcShape> reversed = polygon.reverse();
  return clip_(static_cast<const qcPolyline&>(*reversed), info);
}

qcPtrHandle<qcShape> qcShape::clip(const qcPolyline& polygon, ClipResult& result, bool rightHanded) const {
  qcClipInfo info;
  const bool turn = rightHanded && !polygon.isRightHanded();
  const qcPtrHandle<qcShape> reversed = turn ? polygon.reverse() : qcPtrHandle<qcShape>();
  qcPtrHandle<qcShape> inside = clip_(turn ? static_cast<const qcPolyline&>(*reversed) : polygon, info);
  result = info.result();
  return inside;
}

qcVector<2> qcShape::perimPoint(const qcShapeInfo& info, const qcPerimPos& position) const {
  qcVector<2> point;
  perimPointAndTangent_(info, position, point, nullptr);
  return point;
}

void qcShape::perimPointAndTangent(const qcShapeInfo& info, const qcPerimPos& position, qcVector<2>& point,
                                   qcRadian& tangent) const {
  perimPointAndTangent_(info, position, point, &tangent);
}

bool qc_shapes::holds(const qcShape& shape, const qcShape& sought) {
  if (sought.refc() == 0) return false;
  std::unordered_set<const qcShape*> seen;
  std::vector<const qcShape*> waiting{&shape};
  while (!waiting.empty()) {
    const qcShape* held = waiting.back();
    waiting.pop_back();
    if (held == &sought) return true;
    if (held && (held->refc() <= 1 || seen.insert(held).second)) held->heldShapes_(waiting);
  }
  return false;
}
