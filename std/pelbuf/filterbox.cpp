// Sums of boxes, columns first: a row of column sums slides down the image, and every row of it is summed along.
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "std/pelbuf/filter.h"
#include "vnxstd/pelbuf/filter.h"

namespace {

namespace simd = vnxstd::simd;
using namespace vnxstd::pelfilter;

struct Box {
  qc_PelFilter filter;
  std::ptrdiff_t width, height;
  int shift;
};

template <class S, class A>
struct Add {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, A* sums, const S* pels, std::ptrdiff_t count) const {
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) sums[i] = static_cast<A>(sums[i] + static_cast<A>(pels[i]));
  }
};

template <class S, class A>
struct Slide {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, A* sums, const S* pels, const S* leaving,
                                         std::ptrdiff_t count) const {
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      sums[i] = static_cast<A>(sums[i] - static_cast<A>(leaving[i]) + static_cast<A>(pels[i]));
    }
  }
};

/// A pel as a number to be summed. Those of type double are made as small as the result at once, so that the sum of
/// large ones does not overflow; no sum of others does.
template <class S>
[[gnu::always_inline]] inline double summand(S pel, [[maybe_unused]] double scale) {
  if constexpr (std::is_same_v<S, double>) {
    return pel * scale;
  } else {
    return static_cast<double>(pel);
  }
}

/// Adds a row to `begin`, and what lies before `begin` gives the total.
template <class S>
struct AddAndTotal {
  double scale;

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, double* begin, const S* pels, const double* before,
                                         double* total, std::ptrdiff_t count) const {
    const double factor = scale;  // what is written to cannot change it
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      begin[i] += summand(pels[i], factor);
      total[i] = before[i] + begin[i];
    }
  }
};

/// The sum of a row and another one.
template <class S>
struct AddTo {
  double scale;

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, double* to, const double* sums, const S* pels,
                                         std::ptrdiff_t count) const {
    const double factor = scale;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = sums[i] + summand(pels[i], factor);
  }
};

/// Columns of integers: the row that enters is added, the one that leaves is subtracted.
template <class S, class A>
class IntegerColumns {
 public:
  IntegerColumns(const qc_PelRows<const S>& src, const Box& box)
      : rows_(src, box.height, box.filter.isInPlace), height_(box.height), sums_(1, src.width) {}

  static int shift(const Box& box) { return box.shift; }

  /// Begins a row; its sums are those of the `height` rows down to y, fewer at the beginning.
  const A* enter(std::ptrdiff_t y) {
    entering_ = rows_.enter(y);
    leaving_ = y < height_ ? nullptr : rows_.row(y - height_);
    return sums_.row(0);
  }
  /// Computes some of the sums.
  void add(std::ptrdiff_t first, std::ptrdiff_t count) {
    if (leaving_) {
      const Slide<S, A> slide;
      simd::runRow(slide, count, sums_.row(0) + first, entering_ + first, leaving_ + first);
    } else {
      const Add<S, A> add;
      simd::runRow(add, count, sums_.row(0) + first, entering_ + first);
    }
  }

 private:
  SourceRows<S> rows_;
  std::ptrdiff_t height_;
  Rows<A> sums_;
  const S *entering_ = nullptr, *leaving_ = nullptr;
};

/// Columns of floating numbers. Subtracting would leave rounding errors behind, and NaN and infinities for ever. So the
/// rows are taken in blocks of the box's height: the sum of a window is that of the rows from its first to the end of
/// their block plus that of the rows of the next block so far. Two additions a row, whatever the height.
template <class S>
class FloatingColumns {
 public:
  FloatingColumns(const qc_PelRows<const S>& src, const Box& box)
      : source_(src, box.height - 1, box.filter.isInPlace),
        height_(box.height),
        scale_(std::ldexp(1, -box.shift)),
        ends_(box.height + 1, src.width),
        begin_(2, src.width) {}

