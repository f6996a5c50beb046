// How well shapes know where they are.
#pragma once

#include "vnxstd/shapes/shape.h"

namespace qc_shapes {

/// How far the ends of an open contour may be off where they should be. Those of straight lines are given.
double roundingOfEnds(const qcShape& contour);

}  // namespace qc_shapes
