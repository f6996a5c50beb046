// Copying pels between windows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vnxstd/export.h"
#include "vnxstd/pelbuf/apply.h"
#include "vnxstd/pelbuf/pelwise.h"
#include "vnxstd/pelbuf/prepare.h"

/// Copies rectangles of one size, given as bytes. They may overlap when their pitches are the same.
VNXSTD_EXPORT void qf_PelCopy(const qc_PelRows<const unsigned char>& src, const qc_PelRows<unsigned char>& dst);

/// Copies the pels of prepared windows, plane by plane where there are planes.
template <class T>
void qf_PelCopyWindow(const qcPelBuffer_const<T>& src, const qcPelBuffer<T>& dst) {
  if (src.isRemote() || dst.isRemote()) {
    if (!src.windowRoot().isNull()) src.rep()->copy(src.windowRoot(), *dst.rep(), dst.offsetRoot(), false);
  } else if constexpr (qcFlatPelType<T>) {
    qf_PelCopy(qf_PelRowsAs<const unsigned char>(qf_PelRows(src)), qf_PelRowsAs<unsigned char>(qf_PelRows(dst)));
  } else {
    for (int plane = 0; plane < 3; ++plane) qf_PelCopyWindow(src.planeBuffer(plane), dst.planeBuffer(plane));
  }
}

/// Copies the pels that both windows have in common in image coordinates, from and to either side of a communicator. An
/// unbound destination is bound to a new image of the source's window. Throws as prepare.h and root.h say.
template <class T>
void qfPelCopy(const qcPelBuffer_const<T>& src, qcPelBuffer<T>& dst) {
  if (src.isRemote() || dst.isRemote()) {
    qcPelBuffer_const<T> from(src);
    qcPelBuffer<T> to(dst);
    qf_PelPrepareAlloc_1s1d(from, to);
    qf_PelCopyWindow(from, to);
    if (!dst.isBound()) dst = to;
    return;
  }
  const auto copy = [](auto from, auto to) {
    qf_PelCopy(qf_PelRowsAs<const unsigned char>(from), qf_PelRowsAs<unsigned char>(to));
  };
  qf_PelPelwise(dst, copy, src);
}

/// A new image with the pels of the window, its image coordinates and transform.
template <class T>
qcPelBuffer<T> qfPelCopy(const qcPelBuffer_const<T>& src) {
  qcPelBuffer<T> dst;
  qfPelCopy(src, dst);
  return dst;
}

/// The same on the other side of a communicator, which makes the image; here when that is null.
template <class T>
qcPelBuffer<T> qfPelCopy(const qcPelBuffer_const<T>& src, qcCommunicator* where) {
  if (!src.isBound()) throw qcPel::UnboundWindow();
  qcPelBuffer<T> dst(src.rep()->copy(src.windowRoot(), where, false));
  dst.offset(src.offset());
  dst.copyXforms(src);
  return dst;
}

/// An image with these pels on the other side of a communicator, or here when that is null: `src` itself when it is
/// there already, otherwise a copy.
template <class T>
qcPelBuffer<T> qfPelMove(const qcPelBuffer_const<T>& src, qcCommunicator* where) {
  if (!src.isBound()) throw qcPel::UnboundWindow();
  if (src.isRemote() ? where && src.rep()->communicator() == where : !where) return qcPelBuffer<T>(src);
  return qfPelCopy(src, where);
}

/// As qfPelCopy, but source and destination may be overlapping windows of one root: the destination gets the pels that
/// the source had before.
template <class T>
void qfPelMove(const qcPelBuffer_const<T>& src, qcPelBuffer<T>& dst) {
  qcPelBuffer_const<T> from(src);
  qcPelBuffer<T> to(dst);
  qf_PelPrepareMove(from, to);
  qfPelAlloc(from, to);
  qf_PelCopyWindow(from, to);
  if (!dst.isBound()) dst = to;
}

/// Whether anything else owns the buffer's root, or a plane of it; as another process does one that lives there.
template <class T>
bool qf_PelIsShared(const qcPelBuffer_const<T>& buffer) {
  if (buffer.refc() > 1 || buffer.isRemote()) return true;
  if constexpr (!qcFlatPelType<T>) {
    for (int plane = 0; buffer.isBound() && plane < 3; ++plane) {
      if (buffer.planeBuffer(plane).refc() > 2) return true;  // the image's own count and that of this plane buffer
    }
  }
  return false;
}

/// Sees to it that no other buffer shares this buffer's pels: when its root has other owners, or lives on the other
/// side of a communicator, the buffer is bound to a new image here with the pels of its window, its image coordinates
/// and transform. An unbound buffer stays so.
template <class T>
void qfPelNoShare(qcPelBuffer<T>& buffer) {
  if (qf_PelIsShared(buffer)) buffer = qfPelCopy(buffer);
}
