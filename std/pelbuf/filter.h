// What the neighbourhood functions share: buffers of rows, and the way from rows of sums to pels.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>
#include <vector>

#include "std/pelbuf/dispatch.h"
#include "vnxstd/pelbuf/rows.h"

namespace vnxstd::pelfilter {

/// The numbers in a cache line.
template <class A>
inline constexpr std::ptrdiff_t kLine = 64 / sizeof(A);

/// Rows of numbers, each at the start of a cache line. They may be read some way past their end, where they hold
/// anything.
template <class A>
class Rows {
 public:
  Rows(std::ptrdiff_t rows, std::ptrdiff_t count)
      : pitch_((count + 2 * kLine<A> - 1) / kLine<A> * kLine<A>),
        memory_(static_cast<std::size_t>(rows * pitch_ + kBehind)) {
    const auto address = reinterpret_cast<std::uintptr_t>(memory_.data());
    first_ = memory_.data() + (64 - address % 64) % 64 / sizeof(A);
  }
  Rows(const Rows&) = delete;
  Rows& operator=(const Rows&) = delete;

  A* row(std::ptrdiff_t y) { return first_ + y * pitch_; }

 private:
  static constexpr std::ptrdiff_t kBehind = 256;
  std::ptrdiff_t pitch_;
  std::vector<A> memory_;
  A* first_;
};

/// The rows of a source from top to bottom. In place it keeps copies, because the destination's rows overwrite them.
template <class S>
class SourceRows {
 public:
  /// `kept` rows stay readable besides the one that entered last.
  SourceRows(const qc_PelRows<const S>& rows, std::ptrdiff_t kept, bool isInPlace)
      : rows_(rows), slots_(kept + 1), copies_(static_cast<std::size_t>(isInPlace ? slots_ * rows.width : 0)) {}

  const S* enter(std::ptrdiff_t y) {
    if (copies_.empty()) return rows_.row(y);
    return static_cast<const S*>(std::memcpy(copy(y), rows_.row(y), static_cast<std::size_t>(rows_.width) * sizeof(S)));
  }
  const S* row(std::ptrdiff_t y) { return copies_.empty() ? rows_.row(y) : copy(y); }

 private:
  S* copy(std::ptrdiff_t y) { return copies_.data() + y % slots_ * rows_.width; }

  qc_PelRows<const S> rows_;
  std::ptrdiff_t slots_;
  std::vector<S> copies_;
};

/// The row, or the one of the image that is next to it.
template <class P>
P* nearestRow(const qc_PelRows<P>& rows, std::ptrdiff_t y) {
  return rows.row(std::clamp<std::ptrdiff_t>(y, 0, rows.height - 1));
}

/// A block of numbers of type E for vectors of N bytes. The compiler unrolls loops of fewer than 8, and then finds no
/// vectors: binomials of floats took twice as long.
template <class E, std::size_t N>
inline constexpr std::ptrdiff_t kLoopBlock = std::max<std::ptrdiff_t>(N / sizeof(E), 8);

/// Calls work with the first number of a block and how many there are. The last block overlaps the one before it,
/// rather than leave numbers to be done one by one; so work must not overwrite what it reads.
template <std::ptrdiff_t Block, class Work>
[[gnu::always_inline]] inline void forBlocks(std::ptrdiff_t count, Work&& work) {
  if (count < Block) return work(std::ptrdiff_t{0}, count);
  std::ptrdiff_t i = 0;
  for (; i + Block <= count; i += Block) work(i, Block);
  if (i < count) work(count - Block, Block);
}

/// Whether integers of type A hold `weight` times the furthest value of S, and what rounding adds, and can be shifted.
template <class A, class S>
bool holds(double weight, int shift) {
  const double furthest =
      std::max(static_cast<double>(std::numeric_limits<S>::max()), -static_cast<double>(std::numeric_limits<S>::min()));
  const double limit = sizeof(A) == 8 ? 0x1p62 : static_cast<double>(std::numeric_limits<A>::max());
  return shift < std::numeric_limits<A>::digits && furthest * weight + std::ldexp(0.5, shift) <= limit;
}

/// Sums of rows of numbers in four vectors at a time. The vectors are explicit, because the compiler would do sums of
/// 16 bits in 32; and each has a name, because it would keep an array in memory.
template <class A, std::size_t N>
struct Totals {
  typedef A Vector __attribute__((vector_size(N)));
  static constexpr std::ptrdiff_t kBlock = 4 * N / sizeof(A);

