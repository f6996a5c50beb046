// Vectors of doubles for the loops over many points, and the level of the processor that they are run at.
//
// A loop is written once, for vectors of any width, always inline; an entry per level carries the target attribute.
// Every width does the same operations in the same order, so that all give the bits that a single point gives.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "vnxstd/export.h"

// Not with g++ on Windows, which does not align the stack for wide vectors.
#if (defined(__x86_64__) || defined(__i386__)) && !defined(_WIN32)
#define ZRTNLXF_AVX2 1
#else
#define ZRTNLXF_AVX2 0
#endif

namespace zrtnlxf {

using Two [[gnu::vector_size(16)]] = double;
using Four [[gnu::vector_size(32)]] = double;  // only within functions for AVX2

/// Makes mapping of arrays use at most this level, 0 the baseline and 1 AVX2, and returns the level that is used: the
/// highest that the processor has unless set. For tests; not for use while other threads map.
VNXSTD_EXPORT int useLevel(int highest) noexcept;
int level() noexcept;

template <class V>
inline constexpr std::size_t kLanes = sizeof(V) / sizeof(double);

// Vectors go in and out by reference: by value they would need a calling convention that the baseline lacks.
template <class V>
[[gnu::always_inline]] inline void load(V& v, const double* from) {
  std::memcpy(&v, from, sizeof v);
}

template <class V>
[[gnu::always_inline]] inline void store(double* to, const V& v) {
  std::memcpy(to, &v, sizeof v);
}

/// From two vectors of points (x, y) to one of x and one of y, in an order that the same call turns back.
[[gnu::always_inline]] inline void exchange(Two& a, Two& b) {
  const Two first = __builtin_shufflevector(a, b, 0, 2);
  b = __builtin_shufflevector(a, b, 1, 3);
  a = first;
}
[[gnu::always_inline]] inline void exchange(Four& a, Four& b) {
  const Four first = __builtin_shufflevector(a, b, 0, 4, 2, 6);
  b = __builtin_shufflevector(a, b, 1, 5, 3, 7);
  a = first;
}

/// Whether every lane is finite, asked of the sum of lanes times 0 that a loop has gathered.
template <class V>
[[gnu::always_inline]] inline bool isFinite(const V& zeros) {
  double lanes[kLanes<V>];
  std::memcpy(lanes, &zeros, sizeof zeros);
  double sum = 0;
  for (const double lane : lanes) sum += lane;
  return sum == 0;
}

/// Maps `count` points (x, y) from `in` to `out`, which is `in` or does not overlap it, and gives whether the images
/// are finite. `image(x, y, zeros)` replaces a point, or a vector of points, by its image, and adds to `zeros` 0 times
/// whatever else must be finite; it is to be always inline, and to hold by value what stores to `out` could reach.
///
/// A cache line at a time: the loop over the vectors within it is unrolled.
template <class V, class Image>
[[gnu::always_inline]] inline bool mapAll(const double* in, double* out, std::size_t count, const Image& image) {
  constexpr std::size_t kLine = 8;  // doubles
  V zeros{};
  std::size_t i = 0;
  for (; i + kLine <= 2 * count; i += kLine) {
    for (std::size_t k = i; k < i + kLine; k += 2 * kLanes<V>) {
      V x, y;
      load(x, in + k);
      load(y, in + k + kLanes<V>);
      exchange(x, y);
      image(x, y, zeros);
      zeros += x * 0.0 + y * 0.0;
      exchange(x, y);
      store(out + k, x);
      store(out + k + kLanes<V>, y);
    }
  }
  double rest = 0;
  for (; i < 2 * count; i += 2) {
    double x = in[i], y = in[i + 1];
    image(x, y, rest);
    out[i] = x;
    out[i + 1] = y;
    rest += x * 0.0 + y * 0.0;
  }
  return isFinite(zeros) && rest == 0;
}

template <class V>
struct BitsOf {
  using Type [[gnu::vector_size(sizeof(V))]] = std::uint64_t;
};
template <>
struct BitsOf<double> {
  using Type = std::uint64_t;
};

/// The natural logarithm of normal positive numbers, within one unit in the last place; of others some number.
/// The method of fdlibm (Sun Microsystems, 1993): with x = 2^k (1 + f) and s = f / (2 + f), log(1 + f) is a series in s
/// whose odd powers are approximated by a polynomial. Written here because it has to give the same bits for one point
/// and for vectors, on every platform.
template <class V>
[[gnu::always_inline]] inline void logarithm(const V& x, V& result) {
  using Bits = typename BitsOf<V>::Type;
  constexpr std::uint64_t kRootHalf = 0x3FE6A09E667F3BCD, kOne = 0x3FF0000000000000, kExponent = 0xFFF0000000000000;
  constexpr std::uint64_t kTwo52 = 0x4330000000000000;
  constexpr double kLn2High = 6.93147180369123816490e-01, kLn2Low = 1.90821492927058770002e-10;
  Bits bits;
  std::memcpy(&bits, &x, sizeof x);
  const Bits above = bits - kRootHalf;
  const Bits fraction = bits - (above & kExponent), power = ((above + kOne) >> 52) | kTwo52;
  V f, k;
  std::memcpy(&f, &fraction, sizeof f);
  std::memcpy(&k, &power, sizeof k);
  f -= 1.0;
  k -= 0x1p52 + 1023;
  const V s = f / (2.0 + f), z = s * s, w = z * z, half = 0.5 * f * f;
  const V even = w * (3.999999999940941908e-01 + w * (2.222219843214978396e-01 + w * 1.531383769920937332e-01));
  const V odd = z * (6.666666666666735130e-01 +
                     w * (2.857142874366239149e-01 + w * (1.818357216161805012e-01 + w * 1.479819860511658591e-01)));
  result = k * kLn2High - ((half - (s * (half + (even + odd)) + k * kLn2Low)) - f);
}

}  // namespace zrtnlxf
