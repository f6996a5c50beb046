#include "vnxstd/archive/handle.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "std/archive/undo.h"

namespace {

thread_local qc_LoadUndo* current = nullptr;

constexpr int kDeepest = 64;  // deletions within each other

// The deletions under way on this thread, and what waits for them. Both are there until the thread is gone.
struct Disposal {
  int depth = 0;
  const qcRepBase* waiting = nullptr;
};
thread_local Disposal disposal;

// Objects lie at even addresses, which makes room for the sign.
static_assert(alignof(qcRepBase) >= 2);
std::intptr_t linkTo(const qcRepBase* rep) noexcept {
  return -static_cast<std::intptr_t>(reinterpret_cast<std::uintptr_t>(rep) >> 1);
}
const qcRepBase* linkedTo(std::intptr_t link) noexcept {
  return reinterpret_cast<const qcRepBase*>(static_cast<std::uintptr_t>(-link) << 1);
}

bool before(const qcRepBase* a, const qcRepBase* b) noexcept { return std::less<const qcRepBase*>()(a, b); }

}  // namespace

std::atomic<int> qcRepBase::undoing_{0};

qcRepBase::~qcRepBase() = default;

void qcRepBase::dispose(const qcRepBase* rep) noexcept {
  Disposal& under = disposal;
  if (under.depth == kDeepest) {
    rep->count_.store(linkTo(under.waiting), std::memory_order_relaxed);
    under.waiting = rep;
    return;
  }
  ++under.depth;
  delete rep;
  if (under.depth == 1) {
    while (under.waiting) {
      const qcRepBase* const next = under.waiting;
      under.waiting = linkedTo(next->count_.load(std::memory_order_relaxed));
      next->count_.store(0, std::memory_order_relaxed);
      delete next;
    }
  }
  --under.depth;
}

bool qcRepBase::refIncIfOwned(const qcRepBase* rep) noexcept {
  std::intptr_t count = rep->count_.load(std::memory_order_relaxed);
  while (count > 0) {
    if (rep->count_.compare_exchange_weak(count, count + 1, std::memory_order_relaxed)) return true;
  }
  return false;
}

bool qcRepBase::isGoneSlow(const qcRepBase* rep) noexcept { return qc_LoadUndo::isGone(rep); }

qc_LoadUndo::qc_LoadUndo(std::span<Count> counts) noexcept
    : counts_(counts),
      outer_(current),
      depth_(std::exchange(disposal.depth, 0)),
      waiting_(std::exchange(disposal.waiting, nullptr)) {
  std::sort(counts.begin(), counts.end(), [](const auto& a, const auto& b) { return before(a.rep, b.rep); });
  current = this;
  qcRepBase::undoing_.fetch_add(1, std::memory_order_relaxed);
}

qc_LoadUndo::~qc_LoadUndo() {
  qcRepBase::undoing_.fetch_sub(1, std::memory_order_relaxed);
  current = outer_;
  disposal = {depth_, waiting_};
}

qc_LoadUndo::Count* qc_LoadUndo::find(const qcRepBase* rep) const noexcept {
  const auto found = std::lower_bound(counts_.begin(), counts_.end(), rep,
                                      [](const auto& count, const qcRepBase* r) { return before(count.rep, r); });
  return found != counts_.end() && found->rep == rep ? &*found : nullptr;
}

void qc_LoadUndo::markGone(const qcRepBase* rep) noexcept {
  if (Count* count = find(rep)) count->gone = true;
}

bool qc_LoadUndo::isGone(const qcRepBase* rep) noexcept {
  for (const qc_LoadUndo* undo = current; undo; undo = undo->outer_) {
    const Count* count = undo->find(rep);
    if (count && count->gone) return true;
  }
  return false;
}