  /// Calls work with every vector and its place.
  template <class Work>
  [[gnu::always_inline]] inline void forEach(Work&& work) {
    constexpr std::ptrdiff_t lanes = N / sizeof(A);
    work(first, std::ptrdiff_t{0});
    work(second, lanes);
    work(third, 2 * lanes);
    work(fourth, 3 * lanes);
  }

  [[gnu::always_inline]] inline void add(const A* numbers) {
    forEach([numbers](Vector & sum, std::ptrdiff_t at) __attribute__((always_inline)) {
      Vector addend;
      std::memcpy(&addend, numbers + at, N);
      sum += addend;
    });
  }
  [[gnu::always_inline]] inline void subtract(const A* numbers) {
    forEach([numbers](Vector & sum, std::ptrdiff_t at) __attribute__((always_inline)) {
      Vector subtrahend;
      std::memcpy(&subtrahend, numbers + at, N);
      sum -= subtrahend;
    });
  }
  /// Shifts integers to the right, rounding half up by adding `half`, and saturates them to D.
  template <class D>
  [[gnu::always_inline]] inline void shift(int bits, A half) {
    forEach([ bits, half ](Vector & sum, std::ptrdiff_t) __attribute__((always_inline)) {
      constexpr A most = static_cast<A>(std::numeric_limits<D>::max()),
                  least = static_cast<A>(std::numeric_limits<D>::min());
      sum += half;
      sum >>= bits;
      if constexpr (std::cmp_less(std::numeric_limits<D>::max(), std::numeric_limits<A>::max())) {
        sum = sum > most ? Vector{} + most : sum;
      }
      if constexpr (std::cmp_greater(std::numeric_limits<D>::min(), std::numeric_limits<A>::min())) {
        sum = sum < least ? Vector{} + least : sum;
      }
    });
  }
  [[gnu::always_inline]] inline void store(void* to) {
    forEach([to](const Vector& sum, std::ptrdiff_t at) __attribute__((always_inline)) {
      std::memcpy(static_cast<unsigned char*>(to) + at * std::ptrdiff_t{sizeof(A)}, &sum, N);
    });
  }

  Vector first = {}, second = {}, third = {}, fourth = {};
};

/// The sums of rows of numbers, and of some more behind their end.
template <class A>
struct Total {
  const A* const* addends;
  int count;

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, A* to, std::ptrdiff_t pels) const {
    for (std::ptrdiff_t i = 0; i < pels; i += Totals<A, N>::kBlock) {
      Totals<A, N> totals;
      for (int a = 0; a < count; ++a) totals.add(addends[a] + i);
      totals.store(to + i);
    }
  }
};

/// Adds rows of sums, shifts to the right rounding half up, and saturates; floating sums are multiplied by 2^-shift.
template <class A, class D>
class Finish {
 public:
  Finish(const A* const* addends, int count, int shift) : addends_(addends), count_(count), shift_(shift) {
    if constexpr (std::is_floating_point_v<A>) {
      factor_ = std::ldexp(A{1}, -shift);
    } else if (shift > 0) {
      half_ = static_cast<A>(A{1} << (shift - 1));
    }
  }

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, D* to, std::ptrdiff_t count) const {
    const Finish finish = *this;  // what is written to cannot change it
    forBlocks<Totals<A, N>::kBlock>(
        count, [&](std::ptrdiff_t i, std::ptrdiff_t part) __attribute__((always_inline)) {
          A sums[Totals<A, N>::kBlock];
          finish.template add<N>(sums, i);
          for (std::ptrdiff_t k = 0; k < part; ++k) to[i + k] = static_cast<D>(sums[k]);
        });
  }

 private:
  template <std::size_t N>
  [[gnu::always_inline]] inline void add(A* sums, std::ptrdiff_t from) const {
    using Vector = typename Totals<A, N>::Vector;
    Totals<A, N> totals;
    for (int a = 0; a < count_; ++a) totals.add(addends_[a] + from);
    if constexpr (std::is_floating_point_v<A>) {
      const A factor = factor_;
      totals.forEach([factor](Vector & sum, std::ptrdiff_t) __attribute__((always_inline)) { sum *= factor; });
    } else {
      totals.template shift<D>(shift_, half_);
    }
    totals.store(sums);
  }

  const A* const* addends_;
  int count_, shift_;
  A factor_{}, half_{};
};

/// Finish for a destination whose type the caller does not know.
template <class A>
using Finisher = void (*)(const A* const* addends, int count, int shift, void* to, std::ptrdiff_t pels);

template <class A, class D>
void finish(const A* const* addends, int count, int shift, void* to, std::ptrdiff_t pels) {
  const Finish<A, D> kernel(addends, count, shift);
  simd::runRow(kernel, pels, static_cast<D*>(to));
}

}  // namespace vnxstd::pelfilter
