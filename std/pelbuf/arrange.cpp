// Mirroring, transposing, sampling and expanding windows, on the bytes of their pels.
#include "vnxstd/pelbuf/arrange.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "std/pelbuf/dispatch.h"
#include "vnxstd/math/matrix.h"
#include "vnxstd/math/xflinear.h"

namespace {

namespace simd = vnxstd::simd;

using From = qc_PelRows<const unsigned char>;
using To = qc_PelRows<unsigned char>;

/// Bytes taken as words of a pel's size. They may lie anywhere and be of any type.
template <class W>
struct Word {
  typedef W Aliased __attribute__((may_alias, aligned(1)));
  [[gnu::always_inline]] static const Aliased* in(const unsigned char* bytes) {
    return reinterpret_cast<const Aliased*>(bytes);
  }
  [[gnu::always_inline]] static Aliased* in(unsigned char* bytes) { return reinterpret_cast<Aliased*>(bytes); }
  [[gnu::always_inline]] static std::ptrdiff_t count(std::ptrdiff_t bytes) {
    return bytes / static_cast<std::ptrdiff_t>(sizeof(W));
  }
  [[gnu::always_inline]] static void fill(Aliased* to, std::ptrdiff_t count, W value) {
    for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = value;
  }
};

/// Calls work with a word of the size.
template <class Work>
void withWord(int size, Work&& work) {
  switch (size) {
    case 1:
      return work(std::uint8_t{});
    case 2:
      return work(std::uint16_t{});
    case 4:
      return work(std::uint32_t{});
    default:
      return work(std::uint64_t{});
  }
}

template <class W>
struct Mirror {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const unsigned char* src, unsigned char* dst,
                                         std::ptrdiff_t bytes) const {
    const auto* const from = Word<W>::in(src);
    auto* const to = Word<W>::in(dst);
    const std::ptrdiff_t count = Word<W>::count(bytes);
    if (src != dst) {
      VNXSTD_INDEPENDENT
      for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = from[count - 1 - i];
    } else {
      VNXSTD_INDEPENDENT
      for (std::ptrdiff_t i = 0; i < count / 2; ++i) {
        const W left = to[i], right = to[count - 1 - i];
        to[i] = right;
        to[count - 1 - i] = left;
      }
    }
  }
};

/// Exchanges two rows.
struct Swap {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, unsigned char* a, unsigned char* b,
                                         std::ptrdiff_t bytes) const {
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < bytes; ++i) std::swap(a[i], b[i]);
  }
};

/// Takes every Step-th pel; every `step`-th when Step is 0.
template <class W, int Step>
struct Sample {
  std::ptrdiff_t step;

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, unsigned char* dst, const unsigned char* src,
                                         std::ptrdiff_t bytes) const {
    const auto* const from = Word<W>::in(src);
    auto* const to = Word<W>::in(dst);
    const std::ptrdiff_t count = Word<W>::count(bytes), by = Step > 0 ? Step : step;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = from[i * by];
  }
};

/// Repeats every pel Step times; `step` times when Step is 0.
template <class W, int Step>
struct Repeat {
  std::ptrdiff_t step;

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const unsigned char* src, unsigned char* dst,
                                         std::ptrdiff_t bytes) const {
    const auto* const from = Word<W>::in(src);
    auto* const to = Word<W>::in(dst);
    const std::ptrdiff_t count = Word<W>::count(bytes);
    if constexpr (Step == 2) {
      VNXSTD_INDEPENDENT
      for (std::ptrdiff_t i = 0; i < count; ++i) to[2 * i] = to[2 * i + 1] = from[i];
    } else {
      for (std::ptrdiff_t i = 0; i < count; ++i) Word<W>::fill(to + i * step, step, from[i]);
    }
  }
};

/// A square of pels as large as a vector is long. Interleaving the first half of its rows with the second exchanges one
/// bit of the row number with one of the column number; as many times as there are bits, it transposes the square.
template <class W>
struct Square {
  typedef W Vector __attribute__((vector_size(16)));
  static constexpr std::size_t kSide = 16 / sizeof(W);

