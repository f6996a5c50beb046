// Waiting under a lock.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "vnxstd/except/failure.h"
#include "vnxstd/sync/sync.h"
#include "zrtsys/attention.h"

/// Waits until isThere(), which is asked under the lock and again each time that `changed` is notified; false when the
/// deadline passes first. Throws qcTimeout::Expired or Cancel when a time limit on this thread ends the wait. Asks
/// before it looks at any time: what is there is taken.
template <class IsThere>
bool qf_WaitFor(std::condition_variable& changed, std::unique_lock<std::mutex>& lock, const qcDeadline& deadline,
                IsThere&& isThere) {
  while (!isThere()) {
    qfThrowExceptionOnFailure(zrtsys::checkAttention());
    if (deadline.hasPassed()) return false;
    const qcDeadline look = std::min(deadline, qcDeadline::nextLook());
    if (look.isNever()) {
      changed.wait(lock);
    } else {
      changed.wait_until(lock, look.time());
    }
  }
  return true;
}
