// What rectangles, upright, general and affine, have in common.
#pragma once

#include <array>

#include "vnxstd/export.h"
#include "vnxstd/shapes/shape.h"

class qcPolyline;

/// The operations of regions that are bounded by a parallelogram. The boundary runs through the four corners, in the
/// order in which corners_ gives them; positions on the perimeter have index 0 and the distance from the first corner.
class VNXSTD_EXPORT qc_ParallelogramShape : public qcShape {
 public:
  /// The distance from `p` to the boundary, never negative.
  double distToPoint(const qcVector<2>& p) const;

  bool isOpenContour() const override { return false; }
  bool isRegion() const override { return true; }
  bool isFinite() const override { return true; }
  bool isEmpty() const override { return false; }
  /// Not all corners coincide.
  bool hasTangent() const override;
  bool isDecomposed() const override { return false; }
  bool isReversible() const override { return true; }
  qcRect boundingBox() const override;
  /// The nearest point of the boundary.
  qcVector<2> nearestPoint(const qcVector<2>& p) const override;
  double perimeter() const override;
  /// The sides are inside; exactly, for the corners as they are rounded.
  bool within(const qcVector<2>& p) const override;
  /// The closed polyline through the corners, whose pieces are the sides.
  qcPtrHandle<qcShape> decompose() const override;
  qcPtrHandle<qcShape> clip_(const qcPolyline& polygon, qcClipInfo& info) const override;
  /// Samples the sides like a closed polyline. Throws qcShapesError::BadParams in uniform mode.
  void sample(const qcSampleParams& params, qcSampleResult& result) const override;

 protected:
  qc_ParallelogramShape() = default;
  virtual std::array<qcVector<2>, 4> corners_() const = 0;
  qcPolyline outline_() const;
};
