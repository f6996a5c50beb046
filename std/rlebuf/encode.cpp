// From pels to runs.
#include <bit>
#include <cstring>
#include <numeric>
#include <vector>

#include "std/pelbuf/dispatch.h"
#include "std/rlebuf/rep.h"
#include "vnxstd/pelbuf/apply.h"
#include "vnxstd/pelbuf/map.h"
#include "vnxstd/pelbuf/measure.h"
#include "vnxstd/timer/timer.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

namespace rle = vnxstd::rle;

constexpr std::ptrdiff_t kGroup = 64;

/// Whether each of 64 pels differs from the one before it, the first pel in the lowest bit.
std::uint64_t changesAt(const unsigned char* pels) {
  std::uint64_t changes = 0;
#if defined(__SSE2__)
  for (std::ptrdiff_t k = 0; k < kGroup; k += 16) {
    const auto load = [pels, k](std::ptrdiff_t i) {
      return _mm_loadu_si128(reinterpret_cast<const __m128i*>(pels + k + i));
    };
    const int same = _mm_movemask_epi8(_mm_cmpeq_epi8(load(0), load(-1)));
    changes |= static_cast<std::uint64_t>(~same & 0xFFFF) << k;
  }
#else
  for (std::ptrdiff_t k = 0; k < kGroup; ++k) changes |= std::uint64_t{pels[k] != pels[k - 1]} << k;
#endif
  return changes;
}

/// Writes the runs of rows. A row is looked through 64 pels at a time; most groups of a mask are of one value, the one
/// before them.
class RowEncoder {
 public:
  explicit RowEncoder(rle::RowWriter& writer) : writer_(writer) {}

  void row(const unsigned char* pels, std::ptrdiff_t width) {
    to_ = writer_.begin();
    values_ = 0;
    start_ = 0;
    const std::ptrdiff_t groupsEnd = width - width % kGroup;
    std::ptrdiff_t i = skip(pels, 0, groupsEnd, pels[0]);
    if (i == 0) {  // the first pel has none before it to be compared with
      i = std::min(width, kGroup);
      finishAll(pels, 1, i);
    }
    while (i < groupsEnd) {
      i = skip(pels, i, groupsEnd, pels[i - 1]);
      if (i == groupsEnd) break;
      changeIn(pels, i);
      i += kGroup;
    }
    finishAll(pels, i, width);
    finishAt(pels, width);
    writer_.end(to_, values_);
  }

 private:
  typedef std::uint64_t Vector __attribute__((vector_size(16)));

  /// The first group from `i` on that has another value, or `end`. Vectors of 32 bytes gain nothing.
  static std::ptrdiff_t skip(const unsigned char* pels, std::ptrdiff_t i, std::ptrdiff_t end, unsigned char value) {
    const Vector same = Vector{} + value * std::uint64_t{0x0101010101010101};
    for (; i < end; i += kGroup) {
      Vector others = {};
      for (std::ptrdiff_t k = 0; k < kGroup; k += static_cast<std::ptrdiff_t>(sizeof(Vector))) {
        Vector at;
        std::memcpy(&at, pels + i + k, sizeof at);
        others |= at ^ same;
      }
      if ((others[0] | others[1]) != 0) break;
    }
    return i;
  }

  // Kept apart, so that the loop that looks for changes has the registers for itself.
  [[gnu::noinline]] void changeIn(const unsigned char* pels, std::ptrdiff_t first) {
    std::uint64_t changes = changesAt(pels + first);
    if (changes == ~std::uint64_t{0}) {  // noise
      finishAt(pels, first);
      for (std::ptrdiff_t k = 0; k < kGroup - 1; ++k) to_[k] = qcRLEBufferRun(pels[first + k], 1);
      for (std::ptrdiff_t k = 0; k < kGroup - 1; ++k) values_ |= pels[first + k];
      to_ += kGroup - 1;
      start_ = first + kGroup - 1;
      return;
    }
    for (; changes != 0; changes &= changes - 1) finishAt(pels, first + std::countr_zero(changes));
  }

