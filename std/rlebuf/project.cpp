// Histograms and projections.
#include <cmath>
#include <type_traits>
#include <vector>

#include "std/rlebuf/rep.h"

namespace {

namespace rle = vnxstd::rle;

constexpr double kMostBins = 1 << 24;
constexpr double kExact = 9007199254740992.0;  // 2^53

std::uint64_t weight(const qcRLEBufferRun& run) { return std::uint64_t{run.value()} * run.length(); }

/// The sum of the pels of a row.
std::uint64_t sumOf(const qcRLEBufferRun* runs, std::size_t count) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < count; ++i) sum += weight(runs[i]);
  return sum;
}

std::vector<unsigned long> asCounts(const std::vector<qcUInt64>& sums, std::size_t bins) {
  std::vector<unsigned long> counts(bins);
  for (std::size_t i = 0; i < bins; ++i) counts[i] = static_cast<unsigned long>(sums[i]);
  return counts;
}

std::vector<qcUInt64> rowSums(const qc_RLERep& rep, bool isCount) {
  std::vector<qcUInt64> sums(rep.height());
  for (std::size_t y = 0; y < rep.height(); ++y) {
    if (!isCount) {
      sums[y] = sumOf(rep.rows[y], rep.counts[y]);
      continue;
    }
    for (std::size_t i = 0; i < rep.counts[y]; ++i) {
      const qcRLEBufferRun run = rep.rows[y][i];
      sums[y] += run.value() != 0 ? run.length() : 0U;
    }
  }
  return sums;
}

/// Sums over columns, row y moved to the right by `slope` * y. A stretch adds its value where it begins and takes it
/// away where it ends; the sums are the running total of that. They wrap around on the way, and back.
std::vector<qcUInt64> columnSums(const qc_RLERep& rep, std::size_t slope, bool isCount) {
  std::vector<qcUInt64> sums(static_cast<std::size_t>(rep.width) + slope * (rep.height() - 1) + 1);
  for (std::size_t y = 0; y < rep.height(); ++y) {
    qcUInt64* at = sums.data() + slope * y;
    qcUInt64 last = 0;
    for (std::size_t i = 0; i < rep.counts[y]; ++i) {
      const qcRLEBufferRun run = rep.rows[y][i];
      const qcUInt64 value = isCount ? run.value() != 0 : run.value();
      *at += value - last;
      last = value;
      at += run.length();
    }
    *at -= last;
  }
  for (std::size_t i = 1; i < sums.size(); ++i) sums[i] += sums[i - 1];
  sums.pop_back();
  return sums;
}

/// The places of pel centres on a line, in bins. The place of a pel is one expression, rounded the same way wherever it
/// is used, and does not decrease (or not increase) from pel to pel along a row or a column.
struct Line {
  double x, y, start;
  double place(qcInt64 column, double ofRow) const { return x * (static_cast<double>(column) + 0.5) + ofRow; }
  double row(qcInt64 row) const { return y * (static_cast<double>(row) + 0.5) + start; }
  qcInt64 bin(qcInt64 column, double ofRow) const { return static_cast<qcInt64>(std::floor(place(column, ofRow))); }
};

/// Bins of pixel places along a line.
class Bins {
 public:
  Bins(const qc_RLERep& rep, const Line& line) : rep_(rep), line_(line) {
    double lowest = HUGE_VAL, highest = -HUGE_VAL;
    for (const qcInt64 column : {qcInt64{0}, qcInt64{rep.width} - 1}) {
      for (const qcInt64 row : {qcInt64{0}, static_cast<qcInt64>(rep.height()) - 1}) {
        const double place = line.place(column, line.row(row));
        if (!std::isfinite(place)) throw qcPelFunc::BadParams();
        lowest = std::min(lowest, place);
        highest = std::max(highest, place);
      }
    }
    if (!(lowest > -kExact && highest < kExact && highest - lowest < kMostBins - 1)) throw qcPelFunc::Range();
    first_ = static_cast<qcInt64>(std::floor(lowest));
    const auto count = static_cast<std::size_t>(static_cast<qcInt64>(std::floor(highest)) - first_ + 1);
    sums_.resize(count);
    counts_.resize(count);
  }

