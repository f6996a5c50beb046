#include "vnxstd/shapes/shapeinfo.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace {

constexpr double kRounding = 1e-12;  // of lengths, relatively

// A distance from the start as one on the boundary. The whole length stays what it is.
double onBoundary(double along, double total, bool closed) {
  if (std::isnan(along) || (closed && std::isinf(along))) throw qcShapesError::BadParams();
  if (!closed || total == 0 || (along >= 0 && along <= total)) return std::clamp(along, 0.0, total);
  const double rest = std::fmod(along, total);
  return rest < 0 ? rest + total : rest;
}

}  // namespace

qcShapeInfo::qcShapeInfo(const qcShape& shape) : qcShapeInfo() {
  append_(0, shape);
  closed_ = shape.isRegion();
}

double qcShapeInfo::pieceLength(long piece) const { return checkedPiece(piece).length; }

double qcShapeInfo::startOf(long piece) const { return checkedPiece(piece).start; }

qcPerimPos qcShapeInfo::perimPos(double distance) const {
  if (numPieces() == 0) throw qcShapesError::EmptyShape();
  const double total = perimeter();
  distance = onBoundary(distance, total, closed_);
  if (distance >= total) {
    const auto last = static_cast<std::int32_t>(numPieces() - 1);
    return closed_ ? qcPerimPos() : qcPerimPos(last, pieceLength(last));
  }
  // The last piece that starts at or before the distance; pieces of length 0 give way to the one behind them.
  const auto isBefore = [](double place, const Piece& piece) { return place < piece.start; };
  const auto piece = std::upper_bound(pieces_.begin(), pieces_.end(), distance, isBefore) - 1;
  const auto index = static_cast<std::int32_t>(piece - pieces_.begin());
  return {index, std::min(distance - piece->start, piece->length)};
}

qcPerimPos qcShapeInfo::perimPos(const qcPerimPos& from, double distance) const {
  if (numPieces() == 0) throw qcShapesError::EmptyShape();
  const Piece& piece = checkedPiece(from.index());
  // On the same piece no digits are lost to the distance of the piece from the start.
  const double moved = from.distance() + distance;
  const bool isOnPiece = from.distance() >= 0 && from.distance() <= piece.length;
  if (isOnPiece && moved >= 0 && moved < piece.length) return {from.index(), moved};
  return perimPos(distanceAlong(from) + distance);
}

double qcShapeInfo::distanceAlong(const qcPerimPos& position) const {
  if (numPieces() == 0) throw qcShapesError::EmptyShape();
  return onBoundary(startOf(position.index()) + position.distance(), perimeter(), closed_);
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
  std::vector<double> all = lengths();
  all.insert(all.begin() + first, added.begin(), added.end());
  assign(all);
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
  std::vector<double> scaled = lengths();
  for (double& length : scaled) length *= factor;
  mapped.assign(scaled);
  mapped.closed_ = closed_;
}

void qcShapeInfo::reverseRecurs_(long first, long last) {
  if (first < 0 || first > last || last > numPieces()) throw qcShapesError::BadIndex();
  std::vector<double> all = lengths();
  std::reverse(all.begin() + first, all.begin() + last);
  assign(all);
}

std::vector<double> qcShapeInfo::lengths() const {
  std::vector<double> all;
  all.reserve(pieces_.size());
  for (const Piece& piece : pieces_) all.push_back(piece.length);
  return all;
}

void qcShapeInfo::assign(const std::vector<double>& lengths) {
  if (lengths.size() >= INT32_MAX) throw qcShapesError::BadIndex();  // positions could not number the pieces
  std::vector<Piece> pieces;
  pieces.reserve(lengths.size());
  double start = 0;
  for (double length : lengths) {
    if (!(length >= 0)) throw qcShapesError::InfiniteExtent();
    pieces.push_back({start, length});
    start += length;
  }
  if (!std::isfinite(start)) throw qcShapesError::InfiniteExtent();
  pieces_ = std::move(pieces);
}

const qcShapeInfo::Piece& qcShapeInfo::checkedPiece(long piece) const {
  if (piece < 0 || piece >= numPieces()) throw qcShapesError::BadIndex();
  return pieces_[static_cast<std::size_t>(piece)];
}

void qfConvertPerimPositions(const qcShapeInfo& from, long fromPiece, const qcShapeInfo& to, long toPiece,
                             std::vector<qcPerimPos>& positions) {
  const double toStart = to.startOf(toPiece), fromStart = from.startOf(fromPiece);
  std::vector<qcPerimPos> converted;
  converted.reserve(positions.size());
  const double blur = kRounding * std::max(from.perimeter(), to.perimeter());
  const bool wraps = from.isClosed() && !to.isClosed();
  for (qcPerimPos position : positions) {
    const double most = from.pieceLength(position.index()) * (1 + kRounding);
    if (!(position.distance() >= 0 && position.distance() <= most)) position = from.perimPos(position, 0);
    const double length = from.pieceLength(position.index());
    const long ahead = position.index() - fromPiece, piece = toPiece + ahead;
    if ((ahead >= 0 || !wraps) && piece >= 0 && piece < to.numPieces()) {
      // A piece that is the same in both keeps its positions, also those on either side of a jump.
      const double apart = (to.startOf(piece) - toStart) - (from.startOf(position.index()) - fromStart);
      const double same = to.pieceLength(piece);
      if (std::fabs(apart) <= blur && std::fabs(same - length) <= blur) {
        converted.emplace_back(static_cast<std::int32_t>(piece), std::min(position.distance(), same));
        continue;
      }
    }
    double distance = from.distanceAlong(position) - fromStart;
    // What lies before the stretch on a closed boundary is reached at the end of it.
    if (wraps && distance < -kRounding * from.perimeter()) distance += from.perimeter();
    qcPerimPos place = to.perimPos(toStart + distance);
    // The start of a piece stays one, also where rounding puts it at the end of the piece before.
    if (position.distance() <= kRounding * length) {
      const qcPerimPos beyond = to.perimPos(toStart + distance + blur);
      if (beyond.distance() <= blur) place = qcPerimPos(beyond.index(), 0);
    }
    // So does the end of one: the next piece may lie elsewhere. Only a piece without length ends on another one.
    const bool isEnd = std::fabs(position.distance() - length) <= kRounding * length;
    if (isEnd && to.isClosed() && std::fabs(toStart + distance - to.perimeter()) <= blur) {
      const long last = to.numPieces() - 1;
      place = qcPerimPos(static_cast<std::int32_t>(last), to.pieceLength(last));
    }
    while (isEnd && place.index() > 0 && place.distance() <= kRounding * to.perimeter() &&
           (length > 0 || to.pieceLength(place.index()) > 0)) {
      place = qcPerimPos(place.index() - 1, to.pieceLength(place.index() - 1));
    }
    converted.push_back(place);
  }
  positions = std::move(converted);
}
