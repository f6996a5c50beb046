#include "vnxstd/vdb/vdbr_com.h"

namespace {

const qc_ErrorRegistration<qcVDBRecordBase::Errors, qcVDBRecordBase::NoResult> registered;

}  // namespace
