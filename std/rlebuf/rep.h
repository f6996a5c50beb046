// What a run-length image is made of, and the two forms of a row that its operations work on.
//
// Operations walk along runs, or along stretches: maximal, with the place where they end. Two rows are merged with one
// branch per step, which the processor predicts well, since rows of masks resemble the rows above them. A merge without
// branches, whose steps wait for one another, took three times as long on masks. Writing runs has no branch but for
// stretches of more than 2295 pels.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "vnxstd/math/xfcache.h"
#include "vnxstd/rlebuf/rlebuf.h"

static_assert(sizeof(qcRLEBufferRun) == 2 && alignof(qcRLEBufferRun) == 1);

struct qc_RLERep {
  std::size_t height() const noexcept { return rows.size(); }
  qcUInt64 numRuns() const noexcept {
    qcUInt64 sum = 0;
    for (const std::uint32_t count : counts) sum += count;
    return sum;
  }
  /// An image without rows with this one's transform and place.
  std::unique_ptr<qc_RLERep> like() const;

  std::int32_t hint = 0;
  double createTime = 0;  // milliseconds
  std::int32_t width = 0;
  std::int32_t offsetX = 0, offsetY = 0;
  qc2XformCache xforms;
  std::vector<const qcRLEBufferRun*> rows;
  std::vector<std::uint32_t> counts;  // the runs of each row without the one that ends it
  std::vector<qcRLEBufferBlock> blocks;
  bool isBinary = false;
};

namespace vnxstd::rle {

/// Pels of one value: they end in front of column `end` and begin where the stretch before them ends.
struct Stretch {
  std::int32_t end;
  std::uint32_t value;
};

/// The stretches of a row.
class StretchRow {
 public:
  /// Room for `most` stretches, and for one that is never read in front of them; what there was is lost.
  Stretch* room(std::size_t most) {
    if (stretches_.size() <= most) stretches_.resize(most + most / 2 + 1);
    return stretches_.data() + 1;
  }
  void finish(std::size_t count) { count_ = count; }
  std::size_t count() const noexcept { return count_; }
  const Stretch* begin() const noexcept { return stretches_.data() + 1; }
  const Stretch* end() const noexcept { return begin() + count_; }

 private:
  std::vector<Stretch> stretches_;
  std::size_t count_ = 0;
};

/// Takes in a row of `width` pels that begins at `run`, in front of `end`; returns the place behind the run that ends
/// it, or null when it is no such row. Adds the bits of its values.
const qcRLEBufferRun* takeRow(qc_RLERep& rep, const qcRLEBufferRun* run, const qcRLEBufferRun* end,
                              std::uint32_t& values);

/// Collects stretches from left to right; those of equal value become one.
class Collector {
 public:
  Collector(StretchRow& row, std::size_t most) : row_(row), next_(row.room(most)) {}
  [[gnu::always_inline]] inline void add(std::int32_t end, std::uint32_t value) {
    next_ += value != last_;
    next_[-1] = {end, value};
    last_ = value;
  }
  /// The value collected last. To add it again changes where that stretch ends.
  std::uint32_t last() const noexcept { return last_; }
  void finish() { row_.finish(static_cast<std::size_t>(next_ - row_.begin())); }

 private:
  StretchRow& row_;
  Stretch* next_;  // behind the last one collected
  std::uint32_t last_ = std::numeric_limits<std::uint32_t>::max();
};

/// Walks along the runs of a row.
class RunCursor {
 public:
  RunCursor(const qc_RLERep& rep, std::size_t row) : run_(rep.rows[row]), end_(run_->length()) {}
  std::int32_t end() const noexcept { return end_; }
  std::uint32_t value() const noexcept { return run_->value(); }
  void advance() noexcept { end_ += (++run_)->length(); }

 private:
  const qcRLEBufferRun* run_;
  std::int32_t end_;
};

/// Walks along stretches.
class StretchCursor {
 public:
  explicit StretchCursor(const StretchRow& row) : stretch_(row.begin()) {}
  std::int32_t end() const noexcept { return stretch_->end; }
  std::uint32_t value() const noexcept { return stretch_->value; }
  void advance() noexcept { ++stretch_; }

 private:
  const Stretch* stretch_;
};

/// The stretches of a row whose values were mapped.
template <class Map>
inline void expand(const qcRLEBufferRun* runs, std::size_t count, StretchRow& out, Map map) {
  Collector collector(out, count);
  std::int32_t end = 0;
  for (std::size_t i = 0; i < count; ++i) {
    end += runs[i].length();
    collector.add(end, map(runs[i].value()));
  }
  collector.finish();
}

inline void expandRow(const qc_RLERep& rep, std::size_t row, StretchRow& out) {
  expand(rep.rows[row], rep.counts[row], out, [](unsigned char value) -> std::uint32_t { return value; });
}

/// Adds op(value of a, value of b) along two rows of one width to a sink.
template <class A, class B, class Op, class Sink>
inline void merge(A a, B b, std::int32_t width, Op op, Sink& sink) {
  for (;;) {
    const std::uint32_t value = op(a.value(), b.value());
    if (a.end() < b.end()) {
      sink.add(a.end(), value);
      a.advance();
    } else if (b.end() < a.end()) {
      sink.add(b.end(), value);
      b.advance();
    } else {
      sink.add(a.end(), value);
      if (a.end() == width) return;
      a.advance();
      b.advance();
    }
  }
}

/// Runs that writing a stretch may overwrite behind its last one.
inline constexpr std::size_t kSlack = 8;

/// Writes `length` pels, at least 1, as runs and returns the place behind them.
[[gnu::always_inline]] inline qcRLEBufferRun* put(qcRLEBufferRun* to, unsigned char value, std::uint32_t length) {
  const std::uint32_t full = (length - 1) / 255;
  const std::uint64_t four = std::bit_cast<std::uint16_t>(qcRLEBufferRun(value, 255)) * 0x0001000100010001ULL;
  const auto fill = [&](std::size_t from) { std::memcpy(static_cast<void*>(to + from), &four, sizeof four); };
  fill(0);
  fill(4);
  for (std::uint32_t i = 8; i < full; i += 4) fill(i);
  to[full] = qcRLEBufferRun(value, static_cast<unsigned char>(length - 255 * full));
  return to + full + 1;
}

/// Adds rows to an image from the top down. A row lies in one block, whatever it holds.
class RowWriter {
 public:
  /// `hint`: how many runs are expected in all, if known.
  RowWriter(qc_RLERep& rep, std::size_t height, std::int32_t hint = 0);

