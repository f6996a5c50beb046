// Neighbourhood functions: sums over boxes, binomial smoothing, medians.
//
// They write a pel of the destination where the whole neighbourhood of the pel with the same image coordinates lies in
// the source's window, so that a result lies on its source; other pels of the destination stay as they are. A new image
// is as much smaller than the source's window as the neighbourhood is larger than a pel, with the source's transform.
// What prepare.h says of errors holds here as well. In place is allowed, that is, in any window of the same root in
// which every pel has the same image coordinates; a destination that shares pels with the neighbourhoods in any other
// way is refused.
//
// Pels of several components, pairs and colours (alpha included), are filtered component by component. The rows of a
// neighbourhood are buffered as numbers of up to 64 bits; packed 16-bit colours are unpacked into an image
// first, with the bits of a component as a number from 0 on.
#pragma once

#include <concepts>
#include <cstddef>
#include <type_traits>

#include "vnxstd/export.h"
#include "vnxstd/pelbuf/measure.h"
#include "vnxstd/pelbuf/prepare.h"

/// The number that a component is.
template <qcRootPelType T>
using qc_PelComponent = std::conditional_t<qcNumericPelType<T>, typename qcPelTraits<T>::Element, unsigned char>;

/// Pel types that a sum of the first can be stored as: of as many components, floating numbers for floating numbers and
/// integers for integers; of colours, the same.
template <class S, class D>
concept qcSumPelTypes = qcRootPelType<S> && qcRootPelType<D> &&
    (std::same_as<S, D> || (qcNumericPelType<S> && qcNumericPelType<D> && qcPairPelType<S> == qcPairPelType<D> &&
                            std::floating_point<qc_PelComponent<S>> == std::floating_point<qc_PelComponent<D>>));

/// How a filter goes over rows of components.
struct qc_PelFilter {
  std::ptrdiff_t perPel = 1;  ///< components side by side in a pel: the distance to the next pel's
  bool isInPlace = false;     ///< the destination's pels are among the source's
};

/// The workers. The source is larger than the destination by the neighbourhood's size less one pel.
template <class S, class D>
VNXSTD_EXPORT void qf_PelBoxSum(const qc_PelRows<const S>& src, const qc_PelRows<D>& dst, qc_PelFilter filter,
                                long width, long height, int shift);
template <class E>
VNXSTD_EXPORT void qf_PelSmooth(const qc_PelRows<const E>& src, const qc_PelRows<E>& dst, qc_PelFilter filter, int x,
                                int y);
template <class E>
VNXSTD_EXPORT void qf_PelMedian3x3(const qc_PelRows<const E>& src, const qc_PelRows<E>& dst, qc_PelFilter filter);

/// The box of pels, relative to the one in its middle; of even sizes, the extra column is on the right and the extra
/// row below. Throws qcPelFunc::BadParams for a size below 1 and for more than 2^31 - 1 pels.
VNXSTD_EXPORT qcPelRect qf_PelBox(long width, long height);

/// The pels of a window whose whole neighbourhood lies in it; where there are none, an empty rectangle at its corner.
VNXSTD_EXPORT qcPelRect qf_PelInside(const qcPelRect& window, const qcPelRect& neighbourhood);

/// Limits a bound destination to the pels whose neighbourhood lies in the source's window, and the source to those
/// neighbourhoods. Returns whether the filter works in place; throws qcPelFunc::Overlap.
VNXSTD_EXPORT bool qf_PelPrepareFilter(qc_PelBuffer& src, qc_PelBuffer& dst, const qcPelRect& neighbourhood);

/// The components of packed pels as numbers, 0 to 31 or 63, in a new image of the same window; and back, where larger
/// numbers become the largest.
VNXSTD_EXPORT qcPelBuffer<qcPackedRGB32Pel> qf_PelUnpackFields(const qcPelBuffer_const<qcPackedRGB16Pel>& packed);
VNXSTD_EXPORT void qf_PelPackFields(const qcPelBuffer_const<qcPackedRGB32Pel>& fields,
                                    const qcPelBuffer<qcPackedRGB16Pel>& packed);

