#include "vnxstd/shapes/preparedpolygon.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include "std/shapes/exact.h"

namespace {

using V = qcVector<2>;

// Where in its cell a reference point lies: seldom in line with vertices, which come in round numbers.
constexpr double kReference = 0.41421356;
// How much wider than it is a cell is taken to be, on each side: far more than rounding amounts to.
constexpr double kMargin = 1.0 / 1024;
// The narrowest cell, in units of the largest coordinate.
constexpr double kNarrowest = 1.0 / (1 << 30);

template <class Visit>
void forEachPiece(const std::vector<V>& vertices, const Visit& visit) {
  const V* a = &vertices.back();
  for (const V& b : vertices) {
    if (*a != b) visit(*a, b);
    a = &b;
  }
}

}  // namespace

// The cells that a piece enters are as many as the lines of the grid that it crosses, and one. Two lines per piece and
// direction keep that in proportion; on long pieces they leave the cells large, on short ones small.
qcPreparedPolygon::Steps qcPreparedPolygon::stepsOver(double low, double high, double travelled, double pieces) {
  Steps steps;
  steps.start = low;
  steps.end = high;
  steps.width = high - low;
  const double largest = std::max(std::fabs(low), std::fabs(high));
  const double most = std::min(2 * pieces * steps.width / travelled, steps.width / (kNarrowest * largest));
  if (!(most >= 2) || !std::isfinite(most / steps.width)) return steps;
  steps.count = static_cast<std::size_t>(std::min(most, pieces));
  return steps;
}

// Of a coordinate in the box, or close to it. Never smaller for a larger one, whatever is rounded.
std::size_t qcPreparedPolygon::Steps::of(double x) const {
  const double index = (x - start) * perUnit;
  return index > 0 ? std::min(static_cast<std::size_t>(index), count - 1) : 0;
}

double qcPreparedPolygon::Steps::reference(std::size_t index) const {
  return start + (static_cast<double>(index) + kReference) * width;
}

qcPreparedPolygon::qcPreparedPolygon(const qcPolyline& polygon) : polygon_(polygon) {
  if (!polygon_.isRegion()) throw qcShapesError::NotRegion();
  V low = polygon_.vertices().front(), high = low;
  double across = 0, along = 0;
  forEachPiece(polygon_.vertices(), [&](const V& a, const V& b) {
    low = {std::min(low.x(), b.x()), std::min(low.y(), b.y())};
    high = {std::max(high.x(), b.x()), std::max(high.y(), b.y())};
    across += std::fabs(b.x() - a.x());
    along += std::fabs(b.y() - a.y());
  });
  if (!std::isfinite(across) || !std::isfinite(along)) return;  // the polygon answers
  const auto pieces = static_cast<double>(polygon_.numVertices());
  x_ = stepsOver(low.x(), high.x(), across, pieces);
  y_ = stepsOver(low.y(), high.y(), along, pieces);
  // Not more cells than four to a piece.
  const double tooMany = static_cast<double>(x_.count) * static_cast<double>(y_.count) / (4 * pieces);
  for (Steps* steps : {&x_, &y_}) {
    if (tooMany > 1) {
      steps->count =
          std::max<std::size_t>(1, static_cast<std::size_t>(static_cast<double>(steps->count) / std::sqrt(tooMany)));
    }
    const auto count = static_cast<double>(steps->count);
    if (steps->count > 1) steps->perUnit = count / steps->width;
    steps->width /= count;
  }
  cells_.resize(x_.count * y_.count + 1);
  listPieces();
  countTurns();
}

// Visits the cells that a piece may enter, by their indices: in every row that it reaches, the columns along the part
// that lies there.
template <class Visit>
void qcPreparedPolygon::forEachCell(const V& a, const V& b, const Visit& visit) const {
  const auto [left, right] = std::minmax({a.x(), b.x()});
  const auto [low, high] = std::minmax({a.y(), b.y()});
  const double marginX = kMargin * x_.width, marginY = kMargin * y_.width;
  const std::size_t lastRow = y_.of(high + marginY);
  for (std::size_t row = y_.of(low - marginY); row <= lastRow; ++row) {
    double from = left, to = right;
    if (y_.count > 1 && a.y() != b.y()) {
      const double bottom = y_.start + static_cast<double>(row) * y_.width - marginY;
      const auto at = [&](double y) {
        return a.x() + std::clamp((y - a.y()) / (b.y() - a.y()), 0.0, 1.0) * (b.x() - a.x());
      };
      std::tie(from, to) = std::minmax({at(bottom), at(bottom + y_.width + 2 * marginY)});
    }
    const std::size_t lastColumn = x_.of(to + marginX);
    for (std::size_t column = x_.of(from - marginX); column <= lastColumn; ++column) visit(column, row);
  }
}

