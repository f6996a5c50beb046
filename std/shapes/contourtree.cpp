#include "vnxstd/shapes/contourtree.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <limits>
#include <numbers>
#include <typeinfo>

#include "std/shapes/rounding.h"
#include "std/shapes/samplewriter.h"
#include "std/shapes/segment.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/shapes/ellipsearc.h"
#include "vnxstd/shapes/lineseg.h"
#include "vnxstd/shapes/mappedshape.h"
#include "vnxstd/shapes/polyline.h"
#include "vnxstd/shapes/shapeinfo.h"

namespace {

using Elements = std::vector<const qcShape*>;

constexpr double kRounding = 1e-12;  // of the direction in which a contour turns straight back

const qc_Instantiator registered(typeid(qcContourTree), &qcContourTree::make);

double sweptTwice(const qcShape& shape, const qcVector<2>& origin);

// Of elements that follow each other from the origin on, and of the lines along which the contour jumps between them.
double sweptTwice(const Elements& elements, const qcVector<2>& origin) {
  double sum = 0;
  qcVector<2> end = origin;
  for (const qcShape* element : elements) {
    sum += (end - origin).cross(element->startPoint() - origin) + sweptTwice(*element, origin);
    end = element->endPoint();
  }
  return sum;
}

// The integral of x * dy - y * dx from the start of an open contour to its end, in coordinates from an origin: twice
// the area that it sweeps, seen from there. What is mapped may stand still or be squeezed into next to nothing, which
// its decomposition takes care of.
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
  if (!shape.isDecomposed() || dynamic_cast<const qcMappedShape*>(&shape)) {
    const qcPtrHandle<qcShape> decomposed = shape.decompose();
    const auto* tree = dynamic_cast<const qcShapeTree*>(decomposed.rep());
    return tree ? sweptTwice(tree->elements_(), origin) : sweptTwice(*decomposed, origin);
  }
  // A primitive that is not known here, by chords.
  qcShape::qcSampleResult samples;
  shape.sample(qcShape::qcSampleParams(1e-6 * qcShapeInfo(shape).perimeter(), 0, INT32_MAX), samples);
  return sweptTwice(qcPolyline(samples.positions(), false), origin);
}

// What an open contour that is no primitive is made of, as it is mapped; nothing for other shapes.
std::vector<qcMappedShape::Held> piecesOf(const qcShape& shape) {
  const auto* mapped = dynamic_cast<const qcMappedShape*>(&shape);
  const qcShape& whole = mapped ? *mapped->underlyingShape() : shape;
  std::vector<qcMappedShape::Held> pieces;
  if (const auto* line = dynamic_cast<const qcPolyline*>(&whole)) {
    for (long i = 1; i < line->numVertices(); ++i) {
      pieces.emplace_back(new qcLineSeg(line->vertex(i - 1), line->vertex(i)));
    }
  } else if (const auto* tree = dynamic_cast<const qcContourTree*>(&whole)) {
    for (const qcShape* element : tree->elements_()) pieces.emplace_back(element);
  }
  if (!mapped) return pieces;
  for (qcMappedShape::Held& piece : pieces) piece = new qcMappedShape(piece, *mapped->overallMapXform(), false);
  return pieces;
}

// Most pieces are none, which is to be known at once.
const qcMappedShape* asMapped(const qcShape& shape) {
  if (typeid(shape) == typeid(qcLineSeg) || typeid(shape) == typeid(qcEllipseArc2)) return nullptr;
  return dynamic_cast<const qcMappedShape*>(&shape);
}

// The image under a linear transform stands for itself.
const qcShape* unmapped(const qcShape* element, std::deque<qcMappedShape::Held>& held) {
  const qcMappedShape* mapped = asMapped(*element);
  if (!mapped || !mapped->overallMapXform()->isLinear()) return element;
  return held.emplace_back(mapped->explicitShape()).rep();
}

// An element as it winds around p: an end that rounding keeps away from p is taken to be there.
struct Link {
  const qcShape* shape;
  qcVector<2> start, end;
  qcVector<2> seen;  // the point in place of p that the shape itself is to be asked about
  bool isPoint;      // at p
};

