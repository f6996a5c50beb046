#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>

#include "std/pelbuf/rootpoolstate.h"
#include "std/pelbuf/slottedroot.h"
#include "vnxstd/pelbuf/rootpool.h"
#include "zrtsys/memory.h"

namespace {

constexpr unsigned kLeastSlot = 8;
constexpr std::uint64_t kBlockAlignment = 4096;  // what most slot sizes divide

std::uintptr_t misfit(const void* address, std::size_t modulus) {
  const std::uintptr_t excess = reinterpret_cast<std::uintptr_t>(address) % modulus;
  return excess == 0 ? 0 : modulus - excess;
}

}  // namespace

qcBasicPelRootPool::qcBasicPelRootPool(unsigned int size, unsigned int slotSize)
    : slotSize_(std::max(slotSize, kLeastSlot)) {
  qcBasicPelRootPool::size(size);
}

qcBasicPelRootPool::~qcBasicPelRootPool() { abandon(); }

// --- the block ------------------------------------------------------------------------------------------------------

void qcBasicPelRootPool::size(unsigned int bytes) {
  const qcLock guard(state().lock);
  state().wakeFirst();  // it tries again when the lock is free
  flushLanes();
  if (slots_ != 0 && !(free_.size() == 1 && free_[0].count == slots_)) throw Outstanding();
  dropMemory();
  if (bytes == 0) return;
  const std::uint64_t slots = slotsFor(bytes);
  free_.reserve(2);
  auto* const start = static_cast<unsigned char*>(allocAligned(slots * slotSize_));
  free_.push_back({start, static_cast<std::uint32_t>(slots)});
  slots_ = static_cast<std::uint32_t>(slots);
  size_ = static_cast<std::uint32_t>(slots * slotSize_);
}

std::size_t qcBasicPelRootPool::size() const {
  const qcLock guard(state().lock);
  return size_;
}

void* qcBasicPelRootPool::allocAligned(std::uint64_t bytes) {
  const auto take = [this](std::uint64_t count) {
    if (count > std::numeric_limits<std::uint32_t>::max()) throw std::bad_alloc();
    block_ = allocMem(static_cast<unsigned int>(count));
    if (!block_) {
      dropMemory();
      throw std::bad_alloc();
    }
  };
  take(bytes);
  if (misfit(block_, slotSize_) != 0) {
    dropMemory();
    take(bytes + slotSize_ - 1);
  }
  return static_cast<unsigned char*>(block_) + misfit(block_, slotSize_);
}

void qcBasicPelRootPool::dropMemory() noexcept {
  free_.clear();
  size_ = slots_ = 0;
  if (block_) freeMem(std::exchange(block_, nullptr));
  state().memory.reset();
}

void qcBasicPelRootPool::keep(std::shared_ptr<void> memory) noexcept { state().memory = std::move(memory); }

void* qcBasicPelRootPool::allocMem(unsigned int bytes) {
  void *block = nullptr, *start = nullptr;
  if (zrtsys::allocate(bytes, kBlockAlignment, &block, &start) < 0) return nullptr;
  keep(std::shared_ptr<void>(block, &zrtsys::free));
  return start;
}

void qcBasicPelRootPool::freeMem(void*) noexcept {}

// --- roots ----------------------------------------------------------------------------------------------------------

// Pels start at a multiple of their size, which the start of a slot need not be.
std::uint64_t qcBasicPelRootPool::bytesFor(long width, long height, unsigned pelSize) const noexcept {
  const std::uint64_t bytes = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height) * pelSize;
  return bytes == 0 || slotSize_ % pelSize == 0 ? bytes : bytes + pelSize - 1;
}

bool qcBasicPelRootPool::canHold(long width, long height, const std::type_info& type) const noexcept {
  constexpr std::int64_t kLongest = std::numeric_limits<std::int32_t>::max();
  const unsigned pelSize = qc_SlottedPelRoot::pelSize(type);
  return pelSize != 0 && width <= kLongest && height <= kLongest &&
         slotsFor(bytesFor(width, height, pelSize)) <= slots_;
}

qc_SlottedPelRoot* qcBasicPelRootPool::newPelRoot(long width, long height, const std::type_info& type) {
  if (!canHold(width, height, type)) return nullptr;
  const unsigned pelSize = qc_SlottedPelRoot::pelSize(type);
  BasicSlot slot;
  if (!allocPels(bytesFor(width, height, pelSize), slot)) return nullptr;
  try {
    unsigned char* const pels = slot.start + misfit(slot.start, pelSize);
    qc_SlottedPelRoot* const root = qc_SlottedPelRoot::make(type, width, height, width, pels);
    root->slot = slot;
    return root;
  } catch (...) {
    freePels(slot);
    throw;
  }
}

void qcBasicPelRootPool::deletePelRoot(qc_SlottedPelRoot* root) noexcept {
  freePels(root->slot);
  delete root;
}

// --- slots ----------------------------------------------------------------------------------------------------------

// First fit, the front part of the run.
bool qcBasicPelRootPool::allocPels(std::uint64_t bytes, BasicSlot& slot) {
  const std::uint64_t needed = slotsFor(bytes);
  if (needed == 0) return true;
  const auto run = std::find_if(free_.begin(), free_.end(), [=](const BasicSlot& r) { return r.count >= needed; });
  if (run == free_.end()) return false;
  const auto at = run - free_.begin();
  // Giving back must not need memory: between the runs that are taken there is at most one free run each.
  if (free_.capacity() < taken_ + 2) free_.reserve(2 * (taken_ + 2));
  BasicSlot& from = free_[static_cast<std::size_t>(at)];
  slot = {from.start, static_cast<std::uint32_t>(needed)};
  from.start = end(slot);
  from.count -= slot.count;
  if (from.count == 0) free_.erase(free_.begin() + at);
  ++taken_;
  return true;
}

void qcBasicPelRootPool::freePels(const BasicSlot& slot) noexcept {
  if (slot.count == 0) return;
  --taken_;
  auto next = std::upper_bound(free_.begin(), free_.end(), slot,
                               [](const BasicSlot& a, const BasicSlot& b) { return a.start < b.start; });
  const bool joinsNext = next != free_.end() && end(slot) == next->start;
  if (next != free_.begin() && end(next[-1]) == slot.start) {
    next[-1].count += slot.count;
    if (joinsNext) {
      next[-1].count += next->count;
      free_.erase(next);
    }
  } else if (joinsNext) {
    next->start = slot.start;
    next->count += slot.count;
  } else {
    free_.insert(next, slot);
  }
}
