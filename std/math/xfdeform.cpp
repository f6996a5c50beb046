#include "vnxstd/math/xfdeform.h"

namespace {

const qc_ErrorRegistration<qc2XformDeformDefs::Errors, qc2XformDeformDefs::BadParams> registered;

}  // namespace
