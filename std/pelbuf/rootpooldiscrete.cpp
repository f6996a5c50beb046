#include <algorithm>
#include <cstdint>
#include <limits>

#include "std/pelbuf/slottedroot.h"
#include "vnxstd/pelbuf/rootpool.h"

namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();

std::vector<void*> listed(void** arrays, long count) {
  if (count < 0 || count > kMost || (count > 0 && !arrays)) throw qcPelFunc::BadParams();
  return std::vector<void*>(arrays, arrays + count);
}

}  // namespace

qcDiscretePelRootPool::qcDiscretePelRootPool(long arraySize, void** arrays, long count, long minRowBytes,
                                             long rowGranularity)
    : qcDiscretePelRootPool(arraySize, listed(arrays, count), minRowBytes, rowGranularity) {}

qcDiscretePelRootPool::qcDiscretePelRootPool(long arraySize, const std::vector<void*>& arrays, long minRowBytes,
                                             long rowGranularity)
    : arrays_(arrays), inUse_(arrays.size()), minRowBytes_(minRowBytes), rowGranularity_(rowGranularity) {
  const bool isSound = arraySize >= 0 && arraySize <= kMost && minRowBytes >= 0 && minRowBytes <= kMost &&
                       rowGranularity >= 1 && rowGranularity <= kMost &&
                       std::find(arrays.begin(), arrays.end(), nullptr) == arrays.end();
  if (!isSound) throw qcPelFunc::BadParams();
  arraySize_ = static_cast<std::int32_t>(arraySize);
}

qcDiscretePelRootPool::~qcDiscretePelRootPool() { abandon(); }

void qcDiscretePelRootPool::size(unsigned int) { throw NotSupported(); }

std::size_t qcDiscretePelRootPool::size() const { return static_cast<std::size_t>(arraySize_) * arrays_.size(); }

std::int64_t qcDiscretePelRootPool::rowBytes(long width, unsigned pelSize) const noexcept {
  const std::int64_t bytes = std::max(static_cast<std::int64_t>(width) * pelSize, minRowBytes_);
  return (bytes + rowGranularity_ - 1) / rowGranularity_ * rowGranularity_;
}

/// Where the pels of such a root start in an array: at a multiple of their size. Null when they do not fit.
void* qcDiscretePelRootPool::place(std::size_t array, long width, long height, unsigned pelSize) const noexcept {
  const std::uintptr_t excess = reinterpret_cast<std::uintptr_t>(arrays_[array]) % pelSize;
  const auto skipped = static_cast<std::int64_t>(excess == 0 ? 0 : pelSize - excess);
  const bool fits = width == 0 || height == 0 || rowBytes(width, pelSize) <= (arraySize_ - skipped) / height;
  return fits ? static_cast<unsigned char*>(arrays_[array]) + skipped : nullptr;
}

bool qcDiscretePelRootPool::canHold(long width, long height, const std::type_info& type) const noexcept {
  const unsigned pelSize = qc_SlottedPelRoot::pelSize(type);
  if (pelSize == 0 || width > kMost || height > kMost) return false;
  for (std::size_t i = 0; i < arrays_.size(); ++i) {
    if (place(i, width, height, pelSize)) return true;
  }
  return false;
}

qc_SlottedPelRoot* qcDiscretePelRootPool::newPelRoot(long width, long height, const std::type_info& type) {
  if (!canHold(width, height, type)) return nullptr;
  const unsigned pelSize = qc_SlottedPelRoot::pelSize(type);
  for (std::size_t i = 0; i < arrays_.size(); ++i) {
    void* const pels = inUse_[i] ? nullptr : place(i, width, height, pelSize);
    if (!pels) continue;
    const auto rowUpdate = static_cast<long>(rowBytes(width, pelSize) / pelSize);
    qc_SlottedPelRoot* const root = qc_SlottedPelRoot::make(type, width, height, rowUpdate, pels);
    root->array = i;
    inUse_[i] = true;
    return root;
  }
  return nullptr;
}

void qcDiscretePelRootPool::deletePelRoot(qc_SlottedPelRoot* root) noexcept {
  inUse_[root->array] = false;
  delete root;
}
