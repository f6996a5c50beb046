// Regions with holes, and islands in them.
#pragma once

#include <cstdint>

#include "vnxstd/export.h"
#include "vnxstd/shapes/shapetree.h"

class qcGeneralShapeTree;

/// A region that one closed shape bounds, less the regions of its children: these are region trees in turn, holes in an
/// island and islands in a hole, each inside the boundary above it. A child that is no region tree, is of the same kind
/// as its parent or is not inside the parent's boundary throws qcShapesError::BadGeom.
///
/// Inside means that the boundaries may touch, and overlap within kNesting of the parent's size. For straight
/// boundaries this is decided edge by edge; where a boundary is curved, a place where the child reaches out along less
/// than a thousandth of the parent's size and has no corner, may be missed. Whether children overlap each other is not
/// looked at: their regions are all left out, but what lies in two that clip cuts becomes inside. Loaded trees are
/// trusted to be nested well; whatever a file holds, every question has one answer, and what is outside a boundary is
/// outside the regions in it.
///
/// A node that is asked for itself answers for the region inside its own boundary, whether it is a hole or an island:
/// that decides in which direction its boundaries are travelled. Directions of the boundary shapes themselves do not
/// matter.
class VNXSTD_EXPORT qcRegionTree : public qcShapeTree {
 public:
  /// How far a child may reach across its parent's boundary, relative to the parent's largest coordinate.
  static constexpr double kNesting = 1e-9;

  /// Where a point lies: see classify.
  enum class Place : std::int32_t { outside = 0, inside = 1, boundary = 2 };

  /// An empty region: no boundary, no children, and none can be added.
  qcRegionTree() = default;
  /// A region of its own, bounded by a copy of the shape. Throws qcShapesError::BadGeom when it is a tree other than a
  /// contour tree, mapped or not, and NotRegion when it is not closed; the second form qcBadPointer for null.
  explicit qcRegionTree(const qcShape& boundary, bool isHole = false);
  explicit qcRegionTree(const Child& boundary, bool isHole = false);
  qcRegionTree(const qcRegionTree&) = default;
  qcRegionTree& operator=(const qcRegionTree& other);
  static qcPersistent* make();

  /// Throws qcShapesError::EmptyShape when there is no boundary.
  const qcShape& boundary() const;
  /// Takes a copy of the shape. Throws like the constructor, and BadGeom when a child would not be inside. A tree that
  /// holds this one is not looked at.
  void boundary(const qcShape& boundary);
  void boundary(const Child& boundary);
  /// Whether the node removes area from its parent.
  bool isHole() const { return hole_; }
  /// The orientation that the boundary shape had when it was set.
  bool boundaryRightHanded() const { return boundaryRightHanded_; }
  /// Whether the node is a region of its own and not part of another. Children are held with this flag cleared: one
  /// that has it set is not shared itself, only its boundary and children are.
  bool isRoot() const { return root_; }
  const qcRegionTree& child(long index) const;

  /// Where a point lies: on the boundary, when it is no further than `tolerance` from that of any node whose region it
  /// could be in; else inside, when it lies inside the own boundary and in no child's region; else outside. With a
  /// tolerance of 0 the boundary are only those points whose nearest point is computed to be themselves. The straight
  /// lines along which contour trees jump bound what is inside, but are not measured for the tolerance. Throws
  /// qcShapesError::BadParams for a tolerance that is negative or NaN.
  Place classify(const qcVector<2>& p, double tolerance = 0) const;

  /// The same region with holes for islands and islands for holes at every level.
  qcPtrHandle<qcRegionTree> flip() const;
  /// The boundary shapes of all nodes, each before those below it, shared with this tree.
  qcPtrHandle<qcGeneralShapeTree> unregionize() const;

  qcPtrHandle<qcShapeTree> flatten(bool copyChildren) const override;
  bool isOpenContour() const override { return false; }
  bool isRegion() const override { return !isEmpty(); }
  bool isEmpty() const override { return boundary_.isNull(); }
  /// That of the boundary of this node.
  qcRect boundingBox() const override;
  /// The node is not a hole.
  bool isRightHanded() const override;
  /// Classified as inside: a point on a boundary is not.
  bool within(const qcVector<2>& p) const override;
  /// flip with every boundary reversed, where it is reversible.
  qcPtrHandle<qcShape> reverse() const override;
  bool isMultipleContours_() const override { return !isLeaf(); }
  /// A closed chain for each boundary: right-handed for an island, left-handed for a hole. Throws
  /// qcShapesError::BadParams in uniform mode.
  void sample(const qcSampleParams& params, qcSampleResult& result) const override;
  void heldShapes_(std::vector<const qcShape*>& held) const override;

  /// The same tree around other boundaries: those that `made` gives for each of these, which are to be regions, and are
  /// trusted to be nested well. With `flipped`, with holes for islands and islands for holes.
  qcPtrHandle<qcRegionTree> around_(const std::function<qcPtrHandle<qcShape>(const qcShape& boundary)>& made,
                                    bool flipped) const;

  /// Lets go of the boundary, too.
  void preLoad() override;

 protected:
  bool takesChild_(const qcShape& child) const override;
  Child heldChild_(const Child& child, bool copyChild) const override;
  qcPtrHandle<qcShapeTree> bareNode_(const Rebuild_& rebuild) const override;
  void ownElements_(std::vector<const qcShape*>& elements) const override;
  bool isNested_(const qcShape& child) const override;
  bool equalNode_(const qcShapeTree& that) const override;
  std::uint64_t ownNodes_() const override;
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &qcRegionTree::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  std::vector<const qcRegionTree*> nodes() const;

  Child boundary_;
  bool hole_ = false;
  bool boundaryRightHanded_ = true;
  bool root_ = true;
};
