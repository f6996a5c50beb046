// Attention tags: marks on what a thread is doing, to which a time limit can be attached.
//
// Whoever waits for a semaphore looks at the limits of its thread, the earliest of which counts, and reports
// attentionExpired when it has passed. Tags belong to the thread that constructs them: only there may they be changed,
// and only there do their limits count. They may be destructed in any order.
#pragma once

#include <cstdint>
#include <limits>

#include "zrtsys/status.h"

namespace zrtsys {

/// The time of a limit that never passes.
inline constexpr std::int64_t noLimit = std::numeric_limits<std::int64_t>::max();

struct AttentionTag {
  std::int64_t limit = noLimit;  // on the steady clock, in nanoseconds
  AttentionTag* newer = nullptr;
  AttentionTag* older = nullptr;
};

Status constructAttentionTag(AttentionTag* tag) noexcept;
/// The limit is `seconds` from now; what is not above 0 has passed already, more than ten years is no limit.
Status attachTimeout(AttentionTag* tag, double seconds) noexcept;
Status detachTimeout(AttentionTag* tag) noexcept;
Status destructAttentionTag(AttentionTag* tag) noexcept;

/// When the earliest limit of this thread passes, on the steady clock, in nanoseconds.
std::int64_t attentionLimit() noexcept;
/// attentionExpired when that time has come.
Status checkAttention() noexcept;

}  // namespace zrtsys
