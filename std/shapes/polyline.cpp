#include "vnxstd/shapes/polyline.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "std/shapes/exact.h"
#include "std/shapes/samplewriter.h"
#include "std/shapes/segment.h"
#include "std/shapes/winding.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/math/xflinear.h"
#include "vnxstd/shapes/rect.h"
#include "vnxstd/shapes/shapeinfo.h"

namespace {

constexpr double kRounding = 1e-12;  // of lengths, relatively

const qc_Instantiator registered(typeid(qcPolyline), &qcPolyline::make);

// The vertices without immediate repetitions, for questions about directions.
std::vector<qcVector<2>> distinct(const std::vector<qcVector<2>>& vertices, bool closed) {
  std::vector<qcVector<2>> result;
  result.reserve(vertices.size());
  std::unique_copy(vertices.begin(), vertices.end(), std::back_inserter(result));
  while (closed && result.size() > 1 && result.back() == result.front()) result.pop_back();
  return result;
}

// The middle of the left side of a corner: between the way out, to `next`, and the way back, to `previous`.
qcVector<2> leftOfCorner(const qcVector<2>& previous, const qcVector<2>& p, const qcVector<2>& next) {
  const qcVector<2> in = qc_shapes::normalized(p - previous), out = qc_shapes::normalized(next - p);
  if (in * out >= 0) return (in + out).perpendicular();
  // A sharp turn. In one that leads straight back, everything is on the left.
  const int side = qc_shapes::orientation(previous, p, next);
  return side == 0 ? -out : side * (out - in);
}

// A direction that leads from p, where it lies on a chain of distinct corners, to the left side of the first piece or
// corner that it lies on; null where it lies on none.
qcVector<2> leftSide(const std::vector<qcVector<2>>& corners, bool closed, const qcVector<2>& p) {
  const std::size_t n = corners.size();
  for (std::size_t i = 0; i < n && n > 1; ++i) {
    const bool first = i == 0 && !closed, last = i + 1 == n && !closed;
    const qcVector<2>&previous = corners[(i + n - 1) % n], &next = corners[(i + 1) % n];
    if (corners[i] == p) {
      if (first) return (next - p).perpendicular();
      if (last) return (p - previous).perpendicular();
      return leftOfCorner(previous, p, next);
    }
    if (!last && qc_shapes::isOnSegment(corners[i], next, p)) return (next - corners[i]).perpendicular();
  }
  return {};
}

// How often a closed chain of distinct corners winds around what lies beside one of its own points, see sideOf.
long windingNumberBeside(const std::vector<qcVector<2>>& corners, const qcVector<2>& p) {
  const qcVector<2> aside = leftSide(corners, true, p);
  const bool falls = aside.y() != 0 ? aside.y() < 0 : aside.x() < 0;
  const auto isAbove = [&](const qcVector<2>& v) { return v.y() != p.y() ? v.y() > p.y() : falls; };
  long number = 0;
  for (std::size_t i = 0; i < corners.size(); ++i) {
    const qcVector<2>&a = corners[i], &b = corners[(i + 1) % corners.size()];
    if (isAbove(a) == isAbove(b)) continue;
    const int side = qc_shapes::orientation(a, b, p), sideways = side != 0 ? side : qc_shapes::sideOf(b - a, aside);
    if (isAbove(b) == (sideways > 0)) number += sideways;
  }
  return number;
}

// How often a closed chain winds around p.
long windingNumber(const std::vector<qcVector<2>>& vertices, const qcVector<2>& p) {
  static const qc_shapes::WindingCounter fastest = qc_shapes::windingCounters().back();
  if (vertices.empty()) return 0;
  const qc_shapes::Winding winding = fastest(vertices.data(), vertices.size(), p);
  return winding.touches ? windingNumberBeside(distinct(vertices, true), p) : winding.number;
}

}  // namespace

qcPersistent* qcPolyline::make() { return new qcPolyline; }

void qcPolyline::isClosed(bool closed) {
  mutating();
  closed_ = closed;
}

