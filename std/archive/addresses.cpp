#include "std/archive/addresses.h"

#include <bit>
#include <utility>

std::size_t qc_AddressTable::home(const qcPersistent* object) const noexcept {
  // Fibonacci hashing: the upper bits of the product depend on all bits of the address.
  const auto address = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(object));
  return static_cast<std::size_t>((address * 0x9E3779B97F4A7C15U) >> shift_);
}

qc_AddressTable::Slot& qc_AddressTable::place(const qcPersistent* object) noexcept {
  const std::size_t mask = slots_.size() - 1;
  std::size_t i = home(object);
  while (slots_[i].object && slots_[i].object != object) i = (i + 1) & mask;
  return slots_[i];
}

qc_AddressTable::Slot* qc_AddressTable::find(const qcPersistent* object) noexcept {
  if (slots_.empty()) return nullptr;
  Slot& slot = place(object);
  return slot.object ? &slot : nullptr;
}

qc_AddressTable::Slot& qc_AddressTable::enter(qcPersistent* object) {
  if (used_ * 2 >= slots_.size()) {
    std::vector<Slot> larger(slots_.empty() ? 16 : slots_.size() * 2);
    shift_ = 64 - std::countr_zero(larger.size());
    larger.swap(slots_);
    for (const Slot& slot : larger) {
      if (slot.object) place(slot.object) = slot;
    }
  }
  Slot& slot = place(object);
  if (!slot.object) {
    slot.object = object;
    ++used_;
  }
  return slot;
}

void qc_AddressTable::remove(Slot* slot) noexcept {
  // Later slots of the run move up, so that no marks of removed ones are needed.
  const std::size_t mask = slots_.size() - 1;
  auto hole = static_cast<std::size_t>(slot - slots_.data());
  for (std::size_t i = (hole + 1) & mask; slots_[i].object; i = (i + 1) & mask) {
    if (((i - home(slots_[i].object)) & mask) >= ((i - hole) & mask)) {
      slots_[hole] = slots_[i];
      hole = i;
    }
  }
  slots_[hole] = Slot{};
  --used_;
}

void qc_AddressTable::clear() noexcept {
  slots_.clear();
  used_ = 0;
}
