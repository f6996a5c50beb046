// Pels in other places: mirrored, transposed, every n-th, repeated.
//
// These functions take pels of every type that images are made of, bit for bit. What prepare.h says of windows,
// destinations and errors holds here as well, with the windows compared as each function says. Each is one pass over
// the pels. A new image whose transform differs from the source's also throws qcMathError::Singular, when the source's
// was set as an inverse that has none.
#pragma once

#include "vnxstd/export.h"
#include "vnxstd/pelbuf/apply.h"
#include "vnxstd/pelbuf/prepare.h"

/// The workers, on rows of pels of `pelSize` bytes (1, 2, 4 or 8) given as bytes. Mirroring and transposing may be done
/// in place; the transposed rectangle has the source's sizes exchanged. The destination of a sampling is as large as
/// there are pels to take. `skipX` and `skipY` are the copies of the first source column and row that the expanded
/// destination leaves out.
VNXSTD_EXPORT void qf_PelFlipH(int pelSize, qc_PelRows<const unsigned char> src, qc_PelRows<unsigned char> dst);
VNXSTD_EXPORT void qf_PelFlipV(qc_PelRows<const unsigned char> src, qc_PelRows<unsigned char> dst);
VNXSTD_EXPORT void qf_PelTranspose(int pelSize, qc_PelRows<const unsigned char> src, qc_PelRows<unsigned char> dst);
VNXSTD_EXPORT void qf_PelSample(int pelSize, qc_PelRows<const unsigned char> src, qc_PelRows<unsigned char> dst,
                                qcInt64 x, qcInt64 y);
VNXSTD_EXPORT void qf_PelExpand(int pelSize, qc_PelRows<const unsigned char> src, qc_PelRows<unsigned char> dst,
                                qcInt64 x, qcInt64 y, qcInt64 skipX, qcInt64 skipY);

/// The factors of a sampling or an expansion, and which pels of two windows they bring together. A plain value.
class VNXSTD_EXPORT qc_PelScale {
 public:
  /// Throws qcPelFunc::BadParams for a factor below 1.
  qc_PelScale(long x, long y);
  qcInt64 x() const noexcept { return x_; }
  qcInt64 y() const noexcept { return y_; }

  /// All that the source gives, in the destination's coordinates. Throws qcPel::UnboundWindow, and qcPelFunc::Range
  /// when an expanded image has coordinates or a size beyond 32 bits.
  qcPelRect sampled(const qc_PelBuffer& src) const;
  qcPelRect expanded(const qc_PelBuffer& src) const;

  /// Limits both windows to the pels that belong together. Throws qcPelFunc::Overlap when they share pels, unless they
  /// are the same.
  void prepareSample(qc_PelBuffer& src, qc_PelBuffer& dst) const;
  void prepareExpand(qc_PelBuffer& src, qc_PelBuffer& dst) const;

 private:
  qcInt64 x_, y_;
};

/// Limits a source and a destination to the part in which the transposed source fits the destination, both corners on
/// each other; throws as transposing does.
VNXSTD_EXPORT void qf_PelPrepareTranspose(qc_PelBuffer& src, qc_PelBuffer& dst);

/// Gives `dst` the transform that first takes (x, y) to (m00 x + m01 y, m10 x + m11 y) and then does what `src`'s does.
VNXSTD_EXPORT void qf_PelSetXformVia(qc_PelBuffer& dst, const qc_PelBuffer& src, double m00, double m01, double m10,
                                     double m11);

template <class T, class Work>
void qf_PelForBytes(const qcPelBuffer_const<T>& src, const qcPelBuffer<T>& dst, Work&& work) {
  qf_PelForPlanes(src, dst, [&](const auto& from, const auto& to) {
    const auto rows = qf_PelRows(from);
    work(static_cast<int>(sizeof *rows.pels), qf_PelRowsAs<const unsigned char>(rows),
         qf_PelRowsAs<unsigned char>(qf_PelRows(to)));
  });
}

/// Mirrors the pels that both windows have in common about the vertical line through their middle: left becomes right.
/// In place is allowed.
template <class T>
void qfPelFlipH(const qcPelBuffer_const<T>& src, qcPelBuffer<T>& dst) {
  qcPelBuffer_const<T> from(src);
  qcPelBuffer<T> to(dst);
  qf_PelPrepareAlloc_1s1d(from, to);
  qf_PelForBytes(from, to, [](int pelSize, auto s, auto d) { qf_PelFlipH(pelSize, s, d); });
  if (!dst.isBound()) dst = to;
}

template <class T>
qcPelBuffer<T> qfPelFlipH(const qcPelBuffer_const<T>& src) {
  qcPelBuffer<T> dst;
  qfPelFlipH(src, dst);
  return dst;
}

/// Mirrors the pels that both windows have in common about the horizontal line through their middle: top becomes
/// bottom. In place is allowed.
template <class T>
void qfPelFlipV(const qcPelBuffer_const<T>& src, qcPelBuffer<T>& dst) {
  qcPelBuffer_const<T> from(src);
  qcPelBuffer<T> to(dst);
  qf_PelPrepareAlloc_1s1d(from, to);
  qf_PelForBytes(from, to, [](int, auto s, auto d) { qf_PelFlipV(s, d); });
  if (!dst.isBound()) dst = to;
}

