// Filling windows: set, clear, border.
//
// All functions throw qcPel::UnboundWindow for an unbound buffer, and do nothing to an empty window. A value of long
// that does not fit the pel's 32 bits throws qcPelFunc::Range before a pel is written.
#pragma once

#include <cstddef>
#include <type_traits>

#include "vnxstd/export.h"
#include "vnxstd/pelbuf/apply.h"

/// Sets `height` rows of `width` pels of `pelSize` bytes (1, 2, 4 or 8) to the pel at `value`; rows start `rowUpdate`
/// pels apart. Writes nothing outside these pels. A failure of the memory service is thrown as
/// qfThrowExceptionOnFailure does.
VNXSTD_EXPORT void qf_PelSet(void* pels, long rowUpdate, long width, long height, unsigned int pelSize,
                             const void* value);

/// The same with all bytes zero, for pels of any size. `isContiguous` says that the rows follow each other without
/// padding, so that one fill does it.
VNXSTD_EXPORT void qf_PelClear(void* pels, long rowUpdate, long width, long height, unsigned int pelSize,
                               bool isContiguous);

/// Sets every pel of the window.
template <class T>
void qfPelSet(const qcPelBuffer<T>& buffer, const std::type_identity_t<T>& value) {
  if constexpr (qcFlatPelType<T>) {
    const auto stored = qcPelTraits<T>::store(value);
    const auto rows = qf_PelRows(buffer);
    if (rows.isEmpty()) return;
    qf_PelSet(rows.pels, buffer.rowUpdate(), buffer.width(), buffer.height(), sizeof stored, &stored);
  } else {
    qfPelSet(buffer.planeBuffer(0), value.plane0());
    qfPelSet(buffer.planeBuffer(1), value.plane1());
    qfPelSet(buffer.planeBuffer(2), value.plane2());
  }
}

/// The same for 8-bit images.
inline void qfPelSet_U8(const qcPelBuffer<unsigned char>& buffer, unsigned char value) { qfPelSet(buffer, value); }

/// Sets every pel of the window to zero: all bits of it, which is the value of a default constructed pel.
template <class T>
void qfPelClear(const qcPelBuffer<T>& buffer) {
  if constexpr (qcFlatPelType<T>) {
    const auto rows = qf_PelRows(buffer);
    if (rows.isEmpty()) return;
    qf_PelClear(rows.pels, buffer.rowUpdate(), buffer.width(), buffer.height(), sizeof *rows.pels, rows.isContiguous());
  } else {
    for (int plane = 0; plane < 3; ++plane) qfPelClear(buffer.planeBuffer(plane));
  }
}

/// Sets the outermost rows and columns of the window.
template <class T>
void qfPelBorderSet(const qcPelBuffer<T>& buffer, const std::type_identity_t<T>& value) {
  if constexpr (qcFlatPelType<T>) {
    const auto stored = qcPelTraits<T>::store(value);
    const auto rows = qf_PelRows(buffer);
    if (rows.isEmpty()) return;
    const long width = buffer.width(), height = buffer.height();
    const auto set = [&](long x, long y, long w, long h) {
      qf_PelSet(rows.row(y) + x, buffer.rowUpdate(), w, h, sizeof stored, &stored);
    };
    set(0, 0, width, 1);
    set(0, height - 1, width, 1);
    set(0, 0, 1, height);
    set(width - 1, 0, 1, height);
  } else {
    qfPelBorderSet(buffer.planeBuffer(0), value.plane0());
    qfPelBorderSet(buffer.planeBuffer(1), value.plane1());
    qfPelBorderSet(buffer.planeBuffer(2), value.plane2());
  }
}
