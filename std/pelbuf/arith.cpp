// Pel-wise extremes, sums and differences.
#include "vnxstd/pelbuf/arith.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "std/pelbuf/avx2.h"
#include "std/pelbuf/combine.h"
#include "std/pelbuf/dispatch.h"
#include "std/pelbuf/exact.h"

namespace {

namespace simd = vnxstd::simd;
namespace exact = vnxstd::exact;

/// The one that is further out; b when a is NaN.
template <bool Largest, class E>
[[gnu::always_inline]] inline E further(E a, E b) {
  const bool isFurther = Largest ? a < b : b < a;
  if constexpr (std::is_floating_point_v<E>) {
    return isFurther | __builtin_isnan(a) ? b : a;  // no branch, so that the loop becomes vectors
  } else {
    return isFurther ? b : a;
  }
}

template <bool Largest, class E>
struct Pick {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const E* a, const E* b, E* to, std::ptrdiff_t count) const {
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      if constexpr (std::is_arithmetic_v<E>) {
        to[i] = further<Largest>(a[i], b[i]);
      } else {
        to[i] = exact::fields([](int x, int y) { return further<Largest>(x, y); }, a[i], b[i]);
      }
    }
  }
};

struct Sum {
  template <class S>
  using Exact = exact::SumOf<S>;
  template <class X>
  [[gnu::always_inline]] static X of(X a, X b) {
    return static_cast<X>(a + b);
  }
  template <class D, class S>
  [[gnu::always_inline]] static D saturated(S a, S b) {
    if constexpr (std::is_same_v<S, D>) return exact::sum(a, b);
    return exact::saturated<D>(of<Exact<S>>(a, b));
  }
};

struct Difference {
  template <class S>
  using Exact = exact::SumOf<S>;
  template <class X>
  [[gnu::always_inline]] static X of(X a, X b) {
    return static_cast<X>(a - b);
  }
  template <class D, class S>
  [[gnu::always_inline]] static D saturated(S a, S b) {
    if constexpr (std::is_same_v<S, D>) return exact::difference(a, b);
    return exact::saturated<D>(of<Exact<S>>(a, b));
  }
};

#if VNXSTD_X86

/// Vectors of saturated sums or differences of 8 or 16 bits, for which there are instructions.
template <class Op, class E>
struct SaturatedVectors {
  VNXSTD_AVX2 __m256i operator()(__m256i a, __m256i b) const {
    if constexpr (std::same_as<Op, Sum>) {
      if constexpr (sizeof(E) == 1) return std::is_signed_v<E> ? _mm256_adds_epi8(a, b) : _mm256_adds_epu8(a, b);
      return std::is_signed_v<E> ? _mm256_adds_epi16(a, b) : _mm256_adds_epu16(a, b);
    } else {
      if constexpr (sizeof(E) == 1) return std::is_signed_v<E> ? _mm256_subs_epi8(a, b) : _mm256_subs_epu8(a, b);
      return std::is_signed_v<E> ? _mm256_subs_epi16(a, b) : _mm256_subs_epu16(a, b);
    }
  }
};

#endif

struct Inversion {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const unsigned char* from, unsigned char* to,
                                         std::ptrdiff_t count) const {
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = static_cast<unsigned char>(~from[i]);
  }
};

}  // namespace

#if VNXSTD_X86

template <class Op, class E>
requires((std::same_as<Op, Sum> || std::same_as<Op, Difference>)&&std::integral<E> &&
         sizeof(E) <= 2) struct vnxstd::Unshifted<Op, E, E> : UnshiftedLoop<Op, E, E> {
  using UnshiftedLoop<Op, E, E>::row;

  [[gnu::target("avx2")]] void row(simd::Bytes<32>, const E* a, const E* b, E* to, std::ptrdiff_t count) const {
    if (count < avx2::kLeast<E>) return row(simd::Bytes<16>(), a, b, to, count);
    avx2::forRow(SaturatedVectors<Op, E>(), to, count, a, b);
  }
};

#endif

template <class C>
void qf_PelPick(bool largest, const qc_PelRows<const C>& a, const qc_PelRows<const C>& b, const qc_PelRows<C>& to) {
  if (largest) {
    const Pick<true, C> pick;
    simd::run(pick, a, b, to);
  } else {
    const Pick<false, C> pick;
    simd::run(pick, a, b, to);
  }
}

template <class S, class D>
void qf_PelSum(const qc_PelRows<const S>& a, const qc_PelRows<const S>& b, const qc_PelRows<D>& to, int shift) {
  vnxstd::combine<Sum>(a, b, to, shift);
}

template <class S, class D>
void qf_PelDifference(const qc_PelRows<const S>& a, const qc_PelRows<const S>& b, const qc_PelRows<D>& to, int shift) {
  vnxstd::combine<Difference>(a, b, to, shift);
}

void qf_PelInvert(const qc_PelRows<const unsigned char>& from, const qc_PelRows<unsigned char>& to) {
  const Inversion inversion;
  simd::run(inversion, from, to);
}

#define VNXSTD_INSTANTIATE(C)                                                                          \
  template VNXSTD_EXPORT void qf_PelPick(bool, const qc_PelRows<const C>&, const qc_PelRows<const C>&, \
                                         const qc_PelRows<C>&);
VNXSTD_FOR_COMPONENTS(VNXSTD_INSTANTIATE)
#undef VNXSTD_INSTANTIATE

#define VNXSTD_INSTANTIATE(S, D)                                                                                      \
  template VNXSTD_EXPORT void qf_PelSum(const qc_PelRows<const S>&, const qc_PelRows<const S>&, const qc_PelRows<D>&, \
                                        int);                                                                         \
  template VNXSTD_EXPORT void qf_PelDifference(const qc_PelRows<const S>&, const qc_PelRows<const S>&,                \
                                               const qc_PelRows<D>&, int);
VNXSTD_FOR_SUMS(VNXSTD_INSTANTIATE)
