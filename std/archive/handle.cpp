#include "vnxstd/archive/handle.h"

#include <algorithm>
#include <functional>

#include "std/archive/undo.h"

namespace {

thread_local qc_LoadUndo* current = nullptr;

bool before(const qcRepBase* a, const qcRepBase* b) noexcept { return std::less<const qcRepBase*>()(a, b); }

}  // namespace

std::atomic<int> qcRepBase::undoing_{0};

qcRepBase::~qcRepBase() = default;

bool qcRepBase::refIncIfOwned(const qcRepBase* rep) noexcept {
  std::int32_t count = rep->count_.load(std::memory_order_relaxed);
  while (count > 0) {
    if (rep->count_.compare_exchange_weak(count, count + 1, std::memory_order_relaxed)) return true;
  }
  return false;
}

bool qcRepBase::isGoneSlow(const qcRepBase* rep) noexcept { return qc_LoadUndo::isGone(rep); }

qc_LoadUndo::qc_LoadUndo(std::span<Count> counts) noexcept : counts_(counts), outer_(current) {
  std::sort(counts.begin(), counts.end(), [](const auto& a, const auto& b) { return before(a.rep, b.rep); });
  current = this;
  qcRepBase::undoing_.fetch_add(1, std::memory_order_relaxed);
}

qc_LoadUndo::~qc_LoadUndo() {
  qcRepBase::undoing_.fetch_sub(1, std::memory_order_relaxed);
  current = outer_;
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