  [[gnu::noinline]] void finishAll(const unsigned char* pels, std::ptrdiff_t i, std::ptrdiff_t end) {
    for (; i < end; ++i) {
      if (pels[i] != pels[i - 1]) finishAt(pels, i);
    }
  }

  void finishAt(const unsigned char* pels, std::ptrdiff_t end) {
    to_ = rle::put(to_, pels[start_], static_cast<std::uint32_t>(end - start_));
    values_ |= pels[start_];
    start_ = end;
  }

  rle::RowWriter& writer_;
  qcRLEBufferRun* to_ = nullptr;
  std::ptrdiff_t start_ = 0;
  std::uint32_t values_ = 0;
};

void encodeRow(rle::RowWriter& writer, const unsigned char* pels, std::int32_t width) {
  RowEncoder(writer).row(pels, width);
}

/// 1 for pels from the threshold on and 0 for others, or the other way round.
class Threshold {
 public:
  Threshold(unsigned char threshold, bool invert)
      : threshold_(threshold), above_(invert ? 0 : 1), below_(invert ? 1 : 0) {}

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(vnxstd::simd::Bytes<N>, const unsigned char* from, unsigned char* to,
                                         std::ptrdiff_t count) const {
    const unsigned char threshold = threshold_, above = above_, below = below_;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = from[i] >= threshold ? above : below;
  }

 private:
  unsigned char threshold_, above_, below_;
};

std::vector<unsigned char> levelsTable(int low, int high, int levels, bool invert) {
  std::vector<unsigned char> table(256);
  for (int pel = 0; pel < 256; ++pel) {
    int value = pel < low ? 0 : levels;
    if (pel >= low && pel < high) value = (2 * levels * (pel - low) + (high - low)) / (2 * (high - low));
    table[static_cast<std::size_t>(pel)] = static_cast<unsigned char>(invert ? levels - value : value);
  }
  return table;
}

/// The numbers of pels of all values.
std::vector<unsigned long> histogram(const qcPelBuffer_const<unsigned char>& pels) {
  std::vector<unsigned long> counts(256);
  qfPelHistogram(pels, counts);
  return counts;
}

/// The values of pels in ascending order, without those of both tails.
class Percentiles {
 public:
  Percentiles(const qcPelBuffer_const<unsigned char>& pels, int leftTail, int rightTail) : counts_(histogram(pels)) {
    const qcUInt64 all = std::accumulate(counts_.begin(), counts_.end(), qcUInt64{0});
    first_ = part(all, leftTail);
    size_ = all - first_ - part(all, rightTail);
  }
  unsigned char operator()(int percent) const {
    if (size_ == 0) return 0;
    qcUInt64 before = first_ + std::min(part(size_, percent), size_ - 1);
    std::size_t value = 0;
    for (; before >= counts_[value]; ++value) before -= counts_[value];
    return static_cast<unsigned char>(value);
  }
  /// Throws qcPelFunc::BadParams for arguments that make no sense for any image.
  static void check(int leftTail, int rightTail, std::initializer_list<int> percents) {
    const auto isPercent = [](int value) { return value >= 0 && value <= 100; };
    if (!isPercent(leftTail) || !isPercent(rightTail) || leftTail + rightTail >= 100 ||
        !std::all_of(percents.begin(), percents.end(), isPercent)) {
      throw qcPelFunc::BadParams();
    }
  }

 private:
  // all * percent / 100 without overflow.
  static qcUInt64 part(qcUInt64 all, int percent) {
    const auto p = static_cast<qcUInt64>(percent);
    return all / 100 * p + all % 100 * p / 100;
  }

  std::vector<unsigned long> counts_;
  qcUInt64 first_ = 0, size_ = 0;
};

