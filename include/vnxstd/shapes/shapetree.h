// Shapes that consist of other shapes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "vnxstd/export.h"
#include "vnxstd/shapes/shape.h"

/// A shape that is made of child shapes, in order: a contour of consecutive pieces, a region with holes and islands, or
/// any collection. Children may be trees themselves, to any depth: no operation recurses from level to level, except
/// that archives have a limit on nesting, and that trees in trees that are seen through transforms are decomposed level
/// by level.
///
/// Children are shared and not changed through the tree. Each operation that takes a child can share it, where it is
/// given by handle, or take a deep copy. Whoever changes a shape that a tree shares is responsible for what the tree
/// requires of it. A tree can be shared by several others, but cannot contain itself, directly or through other shapes.
/// Copies of a tree share its children; clone() copies them too, each once.
///
/// Points, lengths, positions and samples of a tree are those of its elements, in order: for contours and collections
/// the shapes that remain when nested contours, or collections, are replaced by their children, for regions the
/// boundaries of all nodes, each before those below it. Elements that are empty do not count. Positions on the
/// perimeter have the number of the piece as index, counted through all elements, whether these are decomposed or count
/// as one piece each. Queries are linear in the number of elements at least.
class VNXSTD_EXPORT qcShapeTree : public qcShape {
 public:
  using Child = qcPtrHandle_const<qcShape>;

  /// How many nodes an archived tree may have, shared ones counted each time that they are reached, those of mapped
  /// trees as well. Storing or loading more throws qcArchive::BadContent: a few hundred bytes would otherwise stand for
  /// more work than anyone can do.
  static constexpr std::uint64_t kMaxArchived = 1U << 20U;

  ~qcShapeTree() override;

  const std::vector<Child>& children() const { return children_; }
  long numChildren() const { return static_cast<long>(children_.size()); }
  /// The tree has no children.
  bool isLeaf() const { return children_.empty(); }
  /// Throws qcShapesError::BadIndex for an index below 0 or not below the number of children.
  const qcShape& child(long index) const;
  /// The number of nodes: this one and its children, or when `recursive` all those below it. A shape that is no tree is
  /// one node; a shared one counts each time.
  long size(bool recursive) const;
  /// The number of levels below this one: 0 for a leaf.
  long height() const;
  /// A tree of the same kind and meaning without nested trees: its children are the shapes that they consist of, copied
  /// or shared. A region tree keeps its nodes, and has boundaries without nested trees.
  virtual qcPtrHandle<qcShapeTree> flatten(bool copyChildren) const = 0;

  // Editing. Every change is made completely or not at all. Without a handle a copy is taken; with one, `copyChild`
  // tells whether the child is copied or shared. Insertion puts children before the given index, which may be the
  // number of children. These throw qcBadPointer for a null handle, qcShapesError::BadIndex for an index out of range,
  // and BadGeom for a child that the kind of tree does not take, one that contains the tree, and when the tree would
  // have more than 2147483647 nodes.

  virtual void addChild(const qcShape& child);
  virtual void addChild(const Child& child, bool copyChild);
  virtual void addChildren(const std::vector<Child>& children, bool copyChildren);
  virtual void insertChild(long index, const qcShape& child);
  virtual void insertChild(long index, const Child& child, bool copyChild);
  virtual void insertChildren(long index, const std::vector<Child>& children, bool copyChildren);
  virtual void replaceChild(long index, const qcShape& child);
  virtual void replaceChild(long index, const Child& child, bool copyChild);
  /// Replaces all children.
  virtual void replaceChildren(const std::vector<Child>& children, bool copyChildren);
  virtual void removeChild(long index);
  virtual void removeChildren();

