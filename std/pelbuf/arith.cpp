// Pel-wise arithmetic of two windows.
#include "vnxstd/pelbuf/arith.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "std/pelbuf/dispatch.h"

namespace {

namespace simd = vnxstd::simd;

/// Whether b takes the place of a: it is further out, or a is NaN.
template <bool Largest, class E>
[[gnu::always_inline]] inline bool replaces(E b, E a) {
  const bool isFurther = Largest ? a < b : b < a;
  if constexpr (std::is_floating_point_v<E>) {
    return isFurther | __builtin_isnan(a);  // no branch, so that the loop becomes vectors
  } else {
    return isFurther;
  }
}

template <bool Largest, class E>
struct Pick {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const E* a, const E* b, E* to, std::ptrdiff_t count) const {
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = replaces<Largest>(b[i], a[i]) ? b[i] : a[i];
  }
};

}  // namespace

template <class E>
void qf_PelPick(bool largest, qc_PelRows<const E> a, qc_PelRows<const E> b, qc_PelRows<E> to) {
  if (largest) {
    const Pick<true, E> pick;
    simd::run(pick, a, b, to);
  } else {
    const Pick<false, E> pick;
    simd::run(pick, a, b, to);
  }
}

template VNXSTD_EXPORT void qf_PelPick(bool, qc_PelRows<const unsigned char>, qc_PelRows<const unsigned char>,
                                       qc_PelRows<unsigned char>);
template VNXSTD_EXPORT void qf_PelPick(bool, qc_PelRows<const signed char>, qc_PelRows<const signed char>,
                                       qc_PelRows<signed char>);
template VNXSTD_EXPORT void qf_PelPick(bool, qc_PelRows<const unsigned short>, qc_PelRows<const unsigned short>,
                                       qc_PelRows<unsigned short>);
template VNXSTD_EXPORT void qf_PelPick(bool, qc_PelRows<const short>, qc_PelRows<const short>, qc_PelRows<short>);
template VNXSTD_EXPORT void qf_PelPick(bool, qc_PelRows<const std::uint32_t>, qc_PelRows<const std::uint32_t>,
                                       qc_PelRows<std::uint32_t>);
template VNXSTD_EXPORT void qf_PelPick(bool, qc_PelRows<const std::int32_t>, qc_PelRows<const std::int32_t>,
                                       qc_PelRows<std::int32_t>);
template VNXSTD_EXPORT void qf_PelPick(bool, qc_PelRows<const float>, qc_PelRows<const float>, qc_PelRows<float>);
template VNXSTD_EXPORT void qf_PelPick(bool, qc_PelRows<const double>, qc_PelRows<const double>, qc_PelRows<double>);
