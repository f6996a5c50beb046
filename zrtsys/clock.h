// The steady clock.
#pragma once

#include <cstdint>

#include "zrtsys/status.h"

namespace zrtsys {

/// Nanoseconds since an origin that is fixed for the life of the process; never goes back, whatever happens to the date
/// and time of the system.
Status readSteadyClock(std::int64_t* nanoseconds) noexcept;

}  // namespace zrtsys
