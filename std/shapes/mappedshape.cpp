#include "vnxstd/shapes/mappedshape.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <typeinfo>
#include <unordered_map>

#include "std/shapes/held.h"
#include "std/shapes/lazy.h"
#include "std/shapes/mappedcurve.h"
#include "std/shapes/segment.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/archive/memory.h"
#include "vnxstd/math/xfcomp.h"
#include "vnxstd/shapes/circle.h"
#include "vnxstd/shapes/clipinfo.h"
#include "vnxstd/shapes/contourtree.h"
#include "vnxstd/shapes/ellipse.h"
#include "vnxstd/shapes/generaltree.h"
#include "vnxstd/shapes/polyline.h"
#include "vnxstd/shapes/regiontree.h"
#include "vnxstd/shapes/shapeinfo.h"

using qc_shapes::MappedCurve;

namespace {

using Held = qcMappedShape::Held;
using Xform = qcMappedShape::Xform;

constexpr const char* kSource = "std/shapes/mapshape";
constexpr int kLine = 562;

const qc_Instantiator registered(typeid(qcMappedShape), &qcMappedShape::make);

const qcMappedShape* asMapped(const Held& shape) { return dynamic_cast<const qcMappedShape*>(shape.rep()); }

std::string bytesOf(const qc2XformBase& xform) {
  qcMemoryArchive archive(qcArchive::bigEndian, false);
  archive << static_cast<const qcPersistent&>(xform);
  return {archive.bytes().begin(), archive.bytes().end()};
}

bool mirrors(const qc2XformLinear& xform) { return xform.matrix().determinant() < 0; }

// At the centre of the shape's box.
qc2XformLinear expansion(const qc2XformBase& xform, const qcShape& shape) {
  if (xform.isLinear()) return xform.linearXform({});
  const qcRect box = shape.boundingBox();
  return xform.linearXform(box.origin() + 0.5 * box.size());
}

// Of the same class, and linear ones equal, others in all that they archive; compositions member by member.
bool areEqual(const qc2XformBase& first, const qc2XformBase& second) {
  std::vector<std::pair<const qc2XformBase*, const qc2XformBase*>> waiting{{&first, &second}};
  while (!waiting.empty()) {
    const auto [a, b] = waiting.back();
    waiting.pop_back();
    if (a == b) continue;
    if (!a || !b || typeid(*a) != typeid(*b)) return false;
    if (const auto* linear = dynamic_cast<const qc2XformLinear*>(a)) {  // by value, as 0 has two forms
      if (*linear != static_cast<const qc2XformLinear&>(*b)) return false;
      continue;
    }
    const auto* composed = dynamic_cast<const qc2XformComposed*>(a);
    if (!composed) {
      if (bytesOf(*a) != bytesOf(*b)) return false;
      continue;
    }
    std::vector<qc2XformComposed::Member> ours, theirs;
    composed->decompose(ours);
    static_cast<const qc2XformComposed*>(b)->decompose(theirs);
    if (ours.size() != theirs.size()) return false;
    for (std::size_t i = 0; i < ours.size(); ++i) waiting.emplace_back(ours[i].rep(), theirs[i].rep());
  }
  return true;
}

// The image of a shape, travelled as the shape is: where the transform mirrors, the other way round than circles are of
// themselves, and around the holes and islands of a region in the direction of the other kind. Collections are made of
// the images of what they hold.
qcPtrHandle<qcShape> imageOf(const qcShape& shape, const qc2XformLinear& xform) {
  const auto image = [&xform](const qcShape& part) { return part.mapShape(xform); };
  if (!mirrors(xform)) return image(shape);
  if (const auto* circle = dynamic_cast<const qcCircle*>(&shape)) return new qcEllipse2(circle->map2(xform));
  if (const auto* region = dynamic_cast<const qcRegionTree*>(&shape)) return region->around_(image, true);
  if (const auto* all = dynamic_cast<const qcGeneralShapeTree*>(&shape)) {
    return all->ofShapes_([&xform](const qcShape& part) { return imageOf(part, xform); });
  }
  return image(shape);
}

// The angle at the start or the end of the image of an open contour. Where it jumps there, the first or last element
// that has a tangent may be far from the point at which the contour starts or ends.
qcRadian angleOf(Held shape, Xform xform, bool atStart) {
  for (;;) {
    const auto* tree = shape->isOpenContour() ? dynamic_cast<const qcContourTree*>(shape.rep()) : nullptr;
    std::vector<const qcShape*> elements = tree ? tree->elements_() : std::vector<const qcShape*>();
    if (!atStart) std::reverse(elements.begin(), elements.end());
    const auto hasTangent = [](const qcShape* element) { return element->hasTangent(); };
    const auto element = std::find_if(elements.begin(), elements.end(), hasTangent);
    const Held part = element == elements.end() ? shape : Held(*element);
    const qcMappedShape* mapped = asMapped(part);
    if (mapped) xform = Xform(xform->composeBase(*mapped->overallMapXform()));
    const Held inner = mapped ? mapped->underlyingShape() : part;
    if (inner.rep() == shape.rep()) break;
    shape = inner;
  }
  const qcVector<2> at = atStart ? shape->startPoint() : shape->endPoint();
  const qcRadian angle = atStart ? shape->startAngle() : shape->endAngle();
  const qcVector<2> along = xform->linearXform(at).mapVector(qcVector<2>(1, angle));
  if (along == qcVector<2>()) throw qcShapesError::NoTangent();
  return qc_shapes::segmentAngle({}, along);
}

// The place on the curve that a position means, which may be the end of a piece. The end of a contour, but for
// rounding, is no place on the next one.
MappedCurve::Place placeOf(const MappedCurve& curve, const qcShapeInfo& info, const qcPerimPos& position) {
  constexpr double kRounding = 1e-12;  // of lengths, relatively
  const qcPerimPos moved = info.perimPos(position, 0);
  if (info.numPieces() != static_cast<long>(curve.lengths().size())) throw qcShapesError::BadParams();
  const double length = info.pieceLength(position.index()) * (1 + kRounding);
  const bool isOnPiece = position.distance() >= 0 && position.distance() <= length;
  const qcPerimPos& place = isOnPiece ? position : moved;
  return curve.placeOn(place.index(), place.distance());
}

}  // namespace

