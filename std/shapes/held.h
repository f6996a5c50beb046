// Shapes within shapes.
#pragma once

#include "vnxstd/shapes/shape.h"

namespace qc_shapes {

/// Whether a shape is another one or holds it, directly or through others. One that no handle refers to is held by
/// none.
bool holds(const qcShape& shape, const qcShape& sought);

}  // namespace qc_shapes
