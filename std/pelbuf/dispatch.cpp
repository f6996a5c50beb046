#include "std/pelbuf/dispatch.h"

#include <algorithm>
#include <atomic>

namespace vnxstd::simd {

namespace {

Level detect() noexcept {
#if VNXSTD_X86
  __builtin_cpu_init();
  if (!__builtin_cpu_supports("avx2")) return Level::Baseline;
  if (__builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vbmi")) return Level::Permutes;
  return Level::Avx2;
#else
  return Level::Baseline;
#endif
}

// Constant initialised to the baseline, so that a pixel function called from another static initialiser works too.
constinit std::atomic<Level> inForce{Level::Baseline};
[[maybe_unused]] const Level atLoad = setLevel(detect());

}  // namespace

Level highest() noexcept {
  static const Level best = detect();
  return best;
}

Level level() noexcept { return inForce.load(std::memory_order_relaxed); }

Level setLevel(Level wanted) noexcept {
  const Level set = std::min(wanted, highest());
  inForce.store(set, std::memory_order_relaxed);
  return set;
}

}  // namespace vnxstd::simd