struct qcMappedShape::Found {
  qc_shapes::Lazy<Held> image;
  qc_shapes::Lazy<Xform> overall;
  qc_shapes::Lazy<MappedCurve> curve;  // of an overall transform that is not linear
};

// With an identity of its own: one that all shared would be stored once, and be gone for those that are loaded after
// it.
qcMappedShape::qcMappedShape() : qcMappedShape(Held(), Xform(new qc2XformLinear)) {}

qcMappedShape::qcMappedShape(const Held& shape, const Xform& xform) : shape_(shape), xform_(xform), found_(new Found) {}

qcMappedShape::qcMappedShape(const Held& shape, const qc2XformBase& xform, bool collapse) : found_(new Found) {
  if (shape.isNull()) throw qcBadPointer();
  const qcMappedShape* inner = collapse ? asMapped(shape) : nullptr;
  shape_ = inner ? inner->underlyingShape() : shape;
  xform_ = inner ? Xform(xform.composeBase(*inner->overallMapXform())) : Xform(xform.clone());
}

qcMappedShape::qcMappedShape(const qcMappedShape& other) : qcMappedShape(other.shape_, other.xform_) {}

// The other may be below this one, and go with it.
qcMappedShape& qcMappedShape::operator=(const qcMappedShape& other) {
  if (this == &other) return *this;
  if (qc_shapes::holds(other, *this)) throw qcShapesError::BadGeom();
  const qcMappedShape kept(other);
  mutating();
  shape_ = kept.shape_;
  xform_ = kept.xform_;
  dropCaches();
  return *this;
}

qcMappedShape::~qcMappedShape() { qcMappedShape::preLoad(); }

// One level at a time: shapes mapped again and again may be many.
void qcMappedShape::preLoad() {
  Held next;
  std::swap(next, shape_);
  while (!next.isNull() && next->refc() == 1) {
    auto* mapped = const_cast<qcMappedShape*>(asMapped(next));
    if (!mapped) break;
    Held inner;
    std::swap(inner, mapped->shape_);
    next = inner;
  }
  dropCaches();
}

