#include "std/shapes/winding.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <limits>

#include "std/shapes/exact.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace {

using V = qcVector<2>;
using qc_shapes::Winding;

// Which vertices lie beyond p, two bits a vertex: the lower one for x, the upper one for y. Vertices straight above or
// below p count as beyond it in x when their index is odd: of a piece through p that is upright only one end does.
constexpr std::uint64_t kX = 0x5555555555555555, kY = ~kX;
constexpr std::size_t kWord = 32;  // vertices in a word of such bits, an even number

struct Sides {
  std::uint64_t beyond;
  bool level;  // a vertex lies at the height of p
};

/// What the vertices are compared with: the point, and a point that has what is next below its x.
struct Limits {
  explicit Limits(const V& p) : even(p), odd(below(p.x()), p.y()) {}
  V even, odd;

 private:
  static double below(double x) {
    if (x == 0) return -std::numeric_limits<double>::denorm_min();
    return std::bit_cast<double>(std::bit_cast<std::int64_t>(x) + (x < 0 ? 1 : -1));
  }
};

std::uint64_t bitsOf(const V& v, const V& limit) {
  return (v.x() > limit.x() ? 1U : 0U) | (v.y() > limit.y() ? 2U : 0U);
}

Sides sidesBaseline(const V* v, std::size_t count, const Limits& limits) {
  Sides sides{0, false};
  for (std::size_t i = count; i-- > 0;) {
    sides.beyond = sides.beyond << 2 | bitsOf(v[i], i % 2 == 0 ? limits.even : limits.odd);
    sides.level = sides.level || v[i].y() == limits.even.y();
  }
  return sides;
}

// The pieces that end at a run of vertices, one by one.
[[gnu::noinline]] Winding carefully(const V* previous, const V* v, const V* end, const V& p) {
  Winding sum;
  for (const V* a = previous; v != end; a = v++) {
    const V& b = *v;
    const bool fromAbove = a->y() > p.y(), toAbove = b.y() > p.y();
    bool touches = b.y() == p.y() && (b.x() == p.x() || (a->y() == p.y() && (a->x() < p.x()) != (b.x() < p.x())));
    if (fromAbove != toAbove) {
      const int side = qc_shapes::orientation(*a, b, p);
      if (toAbove == (side > 0)) sum.number += side;
      touches = touches || side == 0;
    }
    sum.touches = sum.touches || touches;
  }
  return sum;
}

// Most pieces that cross the height of p do so on one side of it with both ends, and are counted by their bits. Runs
// with a vertex at the height of p, or p close to a piece, are gone through again.
template <auto sidesOf>
[[gnu::always_inline]] inline Winding count(const V* v, std::size_t n, const V& p) {
  Winding sum;
  const V* previous = v + (n - 1);
  const Limits limits(p);
  std::uint64_t carry = bitsOf(*previous, limits.odd);  // as the vertex before the first, whatever its index
  for (std::size_t left = n; left > 0;) {
    const std::size_t some = std::min(kWord, left);
    const Sides sides = sidesOf(v, some, limits);
    const std::uint64_t to = sides.beyond, from = to << 2 | carry, changed = from ^ to;
    const std::uint64_t crosses = changed & kY & ~std::uint64_t{0} >> 2 * (kWord - some);
    const std::uint64_t onRight = crosses & (from & to & kX) << 1;
    long number = std::popcount(onRight & to) - std::popcount(onRight & from);
    bool clear = !sides.level;
    for (std::uint64_t rest = crosses & (changed & kX) << 1; rest != 0; rest &= rest - 1) {
      const auto bit = static_cast<std::size_t>(std::countr_zero(rest));
      const int side = qc_shapes::clearOrientation(bit > 1 ? v[bit / 2 - 1] : *previous, v[bit / 2], p);
      number += ((to >> bit & 1) != 0) == (side > 0) ? side : 0;
      clear = clear && side != 0;
    }
    if (!clear) [[unlikely]] {
      const Winding run = carefully(previous, v, v + some, p);
      number = run.number;
      sum.touches = sum.touches || run.touches;
    }
    sum.number += number;
    carry = to >> 2 * (some - 1) & 3;
    v += some;
    previous = v - 1;
    left -= some;
  }
  return sum;
}

Winding countBaseline(const V* v, std::size_t n, const V& p) { return count<sidesBaseline>(v, n, p); }

#if defined(__x86_64__) || defined(__i386__)

