#include "vnxstd/math/vector.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "std/archive/byteswap.h"
#include "vnxstd/archive/archive.h"

namespace {

// The place that version errors name for vectors of each size.
constexpr char kSource[] = "std/math/vector";
template <int N>
constexpr int kLine = N == 2 ? 312 : 587;

template <int N>
qcArchive& serializeVector(qcArchive& archive, qcVector<N>& v) {
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, kSource, kLine<N>);
  qcVector<N> elements = v;
  archive.block(&elements[0], N);
  if (archive.isLoading()) v = elements;
  return archive;
}

// The archived form of a vector, without padding: the version byte and the elements.
template <int N>
struct Record {
  static constexpr std::size_t size = 1 + sizeof(qcVector<N>);
  static_assert(std::is_trivially_copyable_v<qcVector<N>> && sizeof(qcVector<N>) == N * sizeof(std::uint64_t));

  static void put(unsigned char* bytes, const qcVector<N>& v, bool swap) {
    bytes[0] = 0;
    copy(bytes + 1, &v[0], swap);
  }
  static void get(const qcArchive& archive, const unsigned char* bytes, qcVector<N>& v, bool swap) {
    qcArchive::checkVersion(archive, bytes[0], 0, kSource, kLine<N>);
    copy(&v[0], bytes + 1, swap);
  }
  static void copy(void* to, const void* from, bool swap) {
    std::uint64_t words[N];
    std::memcpy(words, from, sizeof words);
    if (swap) {
      for (std::uint64_t& word : words) qf_Reverse(word);
    }
    std::memcpy(to, words, sizeof words);
  }
};

template <int N>
qcArchive& serializeVectors(qcArchive& archive, std::vector<qcVector<N>>& points) {
  constexpr std::size_t kChunk = 256;  // elements that are believed before they arrive
  if (archive.isStoring() && points.size() > UINT32_MAX) throw qcArchive::BadContent(kSource, kLine<N>);
  auto count = static_cast<std::uint32_t>(points.size());
  archive || count;
  if (archive.isLoading()) {
    points.clear();
    archive.countElements(count, Record<N>::size);
  }

  constexpr auto native = std::endian::native == std::endian::little ? qcArchive::littleEndian : qcArchive::bigEndian;
  const bool swap = archive.ordering() != native;
  unsigned char buffer[kChunk * Record<N>::size];
  for (std::size_t done = 0; done < count;) {
    const std::size_t chunk = std::min(kChunk, count - done);
    const auto bytes = static_cast<long>(chunk * Record<N>::size);
    if (archive.isStoring()) {
      for (std::size_t i = 0; i < chunk; ++i) Record<N>::put(buffer + i * Record<N>::size, points[done + i], swap);
      archive.raw(reinterpret_cast<char*>(buffer), bytes);
    } else {
      archive.raw(reinterpret_cast<char*>(buffer), bytes);
      points.resize(done + chunk);
      for (std::size_t i = 0; i < chunk; ++i) {
        Record<N>::get(archive, buffer + i * Record<N>::size, points[done + i], swap);
      }
    }
    done += chunk;
  }
  return archive;
}

}  // namespace

qcArchive& operator||(qcArchive& archive, qcVector<2>& v) { return serializeVector(archive, v); }
qcArchive& operator||(qcArchive& archive, qcVector<3>& v) { return serializeVector(archive, v); }
qcArchive& operator||(qcArchive& archive, std::vector<qcVector<2>>& points) {
  return serializeVectors(archive, points);
}
qcArchive& operator||(qcArchive& archive, std::vector<qcVector<3>>& points) {
  return serializeVectors(archive, points);
}
