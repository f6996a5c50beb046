// Status codes of the nonlinear transforms' module: zero and above are success, negative is failure.
#pragma once

#include <cstdint>

namespace zrtnlxf {

using Status = std::int32_t;

/// The facility of this module's codes, which is bits 5 to 15 of a code.
inline constexpr std::int32_t facility = 0x05B;

/// The n-th failure code of this module, n from 1 to 31.
constexpr Status failure(std::uint32_t n) {
  return static_cast<Status>(0x80000000u | (static_cast<std::uint32_t>(facility) << 5) | n);
}

inline constexpr Status ok = 0;
inline constexpr Status outOfMemory = failure(1);  // the memory asked for is not to be had
inline constexpr Status badArgument = failure(2);  // too few points, an unknown order, a number that is not finite
inline constexpr Status badDeformArgument = failure(3);  // the same of a deformation
inline constexpr Status atInfinity = failure(4);         // the image of the point is not finite
inline constexpr Status singular = failure(5);           // the transform has no inverse
inline constexpr Status degenerate = failure(6);         // the points lie so that they determine no transform
inline constexpr Status notConverged = failure(7);       // no point was found that the transform maps to the one given

}  // namespace zrtnlxf