  template <std::size_t... I>
  [[gnu::always_inline]] static void interleave(const Vector& a, const Vector& b, Vector& lower, Vector& upper,
                                                std::index_sequence<I...>) {
    lower = __builtin_shufflevector(a, b, static_cast<int>(I / 2 + I % 2 * kSide)...);
    upper = __builtin_shufflevector(a, b, static_cast<int>(kSide / 2 + I / 2 + I % 2 * kSide)...);
  }

  [[gnu::always_inline]] void load(const unsigned char* from, std::ptrdiff_t pitch) {
    for (std::size_t i = 0; i < kSide; ++i) std::memcpy(&rows[i], from + static_cast<std::ptrdiff_t>(i) * pitch, 16);
  }
  [[gnu::always_inline]] void transpose() {
    for (std::size_t stage = 1; stage < kSide; stage *= 2) {
      Vector next[kSide];
      for (std::size_t i = 0; i < kSide / 2; ++i) {
        interleave(rows[i], rows[i + kSide / 2], next[2 * i], next[2 * i + 1], std::make_index_sequence<kSide>());
      }
      std::copy(next, next + kSide, rows);
    }
  }
  [[gnu::always_inline]] void store(unsigned char* to, std::ptrdiff_t pitch) const {
    for (std::size_t i = 0; i < kSide; ++i) std::memcpy(to + static_cast<std::ptrdiff_t>(i) * pitch, &rows[i], 16);
  }

  Vector rows[kSide];
};

/// Transposes rectangles of words.
template <class W>
class Transposition {
 public:
  Transposition(From src, To dst)
      : src_(src), dst_(dst), width_(src.width / kSize), height_(src.height), inPlace_(src.pels == dst.pels) {}

  // Tiles of 64 rows fill whole cache lines of the destination while the source's are still in the cache.
  void run() const {
    for (std::ptrdiff_t y = 0; y < height_; y += kTile) {
      for (std::ptrdiff_t x = inPlace_ ? y : 0; x < width_; x += kTile) {
        tile(x, y, std::min(x + kTile, width_), std::min(y + kTile, height_));
      }
    }
  }

 private:
  static constexpr std::ptrdiff_t kSize = sizeof(W);
  static constexpr std::ptrdiff_t kSide = Square<W>::kSide;
  static constexpr std::ptrdiff_t kTile = 64;

  const unsigned char* from(std::ptrdiff_t x, std::ptrdiff_t y) const { return src_.row(y) + x * kSize; }
  unsigned char* to(std::ptrdiff_t x, std::ptrdiff_t y) const { return dst_.row(y) + x * kSize; }

  void tile(std::ptrdiff_t x0, std::ptrdiff_t y0, std::ptrdiff_t x1, std::ptrdiff_t y1) const {
    std::ptrdiff_t x = x0;
    for (; x + kSide <= x1; x += kSide) {
      std::ptrdiff_t y = y0;
      for (; y + kSide <= y1; y += kSide) {
        if (!inPlace_ || y <= x) square(x, y);
      }
      single(x, y, x + kSide, y1);
    }
    single(x, y0, x1, y1);
  }

  void square(std::ptrdiff_t x, std::ptrdiff_t y) const {
    Square<W> pels, others;
    pels.load(from(x, y), src_.pitch);
    pels.transpose();
    if (inPlace_ && x != y) {
      others.load(from(y, x), src_.pitch);
      others.transpose();
      others.store(to(x, y), dst_.pitch);
    }
    pels.store(to(y, x), dst_.pitch);
  }

  void single(std::ptrdiff_t x0, std::ptrdiff_t y0, std::ptrdiff_t x1, std::ptrdiff_t y1) const {
    for (std::ptrdiff_t x = x0; x < x1; ++x) {
      for (std::ptrdiff_t y = y0; y < (inPlace_ ? std::min(y1, x) : y1); ++y) {
        unsigned char pel[kSize], other[kSize];
        std::memcpy(pel, from(x, y), kSize);
        std::memcpy(other, from(inPlace_ ? y : x, inPlace_ ? x : y), kSize);
        if (inPlace_) std::memcpy(to(x, y), other, kSize);
        std::memcpy(to(y, x), pel, kSize);
      }
    }
  }

