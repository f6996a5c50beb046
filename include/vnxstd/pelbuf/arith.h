// Pel-wise arithmetic: extremes, sums, differences and products of two windows.
//
// Sums, differences and products of integers are computed exactly, shifted to the right by `shift` bits, rounding half
// up, and saturated: a result beyond the destination's range becomes the end of the range. Floating numbers are
// converted to the destination's type first, and the result is scaled by 2 to the power of -shift; nothing is
// saturated. A shift that is not 0 to 31 is qcPelFunc::BadParams. pelwise.h says what components are and which types a
// destination may have beside the sources' own: a wider one that holds every value of the sources. The forms without a
// destination return images of the sources' type.
//
// All of it runs at the speed of memory or near it, at one instruction-set level as at another with the same bits.
#pragma once

#include "vnxstd/export.h"
#include "vnxstd/pelbuf/pelwise.h"

/// The workers, on the components of stored pels.
template <class C>
VNXSTD_EXPORT void qf_PelPick(bool largest, const qc_PelRows<const C>& a, const qc_PelRows<const C>& b,
                              const qc_PelRows<C>& to);
template <class S, class D>
VNXSTD_EXPORT void qf_PelSum(const qc_PelRows<const S>& a, const qc_PelRows<const S>& b, const qc_PelRows<D>& to,
                             int shift);
template <class S, class D>
VNXSTD_EXPORT void qf_PelDifference(const qc_PelRows<const S>& a, const qc_PelRows<const S>& b, const qc_PelRows<D>& to,
                                    int shift);
template <class S, class D>
VNXSTD_EXPORT void qf_PelProduct(const qc_PelRows<const S>& a, const qc_PelRows<const S>& b, const qc_PelRows<D>& to,
                                 int shift);
template <class S, class D>
VNXSTD_EXPORT void qf_PelProductSum(const qc_PelRows<const S>& a, const qc_PelRows<const S>& b,
                                    const qc_PelRows<const D>& c, const qc_PelRows<D>& to, int shift);
template <class S, class D>
VNXSTD_EXPORT void qf_PelSquareSum(const qc_PelRows<const S>& from, const qc_PelRows<D>& to, int shift);
VNXSTD_EXPORT void qf_PelInvert(const qc_PelRows<const unsigned char>& from, const qc_PelRows<unsigned char>& to);

/// The smaller of two components. Of a number and NaN it is the number, of two equal ones (+0 and -0) the first.
template <qcRootPelType T>
void qfPelMin(const qcPelBuffer_const<T>& a, const qcPelBuffer_const<T>& b, qcPelBuffer<T>& dst) {
  qf_PelPelwise(
      dst, [](auto x, auto y, auto to) { qf_PelPick(false, x, y, to); }, a, b);
}

template <qcRootPelType T>
qcPelBuffer<T> qfPelMin(const qcPelBuffer_const<T>& a, const qcPelBuffer_const<T>& b) {
  qcPelBuffer<T> dst;
  qfPelMin(a, b, dst);
  return dst;
}

/// The larger of two components, otherwise as qfPelMin.
template <qcRootPelType T>
void qfPelMax(const qcPelBuffer_const<T>& a, const qcPelBuffer_const<T>& b, qcPelBuffer<T>& dst) {
  qf_PelPelwise(
      dst, [](auto x, auto y, auto to) { qf_PelPick(true, x, y, to); }, a, b);
}

template <qcRootPelType T>
qcPelBuffer<T> qfPelMax(const qcPelBuffer_const<T>& a, const qcPelBuffer_const<T>& b) {
  qcPelBuffer<T> dst;
  qfPelMax(a, b, dst);
  return dst;
}

/// a + b.
template <class S, class D>
requires qcPelHolds<S, D>
void qfPelAdd(const qcPelBuffer_const<S>& a, const qcPelBuffer_const<S>& b, qcPelBuffer<D>& dst, int shift = 0) {
  qf_PelPelwise(
      dst, [shift](auto x, auto y, auto to) { qf_PelSum(x, y, to, shift); }, a, b);
}