void checkLevels(int low, int high, int levels) {
  if (low > high || levels < 1 || levels > 255) throw qcPelFunc::BadParams();
}

}  // namespace

/// Makes a new image of the window; writeRow(writer, row, width) writes a row.
template <class WriteRow>
void qcRLEBuffer::replaceBy(const qcPelBuffer_const<unsigned char>& pels, WriteRow writeRow) {
  if (pels.width() > 0 && pels.height() > 0 && !pels.isBound()) throw qcPel::UnboundWindow();
  mutating();
  rep_.reset();
  if (pels.width() == 0 || pels.height() == 0) throw Degenerate();
  const qcTimer timer(true);
  auto made = std::make_unique<qc_RLERep>();
  made->hint = hint_;
  made->width = static_cast<std::int32_t>(pels.width());
  made->offsetX = static_cast<std::int32_t>(pels.offset().x());
  made->offsetY = static_cast<std::int32_t>(pels.offset().y());
  made->xforms = pels.xforms();
  const qc_PelRows<const unsigned char> rows = qf_PelRows(pels);
  rle::RowWriter writer(*made, static_cast<std::size_t>(rows.height), hint_);
  for (std::ptrdiff_t y = 0; y < rows.height; ++y) writeRow(writer, rows.row(y), made->width);
  writer.finish();
  made->createTime = timer.msec();
  rep_ = std::move(made);
}

void qcRLEBuffer::encode(const qcPelBuffer_const<unsigned char>& pels) { replaceBy(pels, encodeRow); }

void qcRLEBuffer::encode(const qcPelBuffer_const<unsigned char>& pels, unsigned char threshold, bool invert) {
  std::vector<unsigned char> classes(static_cast<std::size_t>(pels.width()));
  Threshold kernel(threshold, invert);
  replaceBy(pels, [&](rle::RowWriter& writer, const unsigned char* row, std::int32_t width) {
    vnxstd::simd::runRow(kernel, width, row, classes.data());
    encodeRow(writer, classes.data(), width);
  });
}

void qcRLEBuffer::encode(const qcPelBuffer_const<unsigned char>& pels, unsigned char low, unsigned char high,
                         int levels, bool invert) {
  checkLevels(low, high, levels);
  encode(pels, levelsTable(low, high, levels, invert));
}

void qcRLEBuffer::encode(const qcPelBuffer_const<unsigned char>& pels, const std::vector<unsigned char>& table) {
  if (table.empty()) throw qcPelFunc::BadParams();
  std::vector<unsigned char> classes(static_cast<std::size_t>(pels.width()));
  replaceBy(pels, [&](rle::RowWriter& writer, const unsigned char* row, std::int32_t width) {
    const qc_PelRows<const unsigned char> from{row, width, width, 1};
    if (qf_PelExceeds(from, table.size())) throw qcPelFunc::Range();
    qf_PelMap(from, table, false, qc_PelRows<unsigned char>{classes.data(), width, width, 1});
    encodeRow(writer, classes.data(), width);
  });
}

void qcRLEBuffer::encodePercent(const qcPelBuffer_const<unsigned char>& pels, int leftTail, int rightTail, int percent,
                                bool invert) {
  Percentiles::check(leftTail, rightTail, {percent});
  if (!pels.isBound()) return encode(pels);  // which throws
  encode(pels, Percentiles(pels, leftTail, rightTail)(percent), invert);
}

void qcRLEBuffer::encodePercent(const qcPelBuffer_const<unsigned char>& pels, int leftTail, int rightTail,
                                int lowPercent, int highPercent, int levels, bool invert) {
  Percentiles::check(leftTail, rightTail, {lowPercent, highPercent});
  checkLevels(lowPercent, highPercent, levels);
  if (!pels.isBound()) return encode(pels);  // which throws
  const Percentiles percentile(pels, leftTail, rightTail);
  encode(pels, percentile(lowPercent), percentile(highPercent), levels, invert);
}
