#include "vnxstd/rlebuf/rlebuf.h"

namespace {

const qc_ErrorRegistration<qcRLEBuffer::Errors, qcRLEBuffer::Degenerate> registered;

}  // namespace
