#include "vnxstd/archive/pool.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

struct qcStoragePool::chunkHead {
  chunkHead* next;
  std::size_t count;

  char* firstBlock() noexcept {
    const auto address = reinterpret_cast<std::uintptr_t>(this + 1);
    return reinterpret_cast<char*>((address + kBlockAlignment - 1) & ~(kBlockAlignment - 1));
  }
};

namespace {

constexpr std::size_t kChunkBytes = 1048576;  // about what the chunks grow up to

}  // namespace

qcStoragePool::qcStoragePool(unsigned blockSize, long initialCount) {
  const auto wanted = static_cast<std::size_t>(std::max(blockSize, 1U));
  if (wanted > std::numeric_limits<std::size_t>::max() - kBlockAlignment) throw std::bad_alloc();
  blockSize_ = (wanted + kBlockAlignment - 1) & ~(kBlockAlignment - 1);
  nextChunkCount_ = static_cast<std::size_t>(std::max(initialCount, 1L));
  maxChunkCount_ = std::max(kChunkBytes / blockSize_, nextChunkCount_);
  addChunk();
}

qcStoragePool::~qcStoragePool() {
  while (chunks_) {
    chunkHead* chunk = chunks_;
    chunks_ = chunk->next;
    ::operator delete(chunk);
  }
}

void qcStoragePool::addChunk() {
  constexpr std::size_t kOverhead = sizeof(chunkHead) + kBlockAlignment - 1;
  const std::size_t count = nextChunkCount_;
  if (count > (static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max()) - kOverhead) / blockSize_) {
    throw std::bad_alloc();
  }
  chunkHead* chunk = new (::operator new(count* blockSize_ + kOverhead)) chunkHead{chunks_, count};
  chunks_ = chunk;
  char* const first = chunk->firstBlock();
  for (std::size_t i = count; i-- > 0;) freeList_ = new (first + i * blockSize_) Block{freeList_};
  nextChunkCount_ = std::min(count <= maxChunkCount_ / 2 ? count * 2 : maxChunkCount_, maxChunkCount_);
}

void* qcStoragePool::alloc() {
  const std::lock_guard guard(lock_);
  if (!freeList_) addChunk();
  Block* const block = freeList_;
  freeList_ = block->next;
  ++outstanding_;
  return block;
}

void qcStoragePool::free(void* block) noexcept {
  if (!block) return;
  const std::lock_guard guard(lock_);
  freeList_ = new (block) Block{freeList_};
  --outstanding_;
}

bool qcStoragePool::autoDelete() const {
  const std::lock_guard guard(lock_);
  return autoDelete_;
}

void qcStoragePool::autoDelete(bool whenEmpty) {
  const std::lock_guard guard(lock_);
  autoDelete_ = whenEmpty;
}

long qcStoragePool::outstanding() const {
  const std::lock_guard guard(lock_);
  return outstanding_;
}

void qcStoragePool::maybeDelete() {
  {
    const std::lock_guard guard(lock_);
    if (!autoDelete_ || outstanding_ != 0) return;
  }
  delete this;
}

void qcStoragePool::relinquish() {
  chunkHead* freed = nullptr;
  {
    const std::lock_guard guard(lock_);
    // The chunks by address, in order, with the number of their blocks that are free.
    struct Census {
      chunkHead* chunk;
      std::size_t free;
    };
    std::size_t total = 0;
    for (chunkHead* chunk = chunks_; chunk; chunk = chunk->next) ++total;
    const std::unique_ptr<Census[]> census(new (std::nothrow) Census[total]);
    if (!census) return;  // nothing can be returned without memory to find out what
    Census* const end = census.get() + total;
    Census* fill = census.get();
    for (chunkHead* chunk = chunks_; chunk; chunk = chunk->next) *fill++ = {chunk, 0};
    const std::less<const void*> before;
    std::sort(census.get(), end, [&](const Census& a, const Census& b) { return before(a.chunk, b.chunk); });
    const auto home = [&](const void* block) -> Census& {
      Census* above = std::upper_bound(census.get(), end, block,
                                       [&](const void* address, const Census& c) { return before(address, c.chunk); });
      return above[-1];
    };
    for (const Block* block = freeList_; block; block = block->next) ++home(block).free;

    Block** link = &freeList_;
    while (*link) {
      const Census& c = home(*link);
      if (c.free == c.chunk->count) {
        *link = (*link)->next;
      } else {
        link = &(*link)->next;
      }
    }
    chunkHead** chunkLink = &chunks_;
    while (*chunkLink) {
      chunkHead* chunk = *chunkLink;
      const Census& c = home(chunk);
      if (c.free == chunk->count) {
        *chunkLink = chunk->next;
        chunk->next = freed;
        freed = chunk;
      } else {
        chunkLink = &chunk->next;
      }
    }
  }
  while (freed) ::operator delete(std::exchange(freed, freed->next));
}
