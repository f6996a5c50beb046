// Binomial smoothing. Weighting three rows or columns by 1, 2 and 1 over and over gives the binomial coefficients.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "std/pelbuf/filter.h"
#include "vnxstd/pelbuf/filter.h"

namespace {

namespace simd = vnxstd::simd;
using namespace vnxstd::pelfilter;

/// Sums weighted by 1, 2 and 1 are four times as large as what they are made of. Floating sums are made as small again
/// at once; and of the pels only a quarter is weighted, so that sums of the largest do not overflow.
template <class A>
[[gnu::always_inline]] inline A weighted(A sum) {
  if constexpr (std::is_floating_point_v<A>) {
    return sum * A(0.25);
  } else {
    return sum;
  }
}

template <class E, class A>
struct Widen {
  A scale;  // of floating numbers

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, A* to, const E* pels, std::ptrdiff_t count) const {
    [[maybe_unused]] const A factor = scale;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      if constexpr (std::is_floating_point_v<A>) {
        to[i] = pels[i] * factor;
      } else {
        to[i] = static_cast<A>(pels[i]);
      }
    }
  }
};

/// Weighs the neighbours in a row, which may be done in place: only what lies ahead is read.
template <class E, class A>
struct Along {
  std::ptrdiff_t step;
  A side;  // the weight of floating neighbours

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, A* to, const E* a, std::ptrdiff_t count) const {
    const E *const b = a + step, *const c = b + step;
    [[maybe_unused]] const A outer = side, inner = static_cast<A>(2 * side);  // what is written to cannot change them
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      if constexpr (std::is_floating_point_v<A>) {
        to[i] = a[i] * outer + c[i] * outer + b[i] * inner;
      } else {
        const A sides = static_cast<A>(static_cast<A>(a[i]) + static_cast<A>(c[i])), middle = static_cast<A>(b[i]);
        to[i] = static_cast<A>(static_cast<A>(sides + middle) + middle);
      }
    }
  }
};

/// Weighs a row, the one before and the one before that. `last` is the row before, `sum` the sum of both before; then
/// they are what the next row needs.
template <class A>
struct Down {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, A* sums, A* last, A* sum, std::ptrdiff_t count) const {
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      const A here = sums[i], both = static_cast<A>(here + last[i]);
      last[i] = here;
      sums[i] = weighted(static_cast<A>(both + sum[i]));
      sum[i] = both;
    }
  }
};

/// Weighs rows one below the other, several times.
template <class A>
class Column {
 public:
  Column(int times, std::ptrdiff_t count) : times_(times), count_(count), state_(2 * times, count) {}

  void enter(A* sums) {
    const Down<A> down;
    for (int k = 0; k < times_; ++k) simd::runRow(down, count_, sums, state_.row(2 * k), state_.row(2 * k + 1));
  }

 private:
  int times_;
  std::ptrdiff_t count_;
  Rows<A> state_;
};

/// Rows first. Of the weightings downwards the last one is done together with what makes pels of the sums.
template <class A, class E>
class Smoothing {
 public:
  Smoothing(const qc_PelRows<const E>& src, const qc_PelRows<E>& dst, qc_PelFilter filter, int x, int y)
      : src_(src), dst_(dst), step_(filter.perPel), x_(x), y_(y), rows_(3, src.width) {}

  /// Every row of the source is read before a row of the destination below it is written: in place needs no copies.
  void run() {
    Column<A> column(std::max(y_ - 1, 0), dst_.width);
    // The last floating sum, of quarters, is four of them already; without it they are multiplied.
    const int shift = !std::is_floating_point_v<A> ? 2 * (x_ + y_) : y_ == 0 && x_ > 0 ? -2 : 0;
    for (std::ptrdiff_t y = 0; y < src_.height; ++y) {
      A* const sums = rows_.row(y % 3);
      along(src_.row(y), sums);
      column.enter(sums);
      if (y < rowsLost()) continue;
      const A *const above = rows_.row((y + 2) % 3), *const top = rows_.row((y + 1) % 3);
      const A* const addends[] = {sums, above, above, top};
      finish<A, E>(addends, y_ > 0 ? 4 : 1, shift, dst_.row(y - rowsLost()), dst_.width);
    }
  }