qcPersistent* qcMappedShape::make() { return new qcMappedShape; }

void qcMappedShape::shape(const Held& shape) {
  if (shape.isNull()) throw qcBadPointer();
  if (qc_shapes::holds(*shape, *this)) throw qcShapesError::BadGeom();
  const Held kept = shape;  // it may be the one of ours, or held by it
  mutating();
  shape_ = kept;
  dropCaches();
}

void qcMappedShape::mapXform(const qc2XformBase& xform) {
  const Xform copy = xform.clone();
  mutating();
  xform_ = copy;
  dropCaches();
}

void qcMappedShape::dropCaches() {
  found_->image.reset();
  found_->overall.reset();
  found_->curve.reset();
}

const Held& qcMappedShape::underlyingShape() const {
  const Held* shape = &shape_;
  while (const qcMappedShape* mapped = asMapped(*shape)) shape = &mapped->shape_;
  if (shape->isNull()) throw qcBadPointer();
  return *shape;
}

const Xform& qcMappedShape::overallMapXform() const {
  return found_->overall.get([this] {
    std::vector<const qcMappedShape*> all{this};
    while (const qcMappedShape* inner = asMapped(all.back()->shape_)) all.push_back(inner);
    if (all.back()->shape_.isNull()) throw qcBadPointer();
    Xform overall = all.back()->xform_;
    for (std::size_t i = all.size() - 1; i-- > 0;) overall = Xform(all[i]->xform_->composeBase(*overall));
    return overall;
  });
}

qc2XformLinear qcMappedShape::overallMapXformLinear(const qcVector<2>& at) const {
  return overallMapXform()->linearXform(at);
}

qc2XformLinear qcMappedShape::overallMapXformLinear() const {
  return expansion(*overallMapXform(), *underlyingShape());
}

Held qcMappedShape::explicitShape(const qcVector<2>& at) const {
  return imageOf(*underlyingShape(), overallMapXformLinear(at));
}

Held qcMappedShape::explicitShape() const {
  return found_->image.get([this] { return imageOf(*underlyingShape(), overallMapXformLinear()); });
}

// The image itself, when the explicit shape is that; else null.
const qcShape* qcMappedShape::exact() const {
  return overallMapXform()->isLinear() ? explicitShape().rep() : nullptr;  // which the cache holds
}

const MappedCurve& qcMappedShape::curve() const {
  return found_->curve.get([this] { return MappedCurve(underlyingShape(), overallMapXform()); });
}

qcPtrHandle<qcShape> qcMappedShape::clone() const {
  std::vector<const qcMappedShape*> all{this};
  while (const qcMappedShape* inner = asMapped(all.back()->shape_)) all.push_back(inner);
  Held copy = all.back()->shape_.isNull() ? Held() : Held(all.back()->shape_->clone());
  qcPtrHandle<qcMappedShape> result;
  for (std::size_t i = all.size(); i-- > 0;) {
    result = new qcMappedShape(copy, Xform(all[i]->xform_->clone()));
    copy = result;
  }
  return result;
}

qcRect qcMappedShape::boundingBox() const {
  if (const qcShape* shape = exact()) return shape->boundingBox();
  return curve().boundingBox();
}

qcVector<2> qcMappedShape::nearestPoint(const qcVector<2>& p) const {
  if (const qcShape* shape = exact()) return shape->nearestPoint(p);
  return curve().image(curve().nearest(p), nullptr);
}

double qcMappedShape::perimeter() const {
  const Held& shape = underlyingShape();
  if (shape->isEmpty()) return shape->perimeter();
  const qc2XformLinear linear = overallMapXformLinear();
  if (!qfIsAnglePreserving(linear, kAspectTolerance, kShearTolerance)) return shape->mapShape(linear)->perimeter();
  return shape->perimeter() * linear.scale();
}

qcPerimPos qcMappedShape::nearestPerimPos(const qcShapeInfo& info, const qcVector<2>& p) const {
  if (const qcShape* shape = exact()) return shape->nearestPerimPos(info, p);
  return curve().positionOf(curve().normal(curve().nearest(p)));
}