  void addRows() {
    const std::vector<qcUInt64> sums = rowSums(rep_, false), counts = rowSums(rep_, true);
    for (std::size_t y = 0; y < sums.size(); ++y) {
      add(line_.bin(0, line_.row(static_cast<qcInt64>(y))), sums[y], counts[y]);
    }
  }
  void addColumns() {
    const std::vector<qcUInt64> sums = columnSums(rep_, 0, false), counts = columnSums(rep_, 0, true);
    const double ofRow = line_.row(0);
    for (std::size_t x = 0; x < sums.size(); ++x) add(line_.bin(static_cast<qcInt64>(x), ofRow), sums[x], counts[x]);
  }
  void addPels() {
    rle::StretchRow row;
    for (std::size_t y = 0; y < rep_.height(); ++y) {
      const double ofRow = line_.row(static_cast<qcInt64>(y));
      rle::expandRow(rep_, y, row);
      qcInt64 start = 0;
      for (const rle::Stretch& stretch : row) {
        if (stretch.value != 0) addStretch(start, stretch.end, ofRow, stretch.value);
        start = stretch.end;
      }
    }
  }

  const std::vector<qcUInt64>& sums() const { return sums_; }
  const std::vector<qcUInt64>& counts() const { return counts_; }
  qcInt64 first() const { return first_; }

 private:
  void add(qcInt64 bin, qcUInt64 sum, qcUInt64 count) {
    sums_[static_cast<std::size_t>(bin - first_)] += sum;
    counts_[static_cast<std::size_t>(bin - first_)] += count;
  }
  void addStretch(qcInt64 start, qcInt64 end, double ofRow, qcUInt64 value) {
    while (start < end) {
      const qcInt64 bin = line_.bin(start, ofRow);
      const qcInt64 next = line_.bin(end - 1, ofRow) == bin ? end : behind(bin, start, end, ofRow);
      const auto pels = static_cast<qcUInt64>(next - start);
      add(bin, value * pels, pels);
      start = next;
    }
  }
  /// The first pel behind those of a bin, which has pel `start` and has not pel `end` - 1.
  qcInt64 behind(qcInt64 bin, qcInt64 start, qcInt64 end, double ofRow) const {
    const double border = static_cast<double>(line_.x > 0 ? bin + 1 : bin);
    const double guess = std::ceil((border - ofRow) / line_.x - 0.5);
    const auto next =
        static_cast<qcInt64>(std::clamp(guess, static_cast<double>(start + 1), static_cast<double>(end - 1)));
    if (line_.bin(next - 1, ofRow) == bin && line_.bin(next, ofRow) != bin) return next;
    qcInt64 last = end - 1;
    while (start + 1 < last) {  // rounding led astray: between `start`, which is in the bin, and `last`, which is not
      const qcInt64 middle = start + (last - start) / 2;
      (line_.bin(middle, ofRow) == bin ? start : last) = middle;
    }
    return last;
  }

  const qc_RLERep& rep_;
  Line line_;
  qcInt64 first_ = 0;
  std::vector<qcUInt64> sums_, counts_;
};

}  // namespace

void rle::addHistogram(const Histogram& histogram, std::vector<unsigned long>& counts) {
  std::size_t used = histogram.size();
  while (used > 0 && histogram[used - 1] == 0) --used;
  if (counts.empty()) counts.resize(used);
  for (std::size_t i = 0; i < std::min(used, counts.size()); ++i) counts[i] += static_cast<unsigned long>(histogram[i]);
}

void qcRLEBuffer::histo(std::vector<unsigned long>& counts) const {
  // Neighbouring runs go to different tables, so that none waits for the count before it.
  std::array<rle::Histogram, 4> tables{};
  rle::forChains(rep(), [&](const qcRLEBufferRun* runs, std::size_t count, std::size_t, std::size_t) {
    for (std::size_t i = 0; i < count; ++i) tables[i % tables.size()][runs[i].value()] += runs[i].length();
  });
  for (std::size_t t = 1; t < tables.size(); ++t) {
    for (std::size_t v = 0; v < tables[0].size(); ++v) tables[0][v] += tables[t][v];
  }
  rle::addHistogram(tables[0], counts);
}

