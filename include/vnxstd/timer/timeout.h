// Time limits on the waits of a thread.
#pragma once

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// Time limits on the waits of a thread.
class VNXSTD_EXPORT qcTimeout {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT Expired : public qc_ErrorLeaf<Expired, Errors, 0x10001500> {};
  class VNXSTD_EXPORT InternalExpired : public qc_ErrorLeaf<InternalExpired, Errors, 0x10001501> {};
  class VNXSTD_EXPORT Cancel : public qc_ErrorLeaf<Cancel, Errors, 0x10001502> {};
};