qcVector<2> qcMappedShape::startPoint() const { return overallMapXform()->mapPoint(underlyingShape()->startPoint()); }

qcVector<2> qcMappedShape::endPoint() const { return overallMapXform()->mapPoint(underlyingShape()->endPoint()); }

qcRadian qcMappedShape::startAngle() const { return angleOf(underlyingShape(), overallMapXform(), true); }

qcRadian qcMappedShape::endAngle() const { return angleOf(underlyingShape(), overallMapXform(), false); }

qcRadian qcMappedShape::tangentRotation() const {
  if (const qcShape* shape = exact()) return shape->tangentRotation();
  if (!isOpenContour()) throw qcShapesError::NotOpenContour();
  return qcRadian(curve().tangentRotation());
}

qcRadian qcMappedShape::windingAngle(const qcVector<2>& p) const {
  if (const qcShape* shape = exact()) return shape->windingAngle(p);
  if (!isOpenContour()) throw qcShapesError::NotOpenContour();
  bool touches = false;
  return qcRadian(curve().windingAngle(p, touches));
}

bool qcMappedShape::isRightHanded() const {
  return underlyingShape()->isRightHanded() != mirrors(overallMapXformLinear());
}

bool qcMappedShape::within(const qcVector<2>& p) const {
  if (const qcShape* shape = exact()) return shape->within(p);
  if (!isRegion()) throw qcShapesError::NotRegion();
  return curve().within(p, dynamic_cast<const qcRegionTree*>(underlyingShape().rep()) != nullptr);
}

qcPtrHandle<qcShape> qcMappedShape::mapShape(const qcXform<2>& xform) const {
  if (shape_.isNull()) throw qcBadPointer();
  return new qcMappedShape(shape_, Xform(qc2XformLinear(xform).composeBase(*xform_)));
}

qcPtrHandle<qcShape> qcMappedShape::reverse() const {
  return new qcMappedShape(Held(underlyingShape()->reverse()), overallMapXform());
}

qcPtrHandle<qcShape> qcMappedShape::decompose() const {
  if (const qcShape* shape = exact()) return shape->decompose();
  if (isEmpty()) return new qcPolyline;
  // Boundaries that touch may cross by as much as they deviate.
  const std::vector<qcPtrHandle<qcShape>> outlines = curve().outlines(kDecomposed * curve().extent());
  std::vector<Held> shapes;
  std::size_t done = 0;
  const auto takeUntil = [&](std::size_t end) {
    for (; done < end; ++done) shapes.emplace_back(outlines[done]);
  };
  for (const auto& [seen, first] : curve().regions()) {
    takeUntil(first);
    const auto& region = static_cast<const qcRegionTree&>(*seen.shape);
    std::unordered_map<const qcShape*, qcPtrHandle<qcShape>> outlineOf;
    for (const qcShape* boundary : region.elements_()) outlineOf[boundary] = outlines[done++];
    shapes.emplace_back(region.around_([&](const qcShape& boundary) { return outlineOf.at(&boundary); },
                                       mirrors(expansion(*seen.xform, region))));
  }
  takeUntil(outlines.size());
  if (shapes.size() > 1) return new qcGeneralShapeTree(shapes, false);
  return const_cast<qcShape*>(shapes.front().rep());  // made here
}

qcPtrHandle<qcShape> qcMappedShape::subShape(const qcShapeInfo& info,
                                             const std::pair<qcPerimPos, double>& piece) const {
  if (const qcShape* shape = exact()) return shape->subShape(info, piece);
  if (!(piece.second >= 0)) throw qcShapesError::BadParams();
  const MappedCurve &mapped = curve(), &source = mapped.source();
  // Only a single closed contour goes round again from its very end; others lead on to the next contour, if any.
  const MappedCurve::Place at = placeOf(mapped, info, piece.first), next = mapped.normal(at);
  const bool goesRound = info.isClosed() && !isMultipleContours_();
  const MappedCurve::Place place = goesRound || next.piece > at.piece ? next : at;
  const double from = mapped.lengthTo(place), sourceFrom = source.lengthTo(place);
  const double total = mapped.length(), sourceTotal = source.length();
  const auto sourceAt = [&](double length) { return source.lengthTo(mapped.placeAt(length)); };
  double length = sourceTotal;
  if (from + piece.second < total) {
    length = sourceAt(from + piece.second) - sourceFrom;
  } else if (info.isClosed() && piece.second < total) {
    length = sourceTotal - sourceFrom + sourceAt(from + piece.second - total);
  }
  const qcShape& shape = *underlyingShape();
  const qcShapeInfo whole(shape);
  qcPerimPos start = source.positionOf(place);
  start.distance(std::min(start.distance(), whole.pieceLength(start.index())));
  return new qcMappedShape(Held(shape.subShape(whole, {start, std::max(length, 0.0)})), overallMapXform());
}

