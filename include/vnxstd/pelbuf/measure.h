// Measuring windows: equality, extremes, histograms.
//
// All functions throw qcPel::UnboundWindow for an unbound buffer. They only read, so several threads may measure the
// same pels. Their cost is one pass over the window.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <type_traits>
#include <vector>

#include "vnxstd/export.h"
#include "vnxstd/pelbuf/apply.h"

/// A pel type of one number.
template <class T>
concept qcNumberPelType = qcFlatPelType<T> && std::is_arithmetic_v<T>;

/// A pel type of two numbers.
template <class T>
concept qcPairPelType = std::same_as<T, qcPair<long>> || std::same_as<T, qcPair<float>>;

/// A pel type of one or two numbers.
template <class T>
concept qcNumericPelType = qcNumberPelType<T> || qcPairPelType<T>;

/// A pel type of which histograms are taken.
template <class T>
concept qcHistogramPelType = qcNumberPelType<T> && std::integral<T> && sizeof(T) <= 2;

/// The workers, on the numbers of stored pels.
template <class E>
VNXSTD_EXPORT void qf_PelExtremes(const qc_PelRows<const E>& elements, int perPel, E* lo, E* hi);
template <class S>
VNXSTD_EXPORT bool qf_PelHistogram(const qc_PelRows<const S>& rows, std::vector<unsigned long>& counts);
template <class E>
VNXSTD_EXPORT bool qf_PelEqual(const qc_PelRows<const E>& a, const qc_PelRows<const E>& b);

/// Whether two windows have the same size and the same pels, wherever they lie. Floating numbers are compared by value:
/// NaN differs from everything, itself included, and +0 equals -0. Packed colours count with all their bits.
template <class T>
bool qfPelEqual(const qcPelBuffer_const<T>& a, const qcPelBuffer_const<T>& b) {
  if (!a.isBound() || !b.isBound()) throw qcPel::UnboundWindow();
  if (a.size() != b.size()) return false;
  if constexpr (qcFlatPelType<T>) {
    using Element = typename qcPelTraits<T>::Element;
    using Compared = std::conditional_t<std::is_floating_point_v<Element>, const Element, const unsigned char>;
    return qf_PelEqual(qf_PelRowsAs<Compared>(qf_PelRows(a)), qf_PelRowsAs<Compared>(qf_PelRows(b)));
  } else {
    return qfPelEqual(a.planeBuffer(0), b.planeBuffer(0)) && qfPelEqual(a.planeBuffer(1), b.planeBuffer(1)) &&
           qfPelEqual(a.planeBuffer(2), b.planeBuffer(2));
  }
}

/// The smallest and the largest value of a window; of pairs and colours (alpha included), of each component by itself.
/// NaN is passed over, and the result is NaN when there is nothing else; a zero is reported as +0. Throws
/// qcPelFunc::BadParams for an empty window, and then sets neither.
template <qcRootPelType T>
void qfPelMinmax(const qcPelBuffer_const<T>& buffer, T& min, T& max) {
  if constexpr (std::same_as<T, qc3PlanePel>) {
    T lo, hi;
    qfPelMinmax(buffer.planeBuffer(0), lo.plane0(), hi.plane0());
    qfPelMinmax(buffer.planeBuffer(1), lo.plane1(), hi.plane1());
    qfPelMinmax(buffer.planeBuffer(2), lo.plane2(), hi.plane2());
    min = lo;
    max = hi;
  } else {
    const auto rows = qf_PelRows(buffer);
    if (rows.isEmpty()) throw qcPelFunc::BadParams();
    if constexpr (std::same_as<T, qcPackedRGB16Pel>) {
      unsigned char lo[3] = {255, 255, 255}, hi[3] = {};
      const auto include = [&lo, &hi](const T* pels, std::ptrdiff_t count) {
        for (std::ptrdiff_t i = 0; i < count; ++i) {
          const unsigned char components[3] = {pels[i].r(), pels[i].g(), pels[i].b()};
          for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], components[k]);
            hi[k] = std::max(hi[k], components[k]);
          }
        }
      };
      qf_PelForRows(include, rows);
      min = T(lo[0], lo[1], lo[2]);
      max = T(hi[0], hi[1], hi[2]);
    } else if constexpr (std::same_as<T, qcPackedRGB32Pel>) {
      unsigned char lo[4], hi[4];
      qf_PelExtremes(qf_PelRowsAs<const unsigned char>(rows), 4, lo, hi);
      min = T(lo[2], lo[1], lo[0], lo[3]);
      max = T(hi[2], hi[1], hi[0], hi[3]);
    } else {
      using Traits = qcPelTraits<T>;
      typename Traits::Element lo[Traits::elements], hi[Traits::elements];
      qf_PelExtremes(qf_PelRowsAs<const typename Traits::Element>(rows), Traits::elements, lo, hi);
      if constexpr (qcPairPelType<T>) {
        min = Traits::load({lo[0], lo[1]});
        max = Traits::load({hi[0], hi[1]});
      } else {
        min = Traits::load(lo[0]);
        max = Traits::load(hi[0]);
      }
    }
  }
}

/// The smallest value of a window, as qfPelMinmax has it.
template <qcRootPelType T>
T qfPelMin(const qcPelBuffer_const<T>& buffer) {
  T min, max;
  qfPelMinmax(buffer, min, max);
  return min;
}

/// The largest value of a window, as qfPelMinmax has it.
template <qcRootPelType T>
T qfPelMax(const qcPelBuffer_const<T>& buffer) {
  T min, max;
  qfPelMinmax(buffer, min, max);
  return max;
}

/// Adds the number of pels of every value to `counts`: that of value v to counts[v - least], least being the least
/// value of the pel type (so that counts[128] counts the zeros of a signed 8-bit image). An empty vector first takes
/// the size that the largest value in the window needs; any other keeps its size, and pels that it has no count for are
/// dropped. `dropped` tells whether there were any. An empty window adds nothing. Counts accumulate over calls: clear
/// the vector to start afresh.
template <qcHistogramPelType T>
void qfPelHistogram(const qcPelBuffer_const<T>& buffer, std::vector<unsigned long>& counts, bool& dropped) {
  dropped = qf_PelHistogram(qf_PelRows(buffer), counts);
}

template <qcHistogramPelType T>
void qfPelHistogram(const qcPelBuffer_const<T>& buffer, std::vector<unsigned long>& counts) {
  qf_PelHistogram(qf_PelRows(buffer), counts);
}
