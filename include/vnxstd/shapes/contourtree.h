// Contours made of consecutive pieces.
#pragma once

#include "vnxstd/export.h"
#include "vnxstd/shapes/shapetree.h"

/// A contour whose children, open contours, are travelled one after the other. An open one is itself an open contour,
/// and may be a piece of another contour tree; a closed one is a region.
///
/// A child usually starts where the one before it ends. Where it does not, and where a closed contour does not end
/// where it starts, the contour jumps along a straight line: that has no length, no samples and no tangent, but counts
/// for windings and for what is inside. A position on an element without length has the tangent of the contour behind
/// it or else before it, up to a jump. A tree without children is neither open contour nor region.
class VNXSTD_EXPORT qcContourTree : public qcShapeTree {
 public:
  explicit qcContourTree(bool closed = false) : closed_(closed) {}
  /// Shares or copies the children; throws like addChildren.
  qcContourTree(const std::vector<Child>& children, bool closed, bool copyChildren);
  qcContourTree(const qcContourTree&) = default;
  qcContourTree& operator=(const qcContourTree& other);
  static qcPersistent* make();

  bool isClosed() const { return closed_; }
  void isClosed(bool closed);

  qcPtrHandle<qcShapeTree> flatten(bool copyChildren) const override;
  bool isOpenContour() const override { return !closed_ && !isLeaf(); }
  bool isRegion() const override { return closed_ && !isLeaf(); }
  /// Each element is.
  bool isReversible() const override;
  qcVector<2> startPoint() const override;
  qcVector<2> endPoint() const override;
  /// That of the first or last element that has a tangent.
  qcRadian startAngle() const override;
  qcRadian endAngle() const override;
  /// The rotations along the elements, and the turn between each and the next, in [-pi, pi).
  qcRadian tangentRotation() const override;
  /// Where the contour passes a point more than once, the limit from the left of each element. In contours that have
  /// curved pieces, ends that only rounding keeps away from the point lie on it.
  qcRadian windingAngle(const qcVector<2>& p) const override;
  /// The signed area is not negative.
  bool isRightHanded() const override;
  /// The winding angle once round exceeds pi in magnitude: a contour that winds twice still counts as inside, and
  /// points on the contour are inside where the region lies to its left.
  bool within(const qcVector<2>& p) const override;
  /// Samples the elements in order and joins the chains by qfMergeSubchains. Elements of length 0 are left out when
  /// tangents are asked for, and all but the first of a contour that is a single point. In uniform mode see
  /// qfUniformSampleContour.
  void sample(const qcSampleParams& params, qcSampleResult& result) const override;

  /// The signed area that a closed contour encloses, positive when right-handed, and a part that is wound around twice
  /// counts twice. Exact but for rounding for segments, polylines and arcs of ellipses. Throws
  /// qcShapesError::NotRegion.
  double area() const;

 protected:
  bool takesChild_(const qcShape& child) const override { return child.isOpenContour(); }
  qcPtrHandle<qcShapeTree> bareNode_(const Rebuild_& rebuild) const override;
  bool isNested_(const qcShape& child) const override;
  bool equalNode_(const qcShapeTree& that) const override;
  bool isOneContour_() const override { return true; }
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &qcContourTree::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  std::vector<const qcShape*> openElements() const;
  double swept(const qcVector<2>& p) const;

  bool closed_;
};

/// Appends params.maxPoints() points of a contour, which lie in the middles of as many equal arcs along all its
/// elements, as one chain that is closed when the contour is. Appends nothing, and opens no chain, when the contour is
/// empty, or tangents are asked for and it has none. Otherwise like qcShape::sample. Linear in the number of points and
/// elements.
VNXSTD_EXPORT void qfUniformSampleContour(const qcContourTree& contour, const qcShape::qcSampleParams& params,
                                          qcShape::qcSampleResult& result);
