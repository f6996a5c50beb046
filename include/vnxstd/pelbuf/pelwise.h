// Pel-wise functions: every pel of the destination depends on the pels of the sources at the same place, component by
// component.
//
// A component is a number, of a pair each of the two; of packed 32-bit colours each of the four bytes, alpha included;
// of packed 16-bit colours each of the three fields; of 3-plane images the pels of each plane.
//
// A function works on the pels that all its windows have in common in image coordinates; prepare.h says how
// destinations are treated and what is thrown. In place is allowed. The forms without a destination return a new image.
#pragma once

#include <cstddef>
#include <limits>
#include <type_traits>

#include "vnxstd/pelbuf/apply.h"
#include "vnxstd/pelbuf/measure.h"
#include "vnxstd/pelbuf/prepare.h"

/// The type that a component of a pel of type T has in memory; 16-bit colours are taken as words of three fields.
template <qcRootPelType T>
using qcPelComponent = std::conditional_t<qcNumericPelType<T>, typename qcPelTraits<T>::Element,
                                          std::conditional_t<std::is_same_v<T, qcPackedRGB16Pel>, T, unsigned char>>;

/// Whether D is S, or a wider number that holds every value of S: of the integers, one with more bits for the magnitude
/// and no sign lost; float from 8 and 16 bits; double from everything.
template <class S, class D>
concept qcPelHolds = qcRootPelType<S> && qcRootPelType<D> &&
    (std::same_as<S, D> ||
     (qcNumberPelType<S> && qcNumberPelType<D> &&
      (std::is_integral_v<S> || !std::is_integral_v<D>)&&(
          std::is_signed_v<D> || !std::is_signed_v<S>)&&std::numeric_limits<typename qcPelTraits<S>::Element>::digits <
          std::numeric_limits<typename qcPelTraits<D>::Element>::digits));

/// The pels of a part of a window.
template <class Buffer>
[[gnu::always_inline]] inline auto qf_PelRows(const Buffer& buffer, const qc_PelPart& part) {
  auto rows = qf_PelRows(buffer);
  if (part.isEmpty()) return decltype(rows)();
  const qcPair<long> ul = buffer.offset();
  rows.pels = rows.row(std::ptrdiff_t{part.y} - ul.y()) + (std::ptrdiff_t{part.x} - ul.x());
  rows.width = part.width;
  rows.height = part.height;
  return rows;
}

/// The components of a part of a window, of one plane where there are planes.
template <class T, class Buffer>
[[gnu::always_inline]] inline auto qf_PelComponents(const Buffer& buffer, const qc_PelPart& part, int plane) {
  if constexpr (qcFlatPelType<T>) {
    const auto rows = qf_PelRows(buffer, part);
    using Pel = std::remove_pointer_t<decltype(rows.pels)>;
    return qf_PelRowsAs<std::conditional_t<std::is_const_v<Pel>, const qcPelComponent<T>, qcPelComponent<T>>>(rows);
  } else {
    return qf_PelRows(buffer.planeBuffer(plane), part);
  }
}

/// Calls fill(destination), with a new image where the destination is unbound: one of the part's size and place, with
/// the client transform of `like`. The destination is bound to it when all is done, so that it stays unbound when
/// something is thrown.
template <class D, class Fill>
void qf_PelFill(qcPelBuffer<D>& dst, const qc_PelBuffer& like, const qc_PelPart& part, Fill&& fill) {
  if (dst.isBound()) return fill(dst);
  qcPelBuffer<D> image(part.width, part.height);
  image.offset(part.x, part.y);
  image.copyXforms(like);
  fill(image);
  dst = image;
}

/// Calls work(rows of every source, rows of the destination) with the components of the common pels, once per plane
/// where there are planes.
template <class D, class Work, class First, class... More>
void qf_PelPelwise(qcPelBuffer<D>& dst, Work&& work, const qcPelBuffer_const<First>& first,
                   const qcPelBuffer_const<More>&... more) {
  const qc_PelPart part = qf_PelCommon({&first, &more...}, dst);
  qf_PelFill(dst, first, part, [&](const qcPelBuffer<D>& to) {
    for (int plane = 0; plane < (qcFlatPelType<D> ? 1 : 3); ++plane) {
      work(qf_PelComponents<First>(first, part, plane), qf_PelComponents<More>(more, part, plane)...,
           qf_PelComponents<D>(to, part, plane));
    }
  });
}