  qcPtrHandle<qcShape> clone() const override;
  bool isFinite() const override { return true; }
  bool isEmpty() const override;
  /// At least one element has one.
  bool hasTangent() const override;
  bool isDecomposed() const override;
  bool isReversible() const override { return true; }
  qcRect boundingBox() const override;
  qcVector<2> nearestPoint(const qcVector<2>& p) const override;
  /// The sum over the elements.
  double perimeter() const override;
  qcPerimPos nearestPerimPos(const qcShapeInfo& info, const qcVector<2>& p) const override;
  qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const override;
  /// The elements in reverse order, each of them reversed.
  qcPtrHandle<qcShape> reverse() const override;
  /// The tree of the decomposed children. A region that has no region as its decomposition, like a circle, becomes a
  /// closed contour tree.
  qcPtrHandle<qcShape> decompose() const override;
  /// An open contour tree of the parts of the elements; a general shape tree of such contours where the piece comes
  /// from several elements that do not form one contour.
  qcPtrHandle<qcShape> subShape(const qcShapeInfo& info, const std::pair<qcPerimPos, double>& piece) const override;
  qcPtrHandle<qcShape> clip_(const qcPolyline& polygon, qcClipInfo& info) const override;
  /// The same kind of tree, with equal children in the same order.
  bool equal_(const qcShape& that) const override;
  void perimPointAndTangent_(const qcShapeInfo& info, const qcPerimPos& position, qcVector<2>& point,
                             qcRadian* tangent) const override;
  void pieceLengths_(std::vector<double>& lengths) const override;
  void heldShapes_(std::vector<const qcShape*>& held) const override;

  /// Lets go of all children: a tree whose loading throws is left without any.
  void preLoad() override;

  /// The elements, see above.
  std::vector<const qcShape*> elements_() const;

 protected:
  /// How a tree is made anew from another one: from the shapes that are no trees, and in which order.
  struct Rebuild_ {
    std::function<qcPtrHandle<qcShape>(const qcShape& shape)> shape;
    bool reversed = false;
    bool flipped = false;
    bool copies = false;  // the shapes are equal to those that they are made from
  };

  qcShapeTree() = default;
  qcShapeTree(const qcShapeTree&) = default;
  qcShapeTree& operator=(const qcShapeTree& other);

  /// What the kind of tree takes for a child.
  virtual bool takesChild_(const qcShape& child) const = 0;
  /// The child as this tree holds it: one that may be shared, or a copy.
  virtual Child heldChild_(const Child& child, bool copyChild) const;
  /// The same node without children, its own shapes made anew.
  virtual qcPtrHandle<qcShapeTree> bareNode_(const Rebuild_& rebuild) const = 0;
  /// Appends the node's own elements, which come before those of its children.
  virtual void ownElements_(std::vector<const qcShape*>& elements) const;
  /// Whether a child is replaced by its own elements.
  virtual bool isNested_(const qcShape& child) const = 0;
  /// Equal in all fields but the children; `that` is of the same class.
  virtual bool equalNode_(const qcShapeTree& that) const;
  /// The number of nodes that this one stands for without its children.
  virtual std::uint64_t ownNodes_() const { return 1; }
  /// Parts of neighbouring elements belong to one contour.
  virtual bool isOneContour_() const { return false; }

  static qcPtrHandle<qcShapeTree> rebuilt_(const qcShapeTree& root, const Rebuild_& rebuild);
  static std::uint64_t nodesOf_(const qcShape& shape);
  /// The shape itself, or what mapped shapes, one in the other, come down to: null where they hold none.
  static const qcShape* withoutMaps_(const qcShape& shape);

  /// Samples the elements one after the other; `sampled` is called behind each with the number of the element and of
  /// its first point. Throws and numbers pieces like qcShape::sample.
  void sampleElements_(const qcSampleParams& params, qcSampleResult& result,
                       const std::function<void(std::size_t element, std::size_t firstPoint)>& sampled) const;

  /// Throws qcShapesError::BadGeom when this tree is among what the shape holds, or the shape itself.
  void checkNotHeldBy_(const qcShape& shape) const;
  /// Throws qcArchive::BadContent when a shape just loaded is null, is being loaded itself, or holds this tree.
  void checkLoaded_(qcArchive& archive, const Child& shape) const;
  /// To be called when the node's own shapes have changed. Returns the number of nodes.
  std::uint64_t recount_();

  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &qcShapeTree::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  void checkIndex(long index, std::size_t limit) const;
  void checkArchivable() const;
  void splice(long index, std::size_t removed, std::vector<Child> added, bool copyChildren);
  static void dismantle(std::vector<Child>& children) noexcept;

  std::vector<Child> children_;
  std::uint64_t nodes_ = 1;  // of the tree as it was when it was built; shared children may have changed since
};
