#include "vnxstd/math/xfbase.h"

#include "vnxstd/archive/archive.h"
#include "vnxstd/math/xfcomp.h"

namespace {

// People search logs and old reports for the places named in errors, so these do not follow the source.
constexpr const char* kSource = "std/math/xfbase";
constexpr int kVersionLine = 58;

const qc_Instantiator baseRegistered(typeid(qc2XformBase), nullptr);
const qc_ErrorRegistration<qc2XformDefs::Errors, qc2XformDefs::NotImplemented> errorsRegistered;

}  // namespace

qcPtrHandle<qc2XformBase> qc2XformBase::composeBase(const qc2XformBase& other) const {
  return new qc2XformComposed(*this, other, true, true);
}

qcPtrHandle<qc2XformBase> qc2XformBase::inverseBase() const { throw qc2XformDefs::NotImplemented(); }

qcPtrHandle<qc2XformBase> qc2XformBase::clone() const { throw qc2XformDefs::NotImplemented(); }

void qc2XformBase::mapPoints(const qcVector<2>* in, qcVector<2>* out, std::size_t count) const {
  for (std::size_t i = 0; i < count; ++i) out[i] = mapPoint(in[i]);
}

void qc2XformBase::dispatchSerialize(qcArchive& archive) {
  serializeLevel(archive, this, 0, &qc2XformBase::serialize_);
}

void qc2XformBase::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(version, 0, kSource, kVersionLine);
  qcPersistent::dispatchSerialize(archive);
}
