#include "vnxstd/sync/sync.h"

namespace {

const qc_ErrorRegistration<qc_Resource::Errors, qc_Resource::Timeout, qc_Resource::NamedObjectExists,
                           qc_Resource::NameConflict, qc_Resource::CreateFailed, qc_Resource::BrokenLock>
    registered;

}  // namespace
