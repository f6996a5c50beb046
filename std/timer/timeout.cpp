#include "vnxstd/timer/timeout.h"

namespace {

const qc_ErrorRegistration<qcTimeout::Errors, qcTimeout::Expired, qcTimeout::InternalExpired, qcTimeout::Cancel>
    registered;

}  // namespace