void qcPolyline::vertices(const std::vector<qcVector<2>>& vertices) {
  mutating();
  std::vector<qcVector<2>> copy = vertices;
  vertices_.swap(copy);
}

const qcVector<2>& qcPolyline::vertex(long index) const {
  checkIndex(index, numVertices());
  return vertices_[static_cast<std::size_t>(index)];
}

void qcPolyline::vertex(long index, const qcVector<2>& p) {
  checkIndex(index, numVertices());
  mutating();
  vertices_[static_cast<std::size_t>(index)] = p;
}

void qcPolyline::addVertex(const qcVector<2>& p) {
  mutating();
  vertices_.push_back(p);
}

void qcPolyline::addVertices(const std::vector<qcVector<2>>& points) { insertVertices(numVertices(), points); }

void qcPolyline::insertVertex(long index, const qcVector<2>& p) {
  checkIndex(index, numVertices() + 1);
  mutating();
  vertices_.insert(vertices_.begin() + index, qcVector<2>(p));
}

void qcPolyline::insertVertices(long index, const std::vector<qcVector<2>>& points) {
  checkIndex(index, numVertices() + 1);
  mutating();
  // They may be our own. NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
  const std::vector<qcVector<2>> copy = points;
  vertices_.insert(vertices_.begin() + index, copy.begin(), copy.end());
}

void qcPolyline::removeVertex(long index) {
  checkIndex(index, numVertices());
  mutating();
  vertices_.erase(vertices_.begin() + index);
}

void qcPolyline::reserve(long n) const {
  if (n > 0) vertices_.reserve(static_cast<std::size_t>(n));
}

qcRadian qcPolyline::generalWindingAngle(const qcVector<2>& p) const {
  if (closed_) return qcRadian(static_cast<double>(windingNumber(vertices_, p)) * qcRadian::turn);
  const std::vector<qcVector<2>> corners = distinct(vertices_, false);
  const qcVector<2> aside = leftSide(corners, false, p);
  double sum = 0;
  for (std::size_t i = 1; i < corners.size(); ++i) {
    sum += qc_shapes::angleSubtended(corners[i - 1], corners[i], p, aside);
  }
  return qcRadian(sum);
}

qcPolyline qcPolyline::map(const qcXform<2>& xform) const {
  qcPolyline mapped = *this;
  qfMapPoints(xform, vertices_.data(), mapped.vertices_.data(), vertices_.size());
  return mapped;
}

bool qcPolyline::hasTangent() const {
  return std::any_of(vertices_.begin(), vertices_.end(), [this](const auto& p) { return p != vertices_.front(); });
}

qcRect qcPolyline::boundingBox() const {
  checkNotEmpty();
  qcVector<2> low = vertices_.front(), high = low;
  for (const qcVector<2>& p : vertices_) {
    low = {std::min(low.x(), p.x()), std::min(low.y(), p.y())};
    high = {std::max(high.x(), p.x()), std::max(high.y(), p.y())};
  }
  return qcRect::fromCorners(low, high);
}

qcVector<2> qcPolyline::nearestPoint(const qcVector<2>& p) const {
  checkNotEmpty();
  return qc_shapes::nearestOnChain(vertices_.data(), numPieces(), numVertices(), p).point;
}

double qcPolyline::perimeter() const {
  double sum = 0;
  for (long piece = 0; piece < numPieces(); ++piece) {
    sum += qc_shapes::segmentLength(pieceStart(piece), pieceEnd(piece));
  }
  return sum;
}

qcPerimPos qcPolyline::nearestPerimPos(const qcShapeInfo& info, const qcVector<2>& p) const {
  checkNotEmpty();
  const auto nearest = qc_shapes::nearestOnChain(vertices_.data(), numPieces(), numVertices(), p);
  const double length = qc_shapes::segmentLength(pieceStart(nearest.piece), pieceEnd(nearest.piece));
  return normalized(info, {static_cast<std::int32_t>(nearest.piece), nearest.fraction * length});
}

qcVector<2> qcPolyline::startPoint() const {
  checkOpenContour();
  return vertices_.front();
}

