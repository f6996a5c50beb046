// The errors of all shape code.
#pragma once

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// Owns the errors of the shapes. Numbers ending in 00 to 0F are about invalid geometry, 10 to 1F about indices and
/// parameters, 20 to 2F about asking a shape for what it cannot answer, 30 to 3F about the definition of curves.
class VNXSTD_EXPORT qcShapesError {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {
   protected:
    Errors() = default;
  };

  /// Geometry collapses: zero length, zero direction, coincident defining points.
  class VNXSTD_EXPORT DegenerateShape : public qc_ErrorLeaf<DegenerateShape, Errors, 0x10002A00> {};
  /// The intersection of parallel lines was asked for.
  class VNXSTD_EXPORT LinesParallel : public qc_ErrorLeaf<LinesParallel, Errors, 0x10002A01> {};
  /// A radius is negative, infinite or no number.
  class VNXSTD_EXPORT BadRadius : public qc_ErrorLeaf<BadRadius, Errors, 0x10002A02> {};
  /// Shapes that must share a centre do not.
  class VNXSTD_EXPORT NotConcentric : public qc_ErrorLeaf<NotConcentric, Errors, 0x10002A03> {};
  /// Invalid coefficients of a conic or a curve.
  class VNXSTD_EXPORT BadCoef : public qc_ErrorLeaf<BadCoef, Errors, 0x10002A04> {};
  /// Inconsistent geometric parameters.
  class VNXSTD_EXPORT BadGeom : public qc_ErrorLeaf<BadGeom, Errors, 0x10002A05> {};
  /// A quantity in an unsuitable unit or of unsuitable magnitude.
  class VNXSTD_EXPORT BadUnit : public qc_ErrorLeaf<BadUnit, Errors, 0x10002A06> {};
  /// The index of a vertex, piece or child is out of range.
  class VNXSTD_EXPORT BadIndex : public qc_ErrorLeaf<BadIndex, Errors, 0x10002A10> {};
  /// Invalid sampling or other parameters.
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10002A11> {};
  /// The operation needs a shape of finite extent.
  class VNXSTD_EXPORT InfiniteExtent : public qc_ErrorLeaf<InfiniteExtent, Errors, 0x10002A20> {};
  /// Asked of a shape that is not an open contour.
  class VNXSTD_EXPORT NotOpenContour : public qc_ErrorLeaf<NotOpenContour, Errors, 0x10002A21> {};
  /// Asked of a shape that is not a region.
  class VNXSTD_EXPORT NotRegion : public qc_ErrorLeaf<NotRegion, Errors, 0x10002A22> {};
  /// Sampling would need more points than allowed.
  class VNXSTD_EXPORT SampleOverflow : public qc_ErrorLeaf<SampleOverflow, Errors, 0x10002A23> {};
  /// A tangent was asked for where none is defined.
  class VNXSTD_EXPORT NoTangent : public qc_ErrorLeaf<NoTangent, Errors, 0x10002A24> {};
  /// The operation needs a shape that has points.
  class VNXSTD_EXPORT EmptyShape : public qc_ErrorLeaf<EmptyShape, Errors, 0x10002A25> {};
  /// The shape cannot be traversed the other way.
  class VNXSTD_EXPORT NotReversible : public qc_ErrorLeaf<NotReversible, Errors, 0x10002A26> {};
  /// The weight of a curve is zero or negative.
  class VNXSTD_EXPORT NonpositiveWeight : public qc_ErrorLeaf<NonpositiveWeight, Errors, 0x10002A30> {};
  /// Two defining points that must differ coincide.
  class VNXSTD_EXPORT CoincidentShapePoints : public qc_ErrorLeaf<CoincidentShapePoints, Errors, 0x10002A31> {};
  /// The operation is not provided for this shape.
  class VNXSTD_EXPORT NotImplemented : public qc_ErrorLeaf<NotImplemented, Errors, 0x10002AFF> {};
};
