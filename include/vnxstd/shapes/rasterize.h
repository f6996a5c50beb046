// Drawing shapes into 8-bit images.
//
// Shapes are drawn in image coordinates, in which the pel (x, y) is the square from (x, y) to (x + 1, y + 1) with its
// centre at (x + 0.5, y + 0.5). A shape in client coordinates is mapped first: see qcShape::mapShape and
// qc_PelBuffer::imageFromClientXform.
//
// Only pels of the buffer's window are written, and what lies outside takes no time per pel. Finite coordinates of any
// magnitude are safe. Of circles, ellipses and their arcs only what comes near to the window is sampled, in parts that
// are some windows long, and a part of radius r by about 0.35 points per pel of its length / sqrt(r * tolerance); where
// a part needs more than maxPoints, SampleOverflow is thrown. Straight pieces are never sampled. The same holds for a
// contour that a transform which is not linear maps; a mapped tree of several contours is sampled as a whole.
//
// All errors are thrown before a pel is written: qcPel::UnboundWindow for an unbound buffer, qcShapesError::BadGeom for
// a coordinate that is NaN or infinite (but a shape whose bounding box misses the window is not looked at), and what
// sampling the shape throws. The functions take no lock; see qc_PelBuffer about sharing pels.
#pragma once

#include <cstdint>

#include "vnxstd/export.h"
#include "vnxstd/pelbuf/buffer.h"
#include "vnxstd/shapes/sampling.h"

class qcRegionTree;

/// How shapes are drawn.
class VNXSTD_EXPORT qcRasterizationDefs {
 public:
  /// Which pels a region sets.
  enum BoundaryFillMode : std::int32_t {
    /// Those whose centre is inside. A centre exactly on the boundary counts as inside where the region lies on the
    /// side of growing x, or, along a horizontal piece, of growing y: of two regions that share pieces of their
    /// boundaries exactly one owns each centre on them. Exact for polygons of any coordinates; for circles and
    /// ellipses, which are not sampled, up to rounding.
    center,
    /// Those of which some of the region or its boundary lies inside the square, not counting its border.
    touched,
    /// Those whose squares are inside and have no point of the boundary in them, not counting their borders.
    covered
  };

  /// What is used unless something else is asked for: tolerance 0.1, spacing 0, maxPoints 2147483647, no tangents,
  /// corners once. Made on first use; safe from several threads.
  static const qcShape::qcSampleParams& RasterizeSampParams();
};

/// Fills a region, less its holes, with their islands, to any depth: what qcRegionTree::within calls inside, but for
/// the boundary itself. Polygons as boundaries are taken as they are, other shapes are sampled, each boundary that
/// comes near to the window; where a boundary crosses itself the parts that it winds around are inside, and the lines
/// between them count as boundary. An empty region sets nothing, nor does a rectangle of negative size.
///
/// Throws qcShapesError::BadParams for another mode and for parameters of uniform mode. Takes time in proportion to the
/// number of pels set, of pieces, and of rows that each piece crosses, also where boundaries are deeply nested.
VNXSTD_EXPORT void qfRasterize(const qcRegionTree& region, const qcPelBuffer<unsigned char>& buffer,
                               unsigned char value,
                               qcRasterizationDefs::BoundaryFillMode mode = qcRasterizationDefs::center,
                               const qcShape::qcSampleParams& params = qcRasterizationDefs::RasterizeSampParams());

/// Draws the contour of a shape, of any kind, with a line of a width in pels: sets the pels whose centre is no further
/// than half the width from the samples of the contour, joined by straight pieces. Corners and the ends of open
/// contours are round, within the tolerance of the parameters, or 0.1 without one. Centres at exactly half the width
/// from a straight piece count on one side of it only, so that a horizontal line of width 1 has one row of pels
/// wherever it lies.
///
/// Width 0 draws the thinnest line that is connected through sides or corners: of every piece one pel per column where
/// it is rather horizontal, else one per row, those that hold the ends of a contour, and those that hold its corners
/// where it turns from one kind to the other.
///
/// Throws qcShapesError::BadParams for a width that is negative, infinite or NaN, and for parameters of uniform mode;
/// InfiniteExtent for infinite lines, which have to be clipped first. An empty shape draws nothing.
VNXSTD_EXPORT void qfRasterizeContour(
    const qcShape& shape, const qcPelBuffer<unsigned char>& buffer, unsigned char value, double width = 0,
    const qcShape::qcSampleParams& params = qcRasterizationDefs::RasterizeSampParams());
