// Rows of vectors for kernels that are written with AVX2 instructions, where the compiler's own vectors take twice as
// long or more: it widens vectors into two halves and puts the results back in order across the lanes, and it does not
// look up tables in registers.
#pragma once

#include <cstddef>

#include "std/pelbuf/dispatch.h"

#if VNXSTD_X86

#include <immintrin.h>

namespace vnxstd::avx2 {

template <class E>
[[gnu::target("avx2"), gnu::always_inline]] inline __m128i halfAt(const E* elements) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(elements));
}
template <class E>
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i vectorAt(const E* elements) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i_u*>(elements));
}

/// The elements of half a vector: what a row must have to be taken by forRow.
template <class E>
inline constexpr std::ptrdiff_t kLeast = 16 / sizeof(E);

/// to = f(vectors of the sources) for a row of at least kLeast elements of one size; in place is allowed.
template <class F, class E, class... S>
[[gnu::target("avx2"), gnu::always_inline]] inline void forRow(const F& f, E* to, std::ptrdiff_t count,
                                                               const S*... from) {
  static_assert(((sizeof(S) == sizeof(E)) && ...));
  constexpr std::ptrdiff_t half = kLeast<E>, whole = 2 * half;
  const std::ptrdiff_t last = count - half, first = count <= whole ? 0 : last - half;
  // The rest at the end overlaps what is done before it; in place it has to be computed first.
  const __m256i rest = f(_mm256_set_m128i(halfAt(from + last), halfAt(from + first))...);
  for (std::ptrdiff_t i = 0; i < first; i += whole) {
    _mm256_storeu_si256(reinterpret_cast<__m256i_u*>(to + i), f(vectorAt(from + i)...));
  }
  _mm_storeu_si128(reinterpret_cast<__m128i_u*>(to + first), _mm256_castsi256_si128(rest));
  _mm_storeu_si128(reinterpret_cast<__m128i_u*>(to + last), _mm256_extracti128_si256(rest, 1));
}

}  // namespace vnxstd::avx2

// For the member functions that such kernels consist of.
#define VNXSTD_AVX2 [[gnu::target("avx2"), gnu::always_inline]] inline

#endif
