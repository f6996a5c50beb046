#include "std/math/mappoints.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "vnxstd/math/xflinear.h"

namespace {

// Registers of two and four doubles. Written with the compilers' vector types because a plain loop is not vectorised
// where `in` may be `out`.
typedef double Vector1 __attribute__((vector_size(16)));
typedef double Vector2 __attribute__((vector_size(32)));

constexpr std::size_t kLine = 4;                 // points in a cache line
constexpr std::uintptr_t kPrefetchBytes = 2048;  // the processor's own prefetching stops at page boundaries

// The address may lie behind the array: a prefetch of it does nothing.
[[gnu::always_inline]] inline void prefetchAhead(const void* here) {
  __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<std::uintptr_t>(here) + kPrefetchBytes));
}

// Maps with registers of Points points.
template <int Points>
[[gnu::always_inline]] inline void map(const qcXform<2>& xform, const qcVector<2>* in, qcVector<2>* out,
                                       std::size_t count) {
  using Vector = std::conditional_t<Points == 1, Vector1, Vector2>;
  const qcXform<2> f = xform;  // stores to `out` cannot reach it
  Vector column0, column1, trans;
  for (int i = 0; i < 2 * Points; ++i) {
    column0[i] = f.matrix().element(i % 2, 0);
    column1[i] = f.matrix().element(i % 2, 1);
    trans[i] = f.trans()[i % 2];
  }
  std::size_t i = 0;
  for (; i + kLine <= count; i += kLine) {
    prefetchAhead(in + i);
    prefetchAhead(out + i);
    for (std::size_t k = i; k < i + kLine; k += Points) {
      Vector p, x, y;
      std::memcpy(&p, in + k, sizeof p);
      if constexpr (Points == 1) {
        x = __builtin_shufflevector(p, p, 0, 0);
        y = __builtin_shufflevector(p, p, 1, 1);
      } else {
        x = __builtin_shufflevector(p, p, 0, 0, 2, 2);
        y = __builtin_shufflevector(p, p, 1, 1, 3, 3);
      }
      p = column0 * x + column1 * y + trans;
      std::memcpy(static_cast<void*>(out + k), &p, sizeof p);
    }
  }
  for (; i < count; ++i) out[i] = f.mapPoint(in[i]);
}

void mapBaseline(const qcXform<2>& xform, const qcVector<2>* in, qcVector<2>* out, std::size_t count) {
  map<1>(xform, in, out, count);
}

#if defined(__x86_64__) || defined(__i386__)
// Half the time of the baseline in the first-level cache, 0.7 of it in place in memory (bench_math). From one large
// array to another both are bound by memory, and AVX-512 is no faster anywhere.
[[gnu::target("avx2")]] void mapAvx2(const qcXform<2>& xform, const qcVector<2>* in, qcVector<2>* out,
                                     std::size_t count) {
  map<2>(xform, in, out, count);
}
constexpr std::array<vnxstd::PointMapper, 2> kMappers = {&mapBaseline, &mapAvx2};
std::size_t available() { return __builtin_cpu_supports("avx2") ? 2 : 1; }
#else
constexpr std::array<vnxstd::PointMapper, 1> kMappers = {&mapBaseline};
std::size_t available() { return 1; }
#endif

}  // namespace

std::span<const vnxstd::PointMapper> vnxstd::pointMappers() noexcept { return std::span(kMappers).first(available()); }

void qfMapPoints(const qcXform<2>& xform, const qcVector<2>* in, qcVector<2>* out, std::size_t count) {
  static const vnxstd::PointMapper fastest = vnxstd::pointMappers().back();
  fastest(xform, in, out, count);
}
