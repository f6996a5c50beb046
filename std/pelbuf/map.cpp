// Look-up tables.
#include "vnxstd/pelbuf/map.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "std/pelbuf/avx2.h"
#include "std/pelbuf/dispatch.h"

namespace {

namespace simd = vnxstd::simd;
#if VNXSTD_X86
namespace avx2 = vnxstd::avx2;
#endif

/// Every pel is an index of the table.
template <class S, class W>
struct Lookup {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const S* from, W* to, std::ptrdiff_t count) const {
    const W* const entries = table;
    const auto at = [=](std::ptrdiff_t i) __attribute__((always_inline)) {
      to[i] = entries[static_cast<std::size_t>(from[i])];
    };
    std::ptrdiff_t i = 0;
    for (; i + 4 <= count; i += 4) at(i), at(i + 1), at(i + 2), at(i + 3);  // 0.7 of the time of one by one
    for (; i < count; ++i) at(i);
  }

  const W* table;
};

/// Others get the last entry; a negative one becomes the largest number.
template <class S, class W>
struct LimitedLookup {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const S* from, W* to, std::ptrdiff_t count) const {
    const W* const entries = table;
    const std::size_t end = last;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = entries[std::min(static_cast<std::size_t>(from[i]), end)];
  }

  const W* table;
  std::size_t last;
};

#if VNXSTD_X86

/// Vectors of bytes from a table of 256, by looking up the low four bits in sixteen tables at once. An index with its
/// top bit set gives 0, so 16 is subtracted for every table, and what is kept of a table is its difference to the one
/// before: of the tables up to the right one the differences add up to the entry, and those after it give 0. The
/// sixteen are two chains, for values below and from 128.
struct ByteEntries {
  const unsigned char* differences;

  VNXSTD_AVX2 __m256i operator()(__m256i x) const {
    const __m256i sixteen = _mm256_set1_epi8(16);
    __m256i y = _mm256_xor_si256(x, _mm256_set1_epi8(-128));
    __m256i low = _mm256_setzero_si256(), high = low;
    for (int k = 0; k < 8; ++k) {
      low = _mm256_xor_si256(low, _mm256_shuffle_epi8(part(k), x));
      high = _mm256_xor_si256(high, _mm256_shuffle_epi8(part(k + 8), y));
      x = _mm256_subs_epi8(x, sixteen);
      y = _mm256_subs_epi8(y, sixteen);
      asm("" : "+x"(low), "+x"(high));  // left alone, the compiler adds everything up at the end, from memory
    }
    return _mm256_xor_si256(low, high);
  }
  VNXSTD_AVX2 __m256i part(std::ptrdiff_t k) const {
    return _mm256_load_si256(reinterpret_cast<const __m256i*>(differences + 32 * k));
  }
};

/// Bytes to bytes by shuffles: half the time of one look-up after the other.
class ShuffledLookup {
 public:
  explicit ShuffledLookup(const unsigned char (&table)[256]) : table_(table) {
    for (std::size_t k = 0; k < 16; ++k) {
      unsigned char* const part = differences_ + 32 * k;  // twice, once for each lane
      for (std::size_t i = 0; i < 16; ++i) {
        part[i] = static_cast<unsigned char>(table[16 * k + i] ^ (k % 8 == 0 ? 0 : table[16 * k + i - 16]));
      }
      std::memcpy(part + 16, part, 16);
    }
  }

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const unsigned char* from, unsigned char* to,
                                         std::ptrdiff_t count) const {
    for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = table_[from[i]];
  }
  [[gnu::target("avx2")]] void row(simd::Bytes<32>, const unsigned char* from, unsigned char* to,
                                   std::ptrdiff_t count) const {
    if (count < avx2::kLeast<unsigned char>) return row(simd::Bytes<16>(), from, to, count);
    avx2::forRow(ByteEntries{differences_}, to, count, from);
  }

 private:
  const unsigned char (&table_)[256];
  alignas(32) unsigned char differences_[512];
};

#define VNXSTD_PERMUTES [[gnu::target("avx2,avx512f,avx512bw,avx512vbmi")]]

/// Bytes to bytes by permutes, each of which looks up in half of the table.
class PermutedLookup {
 public:
  static constexpr bool kHasPermutes = true;