  static int shift(const Box& box) { return std::is_same_v<S, double> ? 0 : box.shift; }

  const double* enter(std::ptrdiff_t y) {
    y_ = y;
    entering_ = source_.enter(y);
    return isLast() ? ends_.row(0) : begin_.row(1);
  }
  void add(std::ptrdiff_t first, std::ptrdiff_t count) {
    const std::ptrdiff_t k = y_ % height_;
    double* const begin = begin_.row(0) + first;
    if (!isLast()) {
      const AddAndTotal<S> add{scale_};
      const double* const before = ends_.row(k + 1) + first;
      return simd::runRow(add, count, begin, entering_ + first, before, begin_.row(1) + first);
    }
    const AddTo<S> add{scale_};
    for (std::ptrdiff_t i = 0; i < height_; ++i) {  // the row of zeros below the last is never written
      const double* const below = ends_.row(height_ - i) + first;
      simd::runRow(add, count, ends_.row(k - i) + first, below, source_.row(y_ - i) + first);
    }
    std::fill_n(begin, count, 0.0);
  }

 private:
  bool isLast() const { return y_ % height_ == height_ - 1; }  // of its block

  SourceRows<S> source_;
  std::ptrdiff_t height_;
  double scale_;
  Rows<double> ends_, begin_;
  std::ptrdiff_t y_ = 0;
  const S* entering_ = nullptr;
};

/// Sums of `width` neighbours one by one, at a cost that the width does not change.
template <class A>
void sumNeighbours(const A* from, A* to, std::ptrdiff_t count, std::ptrdiff_t width, std::ptrdiff_t step) {
  const std::ptrdiff_t last = (width - 1) * step;
  for (std::ptrdiff_t first = 0; first < step; ++first) {
    if constexpr (std::is_floating_point_v<A>) {  // in blocks of neighbours, as above
      for (std::ptrdiff_t block = first; block < count; block += last + step) {
        A sum = 0;
        for (std::ptrdiff_t i = block + last; i >= block; i -= step) {
          sum += from[i];
          if (i < count) to[i] = sum;
        }
        sum = 0;
        for (std::ptrdiff_t i = block + step; i <= block + last && i < count; i += step) {
          sum += from[i + last];
          to[i] += sum;
        }
      }
    } else {
      std::uint64_t sum = 0;  // modulo 2^64, of which A keeps what it needs
      for (std::ptrdiff_t i = first; i <= first + last; i += step) sum += static_cast<std::uint64_t>(from[i]);
      to[first] = static_cast<A>(sum);
      for (std::ptrdiff_t i = first + step; i < count; i += step) {
        sum += static_cast<std::uint64_t>(from[i + last]) - static_cast<std::uint64_t>(from[i - step]);
        to[i] = static_cast<A>(sum);
      }
    }
  }
}

/// How a row's boxes are summed: from sums of `group` neighbours, `groups` of them, and `singles` further numbers.
struct Along {
  std::ptrdiff_t group = 1, groups = 0, singles = 0;

  static constexpr std::ptrdiff_t kWidest = 64;
  static constexpr std::ptrdiff_t kMostAddends = 16;

  std::ptrdiff_t cost() const { return group + groups + singles; }
};

/// The cheapest way. Up to a width of 64 it takes sixteen additions at most, of whole vectors.
Along cheapest(std::ptrdiff_t width) {
  Along best{1, 0, width};
  for (std::ptrdiff_t group = 2; group * 2 <= width; ++group) {
    const Along along{group, width / group, width % group};
    if (along.cost() + 1 < best.cost()) best = along;  // one for keeping the sums
  }
  return best;
}

