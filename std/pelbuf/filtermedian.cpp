// Medians of 3 by 3 pels. Three neighbours in a row are sorted once, for the three windows that they belong to; the
// median is then that of the largest of the low, the middle one of the middle and the smallest of the high values. Two
// rows of medians at a time share what they have to compare.
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
[[gnu::always_inline]] inline E median(E a, E b, E c) {
  return larger(smaller(a, b), smaller(larger(a, b), c));
}

/// A row of sorted neighbours.
template <class E>
struct Sorted {
  E *low, *middle, *high;
};

template <class E>
class Medians {
 public:
  Medians(qc_PelRows<const E> src, qc_PelRows<E> dst, std::ptrdiff_t step)
      : src_(src), dst_(dst), step_(step), rows_(3 * kKept + 1, dst.width) {}

  /// The whole image: it is one row to the dispatcher. In place, all that is still needed of a row has been sorted
  /// before the row is written.
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, E*, std::ptrdiff_t) {
    sort<N>(0);
    sort<N>(1);
    for (std::ptrdiff_t y = 0; y < dst_.height; y += 2) {
      const bool isPair = y + 1 < dst_.height;
      sort<N>(y + 2);
      if (isPair) sort<N>(y + 3);
      const Sorted<E> a = sorted(y), b = sorted(y + 1), c = sorted(y + 2), d = sorted(isPair ? y + 3 : y);
      E *const first = dst_.row(y), *const second = isPair ? dst_.row(y + 1) : rows_.row(3 * kKept);
      blocks<N>([&](std::ptrdiff_t i, std::ptrdiff_t count) __attribute__((always_inline)) {
        VNXSTD_INDEPENDENT
        for (std::ptrdiff_t k = i; k < i + count; ++k) {
          const E low = larger(b.low[k], c.low[k]), high = smaller(b.high[k], c.high[k]);
          const E less = smaller(b.middle[k], c.middle[k]), more = larger(b.middle[k], c.middle[k]);
          const E one = larger(less, smaller(more, a.middle[k])), other = larger(less, smaller(more, d.middle[k]));
          first[k] = median(larger(low, a.low[k]), one, smaller(high, a.high[k]));
          second[k] = median(larger(low, d.low[k]), other, smaller(high, d.high[k]));
        }
      });
    }
  }

 private:
  static constexpr std::ptrdiff_t kKept = 4;

  Sorted<E> sorted(std::ptrdiff_t y) {
    const std::ptrdiff_t slot = 3 * (y % kKept);
    return {rows_.row(slot), rows_.row(slot + 1), rows_.row(slot + 2)};
  }

  template <std::size_t N>
  [[gnu::always_inline]] inline void sort(std::ptrdiff_t y) {
    const E *const left = src_.row(y), *const here = left + step_, *const right = here + step_;
    const Sorted<E> to = sorted(y);
    blocks<N>([&](std::ptrdiff_t i, std::ptrdiff_t count) __attribute__((always_inline)) {
      VNXSTD_INDEPENDENT
      for (std::ptrdiff_t k = i; k < i + count; ++k) {
        const E x = smaller(left[k], here[k]), y1 = larger(left[k], here[k]), z = smaller(y1, right[k]);
        to.high[k] = larger(y1, right[k]);
        to.low[k] = smaller(x, z);
        to.middle[k] = larger(x, z);
      }
    });
  }

  /// Calls work with blocks of a row; the last one overlaps the one before, rather than leave pels to be done one by
  /// one. Computing a pel twice does no harm.
  template <std::size_t N, class Work>
  [[gnu::always_inline]] inline void blocks(Work&& work) const {
    constexpr std::ptrdiff_t block = N / sizeof(E);
    const std::ptrdiff_t count = dst_.width;
    if (count < block) return work(0, count);
    std::ptrdiff_t i = 0;
    for (; i + block <= count; i += block) work(i, block);
    if (i < count) work(count - block, block);
  }

  qc_PelRows<const E> src_;
  qc_PelRows<E> dst_;
  std::ptrdiff_t step_;
  Rows<E> rows_;
};

}  // namespace

template <class E>
void qf_PelMedian3x3(qc_PelRows<const E> src, qc_PelRows<E> dst, qc_PelFilter filter) {
  Medians<E> medians(src, dst, filter.perPel);
  simd::runRow(medians, 1, dst.pels);
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
