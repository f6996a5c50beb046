#include "vnxstd/sync/sync.h"

#include <algorithm>
#include <limits>
#include <thread>

#include "std/sync/wait.h"
#include "vnxstd/except/failure.h"
#include "zrtsys/attention.h"

namespace {

const qc_ErrorRegistration<qc_Resource::Errors, qc_Resource::Timeout, qc_Resource::NamedObjectExists,
                           qc_Resource::NameConflict, qc_Resource::CreateFailed, qc_Resource::BrokenLock>
    registered;

constexpr double kLongest = 10 * 365.25 * 86400;  // seconds; the clock's own range is some hundred years

qcDeadline fromAttention(std::int64_t limit) noexcept {
  if (limit == zrtsys::noLimit) return qcDeadline();
  return qcDeadline(qcDeadline::Clock::time_point(std::chrono::nanoseconds(limit)));  // the clock is the same for all
}

}  // namespace

qcDeadline::qcDeadline(double seconds) noexcept {
  if (seconds > kLongest) return;
  const std::chrono::duration<double> wait(seconds > 0 ? seconds : 0);
  time_ = Clock::now() + std::chrono::ceil<Clock::duration>(wait);
}

qcDeadline qcDeadline::ofThread() noexcept { return fromAttention(zrtsys::attentionLimit()); }
qcDeadline qcDeadline::nextLook() noexcept { return fromAttention(zrtsys::nextAttention()); }

qc_Resource::~qc_Resource() = default;

bool qcMutex::acquire(const qcDeadline& deadline) {
  if (deadline.isNever()) {
    mutex_.lock();
    return true;
  }
  // Not a timed mutex: the thread sanitizer of this compiler does not know its waits on the steady clock.
  constexpr std::chrono::milliseconds kPeriod(1);
  while (!mutex_.try_lock()) {
    qfThrowExceptionOnFailure(zrtsys::checkAttention());
    if (deadline.hasPassed()) return false;
    std::this_thread::sleep_until(std::min(deadline.time(), qcDeadline::Clock::now() + kPeriod));
  }
  return true;
}

qcMutex& qcMutex::global() {
  static qcMutex& mutex = *new qcMutex;  // objects that are destroyed at exit may still take it
  return mutex;
}

bool qcSemaphore::acquire(const qcDeadline& deadline) {
  std::unique_lock lock(mutex_);
  if (!qf_WaitFor(added_, lock, deadline, [this] { return units_ > 0; })) return false;
  --units_;
  return true;
}

void qcSemaphore::release() {
  const std::lock_guard lock(mutex_);
  if (units_ < std::numeric_limits<long>::max()) ++units_;
  added_.notify_one();  // under the lock: whoever has taken the unit may destroy the semaphore
}
