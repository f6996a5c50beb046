// Conversion between grey, packed and planar colour images.
#pragma once

#include <concepts>

#include "vnxstd/export.h"
#include "vnxstd/pelbuf/copy.h"
#include "vnxstd/pelbuf/prepare.h"

/// The pel types between which colours are converted: 8-bit grey, packed and planar colours.
template <class T>
concept qcColorPelType = std::same_as<T, unsigned char> || std::same_as<T, qcPackedRGB16Pel> ||
    std::same_as<T, qcPackedRGB32Pel> || std::same_as<T, qc3PlanePel>;

/// The worker, on prepared windows of different types.
template <qcColorPelType S, qcColorPelType D>
VNXSTD_EXPORT void qf_PelConvertColor(const qcPelBuffer_const<S>& src, const qcPelBuffer<D>& dst);

/// Converts the pels that both windows have in common; prepare.h says how an unbound destination is treated and what is
/// thrown. Grey becomes three equal components. A colour becomes the grey value 0.299 red + 0.587 green + 0.114 blue,
/// rounded half up, so that grey survives the way to three 8-bit components and back. Packed pels take the top bits of
/// a component, as their setters do; where there was no alpha it becomes 255. Planes are red, green and blue. A plane
/// of one image may be the other one, when the pels that belong together are the same.
template <qcColorPelType S, qcColorPelType D>
void qfConvertColorPelBuffer(const qcPelBuffer_const<S>& src, qcPelBuffer<D>& dst) {
  if constexpr (std::same_as<S, D>) {
    qfPelCopy(src, dst);
  } else {
    qcPelBuffer_const<S> from(src);
    qcPelBuffer<D> to(dst);
    qfPelPrepare_1s1d(from, to);
    for (int plane = 0; to.isBound() && plane < 3; ++plane) {
      if constexpr (std::same_as<S, qc3PlanePel> && std::same_as<D, unsigned char>) {
        auto part = from.planeBuffer(plane);
        qfPelPrepare_1s1d(part, to);
      } else if constexpr (std::same_as<S, unsigned char> && std::same_as<D, qc3PlanePel>) {
        auto part = to.planeBuffer(plane);
        qfPelPrepare_1s1d(from, part);
      }
    }
    qfPelAlloc(from, to);
    qf_PelConvertColor(from, to);
    if (!dst.isBound()) dst = to;
  }
}
