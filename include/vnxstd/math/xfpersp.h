// Errors of perspective transforms; they carry a text.
#pragma once

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// Errors of perspective transforms; they carry a text.
class VNXSTD_EXPORT qc2XformPerspectiveDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors, qcExceptionWithString> {
   protected:
    using qc_ErrorGroup::qc_ErrorGroup;
  };
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10003D00> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  class VNXSTD_EXPORT NumericalError : public qc_ErrorLeaf<NumericalError, Errors, 0x10003D01> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
};
