// Quotients of pels by a value.
#include "vnxstd/pelbuf/divide.h"

#include <algorithm>
#include <bit>
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

/// 16 bits by a whole number, without widening. floor(v * m / 2^k), k being 16 and the position of the divisor's top
/// bit, is v / d rounded down when m is 2^k / d rounded up and less than 2^k / d * (1 + 2^-16); otherwise it is
/// (v - 1) / d rounded down, with m rounded down (Robison, N-bit unsigned division via N-bit multiply-add, 2005). What
/// is divided is what x has beyond the least number whose quotient is 1, which then is 1 more: so rounding does not
/// carry.
template <class S, class D>
class ShortQuotient {
 public:
  ShortQuotient(double divisor, bool isRounded) : flip_(divisor < 0 ? -1 : 0) {
    const auto d = static_cast<std::uint32_t>(std::min(std::fabs(divisor), 0x1p18));
    const std::uint32_t least = isRounded ? (d + 1) / 2 : d;
    const bool isNone = std::is_unsigned_v<S> && divisor < 0;  // no quotient is above 0
    below_ = static_cast<std::uint16_t>(isNone ? 65535 : std::min(least - 1, 65535u));
    start_ = below_;
    if (isNone || d > 65535) return;  // none is above 1
    shift_ = static_cast<int>(std::bit_width(d)) - 1;
    const std::uint32_t power = std::uint32_t{1} << (16 + shift_);
    const bool isUp = power % d > std::uint32_t{1} << shift_;
    reciprocal_ = static_cast<std::uint16_t>(std::min(power / d + (isUp ? 1 : 0), 65535u));
    start_ = static_cast<std::uint16_t>(least - (isUp ? 0 : 1));
  }

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const S* from, D* to, std::ptrdiff_t count) const {
    const std::uint16_t below = below_, start = start_, m = reciprocal_;
    const int shift = shift_;
    [[maybe_unused]] const std::int16_t flip = flip_;
    const auto quotient = [=](std::uint16_t x) __attribute__((always_inline)) {
      const auto upper = static_cast<std::uint16_t>(std::uint32_t{exact::difference(x, start)} * m >> 16);
      return static_cast<std::uint16_t>((upper >> shift) + (x > below ? 1 : 0));
    };
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      if constexpr (std::is_unsigned_v<S>) {
        to[i] = exact::saturated<D>(quotient(from[i]));
      } else {
        const auto sign = static_cast<std::int16_t>(from[i] >> 15);
        const std::uint16_t q = quotient(static_cast<std::uint16_t>((from[i] ^ sign) - sign));
        const auto negate = static_cast<std::int16_t>(sign ^ flip);
        const auto most = static_cast<std::uint16_t>(32767 - negate);
        const auto magnitude = static_cast<std::uint16_t>(q < most ? q : most);
        to[i] = exact::saturated<D>(static_cast<std::int16_t>((magnitude ^ negate) - negate));
      }
    }
  }

#if VNXSTD_X86
  /// Takes 0.4 of the loop's time: the compiler shifts 16 bits by a variable in 32.
  [[gnu::target("avx2")]] void row(simd::Bytes<32>, const S* from, D* to,
                                   std::ptrdiff_t count) const requires std::same_as<S, D> {
    if (count < avx2::kLeast<S>) return row(simd::Bytes<16>(), from, to, count);
    avx2::forRow(Vectors{_mm256_set1_epi16(static_cast<short>(below_)), _mm256_set1_epi16(static_cast<short>(start_)),
                         _mm256_set1_epi16(static_cast<short>(reciprocal_)), _mm256_set1_epi16(flip_),
                         _mm_cvtsi32_si128(shift_)},
                 to, count, from);
  }
#endif

 private:
#if VNXSTD_X86
  struct Vectors {
    __m256i below, start, m, flip;
    __m128i shift;
    VNXSTD_AVX2 __m256i operator()(__m256i x) const {
      if constexpr (std::is_unsigned_v<S>) return quotients(x);
      const __m256i negate = _mm256_xor_si256(_mm256_srai_epi16(x, 15), flip);
      const __m256i most = _mm256_sub_epi16(_mm256_set1_epi16(32767), negate);
      const __m256i magnitude = _mm256_min_epu16(quotients(_mm256_abs_epi16(x)), most);
      return _mm256_sub_epi16(_mm256_xor_si256(magnitude, negate), negate);
    }
    VNXSTD_AVX2 __m256i quotients(__m256i x) const {
      const __m256i rest = _mm256_srl_epi16(_mm256_mulhi_epu16(_mm256_subs_epu16(x, start), m), shift);
      const __m256i isBelow = _mm256_cmpeq_epi16(_mm256_max_epu16(x, below), below);
      return _mm256_add_epi16(_mm256_add_epi16(rest, _mm256_set1_epi16(1)), isBelow);
    }
  };
#endif

  std::uint16_t below_, start_, reciprocal_ = 0;
  int shift_ = 0;
  std::int16_t flip_;
};

/// 32 bits by a whole number from 2 on, as products with its reciprocal. x + half + 1/2 lies at least 1/2 away from
/// every multiple of the divisor. The product is less wrong than that for 35 bits, so that cutting it off gives the
/// exact quotient of x + half. The result must have 31 bits: the divisor must be more than 2 where half of the largest
/// number would be rounded up to 2 to the power of 31.
template <class S, class D>
class WholeQuotient {
 public:
  WholeQuotient(double divisor, bool isRounded) {
    const double d = std::clamp(divisor, -0x1p33, 0x1p33);  // beyond that all quotients are 0, as they are there
    bias_ = (isRounded ? std::floor(std::fabs(d) / 2) : 0.0) + 0.5;
    reciprocal_ = 1 / d;
  }

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const S* from, D* to, std::ptrdiff_t count) const {
    const double bias = bias_, reciprocal = reciprocal_;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      const double x = exact::toDouble(from[i]), biased = x + (std::is_signed_v<S> ? std::copysign(bias, x) : bias);
      to[i] = exact::saturated<D>(static_cast<std::int32_t>(biased * reciprocal));
    }
  }

 private:
  double bias_, reciprocal_;
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
    if constexpr (std::is_arithmetic_v<S> && sizeof(S) == 2) {
      if (isWhole) return divide(ShortQuotient<S, D>(divisor, isRounded), from, to);
    }
    if constexpr (std::is_arithmetic_v<S> && sizeof(S) == 4) {
      const double least = std::is_unsigned_v<S> && isRounded ? 3 : 2;
      if (isWhole && std::fabs(divisor) >= least) return divide(WholeQuotient<S, D>(divisor, isRounded), from, to);
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
