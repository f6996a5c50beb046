#include "vnxstd/math/stats.h"

#include <algorithm>
#include <cmath>

#include "std/archive/found.h"
#include "vnxstd/archive/archive.h"

static const qc_ErrorRegistration<qcStatistics::Errors, qcStatistics::NoSamples> registered;

void qcStatistics::add(const double* values, long count) {
  qcStatistics sums = *this;  // a local of which no one else has the address: it stays in registers
  for (long i = 0; i < count; ++i) sums.add(values[i]);
  *this = sums;
}

void qcStatistics::add(const std::vector<double>& values) { add(values.data(), static_cast<long>(values.size())); }

qcStatistics& qcStatistics::operator+=(const qcStatistics& other) {
  const long long count = static_cast<long long>(count_) + other.count_;
  count_ = static_cast<std::int32_t>(std::min<long long>(count, std::numeric_limits<std::int32_t>::max()));
  sum_ += other.sum_;
  sumSquares_ += other.sumSquares_;
  min_ = std::min(min_, other.min_);
  max_ = std::max(max_, other.max_);
  return *this;
}

void qcStatistics::checkSamples() const {
  if (count_ == 0) throw NoSamples();
}

double qcStatistics::sum() const {
  checkSamples();
  return sum_;
}

double qcStatistics::min() const {
  checkSamples();
  return min_;
}

double qcStatistics::max() const {
  checkSamples();
  return max_;
}

double qcStatistics::mean() const {
  checkSamples();
  return sum_ / count_;
}

double qcStatistics::rms() const {
  checkSamples();
  return std::sqrt(sumSquares_ / count_);
}

double qcStatistics::variance() const {
  checkSamples();
  if (count_ == 1) return 0;
  const double value = (sumSquares_ - (sum_ / count_) * sum_) / (count_ - 1);
  return value > 0 ? value : 0;
}

double qcStatistics::stdDev() const { return std::sqrt(variance()); }

void qcStatistics::repInvariant() const {
  const bool noneIsNumber = std::isnan(sum_);
  const bool consistent =
      count_ == 0 ? *this == qcStatistics() : count_ > 0 && !(sumSquares_ < 0) && (min_ <= max_ || noneIsNumber);
  if (!consistent) throw qcInvariantFailure();
}

qcArchive& operator||(qcArchive& archive, qcStatistics& stats) {
  constexpr char kSource[] = "std/math/stats";
  constexpr int kLine = 143;  // the place that errors name
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, kSource, kLine);
  qcStatistics copy = stats;
  auto count = static_cast<std::uint32_t>(copy.count_);
  double reserved = 0;
  archive || count || copy.sum_ || reserved || copy.sumSquares_ || copy.min_ || copy.max_;
  if (count > static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max())) {
    throw archive.located(qcArchive::BadContent(kSource, kLine), "a count below 2^31", qf_Found(count));
  }
  copy.count_ = static_cast<std::int32_t>(count);
  if (archive.isLoading()) stats = copy;
  return archive;
}
