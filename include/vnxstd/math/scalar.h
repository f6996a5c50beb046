// Integer floor and ceiling, and tolerant comparison, of plain doubles.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace qc_math {

// The 32-bit integer of an already integral value; values outside the range are clamped to its ends.
// NaN becomes the most negative integer, which lies outside every window.
inline std::int32_t saturate32(double value) {
  constexpr double low = std::numeric_limits<std::int32_t>::min();
  constexpr double high = std::numeric_limits<std::int32_t>::max();
  if (!(value > low)) return std::numeric_limits<std::int32_t>::min();
  return value >= high ? std::numeric_limits<std::int32_t>::max() : static_cast<std::int32_t>(value);
}

// What a 32-bit x86 processor stores for an already integral value: the value itself, or the "integer
// indefinite" (the most negative integer) for NaN and for everything outside the range.
inline std::int32_t convert32(double value) {
  constexpr double low = std::numeric_limits<std::int32_t>::min();
  constexpr double high = std::numeric_limits<std::int32_t>::max();
  const bool fits = value >= low && value <= high;
  return fits ? static_cast<std::int32_t>(value) : std::numeric_limits<std::int32_t>::min();
}

}  // namespace qc_math

/// The largest integer that is not above `value`, and the smallest that is not below it. Results are clamped
/// to the 32-bit range of pixel coordinates on every platform; NaN gives its lower end, -2147483648.
inline long qfIFloor(double value) { return qc_math::saturate32(std::floor(value)); }
inline long qfICeil(double value) { return qc_math::saturate32(std::ceil(value)); }

/// True when |a - b| <= eps; false when either is NaN, and for two infinities of the same sign.
inline bool qfRealEq(double a, double b, double eps) { return std::fabs(a - b) <= eps; }
