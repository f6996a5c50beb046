#include "vnxstd/math/range.h"

#include <algorithm>

#include "std/archive/found.h"
#include "vnxstd/archive/archive.h"

static const qc_ErrorRegistration<qcRangeDefs::Errors, qcRangeDefs::BadParams, qcRangeDefs::NotPartialRange> registered;

// What the two kinds of range have in common.

void qc_RangeBase::checkPartialRange() const {
  if (!isPartial()) throw qcRangeDefs::NotPartialRange();
}

double qc_RangeBase::middle_() const {
  checkPartialRange();
  return start_ + (end_ - start_) * 0.5;
}

void qc_RangeBase::serialize_(qcArchive& archive, int line) {
  constexpr char kSource[] = "std/math/range";
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, kSource, line);
  auto kind = static_cast<std::uint32_t>(kind_);
  double start = start_, end = end_;
  archive || kind || start || end;
  if (archive.isStoring()) return;
  if (kind > qcRangeDefs::eFull || !(start <= end)) {
    throw archive.located(qcArchive::BadContent(kSource, line), "a kind of range and a start before its end",
                          qf_Found(kind, start, end));
  }
  *this =
      kind == qcRangeDefs::ePartial ? qc_RangeBase(start, end) : qc_RangeBase(static_cast<qcRangeDefs::Range>(kind));
}

qcArchive& operator||(qcArchive& archive, qcRange& range) {
  range.serialize_(archive, 187);
  return archive;
}

qcArchive& operator||(qcArchive& archive, qcAngleRange& range) {
  range.serialize_(archive, 402);
  return archive;
}

// Ranges of values.

qcRange::qcRange(double start, double end) : qc_RangeBase(start, end) {
  if (!(start <= end)) throw qcRangeDefs::BadParams(L"start > end");
}

const qcRange& qcRange::EmptyRange() {
  static const qcRange range(qcRangeDefs::eEmpty);
  return range;
}

const qcRange& qcRange::FullRange() {
  static const qcRange range(qcRangeDefs::eFull);
  return range;
}

double qcRange::start() const {
  checkPartialRange();
  return start_;
}

double qcRange::end() const {
  checkPartialRange();
  return end_;
}

double qcRange::length() const { return isFull() ? std::numeric_limits<double>::max() : end_ - start_; }

bool qcRange::isWithin(double x) const { return isFull() || (isPartial() && start_ <= x && x <= end_); }

qcRange qcRange::intersect(const qcRange& other) const {
  if (isEmpty() || other.isFull()) return *this;
  if (other.isEmpty() || isFull()) return other;
  const double start = std::max(start_, other.start_), end = std::min(end_, other.end_);
  return start <= end ? qcRange(start, end) : EmptyRange();
}

qcRange qcRange::dilate(const qcRange& other) const {
  if (isEmpty()) return other;
  if (other.isEmpty()) return *this;
  if (isFull() || other.isFull()) return FullRange();
  return {start_ + other.start_, end_ + other.end_};
}

qcRange qcRange::erode(const qcRange& other) const {
  if (!isPartial() || other.isEmpty()) return *this;
  if (other.isFull()) return EmptyRange();
  const double start = start_ - other.start_, end = end_ - other.end_;
  return start <= end ? qcRange(start, end) : EmptyRange();
}

bool qcRange::someOverlap(const qcRange& other, double tolerance) const {
  return intersect(other).length() > tolerance;
}

// Ranges of angles.

qcAngleRange::qcAngleRange(const qcRadian& start, const qcRadian& end, bool allowZeroLength)
    : qc_RangeBase(start.plain(), end.plain()) {
  // The length of a partial range is a number; two infinities of one sign have none.
  const double length = end_ - start_;
  if (allowZeroLength) {
    if (!(length >= 0)) throw qcRangeDefs::BadParams(L"start > end");
  } else {
    if (!(length > 0)) throw qcRangeDefs::BadParams(L"start >= end");
  }
  if (length >= qcRadian::turn) *this = FullAngleRange();
}

const qcAngleRange& qcAngleRange::EmptyAngleRange() {
  static const qcAngleRange range(qcRangeDefs::eEmpty);
  return range;
}

const qcAngleRange& qcAngleRange::FullAngleRange() {
  static const qcAngleRange range(qcRangeDefs::eFull);
  return range;
}

qcRadian qcAngleRange::start() const {
  checkPartialRange();
  return qcRadian(start_);
}

qcRadian qcAngleRange::end() const {
  checkPartialRange();
  return qcRadian(end_);
}

qcRadian qcAngleRange::length() const { return qcRadian(isFull() ? qcRadian::turn : end_ - start_); }

bool qcAngleRange::isWithin(const qcRadian& angle) const {
  if (!isPartial()) return isFull();
  return (angle - qcRadian(start_)).norm().plain() <= end_ - start_;
}

qcAngleRange qcAngleRange::dilate(const qcAngleRange& other) const {
  if (isEmpty() || other.isEmpty()) return EmptyAngleRange();
  if (isFull() || other.isFull() || length() + other.length() >= qcRadian(qcRadian::turn)) return FullAngleRange();
  return {qcRadian(start_ + other.start_), qcRadian(end_ + other.end_), true};
}
