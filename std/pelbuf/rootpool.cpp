#include "vnxstd/pelbuf/rootpool.h"

#include <utility>

#include "std/pelbuf/rootpoolstate.h"
#include "std/pelbuf/slottedroot.h"

namespace {

const qc_ErrorRegistration<qcPelRootPool::Errors, qcPelRootPool::NotSupported, qcPelRootPool::Outstanding> registered;

}  // namespace

qcPelRootPool::qcPelRootPool() : state_(new qc_PelRootPool(*this)) {}

qcPelRootPool::~qcPelRootPool() = default;

void qcPelRootPool::abandon() noexcept {
  const qcLock guard(state().lock);
  flushLanes();  // idle roots have a share in the state, which would stay for ever
  state().abandon();
}

void qcPelRootPool::flush() {
  const qcLock guard(state().lock);
  flushLanes();
  state().wakeFirst();
}

long qcPelRootPool::waiters() const {
  const qcLock guard(state().lock);
  return state().waiters();
}

void qcPelRootPool::flushLanes() noexcept {
  for (auto& lane : state().lanes) {
    while (lane.newest) {
      qc_SlottedPelRoot& idle = *lane.newest;
      lane.remove(idle);
      notifyRelease(&idle.root());
    }
  }
}

void qcPelRootPool::release(qc_PelRoot* root) noexcept {
  qc_SlottedPelRoot& slotted = qc_SlottedPelRoot::of(*root);
  if (slotted.isIntact()) {
    state().lanes[slotted.lane].push(slotted);
  } else {
    notifyRelease(root);
  }
}

void qcPelRootPool::notifyRelease(qc_PelRoot* root) noexcept {
  qc_SlottedPelRoot& slotted = qc_SlottedPelRoot::of(*root);
  slotted.home.release();
  deletePelRoot(&slotted);
}

qcPtrHandle<qc_PelRoot> qcPelRootPool::take(long width, long height, const std::type_info& type,
                                            const qcDeadline* deadline, const volatile bool* cancel) {
  if (width < 0 || height < 0) throw qcRectErrors::NegativeSize();
  const qcPtrHandle<qc_PelRootPool> shared = state_;  // the pool may go while this thread waits
  std::size_t wanted = 0;
  {
    const qcLock guard(shared->lock);
    if (!canHold(width, height, type)) return nullptr;
    wanted = lane(width, height, type);
  }
  return deadline ? shared->get(wanted, *deadline, cancel) : shared->tryGet(wanted);
}

std::size_t qcPelRootPool::lane(long width, long height, const std::type_info& type) {
  auto& lanes = state().lanes;
  for (std::size_t i = 0; i < lanes.size(); ++i) {
    if (lanes[i].width == width && lanes[i].height == height && *lanes[i].type == type) return i;
  }
  lanes.push_back({width, height, &type});
  return lanes.size() - 1;
}

qc_PelRoot* qcPelRootPool::get(std::size_t lane) {
  auto& lanes = state().lanes;
  auto& own = lanes[lane];
  if (qc_SlottedPelRoot* const idle = own.newest) {
    own.remove(*idle);
    return &idle->root();
  }
  if (!canHold(own.width, own.height, *own.type)) return nullptr;
  std::size_t other = lane;
  for (;;) {
    if (qc_SlottedPelRoot* const made = newPelRoot(own.width, own.height, *own.type)) {
      made->lane = lane;
      made->home = state_;
      return &made->root();
    }
    // Lanes that were found empty stay so while the lock is held.
    while (!lanes[other].oldest) {
      other = (other + 1) % lanes.size();
      if (other == lane) return nullptr;
    }
    qc_SlottedPelRoot& stolen = *lanes[other].oldest;
    lanes[other].remove(stolen);
    notifyRelease(&stolen.root());
  }
}