  explicit PermutedLookup(const unsigned char (&table)[256]) : table_(table) {}

  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const unsigned char* from, unsigned char* to,
                                         std::ptrdiff_t count) const {
    for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = table_[from[i]];
  }
  VNXSTD_PERMUTES void row(simd::Bytes<64>, const unsigned char* from, unsigned char* to, std::ptrdiff_t count) const {
    const Tables tables = {_mm512_loadu_si512(table_), _mm512_loadu_si512(table_ + 64),
                           _mm512_loadu_si512(table_ + 128), _mm512_loadu_si512(table_ + 192)};
    std::ptrdiff_t i = 0;
    for (; i + 64 <= count; i += 64) _mm512_storeu_si512(to + i, tables(_mm512_loadu_si512(from + i)));
    if (i == count) return;
    const __mmask64 rest = ~std::uint64_t{0} >> (64 - (count - i));
    _mm512_mask_storeu_epi8(to + i, rest, tables(_mm512_maskz_loadu_epi8(rest, from + i)));
  }

 private:
  struct Tables {
    __m512i parts[4];
    VNXSTD_PERMUTES [[gnu::always_inline]] inline __m512i operator()(__m512i x) const {
      return _mm512_mask_blend_epi8(_mm512_movepi8_mask(x), _mm512_permutex2var_epi8(parts[0], x, parts[1]),
                                    _mm512_permutex2var_epi8(parts[2], x, parts[3]));
    }
  };

  const unsigned char (&table_)[256];
};

#endif

}  // namespace

static constexpr std::ptrdiff_t kSmall = 1024;

template <class S>
bool qf_PelExceeds(const qc_PelRows<const S>& from, std::size_t entries) {
  constexpr auto largest = static_cast<std::size_t>(std::numeric_limits<S>::max());
  if (from.isEmpty() || (std::is_unsigned_v<S> && entries > largest)) return false;
  S lo, hi;
  qf_PelExtremes(from, 1, &lo, &hi);
  return lo < 0 || static_cast<std::size_t>(hi) >= entries;
}

template <class S, class W>
void qf_PelMap(const qc_PelRows<const S>& from, const W* table, std::size_t entries, bool isBeyond,
               const qc_PelRows<W>& to) {
  if (from.isEmpty()) return;  // there may be no table
  if (isBeyond) {
    const LimitedLookup<S, W> lookup{table, entries - 1};
    return simd::run(lookup, from, to);
  }
#if VNXSTD_X86
  if constexpr (sizeof(S) == 1 && sizeof(W) == 1) {
    const simd::Level level = simd::level();
    // Setting up shuffles takes the time of 1,000 look-ups.
    if (level == simd::Level::Permutes || (level == simd::Level::Avx2 && from.width * from.height >= kSmall)) {
      unsigned char bytes[256] = {};
      std::memcpy(bytes, table, std::min<std::size_t>(entries, 256));
      const auto run = [&](const auto& lookup) {
        simd::run(lookup, qf_PelRowsAs<const unsigned char>(from), qf_PelRowsAs<unsigned char>(to));
      };
      return level == simd::Level::Avx2 ? run(ShuffledLookup(bytes)) : run(PermutedLookup(bytes));
    }
  }
#endif
  const Lookup<S, W> lookup{table};
  simd::run(lookup, from, to);
}

#define VNXSTD_MAP(S, W) \
  template VNXSTD_EXPORT void qf_PelMap(const qc_PelRows<const S>&, const W*, std::size_t, bool, const qc_PelRows<W>&);
#define VNXSTD_MAPS(S)                                                                \
  template VNXSTD_EXPORT bool qf_PelExceeds(const qc_PelRows<const S>&, std::size_t); \
  VNXSTD_MAP(S, qc_PelWord<1>)                                                        \
  VNXSTD_MAP(S, qc_PelWord<2>) VNXSTD_MAP(S, qc_PelWord<4>) VNXSTD_MAP(S, qc_PelWord<8>)
VNXSTD_MAPS(unsigned char)
VNXSTD_MAPS(signed char)
VNXSTD_MAPS(unsigned short)
VNXSTD_MAPS(short)
VNXSTD_MAPS(std::uint32_t)
VNXSTD_MAPS(std::int32_t)
