// Run-length encoded images.
#pragma once

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// Run-length encoded images.
class VNXSTD_EXPORT qcRLEBuffer {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT Degenerate : public qc_ErrorLeaf<Degenerate, Errors, 0x10001800> {};
};
