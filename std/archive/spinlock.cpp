#include "vnxstd/archive/spinlock.h"

#include <chrono>
#include <thread>

void qc_SpinLock::wait() noexcept {
  constexpr int kSpins = 4000;
  constexpr std::chrono::microseconds kSleep(50);
  for (;;) {
    // Looks before it tries, so that waiting threads do not fight for the cache line.
    for (int i = 0; i < kSpins; ++i) {
      if (!taken_.load(std::memory_order_relaxed) && !taken_.exchange(true, std::memory_order_acquire)) return;
    }
    std::this_thread::sleep_for(kSleep);
  }
}