// What starts or ends at p, and passes it elsewhere, shows it one side as a whole, and so is taken as its pieces.
// Shapes that are made for this are held apart.
std::vector<Link> linksAround(const qcVector<2>& p, Elements waiting, std::deque<qcMappedShape::Held>& held) {
  double rounding = 0;
  for (const qcShape*& element : waiting) {
    rounding = std::max(rounding, qc_shapes::roundingOfEnds(*element));
    element = unmapped(element, held);
  }
  std::reverse(waiting.begin(), waiting.end());
  std::vector<Link> links;
  while (!waiting.empty()) {
    const qcShape* shape = waiting.back();
    waiting.pop_back();
    const qcVector<2> start = shape->startPoint(), end = shape->endPoint();
    const double chord = asMapped(*shape) ? qc_shapes::segmentLength(start, end) : 0;
    const double near = std::max(rounding, qcMappedShape::kOnBoundary * chord);
    const bool atStart = qc_shapes::segmentLength(start, p) <= near, atEnd = qc_shapes::segmentLength(end, p) <= near;
    const bool isPoint = atStart && atEnd && qcShapeInfo(*shape).perimeter() <= 4 * near;
    const auto pieces = (atStart || atEnd) && !isPoint ? piecesOf(*shape) : std::vector<qcMappedShape::Held>();
    if (pieces.empty()) {
      links.push_back({shape, atStart ? p : start, atEnd ? p : end, atStart ? start : atEnd ? end : p, isPoint});
    }
    for (auto piece = pieces.rbegin(); piece != pieces.rend(); ++piece) {
      waiting.push_back(unmapped(held.emplace_back(*piece).rep(), held));
    }
  }
  return links;
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

bool qcContourTree::isReversible() const {
  const Elements elements = elements_();
  return std::all_of(elements.begin(), elements.end(), [](const qcShape* element) { return element->isReversible(); });
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

// The angle swept around p. Each element, and each line of a jump, takes a point on it as seen from the left of its own
// direction; where two meet at the point, what is between both views is the turn of the contour there. Single points
// are no more than places to jump to and from.
double qcContourTree::swept(const qcVector<2>& p) const {
  std::deque<qcMappedShape::Held> held;
  const std::vector<Link> links = linksAround(p, elements_(), held);
  if (links.empty()) return 0;
  double sum = 0;
  struct Direction {
    bool isKnown = false;
    qcRadian angle;
  };
  Direction arrived, firstLeft;  // at p: last, and at the very beginning
  bool isBeginning = true;
  // There is none where the image of a mapped piece stands still at its end.
  const auto direction = [](const qcShape& element, bool atStart) -> Direction {
    if (!element.hasTangent()) return {};
    try {
      return {true, atStart ? element.startAngle() : element.endAngle()};
    } catch (const qcShapesError::NoTangent&) {
      return {};
    }
  };
  const auto leave = [&](const Direction& along) {
    if (isBeginning) firstLeft = along;
    if (!arrived.isKnown || !along.isKnown) return;
    const double turn = (along.angle - arrived.angle).signedNorm().plain();
    sum += turn < std::numbers::pi - kRounding ? turn : turn - qcRadian::turn;  // straight back is to the right
  };
  qcVector<2> from = closed_ ? links.back().end : links.front().start;
  for (const auto& [shape, start, end, seen, isPoint] : links) {
    if (from != start) {
      const Direction along{true, qc_shapes::segmentAngle(from, start)};
      if (from == p) leave(along);
      sum += qc_shapes::angleSubtended(from, start, p, (start - from).perpendicular());
      arrived = start == p ? along : Direction{};
      isBeginning = false;
    }
    from = end;
    if (isPoint) continue;
    sum += shape->windingAngle(seen).plain();
    if (start == end && !shape->hasTangent()) continue;
    if (start == p) leave(direction(*shape, true));
    arrived = end == p ? direction(*shape, false) : Direction{};
    isBeginning = false;
  }
  if (closed_) leave(firstLeft);
  return sum;
}

double qcContourTree::area() const {
  const Elements elements = elements_();
  if (!closed_ || elements.empty()) throw qcShapesError::NotRegion();
  return sweptTwice(elements, elements.front()->startPoint()) / 2;
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