  /// Room for a row of at most `stretches` stretches and the run that ends it.
  qcRLEBufferRun* begin(std::size_t stretches) {
    const std::size_t runs = std::min(width_, stretches + width_ / 255);
    if (left_ < runs + 1 + kSlack) newBlock(runs + 1 + kSlack);
    return at_;
  }
  /// Room for any row.
  qcRLEBufferRun* begin() { return begin(width_); }
  /// Ends the row in front of `end`. `values` has at least the bits of all its values.
  void end(qcRLEBufferRun* end, std::uint32_t values) {
    *end = qcRLEBufferRun(0, 0);
    rep_.rows.push_back(at_);
    rep_.counts.push_back(static_cast<std::uint32_t>(end - at_));
    left_ -= static_cast<std::size_t>(end + 1 - at_);
    at_ = end + 1;
    values_ |= values;
  }
  void row(const StretchRow& stretches) {
    qcRLEBufferRun* to = begin(stretches.count());
    std::int32_t start = 0;
    std::uint32_t values = 0;
    for (const Stretch& stretch : stretches) {
      to = put(to, static_cast<unsigned char>(stretch.value), static_cast<std::uint32_t>(stretch.end - start));
      start = stretch.end;
      values |= stretch.value;
    }
    end(to, values);
  }
  /// After the last row.
  void finish() { rep_.isBinary = values_ <= 1; }

 private:
  void newBlock(std::size_t least);

  qc_RLERep& rep_;
  std::size_t width_, height_;
  std::int32_t hint_;
  std::size_t left_ = 0;
  qcUInt64 taken_ = 0;
  qcRLEBufferRun* at_ = nullptr;
  std::uint32_t values_ = 0;
};

/// Writes what it collects, a number of stretches at most, as a row.
class RunSink {
 public:
  RunSink(RowWriter& writer, std::size_t stretches) : writer_(writer), to_(writer.begin(stretches)) {}
  [[gnu::always_inline]] inline void add(std::int32_t end, std::uint32_t value) {
    if (value != value_) {
      flush();
      value_ = value;
    }
    end_ = end;
  }
  bool reaches(std::int32_t end) const noexcept { return end_ == end; }
  void finish() {
    flush();
    writer_.end(to_, values_);
  }

 private:
  [[gnu::always_inline]] inline void flush() {
    if (end_ == start_) return;
    to_ = put(to_, static_cast<unsigned char>(value_), static_cast<std::uint32_t>(end_ - start_));
    values_ |= value_;
    start_ = end_;
  }

  RowWriter& writer_;
  qcRLEBufferRun* to_;
  std::int32_t start_ = 0, end_ = 0;
  std::uint32_t value_ = std::numeric_limits<std::uint32_t>::max(), values_ = 0;
};

/// Calls use(runs, count, first row, rows) for groups of rows that follow each other in memory, with the runs that end
/// rows, which have no pels, but for the last one's.
template <class Use>
void forChains(const qc_RLERep& rep, Use use) {
  for (std::size_t y = 0; y < rep.height();) {
    const std::size_t first = y;
    const qcRLEBufferRun* end = rep.rows[y] + rep.counts[y];
    for (++y; y < rep.height() && rep.rows[y] == end + 1; ++y) end = rep.rows[y] + rep.counts[y];
    use(rep.rows[first], static_cast<std::size_t>(end - rep.rows[first]), first, y - first);
  }
}

/// Numbers of pels by value.
using Histogram = std::array<qcUInt64, 256>;

/// Adds a histogram to what there is; an empty vector first takes the size that the largest value needs.
void addHistogram(const Histogram& histogram, std::vector<unsigned long>& counts);

/// The common part of an image and a rectangle along one axis: the image begins at `start`.
struct Overlap {
  Overlap(qcInt64 start, qcInt64 size, qcInt64 otherStart, qcInt64 otherSize)
      : first(std::max(otherStart - start, qcInt64{0})), last(std::min(otherStart + otherSize - start, size)) {}
  bool isEmpty() const noexcept { return first >= last; }
  qcInt64 first, last;  // counted from the start of the image, the last one exclusive
};

/// A coordinate moved by any number; what lies far outside every image stays far outside.
inline qcInt64 moved(std::int32_t coordinate, long by) {
  constexpr qcInt64 far = qcInt64{1} << 40;
  return coordinate + std::clamp<qcInt64>(by, -far, far);
}

/// Whether image coordinates from `offset` on fit 32 bits.
inline bool fits(qcInt64 offset, qcInt64 size) { return offset >= INT32_MIN && offset <= INT32_MAX - size; }

}  // namespace vnxstd::rle
