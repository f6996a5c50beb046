// Shapes as chains of points, to be drawn.
#pragma once

#include <vector>

#include <vnxstd/math/vector.h>
#include <vnxstd/shapes/sampling.h>

using Chain = std::vector<qcVector<2>>;

/// The chains of a sampled shape. One whose ends meet repeats its first point.
std::vector<Chain> chainsOf(const qcShape& shape, const qcShape::qcSampleParams& params);

/// The same of a finite shape, no further from it than `tolerance` or 1e-8 of its size, whichever is larger.
std::vector<Chain> chainsOf(const qcShape& shape, double tolerance);
