#include <atomic>
#include <memory>

#include "vnxstd/pelbuf/rootpool.h"
#include "vnxstd/sync/sync.h"
#include "zrtsys/memory.h"

namespace {

constexpr unsigned kSlotSize = 4096, kDefaultSize = 16777216;

// Never destroyed, so that whoever asks when the process is exiting finds a null handle.
qcPtrHandle<qcDefaultPelRootPool>& theHandle() {
  static auto& handle = *new qcPtrHandle<qcDefaultPelRootPool>;
  return handle;
}

struct LetGoAtExit {
  ~LetGoAtExit() { theHandle().release(); }
};

}  // namespace

qcDefaultPelRootPool::qcDefaultPelRootPool(unsigned int size) : qcBasicPelRootPool(0, kSlotSize) {
  qcBasicPelRootPool::size(size);
}

qcDefaultPelRootPool::~qcDefaultPelRootPool() { abandon(); }

void* qcDefaultPelRootPool::allocMem(unsigned int bytes) {
  void* const block = qfPoolAlloc(bytes);
  if (block) keep(std::shared_ptr<void>(block, [](void*) { qfPoolAlloc(0); }));
  return block;
}

const qcPtrHandle<qcDefaultPelRootPool>& qfDefaultPelRootPool() { return qfDefaultPelRootPool(~0u); }

const qcPtrHandle<qcDefaultPelRootPool>& qfDefaultPelRootPool(unsigned int size) {
  static std::atomic<bool> isMade{false};
  qcPtrHandle<qcDefaultPelRootPool>& pool = theHandle();
  if (!isMade.load(std::memory_order_acquire)) {
    const qcLock guard(qcMutex::global());
    if (!isMade.load(std::memory_order_relaxed)) {
      pool = new qcDefaultPelRootPool(size == ~0u ? kDefaultSize : size);
      static const LetGoAtExit letGoAtExit;
      isMade.store(true, std::memory_order_release);
    }
  }
  return pool;
}

unsigned int qfDefaultPelRootPoolSize() noexcept { return kDefaultSize; }
