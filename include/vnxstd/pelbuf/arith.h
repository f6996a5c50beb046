// Pel-wise arithmetic.
//
// A function of two sources works on the pels that all its windows have in common in image coordinates; prepare.h says
// how destinations are treated and what is thrown. In place is allowed. The forms without a destination return a new
// image.
#pragma once

#include "vnxstd/export.h"
#include "vnxstd/pelbuf/measure.h"
#include "vnxstd/pelbuf/prepare.h"

/// The worker of qfPelMin and qfPelMax, on the numbers of stored pels.
template <class E>
VNXSTD_EXPORT void qf_PelPick(bool largest, qc_PelRows<const E> a, qc_PelRows<const E> b, qc_PelRows<E> to);

template <qcNumericPelType T>
void qf_PelPickWindow(bool largest, const qcPelBuffer_const<T>& a, const qcPelBuffer_const<T>& b, qcPelBuffer<T>& dst) {
  qcPelBuffer_const<T> first(a), second(b);
  qcPelBuffer<T> to(dst);
  qf_PelPrepareAlloc_2s1d(first, second, to);
  using Element = typename qcPelTraits<T>::Element;
  qf_PelPick(largest, qf_PelNumbers(first), qf_PelNumbers(second), qf_PelRowsAs<Element>(qf_PelRows(to)));
  if (!dst.isBound()) dst = to;
}

/// The smaller of two pels; of pairs, of each component by itself. Of a number and NaN it is the number, of two equal
/// ones (+0 and -0) the first.
template <qcNumericPelType T>
void qfPelMin(const qcPelBuffer_const<T>& a, const qcPelBuffer_const<T>& b, qcPelBuffer<T>& dst) {
  qf_PelPickWindow(false, a, b, dst);
}

/// The larger of two pels, otherwise as qfPelMin.
template <qcNumericPelType T>
void qfPelMax(const qcPelBuffer_const<T>& a, const qcPelBuffer_const<T>& b, qcPelBuffer<T>& dst) {
  qf_PelPickWindow(true, a, b, dst);
}

template <qcNumericPelType T>
qcPelBuffer<T> qfPelMin(const qcPelBuffer_const<T>& a, const qcPelBuffer_const<T>& b) {
  qcPelBuffer<T> dst;
  qfPelMin(a, b, dst);
  return dst;
}

template <qcNumericPelType T>
qcPelBuffer<T> qfPelMax(const qcPelBuffer_const<T>& a, const qcPelBuffer_const<T>& b) {
  qcPelBuffer<T> dst;
  qfPelMax(a, b, dst);
  return dst;
}
