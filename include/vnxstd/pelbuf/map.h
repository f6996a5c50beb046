// Mapping pels through a table.
//
// The pel of value v becomes entry v of the table. pelwise.h says which pels a function works on.
//
// A pel whose value is no index of the table, because it is negative or too large, is qcPelFunc::Range, and the
// destination stays as it was; so is an empty table, unless there are no pels. The forms with `isBeyond` give such pels
// the last entry instead, and tell whether there were any.
//
// An 8-bit image may become three planes of which it is one, when the pels that belong together are the same.
#pragma once

#include <concepts>
#include <cstddef>
#include <type_traits>
#include <vector>

#include "vnxstd/export.h"
#include "vnxstd/pelbuf/pelwise.h"

/// A pel type whose values are taken as indices.
template <class T>
concept qcPelIndex = qcNumberPelType<T> && std::integral<T>;

/// A colour type of 8-bit components, which are mapped by one table of bytes for all of them.
template <class T>
concept qcPelOfBytes = std::same_as<T, qcPackedRGB32Pel> || std::same_as<T, qc3PlanePel>;

/// What pels of type S become by a table of E: pels of that type, or colours of mapped components.
template <class S, class E>
requires(qcPelIndex<S>&& qcRootPelType<E>) ||
    (qcPelOfBytes<S> && std::same_as<E, unsigned char>)using qcPelMapped = std::conditional_t<qcPelIndex<S>, E, S>;

/// A pel of so many bytes, whatever it means.
template <std::size_t Bytes>
struct qc_PelWord {
  alignas(Bytes) unsigned char bytes[Bytes];
};

/// The workers: whether a pel is no index of a table of so many entries; and mapping, where `isBeyond` says whether
/// there are such pels, which take the last entry.
template <class S>
VNXSTD_EXPORT bool qf_PelExceeds(const qc_PelRows<const S>& from, std::size_t entries);
template <class S, class W>
VNXSTD_EXPORT void qf_PelMap(const qc_PelRows<const S>& from, const W* table, std::size_t entries, bool isBeyond,
                             const qc_PelRows<W>& to);

/// The same with a table of pels as they lie in memory.
template <class S, class Stored>
void qf_PelMap(const qc_PelRows<const S>& from, const std::vector<Stored>& table, bool isBeyond,
               const qc_PelRows<Stored>& to) {
  using Word = qc_PelWord<sizeof(Stored)>;
  qf_PelMap(from, reinterpret_cast<const Word*>(table.data()), table.size(), isBeyond, qf_PelRowsAs<Word>(to));
}

/// A table of pels as they lie in memory; throws qcPelFunc::Range for a value of long that does not fit.
template <class E>
decltype(auto) qf_PelTable(const std::vector<E>& table) {
  if constexpr (std::same_as<E, qcStoredPel<E>>) {
    return (table);
  } else {
    std::vector<qcStoredPel<E>> stored;
    stored.reserve(table.size());
    for (const E& value : table) stored.push_back(qcPelTraits<E>::store(value));
    return stored;
  }
}

/// Throws qcPelFunc::Overlap when pels of a plane of the destination are in the way of the source.
inline void qf_PelCheckPlanes(const qcPelBuffer_const<unsigned char>& src, const qcPelBuffer_const<qc3PlanePel>& dst) {
  for (int plane = 0; plane < 3; ++plane) qf_PelCommon({&src}, dst.planeBuffer(plane));
}

/// What all forms do. Everything that can be wrong is found before a pel is written.
template <class S, class E>
bool qf_PelMapWindow(const qcPelBuffer_const<S>& src, const std::vector<E>& table, qcPelBuffer<qcPelMapped<S, E>>& dst,
                     bool isRefused) {
  using D = qcPelMapped<S, E>;
  const qc_PelPart part = qf_PelCommon({&src}, dst);
  if constexpr (std::same_as<S, unsigned char> && std::same_as<D, qc3PlanePel>) qf_PelCheckPlanes(src, dst);
  bool isBeyond = false;
  for (int plane = 0; plane < (qcFlatPelType<S> ? 1 : 3); ++plane) {
    isBeyond = isBeyond || qf_PelExceeds(qf_PelComponents<S>(src, part, plane), table.size());
  }
  if (isBeyond && (isRefused || table.empty())) throw qcPelFunc::Range();
  if constexpr (std::same_as<E, qc3PlanePel>) {
    std::vector<unsigned char> tables[3];
    for (const qc3PlanePel& pel : table) {
      tables[0].push_back(pel.plane0());
      tables[1].push_back(pel.plane1());
      tables[2].push_back(pel.plane2());
    }
    qf_PelFill(dst, src, part, [&](const qcPelBuffer<D>& to) {
      const auto from = qf_PelRows(src, part);
      int own = 2;  // the plane that the source is: it is written last
      for (int plane = 0; plane < 2; ++plane) {
        const void* const pels = qf_PelComponents<D>(to, part, plane).pels;
        if (pels == from.pels) own = plane;
      }
      for (const int plane : {(own + 1) % 3, (own + 2) % 3, own}) {
        qf_PelMap(from, tables[plane], isBeyond, qf_PelComponents<D>(to, part, plane));
      }
    });
  } else if constexpr (qcPelIndex<S>) {
    const auto& stored = qf_PelTable(table);
    qf_PelFill(dst, src, part, [&](const qcPelBuffer<D>& to) {
      qf_PelMap(qf_PelRows(src, part), stored, isBeyond, qf_PelRows(to, part));
    });
  } else {
    qf_PelPelwise(
        dst, [&](auto from, auto to) { qf_PelMap(from, table, isBeyond, to); }, src);
  }
  return isBeyond;
}

template <class S, class E>
void qfPelMap(const qcPelBuffer_const<S>& src, const std::vector<E>& table, qcPelBuffer<qcPelMapped<S, E>>& dst) {
  qf_PelMapWindow(src, table, dst, true);
}

template <class S, class E>
void qfPelMap(const qcPelBuffer_const<S>& src, const std::vector<E>& table, qcPelBuffer<qcPelMapped<S, E>>& dst,
              bool& isBeyond) {
  isBeyond = false;
  isBeyond = qf_PelMapWindow(src, table, dst, false);
}

template <class S, class E>
qcPelBuffer<qcPelMapped<S, E>> qfPelMap(const qcPelBuffer_const<S>& src, const std::vector<E>& table) {
  qcPelBuffer<qcPelMapped<S, E>> dst;
  qfPelMap(src, table, dst);
  return dst;
}

template <class S, class E>
qcPelBuffer<qcPelMapped<S, E>> qfPelMap(const qcPelBuffer_const<S>& src, const std::vector<E>& table, bool& isBeyond) {
  qcPelBuffer<qcPelMapped<S, E>> dst;
  qfPelMap(src, table, dst, isBeyond);
  return dst;
}