qcPtrHandle<qcShape> qcMappedShape::clip_(const qcPolyline& polygon, qcClipInfo& info) const {
  const qcShape* shape = exact();
  const qcPtrHandle<qcShape> clipped = shape ? shape->clip_(polygon, info) : decompose()->clip_(polygon, info);
  return info.result() == ClipResult::inside ? clone() : clipped;
}

void qcMappedShape::sample(const qcSampleParams& params, qcSampleResult& result) const {
  if (const qcShape* shape = exact()) return shape->sample(params, result);
  qc_shapes::SampleWriter writer(params, result);
  if (params.uniformMode()) {
    // Whether there is a uniform mode, and how it closes the chain, is for the underlying shape to say.
    qcSampleParams one = params;
    one.maxPoints(1);
    one.enclosingInfo_(nullptr);
    qcSampleResult points;
    underlyingShape()->sample(one, points);
    if (points.numChains() > 0) curve().sampleUniformly(writer, points.closedFlags().front());
  } else if (!isEmpty()) {
    curve().sample(writer);
  }
  writer.commit();
}

bool qcMappedShape::equal_(const qcShape& that) const {
  const qcShape *a = this, *b = &that;
  while (a != b) {
    if (!a || !b || typeid(*a) != typeid(*b)) return false;
    const auto* ours = dynamic_cast<const qcMappedShape*>(a);
    if (!ours) return a->equal_(*b);
    const auto* theirs = static_cast<const qcMappedShape*>(b);
    if (!areEqual(*ours->xform_, *theirs->xform_)) return false;
    a = ours->shape_.rep();
    b = theirs->shape_.rep();
  }
  return true;
}

void qcMappedShape::perimPointAndTangent_(const qcShapeInfo& info, const qcPerimPos& position, qcVector<2>& point,
                                          qcRadian* tangent) const {
  if (const qcShape* shape = exact()) return shape->perimPointAndTangent_(info, position, point, tangent);
  point = curve().image(curve().normal(placeOf(curve(), info, position)), tangent);
}

void qcMappedShape::pieceLengths_(std::vector<double>& lengths) const {
  if (const qcShape* shape = exact()) return shape->pieceLengths_(lengths);
  const std::vector<double> all = curve().lengths();
  lengths.insert(lengths.end(), all.begin(), all.end());
}

void qcMappedShape::heldShapes_(std::vector<const qcShape*>& held) const {
  if (!shape_.isNull()) held.push_back(shape_.rep());
}

void qcMappedShape::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, kSource, kLine);
  qcShape::dispatchSerialize(archive);
  if (archive.isStoring()) {
    archive || shape_ || xform_;
    archive.checkDepth();
    return;
  }
  Held shape;
  Xform xform;
  archive || shape || xform;
  archive.checkDepth();
  const bool isOwn = !shape.isNull() && (archive.isStillLoading(shape.rep()) || qc_shapes::holds(*shape, *this));
  if (xform.isNull() || isOwn) throw qcArchive::BadContent(kSource, kLine);
  shape_ = shape;
  xform_ = xform;
  dropCaches();
}

bool qfIsAnglePreserving(const qc2XformLinear& xform, double aspectTol, double shearTol) {
  if (xform.isSingular()) return false;
  const double aspect = xform.aspect(), shear = xform.shear().plain();
  if (!(std::fabs(aspect - 1) <= aspectTol || std::fabs(aspect + 1) <= aspectTol)) return false;
  return std::fabs(shear) <= shearTol || std::fabs(shear - std::numbers::pi) <= shearTol;
}
