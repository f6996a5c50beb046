// Scan conversion: which pels of a window lie inside boundaries, row by row.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "vnxstd/math/vector.h"
#include "vnxstd/pelbuf/rows.h"
#include "vnxstd/pelspan/pelspan.h"
#include "vnxstd/shapes/rasterize.h"

namespace qc_shapes {

/// The line through two points, looked at along rows: which of a row's evenly spaced places lie to the right of it.
/// What is computed in doubles decides wherever rounding cannot matter, exact signs where it could.
class RowCrossing {
 public:
  RowCrossing() = default;
  /// `a` must not have the larger y; `reach` is the largest magnitude of the places that will be asked for.
  RowCrossing(const qcVector<2>& a, const qcVector<2>& b, double reach);

  const qcVector<2>& a() const { return a_; }
  const qcVector<2>& b() const { return b_; }
  /// Change of x per row; means nothing when error() is infinite.
  double slope() const { return slope_; }
  /// What rounding can do to x(y) - base.
  double error() const { return error_; }
  double x(double y) const { return a_.x() + (y - a_.y()) * slope_; }
  /// The first i of 0 to `limit` for which (base + i, y), with y in the range of the edge, is not to the left of it;
  /// or, `beyond`, is to the right of it; else `limit`.
  std::int64_t first(double y, double base, std::int64_t limit, bool beyond) const;

 private:
  qcVector<2> a_, b_;
  double slope_ = 0;
  double error_ = 0;
};

/// Collects the boundaries of a region and fills what they enclose. A point is inside one boundary when the polygons of
/// that boundary wind around it, in sum. A boundary can lie in another one: then the region of the outer one is what is
/// inside it but not in the regions of those in it, which are holes, and theirs islands.
///
/// Whether a pel centre is to the right of an edge, or exactly on it, is decided without rounding. A centre belongs to
/// the side of growing x then, and for horizontal edges to that of growing y: of regions that share an edge, in
/// whichever direction it runs, exactly one owns the centres on it.
class RasterScan {
 public:
  /// In the row at y an ellipse is middle + (y - center.y) * slope +- width * sqrt(1 - ((y - center.y) *
  /// perHeight)^2).
  struct Ellipse {
    qcVector<2> center;
    double slope, perHeight, width;

    /// In a row at a distance from the centre.
    double halfWidth(double distance) const {
      const double part = distance * perHeight;
      return width * std::sqrt(std::max(0.0, (1 - part) * (1 + part)));
    }
  };

  RasterScan(const qcPelRect& window, qcRasterizationDefs::BoundaryFillMode mode);

  /// What is added from here on is another boundary, inside the one of this number or, for -1, inside none. Returns its
  /// number.
  std::int32_t nextBoundary(std::int32_t parent);
  /// A closed polygon. Throws qcShapesError::BadGeom when a coordinate is not finite.
  void addPolygon(const qcVector<2>* vertices, std::size_t count);
  /// The ellipse center + cos(t) * u + sin(t) * v. For boundaries by centres only. Throws as addPolygon.
  void addEllipse(const qcVector<2>& center, const qcVector<2>& u, const qcVector<2>& v);

  /// Sets the pels inside. The rows are those of the window; at least one boundary must have been started.
  void fill(const qc_PelRows<unsigned char>& rows, unsigned char value) const;

 private:
  friend class RasterRows;

  /// Rows of the window from one up to, not including, another.
  struct Rows {
    std::int64_t first, end;
    bool contains(std::int64_t row) const { return first <= row && row < end; }
  };

  /// One straight piece of a boundary, from its end of smaller y to the other; or the left (winding 1) or right half of
  /// an ellipse.
  struct Edge {
    RowCrossing line;
    std::int32_t ellipse;  // the number of an ellipse, or -1
    std::int32_t winding;
    std::int32_t boundary;
    Rows crossed;   // rows whose centres it crosses
    Rows occupied;  // rows for which it matters
  };

  std::int64_t rowFrom(double y) const;
  /// The first column whose centre in this row is not to the left of the edge; its width + 1 behind the window.
  std::int64_t column(const Edge& edge, std::int64_t row) const;
  double rowY(std::int64_t row) const { return y0_ + static_cast<double>(row); }
  bool misses(double low, double high, double first, double size) const { return high < first || low > first + size; }
  void fillEllipse(const qc_PelRows<unsigned char>& rows, unsigned char value) const;
  void addEdge(const qcVector<2>& from, const qcVector<2>& to);

  qcRasterizationDefs::BoundaryFillMode mode_;
  double x0_, y0_;
  std::int64_t width_, height_;
  std::vector<std::int32_t> parents_;  // of the boundaries
  std::vector<Edge> edges_;
  std::vector<Ellipse> ellipses_;
};

}  // namespace qc_shapes
