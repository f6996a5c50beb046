// Pools of pixel storage.
//
// A pool hands out images whose pels lie in memory of its own, and takes them back when the last buffer lets go of
// them. A root that came back stays idle, pels and all, until an image of its size and type is asked for, which costs
// a fraction of a microsecond and touches no fresh memory; when the room is needed for another size, the idle root
// goes. Pools keep roots of unsigned char, qcPackedRGB16Pel and qcPackedRGB32Pel.
//
//     const auto pool = qfDefaultPelRootPool();
//     qcPelBuffer<unsigned char> image = pool->get<unsigned char>(640, 480, qcDeadline(0.5));
//     if (!image.isBound()) ...                       // nothing came back within half a second
//
// The rows of a pooled root follow each other without padding unless the pool says otherwise, and its pels are what
// the memory held. First come, first served: while a thread waits, whoever comes later waits behind it or gets nothing,
// even if what it asks for is there. A large image that has to wait for several roots is not starved by small ones,
// and small ones wait behind large ones.
//
// All operations are safe from several threads, and roots may come back on any thread. A pool may go while its roots
// are out: they stay what they are, and the memory goes with the last of them. Threads that wait get nothing then.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <typeinfo>
#include <vector>

#include "vnxstd/archive/handle.h"
#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"
#include "vnxstd/pelbuf/buffer.h"
#include "vnxstd/pelbuf/root.h"
#include "vnxstd/sync/sync.h"

class qc_PelRootPool;
class qc_SlottedPelRoot;

/// The base of the pools.
class VNXSTD_EXPORT qcPelRootPool : public qcRepBase {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// This kind of pool cannot be resized.
  class VNXSTD_EXPORT NotSupported : public qc_ErrorLeaf<NotSupported, Errors, 0x1000098C> {};
  /// A pool is to be resized while roots are out.
  class VNXSTD_EXPORT Outstanding : public qc_ErrorLeaf<Outstanding, Errors, 0x1000098D> {};

  qcPelRootPool(const qcPelRootPool&) = delete;
  qcPelRootPool& operator=(const qcPelRootPool&) = delete;
  ~qcPelRootPool() override;

  /// Changes the size of the pool's memory, in bytes.
  virtual void size(unsigned int bytes) = 0;
  /// The size of the pool's memory, in bytes.
  virtual std::size_t size() const = 0;

  /// Takes all idle roots apart.
  void flush();

  /// How many threads wait for an image.
  long waiters() const;

  // Getting an image: a buffer that is bound to a whole root at offset (0, 0), or unbound when there is none. A request
  // that the pool could not even fill with all its roots at home, and one for another pel type, give an unbound buffer
  // at once and leave the idle roots alone. All throw qcRectErrors::NegativeSize for a negative size and std::bad_alloc
  // when there is no memory for the pool's own records. The cost grows with the number of different sizes and types
  // that the pool was ever asked for.

  /// An image if there is one now and nobody waits.
  template <class T>
  qcPelBuffer<T> tryGet(long width, long height) {
    return bound<T>(take(width, height, typeid(T), nullptr, nullptr));
  }
  /// Waits for an image; unbound when the deadline passes first. A deadline that has passed already gives an unbound
  /// buffer in any case.
  template <class T>
  qcPelBuffer<T> get(long width, long height, const qcDeadline& deadline = qcDeadline()) {
    return bound<T>(take(width, height, typeid(T), &deadline, nullptr));
  }
  /// Gives up as well when `cancel` becomes true. The flag is read atomically, every 10 ms at least; it is written by
  /// `std::atomic_ref(flag).store(true)` or the like.
  template <class T>
  qcPelBuffer<T> get(long width, long height, const qcDeadline& deadline, const volatile bool& cancel) {
    return bound<T>(take(width, height, typeid(T), &deadline, &cancel));
  }

 protected:
  qcPelRootPool();

  /// To be called first by the destructor of every class below this one: roots that come back on other threads must not
  /// meet a pool that is half gone. Nobody gets a root any more; has no further effect the second time.
  void abandon() noexcept;

  // The following are called under the pool's lock, which they must not take themselves.

  /// A root has lost its last owner: puts it on the idle list.
  virtual void release(qc_PelRoot* root) noexcept;
  /// Takes a root apart.
  void notifyRelease(qc_PelRoot* root) noexcept;
  void flushLanes() noexcept;

  /// Whether there can be such a root once all others are gone.
  virtual bool canHold(long width, long height, const std::type_info& type) const noexcept = 0;
  /// Makes a root, or null when there is no room for it now.
  virtual qc_SlottedPelRoot* newPelRoot(long width, long height, const std::type_info& type) = 0;
  /// Destroys a root that newPelRoot has made.
  virtual void deletePelRoot(qc_SlottedPelRoot* root) noexcept = 0;

  qc_PelRootPool& state() const noexcept { return *state_.rep(); }

 private:
  friend class qc_PelRootPool;

  template <class T>
  static qcPelBuffer<T> bound(const qcPtrHandle<qc_PelRoot>& root) {
    return qcPelBuffer<T>(static_cast<qcPelRoot<T>*>(root.rep()));
  }
  qcPtrHandle<qc_PelRoot> take(long width, long height, const std::type_info& type, const qcDeadline* deadline,
                               const volatile bool* cancel);
  std::size_t lane(long width, long height, const std::type_info& type);
  qc_PelRoot* get(std::size_t lane);

  qcPtrHandle<qc_PelRootPool> state_;
};

