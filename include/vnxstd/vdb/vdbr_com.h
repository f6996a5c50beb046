// Records of a tool database.
#pragma once

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// Records of a tool database.
class VNXSTD_EXPORT qcVDBRecordBase {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT NoResult : public qc_ErrorLeaf<NoResult, Errors, 0x10000B00> {};
};
