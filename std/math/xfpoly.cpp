#include "vnxstd/math/xfpoly.h"

namespace {

const qc_ErrorRegistration<qc2XformPoly::Errors, qc2XformPoly::BadParams, qc2XformPoly::IllDefined> registered;

}  // namespace