  /// Where sums of both directions would not fit: what the shift of the rows' sums leaves and what it takes away are
  /// weighted by themselves, and the latter gives its carry.
  void runInParts() requires std::is_same_v<A, std::int64_t> {
    Column<A> whole(y_, dst_.width), part(y_, dst_.width);
    A *const sums = rows_.row(0), *const parts = rows_.row(1);
    for (std::ptrdiff_t y = 0; y < src_.height; ++y) {
      along(src_.row(y), sums);
      for (std::ptrdiff_t i = 0; i < dst_.width; ++i) {
        parts[i] = sums[i] & ((A{1} << 2 * x_) - 1);
        sums[i] >>= 2 * x_;
      }
      whole.enter(sums);
      part.enter(parts);
      if (y < rowsLost()) continue;
      for (std::ptrdiff_t i = 0; i < dst_.width; ++i) sums[i] += parts[i] >> 2 * x_;
      const A* const addends[] = {sums};
      finish<A, E>(addends, 1, 2 * y_, dst_.row(y - rowsLost()), dst_.width);
    }
  }

 private:
  /// How many rows of sums it takes before the first row of the destination.
  std::ptrdiff_t rowsLost() const { return std::ptrdiff_t{2} * y_; }

  void along(const E* pels, A* sums) const {
    if (x_ == 0) {
      const Widen<E, A> widen{static_cast<A>(y_ > 0 ? 0.25 : 1)};
      simd::runRow(widen, dst_.width, sums, pels);
      return;
    }
    const Along<E, A> first{step_, static_cast<A>(0.0625)};
    const Along<A, A> further{step_, static_cast<A>(0.25)};
    std::ptrdiff_t count = src_.width - 2 * step_;
    simd::runRow(first, count, sums, pels);
    for (int k = 1; k < x_; ++k) {
      count -= 2 * step_;
      simd::runRow(further, count, sums, static_cast<const A*>(sums));
    }
  }

  qc_PelRows<const E> src_;
  qc_PelRows<E> dst_;
  std::ptrdiff_t step_;
  int x_, y_;
  Rows<A> rows_;
};

/// Pels weighted over 3 by 3 of them, which is what is asked for most: two rows at a time share a sum, and only
/// two rows of sums go to the cache and back.
template <class A, class E>
class Smoothing3x3 {
 public:
  Smoothing3x3(const qc_PelRows<const E>& src, const qc_PelRows<E>& dst, qc_PelFilter filter)
      : src_(src),
        source_(src, 1, filter.isInPlace),
        dst_(dst),
        step_(filter.perPel),
        rows_(4, dst.width),
        spare_(1, dst.width) {}