/// A pool that carves its roots out of one block, in slots of a fixed size: each root takes the first run of free slots
/// that is long enough, an image without pels none.
///
/// A subclass can supply the memory. It does so in two steps, because the constructor of this class cannot reach it
/// yet: it passes the size 0 up and calls `size` in its own constructor. Its destructor calls `abandon` and `size(0)`,
/// which gives the memory back to it but fails while roots are out; for roots that may outlive the pool it names an
/// owner of the memory with `keep` instead, and its destructor calls `abandon` alone.
class VNXSTD_EXPORT qcBasicPelRootPool : public qcPelRootPool {
 public:
  /// A run of slots.
  struct BasicSlot {
    unsigned char* start = nullptr;
    std::uint32_t count = 0;
  };

  /// A pool of `size` bytes with slots of `slotSize` bytes; less than 8 is taken for 8. Throws as `size`.
  explicit qcBasicPelRootPool(unsigned int size = 0, unsigned int slotSize = 4096);
  ~qcBasicPelRootPool() override;

  /// Gives the memory back and takes new memory of so many bytes, rounded up to whole slots; with 0 the pool has none.
  /// Idle roots go. Throws Outstanding when roots are out; the pool keeps its memory then. Throws std::bad_alloc when
  /// the memory is not to be had, or its size does not fit 32 bits; the pool has none then.
  void size(unsigned int bytes) override;
  std::size_t size() const override;

 protected:
  /// Names the owner of what allocMem is about to return. It is let go of after freeMem, or with the last root that is
  /// out when the pool is gone by then.
  void keep(std::shared_ptr<void> memory) noexcept;

 private:
  // Called under the pool's lock.

  /// A block of so many bytes, or null. From the system unless a subclass knows better.
  virtual void* allocMem(unsigned int bytes);
  /// Takes back what allocMem returned. Does nothing here, where the block has an owner.
  virtual void freeMem(void* block) noexcept;

  bool canHold(long width, long height, const std::type_info& type) const noexcept override;
  qc_SlottedPelRoot* newPelRoot(long width, long height, const std::type_info& type) override;
  void deletePelRoot(qc_SlottedPelRoot* root) noexcept override;

  std::uint64_t bytesFor(long width, long height, unsigned pelSize) const noexcept;
  std::uint64_t slotsFor(std::uint64_t bytes) const noexcept { return (bytes + slotSize_ - 1) / slotSize_; }
  bool allocPels(std::uint64_t bytes, BasicSlot& slot);
  void freePels(const BasicSlot& slot) noexcept;
  void* allocAligned(std::uint64_t bytes);
  void dropMemory() noexcept;

  unsigned char* end(const BasicSlot& run) const noexcept {
    return run.start + static_cast<std::size_t>(run.count) * slotSize_;
  }

  std::uint32_t size_ = 0;
  std::uint32_t slots_ = 0;
  void* block_ = nullptr;
  std::size_t slotSize_;
  std::vector<BasicSlot> free_;  // in order of addresses; no two adjoin. With room for as many as there can be
  std::size_t taken_ = 0;
};

/// A pool that hands out whole arrays of the caller, one per root.
class VNXSTD_EXPORT qcDiscretePelRootPool : public qcPelRootPool {
 public:
  /// Uses `count` arrays of `arraySize` bytes each. They belong to the caller and must outlive the pool and its roots.
  /// Rows take at least `minRowBytes` bytes and a multiple of `rowGranularity` bytes. Throws qcPelFunc::BadParams for a
  /// granularity below 1, a negative size or count or one beyond 32 bits, and a null pointer to or among the arrays.
  qcDiscretePelRootPool(long arraySize, void** arrays, long count, long minRowBytes, long rowGranularity);
  qcDiscretePelRootPool(long arraySize, const std::vector<void*>& arrays, long minRowBytes, long rowGranularity);
  ~qcDiscretePelRootPool() override;

  /// Throws NotSupported.
  void size(unsigned int bytes) override;
  /// The bytes of all arrays.
  std::size_t size() const override;

 private:
  bool canHold(long width, long height, const std::type_info& type) const noexcept override;
  qc_SlottedPelRoot* newPelRoot(long width, long height, const std::type_info& type) override;
  void deletePelRoot(qc_SlottedPelRoot* root) noexcept override;

  std::int64_t rowBytes(long width, unsigned pelSize) const noexcept;
  void* place(std::size_t array, long width, long height, unsigned pelSize) const noexcept;

  std::vector<void*> arrays_;
  std::vector<bool> inUse_;
  std::int32_t arraySize_ = 0;
  std::int64_t minRowBytes_ = 0;
  std::int64_t rowGranularity_ = 1;
};

/// The pool of the process, with slots of 4096 bytes.
class VNXSTD_EXPORT qcDefaultPelRootPool : public qcBasicPelRootPool {
 public:
  /// There is memory for one such pool at a time: a second one throws std::bad_alloc.
  explicit qcDefaultPelRootPool(unsigned int size);
  ~qcDefaultPelRootPool() override;

 private:
  void* allocMem(unsigned int bytes) override;
};

/// The default pool, of qfDefaultPelRootPoolSize() bytes. It is made by the first call, which throws std::bad_alloc
/// when the memory is not to be had, and let go of when the process exits: from then on the handle is null.
VNXSTD_EXPORT const qcPtrHandle<qcDefaultPelRootPool>& qfDefaultPelRootPool();
/// The same pool; if this is the first call, of `size` bytes. ~0u stands for qfDefaultPelRootPoolSize().
VNXSTD_EXPORT const qcPtrHandle<qcDefaultPelRootPool>& qfDefaultPelRootPool(unsigned int size);
/// 16 MiB.
VNXSTD_EXPORT unsigned int qfDefaultPelRootPoolSize() noexcept;