/// The sums along a row, in parts of which all that is computed stays in the first-level cache.
template <class A, class Columns, class S>
void sumBoxes(const qc_PelRows<const S>& src, const qc_PelRows<unsigned char>& dst, std::ptrdiff_t count,
              const Box& box, Finisher<A> finishRow) {
  if (count == 0) return;
  const std::ptrdiff_t step = box.filter.perPel, more = (box.width - 1) * step, bytes = dst.width / count;
  const bool isWide = box.width > Along::kWidest;
  const Along along = isWide ? Along{box.width, 1, 0} : cheapest(box.width);
  const std::ptrdiff_t part = isWide ? src.width : std::ptrdiff_t{8192 / sizeof(A)};
  Columns columns(src, box);
  Rows<A> groups(1, src.width);
  for (std::ptrdiff_t y = 0; y < src.height; ++y) {
    const A* const sums = columns.enter(y);
    std::ptrdiff_t done = 0;  // results
    for (std::ptrdiff_t first = 0; first < src.width; first += part) {
      const std::ptrdiff_t end = std::min(first + part, src.width), ready = end - more - done;
      if constexpr (std::is_floating_point_v<S>) {
        // What the next row needs. Boxes of 3 x 3 take 0.83 of the time; images of integers do not wait for memory.
        const S* const below = nearestRow(src, y + 1);
        unsigned char* const next = nearestRow(dst, y - box.height + 2);
        for (std::ptrdiff_t i = first; i < end; i += kLine<S>) __builtin_prefetch(below + i);
        for (std::ptrdiff_t i = done; i < end - more; i += kLine<S>) __builtin_prefetch(next + i * bytes, 1);
      }
      columns.add(first, end - first);
      if (y < box.height - 1 || ready <= 0) continue;
      const A* addends[Along::kMostAddends];
      int n = 0;
      if (isWide) {
        sumNeighbours(sums, groups.row(0), count, box.width, step);
      } else if (along.groups > 0) {
        for (; n < along.group; ++n) addends[n] = sums + done + n * step;
        const Total<A> total{addends, n};
        simd::runRow(total, ready + (along.groups - 1) * along.group * step, groups.row(0));
      }
      n = 0;
      for (std::ptrdiff_t i = 0; i < along.groups; ++i) addends[n++] = groups.row(0) + i * along.group * step;
      for (std::ptrdiff_t i = box.width - along.singles; i < box.width; ++i) addends[n++] = sums + done + i * step;
      finishRow(addends, n, Columns::shift(box), dst.row(y - box.height + 1) + done * bytes, ready);
      done += ready;
    }
  }
}

/// Two neighbouring pels as a word of twice their size.
template <class S, class A>
struct PelPair {
  typedef A Word __attribute__((may_alias, aligned(1)));
  static constexpr int kBits = 8 * sizeof(S);

  [[gnu::always_inline]] static A at(const S* pels, std::ptrdiff_t pair) {
    return reinterpret_cast<const Word*>(pels)[pair];
  }
  [[gnu::always_inline]] static A low(A word) {
    if constexpr (std::is_signed_v<A>) {
      return static_cast<A>(static_cast<A>(word << kBits) >> kBits);
    } else {
      return static_cast<A>(word & std::numeric_limits<std::make_unsigned_t<S>>::max());
    }
  }
  [[gnu::always_inline]] static A high(A word) { return static_cast<A>(word >> kBits); }
};

/// Slides the sums of even columns, of odd ones, and of both.
template <class S, class A>
struct SlidePairs {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, A* even, A* odd, A* both, const S* pels, const S* leaving,
                                         std::ptrdiff_t count) const {
    using Pair = PelPair<S, A>;
    const std::ptrdiff_t pairs = count / 2;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < pairs; ++i) {
      const A in = Pair::at(pels, i), out = Pair::at(leaving, i);
      const A e = static_cast<A>(even[i] + Pair::low(in) - Pair::low(out));
      const A o = static_cast<A>(odd[i] + Pair::high(in) - Pair::high(out));
      even[i] = e;
      odd[i] = o;
      both[i] = static_cast<A>(e + o);
    }
    if (count % 2 != 0) both[pairs] = even[pairs] = static_cast<A>(even[pairs] + pels[count - 1] - leaving[count - 1]);
  }
};