/// Calls work(source rows, destination rows, filter) for the components of every plane.
template <class S, class D, class Work>
void qf_PelFilterWindow(const qcPelBuffer_const<S>& src, qcPelBuffer<D>& dst, const qcPelRect& neighbourhood,
                        Work&& work) {
  if (!src.isBound()) throw qcPel::UnboundWindow();
  qcPelBuffer_const<S> from(src);
  qcPelBuffer<D> to(dst);
  if (!to.isBound()) {
    to = qcPelBuffer<D>(qf_PelInside(from.window(), neighbourhood));
    to.copyXforms(from);
  }
  qc_PelFilter filter;
  filter.isInPlace = qf_PelPrepareFilter(from, to, neighbourhood);
  if constexpr (std::same_as<S, qcPackedRGB16Pel>) {
    const qcPelBuffer<qcPackedRGB32Pel> fields = qf_PelUnpackFields(from);
    qcPelBuffer<qcPackedRGB32Pel> results;
    qf_PelFilterWindow(fields, results, neighbourhood, work);
    qf_PelPackFields(results, to);
  } else {
    qf_PelForPlanes(from, to, [&](const auto& s, const auto& d) {
      const auto rows = qf_PelRowsAs<const qc_PelComponent<S>>(qf_PelRows(s));
      if (rows.isEmpty()) return;
      filter.perPel = rows.width / s.width();
      work(rows, qf_PelRowsAs<qc_PelComponent<D>>(qf_PelRows(d)), filter);
    });
  }
  if (!dst.isBound()) dst = to;
}

/// Sums of boxes of `width` by `height` pels, shifted right by `shift` bits: an average when that many bits are the
/// number of pels. Integers are summed exactly, rounded half up after the shift and saturated; floating numbers are
/// multiplied by 2^-shift and summed in double. Throws qcPelFunc::BadParams for a shift outside 0 to 31, and for a box
/// without pels or of more than 2^31 - 1. The cost of a pel does not depend on the size of the box.
template <class S, class D>
requires qcSumPelTypes<S, D>
void qfPelSpatialAvg(const qcPelBuffer_const<S>& src, qcPelBuffer<D>& dst, long width, long height, long shift) {
  if (shift < 0 || shift > 31) throw qcPelFunc::BadParams();
  qf_PelFilterWindow(src, dst, qf_PelBox(width, height), [&](auto s, auto d, qc_PelFilter filter) {
    qf_PelBoxSum(s, d, filter, width, height, static_cast<int>(shift));
  });
}

template <qcRootPelType T>
qcPelBuffer<T> qfPelSpatialAvg(const qcPelBuffer_const<T>& src, long width, long height, long shift) {
  qcPelBuffer<T> dst;
  qfPelSpatialAvg(src, dst, width, height, shift);
  return dst;
}

/// Averages weighted by binomial coefficients, of 2 `x` + 1 columns and 2 `y` + 1 rows: (1 2 1) / 4 for a half-width of
/// 1, (1 4 6 4 1) / 16 for 2; 0 leaves that direction alone. Integers are exact and rounded half up; floating numbers
/// are summed in their own type. Throws qcPelFunc::BadParams for a half-width outside 0 to 15. The cost grows with
/// x + y.
template <qcRootPelType T>
void qfPelSmooth(const qcPelBuffer_const<T>& src, qcPelBuffer<T>& dst, int x, int y) {
  if (x < 0 || x > 15 || y < 0 || y > 15) throw qcPelFunc::BadParams();
  qf_PelFilterWindow(src, dst, qf_PelBox(2L * x + 1, 2L * y + 1),
                     [&](auto s, auto d, qc_PelFilter filter) { qf_PelSmooth(s, d, filter, x, y); });
}

/// Medians of 3 by 3 pels. Where a floating neighbourhood holds NaN, the result is some pel of it.
template <qcRootPelType T>
void qfPelMedian3x3(const qcPelBuffer_const<T>& src, qcPelBuffer<T>& dst) {
  qf_PelFilterWindow(src, dst, qf_PelBox(3, 3),
                     [](auto s, auto d, qc_PelFilter filter) { qf_PelMedian3x3(s, d, filter); });
}
