#include "std/shapes/mappedcurve.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <queue>

#include "std/shapes/segment.h"
#include "vnxstd/math/xflinear.h"
#include "vnxstd/math/xfpersp.h"
#include "vnxstd/shapes/contourtree.h"
#include "vnxstd/shapes/generaltree.h"
#include "vnxstd/shapes/mappedshape.h"
#include "vnxstd/shapes/polyline.h"
#include "vnxstd/shapes/regiontree.h"
#include "zrtnlxf/points.h"

namespace qc_shapes {

namespace {

using Vector = qcVector<2>;

constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
constexpr double kCoarse = 1e-3;    // how far the images of the spans that are kept may deviate, as part of the extent
constexpr double kOnCurve = 1e-10;  // within this part of the extent a point lies on the image
constexpr double kPoint = 1e-7;     // what is shorter than this part of the extent may be a cusp
constexpr double kLength = 1e-11;   // within which part of the extent the lengths of stretches are computed
constexpr double kTiny = std::numeric_limits<double>::min();  // lengths below are not resolved
constexpr std::size_t kMostStretches = std::size_t{1} << 20;  // of a piece; more say that its length has no bounds
constexpr int kDeepest = 48;                                  // how often a span is halved
constexpr double kShortest = 0x1p-48;                         // what is not cut further, as part of the piece

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

double distanceToChord(const Vector& p, const Vector& a, const Vector& b, double& fraction) {
  fraction = nearestFraction(a, b, p);
  return segmentLength(p, pointAtFraction(a, b, fraction));
}

double angleBetween(const Vector& a, const Vector& b) {
  const Vector from = scaled(a), to = scaled(b);
  return qcRadian(std::atan2(from.cross(to), from * to)).signedNorm().plain();
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

[[noreturn]] void throwAtInfinity() {
  throw qc2XformPerspectiveDefs::NumericalError(L"the boundary has a point without a finite image");
}

}  // namespace

MappedCurve::MappedCurve(const Held& shape, const Xform& xform) : given_(shape) {
  std::vector<Seen> waiting{{shape, xform}};
  while (!waiting.empty()) {
    const Seen seen = unmapped(waiting.back());
    waiting.pop_back();
    if (const auto* general = dynamic_cast<const qcGeneralShapeTree*>(seen.shape.rep())) {
      pushElements(*general, seen.xform, waiting);
    } else if (const auto* region = dynamic_cast<const qcRegionTree*>(seen.shape.rep())) {
      regions_.push_back({seen, chains_.size()});
      addRegion(*region, seen.xform);
    } else if (!seen.shape->isEmpty()) {
      addContour(seen, false, -1);
    }
  }
  for (Chain& chain : chains_) {
    const Piece& piece = pieces_[chain.first];
    chain.isRound = chain.closed && chain.last - chain.first == 1 && piece.length > 0 && piece.start == piece.end &&
                    piece.startTangent != Vector() && (piece.endTangent - piece.startTangent).len() < 1e-9;
  }
  cut();
}

// In the order of the tree's elements: each node before those below it.
void MappedCurve::addRegion(const qcRegionTree& region, const Xform& xform) {
  std::vector<std::pair<const qcRegionTree*, std::ptrdiff_t>> waiting{{&region, -1}};
  while (!waiting.empty()) {
    const auto [node, parent] = waiting.back();
    waiting.pop_back();
    if (node->isEmpty()) continue;
    const auto chain = static_cast<std::ptrdiff_t>(chains_.size());
    addContour({&node->boundary(), xform}, node->boundaryRightHanded() == node->isHole(), parent);
    for (long i = node->numChildren(); i > 0; --i) waiting.emplace_back(&node->child(i - 1), chain);
  }
}

void MappedCurve::addContour(const Seen& contour, bool isTurned, std::ptrdiff_t parent) {
  const std::size_t first = pieces_.size();
  std::vector<Seen> waiting{contour};
  while (!waiting.empty()) {
    const Seen seen = unmapped(waiting.back());
    waiting.pop_back();
    if (const auto* tree = dynamic_cast<const qcContourTree*>(seen.shape.rep())) {
      pushElements(*tree, seen.xform, waiting);
    } else {
      addPrimitives(seen);
    }
  }
  if (pieces_.size() == first) throw qcShapesError::EmptyShape();
  // Pieces without length are corners, unless there is nothing else.
  const auto begin = pieces_.begin() + static_cast<std::ptrdiff_t>(first);
  const auto isPoint = [](const Piece& piece) { return !(piece.length > 0); };
  pieces_.erase(std::all_of(begin, pieces_.end(), isPoint) ? begin + 1 : std::remove_if(begin, pieces_.end(), isPoint),
                pieces_.end());
  // A region whose decomposition is an open piece, like a circle and its arc, is closed all the same.
  chains_.push_back({first, pieces_.size(), contour.shape->isRegion(), isTurned, parent, false});
}

// Of what a shape that is no tree decomposes into, each piece is part of one of the shape's own, as they follow each
// other.
void MappedCurve::addPrimitives(const Seen& seen) {
  if (seen.shape->isDecomposed()) {
    addElement(seen, [](long piece, double) { return piece; });
    numOwners_ += elements_.back().info.numPieces();
    return;
  }
  const qcShapeInfo given(*seen.shape);
  const Held parts(seen.shape->decompose());
  const auto* tree = dynamic_cast<const qcShapeTree*>(parts.rep());
  double start = 0;
  for (const qcShape* part : tree ? tree->elements_() : std::vector<const qcShape*>{parts.rep()}) {
    const auto owner = [&](long, double middle) { return given.perimPos(start + middle).index(); };
    start += addElement({part, seen.xform}, owner);
  }
  numOwners_ += given.numPieces();
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
    refine(whole, isDone, [&](const Span& span) {
      spans_.push_back(span);
      travelled += span.norm * (span.to.distance - span.from.distance);
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
// own deviation along. E changes between two points by at most the bend times their distance, so that at a fraction s
// of the length it is off its interpolation between the ends by at most 2 s (1 - s) times the bend and the length.
MappedCurve::Span MappedCurve::spanBetween(std::size_t piece, const End& from, const End& to) const {
  const double length = to.distance - from.distance;
  const End middle = endAt(pieces_[piece], from.distance + length / 2);
  const Vector chord = to.source - from.source;
  const double chordLength = segmentLength(from.source, to.source);
  const Vector reach = chordLength > 0 ? chord * (length / 2 / chordLength) : Vector(length / 2, 0);
  const qc2XformBase& xform = xformOf(pieces_[piece]);
  const double norm = zrtnlxf::norm(xform.linearXform(middle.source).matrix());
  const double bend = length > 0 ? xform.bendBound(middle.source, reach) : 0;
  const double sagittaOfSource = sagitta(from.source, to.source, middle.source, length);
  Span span{piece, from, to, middle, norm * sagittaOfSource + bend * length / 2, norm};
  // A transform that jumps, as an inverse may between one solution and another, breaks its bound.
  const double most = (norm + bend) * length / 2 + 1e-9 * (1 + magnitude(middle.image));
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

// Calls `leaf` in order with the parts of a span for which `isDone` holds, or that cannot be cut.
template <class IsDone, class Leaf>
void MappedCurve::refine(const Span& whole, const IsDone& isDone, const Leaf& leaf) const {
  std::vector<Span> waiting{whole};
  while (!waiting.empty()) {
    const Span span = waiting.back();
    waiting.pop_back();
    const bool cannot = isShortest(span);
    if (cannot && !std::isfinite(span.deviation)) throwAtInfinity();
    if (isDone(span) || cannot) {
      leaf(span);
      continue;
    }
    Span first, second;
    halve(span, first, second);
    waiting.push_back(second);
    waiting.push_back(first);
  }
}

// The place next to one that is nearly extreme, where the slope of a function along the piece passes from negative to
// positive, by bisection; the same place where it does not.
template <class Slope>
MappedCurve::Place MappedCurve::lowestNear(const Place& place, const Slope& slope) const {
  const Piece& piece = pieces_[place.piece];
  double low = std::max(0.0, place.distance - 1e-3 * piece.length);
  double high = std::min(piece.length, place.distance + 1e-3 * piece.length);
  if (!(piece.length > 0) || !(slope(motionAt(piece, low)) < 0) || !(slope(motionAt(piece, high)) > 0)) return place;
  for (int i = 0; i < 60 && low < high; ++i) {
    const double middle = low + (high - low) / 2;
    (slope(motionAt(piece, middle)) < 0 ? low : high) = middle;
  }
  return {place.piece, low};
}

double MappedCurve::furthest(const Vector& towards) const {
  double most = -std::numeric_limits<double>::infinity();
  Place best;
  const auto look = [&](std::size_t piece, const End& end) {
    if (!(end.image * towards > most)) return;
    most = end.image * towards;
    best = {piece, end.distance};
  };
  for (const Span& span : spans_) {
    for (const End* end : {&span.from, &span.to, &span.middle}) look(span.piece, *end);
  }
  for (const Span& whole : spans_) {
    const auto isDone = [&](const Span& span) {
      look(span.piece, span.middle);
      const double ends = std::max(span.from.image * towards, span.to.image * towards);
      return ends + span.deviation <= most + kPrecision * extent_;
    };
    refine(whole, isDone, [](const Span&) {});
  }
  best = lowestNear(best, [&](const Motion& motion) { return -(motion.velocity * towards); });
  return std::max(most, image(best, nullptr) * towards);
}

qcRect MappedCurve::boundingBox() const {
  if (spans_.empty()) throw qcShapesError::EmptyShape();
  if (!box_) {
    box_ = qcRect::fromCorners({-furthest({-1, 0}), -furthest({0, -1})}, {furthest({1, 0}), furthest({0, 1})});
  }
  return *box_;
}

// Best first: the part of the image that may come nearest is looked at next, until none may come nearer than what was
// found. The bounds shrink with the square of the length, so that few parts remain at each length. Then the foot of the
// perpendicular is found by bisection.
MappedCurve::Place MappedCurve::nearest(const Vector& p) const {
  if (spans_.empty()) throw qcShapesError::EmptyShape();
  struct Candidate {
    double least;
    Span span;
    bool operator<(const Candidate& other) const { return least > other.least; }
  };
  std::priority_queue<Candidate> candidates;
  Place best{spans_.front().piece, 0};
  double distance = std::numeric_limits<double>::infinity();
  const auto look = [&](std::size_t piece, const End& end) {
    const double found = segmentLength(p, end.image);
    if (found >= distance) return;
    distance = found;
    best = {piece, end.distance};
  };
  const auto add = [&](const Span& span) {
    double fraction;
    for (const End* end : {&span.from, &span.middle, &span.to}) look(span.piece, *end);
    const double least = distanceToChord(p, span.from.image, span.to.image, fraction) - span.deviation;
    if (least < distance) candidates.push({least, span});
  };
  for (const Span& span : spans_) add(span);
  while (!candidates.empty() && candidates.top().least < distance - kPrecision * extent_) {
    const Span span = candidates.top().span;
    candidates.pop();
    if (isShortest(span)) continue;
    double fraction;
    distanceToChord(p, span.from.image, span.to.image, fraction);
    const Piece& piece = pieces_[span.piece];
    look(span.piece, endAt(piece, span.from.distance + fraction * (span.to.distance - span.from.distance)));
    Span first, second;
    halve(span, first, second);
    add(first);
    add(second);
  }
  const Place foot = lowestNear(best, [&](const Motion& motion) { return (motion.image - p) * motion.velocity; });
  return segmentLength(p, image(foot, nullptr)) < distance ? foot : best;
}

// A chord subtends the same angle as its part of the image when the point lies further from the chord than the image
// deviates, since the one can be moved onto the other without passing the point.

double MappedCurve::windingAngle(const Chain& chain, const Vector& p, bool& touches) const {
  const double on = kOnCurve * extent_;
  double fraction;
  std::vector<Vector> vertices;
  // Ends of spans next to p would say nothing about the side on which the image passes it.
  const auto add = [&](const Vector& vertex) { vertices.push_back(segmentLength(vertex, p) <= on ? p : vertex); };
  const std::size_t end = endOfSpans(chain.last);
  for (std::size_t i = pieces_[chain.first].firstSpan; i < end; ++i) {
    const auto isDone = [&](const Span& span) {
      const double distance = distanceToChord(p, span.from.image, span.to.image, fraction);
      return distance > std::max(span.deviation, on) || span.deviation <= on;
    };
    refine(spans_[i], isDone, [&](const Span& span) {
      add(span.from.image);
      const double distance = distanceToChord(p, span.from.image, span.to.image, fraction);
      if (distance > std::max(span.deviation, on)) return;
      touches = true;
      vertices.push_back(p);
    });
    if (i + 1 == end || jumpsBehind(i)) add(spans_[i].to.image);
  }
  return qcPolyline(std::move(vertices), chain.closed).generalWindingAngle(p).plain();
}

double MappedCurve::windingAngle(const Vector& p, bool& touches) const {
  touches = false;
  double sum = 0;
  for (const Chain& chain : chains_) sum += windingAngle(chain, p, touches);
  return sum;
}

// From the innermost regions outwards, as each takes what it holds from the one above.
bool MappedCurve::within(const Vector& p, bool openRegion) const {
  std::vector<bool> isInside(chains_.size());
  for (std::size_t i = 0; i < chains_.size(); ++i) {
    const std::ptrdiff_t parent = chains_[i].parent;
    if (parent >= 0 && !isInside[static_cast<std::size_t>(parent)]) continue;
    bool touches = false;
    isInside[i] = std::fabs(windingAngle(chains_[i], p, touches)) > qcRadian::turn / 2;
    if (touches) return !openRegion;
  }
  for (std::size_t i = chains_.size(); i-- > 0;) {
    if (isInside[i] && chains_[i].parent >= 0) isInside[static_cast<std::size_t>(chains_[i].parent)] = false;
  }
  return !isInside.empty() && isInside.front();
}

double MappedCurve::tangentRotation() const {
  double sum = 0;
  Vector last;
  for (const Piece& piece : pieces_) {
    const Motion from = motionAt(piece, 0), to = motionAt(piece, piece.length);
    if (&piece != &pieces_.front()) sum += angleBetween(last, from.velocity);
    sum += turning(piece, from, to, 0);
    last = to.velocity;
  }
  return sum;
}

// By how much the velocity differs from that in the middle at most.
double MappedCurve::change(const Piece& piece, const Motion& from, const Motion& middle, const Motion& to) const {
  Vector point;
  sourceTangent(piece, middle.distance, point);
  const double turned = std::max((from.tangent - middle.tangent).len(), (to.tangent - middle.tangent).len());
  const qc2XformBase& xform = xformOf(piece);
  return xform.bendBound(point, 0.5 * (to.distance - from.distance) * middle.tangent) +
         zrtnlxf::norm(xform.linearXform(point).matrix()) * turned;
}

// Where the velocity stays within 30 degrees of that in the middle, the turn is the angle between those at the ends. A
// stretch that is as short as a point, a cusp, turns like a corner.
double MappedCurve::turning(const Piece& piece, const Motion& from, const Motion& to, int depth) const {
  const double length = to.distance - from.distance;
  const Motion middle = motionAt(piece, from.distance + length / 2);
  const double off = change(piece, from, middle, to), speed = middle.velocity.len();
  const bool isCut =
      off > 0.5 * speed && (speed + off) * length > std::max(kPoint * extent_, kTiny);  // false for what is no number
  if (!isCut || depth == kDeepest) {
    return angleBetween(from.velocity, to.velocity);
  }
  return turning(piece, from, middle, depth + 1) + turning(piece, middle, to, depth + 1);
}

Vector MappedCurve::image(const Place& place, qcRadian* tangent) const {
  const Piece& piece = pieces_[place.piece];
  if (tangent) {
    if (!(piece.length > 0) || !elements_[piece.element].seen.shape->hasTangent()) throw qcShapesError::NoTangent();
    const Vector along = motionAt(piece, place.distance).velocity;
    if (!(magnitude(along) > 0)) throw qcShapesError::NoTangent();
    *tangent = segmentAngle({}, along);
  }
  return endAt(piece, place.distance).image;
}

// The rule of Gauss and Legendre with five points.
double MappedCurve::gauss(const Piece& piece, double from, double to) const {
  constexpr std::array<double, 3> kPlaces = {0, 0.53846931010568309, 0.90617984593866399};
  constexpr std::array<double, 3> kWeights = {0.56888888888888889, 0.47862867049936647, 0.23692688505618909};
  const double half = (to - from) / 2, middle = from + half;
  const auto speed = [&](double distance) { return motionAt(piece, distance).velocity.len(); };
  double sum = kWeights[0] * speed(middle);
  for (std::size_t i = 1; i < 3; ++i) {
    const double off = half * kPlaces[i];
    sum += kWeights[i] * (speed(middle - off) + speed(middle + off));
  }
  return sum * half;
}

// Two rules must agree, and the velocity must be known to change little between the points that they look at.
void MappedCurve::measure(const Piece& piece, const Motion& from, const Motion& to, double whole, int depth,
                          double& before, std::vector<Stretch>& stretches) const {
  const double length = to.distance - from.distance;
  const Motion middle = motionAt(piece, from.distance + length / 2);
  const double first = gauss(piece, from.distance, middle.distance),
               second = gauss(piece, middle.distance, to.distance);
  const double off = change(piece, from, middle, to), speed = middle.velocity.len();
  const bool isSteady = off <= 0.25 * speed || (speed + off) * length <= std::max(kPoint * extent_, kTiny);
  // What is no number, or out of range, stays so however short the parts are.
  const bool isLost = !std::isfinite(first + second);
  const double allowed = std::max(kLength * extent_, kTiny);
  if ((isSteady && std::fabs(first + second - whole) <= allowed) || isLost || depth == kDeepest) {
    if (stretches.size() > kMostStretches) throwAtInfinity();
    stretches.push_back({from.distance, before});
    before += first;
    stretches.push_back({middle.distance, before});
    before += second;
    return;
  }
  measure(piece, from, middle, first, depth + 1, before, stretches);
  measure(piece, middle, to, second, depth + 1, before, stretches);
}

const std::vector<double>& MappedCurve::starts() const {
  if (!starts_.empty()) return starts_;
  std::vector<std::vector<Stretch>> stretches(pieces_.size());
  std::vector<double> starts{0}, lengths;
  for (const Span& span : spans_) {
    const Piece& piece = pieces_[span.piece];
    if (lengths.size() <= span.piece) lengths.push_back(0);
    if (!(piece.length > 0)) continue;
    const double from = span.from.distance, to = span.to.distance;
    const double whole = gauss(piece, from, to);
    measure(piece, motionAt(piece, from), motionAt(piece, to), whole, 0, lengths.back(), stretches[span.piece]);
  }
  for (const double length : lengths) starts.push_back(starts.back() + length);
  stretches_ = std::move(stretches);
  lengths_ = std::move(lengths);
  starts_ = std::move(starts);
  return starts_;
}

std::vector<double> MappedCurve::lengths() const {
  starts();
  std::vector<double> all(static_cast<std::size_t>(numOwners_));
  for (std::size_t i = 0; i < pieces_.size(); ++i) all[static_cast<std::size_t>(pieces_[i].owner)] += lengths_[i];
  return all;
}

// The first piece of an owner, or of the next one that has a piece.
std::size_t MappedCurve::firstOf(std::int32_t owner) const {
  const auto isBefore = [](const Piece& piece, std::int32_t sought) { return piece.owner < sought; };
  return static_cast<std::size_t>(std::lower_bound(pieces_.begin(), pieces_.end(), owner, isBefore) - pieces_.begin());
}

MappedCurve::Place MappedCurve::placeOn(std::int32_t number, double length) const {
  const std::size_t first = firstOf(number), end = firstOf(number + 1);
  if (first == pieces_.size()) return {first - 1, pieces_.back().length};
  if (first == end) return {first, 0};
  const double along = starts()[first] + length;
  if (along >= starts()[end]) return {end - 1, pieces_[end - 1].length};
  return placeAt(along);
}

qcPerimPos MappedCurve::positionOf(const Place& place) const {
  const std::int32_t owner = pieces_[place.piece].owner;
  return {owner, lengthTo(place) - starts()[firstOf(owner)]};
}

double MappedCurve::lengthOnPiece(std::size_t piece, double distance) const {
  starts();
  if (!(distance > 0)) return 0;
  if (distance >= pieces_[piece].length) return lengths_[piece];
  const std::vector<Stretch>& all = stretches_[piece];
  const auto isBefore = [](double place, const Stretch& stretch) { return place < stretch.from; };
  const Stretch& stretch = *(std::upper_bound(all.begin(), all.end(), distance, isBefore) - 1);
  return std::min(stretch.before + gauss(pieces_[piece], stretch.from, distance), lengths_[piece]);
}

// By Newton's method, kept within the stretch.
double MappedCurve::distanceOnPiece(std::size_t piece, double length) const {
  starts();
  if (!(length > 0)) return 0;
  if (length >= lengths_[piece]) return pieces_[piece].length;
  const std::vector<Stretch>& all = stretches_[piece];
  const auto isBefore = [](double place, const Stretch& stretch) { return place < stretch.before; };
  const auto next = std::upper_bound(all.begin(), all.end(), length, isBefore), stretch = next - 1;
  double low = stretch->from, high = next == all.end() ? pieces_[piece].length : next->from;
  const double behind = next == all.end() ? lengths_[piece] : next->before;
  double at = low + (length - stretch->before) / (behind - stretch->before) * (high - low);
  for (int i = 0; i < 50 && low < high; ++i) {
    const double error = stretch->before + gauss(pieces_[piece], stretch->from, at) - length;
    if (std::fabs(error) <= 2 * kEpsilon * lengths_[piece]) break;
    (error < 0 ? low : high) = at;
    const double step = at - error / motionAt(pieces_[piece], at).velocity.len();
    const double following = low < step && step < high ? step : low + (high - low) / 2;
    if (following == at) break;
    at = following;
  }
  return at;
}

double MappedCurve::lengthTo(const Place& place) const {
  return starts()[place.piece] + lengthOnPiece(place.piece, place.distance);
}

MappedCurve::Place MappedCurve::placeAt(double length) const {
  const std::vector<double>& all = starts();
  if (pieces_.empty()) throw qcShapesError::EmptyShape();
  const auto next = std::upper_bound(all.begin(), all.end() - 1, length);
  const std::size_t piece = next == all.begin() ? 0 : static_cast<std::size_t>(next - all.begin()) - 1;
  return {piece, distanceOnPiece(piece, length - all[piece])};
}

MappedCurve::Place MappedCurve::normal(const Place& place) const {
  if (place.distance < pieces_[place.piece].length) return place;
  const auto isBefore = [](std::size_t piece, const Chain& chain) { return piece < chain.first; };
  const Chain& chain = *(std::upper_bound(chains_.begin(), chains_.end(), place.piece, isBefore) - 1);
  const std::size_t next = place.piece + 1 < chain.last ? place.piece + 1 : chain.first;
  const bool isEnd = next == chain.first && !chain.closed;
  return isEnd || jumps(spans_[endOfSpans(place.piece + 1) - 1], spans_[pieces_[next].firstSpan]) ? place
                                                                                                  : Place{next, 0};
}

const MappedCurve& MappedCurve::source() const {
  if (!before_) before_ = std::make_unique<const MappedCurve>(given_, Xform(new qc2XformLinear));
  return *before_;
}

std::vector<qcPtrHandle<qcShape>> MappedCurve::outlines(double tolerance) const {
  std::vector<qcPtrHandle<qcShape>> all;
  for (const Chain& chain : chains_) all.push_back(outline(chain, tolerance));
  return all;
}

// A polyline, or several where the contour jumps.
qcPtrHandle<qcShape> MappedCurve::outline(const Chain& chain, double tolerance) const {
  std::vector<std::vector<Vector>> runs(1);
  const auto add = [&](const Vector& p) {
    if (runs.back().empty() || runs.back().back() != p) runs.back().push_back(p);
  };
  const std::size_t first = pieces_[chain.first].firstSpan, end = endOfSpans(chain.last);
  for (std::size_t i = first; i < end; ++i) {
    refine(
        spans_[i], [tolerance](const Span& span) { return span.deviation <= tolerance; },
        [&](const Span& span) { add(span.from.image); });
    if (i + 1 < end && !jumpsBehind(i)) continue;
    add(spans_[i].to.image);
    if (i + 1 < end) runs.emplace_back();
  }
  if (chain.isTurned) {
    std::reverse(runs.begin(), runs.end());
    for (std::vector<Vector>& run : runs) std::reverse(run.begin(), run.end());
  }
  const bool jumpsAtEnd = chain.closed && jumps(spans_[end - 1], spans_[first]);
  if (runs.size() == 1 && !jumpsAtEnd) {
    if (chain.closed && runs[0].size() > 1) runs[0].pop_back();
    return new qcPolyline(std::move(runs[0]), chain.closed);
  }
  std::vector<Held> parts;
  for (std::vector<Vector>& run : runs) parts.emplace_back(new qcPolyline(std::move(run), false));
  return new qcContourTree(parts, chain.closed, false);
}

std::vector<double> MappedCurve::sampleDistances(const qcShape::qcSampleParams& params, std::size_t piece,
                                                 bool isRound) const {
  const double whole = pieces_[piece].length;
  const long limit = params.maxPoints() - (isRound ? 0 : 1), least = isRound ? 2 : 1;
  if (limit < least) throw qcShapesError::SampleOverflow();
  if (params.spacing() > 0) starts();
  const long steps = params.spacing() > 0 ? std::max(least, stepsFor(lengths_[piece], params.spacing(), limit)) : least;
  std::vector<double> distances;
  End from = endAt(pieces_[piece], 0);
  for (long i = 1; i <= steps; ++i) {
    const double part = static_cast<double>(i) / static_cast<double>(steps);
    const double until = i == steps             ? whole
                         : params.spacing() > 0 ? distanceOnPiece(piece, part * lengths_[piece])
                                                : part * whole;
    const End to = endAt(pieces_[piece], until);
    if (params.tolerance() > 0) {
      refine(
          spanBetween(piece, from, to), [&](const Span& span) { return span.deviation <= params.tolerance(); },
          [&](const Span& span) {
            distances.push_back(span.from.distance);
            if (distances.size() > static_cast<std::size_t>(limit)) throw qcShapesError::SampleOverflow();
          });
    } else {
      distances.push_back(from.distance);
    }
    from = to;
  }
  if (!isRound) distances.push_back(whole);
  return distances;
}

// The number of the first piece.
std::int32_t MappedCurve::takeNumbers(SampleWriter& writer) const {
  if (numOwners_ > 1 && !writer.params().enclosingInfo_()) writer.numberOwnPieces();
  const std::int32_t number = writer.takePiece();
  for (long i = 1; i < numOwners_; ++i) writer.takePiece();
  return number;
}

void MappedCurve::add(SampleWriter& writer, const Place& place, std::int32_t firstNumber) const {
  qcRadian tangent;
  const Vector point = image(place, writer.params().computeTangents() ? &tangent : nullptr);
  qcPerimPos position;
  if (writer.params().recordPositions_()) position = positionOf(place);
  position.index(position.index() + firstNumber);
  writer.add(point, tangent, position);
}

void MappedCurve::sample(SampleWriter& writer) const {
  const qcShape::qcSampleParams& params = writer.params();
  qcShape::qcSampleResult& result = writer.result();
  const std::int32_t number = takeNumbers(writer);
  // Points among other shapes are left out where tangents are asked for.
  const bool hasLength =
      std::any_of(pieces_.begin(), pieces_.end(), [](const Piece& piece) { return piece.length > 0; });
  for (const Chain& chain : chains_) {
    if (params.computeTangents() && hasLength && !(pieces_[chain.first].length > 0)) continue;
    const int firstChain = static_cast<int>(result.numChains());
    const std::size_t firstPoint = result.positions().size();
    for (std::size_t i = chain.first; i < chain.last; ++i) {
      const bool isPoint = !(pieces_[i].length > 0);
      if (isPoint && params.computeTangents()) throw qcShapesError::NoTangent();
      const std::vector<double> distances =
          isPoint ? std::vector<double>{0} : sampleDistances(params, i, chain.isRound);
      writer.openChain(chain.isRound, static_cast<long>(distances.size()));
      for (const double distance : distances) add(writer, {i, distance}, number);
    }
    if (!chain.isRound) qfMergeSubchains(params, firstChain, chain.closed, result);
    if (chain.isTurned) turnChain(result, firstPoint);
  }
}

void MappedCurve::sampleUniformly(SampleWriter& writer, bool closed) const {
  const std::int32_t number = takeNumbers(writer);
  const long n = writer.params().maxPoints();
  writer.openChain(closed, n);
  for (long i = 0; i < n; ++i) {
    add(writer, placeAt((static_cast<double>(i) + 0.5) * (length() / static_cast<double>(n))), number);
  }
}

}  // namespace qc_shapes
