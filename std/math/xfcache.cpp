#include "vnxstd/math/xfcache.h"

#include <utility>

#include "vnxstd/archive/archive.h"
#include "vnxstd/except/pelerrors.h"

namespace {

constexpr const char* kSource = "std/math/xflinear";
constexpr int kVersionLine = 318;
constexpr int kAbsentLine = 325;

// One object serves all caches: transforms behind read-only handles never change. Never destroyed, like the pool.
const qc2XformCache::Handle& identity() {
  static const qc2XformCache::Handle& shared = *new qc2XformCache::Handle(new qc2XformLinear);
  return shared;
}

}  // namespace

qc2XformCache::Half::Half(const Handle& xform) : handle(xform), isLinear(xform->isLinear()) {
  if (isLinear) linear = handle->linearXform(qcVector<2>());
}

qc2XformCache::qc2XformCache() : qc2XformCache(identity(), identity()) {}

qc2XformCache::qc2XformCache(const Handle& xform, const Handle& inverse)
    : xform_(xform), inverse_(inverse ? Half(inverse) : Half()) {}

qc2XformCache qc2XformCache::clone() const {
  qc2XformCache copy(*this);
  for (Half* half : {&copy.xform_, &copy.inverse_}) {
    if (half->handle) half->handle = Handle(half->handle->clone());
  }
  return copy;
}

void qc2XformCache::set(Half& half, Half& other, const Handle& xform) {
  half = Half(xform);
  other = Half();
}

const qc2XformLinear& qc2XformCache::linear(const Half& half) {
  if (!half.isLinear) throw qcPel::NonlinearXform();
  return half.linear;
}

qcArchive& operator||(qcArchive& archive, qc2XformCache& cache) {
  unsigned char version = 0;
  archive || version;
  const qcArchiveCompound compound(archive);
  qcArchive::checkVersion(archive, version, 0, kSource, kVersionLine);
  qc2XformCache::Handle xform = cache.xform_.handle, inverse = cache.inverse_.handle;
  bool isLinear = cache.isLinear();
  if (archive.isStoring()) {
    // Those who never set a transform share one without knowing. Stored as a shared object, it would be gone for those
    // loaded after the first when that goes.
    const qc2XformCache::Handle own(new qc2XformLinear);
    for (qc2XformCache::Handle* handle : {&xform, &inverse}) {
      if (*handle == identity()) *handle = own;
    }
  }
  archive || xform || inverse || isLinear;
  if (archive.isLoading()) {
    if (!xform && !inverse) {
      throw archive.located(qcArchive::BadContent(kSource, kAbsentLine), "a transform or its inverse", "neither");
    }
    qc2XformCache loaded;
    loaded.xform_ = xform ? qc2XformCache::Half(xform) : qc2XformCache::Half();
    loaded.inverse_ = inverse ? qc2XformCache::Half(inverse) : qc2XformCache::Half();
    cache = std::move(loaded);
  }
  return archive;
}
