// A table from addresses of objects to identifiers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class qcPersistent;

/// Open addressing with linear probing; an object is in it once.
class qc_AddressTable {
 public:
  struct Slot {
    qcPersistent* object = nullptr;
    std::int32_t stored = 0;  // identifier under which the archive stored it, 0 for none
    std::int32_t loaded = 0;  // identifier under which the archive loaded it, 0 for none
    std::size_t made = 0;     // its place among those made by the load under way, if it is there
  };

  Slot* find(const qcPersistent* object) noexcept;
  /// The slot of the object, made when there is none; valid until the next change of the table.
  Slot& enter(qcPersistent* object);
  void remove(Slot* slot) noexcept;
  void clear() noexcept;

  template <class Visit>
  void forEach(Visit&& visit) {
    for (Slot& slot : slots_) {
      if (slot.object) visit(slot);
    }
  }

 private:
  std::size_t home(const qcPersistent* object) const noexcept;
  Slot& place(const qcPersistent* object) noexcept;

  std::vector<Slot> slots_;  // a power of two of them, at most half used; none at first
  std::size_t used_ = 0;
  int shift_ = 0;
};