template <class T>
qcPelBuffer<T> qfPelFlipV(const qcPelBuffer_const<T>& src) {
  qcPelBuffer<T> dst;
  qfPelFlipV(src, dst);
  return dst;
}

/// The name of the 8-bit instance.
inline void qfPelFlipV_U8(const qcPelBuffer_const<unsigned char>& src, qcPelBuffer<unsigned char>& dst) {
  qfPelFlipV(src, dst);
}

/// Exchanges rows and columns. The corners of the windows lie on each other, wherever they are: pel (i, j) of the
/// destination's window, counted from its upper-left pel, becomes pel (j, i) of the source's. What of either has no
/// counterpart in the other is left out. In place is allowed, in a window that is not square for the square at its
/// upper-left corner. A new image has the source's size, offset and transform with the coordinates exchanged, so that
/// every pel keeps its client coordinates.
template <class T>
void qfPelTranspose(const qcPelBuffer_const<T>& src, qcPelBuffer<T>& dst) {
  qcPelBuffer_const<T> from(src);
  qcPelBuffer<T> to(dst);
  if (!from.isBound()) throw qcPel::UnboundWindow();
  if (!to.isBound()) {
    to = qcPelBuffer<T>(qcPelRect(from.offset().y(), from.offset().x(), from.height(), from.width()));
    qf_PelSetXformVia(to, from, 0, 1, 1, 0);
  }
  qf_PelPrepareTranspose(from, to);
  qf_PelForBytes(from, to, [](int pelSize, auto s, auto d) { qf_PelTranspose(pelSize, s, d); });
  if (!dst.isBound()) dst = to;
}

template <class T>
qcPelBuffer<T> qfPelTranspose(const qcPelBuffer_const<T>& src) {
  qcPelBuffer<T> dst;
  qfPelTranspose(src, dst);
  return dst;
}

/// Takes every `x`-th column and every `y`-th row: pel (X, Y) of the destination becomes pel (X * x, Y * y) of the
/// source, both in image coordinates, where both windows have it. So the tiles of an image give the tiles of its
/// sample. A new image begins at the source's offset divided by the factors, rounded up, and maps its pels to the
/// client coordinates of the pels that they were taken from. Throws qcPelFunc::BadParams for a factor below 1; no
/// destination may share pels with the source, unless both factors are 1.
template <class T>
void qfPelSample(const qcPelBuffer_const<T>& src, qcPelBuffer<T>& dst, long x, long y) {
  const qc_PelScale scale(x, y);
  qcPelBuffer_const<T> from(src);
  qcPelBuffer<T> to(dst);
  const qcPelRect all = scale.sampled(from);
  if (!to.isBound()) {
    to = qcPelBuffer<T>(all);
    qf_PelSetXformVia(to, from, static_cast<double>(x), 0, 0, static_cast<double>(y));
  }
  scale.prepareSample(from, to);
  qf_PelForBytes(from, to, [&](int pelSize, auto s, auto d) { qf_PelSample(pelSize, s, d, scale.x(), scale.y()); });
  if (!dst.isBound()) dst = to;
}

template <class T>
qcPelBuffer<T> qfPelSample(const qcPelBuffer_const<T>& src, long x, long y) {
  qcPelBuffer<T> dst;
  qfPelSample(src, dst, x, y);
  return dst;
}

/// Repeats every pel in a rectangle of `x` by `y` pels: pel (X, Y) of the destination becomes pel (X / x, Y / y),
/// rounded down, of the source, both in image coordinates, where both windows have it. A new image begins at the
/// source's offset times the factors, and maps its pels to client coordinates accordingly. Sampling by the same factors
/// undoes it. Throws qcPelFunc::BadParams for a factor below 1, qcPelFunc::Range for a new image whose coordinates or
/// size do not fit 32 bits; no destination may share pels with the source, unless both factors are 1.
template <class T>
void qfPelExpand(const qcPelBuffer_const<T>& src, qcPelBuffer<T>& dst, long x, long y) {
  const qc_PelScale scale(x, y);
  qcPelBuffer_const<T> from(src);
  qcPelBuffer<T> to(dst);
  if (!to.isBound()) {
    to = qcPelBuffer<T>(scale.expanded(from));
    qf_PelSetXformVia(to, from, 1 / static_cast<double>(x), 0, 0, 1 / static_cast<double>(y));
  }
  scale.prepareExpand(from, to);
  const qcInt64 skipX = to.offset().x() - from.offset().x() * scale.x();
  const qcInt64 skipY = to.offset().y() - from.offset().y() * scale.y();
  qf_PelForBytes(from, to,
                 [&](int pelSize, auto s, auto d) { qf_PelExpand(pelSize, s, d, scale.x(), scale.y(), skipX, skipY); });
  if (!dst.isBound()) dst = to;
}

template <class T>
qcPelBuffer<T> qfPelExpand(const qcPelBuffer_const<T>& src, long x, long y) {
  qcPelBuffer<T> dst;
  qfPelExpand(src, dst, x, y);
  return dst;
}