  From src_;
  To dst_;
  std::ptrdiff_t width_, height_;
  bool inPlace_;
};

/// The part of a row or column that the windows share.
struct Range {
  qcInt64 begin, end;
  bool isEmpty() const { return begin >= end; }
  Range operator&(const Range& other) const { return {std::max(begin, other.begin), std::min(end, other.end)}; }
};

qcInt64 floorDivide(qcInt64 a, qcInt64 b) { return a / b - (a % b < 0); }
qcInt64 ceilDivide(qcInt64 a, qcInt64 b) { return a / b + (a % b > 0); }

Range columns(const qc_PelBuffer& buffer) { return {buffer.offset().x(), buffer.window().x1()}; }
Range rows(const qc_PelBuffer& buffer) { return {buffer.offset().y(), buffer.window().y1()}; }

qcPelRect asRect(const Range& x, const Range& y) {
  return qcPelRect::fromCorners(qf_PelCoord(x.begin), qf_PelCoord(y.begin), qf_PelCoord(std::max(x.begin, x.end)),
                                qf_PelCoord(std::max(y.begin, y.end)));
}

void setWindow(qc_PelBuffer& buffer, const Range& x, const Range& y) { buffer.window(asRect(x, y), false); }

void prepareParts(qc_PelBuffer& src, Range srcX, Range srcY, qc_PelBuffer& dst, Range dstX, Range dstY) {
  if (dstX.isEmpty() || dstY.isEmpty()) {
    src.subWindow(0, 0, 0, 0);
    dst.subWindow(0, 0, 0, 0);
    return;
  }
  setWindow(src, srcX, srcY);
  setWindow(dst, dstX, dstY);
  if (src != dst && src.sharesPels(dst)) throw qcPelFunc::Overlap();
}

Range sampledRange(Range src, qcInt64 by) { return {ceilDivide(src.begin, by), ceilDivide(src.end, by)}; }
Range sampleSources(Range dst, qcInt64 by) { return {dst.begin * by, (dst.end - 1) * by + 1}; }
Range expandSources(Range dst, qcInt64 by) { return {floorDivide(dst.begin, by), floorDivide(dst.end - 1, by) + 1}; }

Range expandedRange(Range src, Range dst, qcInt64 by) {
  return src.isEmpty() || dst.isEmpty() ? Range{0, 0} : dst & Range{src.begin * by, src.end * by};
}

/// Factors beyond all coordinates do what this one does.
constexpr qcInt64 kLargestFactor = (qcInt64{1} << 31) + 1;

}  // namespace

qc_PelScale::qc_PelScale(long x, long y)
    : x_(std::min(qcInt64{x}, kLargestFactor)), y_(std::min(qcInt64{y}, kLargestFactor)) {
  if (x < 1 || y < 1) throw qcPelFunc::BadParams();
}

qcPelRect qc_PelScale::sampled(const qc_PelBuffer& src) const {
  if (!src.isBound()) throw qcPel::UnboundWindow();
  return asRect(sampledRange(columns(src), x_), sampledRange(rows(src), y_));
}

qcPelRect qc_PelScale::expanded(const qc_PelBuffer& src) const {
  if (!src.isBound()) throw qcPel::UnboundWindow();
  const Range x = columns(src), y = rows(src);
  return asRect({x.begin * x_, x.end * x_}, {y.begin * y_, y.end * y_});
}

void qc_PelScale::prepareSample(qc_PelBuffer& src, qc_PelBuffer& dst) const {
  const Range x = sampledRange(columns(src), x_) & columns(dst), y = sampledRange(rows(src), y_) & rows(dst);
  prepareParts(src, sampleSources(x, x_), sampleSources(y, y_), dst, x, y);
}

void qc_PelScale::prepareExpand(qc_PelBuffer& src, qc_PelBuffer& dst) const {
  if (!src.isBound()) throw qcPel::UnboundWindow();
  const Range x = expandedRange(columns(src), columns(dst), x_), y = expandedRange(rows(src), rows(dst), y_);
  prepareParts(src, expandSources(x, x_), expandSources(y, y_), dst, x, y);
}

