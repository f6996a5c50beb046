// Vectors of doubles for the loops over points, and whether the processor has the wide ones.
#pragma once

#include <cstring>

#include "vnxstd/math/vector.h"

// Not with g++ on Windows, which does not align the stack for wide vectors.
#if (defined(__x86_64__) || defined(__i386__)) && !defined(_WIN32)
#define VNXSTD_CFIT_AVX2 1
#else
#define VNXSTD_CFIT_AVX2 0
#endif

namespace cfit {

using Two [[gnu::vector_size(16)]] = double;
using Four [[gnu::vector_size(32)]] = double;  // only within functions for AVX2

inline Two load(const qcVector<2>& v) {
  Two two;
  static_assert(sizeof two == sizeof v);
  std::memcpy(&two, &v, sizeof two);
  return two;
}

inline bool haveAvx2() {
#if VNXSTD_CFIT_AVX2
  static const bool supported = __builtin_cpu_supports("avx2");
  return supported;
#else
  return false;
#endif
}

}  // namespace cfit
