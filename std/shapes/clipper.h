// Clipping of boundaries: which parts of a shape's and of a polygon's edges bound what is inside both.
#pragma once

#include <vector>

#include "std/shapes/clipedges.h"
#include "vnxstd/shapes/shape.h"

namespace qc_shapes {

/// A part of an edge: of the shape's edge of that number, or of the polygon's edge number -1 - edge.
struct ClipBit : ClipEdge {
  std::int32_t edge = 0;
};

/// Bits that follow each other.
using ClipPath = std::vector<ClipBit>;

struct ClipPaths {
  std::vector<ClipPath> paths;
  qcShape::ClipResult result = qcShape::ClipResult::outside;
};

/// The boundary of what is inside both a region and a polygon that winds to the left: closed paths whose winding
/// numbers, added up, are the product of those of both. Without paths when the result is `inside` or `outside`.
///
/// The boundary of such a product is that of the one, as often as the other winds around it, and that of the other, as
/// often as the one winds around that; at every crossing as many of these parts start as end, so that they can be
/// joined, whatever rounding does to the order of crossings. Where the boundaries only touched, parts that run to and
/// fro cancel. (The parts by Weiler and Atherton's method, "Hidden surface removal using polygon area sorting", 1977.)
ClipPaths clipRegion(const ClipOutline& shape, const ClipOutline& polygon);

/// The parts of open contours that are inside a polygon or run along its inner side, in their order.
ClipPaths clipContours(const ClipOutline& shape, const ClipOutline& polygon);

}  // namespace qc_shapes
