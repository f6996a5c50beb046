#include "vnxstd/shapes/regiontree.h"

#include "std/shapes/nesting.h"
#include "std/shapes/samplewriter.h"
#include "std/shapes/segment.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/shapes/contourtree.h"
#include "vnxstd/shapes/generaltree.h"
#include "vnxstd/shapes/rect.h"
#include "vnxstd/shapes/sampling.h"

namespace {

using Child = qcShapeTree::Child;

constexpr const char* kSource = "std/shapes/shaptree";
constexpr int kLine = 4074;

const qc_Instantiator registered(typeid(qcRegionTree), &qcRegionTree::make);

const qcRegionTree* asRegion(const qcShape& shape) { return dynamic_cast<const qcRegionTree*>(&shape); }

bool isTreeOfNoContour(const qcShape* shape) {
  return dynamic_cast<const qcShapeTree*>(shape) && !dynamic_cast<const qcContourTree*>(shape);
}

qcPtrHandle<qcRegionTree> asHandle(const qcPtrHandle<qcShapeTree>& tree) {
  return static_cast<qcRegionTree*>(tree.rep());
}

Child checkedBoundary(const Child& boundary, const qcShape* withoutMaps) {
  if (isTreeOfNoContour(withoutMaps)) throw qcShapesError::BadGeom();
  if (!boundary->isRegion()) throw qcShapesError::NotRegion();
  return boundary;
}

}  // namespace

qcRegionTree::qcRegionTree(const qcShape& boundary, bool isHole) : hole_(isHole) { this->boundary(boundary); }

qcRegionTree::qcRegionTree(const Child& boundary, bool isHole) : qcRegionTree(*boundary, isHole) {}

// The other may be below this one, and go with it.
qcRegionTree& qcRegionTree::operator=(const qcRegionTree& other) {
  const qcRegionTree kept(other);
  qcShapeTree::operator=(kept);
  boundary_ = kept.boundary_;
  hole_ = kept.hole_;
  boundaryRightHanded_ = kept.boundaryRightHanded_;
  root_ = kept.root_;
  return *this;
}

qcPersistent* qcRegionTree::make() { return new qcRegionTree; }

const qcShape& qcRegionTree::boundary() const {
  if (isEmpty()) throw qcShapesError::EmptyShape();
  return *boundary_;
}

void qcRegionTree::boundary(const qcShape& boundary) {
  const Child copy(checkedBoundary(boundary.clone(), withoutMaps_(boundary)));
  const bool rightHanded = copy->isRightHanded();
  for (const Child& child : children()) {
    const qcShape& inner = asRegion(*child)->boundary();
    if (!qc_shapes::liesInside(inner, *copy, kNesting)) throw qcShapesError::BadGeom();
  }
  mutating();
  boundary_ = copy;
  boundaryRightHanded_ = rightHanded;
  recount_();
}

void qcRegionTree::boundary(const Child& boundary) { this->boundary(*boundary); }

const qcRegionTree& qcRegionTree::child(long index) const {
  return static_cast<const qcRegionTree&>(qcShapeTree::child(index));
}

bool qcRegionTree::takesChild_(const qcShape& child) const {
  const qcRegionTree* region = asRegion(child);
  return region && !region->isEmpty() && !isEmpty() && region->hole_ != hole_ &&
         qc_shapes::liesInside(*region->boundary_, *boundary_, kNesting);
}

Child qcRegionTree::heldChild_(const Child& child, bool copyChild) const {
  const auto& region = static_cast<const qcRegionTree&>(*child);
  if (!copyChild && !region.root_) return child;
  const qcPtrHandle<qcShape> copy = copyChild ? region.clone() : qcPtrHandle<qcShape>(new qcRegionTree(region));
  static_cast<qcRegionTree&>(*copy).root_ = false;
  return copy;
}

qcPtrHandle<qcShapeTree> qcRegionTree::bareNode_(const Rebuild_& rebuild) const {
  const qcPtrHandle<qcRegionTree> node(new qcRegionTree);
  node->hole_ = hole_ != rebuild.flipped;
  node->root_ = root_;
  if (isEmpty()) return node;
  node->boundary_ = rebuild.shape(*boundary_);
  node->boundaryRightHanded_ = rebuild.copies ? boundaryRightHanded_ : node->boundary_->isRightHanded();
  return node;
}

qcPtrHandle<qcRegionTree> qcRegionTree::flip() const {
  const auto copied = [](const qcShape& shape) { return shape.clone(); };
  return asHandle(rebuilt_(*this, {copied, false, true, true}));
}

qcPtrHandle<qcRegionTree> qcRegionTree::around_(
    const std::function<qcPtrHandle<qcShape>(const qcShape& boundary)>& made, bool flipped) const {
  return asHandle(rebuilt_(*this, {made, false, flipped}));
}

qcPtrHandle<qcShape> qcRegionTree::reverse() const {
  const auto reversed = [](const qcShape& shape) { return shape.isReversible() ? shape.reverse() : shape.clone(); };
  return rebuilt_(*this, {reversed, false, true});
}

qcPtrHandle<qcGeneralShapeTree> qcRegionTree::unregionize() const {
  const std::vector<const qcShape*> boundaries = elements_();
  return new qcGeneralShapeTree({boundaries.begin(), boundaries.end()}, false);
}

