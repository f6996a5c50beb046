// What a pool, its roots and the threads that wait for them share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <typeinfo>
#include <vector>

#include "std/pelbuf/slottedroot.h"
#include "vnxstd/archive/handle.h"
#include "vnxstd/pelbuf/rootpool.h"
#include "vnxstd/sync/sync.h"

/// The state of a pool, which outlives the pool as long as a root is out or a thread waits. What is in it is read and
/// written under its lock; get, tryGet and takeBack take the lock themselves.
class qc_PelRootPool : public qcRepBase {
 public:
  /// The idle roots of one size and type, by the time of their release.
  struct Lane {
    long width, height;
    const std::type_info* type;
    qc_SlottedPelRoot* newest = nullptr;
    qc_SlottedPelRoot* oldest = nullptr;

    void push(qc_SlottedPelRoot& root) noexcept;
    void remove(qc_SlottedPelRoot& root) noexcept;
  };

  explicit qc_PelRootPool(qcPelRootPool& owner) noexcept : pool(&owner) {}

  /// Waits for a root of the lane. Null when the pool can never have it or is gone, at the deadline and when cancelled.
  qcPtrHandle<qc_PelRoot> get(std::size_t lane, const qcDeadline& deadline, const volatile bool* cancel);
  /// The same without waiting; null when others wait.
  qcPtrHandle<qc_PelRoot> tryGet(std::size_t lane);
  /// Takes a root that nobody owns any more.
  void takeBack(qc_SlottedPelRoot& slotted) noexcept;
  /// There may be room: whoever is first in the line tries again.
  void wakeFirst() noexcept;
  /// The pool is going: nobody gets a root any more, and everybody who waits is told.
  void abandon() noexcept;

  long waiters() const noexcept { return waiters_; }

  qcMutex lock;
  qcPelRootPool* pool;  // null once it is gone
  std::vector<Lane> lanes;
  std::shared_ptr<void> memory;  // in which the pels of a basic pool lie

 private:
  class Waiter;

  Waiter* first_ = nullptr;
  Waiter* last_ = nullptr;
  long waiters_ = 0;
};
