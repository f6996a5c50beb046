// How often a closed chain winds around a point.
#pragma once

#include <cstddef>
#include <span>

#include "vnxstd/export.h"
#include "vnxstd/math/vector.h"

namespace qc_shapes {

/// The number of full turns, and whether the point lies on the chain; the number then means nothing.
struct Winding {
  long number = 0;
  bool touches = false;
};

/// The winding number of the closed chain through `count` vertices, of which there is at least one: the pieces that
/// pass upwards on the right of p less those that pass downwards there, by signs that rounding does not touch (K.
/// Hormann and A. Agathos, "The point in polygon problem for arbitrary polygons", 2001).
using WindingCounter = Winding (*)(const qcVector<2>* vertices, std::size_t count, const qcVector<2>& p);

/// One per instruction-set level that the processor has, the plain one first and the fastest last; all give the same.
VNXSTD_EXPORT std::span<const WindingCounter> windingCounters() noexcept;

}  // namespace qc_shapes
