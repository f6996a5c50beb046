// Collections of shapes.
#pragma once

#include "vnxstd/export.h"
#include "vnxstd/shapes/shapetree.h"

/// Any shapes, in order, without constraint: neither an open contour nor a region, whatever they are.
class VNXSTD_EXPORT qcGeneralShapeTree : public qcShapeTree {
 public:
  qcGeneralShapeTree() = default;
  /// Shares or copies the children; throws like addChildren.
  qcGeneralShapeTree(const std::vector<Child>& children, bool copyChildren);
  static qcPersistent* make();

  /// Joins open contours: where one ends and another starts, at most `tolerance` apart, they become pieces of a contour
  /// tree, which is closed when it ends where it starts. Of several that start there the first is taken. Directions are
  /// kept. Everything else stays as it is; nested collections are dissolved, and a contour stands where the first of
  /// its pieces stood. Shapes are shared with this tree. Throws qcShapesError::BadParams for a tolerance that is
  /// negative or NaN. Takes time in proportion to n log n; with a tolerance, where few contours start close together.
  qcPtrHandle<qcGeneralShapeTree> connect(double tolerance = 0) const;

  /// Contours become the open shapes that they consist of, regions their boundaries.
  qcPtrHandle<qcShapeTree> flatten(bool copyChildren) const override;
  bool isOpenContour() const override { return false; }
  bool isRegion() const override { return false; }
  /// All elements are.
  bool isFinite() const override;
  bool isReversible() const override;
  /// More than one element, or one that has several.
  bool isMultipleContours_() const override;
  /// Samples the elements in order, each of which has chains of its own. Throws qcShapesError::BadParams in uniform
  /// mode. Elements of length 0 are left out when tangents are asked for, unless there is nothing else.
  void sample(const qcSampleParams& params, qcSampleResult& result) const override;

  /// The same collections of other shapes: those that `made` gives for each shape in them that is no collection.
  qcPtrHandle<qcShape> ofShapes_(const std::function<qcPtrHandle<qcShape>(const qcShape& shape)>& made) const;

 protected:
  bool takesChild_(const qcShape&) const override { return true; }
  qcPtrHandle<qcShapeTree> bareNode_(const Rebuild_& rebuild) const override;
  bool isNested_(const qcShape& child) const override;
  void dispatchSerialize(qcArchive& archive) override {
    serializeLevel(archive, this, 0, &qcGeneralShapeTree::serialize_);
  }
  void serialize_(qcArchive& archive, unsigned char version);
};
