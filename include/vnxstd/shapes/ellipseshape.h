// What ellipses and elliptic arcs have in common.
#pragma once

#include "vnxstd/export.h"
#include "vnxstd/shapes/shape.h"

namespace qc_shapes {
class EllipseCurve;
}

/// The operations of ellipses, which are regions, and of elliptic arcs, which are open contours. Both are traced by a
/// parameter: an angle on the unit circle, of which the ellipse is an affine image. A position on the perimeter has
/// index 0 and the arc length from the start. Arc lengths are elliptic integrals, evaluated to full precision relative
/// to the larger radius; a length costs about a microsecond, a point at a given length a few.
///
/// An ellipse with a radius of 0 is flat: a segment travelled to and fro, without tangents.
class VNXSTD_EXPORT qc_EllipseShape : public qcShape {
 public:
  bool isOpenContour() const override { return !isRegion(); }
  bool isFinite() const override { return true; }
  bool isEmpty() const override { return false; }
  /// Neither radius is 0, and an arc is no point.
  bool hasTangent() const override;
  qcRect boundingBox() const override;
  /// On an ellipse by Newton's method in the half-angle; among equally near points the one on the side where the
  /// coordinates in a frame along the axes are not negative. On an arc the first along it, where rounding
  /// makes no difference. Within 1e-9 times the larger
  /// radius of the least distance.
  qcVector<2> nearestPoint(const qcVector<2>& p) const override;
  double perimeter() const override;
  qcPerimPos nearestPerimPos(const qcShapeInfo& info, const qcVector<2>& p) const override;
  qcVector<2> startPoint() const override;
  /// Exactly the start after a whole turn.
  qcVector<2> endPoint() const override;
  qcRadian startAngle() const override;
  qcRadian endAngle() const override;
  qcRadian tangentRotation() const override;
  /// Points within rounding of the ellipse count as on it.
  qcRadian windingAngle(const qcVector<2>& p) const override;
  /// The ellipse itself is inside.
  bool within(const qcVector<2>& p) const override;
  qcPtrHandle<qcShape> clip_(const qcPolyline& polygon, qcClipInfo& info) const override;
  /// A qcEllipseArc2.
  qcPtrHandle<qcShape> subShape(const qcShapeInfo& info, const std::pair<qcPerimPos, double>& piece) const override;
  /// One chain, of equal arcs; but where a tolerance is asked for and no spacing, of equal steps of the parameter,
  /// which takes far fewer points on long ellipses. That of an ellipse is closed, has at least 2 points, and does not
  /// repeat the first one; uniform mode is for arcs only and throws qcShapesError::BadParams on ellipses.
  void sample(const qcSampleParams& params, qcSampleResult& result) const override;
  void perimPointAndTangent_(const qcShapeInfo& info, const qcPerimPos& position, qcVector<2>& point,
                             qcRadian* tangent) const override;

 protected:
  qc_EllipseShape() = default;
  virtual qc_shapes::EllipseCurve curve_() const = 0;

 private:
  qc_shapes::EllipseCurve arc() const;
  double placeOn(const qc_shapes::EllipseCurve& curve, const qcPerimPos& position) const;
  double parameterAt(const qc_shapes::EllipseCurve& curve, double distance) const;
};
