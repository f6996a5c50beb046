// Shapes seen through a transform.
#pragma once

#include <memory>

#include "vnxstd/archive/handle.h"
#include "vnxstd/export.h"
#include "vnxstd/math/xfbase.h"
#include "vnxstd/math/xflinear.h"
#include "vnxstd/shapes/shape.h"

namespace qc_shapes {
class MappedCurve;
}

/// A shape that is kept as it is, together with a transform of any kind: the image of the shape under the transform. It
/// can be mapped, reversed and cut into pieces, and archived, without being rebuilt; the transform is applied when a
/// question needs it.
///
/// The shape may be a mapped one itself. What the shapes held one in the other come down to is the underlying shape,
/// which is no mapped one, and the overall transform, which carries it to this one's coordinates.
///
/// When the overall transform is linear, answers are those of the explicit shape, unless said otherwise. When it is
/// not, the image of the boundary is followed, cut into parts so small that the transform's own bound for how much it
/// bends (qc2XformBase::bendBound) tells how far each is from a straight one: nothing between two samples is
/// overlooked, except with transforms that do not know their bound. Coordinates of boxes and distances to nearest
/// points are within kPrecision, relative to the size of the image; points within kOnBoundary of the boundary count as
/// on it. Lengths are integrated numerically, to about 1e-10. Transforms are taken to be one to one on the shape: a
/// region whose image overlaps itself has no well-defined inside.
///
/// Positions on the perimeter have the same pieces as on the underlying shape.
///
/// An underlying infinite line can be asked for nothing that depends on its points unless the overall transform is
/// linear: qcShapesError::InfiniteExtent. Errors of the transform at a point of the shape reach whoever asks:
/// qc2XformPerspectiveDefs::NumericalError where the shape crosses the line at infinity. The same is thrown where the
/// image bends so much, as far as the bound tells, that a question would take more than some 30000 parts, or a million
/// samples, and some thousands for each piece: no transform takes all memory. What is asked of one without a shape
/// throws qcBadPointer; it can be copied, cloned, compared and archived all the same. Nothing is changed by what
/// throws.
///
/// What questions compute is kept, until the shape or the transform is set; copies compute it anew. Several threads may
/// ask at once, without a lock; what two compute at the same time is computed twice. Shapes that are held are not to be
/// changed by others.
class VNXSTD_EXPORT qcMappedShape : public qcShape {
 public:
  using Held = qcPtrHandle_const<qcShape>;
  using Xform = qcPtrHandle_const<qc2XformBase>;

  /// Shares of the size of the image, which is the diagonal of its bounding box.
  static constexpr double kPrecision = 1e-8, kOnBoundary = 1e-10;
  /// How far decompose, and so clip, deviate from the image, relative to its size, when the transform is not linear.
  static constexpr double kDecomposed = 1e-6;
  /// Within which perimeter takes a transform for a similarity.
  static constexpr double kAspectTolerance = 0.03, kShearTolerance = 0.015707963267948967;  // the latter pi / 200

  /// No shape, and the identity.
  qcMappedShape();
  /// Shares the shape and keeps a copy of the transform. With `collapse`, a mapped shape is not held itself: what it
  /// comes down to is, with this transform composed after its overall transform. Throws qcBadPointer for null.
  qcMappedShape(const Held& shape, const qc2XformBase& xform, bool collapse);
  qcMappedShape(const qcMappedShape& other);
  /// Throws qcShapesError::BadGeom when the other shape holds this one.
  qcMappedShape& operator=(const qcMappedShape& other);
  ~qcMappedShape() override;
  static qcPersistent* make();

  /// The shape that is mapped.
  const Held& shape() const { return shape_; }
  /// Throws qcBadPointer for null, qcShapesError::BadGeom for a shape that is this one or holds it.
  void shape(const Held& shape);
  const Xform& mapXform() const { return xform_; }
  /// Keeps a copy.
  void mapXform(const qc2XformBase& xform);

  const Held& underlyingShape() const;
  const Xform& overallMapXform() const;
  /// The expansion of the overall transform at a point of the underlying shape's coordinates, and at its reference
  /// point: the centre of its bounding box, which is not asked for when the overall transform is linear.
  qc2XformLinear overallMapXformLinear(const qcVector<2>& at) const;
  qc2XformLinear overallMapXformLinear() const;
  /// The underlying shape carried through that expansion: the image itself when the overall transform is linear, what
  /// it nearly is near the point when it is not. Where the expansion mirrors, it is travelled in the mirrored direction
  /// all the same: a circle becomes a left-handed qcEllipse2, and a region tree one with holes for islands.
  Held explicitShape(const qcVector<2>& at) const;
  Held explicitShape() const;

