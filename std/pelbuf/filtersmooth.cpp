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

/// Scaling floating pels first keeps the largest of them from overflowing; it is exact but for the smallest.
template <class S, class A>
struct Scaled {
  double scale;

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, A* to, const S* pels, std::ptrdiff_t count) const {
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      if constexpr (std::is_floating_point_v<A>) {
        to[i] = static_cast<A>(pels[i]) * scale;
      } else {
        to[i] = static_cast<A>(pels[i]);
      }
    }
  }
};

/// Makes of a row the sum of it, twice the one before and the one before that. `last` is the row before, `sum` the sum
/// of both before; then they are what the next row needs.
template <class A>
struct Down {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, A* sums, A* last, A* sum, std::ptrdiff_t count) const {
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      const A here = sums[i], both = static_cast<A>(here + last[i]);
      last[i] = here;
      sums[i] = static_cast<A>(both + sum[i]);
      sum[i] = both;
    }
  }
};

/// The same along a row, in place: only what lies ahead is read.
template <class A>
struct Along {
  std::ptrdiff_t step;

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, A* sums, std::ptrdiff_t count) const {
    const A *const b = sums + step, *const c = b + step;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) sums[i] = static_cast<A>(sums[i] + b[i] + b[i] + c[i]);
  }
};

template <class A, class E>
class Smoothing {
 public:
  Smoothing(qc_PelRows<const E> src, qc_PelRows<E> dst, qc_PelFilter filter, int x, int y)
      : src_(src), dst_(dst), step_(filter.perPel), x_(x), y_(y), rows_(2 * y + 2, src.width) {}

  /// Every row of the source is read before a row of the destination below it is written: in place needs no copies.
  void run() {
    const int bits = 2 * (x_ + y_);
    constexpr bool isFloating = std::is_floating_point_v<A>;
    const bool isWide = !isFloating && !holds<A, std::conditional_t<isFloating, int, E>>(std::ldexp(1, bits), bits);
    const Scaled<E, A> scaled{std::ldexp(1.0, -bits)};
    const Down<A> down;
    for (std::ptrdiff_t y = 0; y < src_.height; ++y) {
      A* const sums = rows_.row(0);
      simd::runRow(scaled, src_.width, sums, src_.row(y));
      for (int k = 0; k < y_; ++k) simd::runRow(down, src_.width, sums, rows_.row(2 * k + 1), rows_.row(2 * k + 2));
      if (y < 2 * y_) continue;
      E* const to = dst_.row(y - 2 * y_);
      if (isWide) {
        finishWide(sums, rows_.row(2 * y_ + 1), to);
        continue;
      }
      const int shift = isFloating ? 0 : bits;
      along(sums, x_ - 1);
      const A* const addends[] = {sums, sums + step_, sums + step_, sums + 2 * step_};
      finish<A, E>(addends, x_ > 0 ? 4 : 1, shift, to, dst_.width);
    }
  }

 private:
  void along(A* sums, int times) const {
    const Along<A> along{step_};
    for (int k = 0; k < times; ++k) simd::runRow(along, src_.width - 2 * step_ * (k + 1), sums);
  }

  /// Where a sum of both directions would not fit: what the shift of the columns leaves and what it takes away are
  /// summed by themselves, and the latter gives its carry.
  void finishWide(A* sums, A* rests, E* to) const {
    if constexpr (std::is_same_v<A, std::int64_t>) {
      for (std::ptrdiff_t i = 0; i < src_.width; ++i) {
        rests[i] = sums[i] & ((A{1} << 2 * y_) - 1);
        sums[i] >>= 2 * y_;
      }
      along(sums, x_);
      along(rests, x_);
      for (std::ptrdiff_t i = 0; i < dst_.width; ++i) sums[i] += rests[i] >> 2 * y_;
      const A* const addends[] = {sums};
      finish<A, E>(addends, 1, 2 * x_, to, dst_.width);
    }
  }

  qc_PelRows<const E> src_;
  qc_PelRows<E> dst_;
  std::ptrdiff_t step_;
  int x_, y_;
  SumRows<A> rows_;
};

}  // namespace

template <class E>
void qf_PelSmooth(qc_PelRows<const E> src, qc_PelRows<E> dst, qc_PelFilter filter, int x, int y) {
  const auto with = [&]<class A>(A) { Smoothing<A, E>(src, dst, filter, x, y).run(); };
  if constexpr (std::is_floating_point_v<E>) {
    with(double{});
  } else {
    using Narrow = std::conditional_t<std::is_signed_v<E>, std::int16_t, std::uint16_t>;
    using Middle = std::conditional_t<std::is_signed_v<E>, std::int32_t, std::uint32_t>;
    const int bits = 2 * (x + y);
    if constexpr (sizeof(E) == 1) {
      if (holds<Narrow, E>(std::ldexp(1, bits), bits)) return with(Narrow{});
    }
    if constexpr (sizeof(E) <= 2) {
      if (holds<Middle, E>(std::ldexp(1, bits), bits)) return with(Middle{});
    }
    with(std::int64_t{});
  }
}

#define VNXSTD_INSTANTIATE(E) \
  template VNXSTD_EXPORT void qf_PelSmooth(qc_PelRows<const E>, qc_PelRows<E>, qc_PelFilter, int, int);
VNXSTD_INSTANTIATE(unsigned char)
VNXSTD_INSTANTIATE(signed char)
VNXSTD_INSTANTIATE(unsigned short)
VNXSTD_INSTANTIATE(short)
VNXSTD_INSTANTIATE(std::uint32_t)
VNXSTD_INSTANTIATE(std::int32_t)
VNXSTD_INSTANTIATE(float)
VNXSTD_INSTANTIATE(double)
