#include "vnxstd/pelbuf/rootpool.h"

namespace {

const qc_ErrorRegistration<qcPelRootPool::Errors, qcPelRootPool::NotSupported, qcPelRootPool::Outstanding> registered;

}  // namespace