/// Adds sums of pairs. Of a box of odd width one result lacks the last column of them, the next the first; of even
/// width one result is complete, and the next lacks the first column and has one more at the end.
template <class S, class A, class D>
struct FinishPairs {
  const A* const* addends;
  int addendCount, shift;
  A half;
  const A *even, *odd;    ///< sums of columns
  std::ptrdiff_t behind;  ///< pairs in a box that begins at an even column
  bool isOdd;             ///< the box's width

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, D* to, std::ptrdiff_t count) const {
    constexpr std::ptrdiff_t block = Totals<A, N>::kBlock;
    const FinishPairs finish = *this;  // what is written to cannot change it
    forBlocks<block>((count + 1) / 2, [&](std::ptrdiff_t i, std::ptrdiff_t part) __attribute__((always_inline)) {
      Totals<A, N> results = finish.template joined<N>(i);
      if (part == block && 2 * (i + block) <= count) {
        results.store(to + 2 * i);
      } else {
        A words[block];
        results.store(words);
        std::memcpy(to + 2 * i, words, static_cast<std::size_t>(count - 2 * i) * sizeof(D));
      }
    });
  }

 private:
  template <std::size_t N>
  [[gnu::always_inline]] inline Totals<A, N> joined(std::ptrdiff_t from) const {
    using Vector = typename Totals<A, N>::Vector;
    Totals<A, N> first;
    for (int a = 0; a < addendCount; ++a) first.add(addends[a] + from);
    Totals<A, N> second = first;
    second.subtract(even + from);
    isOdd ? first.subtract(odd + from + behind - 1) : second.add(even + from + behind);
    first.template shift<D>(shift, half);
    second.template shift<D>(shift, half);
    constexpr int bits = PelPair<S, A>::kBits;
    const auto join = [](Vector & low, const Vector& high) __attribute__((always_inline)) {
      if constexpr (std::is_signed_v<D>) low &= static_cast<A>(std::numeric_limits<std::make_unsigned_t<D>>::max());
      low |= high << bits;
    };
    join(first.first, second.first);
    join(first.second, second.second);
    join(first.third, second.third);
    join(first.fourth, second.fourth);
    return first;
  }
};

/// Boxes of pels of one component whose sums have twice their bits. Sums of pairs of columns serve two results each,
/// and pairs need not be widened or put together again: boxes of 15 x 15 take 0.63 of the time of single columns.
template <class S, class A, class D>
void sumPairs(const qc_PelRows<const S>& src, const qc_PelRows<D>& dst, const Box& box) {
  const std::ptrdiff_t behind = (box.width + 1) / 2, pairs = (src.width + 1) / 2;
  const Along along = cheapest(behind);
  SourceRows<S> rows(src, box.height, box.filter.isInPlace);
  Rows<S> zeros(1, src.width);
  Rows<A> sums(4, pairs);
  A *const even = sums.row(0), *const odd = sums.row(1), *const both = sums.row(2), *const groups = sums.row(3);
  const A* addends[Along::kMostAddends];
  int n = 0;
  for (std::ptrdiff_t i = 0; i < along.groups; ++i) addends[n++] = groups + i * along.group;
  for (std::ptrdiff_t i = behind - along.singles; i < behind; ++i) addends[n++] = both + i;
  const A* grouped[Along::kMostAddends];
  for (std::ptrdiff_t i = 0; i < along.group; ++i) grouped[i] = both + i;
  const SlidePairs<S, A> slide;
  const Total<A> total{grouped, static_cast<int>(along.group)};
  const A half = box.shift > 0 ? static_cast<A>(A{1} << (box.shift - 1)) : A{0};
  const FinishPairs<S, A, D> finish{addends, n, box.shift, half, even, odd, behind, box.width % 2 != 0};
  for (std::ptrdiff_t y = 0; y < src.height; ++y) {
    const S* const pels = rows.enter(y);
    const S* const leaving = y < box.height ? zeros.row(0) : rows.row(y - box.height);
    simd::runRow(slide, src.width, even, odd, both, pels, leaving);
    if (y < box.height - 1) continue;
    if (along.groups > 0) simd::runRow(total, pairs, groups);
    simd::runRow(finish, dst.width, dst.row(y - box.height + 1));
  }
}

}  // namespace

