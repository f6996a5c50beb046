#include "zrtsys/clock.h"

#include <chrono>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#endif

namespace zrtsys {

Status readSteadyClock(std::int64_t* nanoseconds) noexcept {
  if (!nanoseconds) return badArgument;
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  *nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
  return ok;
}

std::int64_t readProcessorCounter() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  return static_cast<std::int64_t>(__rdtsc());
#else
  std::int64_t nanoseconds = 0;
  readSteadyClock(&nanoseconds);
  return nanoseconds;
#endif
}

}  // namespace zrtsys
