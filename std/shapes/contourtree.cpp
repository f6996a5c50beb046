#include "vnxstd/shapes/contourtree.h"

#include <cmath>
#include <numbers>
#include <typeinfo>

#include "std/shapes/samplewriter.h"
#include "std/shapes/segment.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/shapes/ellipsearc.h"
#include "vnxstd/shapes/lineseg.h"
#include "vnxstd/shapes/polyline.h"
#include "vnxstd/shapes/shapeinfo.h"

namespace {

using Elements = std::vector<const qcShape*>;

constexpr double kRounding = 1e-12;  // of the direction in which a contour turns straight back

const qc_Instantiator registered(typeid(qcContourTree), &qcContourTree::make);

// The integral of x * dy - y * dx from the start of an open contour to its end, in coordinates from an origin: twice
// the area that it sweeps, seen from there.
double sweptTwice(const qcShape& shape, const qcVector<2>& origin) {
  if (const auto* polyline = dynamic_cast<const qcPolyline*>(&shape)) {
    double sum = 0;
    for (long i = 1; i < polyline->numVertices(); ++i) {
      sum += (polyline->vertex(i - 1) - origin).cross(polyline->vertex(i) - origin);
    }
    return sum;
  }
  const qcVector<2> start = shape.startPoint(), end = shape.endPoint();
  if (const auto* arc = dynamic_cast<const qcEllipseArc2*>(&shape)) {
    const qcEllipse2& ellipse = arc->ellipse();
    const double sector = ellipse.radii().x() * ellipse.radii().y() * arc->phiSpan().plain();
    return (ellipse.isRightHanded() ? sector : -sector) + (ellipse.center() - origin).cross(end - start);
  }
  if (typeid(shape) == typeid(qcLineSeg)) return (start - origin).cross(end - origin);
  if (!shape.isDecomposed()) {
    const qcPtrHandle<qcShape> decomposed = shape.decompose();
    const auto* tree = dynamic_cast<const qcShapeTree*>(decomposed.rep());
    if (!tree) return sweptTwice(*decomposed, origin);
    double sum = 0;
    for (const qcShape* element : tree->elements_()) sum += sweptTwice(*element, origin);
    return sum;
  }
  // A primitive that is not known here, by chords.
  qcShape::qcSampleResult samples;
  shape.sample(qcShape::qcSampleParams(1e-6 * shape.perimeter(), 0, INT32_MAX), samples);
  return sweptTwice(qcPolyline(samples.positions(), false), origin);
}

}  // namespace

qcContourTree::qcContourTree(const std::vector<Child>& children, bool closed, bool copyChildren) : closed_(closed) {
  addChildren(children, copyChildren);
}

// The other may be below this one, and go with it.
qcContourTree& qcContourTree::operator=(const qcContourTree& other) {
  const bool closed = other.closed_;
  qcShapeTree::operator=(other);
  closed_ = closed;
  return *this;
}

qcPersistent* qcContourTree::make() { return new qcContourTree; }

void qcContourTree::isClosed(bool closed) {
  mutating();
  closed_ = closed;
}

qcPtrHandle<qcShapeTree> qcContourTree::flatten(bool copyChildren) const {
  const qcPtrHandle<qcContourTree> flat(new qcContourTree(closed_));
  const Elements elements = elements_();
  flat->addChildren({elements.begin(), elements.end()}, copyChildren);
  return flat;
}

// The pieces of an open contour.
Elements qcContourTree::openElements() const {
  Elements elements = elements_();
  if (closed_ || elements.empty()) throw qcShapesError::NotOpenContour();
  return elements;
}

qcVector<2> qcContourTree::startPoint() const { return openElements().front()->startPoint(); }

qcVector<2> qcContourTree::endPoint() const { return openElements().back()->endPoint(); }

qcRadian qcContourTree::startAngle() const {
  for (const qcShape* element : openElements()) {
    if (element->hasTangent()) return element->startAngle();
  }
  throw qcShapesError::NoTangent();
}

qcRadian qcContourTree::endAngle() const {
  const Elements elements = openElements();
  for (auto element = elements.rbegin(); element != elements.rend(); ++element) {
    if ((*element)->hasTangent()) return (*element)->endAngle();
  }
  throw qcShapesError::NoTangent();
}

qcRadian qcContourTree::tangentRotation() const {
  qcRadian sum;
  const qcShape* previous = nullptr;
  for (const qcShape* element : openElements()) {
    if (!element->hasTangent()) continue;
    if (previous) sum += (element->startAngle() - previous->endAngle()).signedNorm();
    sum += element->tangentRotation();
    previous = element;
  }
  return sum;
}

qcRadian qcContourTree::windingAngle(const qcVector<2>& p) const {
  openElements();
  return qcRadian(swept(p));
}

