// Kernels that combine the components of two windows by an exact operation, a shift and saturation.
//
// An operation is a class with `Exact<S>`, the type of every result for components of an integer type S, `of(a, b)`,
// the operation within one type, and `saturated<D>(a, b)`, the quickest way to the saturated result.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "std/pelbuf/dispatch.h"
#include "std/pelbuf/exact.h"

namespace vnxstd {

template <class Op, class S, class D>
struct UnshiftedLoop {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const S* a, const S* b, D* to, std::ptrdiff_t count) const {
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = Op::template saturated<D>(a[i], b[i]);
  }
};

template <class Op, class S, class D>
struct ShiftedLoop {
  using X = typename Op::template Exact<S>;

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const S* a, const S* b, D* to, std::ptrdiff_t count) const {
    const exact::Shift<X> by(shift);
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      to[i] = exact::saturated<D>(by(Op::of(static_cast<X>(a[i]), static_cast<X>(b[i]))));
    }
  }

  int shift;
};

// The operation, and the shifted operation, to be specialised where there is a better way than the loop.
template <class Op, class S, class D>
struct Unshifted : UnshiftedLoop<Op, S, D> {};
template <class Op, class S, class D>
struct Shifted : ShiftedLoop<Op, S, D> {};

/// The operation in the floating type D. What fits 16 bits, or 32 with a sign, is computed there, which is as exact,
/// and converted once.
template <class D, class Op, class S>
[[gnu::always_inline]] inline D floating(S a, S b) {
  if constexpr (std::is_unsigned_v<S>) {
    using X = typename Op::template Exact<S>;
    if constexpr (sizeof(X) == 2 || std::is_same_v<X, std::int32_t>) {
      return static_cast<D>(Op::of(static_cast<X>(a), static_cast<X>(b)));
    }
  }
  return Op::of(static_cast<D>(a), static_cast<D>(b));
}

template <class Op, class S, class D>
struct Scaled {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const S* a, const S* b, D* to, std::ptrdiff_t count) const {
    const D by = factor;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = floating<D, Op>(a[i], b[i]) * by;
  }

  D factor;
};

template <class Op>
struct OfFields {
  using Pel = qcPackedRGB16Pel;

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const Pel* a, const Pel* b, Pel* to,
                                         std::ptrdiff_t count) const {
    const int bits = shift;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      to[i] = exact::fields([bits](int x, int y) { return exact::shifted(Op::of(x, y), bits); }, a[i], b[i]);
    }
  }

  int shift;
};

/// Throws qcPelFunc::BadParams for a shift that is not 0 to 31 bits.
inline void checkShift(int shift) {
  if (shift < 0 || shift > 31) throw qcPelFunc::BadParams();
}

template <class Op, class S, class D>
void combine(const qc_PelRows<const S>& a, const qc_PelRows<const S>& b, const qc_PelRows<D>& to, int shift) {
  checkShift(shift);
  if constexpr (!std::is_arithmetic_v<S>) {
    const OfFields<Op> kernel{shift};
    simd::run(kernel, a, b, to);
  } else if constexpr (std::is_floating_point_v<D>) {
    const Scaled<Op, S, D> kernel{static_cast<D>(std::ldexp(1.0, -shift))};
    simd::run(kernel, a, b, to);
  } else if (shift == 0) {
    const Unshifted<Op, S, D> kernel;
    simd::run(kernel, a, b, to);
  } else {
    const Shifted<Op, S, D> kernel{{shift}};
    simd::run(kernel, a, b, to);
  }
}

}  // namespace vnxstd

// The component types, for explicit instantiation, and those that sums and products go between: see qcPelHolds.
#define VNXSTD_FOR_COMPONENTS(apply)                                                                                  \
  apply(unsigned char) apply(signed char) apply(unsigned short) apply(short) apply(std::uint32_t) apply(std::int32_t) \
      apply(float) apply(double) apply(qcPackedRGB16Pel)
#define VNXSTD_FOR_SUMS(apply)                                                                                       \
  apply(unsigned char, unsigned char) apply(unsigned char, unsigned short) apply(unsigned char, short)               \
      apply(unsigned char, std::uint32_t) apply(unsigned char, std::int32_t) apply(unsigned char, float)             \
          apply(unsigned char, double) apply(signed char, signed char) apply(signed char, short)                     \
              apply(signed char, std::int32_t) apply(signed char, float) apply(signed char, double)                  \
                  apply(unsigned short, unsigned short) apply(unsigned short, std::uint32_t)                         \
                      apply(unsigned short, std::int32_t) apply(unsigned short, float) apply(unsigned short, double) \
                          apply(short, short) apply(short, std::int32_t) apply(short, float) apply(short, double)    \
                              apply(std::uint32_t, std::uint32_t) apply(std::uint32_t, double)                       \
                                  apply(std::int32_t, std::int32_t) apply(std::int32_t, double) apply(float, float)  \
                                      apply(float, double) apply(double, double)                                     \
                                          apply(qcPackedRGB16Pel, qcPackedRGB16Pel)
