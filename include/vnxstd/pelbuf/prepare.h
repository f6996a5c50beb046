// Preparing the windows of a pixel function: which pels of its sources and destinations belong together.
//
// A pixel function works on the pels that its windows have in common in image coordinates. A preparer makes every
// window that common part; where there is none, every window becomes empty and the function does nothing. A destination
// may be unbound: it is left so for the caller to allocate. Sources may overlap as they like. A destination may be the
// very same window as another buffer, then the function works in place; a destination that shares pels with another
// buffer in any other way is refused, since pels would be read after they were written.
//
// The pixel functions prepare copies of the buffers that they are given. So they never change their caller's windows;
// all that they do to a buffer, beside writing the pels of a destination, is binding an unbound destination to its
// result. A result that they allocate has the image coordinates and the client transform of the first source.
//
// Preparers and pixel functions throw qcPel::UnboundWindow for an unbound source and qcPelFunc::Overlap as said above,
// in both cases before anything is changed. They lock nothing: threads may read the same pels, but not while another
// writes them. Numbers are documented by the functions themselves; no function reads or writes the padding of rows.
#pragma once

#include <initializer_list>

#include "vnxstd/export.h"
#include "vnxstd/pelbuf/buffer.h"

/// Prepares one source and one destination.
VNXSTD_EXPORT void qfPelPrepare_1s1d(qc_PelBuffer& src, qc_PelBuffer& dst);
/// Prepares two sources and one destination.
VNXSTD_EXPORT void qfPelPrepare_2s1d(qc_PelBuffer& src1, qc_PelBuffer& src2, qc_PelBuffer& dst);
/// Prepares two sources and two destinations.
VNXSTD_EXPORT void qfPelPrepare_2s2d(qc_PelBuffer& src1, qc_PelBuffer& src2, qc_PelBuffer& dst1, qc_PelBuffer& dst2);
/// Prepares three sources and one destination.
VNXSTD_EXPORT void qfPelPrepare_3s1d(qc_PelBuffer& src1, qc_PelBuffer& src2, qc_PelBuffer& src3, qc_PelBuffer& dst);

/// As qfPelPrepare_1s1d, for functions that can work on any overlap: refuses none.
VNXSTD_EXPORT void qf_PelPrepareMove(qc_PelBuffer& src, qc_PelBuffer& dst);

/// Pels that windows have in common, in image coordinates. A plain value; none where they have nothing in common.
struct qc_PelPart {
  long x = 0, y = 0, width = 0, height = 0;

  bool isEmpty() const noexcept { return width == 0 || height == 0; }
};

/// What preparing finds out, without preparing anything: the pels that the sources and, when it is bound, the
/// destination have in common; where there are none, an empty part at the first source's upper-left pel. For functions
/// that go straight to the pels: copying and windowing buffers takes longer than the pels of a small window do. Throws
/// as the preparers.
VNXSTD_EXPORT qc_PelPart qf_PelCommon(std::initializer_list<const qc_PelBuffer*> sources,
                                      const qc_PelBuffer& destination);

/// Gives an unbound destination a new image of `width` by `height` pels with the image coordinates of `src`'s
/// upper-left pel and its client transform; a bound destination is left alone. Returns whether it allocated. The pels
/// are not cleared. Throws qcPel::UnboundWindow when `src` is unbound, qcRectErrors::NegativeSize for a negative size,
/// qcPel::BadWindow when image coordinates would not fit 32 bits, and what allocating throws.
template <class D>
bool qfPelAlloc(const qc_PelBuffer& src, qcPelBuffer<D>& dst, long width, long height) {
  if (!src.isBound()) throw qcPel::UnboundWindow();
  if (dst.isBound()) return false;
  qcPelBuffer<D> image(width, height);
  image.offset(src.offset());
  image.copyXforms(src);
  dst = image;
  return true;
}

/// The same with the size of `src`'s window.
template <class D>
bool qfPelAlloc(const qc_PelBuffer& src, qcPelBuffer<D>& dst) {
  return qfPelAlloc(src, dst, src.width(), src.height());
}

/// Prepares one source and one destination, and allocates the destination when it is unbound.
template <class D>
void qf_PelPrepareAlloc_1s1d(qc_PelBuffer& src, qcPelBuffer<D>& dst) {
  qfPelPrepare_1s1d(src, dst);
  qfPelAlloc(src, dst);
}

/// Prepares two sources and one destination, and allocates the destination when it is unbound.
template <class D>
void qf_PelPrepareAlloc_2s1d(qc_PelBuffer& src1, qc_PelBuffer& src2, qcPelBuffer<D>& dst) {
  qfPelPrepare_2s1d(src1, src2, dst);
  qfPelAlloc(src1, dst);
}