// The angle swept around p. Each element takes a point on it as seen from the left of its own direction; where two meet
// at the point, what is between both views is the turn of the contour there.
double qcContourTree::swept(const qcVector<2>& p) const {
  const Elements elements = elements_();
  double sum = 0;
  const auto join = [&](const qcShape& before, const qcShape& after) {
    const qcVector<2> from = before.endPoint(), to = after.startPoint();
    if (from != to) {
      sum += qc_shapes::angleSubtended(from, to, p, (to - from).perpendicular());
    } else if (from == p && before.hasTangent() && after.hasTangent()) {
      const double turn = (after.startAngle() - before.endAngle()).signedNorm().plain();
      sum += turn < std::numbers::pi - kRounding ? turn : turn - qcRadian::turn;  // straight back is to the right
    }
  };
  for (std::size_t i = 0; i < elements.size(); ++i) {
    if (i > 0) join(*elements[i - 1], *elements[i]);
    sum += elements[i]->windingAngle(p).plain();
  }
  if (closed_ && !elements.empty()) join(*elements.back(), *elements.front());
  return sum;
}

double qcContourTree::area() const {
  const Elements elements = elements_();
  if (!closed_ || elements.empty()) throw qcShapesError::NotRegion();
  const qcVector<2> origin = elements.front()->startPoint();
  double sum = 0;
  qcVector<2> end = origin;
  for (const qcShape* element : elements) {
    sum += (end - origin).cross(element->startPoint() - origin) + sweptTwice(*element, origin);
    end = element->endPoint();
  }
  return sum / 2;
}

bool qcContourTree::isRightHanded() const { return area() >= 0; }

bool qcContourTree::within(const qcVector<2>& p) const {
  if (!isRegion()) throw qcShapesError::NotRegion();
  return std::fabs(swept(p)) > std::numbers::pi;
}

void qcContourTree::sample(const qcSampleParams& params, qcSampleResult& result) const {
  if (params.uniformMode()) return qfUniformSampleContour(*this, params, result);
  qc_shapes::SampleWriter writer(params, result);
  sampleElements_(params, result, [](std::size_t, std::size_t) {});
  qfMergeSubchains(params, writer.firstChain(), closed_, result);
  writer.commit();
}

qcPtrHandle<qcShapeTree> qcContourTree::bareNode_(const Rebuild_&) const { return new qcContourTree(closed_); }

bool qcContourTree::isNested_(const qcShape& child) const {
  return dynamic_cast<const qcContourTree*>(&child) != nullptr;
}

bool qcContourTree::equalNode_(const qcShapeTree& that) const {
  return closed_ == static_cast<const qcContourTree&>(that).closed_;
}

void qcContourTree::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shaptree", 2713);
  bool closed = closed_;
  try {
    qcShapeTree::dispatchSerialize(archive);
    archive || closed;
    if (archive.isStoring()) return;
    for (const Child& child : children()) {
      if (!withoutMaps_(*child) || !takesChild_(*child)) throw qcArchive::BadContent("std/shapes/shaptree", 2713);
    }
  } catch (...) {
    if (archive.isLoading()) preLoad();
    throw;
  }
  closed_ = closed;
}

void qfUniformSampleContour(const qcContourTree& contour, const qcShape::qcSampleParams& params,
                            qcShape::qcSampleResult& result) {
  qc_shapes::SampleWriter writer(params, result);
  const Elements elements = contour.elements_();
  const bool wanted = !elements.empty() && (!params.computeTangents() || contour.hasTangent());
  std::vector<qcShapeInfo> infos;
  double length = 0;  // which perimeter() may only estimate
  for (const qcShape* element : elements) length += infos.emplace_back(*element).perimeter();
  const double step = length / static_cast<double>(params.maxPoints());
  if (!params.enclosingInfo_()) writer.numberOwnPieces();
  if (wanted) writer.openChain(contour.isClosed(), params.maxPoints());
  double start = 0;
  long i = 0;
  for (std::size_t k = 0; k < elements.size(); ++k) {
    const qcShapeInfo& own = infos[k];
    const bool last = k + 1 == elements.size();
    const std::int32_t piece = writer.takePiece();
    for (long more = own.numPieces() - 1; more > 0; --more) writer.takePiece();
    const double end = start + own.perimeter();
    qcVector<2> point;
    qcRadian tangent;
    for (; wanted && i < params.maxPoints(); ++i) {
      const double distance = (static_cast<double>(i) + 0.5) * step;
      if (!last && distance >= end) break;
      const qcPerimPos place = own.perimPos(std::min(distance - start, own.perimeter()));
      elements[k]->perimPointAndTangent_(own, place, point, params.computeTangents() ? &tangent : nullptr);
      writer.add(point, tangent, {piece + place.index(), place.distance()});
    }
    start = end;
  }
  writer.commit();
}