  /// Copies the shape and the transform.
  qcPtrHandle<qcShape> clone() const override;

  // These are the underlying shape's.

  bool isOpenContour() const override { return underlyingShape()->isOpenContour(); }
  bool isRegion() const override { return underlyingShape()->isRegion(); }
  bool isFinite() const override { return underlyingShape()->isFinite(); }
  bool isEmpty() const override { return underlyingShape()->isEmpty(); }
  bool hasTangent() const override { return underlyingShape()->hasTangent(); }
  bool isDecomposed() const override { return underlyingShape()->isDecomposed(); }
  bool isReversible() const override { return underlyingShape()->isReversible(); }
  bool isMultipleContours_() const override { return underlyingShape()->isMultipleContours_(); }

  qcRect boundingBox() const override;
  qcVector<2> nearestPoint(const qcVector<2>& p) const override;
  /// A quick estimate by the expansion E at the reference point: where E is nearly a similarity, the perimeter of the
  /// underlying shape times its scale, else the perimeter of the explicit shape. The information of the shape has its
  /// true length.
  double perimeter() const override;
  qcPerimPos nearestPerimPos(const qcShapeInfo& info, const qcVector<2>& p) const override;
  qcVector<2> startPoint() const override;
  qcVector<2> endPoint() const override;
  /// These throw qcShapesError::NoTangent where the image stands still.
  qcRadian startAngle() const override;
  qcRadian endAngle() const override;
  /// A place where the image turns back counts as a corner, whose turn is in [-pi, pi).
  qcRadian tangentRotation() const override;
  qcRadian windingAngle(const qcVector<2>& p) const override;
  /// The underlying shape's, inverted when the expansion at the reference point mirrors.
  bool isRightHanded() const override;
  /// Points on the boundary are inside, except that of a region tree.
  bool within(const qcVector<2>& p) const override;
  /// This shape with the transform composed after its own.
  qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const override;
  /// The underlying shape reversed, with the overall transform.
  qcPtrHandle<qcShape> reverse() const override;
  /// That of the explicit shape, or outlines within kDecomposed of the image: one for each contour, several in a
  /// qcGeneralShapeTree, those of a region tree in a qcRegionTree. An outline is a qcPolyline, or a qcContourTree of
  /// several where the contour jumps.
  qcPtrHandle<qcShape> decompose() const override;
  /// The image of a piece of the underlying shape.
  qcPtrHandle<qcShape> subShape(const qcShapeInfo& info, const std::pair<qcPerimPos, double>& piece) const override;
  /// What lies inside wholly is given as a copy of this shape; else that of decompose is clipped.
  qcPtrHandle<qcShape> clip_(const qcPolyline& polygon, qcClipInfo& info) const override;
  /// Where a spacing is asked for, equal arcs of the image of each piece; where a tolerance is, these are halved until
  /// they deviate no further. The images of smooth closed shapes do not repeat their first point. Uniform mode is for
  /// what the underlying shape has it for.
  void sample(const qcSampleParams& params, qcSampleResult& result) const override;
  bool equal_(const qcShape& that) const override;
  void perimPointAndTangent_(const qcShapeInfo& info, const qcPerimPos& position, qcVector<2>& point,
                             qcRadian* tangent) const override;
  void pieceLengths_(std::vector<double>& lengths) const override;
  void heldShapes_(std::vector<const qcShape*>& held) const override;

  /// Lets go of the shape: loading that throws leaves none.
  void preLoad() override;

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &qcMappedShape::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  struct Found;

  qcMappedShape(const Held& shape, const Xform& xform);

  void dropCaches();
  const qcShape* exact() const;
  const qc_shapes::MappedCurve& curve() const;

  Held shape_;
  Xform xform_;
  std::unique_ptr<Found> found_;  // never null
};

/// Whether a linear transform keeps angles, up to a mirroring: its aspect is within `aspectTol` of 1 or -1, and its
/// shear within `shearTol` of 0 or pi. False for singular transforms.
VNXSTD_EXPORT bool qfIsAnglePreserving(const qc2XformLinear& xform, double aspectTol, double shearTol);
