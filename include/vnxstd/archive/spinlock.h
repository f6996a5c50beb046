// The lock of small tables and pools.
#pragma once

#include <atomic>

#include "vnxstd/export.h"

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

/// A lock for sections of a few instructions: one atomic exchange to take it, one store to give it back, and plain
/// accesses while the process has a single thread. A thread that finds it taken spins for a short while and then
/// sleeps, so that a holder of lower priority can go on. Not recursive. Use it through std::lock_guard.
class VNXSTD_EXPORT qc_SpinLock {
 public:
  void lock() noexcept {
    if (isAlone()) {
      taken_.store(true, std::memory_order_relaxed);
    } else if (taken_.exchange(true, std::memory_order_acquire)) {
      wait();
    }
  }
  void unlock() noexcept { taken_.store(false, std::memory_order_release); }

 private:
  static bool isAlone() noexcept {
#if __has_include(<sys/single_threaded.h>)
    return __libc_single_threaded;
#else
    return false;
#endif
  }
  void wait() noexcept;

  std::atomic<bool> taken_{false};
};
