// Blocks of one size for small objects that come and go in great numbers.
#pragma once

#include <cstddef>

#include "vnxstd/archive/spinlock.h"
#include "vnxstd/export.h"

/// A pool of blocks of one size. Blocks come from chunks that grow geometrically up to about one mebibyte and are
/// reused last in, first out. alloc and free take the pool's lock and may be called from any thread.
class VNXSTD_EXPORT qcStoragePool {
 public:
  /// `blockSize` is rounded up to a multiple of 8, at least 8; an `initialCount` below 1 counts as 1. The first chunk
  /// is allocated at once. Throws std::bad_alloc when it cannot be, or when the sizes overflow.
  qcStoragePool(unsigned blockSize, long initialCount);
  /// Frees every chunk; blocks still out become invalid.
  ~qcStoragePool();
  qcStoragePool(const qcStoragePool&) = delete;
  qcStoragePool& operator=(const qcStoragePool&) = delete;

  /// A block, aligned to 8 bytes. Throws std::bad_alloc and leaves the pool as it was when memory is exhausted.
  void* alloc();
  /// Takes a block back; null is ignored.
  void free(void* block) noexcept;

  bool autoDelete() const;
  void autoDelete(bool whenEmpty);
  /// Deletes the pool, which must live on the heap, when autoDelete is set and no block is out. Only this deletes it.
  /// No other thread may use the pool, or ask the same, from the moment on at which it can be deleted.
  void maybeDelete();
  /// Returns chunks whose blocks are all free to the system; costs time in proportion to the free blocks.
  void relinquish();

  /// Bytes per block.
  std::size_t blockSize() const noexcept { return blockSize_; }
  /// Blocks handed out and not yet freed.
  long outstanding() const;

 private:
  struct chunkHead;
  struct Block {
    Block* next;
  };
  void addChunk();

  static constexpr std::size_t kBlockAlignment = 8;

  mutable qc_SpinLock lock_;
  Block* freeList_ = nullptr;
  chunkHead* chunks_ = nullptr;
  std::size_t blockSize_ = 0;
  std::size_t nextChunkCount_ = 0;
  std::size_t maxChunkCount_ = 0;
  bool autoDelete_ = false;
  long outstanding_ = 0;
};

/// Hands its block back to the pool when it goes out of scope; does nothing without a pool or a block.
class VNXSTD_EXPORT qcStoragePoolDtorHelper {
 public:
  qcStoragePoolDtorHelper(qcStoragePool* pool, char* block) noexcept : pool_(pool), block_(block) {}
  ~qcStoragePoolDtorHelper() {
    if (pool_) pool_->free(block_);
  }
  qcStoragePoolDtorHelper(const qcStoragePoolDtorHelper&) = delete;
  qcStoragePoolDtorHelper& operator=(const qcStoragePoolDtorHelper&) = delete;

 private:
  qcStoragePool* pool_;
  char* block_;
};