void qcRLEBuffer::histo(std::vector<unsigned long>& counts, std::vector<unsigned long>& runs) const {
  rle::Histogram numbers{};
  rle::forChains(rep(), [&](const qcRLEBufferRun* first, std::size_t count, std::size_t, std::size_t rows) {
    for (std::size_t i = 0; i < count; ++i) ++numbers[first[i].value()];
    numbers[0] -= rows - 1;  // the runs that end rows
  });
  std::vector<unsigned long> newRuns = runs;
  rle::addHistogram(numbers, newRuns);
  histo(counts);
  runs.swap(newRuns);
}

void qcRLEBuffer::projectHoriz(std::vector<unsigned long>& sums) const {
  const qc_RLERep& image = rep();
  sums.resize(image.height());
  for (std::size_t y = 0; y < sums.size(); ++y) {
    sums[y] = static_cast<unsigned long>(sumOf(image.rows[y], image.counts[y]));
  }
}

void qcRLEBuffer::projectVert(std::vector<unsigned long>& sums) const {
  const qc_RLERep& image = rep();
  sums = asCounts(columnSums(image, 0, false), static_cast<std::size_t>(image.width));
}

void qcRLEBuffer::projectDiag(std::vector<unsigned long>& sums) const {
  const std::vector<qcUInt64> diagonals = columnSums(rep(), 1, false);
  sums = asCounts(diagonals, diagonals.size());
}

qcRLEBuffer::ProjType qcRLEBuffer::projectAngle(const qcVector<2>& direction, const qcXform<2>& xform,
                                                std::vector<unsigned long>& sums, std::vector<unsigned long>& counts,
                                                qcInt64& first) const {
  const qc_RLERep& image = rep();
  // Scaled by a power of two first: the length of the largest directions is no double, that of the smallest is coarse.
  if (!std::isfinite(direction.x()) || !std::isfinite(direction.y()) || direction.isNull()) {
    throw qcPelFunc::BadParams();
  }
  int exponent = 0;
  std::frexp(std::max(std::abs(direction.x()), std::abs(direction.y())), &exponent);
  const double x = std::ldexp(direction.x(), -exponent), y = std::ldexp(direction.y(), -exponent);
  const double length = std::hypot(x, y);
  const qcVector<2> unit(x / length, y / length);
  // The place of a pel is unit . (matrix * centre + translation), a linear function of its column and row.
  const qcMatrix<2>& matrix = xform.matrix();
  Line line;
  line.x = unit.x() * matrix.element(0, 0) + unit.y() * matrix.element(1, 0);
  line.y = unit.x() * matrix.element(0, 1) + unit.y() * matrix.element(1, 1);
  line.start =
      unit.x() * xform.trans().x() + unit.y() * xform.trans().y() + line.x * image.offsetX + line.y * image.offsetY;
  Bins bins(image, line);
  const ProjType type = line.x == 0 ? ofRows : line.y == 0 ? ofColumns : ofPels;
  if (type == ofRows) {
    bins.addRows();
  } else if (type == ofColumns) {
    bins.addColumns();
  } else {
    bins.addPels();
  }
  std::vector<unsigned long> newSums = asCounts(bins.sums(), bins.sums().size());
  counts = asCounts(bins.counts(), bins.counts().size());
  sums.swap(newSums);
  first = bins.first();
  return type;
}

qcRLEBuffer::ProjType qcRLEBuffer::projectAngle(const qcVector<2>& direction, bool inClient,
                                                std::vector<unsigned long>& sums, std::vector<unsigned long>& counts,
                                                qcInt64& first) const {
  return projectAngle(direction, inClient ? clientFromImageXform() : (rep(), qcXform<2>()), sums, counts, first);
}
