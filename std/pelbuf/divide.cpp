// Quotients of pels by a value.
#include "vnxstd/pelbuf/divide.h"

#include <algorithm>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "std/pelbuf/avx2.h"
#include "std/pelbuf/dispatch.h"
#include "std/pelbuf/exact.h"
#include "vnxstd/pelbuf/map.h"

namespace {

namespace simd = vnxstd::simd;
#if VNXSTD_X86
namespace avx2 = vnxstd::avx2;
#endif
namespace exact = vnxstd::exact;

/// 8 bits by a whole number from 1 on: (256 * x * m >> 16) is 256 times the quotient, rounded down, with m = 65536 / d;
/// what is added rounds or not, and what is above the byte is the result.
/// To truncate, m is rounded up: that adds less than 1 / d to the quotient, by which none is closer to the next
/// integer. To round as well, where an even d has halves to be met exactly; an odd one has none, no quotient is closer
/// to one than 1 / 2d, and m is rounded to the nearest. Quotients by more than 170 round to 0 or 1.
class ByteQuotient {
 public:
  ByteQuotient(double divisor, bool isRounded) {
    const auto d = static_cast<unsigned>(std::min(divisor, 511.0));  // beyond 510 all quotients are 0
    if (isRounded && d > 170) {
      set(256, 256 - (d + 1) / 2);
    } else {
      const unsigned m = (65536 + (isRounded && d % 2 == 1 ? d / 2 : d - 1)) / d;
      set(std::min(m, 65535u), isRounded || d == 1 ? 128 : 0);
    }
  }

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const unsigned char* from, unsigned char* to,
                                         std::ptrdiff_t count) const {
    const std::uint16_t m = reciprocal_, half = half_;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      const auto x = static_cast<std::uint16_t>(from[i] << 8);
      const auto upper = static_cast<std::uint16_t>(std::uint32_t{x} * m >> 16);
      to[i] = static_cast<unsigned char>(static_cast<std::uint16_t>(upper + half) >> 8);
    }
  }

#if VNXSTD_X86
  /// Takes 0.6 of the loop's time, which is what memory allows.
  [[gnu::target("avx2")]] void row(simd::Bytes<32>, const unsigned char* from, unsigned char* to,
                                   std::ptrdiff_t count) const {
    if (count < avx2::kLeast<unsigned char>) return row(simd::Bytes<16>(), from, to, count);
    avx2::forRow(
        Vectors{_mm256_set1_epi16(static_cast<short>(reciprocal_)), _mm256_set1_epi16(static_cast<short>(half_))}, to,
        count, from);
  }
#endif

 private:
#if VNXSTD_X86
  struct Vectors {
    __m256i m, half;
    VNXSTD_AVX2 __m256i operator()(__m256i x) const {
      const __m256i zero = _mm256_setzero_si256();
      return _mm256_packus_epi16(quotients(_mm256_unpacklo_epi8(zero, x)), quotients(_mm256_unpackhi_epi8(zero, x)));
    }
    VNXSTD_AVX2 __m256i quotients(__m256i x) const {
      return _mm256_srli_epi16(_mm256_add_epi16(_mm256_mulhi_epu16(x, m), half), 8);
    }
  };
#endif

  void set(unsigned m, unsigned half) {
    reciprocal_ = static_cast<std::uint16_t>(m);
    half_ = static_cast<std::uint16_t>(half);
  }

  std::uint16_t reciprocal_, half_;
};

