#include "vnxstd/math/error.h"

static const qc_ErrorRegistration<qcMathError::Errors, qcMathError::Singular, qcMathError::NullVector,
                                  qcMathError::DivisionByZero>
    registered;

void qf_throwSingular() { throw qcMathError::Singular(); }
void qf_throwNullVector() { throw qcMathError::NullVector(); }
void qf_throwDivisionByZero() { throw qcMathError::DivisionByZero(); }
void qf_throwInvariantFailure() { throw qcInvariantFailure(); }