template <class S, class D>
void qf_PelBoxSum(const qc_PelRows<const S>& src, const qc_PelRows<D>& dst, qc_PelFilter filter, long width,
                  long height, int shift) {
  const Box box{filter, width, height, shift};
  const auto with = [&]<class A, class Columns>(A, std::type_identity<Columns>) {
    sumBoxes<A, Columns>(src, qf_PelRowsAs<unsigned char>(dst), dst.width, box, &finish<A, D>);
  };
  if constexpr (std::is_floating_point_v<S>) {
    with(double{}, std::type_identity<FloatingColumns<S>>());
  } else {
    const double pels = static_cast<double>(width) * static_cast<double>(height);
    const auto integers = [&]<class A>(A zero) {
      if constexpr (sizeof(A) <= 4 && sizeof(A) == 2 * sizeof(S) && sizeof(D) == sizeof(S)) {
        // The sums of pairs may be those of a column more, and numbers with a sign must not overflow.
        const bool areHeld = std::is_unsigned_v<A> || holds<A, S>(pels + static_cast<double>(height), shift);
        const bool isInOrder = std::endian::native == std::endian::little;
        const bool isPaired = filter.perPel == 1 && width > 4 && width <= 2 * Along::kWidest;
        if (isPaired && isInOrder && areHeld) return sumPairs<S, A, D>(src, dst, box);
      }
      with(zero, std::type_identity<IntegerColumns<S, A>>());
    };
    using Narrow = std::conditional_t<std::is_signed_v<S>, std::int16_t, std::uint16_t>;
    using Middle = std::conditional_t<std::is_signed_v<S>, std::int32_t, std::uint32_t>;
    if constexpr (sizeof(S) == 1) {
      if (holds<Narrow, S>(pels, shift)) return integers(Narrow{});
    }
    if constexpr (sizeof(S) <= 2) {
      if (holds<Middle, S>(pels, shift)) return integers(Middle{});
    }
    integers(std::int64_t{});
  }
}

#define VNXSTD_INSTANTIATE(S, D)                                                                                       \
  template VNXSTD_EXPORT void qf_PelBoxSum(const qc_PelRows<const S>&, const qc_PelRows<D>&, qc_PelFilter, long, long, \
                                           int);
#define VNXSTD_INSTANTIATE_FROM(S)      \
  VNXSTD_INSTANTIATE(S, unsigned char)  \
  VNXSTD_INSTANTIATE(S, signed char)    \
  VNXSTD_INSTANTIATE(S, unsigned short) \
  VNXSTD_INSTANTIATE(S, short)          \
  VNXSTD_INSTANTIATE(S, std::uint32_t)  \
  VNXSTD_INSTANTIATE(S, std::int32_t)
VNXSTD_INSTANTIATE_FROM(unsigned char)
VNXSTD_INSTANTIATE_FROM(signed char)
VNXSTD_INSTANTIATE_FROM(unsigned short)
VNXSTD_INSTANTIATE_FROM(short)
VNXSTD_INSTANTIATE_FROM(std::uint32_t)
VNXSTD_INSTANTIATE_FROM(std::int32_t)
VNXSTD_INSTANTIATE(float, float)
VNXSTD_INSTANTIATE(float, double)
VNXSTD_INSTANTIATE(double, float)
VNXSTD_INSTANTIATE(double, double)