/// Integers by a whole number, as products with its reciprocal in float or double. x + half + 1/2 lies at least 1/2
/// away from every multiple of the divisor. The product is less wrong than that for 18 bits in float and 35 in double,
/// so that cutting it off gives the exact quotient of x + half. Of 32 bits only where the result has 31: by 2 and more,
/// and by more than 2 where half of the largest number would be rounded up to 2 to the power of 31.
template <class S, class D>
class WholeQuotient {
 public:
  WholeQuotient(double divisor, bool isRounded) {
    // Beyond that all quotients are 0, as they are there.
    const double largest = sizeof(S) <= 2 ? 0x1p17 : 0x1p33;
    const double d = std::clamp(divisor, -largest, largest);
    bias_ = static_cast<F>((isRounded ? std::floor(std::fabs(d) / 2) : 0.0) + 0.5);
    reciprocal_ = F{1} / static_cast<F>(d);
  }

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const S* from, D* to, std::ptrdiff_t count) const {
    const F bias = bias_, reciprocal = reciprocal_;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      F x;
      if constexpr (sizeof(S) == 4) {
        x = exact::toDouble(from[i]);
      } else {
        x = from[i];
      }
      const F biased = x + (std::is_signed_v<S> ? std::copysign(bias, x) : bias);
      to[i] = exact::saturated<D>(static_cast<std::int32_t>(biased * reciprocal));
    }
  }

#if VNXSTD_X86
  [[gnu::target("avx2")]] void row(simd::Bytes<32>, const S* from, D* to, std::ptrdiff_t count) const
      requires(sizeof(S) == 2 && std::same_as<S, D>) {
    if (count < avx2::kLeast<S>) return row(simd::Bytes<16>(), from, to, count);
    avx2::forRow(Vectors{_mm256_set1_ps(bias_), _mm256_set1_ps(reciprocal_)}, to, count, from);
  }
#endif

 private:
  using F = std::conditional_t<sizeof(S) <= 2, float, double>;

#if VNXSTD_X86
  /// 16 bits, widened within the lanes.
  struct Vectors {
    __m256 bias, reciprocal;
    VNXSTD_AVX2 __m256i operator()(__m256i x) const {
      const __m256i zero = _mm256_setzero_si256();
      if constexpr (std::is_unsigned_v<S>) {
        return _mm256_packus_epi32(quotients(_mm256_unpacklo_epi16(x, zero)),
                                   quotients(_mm256_unpackhi_epi16(x, zero)));
      } else {
        return _mm256_packs_epi32(quotients(_mm256_srai_epi32(_mm256_unpacklo_epi16(zero, x), 16)),
                                  quotients(_mm256_srai_epi32(_mm256_unpackhi_epi16(zero, x), 16)));
      }
    }
    VNXSTD_AVX2 __m256i quotients(__m256i integers) const {
      const __m256 x = _mm256_cvtepi32_ps(integers);
      const __m256 signedBias =
          std::is_unsigned_v<S> ? bias : _mm256_or_ps(_mm256_and_ps(x, _mm256_set1_ps(-0.0f)), bias);
      return _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_add_ps(x, signedBias), reciprocal));
    }
  };
#endif

  F bias_, reciprocal_;
};

/// An integer by any number. `half` is where rounding up begins: 1/2, or beyond 1 to truncate.
template <class D, class S>
[[gnu::always_inline]] inline D realQuotient(S x, double divisor, double half) {
  using Wide = std::conditional_t<sizeof(D) < 4, std::int32_t, std::int64_t>;
  constexpr double lo = std::numeric_limits<D>::min(), hi = std::numeric_limits<D>::max();
  const double q = static_cast<double>(x) / divisor;
  const double least = q < lo - 1 ? lo - 1 : q, near = least > hi + 1 ? hi + 1 : least;
  const auto whole = static_cast<Wide>(near);
  const double rest = near - static_cast<double>(whole);
  return exact::saturated<D>(static_cast<Wide>(whole + (rest >= half ? 1 : 0) - (rest <= -half ? 1 : 0)));
}

template <class S, class D>
struct RealQuotient {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const S* from, D* to, std::ptrdiff_t count) const {
    const double by = divisor, limit = half;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      if constexpr (std::is_arithmetic_v<S>) {
        to[i] = realQuotient<D>(from[i], by, limit);
      } else {
        to[i] = exact::fields([=](int x) { return realQuotient<short>(x, by, limit); }, from[i]);
      }
    }
  }

  double divisor, half;
};

