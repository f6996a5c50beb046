// The objects that an archive knows, by address and by identifier.
#pragma once

#include <cstdint>
#include <ios>
#include <limits>
#include <memory>
#include <unordered_map>
#include <vector>

#include "vnxstd/archive/handle.h"
#include "vnxstd/archive/persistent.h"
#include "vnxstd/archive/spinlock.h"

/// The table of one archive. Objects leave it when they are destroyed, on whatever thread. One lock guards the tables
/// of all archives: everything but the static functions wants it taken.
///
/// An object knows its place in the table of the first archive that holds it; only when it is held by several at once
/// do the others look it up by address.
class qc_HeldTable {
 public:
  using Place = std::uint32_t;
  static constexpr Place kNone = ~Place{0};
  static constexpr long kSettled = std::numeric_limits<long>::max();

  struct Entry {
    qcPersistent* object = nullptr;  // null once it is destroyed
    const qcRepBase* rep = nullptr;  // its count, if it has one; known for loaded objects only
    Place place = 0;                 // its own; of a free one, the next that is free
    std::int32_t stored = 0;         // identifier under which the archive stored it, 0 for none
    std::int32_t loaded = 0;         // identifier under which the archive loaded it, 0 for none
    bool making = false;             // made by the load under way; its place is not given away meanwhile
    bool complete = false;           // its body is loaded
    bool given = false;              // some handle was given it
    bool lent = false;               // it was given as a plain pointer, to somebody who will destroy it
    bool dropped = false;            // all handles have let go of it while the load lasted
    std::int32_t height = -1;        // levels of objects below it, as stored or loaded last; -1 while it is under way
    long low = kSettled;             // level of the outermost object under way that it depends on, kSettled for none
    std::streamoff read = 0;         // bytes that a reference to it had the archive read elsewhere
  };
  qc_HeldTable() = default;
  ~qc_HeldTable() { letGo(); }
  qc_HeldTable(const qc_HeldTable&) = delete;
  qc_HeldTable& operator=(const qc_HeldTable&) = delete;

  static qc_SpinLock& lock() noexcept { return lock_; }

  Entry& operator[](Place place) noexcept { return blocks_[place / kBlock][place % kBlock]; }

  /// Null when the archive does not hold the object.
  Entry* find(const qcPersistent* object) noexcept;
  /// Null when no object that was loaded under the identifier lives.
  Entry* findLoaded(std::int32_t id) noexcept;

  /// Where what was loaded under an identifier is looked for; kNone for nowhere yet.
  Place placeOf(std::int32_t id) const noexcept;
  /// Has it looked for at such a place again; not when memory for that is missing.
  void lookAt(std::int32_t id, Place place) noexcept;

  /// The place of the object, a new one when it is not held yet.
  Place enter(qcPersistent* object);
  /// Enters an object that a load has made; `id` 0 when nothing can refer to it.
  Place enterMade(qcPersistent* object, const qcRepBase* rep, std::int32_t id, bool given);
  /// The load is over: the place goes the way of its object.
  void release(Place place) noexcept;

  void markStored(Entry& entry, std::int32_t id) noexcept;
  /// Forgets which objects were stored under larger identifiers.
  void forgetStoredBehind(std::int32_t id) noexcept;

  /// Counts what was read elsewhere for an object, as long as it lives.
  void charge(Entry& entry, std::streamoff read) noexcept;
  std::streamoff charged() const noexcept { return charged_; }

  /// Forgets all objects. Takes the lock.
  void letGo() noexcept;

  /// An object is about to change, or is being destroyed: all tables forget what they must. Both take the lock.
  static void forgetStored(qcPersistent* object) noexcept;
  static void forget(const qcPersistent* object) noexcept;

  /// Whether any archive may hold the object; needs no lock on the thread that uses it.
  static bool isHeld(const qcPersistent* object) noexcept { return object->held_.load(std::memory_order_relaxed) != 0; }

 private:
  void remove(Entry& entry) noexcept;
  void giveBack(Entry& entry) noexcept;

  static inline qc_SpinLock lock_;
  static inline qc_HeldTable* tables_ = nullptr;  // those that hold objects

  // Entries by place, in blocks, so that none is ever moved or copied; the places that were in use and are free now are
  // a list.
  static constexpr Place kBlock = 1024;
  std::vector<std::unique_ptr<Entry[]>> blocks_;
  Place used_ = 0;
  Place free_ = kNone;
  std::unordered_map<const qcPersistent*, Place> elsewhere_;  // objects that know a place in another table
  std::vector<Place> dense_;                                  // of identifiers 1 to n, as archives are written
  std::unordered_map<std::int32_t, Place> sparse_;            // of all others

  std::streamoff charged_ = 0;  // of all entries

  bool linked_ = false;
  qc_HeldTable* previous_ = nullptr;
  qc_HeldTable* next_ = nullptr;
};
