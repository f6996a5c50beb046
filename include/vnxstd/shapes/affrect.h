// Affine rectangles.
#pragma once

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// Affine rectangles.
class VNXSTD_EXPORT qcAffineRectangle {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadLength : public qc_ErrorLeaf<BadLength, Errors, 0x10002A07> {};
  class VNXSTD_EXPORT BadSkew : public qc_ErrorLeaf<BadSkew, Errors, 0x10002A08> {};
};
