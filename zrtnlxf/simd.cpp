#include "zrtnlxf/simd.h"

#include <algorithm>
#include <atomic>

namespace zrtnlxf {

namespace {

int available() noexcept {
#if ZRTNLXF_AVX2
  return __builtin_cpu_supports("avx2") ? 1 : 0;
#else
  return 0;
#endif
}

std::atomic<int>& used() noexcept {
  static std::atomic<int> value{available()};
  return value;
}

}  // namespace

int useLevel(int highest) noexcept {
  used() = std::clamp(highest, 0, available());
  return used();
}

int level() noexcept { return used().load(std::memory_order_relaxed); }

}  // namespace zrtnlxf
