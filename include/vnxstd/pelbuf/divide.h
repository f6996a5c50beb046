// Dividing pels by a value, and what is measured over a series of images.
//
// pelwise.h says what components are and which pels a function works on.
#pragma once

#include "vnxstd/export.h"
#include "vnxstd/pelbuf/pelwise.h"

/// Whether the quotients of pels of type S may go to pels of type D: D is S; or an integer of fewer bytes than the
/// integer S, signed only if S is; or float or double.
template <class S, class D>
concept qcPelQuotient = qcRootPelType<S> && qcRootPelType<D> &&
    (std::same_as<S, D> || (qcNumberPelType<S> && qcNumberPelType<D> &&
                            (std::floating_point<D> ||
                             (std::integral<S> && std::integral<D> && sizeof(qcStoredPel<D>) < sizeof(qcStoredPel<S>) &&
                              (std::signed_integral<S> || std::unsigned_integral<D>)))));

/// The worker of the divisions, on the components of stored pels.
template <class S, class D>
VNXSTD_EXPORT void qf_PelQuotient(const qc_PelRows<const S>& from, const qc_PelRows<D>& to, double divisor,
                                  bool isRounded);

/// src / divisor. A quotient that goes to an integer is truncated toward zero, or with the flag rounded, halves away
/// from zero, and then saturated; it is exact for divisors that are whole numbers, and otherwise the double nearest to
/// the quotient is taken. Floating results are the quotients of float where sources of 8 or 16 bits or of float become
/// float, of double rounded to the result otherwise; the flag does not matter. A divisor of 0, or one that is not a
/// number or too small for that arithmetic, is qcPelFunc::BadParams.
template <class S, class D>
requires qcPelQuotient<S, D>
void qfPelDivideByVal(const qcPelBuffer_const<S>& src, qcPelBuffer<D>& dst, double divisor, bool isRounded = false) {
  qf_PelPelwise(
      dst, [=](auto from, auto to) { qf_PelQuotient(from, to, divisor, isRounded); }, src);
}

template <qcRootPelType T>
qcPelBuffer<T> qfPelDivideByVal(const qcPelBuffer_const<T>& src, double divisor, bool isRounded = false) {
  qcPelBuffer<T> dst;
  qfPelDivideByVal(src, dst, divisor, isRounded);
  return dst;
}

/// The same for 16-bit images, with integers all through.
template <class S, class D>
requires qcPelQuotient<S, D> && std::integral<S> && std::integral<D> &&
    (sizeof(S) == 2) void qfPelIntDivideByVal(const qcPelBuffer_const<S>& src, qcPelBuffer<D>& dst, long divisor,
                                              bool isRounded) {
  qfPelDivideByVal(src, dst, static_cast<double>(divisor), isRounded);
}

/// Whether standard deviations of type D are taken of sums of type A and sums of squares of type B: all three are the
/// same type of numbers; or the sums are 16 or 32 bits with squares of 32 bits without sign or double, or both are
/// double, and the deviations are 8 or 16 bits without sign, float or double.
template <class A, class B, class D>
concept qcPelDeviation = qcNumericPelType<A> && qcNumericPelType<B> && qcNumericPelType<D> &&
    ((std::same_as<A, B> && std::same_as<A, D>) ||
     ((std::same_as<D, unsigned char> || std::same_as<D, unsigned short> || std::floating_point<D>)&&(
         (std::same_as<A, unsigned short> && std::same_as<B, unsigned long>) ||
         ((std::same_as<A, unsigned long> || std::same_as<A, long>)&&(std::same_as<B, unsigned long> ||
                                                                      std::same_as<B, double>)) ||
         (std::same_as<A, double> && std::same_as<B, double>))));

/// The worker of qfPelStandardDeviation.
template <class A, class B, class D>
VNXSTD_EXPORT void qf_PelDeviation(const qc_PelRows<const A>& sums, const qc_PelRows<const B>& squares, long count,
                                   const qc_PelRows<D>& to);

/// The standard deviation of every pel over a series of `count` images, of which the sums and the sums of squares are
/// given (see qfPelAdd and qfPelSquareAccum): the square root of
///   (count * squares - sums * sums) / (count * (count - 1)),
/// that of a sample, in double; 0 where a rounding error makes that negative. Integer results are rounded and
/// saturated, what is not a number as if it were too large. A count below 2 is qcPelFunc::BadParams.
template <class A, class B, class D>
requires qcPelDeviation<A, B, D>
void qfPelStandardDeviation(const qcPelBuffer_const<A>& sums, const qcPelBuffer_const<B>& squares, long count,
                            qcPelBuffer<D>& dst) {
  qf_PelPelwise(
      dst, [count](auto sum, auto square, auto to) { qf_PelDeviation(sum, square, count, to); }, sums, squares);
}
