#include "zrtsys/attention.h"

#include <algorithm>

#include "zrtsys/clock.h"

namespace zrtsys {

namespace {

constexpr double kLongest = 10 * 365.25 * 86400;  // seconds

thread_local AttentionTag* newest = nullptr;

}  // namespace

Status constructAttentionTag(AttentionTag* tag) noexcept {
  if (!tag) return badArgument;
  *tag = {noLimit, nullptr, newest};
  if (newest) newest->newer = tag;
  newest = tag;
  return ok;
}

Status attachTimeout(AttentionTag* tag, double seconds) noexcept {
  if (!tag) return badArgument;
  std::int64_t now = 0;
  if (const Status status = readSteadyClock(&now); status < 0) return status;
  tag->limit = seconds > kLongest ? noLimit : now + static_cast<std::int64_t>((seconds > 0 ? seconds : 0) * 1e9);
  return ok;
}

Status detachTimeout(AttentionTag* tag) noexcept {
  if (!tag) return badArgument;
  tag->limit = noLimit;
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

Status checkAttention() noexcept {
  const std::int64_t limit = attentionLimit();
  std::int64_t now = 0;
  if (limit == noLimit || readSteadyClock(&now) < 0 || now < limit) return ok;
  return attentionExpired;
}

}  // namespace zrtsys
