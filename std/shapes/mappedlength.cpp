// How long mapped curves are, and how far they turn.
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>

#include "std/shapes/mappedcurve.h"
#include "std/shapes/segment.h"
#include "vnxstd/math/xflinear.h"
#include "zrtnlxf/points.h"

namespace qc_shapes {

namespace {

using Vector = qcVector<2>;

constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
constexpr double kPoint = 1e-7;    // what is shorter than this part of the extent may be a cusp
constexpr double kLength = 1e-11;  // within which part of the extent the lengths of stretches are computed
constexpr double kTiny = std::numeric_limits<double>::min();  // lengths below are not resolved
constexpr int kDeepest = 48;                                  // how often a span is halved

double angleBetween(const Vector& a, const Vector& b) {
  const Vector from = scaled(a), to = scaled(b);
  return qcRadian(std::atan2(from.cross(to), from * to)).signedNorm().plain();
}

}  // namespace

double MappedCurve::tangentRotation() const {
  double sum = 0;
  Effort most = effort(kMeasured);
  Vector last;
  for (const Piece& piece : pieces_) {
    if (!(piece.length > 0)) continue;
    const Motion from = motionAt(piece, 0), to = motionAt(piece, piece.length);
    if (last != Vector()) sum += angleBetween(last, from.velocity);
    sum += turning(piece, from, to, 0, most);
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
  const double half = (to.distance - from.distance) / 2;
  const qc2XformBase::Bend bend = xform.bendAlong(point, half * middle.tangent, half * turned);
  if (!(turned > 0)) return bend.along;
  return bend.along + (bend.across + zrtnlxf::norm(xform.linearXform(point).matrix())) * turned;
}

// Where the velocity stays within 30 degrees of that in the middle, the turn is the angle between those at the ends. A
// stretch that is as short as a point, a cusp, turns like a corner.
double MappedCurve::turning(const Piece& piece, const Motion& from, const Motion& to, int depth, Effort& effort) const {
  const double length = to.distance - from.distance;
  const Motion middle = motionAt(piece, from.distance + length / 2);
  const double off = change(piece, from, middle, to), speed = middle.velocity.len();
  const bool isCut =
      off > 0.5 * speed && (speed + off) * length > std::max(kPoint * extent_, kTiny);  // false for what is no number
  if (!isCut || depth == kDeepest) {
    return angleBetween(from.velocity, to.velocity);
  }
  effort.spend();
  const double first = turning(piece, from, middle, depth + 1, effort);
  return first + turning(piece, middle, to, depth + 1, effort);
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
                          Effort& effort, double& before, std::vector<Stretch>& stretches) const {
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
    stretches.push_back({from.distance, before});
    before += first;
    stretches.push_back({middle.distance, before});
    before += second;
    return;
  }
  effort.spend();
  measure(piece, from, middle, first, depth + 1, effort, before, stretches);
  measure(piece, middle, to, second, depth + 1, effort, before, stretches);
}

MappedCurve::Measures MappedCurve::measured() const {
  std::vector<std::vector<Stretch>> stretches(pieces_.size());
  std::vector<double> starts{0}, lengths;
  Effort most = effort(kMeasured);
  for (const Span& span : spans_) {
    const Piece& piece = pieces_[span.piece];
    if (lengths.size() <= span.piece) lengths.push_back(0);
    if (!(piece.length > 0)) continue;
    const double from = span.from.distance, to = span.to.distance;
    const double whole = gauss(piece, from, to);
    measure(piece, motionAt(piece, from), motionAt(piece, to), whole, 0, most, lengths.back(), stretches[span.piece]);
  }
  for (const double length : lengths) starts.push_back(starts.back() + length);
  return {std::move(stretches), std::move(lengths), std::move(starts)};
}

std::vector<double> MappedCurve::lengths() const {
  const std::vector<double>& ofPieces = measures().lengths;
  std::vector<double> all(static_cast<std::size_t>(numOwners_));
  for (std::size_t i = 0; i < pieces_.size(); ++i) all[static_cast<std::size_t>(pieces_[i].owner)] += ofPieces[i];
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
  if (first == end) {
    // An owner without pieces, where the one before ends or the next one starts.
    const Piece& last = pieces_[std::max<std::size_t>(first, 1) - 1];
    const bool isOfElement = number - last.owner < elements_[last.element].info.numPieces() - last.index;
    const bool isEnd = first > 0 && (isOfElement || std::binary_search(ends_.begin(), ends_.end(), number));
    const Place before{first - 1, last.length}, next{first, 0};
    return isEnd && normal(before).piece != first ? before : next;
  }
  // Summed up like the lengths of the pieces, so that rounding puts no end before itself.
  const std::vector<double>& lengths = measures().lengths;
  std::size_t piece = first;
  double before = 0;
  while (piece < end && length >= before + lengths[piece]) before += lengths[piece++];
  if (piece == end) return {end - 1, pieces_[end - 1].length};
  return {piece, distanceOnPiece(piece, length - before)};
}

qcPerimPos MappedCurve::positionOf(const Place& place) const {
  const std::int32_t owner = pieces_[place.piece].owner;
  const double along = lengthOnPiece(place.piece, place.distance);
  // Summed up like the lengths of the pieces, so that rounding puts nothing beyond them.
  const auto lengths = measures().lengths.begin();
  const auto first = lengths + static_cast<std::ptrdiff_t>(firstOf(owner));
  return {owner, std::accumulate(first, lengths + static_cast<std::ptrdiff_t>(place.piece), 0.0) + along};
}

double MappedCurve::lengthOnPiece(std::size_t piece, double distance) const {
  if (!(distance > 0)) return 0;
  const double whole = measures().lengths[piece];
  if (distance >= pieces_[piece].length) return whole;
  const std::vector<Stretch>& all = measures().stretches[piece];
  const auto isBefore = [](double place, const Stretch& stretch) { return place < stretch.from; };
  const Stretch& stretch = *(std::upper_bound(all.begin(), all.end(), distance, isBefore) - 1);
  return std::min(stretch.before + gauss(pieces_[piece], stretch.from, distance), whole);
}

// By Newton's method, kept within the stretch.
double MappedCurve::distanceOnPiece(std::size_t piece, double length) const {
  if (!(length > 0)) return 0;
  const double whole = measures().lengths[piece];
  if (length >= whole) return pieces_[piece].length;
  const std::vector<Stretch>& all = measures().stretches[piece];
  const auto isBefore = [](double place, const Stretch& stretch) { return place < stretch.before; };
  const auto next = std::upper_bound(all.begin(), all.end(), length, isBefore), stretch = next - 1;
  double low = stretch->from, high = next == all.end() ? pieces_[piece].length : next->from;
  const double behind = next == all.end() ? whole : next->before;
  double at = low + (length - stretch->before) / (behind - stretch->before) * (high - low);
  for (int i = 0; i < 50 && low < high; ++i) {
    const double error = stretch->before + gauss(pieces_[piece], stretch->from, at) - length;
    if (std::fabs(error) <= 2 * kEpsilon * whole) break;
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
  return before_.get([this] { return MappedCurve(given_, Xform(new qc2XformLinear), this); });
}

}  // namespace qc_shapes