template <qcRootPelType T>
qcPelBuffer<T> qfPelAdd(const qcPelBuffer_const<T>& a, const qcPelBuffer_const<T>& b, int shift = 0) {
  qcPelBuffer<T> dst;
  qfPelAdd(a, b, dst, shift);
  return dst;
}

/// a - b.
template <class S, class D>
requires qcPelHolds<S, D>
void qfPelSub(const qcPelBuffer_const<S>& a, const qcPelBuffer_const<S>& b, qcPelBuffer<D>& dst, int shift = 0) {
  qf_PelPelwise(
      dst, [shift](auto x, auto y, auto to) { qf_PelDifference(x, y, to, shift); }, a, b);
}

template <qcRootPelType T>
qcPelBuffer<T> qfPelSub(const qcPelBuffer_const<T>& a, const qcPelBuffer_const<T>& b, int shift = 0) {
  qcPelBuffer<T> dst;
  qfPelSub(a, b, dst, shift);
  return dst;
}

/// a * b.
template <class S, class D>
requires qcPelHolds<S, D>
void qfPelMult(const qcPelBuffer_const<S>& a, const qcPelBuffer_const<S>& b, qcPelBuffer<D>& dst, int shift = 0) {
  qf_PelPelwise(
      dst, [shift](auto x, auto y, auto to) { qf_PelProduct(x, y, to, shift); }, a, b);
}

template <qcRootPelType T>
qcPelBuffer<T> qfPelMult(const qcPelBuffer_const<T>& a, const qcPelBuffer_const<T>& b, int shift = 0) {
  qcPelBuffer<T> dst;
  qfPelMult(a, b, dst, shift);
  return dst;
}

/// a * b shifted, plus c, then saturated.
template <class S, class D>
requires qcPelHolds<S, D>
void qfPelMultAdd(const qcPelBuffer_const<S>& a, const qcPelBuffer_const<S>& b, const qcPelBuffer_const<D>& c,
                  qcPelBuffer<D>& dst, int shift = 0) {
  qf_PelPelwise(
      dst, [shift](auto x, auto y, auto z, auto to) { qf_PelProductSum(x, y, z, to, shift); }, a, b, c);
}

/// The same as a new image of the type of c.
template <class S, class D>
requires qcPelHolds<S, D> qcPelBuffer<D> qfPelMultAdd(const qcPelBuffer_const<S>& a, const qcPelBuffer_const<S>& b,
                                                      const qcPelBuffer_const<D>& c, int shift = 0) {
  qcPelBuffer<D> dst;
  qfPelMultAdd(a, b, c, dst, shift);
  return dst;
}

/// src * src.
template <class S, class D>
requires qcPelHolds<S, D>
void qfPelSquare(const qcPelBuffer_const<S>& src, qcPelBuffer<D>& dst, int shift = 0) {
  qf_PelPelwise(
      dst, [shift](auto x, auto to) { qf_PelProduct(x, x, to, shift); }, src);
}

/// dst + (src * src shifted), then saturated. The destination must be bound: otherwise qcPel::UnboundWindow.
template <class S, class D>
requires qcPelHolds<S, D>
void qfPelSquareAccum(const qcPelBuffer_const<S>& src, qcPelBuffer<D>& dst, int shift = 0) {
  if (!dst.isBound()) throw qcPel::UnboundWindow();
  qf_PelPelwise(
      dst, [shift](auto from, auto to) { qf_PelSquareSum(from, to, shift); }, src);
}

/// 255 - src: grey images become their negatives.
inline void qfPelInvert_U8(const qcPelBuffer_const<unsigned char>& src, qcPelBuffer<unsigned char>& dst) {
  qf_PelPelwise(
      dst, [](auto x, auto to) { qf_PelInvert(x, to); }, src);
}

inline qcPelBuffer<unsigned char> qfPelInvert_U8(const qcPelBuffer_const<unsigned char>& src) {
  qcPelBuffer<unsigned char> dst;
  qfPelInvert_U8(src, dst);
  return dst;
}
