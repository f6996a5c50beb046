// The lock of small tables and pools.
#pragma once

#include <atomic>

#include "vnxstd/archive/alone.h"
#include "vnxstd/export.h"

/// A lock for sections of a few instructions: one atomic exchange to take it, one store to give it back, and plain
/// accesses while the process has a single thread. A thread that finds it taken spins for a short while and then
/// sleeps, so that a holder of lower priority can go on. Not recursive. Use it through std::lock_guard.
class VNXSTD_EXPORT qc_SpinLock {
 public:
  void lock() noexcept {
    if (qf_IsAlone()) {
      taken_.store(true, std::memory_order_relaxed);
    } else if (taken_.exchange(true, std::memory_order_acquire)) {
      wait();
    }
  }
  void unlock() noexcept { taken_.store(false, std::memory_order_release); }

 private:
  void wait() noexcept;

  std::atomic<bool> taken_{false};
};
