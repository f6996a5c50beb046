#include "std/shapes/mappedcurve.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "std/shapes/segment.h"
#include "vnxstd/math/xflinear.h"
#include "vnxstd/math/xfpersp.h"
#include "vnxstd/shapes/contourtree.h"
#include "vnxstd/shapes/generaltree.h"
#include "vnxstd/shapes/mappedshape.h"
#include "vnxstd/shapes/regiontree.h"
#include "zrtnlxf/points.h"

namespace qc_shapes {

namespace {

using Vector = qcVector<2>;

constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
constexpr double kCoarse = 1e-3;  // how far the images of the spans that are kept may deviate, as part of the extent
constexpr double kShortest = 0x1p-48;  // what is not cut further, as part of the piece

double magnitude(const Vector& v) { return std::fabs(v.x()) + std::fabs(v.y()); }

Vector direction(const qcRadian& angle) { return {1, angle}; }

// How far a curve of a length may deviate from the chord between its ends, at equal fractions of both lengths. Each of
// its points lies within an ellipse whose foci are the ends. Where rounding errors drown the difference of both
// lengths, the turn is so small that a convex curve deviates at most twice as far as at its middle.
double sagitta(const Vector& from, const Vector& to, const Vector& middle, double length) {
  const double chord = segmentLength(from, to), excess = (length - chord) * (length + chord);
  const double rounding = 4 * kEpsilon * (magnitude(from) + magnitude(to));
  if (excess > 16 * length * rounding) return std::sqrt(excess) / 2;
  return 2 * std::max(0.0, segmentLength(middle, 0.5 * (from + to)) - rounding);
}

// What a shape comes down to that may be mapped itself. The image under a linear transform stands for itself: its
// positions start where they do on that shape.
MappedCurve::Seen unmapped(MappedCurve::Seen seen) {
  while (const auto* mapped = dynamic_cast<const qcMappedShape*>(seen.shape.rep())) {
    const bool isLinear = mapped->overallMapXform()->isLinear();
    if (!isLinear) seen.xform = MappedCurve::Xform(seen.xform->composeBase(*mapped->overallMapXform()));
    const MappedCurve::Held shape = isLinear ? mapped->explicitShape() : mapped->underlyingShape();
    seen.shape = shape;
  }
  return seen;
}

// So that the first element comes off the end first.
void pushElements(const qcShapeTree& tree, const MappedCurve::Xform& xform, std::vector<MappedCurve::Seen>& waiting) {
  const std::vector<const qcShape*> elements = tree.elements_();
  for (auto element = elements.rbegin(); element != elements.rend(); ++element) waiting.push_back({*element, xform});
}

}  // namespace

MappedCurve::MappedCurve(const Held& shape, const Xform& xform) : MappedCurve(shape, xform, nullptr) {}

MappedCurve::MappedCurve(const Held& shape, const Xform& xform, const MappedCurve* mapped)
    : given_(shape), mapped_(mapped) {
  addAll({shape, xform}, nullptr);
  for (Chain& chain : chains_) {
    const Piece& piece = pieces_[chain.first];
    chain.isRound = chain.closed && chain.last - chain.first == 1 && piece.length > 0 && piece.start == piece.end &&
                    piece.startTangent != Vector() && (piece.endTangent - piece.startTangent).len() < 1e-9;
  }
  cut();
}

// All contours. A shape that is no tree may be several of them, too, as its decomposition then tells.
void MappedCurve::addAll(const Seen& all, Whole* whole) {
  std::vector<Seen> waiting{all};
  while (!waiting.empty()) {
    const Seen seen = unmapped(waiting.back());
    waiting.pop_back();
    if (const auto* general = dynamic_cast<const qcGeneralShapeTree*>(seen.shape.rep())) {
      pushElements(*general, seen.xform, waiting);
    } else if (const auto* region = dynamic_cast<const qcRegionTree*>(seen.shape.rep())) {
      regions_.push_back({seen, chains_.size()});
      addRegion(*region, seen.xform, whole);
    } else if (seen.shape->isEmpty()) {
      continue;
    } else if (!whole && !seen.shape->isDecomposed() && seen.shape->isMultipleContours_()) {
      Whole own{qcShapeInfo(*seen.shape)};
      addAll({Held(seen.shape->decompose()), seen.xform}, &own);
      numOwners_ += own.info.numPieces();
    } else {
      addContour(seen, false, -1, whole);
    }
  }
}

// In the order of the tree's elements: each node before those below it.
void MappedCurve::addRegion(const qcRegionTree& region, const Xform& xform, Whole* whole) {
  std::vector<std::pair<const qcRegionTree*, std::ptrdiff_t>> waiting{{&region, -1}};
  while (!waiting.empty()) {
    const auto [node, parent] = waiting.back();
    waiting.pop_back();
    if (node->isEmpty()) continue;
    const auto chain = static_cast<std::ptrdiff_t>(chains_.size());
    addContour({&node->boundary(), xform}, node->boundaryRightHanded() == node->isHole(), parent, whole);
    for (long i = node->numChildren(); i > 0; --i) waiting.emplace_back(&node->child(i - 1), chain);
  }
}

void MappedCurve::addContour(const Seen& contour, bool isTurned, std::ptrdiff_t parent, Whole* whole) {
  const std::size_t first = pieces_.size();
  std::vector<Seen> waiting{contour};
  while (!waiting.empty()) {
    const Seen seen = unmapped(waiting.back());
    waiting.pop_back();
    if (const auto* tree = dynamic_cast<const qcContourTree*>(seen.shape.rep())) {
      pushElements(*tree, seen.xform, waiting);
    } else {
      addPrimitives(seen, whole);
    }
  }
  if (pieces_.size() == first) throw qcShapesError::EmptyShape();
  // A piece without length is a corner where it meets another one; what the contour jumps to and from is a point of it.
  std::size_t kept = first;
  const auto meet = [](const Vector& end, const Vector& start) {
    return segmentLength(end, start) <= 16 * kEpsilon * (magnitude(end) + magnitude(start));
  };
  const auto isCorner = [&](std::size_t i) {
    if (mapped_) return bool(mapped_->isCorner_[isCorner_.size()]);  // what rounding leaves of a jump may differ
    const Vector here = endAt(pieces_[i], 0).image;
    const bool isEnd = kept > first && meet(endAt(pieces_[kept - 1], pieces_[kept - 1].length).image, here);
    if (isEnd) ends_.push_back(pieces_[i].owner);
    return isEnd || (i + 1 < pieces_.size() && meet(here, endAt(pieces_[i + 1], 0).image));
  };
  for (std::size_t i = first; i < pieces_.size(); ++i) {
    if (!(pieces_[i].length > 0)) isCorner_.push_back(isCorner(i));
    if (pieces_[i].length > 0 || !isCorner_.back()) pieces_[kept++] = pieces_[i];
  }
  pieces_.resize(kept);
  // A region whose decomposition is an open piece, like a circle and its arc, is closed all the same.
  chains_.push_back({first, pieces_.size(), contour.shape->isRegion(), isTurned, parent, false});
}

// Of what a shape that is no tree decomposes into, each piece is part of one of the shape's own, as they follow each
// other; the shape may be part of a whole that has been decomposed already.
void MappedCurve::addPrimitives(const Seen& seen, Whole* whole) {
  const bool isDecomposed = seen.shape->isDecomposed();
  if (!whole && isDecomposed) {
    addElement(seen, [](long piece, double) { return piece; });
    numOwners_ += elements_.back().info.numPieces();
  } else if (!whole) {
    Whole own{qcShapeInfo(*seen.shape)};
    addPrimitives(seen, &own);
    numOwners_ += own.info.numPieces();
  } else {
    const Held parts = isDecomposed ? seen.shape : Held(seen.shape->decompose());
    const auto* tree = dynamic_cast<const qcShapeTree*>(parts.rep());
    for (const qcShape* part : tree ? tree->elements_() : std::vector<const qcShape*>{parts.rep()}) {
      const auto owner = [&](long, double middle) { return whole->info.perimPos(whole->start + middle).index(); };
      whole->start += addElement({part, seen.xform}, owner);
    }
  }
}

// Appends the pieces of a primitive, and gives its length; `ownerOf` tells which piece of the shape that was given one
// is part of, from its number and the length before its middle. Samples without tolerance and spacing are little more
// than the ends of the pieces.
template <class OwnerOf>
double MappedCurve::addElement(const Seen& seen, const OwnerOf& ownerOf) {
  const qcShape& shape = *seen.shape;
  elements_.push_back({seen, qcShapeInfo(shape)});
  const qcShapeInfo& info = elements_.back().info;
  const bool hasLength = info.perimeter() > 0;
  qcShape::qcSampleParams params(0, 0, INT32_MAX, hasLength && shape.hasTangent(), true);
  params.recordPositions_(true);
  qcShape::qcSampleResult ends;
  shape.sample(params, ends);
  const std::vector<Vector>& points = ends.positions();
  const std::vector<qcPerimPos>& places = ends.perimPositions_();
  if (places.size() != points.size()) throw qcShapesError::NotImplemented();
  const auto tangent = [&](std::size_t i) {
    return ends.tangents().empty() ? Vector() : direction(ends.tangents()[i]);
  };
  const bool isClosed = ends.numChains() > 0 && ends.closedFlags().back();
  for (std::size_t i = 0, last = 0; i < points.size(); i = ++last) {
    while (last + 1 < points.size() && places[last + 1].index() == places[i].index()) ++last;
    const std::int32_t index = places[i].index();
    const double length = info.pieceLength(index);
    if (hasLength ? !(length > 0) : i > 0) continue;
    const long owner = numOwners_ + (hasLength ? ownerOf(index, info.startOf(index) + length / 2) : 0);
    pieces_.push_back({elements_.size() - 1, index, static_cast<std::int32_t>(owner), length, points[i], points[last],
                       tangent(i), tangent(last)});
    // The last point of a closed chain need not be repeated.
    if (isClosed && last + 1 == points.size() && places[last].distance() < 0.75 * length) {
      pieces_.back().end = points.front();
      pieces_.back().endTangent = tangent(0);
    }
  }
  return info.perimeter();
}

void MappedCurve::cut() {
  std::vector<Span> wholes;
  double furthest = 0;
  Vector low, high;
  const auto include = [&](const Vector& p) {
    low = {std::min(low.x(), p.x()), std::min(low.y(), p.y())};
    high = {std::max(high.x(), p.x()), std::max(high.y(), p.y())};
    extent_ = segmentLength(low, high);
  };
  wholes.reserve(pieces_.size());
  for (std::size_t piece = 0; piece < pieces_.size(); ++piece) {
    const End from = endAt(pieces_[piece], 0), to = endAt(pieces_[piece], pieces_[piece].length);
    wholes.push_back(spanBetween(piece, from, to));
    if (piece == 0) low = high = from.image;
    for (const End& end : {from, to, wholes.back().middle}) include(end.image);
  }
  Effort most = effort(kKept);
  for (const Span& whole : wholes) {
    Piece& piece = pieces_[whole.piece];
    piece.firstSpan = spans_.size();
    const auto isDone = [&](const Span& span) {
      include(span.middle.image);
      // Images that all coincide so far say nothing about how large the whole is.
      if (extent_ == 0) {
        const bool isShort = span.to.distance - span.from.distance < piece.length / 1000;
        return span.deviation == 0 || (isShort && std::isfinite(span.deviation));
      }
      return span.deviation <= kCoarse * extent_;
    };
    double travelled = 0;
    refine(whole, most, isDone, [&](const Span& span) {
      spans_.push_back(span);
      travelled += span.speed * (span.to.distance - span.from.distance);
    });
    furthest = std::max(furthest, travelled);
  }
  // A transform may squeeze a piece into next to nothing, which is not to be resolved within its own size.
  extent_ = std::max(extent_, 0.01 * furthest);
}

// The number of the span behind those of the pieces before one.
std::size_t MappedCurve::endOfSpans(std::size_t piece) const {
  return piece < pieces_.size() ? pieces_[piece].firstSpan : spans_.size();
}

bool MappedCurve::jumps(const Span& from, const Span& to) const {
  return segmentLength(from.to.image, to.from.image) > kOnCurve * extent_;
}

// Behind a span that is not the last one of all, from one piece to another.
bool MappedCurve::jumpsBehind(std::size_t span) const {
  return span + 1 < spans_.size() && spans_[span].piece != spans_[span + 1].piece &&
         jumps(spans_[span], spans_[span + 1]);
}

MappedCurve::End MappedCurve::endAt(const Piece& piece, double distance) const {
  End end{distance, piece.start, Vector()};
  if (distance > 0 && distance >= piece.length) {
    end.source = piece.end;
  } else if (distance > 0) {
    const Element& element = elements_[piece.element];
    element.seen.shape->perimPointAndTangent_(element.info, {piece.index, distance}, end.source, nullptr);
  }
  end.image = xformOf(piece).mapPoint(end.source);
  return end;
}

Vector MappedCurve::sourceTangent(const Piece& piece, double distance, Vector& point) const {
  const bool isStart = distance <= 0, isEnd = distance >= piece.length;
  if (isStart && piece.startTangent != Vector()) {
    point = piece.start;
    return piece.startTangent;
  }
  if (isEnd && piece.endTangent != Vector()) {
    point = piece.end;
    return piece.endTangent;
  }
  const Element& element = elements_[piece.element];
  if (!element.seen.shape->hasTangent()) {
    // Flat ellipses have a direction almost everywhere, if no tangent.
    const double step = 1e-6 * piece.length;
    point = endAt(piece, distance).source;
    return normalized(endAt(piece, distance + step).source - endAt(piece, distance - step).source);
  }
  qcRadian angle;
  const double inside = isEnd ? std::nextafter(piece.length, 0) : std::max(distance, 0.0);
  element.seen.shape->perimPointAndTangent_(element.info, {piece.index, inside}, point, &angle);
  return direction(angle);
}

MappedCurve::Motion MappedCurve::motionAt(const Piece& piece, double distance) const {
  Vector point;
  const Vector tangent = sourceTangent(piece, distance, point);
  const qc2XformLinear linear = xformOf(piece).linearXform(point);
  return {distance, tangent, linear.mapPoint(point), linear.mapVector(tangent)};
}

// With J the derivative at the middle and E what the transform differs from its expansion there: J carries the curve's
// own deviation along. E changes between two points by at most the bend along the chord times their distance along it,
// and that across times their distance across, so that at a fraction s of the length it is off its interpolation
// between the ends by at most 2 s (1 - s) times the one and the length, and the other times the sagitta.
MappedCurve::Span MappedCurve::spanBetween(std::size_t piece, const End& from, const End& to) const {
  const double length = to.distance - from.distance;
  const End middle = endAt(pieces_[piece], from.distance + length / 2);
  const Vector chord = to.source - from.source;
  const double chordLength = segmentLength(from.source, to.source);
  const Vector along = chordLength > 0 ? chord / chordLength : Vector(1, 0);
  const qc2XformBase& xform = xformOf(pieces_[piece]);
  const qcMatrix<2> derivative = xform.linearXform(middle.source).matrix();
  const double norm = zrtnlxf::norm(derivative), speed = (derivative * along).len();
  const double sagittaOfSource = sagitta(from.source, to.source, middle.source, length);
  qc2XformBase::Bend bend{0, 0};
  if (length > 0) bend = xform.bendAlong(middle.source, length / 2 * along, 2 * sagittaOfSource);
  const double strays = bend.along * length / 2 + (sagittaOfSource > 0 ? bend.across * sagittaOfSource : 0);
  // What stands still but for what bends may have been squeezed.
  Span span{piece, from, to, middle, norm * sagittaOfSource + strays, bend.along < speed ? speed : norm};
  // A transform that jumps, as an inverse may between one solution and another, breaks its bound.
  const double most = norm * length / 2 + strays + 1e-9 * (1 + magnitude(middle.image));
  const double moved = std::max(segmentLength(from.image, middle.image), segmentLength(to.image, middle.image));
  if (!(moved <= 1.001 * most)) span.deviation = std::numeric_limits<double>::infinity();
  return span;
}

bool MappedCurve::isShortest(const Span& span) const {
  if (span.deviation <= 2 * kEpsilon * (magnitude(span.from.image) + magnitude(span.to.image))) return true;
  return !(span.to.distance - span.from.distance > kShortest * pieces_[span.piece].length);
}

void MappedCurve::halve(const Span& span, Span& first, Span& second) const {
  first = spanBetween(span.piece, span.from, span.middle);
  second = spanBetween(span.piece, span.middle, span.to);
}

void MappedCurve::throwAtInfinity() {
  throw qc2XformPerspectiveDefs::NumericalError(L"the boundary has a point without a finite image");
}

void MappedCurve::throwTooBent() {
  throw qc2XformPerspectiveDefs::NumericalError(L"the boundary bends too much to be followed");
}

}  // namespace qc_shapes
