// One-dimensional ranges of values and of angles.
#pragma once

#include <cstdint>
#include <limits>

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"
#include "vnxstd/math/angle.h"

class qcArchive;

/// What ranges have in common: their kinds and their errors.
class VNXSTD_EXPORT qcRangeDefs {
 public:
  enum Range : std::uint32_t {
    ePartial = 0,  ///< the values from start to end, both included
    eEmpty = 1,    ///< no value
    eFull = 2      ///< every value
  };

  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors, qcExceptionWithString> {
   protected:
    using qc_ErrorGroup::qc_ErrorGroup;
  };
  /// The ends are in the wrong order ("start > end", "start >= end") or are not numbers.
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10000F20> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  /// The ends or the middle of a range that is empty or full.
  class VNXSTD_EXPORT NotPartialRange : public qc_ErrorLeaf<NotPartialRange, Errors, 0x10000F21> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
};

/// The data of a range: its kind and, of a partial range, its ends; both are zero in the other kinds.
class VNXSTD_EXPORT qc_RangeBase {
 public:
  qcRangeDefs::Range range() const { return kind_; }

 protected:
  constexpr explicit qc_RangeBase(qcRangeDefs::Range kind) : kind_(kind) {}
  constexpr qc_RangeBase(double start, double end) : kind_(qcRangeDefs::ePartial), start_(start), end_(end) {}
  bool isPartial() const { return kind_ == qcRangeDefs::ePartial; }
  bool isEmpty() const { return kind_ == qcRangeDefs::eEmpty; }
  bool isFull() const { return kind_ == qcRangeDefs::eFull; }
  void checkPartialRange() const;
  double middle_() const;
  void serialize_(qcArchive& archive, int line);

  friend bool operator==(const qc_RangeBase&, const qc_RangeBase&) = default;

  qcRangeDefs::Range kind_;
  double start_ = 0;
  double end_ = 0;
};

/// A closed range of values [start, end], the empty range or the range of all values. A plain value; ranges never
/// change but by assignment.
class VNXSTD_EXPORT qcRange : public qc_RangeBase {
 public:
  /// The empty range.
  constexpr qcRange() : qc_RangeBase(qcRangeDefs::eEmpty) {}
  /// A partial range; start may equal end. Throws qcRangeDefs::BadParams with the text "start > end" when end is
  /// less than start or either is NaN.
  qcRange(double start, double end);

  static const qcRange& EmptyRange();
  static const qcRange& FullRange();

  /// The ends, and start + (end - start) * 0.5. They throw qcRangeDefs::NotPartialRange for other kinds.
  double start() const;
  double end() const;
  double middle() const { return middle_(); }

  /// end - start; 0 for the empty range, the largest finite double for the full one.
  double length() const;

  /// True for start <= x <= end.
  bool isWithin(double x) const;

  /// The values that are in both ranges.
  qcRange intersect(const qcRange& other) const;

  /// [start + other.start, end + other.end]: all sums of a value of this range and one of the other. Empty is the
  /// neutral element: with it the result is the other operand. Full with anything is full. Throws
  /// qcRangeDefs::BadParams when infinite ends of opposite signs meet.
  qcRange dilate(const qcRange& other) const;

  /// [start - other.start, end - other.end], or empty when that has no value: undoes dilate. Eroding by the empty
  /// range changes nothing, a partial range eroded by the full one is empty; empty stays empty, full stays full.
  qcRange erode(const qcRange& other) const;

  /// True when the intersection is longer than the tolerance.
  bool someOverlap(const qcRange& other, double tolerance) const;

  /// Exact comparison of kind, start and end.
  friend bool operator==(const qcRange&, const qcRange&) = default;

  /// Stores or loads a version byte (0), the kind (32 bits), start and end. Loading throws
  /// qcArchive::UnknownVersion for another version, and qcArchive::BadContent when the kind is none of the three,
  /// start is above end or either is NaN; the range is then as it was.
  friend VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcRange& range);

 private:
  using qc_RangeBase::qc_RangeBase;
};

/// A range of angles running from start upwards to end, the empty range or the full circle. The ends are kept as
/// given, not reduced into one turn. A plain value; ranges never change but by assignment.
class VNXSTD_EXPORT qcAngleRange : public qc_RangeBase {
 public:
  /// The empty range.
  constexpr qcAngleRange() : qc_RangeBase(qcRangeDefs::eEmpty) {}
  /// A partial range, or the full circle when end - start is a full turn or more. Throws qcRangeDefs::BadParams
  /// unless start is less than end (text "start >= end") or, where a range of one angle is allowed, not greater
  /// ("start > end"). NaN and ends that are the same infinity are never allowed.
  qcAngleRange(const qcRadian& start, const qcRadian& end, bool allowZeroLength = false);

  static const qcAngleRange& EmptyAngleRange();
  static const qcAngleRange& FullAngleRange();

  /// The ends, and start + (end - start) * 0.5. They throw qcRangeDefs::NotPartialRange for other kinds.
  qcRadian start() const;
  qcRadian end() const;
  qcRadian middle() const { return qcRadian(middle_()); }

  /// end - start; 0 for the empty range, a full turn for the full one.
  qcRadian length() const;

  /// True when the angle, reduced by whole turns, lies in the range.
  bool isWithin(const qcRadian& angle) const;

  /// All sums of an angle of this range and one of the other: [start + other.start, end + other.end], or the full
  /// circle when the lengths sum to a full turn or more. Empty with anything is empty, else full with anything full.
  /// Throws qcRangeDefs::BadParams when the sums of the ends overflow.
  qcAngleRange dilate(const qcAngleRange& other) const;

  /// Exact comparison of kind, start and end.
  friend bool operator==(const qcAngleRange&, const qcAngleRange&) = default;

  /// As for qcRange, the ends in radians.
  friend VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcAngleRange& range);

 private:
  using qc_RangeBase::qc_RangeBase;
};
