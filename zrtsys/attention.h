// Attention tags: marks on what a thread is doing, to which a time limit can be attached, and a flag by which other
// threads can end it.
//
// Whoever waits looks at the limits and flags of its thread, and reports attentionCancelled when a flag is set,
// attentionExpired when the earliest limit has passed. Tags belong to the thread that constructs them: only there may
// they be changed, and only there do their limits count. They may be destructed in any order.
#pragma once

#include <atomic>
#include <cstdint>
#include <limits>

#include "zrtsys/status.h"

namespace zrtsys {

/// The time of a limit that never passes.
inline constexpr std::int64_t noLimit = std::numeric_limits<std::int64_t>::max();

struct AttentionTag {
  std::int64_t limit = noLimit;                    // on the steady clock, in nanoseconds
  const std::atomic<bool>* isCancelled = nullptr;  // owned by whoever attached it
  AttentionTag* newer = nullptr;
  AttentionTag* older = nullptr;
};

Status constructAttentionTag(AttentionTag* tag) noexcept;
/// The limit is `seconds` from now; what is not above 0 has passed already, more than ten years is no limit.
Status attachTimeout(AttentionTag* tag, double seconds) noexcept;
/// The tag's thread is to end what it does once the flag is set.
Status attachCancel(AttentionTag* tag, const std::atomic<bool>* isCancelled) noexcept;
/// Lifts limit and flag.
Status detachTimeout(AttentionTag* tag) noexcept;
Status destructAttentionTag(AttentionTag* tag) noexcept;

/// When the earliest limit of this thread passes, on the steady clock, in nanoseconds.
std::int64_t attentionLimit() noexcept;
/// When a thread that waits has to check its attention again: at that time, and every 10 ms where there are flags.
std::int64_t nextAttention() noexcept;
/// attentionCancelled when a flag is set, attentionExpired when the limit has passed.
Status checkAttention() noexcept;

}  // namespace zrtsys