// Of 200 vertices, a fifth of the time of the plain loop (bench_shapes).
[[gnu::target("avx2")]] Sides sidesAvx2(const V* v, std::size_t count, const Limits& limits) {
  const double height = limits.even.y();
  const __m256d both = _mm256_setr_pd(limits.even.x(), height, limits.odd.x(), height), y = _mm256_set1_pd(height);
  const double* d = &(*v)[0];
  std::uint64_t word = 0;
  __m256d level = _mm256_setzero_pd();
  std::size_t i = 0;
  for (; i + 4 <= count; i += 4) {
    const __m256d a = _mm256_loadu_pd(d + 2 * i), b = _mm256_loadu_pd(d + 2 * i + 4);
    const int first = _mm256_movemask_pd(_mm256_cmp_pd(a, both, _CMP_GT_OQ));
    const int second = _mm256_movemask_pd(_mm256_cmp_pd(b, both, _CMP_GT_OQ));
    word |= static_cast<std::uint64_t>(first | second << 4) << 2 * i;
    level = _mm256_or_pd(level, _mm256_cmp_pd(_mm256_unpackhi_pd(a, b), y, _CMP_EQ_OQ));
  }
  bool any = _mm256_movemask_pd(level) != 0;
  for (; i < count; ++i) {
    word |= bitsOf(v[i], i % 2 == 0 ? limits.even : limits.odd) << 2 * i;
    any = any || v[i].y() == limits.even.y();
  }
  return {word, any};
}
[[gnu::target("avx2,popcnt,bmi")]] Winding countAvx2(const V* v, std::size_t n, const V& p) {
  return count<sidesAvx2>(v, n, p);
}

// Comparisons into masks: two thirds of the time of AVX2.
[[gnu::target("avx512f,avx512dq,avx512bw")]] Sides sidesAvx512(const V* v, std::size_t count, const Limits& limits) {
  const double even = limits.even.x(), odd = limits.odd.x(), height = limits.even.y();
  const __m512d both = _mm512_setr_pd(even, height, odd, height, even, height, odd, height);
  const __m512d y = _mm512_set1_pd(height);
  const double* d = &(*v)[0];
  if (count < kWord) {
    std::uint64_t word = 0;
    unsigned level = 0;
    for (std::size_t i = 0; i < count; i += 4) {
      const auto some = static_cast<__mmask8>(0xff >> 2 * (4 - std::min<std::size_t>(4, count - i)));
      const __m512d four = _mm512_maskz_loadu_pd(some, d + 2 * i);
      word |= static_cast<std::uint64_t>(_mm512_mask_cmp_pd_mask(some, four, both, _CMP_GT_OQ)) << 2 * i;
      level |= _mm512_mask_cmp_pd_mask(some & 0xaa, four, y, _CMP_EQ_OQ);
    }
    return {word, level != 0};
  }
  __mmask8 beyond[8], apart = 0xff;  // in height
  for (std::size_t k = 0; k < 8; k += 2) {
    const __m512d a = _mm512_loadu_pd(d + 8 * k), b = _mm512_loadu_pd(d + 8 * k + 8);
    beyond[k] = _mm512_cmp_pd_mask(a, both, _CMP_GT_OQ);
    beyond[k + 1] = _mm512_cmp_pd_mask(b, both, _CMP_GT_OQ);
    const __m512d heights = _mm512_maskz_unpackhi_pd(0xff, a, b);
    apart = _mm512_mask_cmp_pd_mask(apart, heights, y, _CMP_NEQ_UQ);
  }
  const __mmask32 low = _mm512_kunpackw(_mm512_kunpackb(beyond[3], beyond[2]), _mm512_kunpackb(beyond[1], beyond[0]));
  const __mmask32 high = _mm512_kunpackw(_mm512_kunpackb(beyond[7], beyond[6]), _mm512_kunpackb(beyond[5], beyond[4]));
  return {_mm512_kunpackd(high, low), apart != 0xff};
}
[[gnu::target("avx512f,avx512dq,avx512bw,popcnt,bmi")]] Winding countAvx512(const V* v, std::size_t n, const V& p) {
  return count<sidesAvx512>(v, n, p);
}

constexpr std::array<qc_shapes::WindingCounter, 3> kCounters = {&countBaseline, &countAvx2, &countAvx512};
std::size_t available() {
  if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("popcnt") || !__builtin_cpu_supports("bmi")) return 1;
  return __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw") ? 3 : 2;
}

#else

constexpr std::array<qc_shapes::WindingCounter, 1> kCounters = {&countBaseline};
std::size_t available() { return 1; }

#endif

}  // namespace

std::span<const qc_shapes::WindingCounter> qc_shapes::windingCounters() noexcept {
  return std::span(kCounters).first(available());
}
