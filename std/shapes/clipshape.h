// Clipping of shapes by polygons.
#pragma once

#include "vnxstd/shapes/clipinfo.h"
#include "vnxstd/shapes/polyline.h"

namespace qc_shapes {

/// What qcShape::clip promises, for any shape that can be decomposed, and for trees of shapes.
qcPtrHandle<qcShape> clipShape(const qcShape& shape, const qcPolyline& polygon, qcClipInfo& info);

}  // namespace qc_shapes
