// Locks and other resources that threads wait for.
#pragma once

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// Locks and other resources that threads wait for.
class VNXSTD_EXPORT qc_Resource {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT Timeout : public qc_ErrorLeaf<Timeout, Errors, 0x10002100> {};
  class VNXSTD_EXPORT NamedObjectExists : public qc_ErrorLeaf<NamedObjectExists, Errors, 0x10002102> {};
  class VNXSTD_EXPORT NameConflict : public qc_ErrorLeaf<NameConflict, Errors, 0x10002104> {};
  class VNXSTD_EXPORT CreateFailed : public qc_ErrorLeaf<CreateFailed, Errors, 0x10002105> {};
  class VNXSTD_EXPORT BrokenLock : public qc_ErrorLeaf<BrokenLock, Errors, 0x10002106> {};
};
