#include "vnxstd/shapes/shapeinfo.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

qcShapeInfo::qcShapeInfo() : starts_(1, 0.0) {}

qcShapeInfo::qcShapeInfo(const qcShape& shape) : qcShapeInfo() {
  append_(0, shape);
  closed_ = shape.isRegion();
}

double qcShapeInfo::pieceLength(long piece) const {
  checkPiece(piece);
  return lengths_[static_cast<std::size_t>(piece)];
}

double qcShapeInfo::startOf(long piece) const {
  checkPiece(piece);
  return starts_[static_cast<std::size_t>(piece)];
}

qcPerimPos qcShapeInfo::perimPos(double distance) const {
  if (numPieces() == 0) throw qcShapesError::EmptyShape();
  const double total = perimeter();
  if (closed_ && total > 0) {
    distance = std::fmod(distance, total);
    if (distance < 0) distance += total;
  }
  if (std::isnan(distance)) throw qcShapesError::BadParams();
  distance = std::max(distance, 0.0);
  if (distance >= total) {
    const auto last = static_cast<std::int32_t>(numPieces() - 1);
    return closed_ ? qcPerimPos() : qcPerimPos(last, pieceLength(last));
  }
  // The last piece that starts at or before the distance; pieces of length 0 give way to the one behind them.
  const auto above = std::upper_bound(starts_.begin(), starts_.end(), distance);
  const auto piece = static_cast<std::size_t>(above - starts_.begin()) - 1;
  return {static_cast<std::int32_t>(piece), std::min(distance - starts_[piece], lengths_[piece])};
}

qcPerimPos qcShapeInfo::perimPos(const qcPerimPos& from, double distance) const {
  if (numPieces() == 0) throw qcShapesError::EmptyShape();
  const double length = pieceLength(from.index());
  // On the same piece no digits are lost to the distance of the piece from the start.
  const double moved = from.distance() + distance;
  if (moved >= 0 && moved < length) return {from.index(), moved};
  return perimPos(startOf(from.index()) + moved);
}

double qcShapeInfo::distanceAlong(const qcPerimPos& position) const {
  if (numPieces() == 0) throw qcShapesError::EmptyShape();
  if (std::isnan(position.distance())) throw qcShapesError::BadParams();
  return startOf(position.index()) + position.distance();
}

qcShapeInfo qcShapeInfo::reverse_() const {
  qcShapeInfo reversed = *this;
  reversed.reverseRecurs_(0, numPieces());
  return reversed;
}

void qcShapeInfo::append_(long first, const qcShape& shape) {
  if (first < 0 || first > numPieces()) throw qcShapesError::BadIndex();
  if (shape.isEmpty()) return;
  std::vector<double> added;
  shape.pieceLengths_(added);
  std::vector<double> all = lengths_;
  all.insert(all.begin() + first, added.begin(), added.end());
  assign(std::move(all));
}

void qcShapeInfo::flatten_(qcShapeInfo& contour, bool closed) const {
  contour = *this;
  contour.closed_ = closed;
}

void qcShapeInfo::extract_(long piece, qcShapeInfo& alone) const {
  const double length = pieceLength(piece);
  alone.assign({length});
  alone.closed_ = false;
}

void qcShapeInfo::mapShape_(double factor, qcShapeInfo& mapped) const {
  if (!(factor >= 0)) throw qcShapesError::BadParams();
  std::vector<double> scaled = lengths_;
  for (double& length : scaled) length *= factor;
  mapped.assign(std::move(scaled));
  mapped.closed_ = closed_;
}

void qcShapeInfo::reverseRecurs_(long first, long last) {
  if (first < 0 || first > last || last > numPieces()) throw qcShapesError::BadIndex();
  std::vector<double> all = lengths_;
  std::reverse(all.begin() + first, all.begin() + last);
  assign(std::move(all));
}

void qcShapeInfo::assign(std::vector<double> lengths) {
  if (lengths.size() >= INT32_MAX) throw qcShapesError::BadIndex();  // positions could not number the pieces
  std::vector<double> starts(1, 0.0);
  starts.reserve(lengths.size() + 1);
  for (double length : lengths) {
    if (!(length >= 0)) throw qcShapesError::InfiniteExtent();
    starts.push_back(starts.back() + length);
  }
  if (!std::isfinite(starts.back())) throw qcShapesError::InfiniteExtent();
  lengths_ = std::move(lengths);
  starts_ = std::move(starts);
}

void qcShapeInfo::checkPiece(long piece) const {
  if (piece < 0 || piece >= numPieces()) throw qcShapesError::BadIndex();
}

void qfConvertPerimPositions(const qcShapeInfo& from, long fromPiece, const qcShapeInfo& to, long toPiece,
                             std::vector<qcPerimPos>& positions) {
  // From the start of the one shape to where the same point lies on the other.
  const double shift = to.startOf(toPiece) - from.startOf(fromPiece);
  std::vector<qcPerimPos> converted;
  converted.reserve(positions.size());
  for (const qcPerimPos& position : positions) {
    converted.push_back(to.perimPos(from.distanceAlong(position) + shift));
  }
  positions = std::move(converted);
}