  /// The whole image: it is one row to the dispatcher.
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, E*, std::ptrdiff_t) {
    const std::ptrdiff_t step = step_, width = dst_.width;
    const auto along = [step](const E* pels, std::ptrdiff_t k) __attribute__((always_inline)) {
      if constexpr (std::is_floating_point_v<E>) {  // a sixteenth, so that sums of the largest do not overflow
        return pels[k] * A(0.0625) + pels[k + 2 * step] * A(0.0625) + pels[k + step] * A(0.125);
      } else {
        return static_cast<A>(pels[k] + A{2} * pels[k + step] + pels[k + 2 * step]);
      }
    };
    const auto rounded = [](A sum) __attribute__((always_inline)) {
      if constexpr (std::is_floating_point_v<E>) {
        return sum;
      } else {
        return static_cast<E>((sum + 8) >> 4);
      }
    };
    const E *const top = source_.enter(0), *const upper = source_.enter(1);
    A *last = rows_.row(0), *sum = rows_.row(1), *newLast = rows_.row(2), *newSum = rows_.row(3);
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t k = 0; k < width; ++k) {
      last[k] = along(upper, k);
      sum[k] = static_cast<A>(along(top, k) + last[k]);
    }
    for (std::ptrdiff_t y = 0; y < dst_.height; y += 2) {
      const bool isPair = y + 1 < dst_.height;
      const E* const lower = source_.enter(y + 2);
      const E* const bottom = isPair ? source_.enter(y + 3) : lower;
      E *const first = dst_.row(y), *const second = isPair ? dst_.row(y + 1) : spare_.row(0);
      forBlocks<kLoopBlock<E, N>>(
          width, [&](std::ptrdiff_t i, std::ptrdiff_t count) __attribute__((always_inline)) {
            if constexpr (std::is_floating_point_v<E>) {  // without that 1.25 times as long
              for (const std::ptrdiff_t ahead : {2, 3}) {
                __builtin_prefetch(nearestRow(src_, y + 2 + ahead) + i);
                __builtin_prefetch(nearestRow(dst_, y + ahead) + i, 1);
              }
            }
            VNXSTD_INDEPENDENT
            for (std::ptrdiff_t k = i; k < i + count; ++k) {
              const A three = along(lower, k), four = along(bottom, k);
              const A middle = static_cast<A>(last[k] + three), below = static_cast<A>(three + four);
              first[k] = rounded(static_cast<A>(sum[k] + middle));
              second[k] = rounded(static_cast<A>(middle + below));
              newLast[k] = four;
              newSum[k] = below;
            }
          });
      std::swap(last, newLast);
      std::swap(sum, newSum);
    }
  }

 private:
  qc_PelRows<const E> src_;
  SourceRows<E> source_;
  qc_PelRows<E> dst_;
  std::ptrdiff_t step_;
  Rows<A> rows_;
  Rows<E> spare_;
};

}  // namespace

template <class E>
void qf_PelSmooth(const qc_PelRows<const E>& src, const qc_PelRows<E>& dst, qc_PelFilter filter, int x, int y) {
  const auto with = [&]<class A>(A) {
    if (x == 1 && y == 1) {
      Smoothing3x3<A, E> smoothing(src, dst, filter);
      simd::runRow(smoothing, 1, dst.pels);
    } else {
      Smoothing<A, E>(src, dst, filter, x, y).run();
    }
  };
  if constexpr (std::is_floating_point_v<E>) {
    with(E{});
  } else {
    using Narrow = std::conditional_t<std::is_signed_v<E>, std::int16_t, std::uint16_t>;
    using Middle = std::conditional_t<std::is_signed_v<E>, std::int32_t, std::uint32_t>;
    const int bits = 2 * (x + y);
    const double weight = std::ldexp(1, bits);
    if constexpr (sizeof(E) == 1) {
      if (holds<Narrow, E>(weight, bits)) return with(Narrow{});
    }
    if constexpr (sizeof(E) <= 2) {
      if (holds<Middle, E>(weight, bits)) return with(Middle{});
    }
    if (holds<std::int64_t, E>(weight, bits)) return with(std::int64_t{});
    Smoothing<std::int64_t, E>(src, dst, filter, x, y).runInParts();
  }
}

#define VNXSTD_INSTANTIATE(E) \
  template VNXSTD_EXPORT void qf_PelSmooth(const qc_PelRows<const E>&, const qc_PelRows<E>&, qc_PelFilter, int, int);
VNXSTD_INSTANTIATE(unsigned char)
VNXSTD_INSTANTIATE(signed char)
VNXSTD_INSTANTIATE(unsigned short)
VNXSTD_INSTANTIATE(short)
VNXSTD_INSTANTIATE(std::uint32_t)
VNXSTD_INSTANTIATE(std::int32_t)
VNXSTD_INSTANTIATE(float)
VNXSTD_INSTANTIATE(double)
