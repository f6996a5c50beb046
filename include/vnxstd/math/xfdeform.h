// Errors of deformation transforms.
#pragma once

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// Errors of deformation transforms.
class VNXSTD_EXPORT qc2XformDeformDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10003E00> {};
};
