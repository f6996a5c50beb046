#include "vnxstd/archive/persistent.h"

#include "std/archive/format.h"
#include "std/archive/index.h"
#include "std/archive/observed.h"
#include "std/archive/visited.h"
#include "vnxstd/archive/archive.h"

qcPersistent::~qcPersistent() {
  // An archive on another thread may just have let go of the object: that comes before the memory is given back.
  if (held_.load(std::memory_order_acquire) != 0) qc_HeldTable::forget(this);
}

void qcPersistent::mutating_() { qc_HeldTable::forgetStored(this); }

void qcPersistent::preLoad() {}

bool qcPersistent::loadLegacy(qcArchive&) { return false; }

bool qcPersistent::enterLevel(qcArchive& archive, const void* address, unsigned size, const std::type_info* level,
                              unsigned char& version) {
  if (qc_Visited::contains(address, size, level)) return false;
  if (!archive.observed([&] { archive || version; },
                        [&](auto& observer, auto span) { observer.beginLevel(span, *level, version); })) {
    archive || version;
  }
  return true;
}

void qcPersistent::leaveLevel(qcArchive& archive, const void* address, unsigned size, const std::type_info* level) {
  qc_Visited::add(address, size, level);
  if (archive.observer_ && archive.isLoading()) archive.observer_->endLevel();
}

bool qcPersistent::haveVisited(const void* address, unsigned size, const std::type_info* level) {
  return qc_Visited::contains(address, size, level);
}

void qcPersistent::setVisited(const void* address, unsigned size, const std::type_info* level) {
  qc_Visited::add(address, size, level);
}

void qcPersistent::dispatchSerialize(qcArchive& archive) {
  unsigned char version = 0;
  if (!enterLevel(archive, this, sizeof(qcPersistent), &typeid(qcPersistent), version)) return;
  qcArchive::checkVersion(archive, version, 0, "qcPersistent", 0);
  leaveLevel(archive, this, sizeof(qcPersistent), &typeid(qcPersistent));
}

void qcPersistent::serialize(qcArchive& archive, int flag) {
  if (archive.isLoading() && flag != 0) preLoad();
  const qc_Visited::Frame frame;
  dispatchSerialize(archive);
}

void qcPersistent::serializeObject(qcArchive& archive, qcPersistent& object) {
  archive.index_->serializeObject(object);
}

void qcPersistent::serializePointer(qcArchive& archive, qcPersistent* in, qcPersistent*& out) {
  if (archive.isStoring()) {
    archive.index_->storePointer(in);
  } else {
    out = archive.index_->loadPointer(nullptr).object;
  }
}

void* qf_SerializeTypedPointer(qcArchive& archive, qcPersistent* in, qc_PointerCast cast) {
  if (archive.isLoading()) return archive.index_->loadPointer(cast).typed;
  archive.index_->storePointer(in);
  return nullptr;
}

void* qf_SerializeOwnedPointer(qcArchive& archive, qcPersistent* in, qc_PointerCast cast) {
  if (archive.isLoading()) return archive.index_->loadPointer(cast, true).typed;
  archive.index_->storePointer(in, true);
  return nullptr;
}

qcArchive& operator||(qcArchive& archive, qcPersistent& object) {
  qcPersistent::serializeObject(archive, object);
  return archive;
}

qcArchive& operator>>(qcArchive& archive, qcPersistent& object) { return archive || object; }

qcArchive& operator<<(qcArchive& archive, const qcPersistent& object) {
  return archive || const_cast<qcPersistent&>(object);
}
