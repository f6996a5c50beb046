// Status codes of the system module: zero is success, negative is failure.
#pragma once

#include <cstdint>

namespace zrtsys {

using Status = std::int32_t;

/// The facility of this module's codes, which is bits 5 to 15 of a code.
inline constexpr std::int32_t facility = 0x05A;

/// The n-th failure code of this module, n from 1 to 31.
constexpr Status failure(std::uint32_t n) {
  return static_cast<Status>(0x80000000u | (static_cast<std::uint32_t>(facility) << 5) | n);
}

inline constexpr Status ok = 0;
inline constexpr Status outOfMemory = failure(1);         // the memory asked for is not to be had
inline constexpr Status badArgument = failure(2);         // a null pointer, a zero modulus, an unknown unit size
inline constexpr Status attentionExpired = failure(3);    // the time limit on what a thread does has passed
inline constexpr Status attentionCancelled = failure(4);  // another thread wants it to end

}  // namespace zrtsys
