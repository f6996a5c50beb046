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

// Both give the second number when neither is the smaller one, as the processor's instructions do: two comparisons the
// same way round would share their outcome and become blends, which take floating medians 1.6 times as long.
template <class E>
[[gnu::always_inline]] inline E smaller(E a, E b) {
  return a < b ? a : b;
}

template <class E>
[[gnu::always_inline]] inline E larger(E a, E b) {
  return a > b ? a : b;
}

template <class E>
[[gnu::always_inline]] inline E median(E a, E b, E c) {
  return larger(smaller(a, b), smaller(larger(a, b), c));
}

/// Sorted neighbours: rows of them, or one.
template <class E>
struct Sorted {
  E low, middle, high;
};

template <class E>
[[gnu::always_inline]] inline Sorted<E> sort(E a, E b, E c) {
  const E x = smaller(a, b), y = larger(a, b), z = smaller(y, c);
  return {smaller(x, z), larger(x, z), larger(y, c)};
}

template <class E>
class Medians {
 public:
  Medians(const qc_PelRows<const E>& src, const qc_PelRows<E>& dst, qc_PelFilter filter)
      : source_(src, 1, filter.isInPlace), dst_(dst), step_(filter.perPel), rows_(13, dst.width) {}

  /// The whole image: it is one row to the dispatcher.
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, E*, std::ptrdiff_t) {
    // The rows a and b are known sorted, c and d are sorted on the way.
    sortRow<N>(source_.enter(0), sorted(0));
    sortRow<N>(source_.enter(1), sorted(1));
    const std::ptrdiff_t step = step_;
    for (std::ptrdiff_t y = 0; y < dst_.height; y += 2) {
      const bool isPair = y + 1 < dst_.height;
      const E* const c = source_.enter(y + 2);
      const E* const d = isPair ? source_.enter(y + 3) : c;
      const Sorted<E*> a = sorted(y), b = sorted(y + 1), newC = sorted(y + 2), newD = sorted(y + 3);
      E *const first = dst_.row(y), *const second = isPair ? dst_.row(y + 1) : rows_.row(12);
      forBlocks<kLoopBlock<E, N>>(
          dst_.width, [&](std::ptrdiff_t i, std::ptrdiff_t count) __attribute__((always_inline)) {
            VNXSTD_INDEPENDENT
            for (std::ptrdiff_t k = i; k < i + count; ++k) {
              const Sorted<E> top = {a.low[k], a.middle[k], a.high[k]}, upper = {b.low[k], b.middle[k], b.high[k]};
              const Sorted<E> lower = sort(c[k], c[k + step], c[k + 2 * step]);
              const Sorted<E> bottom = sort(d[k], d[k + step], d[k + 2 * step]);
              const E low = larger(upper.low, lower.low), high = smaller(upper.high, lower.high);
              const E less = smaller(upper.middle, lower.middle), more = larger(upper.middle, lower.middle);
              first[k] = median(larger(low, top.low), larger(less, smaller(more, top.middle)), smaller(high, top.high));
              second[k] = median(larger(low, bottom.low), larger(less, smaller(more, bottom.middle)),
                                 smaller(high, bottom.high));
              newC.low[k] = lower.low, newC.middle[k] = lower.middle, newC.high[k] = lower.high;
              newD.low[k] = bottom.low, newD.middle[k] = bottom.middle, newD.high[k] = bottom.high;
            }
          });
    }
  }

 private:
  Sorted<E*> sorted(std::ptrdiff_t y) {
    const std::ptrdiff_t slot = 3 * (y % 4);
    return {rows_.row(slot), rows_.row(slot + 1), rows_.row(slot + 2)};
  }

  template <std::size_t N>
  [[gnu::always_inline]] inline void sortRow(const E* pels, Sorted<E*> to) {
    const std::ptrdiff_t step = step_, count = dst_.width;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t k = 0; k < count; ++k) {
      const Sorted<E> sorted = sort(pels[k], pels[k + step], pels[k + 2 * step]);
      to.low[k] = sorted.low, to.middle[k] = sorted.middle, to.high[k] = sorted.high;
    }
  }

  SourceRows<E> source_;
  qc_PelRows<E> dst_;
  std::ptrdiff_t step_;
  Rows<E> rows_;
};

}  // namespace

template <class E>
void qf_PelMedian3x3(const qc_PelRows<const E>& src, const qc_PelRows<E>& dst, qc_PelFilter filter) {
  Medians<E> medians(src, dst, filter);
  simd::runRow(medians, 1, dst.pels);
}

#define VNXSTD_INSTANTIATE(E) \
  template VNXSTD_EXPORT void qf_PelMedian3x3(const qc_PelRows<const E>&, const qc_PelRows<E>&, qc_PelFilter);
VNXSTD_INSTANTIATE(unsigned char)
VNXSTD_INSTANTIATE(signed char)
VNXSTD_INSTANTIATE(unsigned short)
VNXSTD_INSTANTIATE(short)
VNXSTD_INSTANTIATE(std::uint32_t)
VNXSTD_INSTANTIATE(std::int32_t)
VNXSTD_INSTANTIATE(float)
VNXSTD_INSTANTIATE(double)