void qcPreparedPolygon::listPieces() {
  const std::vector<V>& vertices = polygon_.vertices();
  // Counted into the cell behind, so that sums are where the pieces begin.
  forEachPiece(vertices, [this](const V& a, const V& b) {
    forEachCell(a, b, [this](std::size_t column, std::size_t row) { ++cells_[row * x_.count + column + 1].first; });
  });
  for (std::size_t i = 1; i < cells_.size(); ++i) cells_[i].first += cells_[i - 1].first;
  pieces_.resize(cells_.back().first);
  std::vector<std::size_t> next;
  next.reserve(cells_.size());
  for (const Cell& cell : cells_) next.push_back(cell.first);
  forEachPiece(vertices, [&](const V& a, const V& b) {
    forEachCell(a, b, [&](std::size_t column, std::size_t row) {
      const std::size_t cell = row * x_.count + column;
      const int side = qc_shapes::orientation(a, b, reference(column, row));
      pieces_[next[cell]++] = side < 0 ? Piece{a, b, 1} : Piece{b, a, -1};
      if (side == 0) cells_[cell].doubtful = true;
    });
  });
}

// A ray to the right from a reference point meets the pieces that pass its height behind it.
void qcPreparedPolygon::countTurns() {
  const auto pass = [this](std::size_t row, const V& a, const V& b) {
    const double height = y_.reference(row);
    const bool fromAbove = a.y() > height, toAbove = b.y() > height;
    if (fromAbove == toAbove) return;
    // Of the columns in whose reference points it is on the right, the last: what is computed, then made exact.
    const auto isOnRight = [&](std::size_t column) {
      return (qc_shapes::orientation(a, b, reference(column, row)) > 0) == toAbove;
    };
    std::size_t columns = x_.of(a.x() + (height - a.y()) / (b.y() - a.y()) * (b.x() - a.x()));
    while (columns > 0 && !isOnRight(columns - 1)) --columns;
    while (columns < x_.count && isOnRight(columns)) ++columns;
    if (columns > 0) cells_[row * x_.count + columns - 1].number += toAbove ? 1 : -1;
  };
  forEachPiece(polygon_.vertices(), [&](const V& a, const V& b) {
    const auto [low, high] = std::minmax({a.y(), b.y()});
    const std::size_t last = y_.of(high);
    for (std::size_t row = y_.of(low); row <= last; ++row) pass(row, a, b);
  });
  for (std::size_t row = 0; row < y_.count; ++row) {
    for (std::size_t column = x_.count - 1; column-- > 0;) {
      cells_[row * x_.count + column].number += cells_[row * x_.count + column + 1].number;
    }
  }
}

bool qcPreparedPolygon::within(const V& p) const {
  if (cells_.empty()) return polygon_.within(p);
  if (!(x_.start <= p.x() && p.x() <= x_.end && y_.start <= p.y() && p.y() <= y_.end)) return false;
  const std::size_t column = x_.of(p.x()), row = y_.of(p.y());
  const Cell* cell = &cells_[row * x_.count + column];
  if (cell->doubtful) return polygon_.within(p);
  long number = cell->number;
  const Piece* end = pieces_.data() + cell[1].first;
  for (const Piece* piece = pieces_.data() + cell->first; piece != end; ++piece) {
    const int side = qc_shapes::orientation(piece->a, piece->b, p);
    if (side < 0) continue;
    // The piece may part the point from the reference point.
    const V from = reference(column, row);
    const int a = qc_shapes::orientation(from, p, piece->a), b = qc_shapes::orientation(from, p, piece->b);
    if (side == 0 || a == 0 || b == 0) return polygon_.within(p);
    if (a != b) number += piece->turns;
  }
  return number != 0;
}
