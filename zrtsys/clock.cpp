#include "zrtsys/clock.h"

#include <chrono>

namespace zrtsys {

Status readSteadyClock(std::int64_t* nanoseconds) noexcept {
  if (!nanoseconds) return badArgument;
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  *nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
  return ok;
}

}  // namespace zrtsys