qcVector<2> qcPolyline::endPoint() const {
  checkOpenContour();
  return vertices_.back();
}

qcRadian qcPolyline::startAngle() const {
  checkOpenContour();
  return tangentNear(0);
}

qcRadian qcPolyline::endAngle() const {
  checkOpenContour();
  return tangentNear(numPieces() - 1);
}

qcRadian qcPolyline::tangentRotation() const {
  checkOpenContour();
  const std::vector<qcVector<2>> corners = distinct(vertices_, false);
  qcRadian sum;
  for (std::size_t i = 2; i < corners.size(); ++i) {
    const qcRadian before = qc_shapes::segmentAngle(corners[i - 2], corners[i - 1]);
    sum += (qc_shapes::segmentAngle(corners[i - 1], corners[i]) - before).signedNorm();
  }
  return sum;
}

qcRadian qcPolyline::windingAngle(const qcVector<2>& p) const {
  checkOpenContour();
  return generalWindingAngle(p);
}

bool qcPolyline::isRightHanded() const {
  if (!isRegion()) throw qcShapesError::NotRegion();
  return areaMoment0() >= 0;
}

bool qcPolyline::within(const qcVector<2>& p) const {
  if (!closed_ || vertices_.empty()) throw qcShapesError::NotRegion();
  return windingNumber(vertices_, p) != 0;
}

qcPtrHandle<qcShape> qcPolyline::reverse() const {
  qcPtrHandle<qcPolyline> reversed(new qcPolyline(*this));
  std::vector<qcVector<2>>& vertices = reversed->vertices_;
  std::reverse(vertices.begin() + (closed_ && !vertices.empty() ? 1 : 0), vertices.end());
  return reversed;
}

qcPtrHandle<qcShape> qcPolyline::subShape(const qcShapeInfo& info, const std::pair<qcPerimPos, double>& piece) const {
  checkNotEmpty();
  if (!(piece.second >= 0)) throw qcShapesError::BadParams();
  qcPerimPos start = normalized(info, piece.first);
  // What rounding leaves of a piece has no direction: it is not worth a vertex.
  const double least = kRounding * info.perimeter();
  const bool isAtEnd = info.pieceLength(start.index()) - start.distance() <= least;
  if (isAtEnd && (closed_ || start.index() + 1 < numPieces())) {
    start = qcPerimPos(static_cast<std::int32_t>((start.index() + 1) % numPieces()), 0);
  }
  qcPtrHandle<qcPolyline> part(new qcPolyline);
  std::vector<qcVector<2>>& vertices = part->vertices_;
  vertices.push_back(pointOnPiece(start));
  const bool wholeRound = closed_ && piece.second >= info.perimeter();
  double left = piece.second, from = start.distance();
  long index = start.index();
  for (long count = numPieces(); count > 0; --count) {
    if (!wholeRound && left <= (vertices.size() > 1 ? least : 0)) return part;
    const double rest = info.pieceLength(index) - from;
    if (left < rest - least && !wholeRound) {
      vertices.push_back(pointOnPiece({static_cast<std::int32_t>(index), from + left}));
      return part;
    }
    if (rest > 0) vertices.push_back(pieceEnd(index));
    left -= rest;
    from = 0;
    if (++index == numPieces()) {
      if (!closed_) return part;
      index = 0;
    }
  }
  // Round to the piece on which it started.
  if (wholeRound) {
    if (start.distance() > least) {
      vertices.push_back(vertices.front());
    } else {
      vertices.back() = vertices.front();
    }
  } else if (left > least) {
    vertices.push_back(pointOnPiece({start.index(), std::min(left, start.distance())}));
  }
  return part;
}

