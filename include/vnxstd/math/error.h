// The errors of vectors, matrices and transforms.
#pragma once

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

class VNXSTD_EXPORT qcMathError {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// An inverse or a decomposition of a matrix whose determinant is exactly 0.
  class VNXSTD_EXPORT Singular : public qc_ErrorLeaf<Singular, Errors, 0x10000F00> {};
  /// The direction of a vector whose elements are all exactly 0.
  class VNXSTD_EXPORT NullVector : public qc_ErrorLeaf<NullVector, Errors, 0x10000F01> {};
  /// An integer division by zero.
  class VNXSTD_EXPORT DivisionByZero : public qc_ErrorLeaf<DivisionByZero, Errors, 0x10000F02> {};
};

// Each throws the error that it names, out of line so that inline arithmetic stays small.
[[noreturn]] VNXSTD_EXPORT void qf_throwSingular();
[[noreturn]] VNXSTD_EXPORT void qf_throwNullVector();
[[noreturn]] VNXSTD_EXPORT void qf_throwDivisionByZero();
[[noreturn]] VNXSTD_EXPORT void qf_throwInvariantFailure();
