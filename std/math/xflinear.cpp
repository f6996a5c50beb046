#include "vnxstd/math/xflinear.h"

#include "vnxstd/archive/archive.h"
#include "vnxstd/archive/pool.h"
#include "vnxstd/math/xfpoly.h"

namespace {

constexpr const char* kSource = "std/math/xflinear";
constexpr int kVersionLine = 143;

constexpr long kFirstBlocks = 64;
static_assert(alignof(qc2XformLinear) <= 8, "the pool aligns its blocks to 8 bytes");

// Never destroyed: objects with static lifetime may hold transforms, and make new ones, until the very end.
qcStoragePool& pool() {
  static qcStoragePool& shared = *new qcStoragePool(sizeof(qc2XformLinear), kFirstBlocks);
  return shared;
}

const qc_Instantiator registered(typeid(qc2XformLinear), &qc2XformLinear::make);

}  // namespace

void* qc2XformLinear::operator new(std::size_t size) {
  return size == sizeof(qc2XformLinear) ? pool().alloc() : ::operator new(size);
}

void qc2XformLinear::operator delete(void* block, std::size_t size) noexcept {
  if (size == sizeof(qc2XformLinear)) {
    pool().free(block);
  } else {
    ::operator delete(block);
  }
}

qcPersistent* qc2XformLinear::make() { return new qc2XformLinear; }

qc2XformLinear qc2XformLinear::linearXform(const qcVector<2>&) const { return *this; }

qcPtrHandle<qc2XformBase> qc2XformLinear::composeBase(const qc2XformBase& other) const {
  if (other.isLinear()) return new qc2XformLinear(compose(other.linearXform(qcVector<2>())));
  if (const auto* poly = dynamic_cast<const qc2XformPoly*>(&other)) return poly->leftCompose(xform_);
  return qc2XformBase::composeBase(other);
}

qcPtrHandle<qc2XformBase> qc2XformLinear::inverseBase() const { return new qc2XformLinear(inverse()); }

qcPtrHandle<qc2XformBase> qc2XformLinear::clone() const { return new qc2XformLinear(*this); }

void qc2XformLinear::mapPoints(const qcVector<2>* in, qcVector<2>* out, std::size_t count) const {
  qfMapPoints(xform_, in, out, count);
}

void qc2XformLinear::dispatchSerialize(qcArchive& archive) {
  serializeLevel(archive, this, 0, &qc2XformLinear::serialize_);
}

void qc2XformLinear::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, kSource, kVersionLine);
  qc2XformBase::dispatchSerialize(archive);
  qcVector<2> trans = xform_.trans();
  qcMatrix<2> matrix = xform_.matrix();
  archive || trans || matrix;
  if (archive.isLoading()) xform_ = qcXform<2>(matrix, trans);
}
