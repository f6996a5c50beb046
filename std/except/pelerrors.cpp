#include "vnxstd/except/pelerrors.h"

#include <algorithm>
#include <cstdint>

#include "vnxstd/archive/archive.h"

namespace {

const qc_ErrorRegistration<qcPel::Errors, qcPel::UnboundWindow, qcPel::BadWindow, qcPel::DisjointWindows,
                           qcPel::Unknown, qcPel::NonlinearXform, qcPel::BadCoord>
    registeredPel;
const qc_ErrorRegistration<qcPelFunc::Errors, qcPelFunc::Range, qcPelFunc::Overlap, qcPelFunc::BadParams>
    registeredPelFunc;
const qc_ErrorRegistration<qcRectErrors::Errors, qcRectErrors::NoOverlap, qcRectErrors::NegativeSize> registeredRect;
const qc_ErrorRegistration<qcColorSpaceDefs::Errors, qcColorSpaceDefs::BadColorSpace> registeredColorSpace;
const qc_ErrorRegistration<qcPelbufHelper1::Errors, qcPelbufHelper1::qcPelbufTrigger> registeredHelper;

std::int32_t clamped(long value) { return static_cast<std::int32_t>(std::clamp<long>(value, INT32_MIN, INT32_MAX)); }

}  // namespace

qcPel::BadCoord::BadCoord(long x, long y) : x_(clamped(x)), y_(clamped(y)) {}

void qcPel::BadCoord::archiveFields(qcArchive& archive) { archive || x_ || y_; }
