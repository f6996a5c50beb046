// Counts the heap of the test program and lets allocations fail on purpose. Include from one source file of a program:
// it replaces operator new and delete.
#pragma once

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

inline std::atomic<std::size_t> liveBytes{0}, peakBytes{0};
/// Allocations that still succeed; negative means any number.
inline std::atomic<long> allocationsLeft{-1};

/// The most bytes that were live at once since this object was made, above what was live then.
class PeakAllocation {
 public:
  PeakAllocation() : start_(liveBytes) { peakBytes = liveBytes.load(); }
  std::size_t bytes() const { return peakBytes - start_; }

 private:
  std::size_t start_;
};

void* operator new(std::size_t size) {
  if (allocationsLeft == 0) throw std::bad_alloc();
  if (allocationsLeft > 0) --allocationsLeft;
  void* block = std::malloc(size ? size : 1);
  if (!block) throw std::bad_alloc();
  const std::size_t live = liveBytes += malloc_usable_size(block);
  for (std::size_t peak = peakBytes; live > peak && !peakBytes.compare_exchange_weak(peak, live);) {
  }
  return block;
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* block) noexcept {
  if (block) liveBytes -= malloc_usable_size(block);
  std::free(block);
}
void operator delete[](void* block) noexcept { operator delete(block); }
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
void operator delete[](void* block, std::size_t) noexcept { operator delete(block); }

/// Calls `act` with no allocation succeeding, then with one, two and so on until it needs no more; returns how many
/// that were. `look` sees what each failure leaves.
long failAllocations(const auto& act, const auto& look) {
  for (long allowed = 0;; ++allowed) {
    bool failed = false;
    allocationsLeft = allowed;
    try {
      act();
    } catch (const std::bad_alloc&) {
      failed = true;
    }
    allocationsLeft = -1;
    if (!failed) return allowed;
    look();
  }
}