void qf_PelPrepareTranspose(qc_PelBuffer& src, qc_PelBuffer& dst) {
  const long width = std::min(src.width(), dst.height()), height = std::min(src.height(), dst.width());
  src.subWindow(0, 0, width, height);
  dst.subWindow(0, 0, height, width);
  if (src.sharesPels(dst) && src.windowRoot() != dst.windowRoot()) throw qcPelFunc::Overlap();
}

void qf_PelSetXformVia(qc_PelBuffer& dst, const qc_PelBuffer& src, double m00, double m01, double m10, double m11) {
  const qc2XformLinear first(qcMatrix<2>(m00, m01, m10, m11), {});
  dst.clientFromImageXformBase(src.clientFromImageXformBase()->composeBase(first), false);
}

void qf_PelFlipH(int pelSize, From src, To dst) {
  withWord(pelSize, [&]<class W>(W) {
    const Mirror<W> mirror;
    simd::runEachRow(mirror, src, dst);
  });
}

void qf_PelFlipV(From src, To dst) {
  if (src.isEmpty()) return;
  const Swap swap;
  for (std::ptrdiff_t top = 0, bottom = src.height - 1; top < src.height; ++top, --bottom) {
    if (src.pels != dst.pels) {
      std::memcpy(dst.row(bottom), src.row(top), static_cast<std::size_t>(src.width));
    } else if (top < bottom) {
      simd::runRow(swap, dst.width, dst.row(top), dst.row(bottom));
    }
  }
}

void qf_PelTranspose(int pelSize, From src, To dst) {
  if (src.isEmpty()) return;
  withWord(pelSize, [&]<class W>(W) { Transposition<W>(src, dst).run(); });
}

void qf_PelSample(int pelSize, From src, To dst, qcInt64 x, qcInt64 y) {
  if (dst.isEmpty()) return;
  if (dst.height > 1) src.pitch *= static_cast<std::ptrdiff_t>(y);
  withWord(pelSize, [&]<class W>(W) {
    const auto run = [&]<int Step>(Sample<W, Step> sample) { simd::runEachRow(sample, dst, src); };
    const auto step = static_cast<std::ptrdiff_t>(x);
    step == 1 ? run(Sample<W, 1>{step}) : step == 2 ? run(Sample<W, 2>{step}) : run(Sample<W, 0>{step});
  });
}

void qf_PelExpand(int pelSize, From src, To dst, qcInt64 x, qcInt64 y, qcInt64 skipX, qcInt64 skipY) {
  if (dst.isEmpty()) return;
  const std::ptrdiff_t size = pelSize, pels = dst.width / size;
  const qcInt64 copies = std::min<qcInt64>(x - skipX, pels);  // of the first pel
  const auto head = static_cast<std::ptrdiff_t>(copies);
  const std::ptrdiff_t whole = x < pels ? (pels - head) / static_cast<std::ptrdiff_t>(x) : 0;
  const std::ptrdiff_t tail = pels - head - (whole > 0 ? whole * static_cast<std::ptrdiff_t>(x) : 0);
  withWord(pelSize, [&]<class W>(W) {
    const auto run = [&]<int Step>(Repeat<W, Step> repeat, const unsigned char* from, unsigned char* to) {
      simd::runRow(repeat, whole * size, from, to);
    };
    const auto step = static_cast<std::ptrdiff_t>(x);
    qcInt64 left = 0;  // rows until the next source row
    for (std::ptrdiff_t row = 0, source = 0; row < dst.height; ++row, --left) {
      unsigned char* const to = dst.row(row);
      if (left > 0) {
        std::memcpy(to, dst.row(row - 1), static_cast<std::size_t>(dst.width));
        continue;
      }
      left = row == 0 ? y - skipY : y;
      const unsigned char* const from = src.row(source++);
      Word<W>::fill(Word<W>::in(to), head, *Word<W>::in(from));
      step == 2 ? run(Repeat<W, 2>{step}, from + size, to + head * size)
                : run(Repeat<W, 0>{step}, from + size, to + head * size);
      if (tail > 0) {
        Word<W>::fill(Word<W>::in(to) + (pels - tail), tail, *Word<W>::in(from + (whole + 1) * size));
      }
    }
  });
}
