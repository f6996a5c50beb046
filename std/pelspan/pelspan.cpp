#include "vnxstd/pelspan/pelspan.h"

#include <algorithm>

#include "std/archive/found.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/except/pelerrors.h"

std::int32_t qf_PelCoord(qcInt64 value) {
  if (value < INT32_MIN || value > INT32_MAX) throw qcPelFunc::Range();
  return static_cast<std::int32_t>(value);
}

qcPelSpan::qcPelSpan(long start, long length) : start_(qf_PelCoord(start)), length_(qf_PelCoord(length)) {
  if (length_ < 0) throw qcRectErrors::NegativeSize();
  qf_PelCoord(qcInt64{start_} + length_);
}

qcPelSpan& qcPelSpan::operator+=(const qcPelSpan& other) {
  const qcInt64 length = isNull() || other.isNull() ? 0 : qcInt64{length_} + other.length_ - 1;
  return *this = qcPelSpan(qf_PelCoord(qcInt64{start_} + other.start_), qf_PelCoord(length));
}

qcPelSpan& qcPelSpan::operator-=(const qcPelSpan& other) {
  const qcInt64 length = isNull() || other.isNull() ? 0 : std::max<qcInt64>(qcInt64{length_} - other.length_ + 1, 0);
  return *this = qcPelSpan(qf_PelCoord(qcInt64{start_} - other.start_), qf_PelCoord(length));
}

template <class T>
qcRectangle<T> qcRectangle<T>::fromCorners(T x0, T y0, T x1, T y1) {
  qcRectangle result;
  result.x0_ = qf_PelCoord(x0);
  result.y0_ = qf_PelCoord(y0);
  result.x1_ = qf_PelCoord(x1);
  result.y1_ = qf_PelCoord(y1);
  if (x1 < x0 || y1 < y0) throw qcRectErrors::NegativeSize();
  qf_PelCoord(qcInt64{x1} - x0);
  qf_PelCoord(qcInt64{y1} - y0);
  return result;
}

template <class T>
qcRectangle<T> qcRectangle<T>::operator&(const qcRectangle& other) const {
  if (!overlaps(other)) throw qcRectErrors::NoOverlap();
  qcRectangle result;
  result.x0_ = std::max(x0_, other.x0_);
  result.y0_ = std::max(y0_, other.y0_);
  result.x1_ = std::min(x1_, other.x1_);
  result.y1_ = std::min(y1_, other.y1_);
  return result;
}

template <class T>
qcRectangle<T> qcRectangle<T>::translated(T dx, T dy) const {
  const qcInt64 x = qf_PelCoord(dx), y = qf_PelCoord(dy);
  return fromCorners(qf_PelCoord(x0_ + x), qf_PelCoord(y0_ + y), qf_PelCoord(x1_ + x), qf_PelCoord(y1_ + y));
}

// Both sums treat the two axes apart, except that an empty operand leaves nothing on either.
template <class T>
void qcRectangle<T>::add(const qcRectangle& other) {
  const bool isEmpty = isNull() || other.isNull();
  const qcPelSpan x = qcPelSpan(x0_, isEmpty ? 0 : width()) + qcPelSpan(other.x0_, other.width());
  const qcPelSpan y = qcPelSpan(y0_, isEmpty ? 0 : height()) + qcPelSpan(other.y0_, other.height());
  *this = fromCorners(x.start(), y.start(), x.end(), y.end());
}

template <class T>
void qcRectangle<T>::subtract(const qcRectangle& other) {
  const bool isEmpty = isNull() || other.isNull() || other.width() > width() || other.height() > height();
  const qcPelSpan x = qcPelSpan(x0_, isEmpty ? 0 : width()) - qcPelSpan(other.x0_, other.width());
  const qcPelSpan y = qcPelSpan(y0_, isEmpty ? 0 : height()) - qcPelSpan(other.y0_, other.height());
  *this = fromCorners(x.start(), y.start(), x.end(), y.end());
}

template class qcRectangle<long>;

qcArchive& operator||(qcArchive& archive, qcRectangle<long>& rectangle) {
  std::int32_t corner[4] = {qf_PelCoord(rectangle.x0()), qf_PelCoord(rectangle.y0()), qf_PelCoord(rectangle.x1()),
                            qf_PelCoord(rectangle.y1())};
  archive.block(corner, 4);
  if (archive.isStoring()) return archive;
  if (qcInt64{corner[2]} - corner[0] > INT32_MAX || qcInt64{corner[3]} - corner[1] > INT32_MAX ||
      corner[2] < corner[0] || corner[3] < corner[1]) {
    throw archive.located(qcArchive::BadContent("std/pelspan/pelspan", 118), "a rectangle of 32-bit coordinates",
                          qf_Found(corner[0], corner[1], corner[2], corner[3]));
  }
  rectangle = qcRectangle<long>::fromCorners(corner[0], corner[1], corner[2], corner[3]);
  return archive;
}

qcPelRect::qcPelRect(long x, long y, long width, long height) {
  const qcPelSpan across(x, width), down(y, height);
  *this = fromCorners(across.start(), down.start(), across.end(), down.end());
}

qcPelRect& qcPelRect::operator+=(const qcRectangle<long>& other) {
  add(other);
  return *this;
}

qcPelRect& qcPelRect::operator-=(const qcRectangle<long>& other) {
  subtract(other);
  return *this;
}
