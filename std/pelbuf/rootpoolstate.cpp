#include "std/pelbuf/rootpoolstate.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace {

// A plain flag wakes nobody: whoever waits looks at it this often.
constexpr std::chrono::milliseconds kCancelPeriod(10);

bool isSet(const volatile bool* flag) noexcept { return flag && __atomic_load_n(flag, __ATOMIC_ACQUIRE); }

}  // namespace

// --- idle roots -----------------------------------------------------------------------------------------------------

void qc_PelRootPool::Lane::push(qc_SlottedPelRoot& root) noexcept {
  root.newer = nullptr;
  root.older = newest;
  (newest ? newest->newer : oldest) = &root;
  newest = &root;
}

void qc_PelRootPool::Lane::remove(qc_SlottedPelRoot& root) noexcept {
  (root.newer ? root.newer->older : newest) = root.older;
  (root.older ? root.older->newer : oldest) = root.newer;
  root.newer = root.older = nullptr;
}

void qc_PelRootPool::takeBack(qc_SlottedPelRoot& slotted) noexcept {
  slotted.root().mutating();  // before the lock is taken: archives have one of their own
  {
    const qcLock guard(lock);
    if (pool) {
      pool->release(&slotted.root());
      wakeFirst();
      return;
    }
  }
  delete &slotted;
}

// --- waiting --------------------------------------------------------------------------------------------------------

/// A thread that waits, in the line from its construction on. Leaving it, for whatever reason, passes the turn on.
class qc_PelRootPool::Waiter {
 public:
  explicit Waiter(qc_PelRootPool& state) : state_(state) {
    const qcLock guard(state.lock);
    previous_ = std::exchange(state.last_, this);
    (previous_ ? previous_->next_ : state.first_) = this;
    ++state.waiters_;
    if (!previous_) wakeUp.release();
  }
  ~Waiter() {
    const qcLock guard(state_.lock);
    (previous_ ? previous_->next_ : state_.first_) = next_;
    (next_ ? next_->previous_ : state_.last_) = previous_;
    --state_.waiters_;
    state_.wakeFirst();
  }
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;

  Waiter* next() const noexcept { return next_; }
  bool isFirst() const noexcept { return state_.first_ == this; }

  qcSemaphore wakeUp;

 private:
  qc_PelRootPool& state_;
  Waiter* previous_;
  Waiter* next_ = nullptr;
};

void qc_PelRootPool::wakeFirst() noexcept {
  if (first_) first_->wakeUp.release();
}

qcPtrHandle<qc_PelRoot> qc_PelRootPool::tryGet(std::size_t lane) {
  const qcLock guard(lock);
  return pool && !first_ ? pool->get(lane) : nullptr;
}

qcPtrHandle<qc_PelRoot> qc_PelRootPool::get(std::size_t lane, const qcDeadline& deadline, const volatile bool* cancel) {
  if (isSet(cancel) || deadline.hasPassed()) return nullptr;
  if (qcPtrHandle<qc_PelRoot> root = tryGet(lane)) return root;
  Waiter self(*this);
  for (;;) {
    const qcDeadline look(cancel ? qcDeadline::Clock::now() + kCancelPeriod : qcDeadline::Clock::time_point::max());
    self.wakeUp.acquire(std::min(deadline, look));
    {
      const qcLock guard(lock);
      if (!pool) return nullptr;
      const Lane& wanted = lanes[lane];
      if (!pool->canHold(wanted.width, wanted.height, *wanted.type)) return nullptr;
      if (self.isFirst()) {
        if (qcPtrHandle<qc_PelRoot> root = pool->get(lane)) return root;
      }
    }
    if (isSet(cancel) || deadline.hasPassed()) return nullptr;
  }
}

void qc_PelRootPool::abandon() noexcept {
  pool = nullptr;
  for (Waiter* waiter = first_; waiter; waiter = waiter->next()) waiter->wakeUp.release();
}