void qcPolyline::sample(const qcSampleParams& params, qcSampleResult& result) const {
  if (params.uniformMode()) throw qcShapesError::BadParams();
  qc_shapes::SampleWriter writer(params, result);
  if (isEmpty()) return writer.commit();
  if (!params.enclosingInfo_()) writer.numberOwnPieces();
  // Where corners keep one point, and nothing is asked for but points, each piece leaves its end to the next one. (A
  // piece without length at the start keeps its point beside that of the next.)
  const bool pointsAlone = !params.computeTangents() && !params.recordPositions_();
  if (pointsAlone && !params.duplicateCorners() && pieceStart(0) != pieceEnd(0)) {
    qc_shapes::sampleJoined(writer, vertices_, closed_);
    return writer.commit();
  }
  // Pieces without length and tangent are left out where tangents are asked for, and all but the first of a polyline
  // that is a single point.
  const bool leaveOut = params.computeTangents() || !hasTangent();
  for (long piece = 0; piece < numPieces(); ++piece) {
    const bool needed = !leaveOut || pieceStart(piece) != pieceEnd(piece) || (piece == 0 && !hasTangent());
    if (needed) {
      qc_shapes::sampleSegment(writer, pieceStart(piece), pieceEnd(piece));
    } else {
      writer.takePiece();
    }
  }
  qfMergeSubchains(params, writer.firstChain(), closed_, result);
  writer.commit();
}

bool qcPolyline::equal_(const qcShape& that) const { return equalAs(*this, that); }

void qcPolyline::perimPointAndTangent_(const qcShapeInfo& info, const qcPerimPos& position, qcVector<2>& point,
                                       qcRadian* tangent) const {
  checkNotEmpty();
  const qcPerimPos place = normalized(info, position);
  if (tangent) *tangent = tangentNear(place.index());
  point = pointOnPiece(place);
}

void qcPolyline::pieceLengths_(std::vector<double>& lengths) const {
  for (long piece = 0; piece < numPieces(); ++piece) {
    lengths.push_back(qc_shapes::segmentLength(pieceStart(piece), pieceEnd(piece)));
  }
}

long qcPolyline::numPieces() const {
  const long n = numVertices();
  return closed_ || n < 2 ? n : n - 1;
}

const qcVector<2>& qcPolyline::pieceStart(long piece) const { return vertices_[static_cast<std::size_t>(piece)]; }

const qcVector<2>& qcPolyline::pieceEnd(long piece) const {
  return vertices_[(static_cast<std::size_t>(piece) + 1) % vertices_.size()];
}

void qcPolyline::checkIndex(long index, long limit) const {
  if (index < 0 || index >= limit) throw qcShapesError::BadIndex();
}

void qcPolyline::checkNotEmpty() const {
  if (isEmpty()) throw qcShapesError::EmptyShape();
}

void qcPolyline::checkOpenContour() const {
  if (!isOpenContour()) throw qcShapesError::NotOpenContour();
}

// The position on the piece that it really lies on; the information must be that of this polyline.
qcPerimPos qcPolyline::normalized(const qcShapeInfo& info, const qcPerimPos& position) const {
  if (info.numPieces() != numPieces()) throw qcShapesError::BadParams();
  return info.perimPos(position, 0);
}

qcVector<2> qcPolyline::pointOnPiece(const qcPerimPos& position) const {
  return qc_shapes::pointAtDistance(pieceStart(position.index()), pieceEnd(position.index()), position.distance());
}

// The direction of a piece; of the nearest later one, or else earlier one, when it has no length.
qcRadian qcPolyline::tangentNear(long piece) const {
  const long n = numPieces();
  const auto hasLength = [this](long i) { return pieceStart(i) != pieceEnd(i); };
  const auto angle = [this](long i) { return qc_shapes::segmentAngle(pieceStart(i), pieceEnd(i)); };
  for (long i = piece; i < n; ++i) {
    if (hasLength(i)) return angle(i);
  }
  for (long i = piece - 1; i >= 0; --i) {
    if (hasLength(i)) return angle(i);
  }
  throw qcShapesError::NoTangent();
}

void qcPolyline::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shapes", 7586);
  qcShape::dispatchSerialize(archive);
  if (archive.isStoring()) {
    archive || vertices_ || closed_;
    return;
  }
  qcPolyline loaded;
  archive || loaded.vertices_ || loaded.closed_;
  vertices_.swap(loaded.vertices_);
  closed_ = loaded.closed_;
}
