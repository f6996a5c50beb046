#include "zrtsys/attention.h"

#include <algorithm>
#include <cmath>

#include "zrtsys/clock.h"

namespace zrtsys {

namespace {

constexpr double kLongest = 10 * 365.25 * 86400;  // seconds

// A flag wakes nobody.
constexpr std::int64_t kFlagPeriod = 10'000'000;  // nanoseconds

thread_local AttentionTag* newest = nullptr;

}  // namespace

Status constructAttentionTag(AttentionTag* tag) noexcept {
  if (!tag) return badArgument;
  *tag = {noLimit, nullptr, nullptr, newest};
  if (newest) newest->newer = tag;
  newest = tag;
  return ok;
}

Status attachTimeout(AttentionTag* tag, double seconds) noexcept {
  if (!tag) return badArgument;
  std::int64_t now = 0;
  if (const Status status = readSteadyClock(&now); status < 0) return status;
  tag->limit =
      seconds > kLongest ? noLimit : now + static_cast<std::int64_t>(std::ceil((seconds > 0 ? seconds : 0) * 1e9));
  return ok;
}

Status attachCancel(AttentionTag* tag, const std::atomic<bool>* isCancelled) noexcept {
  if (!tag) return badArgument;
  tag->isCancelled = isCancelled;
  return ok;
}

Status detachTimeout(AttentionTag* tag) noexcept {
  if (!tag) return badArgument;
  tag->limit = noLimit;
  tag->isCancelled = nullptr;
  return ok;
}

Status destructAttentionTag(AttentionTag* tag) noexcept {
  if (!tag) return badArgument;
  (tag->newer ? tag->newer->older : newest) = tag->older;
  if (tag->older) tag->older->newer = tag->newer;
  return ok;
}

std::int64_t attentionLimit() noexcept {
  std::int64_t limit = noLimit;
  for (const AttentionTag* tag = newest; tag; tag = tag->older) limit = std::min(limit, tag->limit);
  return limit;
}

std::int64_t nextAttention() noexcept {
  const std::int64_t limit = attentionLimit();
  std::int64_t now = 0;
  for (const AttentionTag* tag = newest; tag; tag = tag->older) {
    if (tag->isCancelled && readSteadyClock(&now) >= 0) return std::min(limit, now + kFlagPeriod);
  }
  return limit;
}

Status checkAttention() noexcept {
  for (const AttentionTag* tag = newest; tag; tag = tag->older) {
    if (tag->isCancelled && tag->isCancelled->load(std::memory_order_acquire)) return attentionCancelled;
  }
  const std::int64_t limit = attentionLimit();
  std::int64_t now = 0;
  if (limit == noLimit || readSteadyClock(&now) < 0 || now < limit) return ok;
  return attentionExpired;
}

}  // namespace zrtsys
