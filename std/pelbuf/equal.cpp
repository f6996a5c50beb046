// Pel-wise equality.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <type_traits>

#include "std/pelbuf/dispatch.h"
#include "vnxstd/pelbuf/measure.h"

namespace {

namespace simd = vnxstd::simd;

/// Numbers are equal by value, so that NaN is not and both zeros are; everything else by its bytes.
template <class E>
class Comparison {
 public:
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const E* a, const E* b, std::ptrdiff_t count) {
    if constexpr (std::is_floating_point_v<E>) {
      constexpr std::ptrdiff_t block = 1024;  // long enough for vectors, short enough to stop early
      for (std::ptrdiff_t start = 0; start < count && areEqual_; start += block) {
        const std::ptrdiff_t end = std::min(count, start + block);
        int differences = 0;
        for (std::ptrdiff_t i = start; i < end; ++i) differences += a[i] == b[i] ? 0 : 1;
        areEqual_ = differences == 0;
      }
    } else {
      areEqual_ = areEqual_ && std::memcmp(a, b, static_cast<std::size_t>(count) * sizeof(E)) == 0;
    }
  }

  bool areEqual() const { return areEqual_; }

 private:
  bool areEqual_ = true;
};

}  // namespace

template <class E>
bool qf_PelEqual(const qc_PelRows<const E>& a, const qc_PelRows<const E>& b) {
  if (a.width != b.width || a.height != b.height) return false;
  Comparison<E> comparison;
  simd::run(comparison, a, b);
  return comparison.areEqual();
}

template VNXSTD_EXPORT bool qf_PelEqual(const qc_PelRows<const unsigned char>&, const qc_PelRows<const unsigned char>&);
template VNXSTD_EXPORT bool qf_PelEqual(const qc_PelRows<const float>&, const qc_PelRows<const float>&);
template VNXSTD_EXPORT bool qf_PelEqual(const qc_PelRows<const double>&, const qc_PelRows<const double>&);
