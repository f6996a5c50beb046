// What regions enclose, and whether one lies inside another.
#pragma once

#include "vnxstd/shapes/shape.h"

namespace qc_shapes {

/// A rectangle of negative width or height: it has an outline, but no point is within.
bool isVoid(const qcShape& boundary);

/// Whether the boundary of one region lies inside that of another, touching it or not, but for reaching across by
/// `tolerance` times the largest coordinate of the outer one: see qcRegionTree. Polygons take time in proportion to the
/// product of their numbers of edges, little for pairs of edges whose boxes are apart; curved boundaries are looked at
/// the more closely, down to a thousandth of the size, the nearer they come to each other.
bool liesInside(const qcShape& innerBoundary, const qcShape& outerBoundary, double tolerance);

}  // namespace qc_shapes
