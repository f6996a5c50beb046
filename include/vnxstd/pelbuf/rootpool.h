// Pools of pixel storage.
#pragma once

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// Pools of pixel storage.
class VNXSTD_EXPORT qcPelRootPool {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT NotSupported : public qc_ErrorLeaf<NotSupported, Errors, 0x1000098C> {};
  class VNXSTD_EXPORT Outstanding : public qc_ErrorLeaf<Outstanding, Errors, 0x1000098D> {};
};
