#include "vnxstd/shapes/affrect.h"

namespace {

const qc_ErrorRegistration<qcAffineRectangle::Errors, qcAffineRectangle::BadLength, qcAffineRectangle::BadSkew>
    registered;

}  // namespace
