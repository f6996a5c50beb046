// Counts the heap of the test program, fills it and lets allocations fail on purpose. Include from one source file of a
// program: it replaces the functions that allocate. Where sanitizers replace them, and in static programs, these are
// operator new and delete alone, and memory that is allocated in another way is not seen.
#pragma once

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#if defined(_WIN32)
inline std::size_t malloc_usable_size(void* block) { return _msize(block); }
#endif

inline std::atomic<std::size_t> liveBytes{0}, peakBytes{0};
/// Allocations that still succeed; negative means any number.
inline std::atomic<long> allocationsLeft{-1};
/// Whether only one fails then, and whether one has.
inline std::atomic<bool> oneAllocationFails{false}, allocationHasFailed{false};
/// What new memory holds; negative means whatever there is.
inline std::atomic<int> filling{-1};

/// The most bytes that were live at once since this object was made, above what was live then.
class PeakAllocation {
 public:
  PeakAllocation() : start_(liveBytes) { peakBytes = liveBytes.load(); }
  std::size_t bytes() const { return peakBytes - start_; }

 private:
  std::size_t start_;
};

inline bool allocationFails() {
  if (allocationsLeft < 0) return false;
  if (allocationsLeft > 0) return --allocationsLeft, false;
  if (oneAllocationFails) allocationsLeft = -1;
  return allocationHasFailed = true;
}

/// Takes a new block into account.
inline void* allocated(void* block, std::size_t size) {
  if (!block) return nullptr;
  const std::size_t live = liveBytes += malloc_usable_size(block);
  for (std::size_t peak = peakBytes; live > peak && !peakBytes.compare_exchange_weak(peak, live);) {
  }
  if (filling >= 0) std::memset(block, filling, size);
  return block;
}

#if defined(__GLIBC__) && !defined(VNXSTD_STATIC) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void __libc_free(void*);

void* malloc(std::size_t size) noexcept { return allocationFails() ? nullptr : allocated(__libc_malloc(size), size); }
void* calloc(std::size_t count, std::size_t size) noexcept {
  std::size_t bytes = 0;
  void* const block = __builtin_mul_overflow(count, size, &bytes) ? nullptr : malloc(bytes);
  return block ? std::memset(block, 0, bytes) : nullptr;
}
void* realloc(void* block, std::size_t size) noexcept {
  if (allocationFails()) return nullptr;
  const std::size_t before = block ? malloc_usable_size(block) : 0;
  void* const moved = __libc_realloc(block, size);
  if (moved || size == 0) liveBytes -= before;
  if (moved) liveBytes += malloc_usable_size(moved);
  return moved;
}
void* memalign(std::size_t alignment, std::size_t size) noexcept {
  return allocationFails() ? nullptr : allocated(__libc_memalign(alignment, size), size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept { return memalign(alignment, size); }
int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept {
  return (*block = memalign(alignment, size)) ? 0 : ENOMEM;
}
void free(void* block) noexcept {
  if (block) liveBytes -= malloc_usable_size(block);
  __libc_free(block);
}
}

#else

void* operator new(std::size_t size) {
  void* const block = allocationFails() ? nullptr : allocated(std::malloc(size ? size : 1), size);
  return block ? block : throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* block) noexcept {
  if (block) liveBytes -= malloc_usable_size(block);
  std::free(block);
}
void operator delete[](void* block) noexcept { operator delete(block); }
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
void operator delete[](void* block, std::size_t) noexcept { operator delete(block); }

#endif
