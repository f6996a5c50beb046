// Running statistics of a series of values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

class qcArchive;

/// Count, sum, sum of squares and extremes of the values added so far, and what follows from them. A plain value.
/// The sums are plain double sums in the order of adding: the variance loses digits when the mean is large against
/// the spread; subtract a typical value first where that matters.
class VNXSTD_EXPORT qcStatistics {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// A statistic of no values.
  class VNXSTD_EXPORT NoSamples : public qc_ErrorLeaf<NoSamples, Errors, 0x10000F40> {};

  qcStatistics() = default;
  explicit qcStatistics(const std::vector<double>& values) { add(values); }

  /// Adds a value, `count` values (none when count is not positive), and a vector of values. The count stops at
  /// 2147483647 while the sums go on. NaN counts and makes the sums NaN, but is never an extreme.
  void add(double x) {
    if (count_ < std::numeric_limits<std::int32_t>::max()) ++count_;
    sum_ += x;
    sumSquares_ += x * x;
    if (x <= min_) min_ = x;
    if (x >= max_) max_ = x;
  }
  void add(const double* values, long count);
  void add(const std::vector<double>& values);
  qcStatistics& operator+=(double x) {
    add(x);
    return *this;
  }

  /// Merges: counts and sums are added, extremes combined.
  qcStatistics& operator+=(const qcStatistics& other);
  friend qcStatistics operator+(qcStatistics a, const qcStatistics& b) { return a += b; }

  /// Back to no values.
  void clear() { *this = qcStatistics(); }

  std::int32_t count() const { return count_; }

  // Each of these throws NoSamples when the count is 0.
  double sum() const;
  double min() const;
  double max() const;
  double mean() const;
  /// The square root of the mean square.
  double rms() const;
  /// (sum of squares - mean * sum) / (count - 1); 0 for one value, and when rounding makes that negative.
  double variance() const;
  /// The square root of the variance.
  double stdDev() const;

  friend bool operator==(const qcStatistics&, const qcStatistics&) = default;

  /// Throws qcInvariantFailure when the fields contradict each other, which can only be after loading a damaged
  /// archive: a negative count, sums or extremes without values, a negative sum of squares, or a minimum above the
  /// maximum.
  void repInvariant() const;

  /// Stores or loads a version byte (0), count (32 bits), sum, a reserved double (0), sum of squares, minimum and
  /// maximum. Loading throws qcArchive::UnknownVersion for another version and qcArchive::BadContent for a count
  /// above 2147483647; the statistics are then as they were.
  friend VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcStatistics& stats);

 private:
  void checkSamples() const;

  std::int32_t count_ = 0;
  double sum_ = 0;
  double sumSquares_ = 0;
  double min_ = std::numeric_limits<double>::max();
  double max_ = -std::numeric_limits<double>::max();
};
