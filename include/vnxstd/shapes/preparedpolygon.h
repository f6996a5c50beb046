// Polygons made ready for many questions about points.
#pragma once

#include <cstddef>
#include <vector>

#include "vnxstd/export.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/shapes/polyline.h"

/// A polygon, and a grid over its bounding box of which each cell knows its pieces and how often the polygon winds
/// around one of its points: what is inside is then settled near the point alone, with the same answers as those of
/// qcPolyline::within.
///
/// Making it takes time and memory in proportion to the number of vertices, whatever their arrangement: some 300 bytes
/// a vertex, and as long as some 700 points take without it. It never changes once made, and may be asked from several
/// threads.
class VNXSTD_EXPORT qcPreparedPolygon {
 public:
  /// Keeps a copy of the polygon. Throws qcShapesError::NotRegion when it is not closed or has no vertices.
  explicit qcPreparedPolygon(const qcPolyline& polygon);

  const qcPolyline& polygon() const { return polygon_; }

  /// The same as polygon().within(p), for every point. Takes constant time where the polygon's pieces are spread over
  /// its box, and time in proportion to their number, at the worst, where all of them cross one another or crowd in one
  /// place; for points on the boundary as much as the polygon itself.
  bool within(const qcVector<2>& p) const;

 private:
  /// The columns, or the rows, of the grid.
  struct Steps {
    double start = 0, end = 0, width = 0, perUnit = 0;
    std::size_t count = 1;

    std::size_t of(double x) const;
    double reference(std::size_t index) const;
  };

  /// A piece that enters a cell, from `a` to `b` in the direction that has the cell's reference point on its right.
  struct Piece {
    qcVector<2> a, b;
    int turns;  // by which the winding number is larger on the left
  };

  /// Its pieces begin at `first`, and end where the next cell's begin.
  struct Cell {
    std::size_t first = 0;
    long number = 0;  // the winding number around the reference point
    bool doubtful = false;
  };

  static Steps stepsOver(double low, double high, double travelled, double pieces);
  qcVector<2> reference(std::size_t column, std::size_t row) const { return {x_.reference(column), y_.reference(row)}; }
  template <class Visit>
  void forEachCell(const qcVector<2>& a, const qcVector<2>& b, const Visit& visit) const;
  void listPieces();
  void countTurns();

  qcPolyline polygon_;
  Steps x_, y_;
  std::vector<Cell> cells_;  // row by row, and one behind the last; empty when there is no grid
  std::vector<Piece> pieces_;
};
