#include "vnxstd/math/xfpersp.h"

namespace {

const qc_ErrorRegistration<qc2XformPerspectiveDefs::Errors, qc2XformPerspectiveDefs::BadParams,
                           qc2XformPerspectiveDefs::NumericalError>
    registered;

}  // namespace
