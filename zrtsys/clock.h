// The clocks.
#pragma once

#include <cstdint>

#include "zrtsys/status.h"

namespace zrtsys {

/// Nanoseconds since an origin that is fixed for the life of the process; never goes back, whatever happens to the date
/// and time of the system.
Status readSteadyClock(std::int64_t* nanoseconds) noexcept;

/// The time-stamp counter of the processor, of which only the differences mean something; the steady clock in
/// nanoseconds where there is none.
std::int64_t readProcessorCounter() noexcept;

}  // namespace zrtsys