qcPtrHandle<qcShapeTree> qcRegionTree::flatten(bool copyChildren) const {
  return rebuilt_(*this, {[copyChildren](const qcShape& shape) -> qcPtrHandle<qcShape> {
    if (const auto* contour = dynamic_cast<const qcContourTree*>(&shape)) {
      return contour->flatten(copyChildren);
    }
    return copyChildren ? shape.clone() : qcPtrHandle<qcShape>(const_cast<qcShape*>(&shape));
  }});
}

// All nodes, each before those below it.
std::vector<const qcRegionTree*> qcRegionTree::nodes() const {
  std::vector<const qcRegionTree*> all, waiting{this};
  while (!waiting.empty()) {
    const qcRegionTree* node = waiting.back();
    waiting.pop_back();
    if (!node->isEmpty()) all.push_back(node);
    for (auto child = node->children().rbegin(); child != node->children().rend(); ++child) {
      waiting.push_back(asRegion(**child));
    }
  }
  return all;
}

// Only nodes that surround the point need be looked at. Behind those below it, each of them is known to hold the point
// or not, and if it does, takes it from the one above.
qcRegionTree::Place qcRegionTree::classify(const qcVector<2>& p, double tolerance) const {
  if (!(tolerance >= 0)) throw qcShapesError::BadParams();
  struct Around {
    const qcRegionTree* node;
    std::size_t above;
    bool holds;
  };
  std::vector<Around> around;
  std::vector<std::pair<const qcRegionTree*, std::size_t>> waiting;
  if (!isEmpty()) waiting.emplace_back(this, 0);
  while (!waiting.empty()) {
    const auto [node, above] = waiting.back();
    waiting.pop_back();
    const qcShape& shape = *node->boundary_;
    if (qc_shapes::segmentLength(p, shape.nearestPoint(p)) <= tolerance) return Place::boundary;
    if (!shape.within(p)) continue;
    around.push_back({node, above, true});
    for (const Child& child : node->children()) waiting.emplace_back(asRegion(*child), around.size() - 1);
  }
  if (around.empty()) return Place::outside;
  for (std::size_t i = around.size() - 1; i > 0; --i) {
    if (around[i].holds) around[around[i].above].holds = false;
  }
  return around.front().holds ? Place::inside : Place::outside;
}

qcRect qcRegionTree::boundingBox() const { return boundary().boundingBox(); }

bool qcRegionTree::isRightHanded() const {
  if (!isRegion()) throw qcShapesError::NotRegion();
  return !hole_;
}

bool qcRegionTree::within(const qcVector<2>& p) const {
  if (!isRegion()) throw qcShapesError::NotRegion();
  return classify(p) == Place::inside;
}

void qcRegionTree::sample(const qcSampleParams& params, qcSampleResult& result) const {
  if (params.uniformMode()) throw qcShapesError::BadParams();
  const std::vector<const qcRegionTree*> all = nodes();
  sampleElements_(params, result, [&](std::size_t i, std::size_t firstPoint) {
    if (all[i]->boundaryRightHanded_ == all[i]->hole_) qc_shapes::turnChain(result, firstPoint);
  });
}

void qcRegionTree::heldShapes_(std::vector<const qcShape*>& held) const {
  qcShapeTree::heldShapes_(held);
  if (!isEmpty()) held.push_back(boundary_.rep());
}

void qcRegionTree::ownElements_(std::vector<const qcShape*>& elements) const {
  if (!isEmpty()) elements.push_back(boundary_.rep());
}

bool qcRegionTree::isNested_(const qcShape& child) const { return asRegion(child) != nullptr; }

bool qcRegionTree::equalNode_(const qcShapeTree& that) const {
  const auto& other = static_cast<const qcRegionTree&>(that);
  if (isEmpty() || other.isEmpty()) return isEmpty() == other.isEmpty() && hole_ == other.hole_;
  return hole_ == other.hole_ && boundaryRightHanded_ == other.boundaryRightHanded_ && root_ == other.root_ &&
         boundary_->equal_(*other.boundary_);
}

std::uint64_t qcRegionTree::ownNodes_() const { return isEmpty() ? 1 : 1 + nodesOf_(*boundary_); }

void qcRegionTree::preLoad() {
  qcShapeTree::preLoad();
  boundary_.release();
}

void qcRegionTree::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, kSource, kLine);
  bool hole = hole_, rightHanded = boundaryRightHanded_, root = root_;
  try {
    qcShapeTree::dispatchSerialize(archive);
    archive || boundary_ || hole || rightHanded || root;
    if (archive.isStoring()) return;
    if (!boundary_.isNull()) checkLoaded_(archive, boundary_);
    const qcShape* shape = boundary_.isNull() ? nullptr : withoutMaps_(*boundary_);
    bool good = boundary_.isNull() ? isLeaf() : shape && !isTreeOfNoContour(shape) && boundary_->isRegion();
    for (const Child& child : children()) {
      const qcRegionTree* region = asRegion(*child);
      good = good && region && !region->isEmpty() && region->hole_ != hole;
    }
    if (!good || recount_() > kMaxArchived) throw qcArchive::BadContent(kSource, kLine);
  } catch (...) {
    if (archive.isLoading()) preLoad();
    throw;
  }
  hole_ = hole;
  boundaryRightHanded_ = rightHanded;
  root_ = root;
}
