// Polynomial transforms of the plane.
#pragma once

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// Polynomial transforms of the plane.
class VNXSTD_EXPORT qc2XformPoly {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10000F38> {};
  class VNXSTD_EXPORT IllDefined : public qc_ErrorLeaf<IllDefined, Errors, 0x10000F39> {};
};
