// Arithmetic on components as the pel-wise kernels need it: exact, shifted with rounding, saturated. All of it is
// inlined into the kernels' loops and without branches, so that these become vectors.
#pragma once

#include <cstdint>
#include <limits>
#include <type_traits>
#include <utility>

#include "vnxstd/pelbuf/pel.h"

namespace vnxstd::exact {

/// Whether every value of X is one of D.
template <class X, class D>
inline constexpr bool kFits = std::cmp_greater_equal(std::numeric_limits<X>::min(), std::numeric_limits<D>::min()) &&
                              std::cmp_less_equal(std::numeric_limits<X>::max(), std::numeric_limits<D>::max());

/// The nearest value of D.
template <class D, class X>
[[gnu::always_inline]] inline D saturated(X x) {
  constexpr D lo = std::numeric_limits<D>::min(), hi = std::numeric_limits<D>::max();
  if constexpr (std::cmp_less(std::numeric_limits<X>::min(), lo)) x = x < static_cast<X>(lo) ? static_cast<X>(lo) : x;
  if constexpr (std::cmp_greater(std::numeric_limits<X>::max(), hi)) {
    x = x > static_cast<X>(hi) ? static_cast<X>(hi) : x;
  }
  return static_cast<D>(x);
}

/// As double, by what vectors of 32 bits have: there is no conversion from integers without a sign.
[[gnu::always_inline]] inline double toDouble(std::int32_t x) { return x; }
[[gnu::always_inline]] inline double toDouble(std::uint32_t x) {
  return static_cast<double>(static_cast<std::int32_t>(x ^ 0x80000000u)) + 0x1p31;
}

/// The saturated sum, without a wider type.
template <class E>
[[gnu::always_inline]] inline E sum(E a, E b) {
  using Bits = std::make_unsigned_t<E>;
  if constexpr (std::is_unsigned_v<E>) {
    const auto room = static_cast<E>(~a);
    return static_cast<E>(a + (b < room ? b : room));
  } else {
    const E wrapped = static_cast<E>(static_cast<Bits>(static_cast<Bits>(a) + static_cast<Bits>(b)));
    const E limit = a < 0 ? std::numeric_limits<E>::min() : std::numeric_limits<E>::max();
    return static_cast<E>((a ^ wrapped) & (b ^ wrapped)) < 0 ? limit : wrapped;
  }
}

/// The saturated difference, without a wider type.
template <class E>
[[gnu::always_inline]] inline E difference(E a, E b) {
  using Bits = std::make_unsigned_t<E>;
  if constexpr (std::is_unsigned_v<E>) {
    return static_cast<E>(a - (a < b ? a : b));
  } else {
    const E wrapped = static_cast<E>(static_cast<Bits>(static_cast<Bits>(a) - static_cast<Bits>(b)));
    const E limit = a < 0 ? std::numeric_limits<E>::min() : std::numeric_limits<E>::max();
    return static_cast<E>((a ^ b) & (a ^ wrapped)) < 0 ? limit : wrapped;
  }
}

/// The type that holds every sum and difference, or every product, of two values of an integer type.
template <class E>
using SumOf =
    std::conditional_t<sizeof(E) == 1, std::int16_t, std::conditional_t<sizeof(E) == 2, std::int32_t, std::int64_t>>;
template <class E>
using ProductOf = std::conditional_t<std::is_signed_v<E>, SumOf<E>, std::make_unsigned_t<SumOf<E>>>;

/// A shift to the right by 1 to 31 bits, rounding half up.
template <class X>
class Shift {
 public:
  explicit Shift(int bits) : bits_(bits) {}
  [[gnu::always_inline]] inline X operator()(X x) const { return static_cast<X>(((x >> (bits_ - 1)) + 1) >> 1); }

 private:
  int bits_;
};

/// The same by 0 to 31 bits.
[[gnu::always_inline]] inline int shifted(int x, int bits) { return bits == 0 ? x : Shift<int>(bits)(x); }

/// Applies an int function of one field of every pel to each of the three, and saturates what it gives to the field.
template <class F, class... Pels>
[[gnu::always_inline]] inline qcPackedRGB16Pel fields(const F& f, Pels... pels) {
  const auto field = [&](int largest, int shift) {
    const int value = f((pels.word() >> shift & largest)...);
    return (value < 0 ? 0 : value > largest ? largest : value) << shift;
  };
  return qcPackedRGB16Pel::fromWord(static_cast<std::uint16_t>(field(31, 11) | field(63, 5) | field(31, 0)));
}

}  // namespace vnxstd::exact
