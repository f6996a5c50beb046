// Pixel rectangles and spans: regions of the pixel grid, with 32-bit coordinates.
//
// A region holds the pels from its start up to, not including, its end. Coordinates and sizes are 32-bit numbers; a
// result that does not fit throws qcPelFunc::Range, a negative size qcRectErrors::NegativeSize, so that every region is
// valid. Plain values.
#pragma once

#include <cstdint>
#include <type_traits>

#include "vnxstd/archive/widths.h"
#include "vnxstd/export.h"
#include "vnxstd/math/pair.h"

class qcArchive;

/// The value as a stored coordinate; throws qcPelFunc::Range when it does not fit 32 bits.
VNXSTD_EXPORT std::int32_t qf_PelCoord(qcInt64 value);

/// A rectangle of pels: the upper-left corner (x0, y0) and the exclusive lower-right corner (x1, y1), y downwards. The
/// width x1 - x0 and the height y1 - y0 are never negative; a rectangle without pels still has a place.
template <class T>
class VNXSTD_EXPORT qcRectangle {
  static_assert(std::is_same_v<T, long>, "rectangles are made of pixel coordinates: qcRectangle<long>");

 public:
  /// Empty, at the origin.
  qcRectangle() = default;
  /// The rectangle with these corners. Throws NegativeSize when x1 < x0 or y1 < y0, Range when a coordinate or a size
  /// does not fit 32 bits.
  static qcRectangle fromCorners(T x0, T y0, T x1, T y1);

  T x0() const noexcept { return x0_; }
  T y0() const noexcept { return y0_; }
  T x1() const noexcept { return x1_; }
  T y1() const noexcept { return y1_; }
  T width() const noexcept { return x1_ - x0_; }
  T height() const noexcept { return y1_ - y0_; }
  qcPair<T> ul() const noexcept { return {x0(), y0()}; }
  qcPair<T> lr() const noexcept { return {x1(), y1()}; }
  qcPair<T> size() const noexcept { return {width(), height()}; }

  /// True when there are no pels.
  bool isNull() const noexcept { return x0_ == x1_ || y0_ == y1_; }
  bool contains(T x, T y) const noexcept { return x >= x0_ && x < x1_ && y >= y0_ && y < y1_; }
  bool contains(const qcPair<T>& pel) const noexcept { return contains(pel.x(), pel.y()); }
  /// True when `other` reaches beyond no side; an empty rectangle counts by its place.
  bool contains(const qcRectangle& other) const noexcept {
    return other.x0_ >= x0_ && other.x1_ <= x1_ && other.y0_ >= y0_ && other.y1_ <= y1_;
  }
  /// True when there is a pel in both.
  bool overlaps(const qcRectangle& other) const noexcept {
    return x0_ < other.x1_ && other.x0_ < x1_ && y0_ < other.y1_ && other.y0_ < y1_ && !isNull() && !other.isNull();
  }
  /// The pels in both; throws qcRectErrors::NoOverlap when there are none.
  qcRectangle operator&(const qcRectangle& other) const;
  /// Moved by (dx, dy).
  qcRectangle translated(T dx, T dy) const;

  friend bool operator==(const qcRectangle&, const qcRectangle&) = default;

 protected:
  void add(const qcRectangle& other);
  void subtract(const qcRectangle& other);

 private:
  std::int32_t x0_ = 0, y0_ = 0, x1_ = 0, y1_ = 0;
};

extern template class qcRectangle<long>;

/// Four 32-bit words x0, y0, x1, y1. Loading corners that make no rectangle throws qcArchive::BadContent and changes
/// nothing.
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcRectangle<long>& rectangle);

/// The pixel rectangle, from sizes.
class VNXSTD_EXPORT qcPelRect : public qcRectangle<long> {
 public:
  qcPelRect() = default;
  qcPelRect(long width, long height) : qcPelRect(0, 0, width, height) {}
  qcPelRect(long x, long y, long width, long height);
  qcPelRect(const qcPair<long>& ul, const qcPair<long>& size) : qcPelRect(ul.x(), ul.y(), size.x(), size.y()) {}
  qcPelRect(const qcRectangle<long>& rectangle) : qcRectangle<long>(rectangle) {}

  /// The pels that are the sum of a pel of each (dilation): the corners add up, and a width is the sum of both widths
  /// less one. Empty when either is.
  qcPelRect& operator+=(const qcRectangle<long>& other);
  /// The positions at which `other` lies inside this rectangle (erosion): for a window of width w in an image of width
  /// W there are W - w + 1. Empty when it does not fit anywhere or either is empty. (a + b) - b is a.
  qcPelRect& operator-=(const qcRectangle<long>& other);
  friend qcPelRect operator+(qcPelRect a, const qcRectangle<long>& b) { return a += b; }
  friend qcPelRect operator-(qcPelRect a, const qcRectangle<long>& b) { return a -= b; }
};

/// A run of pels in one dimension: a start and a length.
class VNXSTD_EXPORT qcPelSpan {
 public:
  /// Empty, at the origin.
  qcPelSpan() = default;
  /// Throws NegativeSize for a negative length, Range when start, length or end does not fit 32 bits.
  qcPelSpan(long start, long length);

  long start() const noexcept { return start_; }
  long length() const noexcept { return length_; }
  /// The first place after the span.
  long end() const noexcept { return start_ + length_; }
  bool isNull() const noexcept { return length_ == 0; }
  bool contains(long place) const noexcept { return place >= start() && place < end(); }
  /// True when `other` reaches beyond neither end; an empty span counts by its place.
  bool contains(const qcPelSpan& other) const noexcept { return other.start() >= start() && other.end() <= end(); }

  /// As for rectangles: dilation, and the positions at which `other` lies inside this span.
  qcPelSpan& operator+=(const qcPelSpan& other);
  qcPelSpan& operator-=(const qcPelSpan& other);
  friend qcPelSpan operator+(qcPelSpan a, const qcPelSpan& b) { return a += b; }
  friend qcPelSpan operator-(qcPelSpan a, const qcPelSpan& b) { return a -= b; }
  friend bool operator==(const qcPelSpan&, const qcPelSpan&) = default;

 private:
  std::int32_t start_ = 0;
  std::int32_t length_ = 0;
};