template <class S, class D>
struct FloatingQuotient {
  using F = std::conditional_t<std::is_same_v<D, float> && (sizeof(S) <= 2 || std::is_same_v<S, float>), float, double>;

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const S* from, D* to, std::ptrdiff_t count) const {
    const F by = divisor;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = static_cast<D>(static_cast<F>(from[i]) / by);
  }

  F divisor;
};

/// Of 8 bits there are no more than 256 quotients.
template <class S>
void divideByTable(const qc_PelRows<const S>& from, const qc_PelRows<S>& to, double divisor, double half) {
  qc_PelWord<1> table[256];
  for (int i = 0; i < 256; ++i) {
    table[i].bytes[0] = static_cast<unsigned char>(realQuotient<S>(static_cast<S>(i), divisor, half));
  }
  qf_PelMap(qf_PelRowsAs<const unsigned char>(from), table, 256, false, qf_PelRowsAs<qc_PelWord<1>>(to));
}

template <class Kernel, class S, class D>
void divide(const Kernel& kernel, const qc_PelRows<const S>& from, const qc_PelRows<D>& to) {
  simd::run(kernel, from, to);
}

}  // namespace

template <class S, class D>
void qf_PelQuotient(const qc_PelRows<const S>& from, const qc_PelRows<D>& to, double divisor, bool isRounded) {
  if (!(divisor < 0 || divisor > 0)) throw qcPelFunc::BadParams();
  if constexpr (std::is_floating_point_v<D>) {
    using F = typename FloatingQuotient<S, D>::F;
    const F by = static_cast<F>(divisor);
    if (by == 0) throw qcPelFunc::BadParams();
    divide(FloatingQuotient<S, D>{by}, from, to);
  } else {
    const double half = isRounded ? 0.5 : 2.0;
    const bool isWhole = divisor == std::trunc(divisor);
    if constexpr (std::is_same_v<S, unsigned char>) {
      if (isWhole && divisor > 0) return divide(ByteQuotient(divisor, isRounded), from, to);
    }
    if constexpr (sizeof(S) == 1) return divideByTable(from, to, divisor, half);
    if constexpr (std::is_arithmetic_v<S> && sizeof(S) > 1) {
      const double least = std::is_unsigned_v<S> && isRounded ? 3 : 2;
      if (isWhole && (sizeof(S) == 2 || std::fabs(divisor) >= least)) {
        return divide(WholeQuotient<S, D>(divisor, isRounded), from, to);
      }
    }
    divide(RealQuotient<S, D>{divisor, half}, from, to);
  }
}

#define VNXSTD_QUOTIENT(S, D) \
  template VNXSTD_EXPORT void qf_PelQuotient(const qc_PelRows<const S>&, const qc_PelRows<D>&, double, bool);
#define VNXSTD_QUOTIENTS(S) VNXSTD_QUOTIENT(S, S) VNXSTD_QUOTIENT(S, float) VNXSTD_QUOTIENT(S, double)
VNXSTD_QUOTIENTS(unsigned char)
VNXSTD_QUOTIENTS(signed char)
VNXSTD_QUOTIENTS(unsigned short)
VNXSTD_QUOTIENTS(short)
VNXSTD_QUOTIENTS(std::uint32_t)
VNXSTD_QUOTIENTS(std::int32_t)
VNXSTD_QUOTIENT(float, float)
VNXSTD_QUOTIENT(float, double)
VNXSTD_QUOTIENT(double, float)
VNXSTD_QUOTIENT(double, double)
VNXSTD_QUOTIENT(qcPackedRGB16Pel, qcPackedRGB16Pel)
VNXSTD_QUOTIENT(unsigned short, unsigned char)
VNXSTD_QUOTIENT(short, unsigned char)
VNXSTD_QUOTIENT(short, signed char)
VNXSTD_QUOTIENT(std::uint32_t, unsigned char)
VNXSTD_QUOTIENT(std::uint32_t, unsigned short)
VNXSTD_QUOTIENT(std::int32_t, unsigned char)
VNXSTD_QUOTIENT(std::int32_t, signed char)
VNXSTD_QUOTIENT(std::int32_t, unsigned short)
VNXSTD_QUOTIENT(std::int32_t, short)
