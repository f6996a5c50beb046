// Medians of 3 by 3 pels: every column is sorted once, for the three windows that it belongs to. The median is then
// that of the largest of the low, the middle one of the middle and the smallest of the high values (Smith,
// "Implementing median filters in XC4000E FPGAs", 1996).
#include <cstddef>
#include <cstdint>

#include "std/pelbuf/filter.h"
#include "vnxstd/pelbuf/filter.h"

namespace {

namespace simd = vnxstd::simd;
using namespace vnxstd::pelfilter;

template <class E>
[[gnu::always_inline]] inline E smaller(E a, E b) {
  return a < b ? a : b;
}

/// Together with smaller() a permutation of both, also of NaN.
template <class E>
[[gnu::always_inline]] inline E larger(E a, E b) {
  return a < b ? b : a;
}

template <class E>
struct SortColumns {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const E* a, const E* b, const E* c, E* low, E* middle, E* high,
                                         std::ptrdiff_t count) const {
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      const E x = smaller(a[i], b[i]), y = larger(a[i], b[i]), z = smaller(y, c[i]);
      high[i] = larger(y, c[i]);
      low[i] = smaller(x, z);
      middle[i] = larger(x, z);
    }
  }
};

template <class E>
struct MedianOfColumns {
  std::ptrdiff_t step;

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, E* to, const E* low, const E* middle, const E* high,
                                         std::ptrdiff_t count) const {
    const E *const low1 = low + step, *const low2 = low1 + step;
    const E *const middle1 = middle + step, *const middle2 = middle1 + step;
    const E *const high1 = high + step, *const high2 = high1 + step;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      to[i] = median(larger(larger(low[i], low1[i]), low2[i]), median(middle[i], middle1[i], middle2[i]),
                     smaller(smaller(high[i], high1[i]), high2[i]));
    }
  }

 private:
  [[gnu::always_inline]] static E median(E a, E b, E c) { return larger(smaller(a, b), smaller(larger(a, b), c)); }
};

}  // namespace

template <class E>
void qf_PelMedian3x3(qc_PelRows<const E> src, qc_PelRows<E> dst, qc_PelFilter filter) {
  SourceRows<E> rows(src, 2, filter.isInPlace);
  SumRows<E> sorted(3, src.width);
  E *const low = sorted.row(0), *const middle = sorted.row(1), *const high = sorted.row(2);
  const SortColumns<E> sort;
  const MedianOfColumns<E> median{filter.perPel};
  rows.enter(0);
  rows.enter(1);
  for (std::ptrdiff_t y = 0; y < dst.height; ++y) {
    const E* const below = rows.enter(y + 2);
    simd::runRow(sort, src.width, rows.row(y), rows.row(y + 1), below, low, middle, high);
    simd::runRow(median, dst.width, dst.row(y), static_cast<const E*>(low), static_cast<const E*>(middle),
                 static_cast<const E*>(high));
  }
}

#define VNXSTD_INSTANTIATE(E) \
  template VNXSTD_EXPORT void qf_PelMedian3x3(qc_PelRows<const E>, qc_PelRows<E>, qc_PelFilter);
VNXSTD_INSTANTIATE(unsigned char)
VNXSTD_INSTANTIATE(signed char)
VNXSTD_INSTANTIATE(unsigned short)
VNXSTD_INSTANTIATE(short)
VNXSTD_INSTANTIATE(std::uint32_t)
VNXSTD_INSTANTIATE(std::int32_t)
VNXSTD_INSTANTIATE(float)
VNXSTD_INSTANTIATE(double)
