// What a mapped curve answers about points: how near they are, and on which side.
#include <algorithm>
#include <cmath>
#include <limits>
#include <queue>

#include "std/shapes/mappedcurve.h"
#include "std/shapes/segment.h"
#include "vnxstd/shapes/polyline.h"

namespace qc_shapes {

namespace {

using Vector = qcVector<2>;

double distanceToChord(const Vector& p, const Vector& a, const Vector& b, double& fraction) {
  fraction = nearestFraction(a, b, p);
  return segmentLength(p, pointAtFraction(a, b, fraction));
}

}  // namespace

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
  Effort halvings = effort(kLooked);
  for (const Span& whole : spans_) {
    const auto isDone = [&](const Span& span) {
      look(span.piece, span.middle);
      const double ends = std::max(span.from.image * towards, span.to.image * towards);
      return ends + span.deviation <= most + kPrecision * extent_;
    };
    refine(whole, halvings, isDone, [](const Span&) {});
  }
  best = lowestNear(best, [&](const Motion& motion) { return -(motion.velocity * towards); });
  return std::max(most, image(best, nullptr) * towards);
}

qcRect MappedCurve::boundingBox() const {
  if (spans_.empty()) throw qcShapesError::EmptyShape();
  return box_.get([this] {
    return qcRect::fromCorners({-furthest({-1, 0}), -furthest({0, -1})}, {furthest({1, 0}), furthest({0, 1})});
  });
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
  Effort most = effort(kLooked);
  while (!candidates.empty() && candidates.top().least < distance - kPrecision * extent_) {
    const Span span = candidates.top().span;
    candidates.pop();
    most.spend();
    double fraction;
    distanceToChord(p, span.from.image, span.to.image, fraction);
    const Piece& piece = pieces_[span.piece];
    look(span.piece, endAt(piece, span.from.distance + fraction * (span.to.distance - span.from.distance)));
    if (isShortest(span)) continue;  // which a whole piece may be that the transform hardly bends
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
double MappedCurve::windingAngle(const Chain& chain, const Vector& p, Effort& effort, bool& touches) const {
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
    refine(spans_[i], effort, isDone, [&](const Span& span) {
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
  Effort most = effort(kLooked);
  for (const Chain& chain : chains_) sum += windingAngle(chain, p, most, touches);
  return sum;
}

// From the innermost regions outwards, as each takes what it holds from the one above.
bool MappedCurve::within(const Vector& p, bool openRegion) const {
  std::vector<bool> isInside(chains_.size());
  Effort most = effort(kLooked);
  for (std::size_t i = 0; i < chains_.size(); ++i) {
    const std::ptrdiff_t parent = chains_[i].parent;
    if (parent >= 0 && !isInside[static_cast<std::size_t>(parent)]) continue;
    bool touches = false;
    isInside[i] = std::fabs(windingAngle(chains_[i], p, most, touches)) > qcRadian::turn / 2;
    if (touches) return !openRegion;
  }
  bool isAny = false;
  for (std::size_t i = chains_.size(); i-- > 0;) {
    if (!isInside[i]) continue;
    if (chains_[i].parent < 0) isAny = true;
    if (chains_[i].parent >= 0) isInside[static_cast<std::size_t>(chains_[i].parent)] = false;
  }
  return isAny;
}

Vector MappedCurve::image(const Place& place, qcRadian* tangent) const {
  const Piece& piece = pieces_[place.piece];
  if (tangent) {
    if (!(piece.length > 0) || !elements_[piece.element].seen.shape->hasTangent()) throw qcShapesError::NoTangent();
    const Vector along = motionAt(piece, place.distance).velocity;
    if (!(std::fabs(along.x()) + std::fabs(along.y()) > 0)) throw qcShapesError::NoTangent();
    *tangent = segmentAngle({}, along);
  }
  return endAt(piece, place.distance).image;
}

}  // namespace qc_shapes
