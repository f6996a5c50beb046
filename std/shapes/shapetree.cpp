#include "vnxstd/shapes/shapetree.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <typeinfo>
#include <unordered_map>

#include "std/shapes/held.h"
#include "std/shapes/rounding.h"
#include "std/shapes/samplewriter.h"
#include "std/shapes/segment.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/shapes/contourtree.h"
#include "vnxstd/shapes/ellipsearc.h"
#include "vnxstd/shapes/generaltree.h"
#include "vnxstd/shapes/mappedshape.h"
#include "vnxstd/shapes/polyline.h"
#include "vnxstd/shapes/rect.h"
#include "vnxstd/shapes/shapeinfo.h"

namespace {

using Child = qcShapeTree::Child;
using Elements = std::vector<const qcShape*>;

constexpr const char* kSource = "std/shapes/shaptree";
constexpr int kVersionLine = 597, kContentLine = 602;
constexpr double kRounding = 1e-12;  // of lengths, relatively

const qc_Instantiator registered(typeid(qcShapeTree), nullptr);

const qcShapeTree* asTree(const qcShape& shape) { return dynamic_cast<const qcShapeTree*>(&shape); }

// Calls visit with every tree below and including the root, and its level.
template <class Visit>
void visitTrees(const qcShapeTree& root, Visit visit) {
  std::vector<std::pair<const qcShapeTree*, long>> waiting{{&root, 0}};
  while (!waiting.empty()) {
    const auto [tree, level] = waiting.back();
    waiting.pop_back();
    if (!visit(*tree, level)) return;
    for (const Child& child : tree->children()) {
      if (const qcShapeTree* nested = asTree(*child)) waiting.emplace_back(nested, level + 1);
    }
  }
}

// How many pieces a shape has that is not empty: as many as it appends to pieceLengths_. The lengths of arcs are too
// dear for a count.
long numPieces(const qcShape& shape) {
  if (typeid(shape) == typeid(qcEllipseArc2)) return 1;
  if (const auto* polyline = dynamic_cast<const qcPolyline*>(&shape)) {
    const long vertices = polyline->numVertices();
    return polyline->isClosed() || vertices < 2 ? vertices : vertices - 1;
  }
  if (const qcShapeTree* tree = asTree(shape)) {
    long sum = 0;
    for (const qcShape* element : tree->elements_()) sum += numPieces(*element);
    return sum;
  }
  std::vector<double> lengths;
  shape.pieceLengths_(lengths);
  return static_cast<long>(lengths.size());
}

// Whether a shape is more than a point. The perimeter of what is mapped, an estimate, does not tell.
bool hasLength(const qcShape& shape) {
  std::vector<double> lengths;
  shape.pieceLengths_(lengths);
  return std::any_of(lengths.begin(), lengths.end(), [](double length) { return length != 0; });
}

// The elements of a tree and the numbers of their pieces.
class Pieces {
 public:
  explicit Pieces(Elements elements) : elements_(std::move(elements)), first_{0} {
    if (elements_.empty()) throw qcShapesError::EmptyShape();
    for (const qcShape* element : elements_) first_.push_back(first_.back() + numPieces(*element));
  }

  std::size_t count() const { return elements_.size(); }
  const qcShape& element(std::size_t i) const { return *elements_[i]; }

  /// The number of the element on which a piece lies.
  std::size_t elementOf(long piece) const {
    return static_cast<std::size_t>(std::upper_bound(first_.begin(), first_.end(), piece) - first_.begin() - 1);
  }
  /// A position on an element as one on the tree, and back.
  qcPerimPos onTree(std::size_t i, const qcPerimPos& position) const {
    return {static_cast<std::int32_t>(first_[i] + position.index()), position.distance()};
  }
  qcPerimPos onElement(std::size_t i, const qcPerimPos& position) const {
    return {static_cast<std::int32_t>(position.index() - first_[i]), position.distance()};
  }

  /// The position on the piece that it really lies on. The end of an element, but for rounding, is the start of the
  /// next one where both are of one contour that does not jump there; within an element that is for itself to say.
  qcPerimPos placed(const qcShapeInfo& info, const qcPerimPos& position, bool oneContour) const {
    if (info.numPieces() != first_.back()) throw qcShapesError::BadParams();
    const double distance = position.distance();
    if (!(distance >= 0 && distance <= info.pieceLength(position.index()) * (1 + kRounding))) {
      return info.perimPos(position, 0);
    }
    qcPerimPos place = position;
    for (std::size_t i = 0; oneContour && i < count() && place.distance() >= info.pieceLength(place.index()); ++i) {
      const std::size_t element = elementOf(place.index()), last = count() - 1;
      const std::size_t next = element < last ? element + 1 : 0;
      if (!isEnd(info, element, place) || (next == 0 && !info.isClosed()) || jumps(element, next)) break;
      place = onTree(next, {});
    }
    return {place.index(), std::min(place.distance(), info.pieceLength(place.index()))};
  }

  /// The tangent at an element without length: that of the contour behind it or else before it, up to a jump.
  qcRadian tangentAround(std::size_t i, bool closed) const {
    for (const bool forward : {true, false}) {
      std::size_t at = i;
      for (std::size_t steps = 1; steps < count() && (closed || at != (forward ? count() - 1 : 0)); ++steps) {
        const std::size_t next = (at + (forward ? 1 : count() - 1)) % count();
        if (forward ? jumps(at, next) : jumps(next, at)) break;
        at = next;
        if (element(at).hasTangent()) return forward ? element(at).startAngle() : element(at).endAngle();
        if (hasLength(element(at))) break;
      }
    }
    throw qcShapesError::NoTangent();
  }

 private:
  // A part at the origin tells by nothing but its shape how far its end may be off.
  static bool differ(const qcVector<2>& end, const qcVector<2>& start, double rounding) {
    const double near = kRounding * (std::fabs(end.x()) + std::fabs(end.y()));
    return qc_shapes::segmentLength(end, start) > std::max(near, rounding);
  }
  bool jumps(std::size_t from, std::size_t to) const {
    const double rounding = qc_shapes::roundingOfEnds(element(from)) + qc_shapes::roundingOfEnds(element(to));
    return differ(element(from).endPoint(), element(to).startPoint(), rounding);
  }
  // Whether the end of a piece is that of its element: only points follow, which one that is mapped may jump to.
  bool isEnd(const qcShapeInfo& info, std::size_t i, const qcPerimPos& place) const {
    long behind = place.index() + 1;
    if (behind == first_[i + 1]) return true;
    while (behind < first_[i + 1] && info.pieceLength(behind) == 0) ++behind;
    if (behind != first_[i + 1]) return false;
    const qcShapeInfo own(element(i));
    return !differ(element(i).endPoint(), element(i).perimPoint(own, onElement(i, place)),
                   qc_shapes::roundingOfEnds(element(i)));
  }

  Elements elements_;
  std::vector<long> first_;
};

// The first of the nearest elements, and the nearest point of it.
std::pair<std::size_t, qcVector<2>> nearestElement(const Elements& elements, const qcVector<2>& p) {
  if (elements.empty()) throw qcShapesError::EmptyShape();
  std::pair<std::size_t, qcVector<2>> nearest(0, elements.front()->nearestPoint(p));
  double least = qc_shapes::segmentLength(p, nearest.second);
  for (std::size_t i = 1; i < elements.size() && least > 0; ++i) {
    const qcVector<2> point = elements[i]->nearestPoint(p);
    const double distance = qc_shapes::segmentLength(p, point);
    if (!(distance < least)) continue;
    least = distance;
    nearest = {i, point};
  }
  return nearest;
}

qcPtrHandle<qcShape> decomposedShape(const qcShape& shape) {
  const qcPtrHandle<qcShape> decomposed = shape.decompose();
  if (!shape.isRegion() || decomposed->isRegion()) return decomposed;
  return new qcContourTree({decomposed}, true, false);
}

// Children that are shared by reference are copies, owned by nobody else.
std::vector<Child> copyOf(const qcShape& child) { return {Child(child.clone())}; }

}  // namespace

qcShapeTree::~qcShapeTree() { dismantle(children_); }

qcShapeTree& qcShapeTree::operator=(const qcShapeTree& other) {
  if (this == &other) return *this;
  checkNotHeldBy_(other);
  std::vector<Child> children = other.children_;
  mutating();
  children_.swap(children);
  nodes_ = other.nodes_;
  return *this;
}

// Lets go of shapes one level at a time, without memory of its own: the way back up is kept in the places of the
// children on the way down.
void qcShapeTree::dismantle(std::vector<Child>& children) noexcept {
  Child node, above;  // the tree that is being emptied, null at the top, and the one above it
  std::vector<Child>* list = &children;
  for (;;) {
    if (list->empty()) {
      if (node.isNull()) return;
      node = above;
      above.release();
      list = node.isNull() ? &children : &const_cast<qcShapeTree*>(asTree(*node))->children_;
      above = std::move(list->back());
      list->pop_back();
      continue;
    }
    Child child = std::move(list->back());
    const qcShapeTree* tree = child.isNull() || child->refc() > 1 ? nullptr : asTree(*child);
    if (!tree || tree->children_.empty()) {
      list->pop_back();
      continue;
    }
    list->back() = std::move(above);
    above = std::move(node);
    node = std::move(child);
    list = &const_cast<qcShapeTree*>(tree)->children_;
  }
}

const qcShape& qcShapeTree::child(long index) const {
  checkIndex(index, children_.size());
  return *children_[static_cast<std::size_t>(index)];
}

long qcShapeTree::size(bool recursive) const {
  if (!recursive) return 1 + numChildren();
  long sum = 1;
  visitTrees(*this, [&sum](const qcShapeTree& tree, long) { return sum += tree.numChildren(), true; });
  return sum;
}

long qcShapeTree::height() const {
  long highest = 0;
  visitTrees(*this, [&highest](const qcShapeTree& tree, long level) {
    highest = std::max(highest, tree.isLeaf() ? level : level + 1);
    return true;
  });
  return highest;
}

void qcShapeTree::addChild(const qcShape& child) { splice(numChildren(), 0, copyOf(child), false); }
void qcShapeTree::addChild(const Child& child, bool copyChild) { splice(numChildren(), 0, {child}, copyChild); }
void qcShapeTree::addChildren(const std::vector<Child>& children, bool copyChildren) {
  splice(numChildren(), 0, children, copyChildren);
}

void qcShapeTree::insertChild(long index, const qcShape& child) {
  checkIndex(index, children_.size() + 1);
  splice(index, 0, copyOf(child), false);
}
void qcShapeTree::insertChild(long index, const Child& child, bool copyChild) {
  insertChildren(index, {child}, copyChild);
}
void qcShapeTree::insertChildren(long index, const std::vector<Child>& children, bool copyChildren) {
  checkIndex(index, children_.size() + 1);
  splice(index, 0, children, copyChildren);
}

void qcShapeTree::replaceChild(long index, const qcShape& child) {
  checkIndex(index, children_.size());
  splice(index, 1, copyOf(child), false);
}
void qcShapeTree::replaceChild(long index, const Child& child, bool copyChild) {
  checkIndex(index, children_.size());
  splice(index, 1, {child}, copyChild);
}
void qcShapeTree::replaceChildren(const std::vector<Child>& children, bool copyChildren) {
  splice(0, children_.size(), children, copyChildren);
}

void qcShapeTree::removeChild(long index) {
  checkIndex(index, children_.size());
  splice(index, 1, {}, false);
}
void qcShapeTree::removeChildren() { splice(0, children_.size(), {}, false); }

void qcShapeTree::checkIndex(long index, std::size_t limit) const {
  if (index < 0 || static_cast<std::size_t>(index) >= limit) throw qcShapesError::BadIndex();
}

// All that can throw comes first.
void qcShapeTree::splice(long index, std::size_t removed, std::vector<Child> added, bool copyChildren) {
  std::uint64_t nodes = nodes_;
  const auto first = children_.begin() + index, last = first + static_cast<std::ptrdiff_t>(removed);
  for (auto child = first; child != last; ++child) nodes -= std::min(nodes, nodesOf_(**child));
  for (Child& child : added) {
    if (!takesChild_(*child)) throw qcShapesError::BadGeom();
    if (!copyChildren) checkNotHeldBy_(*child);
    child = heldChild_(child, copyChildren);
    nodes += nodesOf_(*child);
  }
  if (!added.empty() && nodes > INT32_MAX) throw qcShapesError::BadGeom();
  const std::size_t size = children_.size() - removed + added.size();
  std::vector<Child> gone;
  gone.reserve(removed);
  if (size > children_.capacity()) children_.reserve(std::max(size, 2 * children_.capacity()));
  mutating();
  const auto place = children_.begin() + index;
  std::move(place, place + static_cast<std::ptrdiff_t>(removed), std::back_inserter(gone));
  children_.erase(place, place + static_cast<std::ptrdiff_t>(removed));
  children_.insert(children_.begin() + index, std::make_move_iterator(added.begin()),
                   std::make_move_iterator(added.end()));
  nodes_ = nodes;
  dismantle(gone);
}

Child qcShapeTree::heldChild_(const Child& child, bool copyChild) const {
  return copyChild ? Child(child->clone()) : child;
}

void qcShapeTree::ownElements_(Elements&) const {}
bool qcShapeTree::equalNode_(const qcShapeTree&) const { return true; }

std::uint64_t qcShapeTree::nodesOf_(const qcShape& shape) {
  const auto* tree = dynamic_cast<const qcShapeTree*>(withoutMaps_(shape));
  return tree ? tree->nodes_ : 1;
}

const qcShape* qcShapeTree::withoutMaps_(const qcShape& shape) {
  const qcShape* held = &shape;
  while (const auto* mapped = dynamic_cast<const qcMappedShape*>(held)) held = mapped->shape().rep();
  return held;
}

std::uint64_t qcShapeTree::recount_() {
  nodes_ = ownNodes_();
  for (const Child& child : children_) nodes_ += nodesOf_(*child);
  return nodes_;
}

Elements qcShapeTree::elements_() const {
  Elements elements, waiting{this};
  while (!waiting.empty()) {
    const qcShape* shape = waiting.back();
    waiting.pop_back();
    if (shape != this && !isNested_(*shape)) {
      if (!shape->isEmpty()) elements.push_back(shape);
      continue;
    }
    const auto& tree = static_cast<const qcShapeTree&>(*shape);
    tree.ownElements_(elements);
    for (auto child = tree.children_.rbegin(); child != tree.children_.rend(); ++child) waiting.push_back(child->rep());
  }
  return elements;
}

// Shapes that are held in several places are made once.
qcPtrHandle<qcShapeTree> qcShapeTree::rebuilt_(const qcShapeTree& root, const Rebuild_& rebuild) {
  struct Level {
    const qcShapeTree* from;
    qcPtrHandle<qcShapeTree> to;
    std::size_t done = 0;
  };
  std::unordered_map<const qcShape*, Child> shared;
  std::vector<Level> levels{{&root, root.bareNode_(rebuild)}};
  const auto append = [&](const qcShape& from, const Child& to) {
    levels.back().to->children_.push_back(to);
    if (from.refc() > 1) shared.emplace(&from, to);
  };
  for (;;) {
    Level& level = levels.back();
    const std::vector<Child>& children = level.from->children_;
    if (level.done == children.size()) {
      const Level finished = level;
      levels.pop_back();
      finished.to->recount_();
      if (levels.empty()) return finished.to;
      append(*finished.from, finished.to);
      continue;
    }
    const qcShape& child = *children[rebuild.reversed ? children.size() - 1 - level.done : level.done];
    ++level.done;
    if (const auto made = shared.find(&child); made != shared.end()) {
      level.to->children_.push_back(made->second);
    } else if (root.isNested_(child)) {
      const auto& tree = static_cast<const qcShapeTree&>(child);
      levels.push_back({&tree, tree.bareNode_(rebuild)});
    } else {
      append(child, rebuild.shape(child));
    }
  }
}

qcPtrHandle<qcShape> qcShapeTree::clone() const {
  return rebuilt_(*this, {[](const qcShape& shape) { return shape.clone(); }, false, false, true});
}

qcPtrHandle<qcShape> qcShapeTree::mapShape(const qcXform<2>& xform) const {
  return rebuilt_(*this, {[&xform](const qcShape& shape) { return shape.mapShape(xform); }});
}

qcPtrHandle<qcShape> qcShapeTree::reverse() const {
  return rebuilt_(*this, {[](const qcShape& shape) { return shape.reverse(); }, true});
}

qcPtrHandle<qcShape> qcShapeTree::decompose() const { return rebuilt_(*this, {decomposedShape}); }

bool qcShapeTree::isEmpty() const { return elements_().empty(); }

bool qcShapeTree::hasTangent() const {
  const Elements elements = elements_();
  return std::any_of(elements.begin(), elements.end(), [](const qcShape* element) { return element->hasTangent(); });
}

bool qcShapeTree::isDecomposed() const {
  const Elements elements = elements_();
  return std::all_of(elements.begin(), elements.end(), [](const qcShape* element) { return element->isDecomposed(); });
}

qcRect qcShapeTree::boundingBox() const {
  const Elements elements = elements_();
  if (elements.empty()) throw qcShapesError::EmptyShape();
  qcRect box = elements.front()->boundingBox();
  for (std::size_t i = 1; i < elements.size(); ++i) box = box.enclose(elements[i]->boundingBox());
  return box;
}

qcVector<2> qcShapeTree::nearestPoint(const qcVector<2>& p) const { return nearestElement(elements_(), p).second; }

double qcShapeTree::perimeter() const {
  double sum = 0;
  for (const qcShape* element : elements_()) sum += element->perimeter();
  return sum;
}

void qcShapeTree::pieceLengths_(std::vector<double>& lengths) const {
  for (const qcShape* element : elements_()) element->pieceLengths_(lengths);
}

void qcShapeTree::heldShapes_(Elements& held) const {
  for (const Child& child : children_) held.push_back(child.rep());
}

qcPerimPos qcShapeTree::nearestPerimPos(const qcShapeInfo& info, const qcVector<2>& p) const {
  const Elements elements = elements_();
  const std::size_t i = nearestElement(elements, p).first;
  const qcPerimPos position = elements[i]->nearestPerimPos(qcShapeInfo(*elements[i]), p);
  const Pieces pieces(elements);
  return pieces.placed(info, pieces.onTree(i, position), isOneContour_());
}

void qcShapeTree::perimPointAndTangent_(const qcShapeInfo& info, const qcPerimPos& position, qcVector<2>& point,
                                        qcRadian* tangent) const {
  const Pieces pieces(elements_());
  const qcPerimPos place = pieces.placed(info, position, isOneContour_());
  const std::size_t i = pieces.elementOf(place.index());
  const qcShape& element = pieces.element(i);
  const qcShapeInfo own(element);
  const bool borrows = tangent && isOneContour_() && !element.hasTangent() && own.perimeter() == 0;
  const qcRadian borrowed = borrows ? pieces.tangentAround(i, info.isClosed()) : qcRadian();
  element.perimPointAndTangent_(own, pieces.onElement(i, place), point, borrows ? nullptr : tangent);
  if (borrows) *tangent = borrowed;
}

qcPtrHandle<qcShape> qcShapeTree::subShape(const qcShapeInfo& info, const std::pair<qcPerimPos, double>& piece) const {
  if (!(piece.second >= 0)) throw qcShapesError::BadParams();
  const Pieces pieces(elements_());
  qcPerimPos start = pieces.placed(info, piece.first, isOneContour_());
  // What rounding leaves of an element has no direction.
  const double end = info.pieceLength(start.index());
  if (end - start.distance() <= kRounding * info.perimeter()) {
    start = pieces.placed(info, {start.index(), end}, isOneContour_());
  }
  const std::size_t startElement = pieces.elementOf(start.index());
  std::vector<std::vector<Child>> contours;
  std::size_t i = startElement, previous = pieces.count();
  qcPerimPos place = pieces.onElement(i, start);
  double left = std::min(piece.second, info.perimeter()), skipped = 0;
  for (std::size_t round = 0; round <= pieces.count(); ++round) {
    const qcShape& element = pieces.element(i);
    const qcShapeInfo own(element);
    const double from = own.distanceAlong(place), rest = std::max(0.0, own.perimeter() - from);
    if (round == 0) skipped = from;
    if (round == pieces.count()) left = std::min(left, skipped);
    // What rounding left of the length is not to lead across a jump.
    if (round > 0 && !(left > kRounding * info.perimeter())) break;
    // Open elements end exactly where they end, whatever rounding left of the length.
    const double length = element.isRegion() ? std::min(left, rest) : left;
    if (contours.empty() || (!isOneContour_() && i != previous)) contours.emplace_back();
    contours.back().push_back(element.subShape(own, {place, length}));
    left -= rest;
    previous = i;
    place = qcPerimPos();
    if (++i == pieces.count()) {
      if (!info.isClosed()) break;
      i = 0;
    }
  }
  std::vector<Child> parts;
  for (const std::vector<Child>& contour : contours) {
    const bool open = std::all_of(contour.begin(), contour.end(), [](const Child& c) { return c->isOpenContour(); });
    if (open) {
      parts.emplace_back(new qcContourTree(contour, false, false));
    } else {
      parts.insert(parts.end(), contour.begin(), contour.end());
    }
  }
  if (parts.size() > 1) return new qcGeneralShapeTree(parts, false);
  return const_cast<qcShape*>(parts.front().rep());  // made here
}

void qcShapeTree::sampleElements_(const qcSampleParams& params, qcSampleResult& result,
                                  const std::function<void(std::size_t, std::size_t)>& sampled) const {
  qc_shapes::SampleWriter writer(params, result);
  const Elements elements = elements_();
  const qcShapeInfo numbering;  // says that there are other pieces
  qcSampleParams inner = params;
  if (!params.enclosingInfo_()) {
    writer.numberOwnPieces();
    inner.enclosingInfo_(&numbering);
  }
  const bool leaveOut = params.computeTangents() && hasTangent();
  // A contour that is a single point is sampled once.
  const bool isPoint = elements.size() > 1 && isOneContour_() &&
                       std::all_of(elements.begin(), elements.end(), [&](const qcShape* element) {
                         const qcVector<2> point = elements.front()->startPoint();
                         return element->startPoint() == point && element->endPoint() == point && !hasLength(*element);
                       });
  for (std::size_t i = 0; i < elements.size(); ++i) {
    const qcShape& element = *elements[i];
    if ((isPoint && i > 0) || (leaveOut && !element.hasTangent() && !hasLength(element))) {
      for (long n = numPieces(element); n > 0; --n) writer.takePiece();
      continue;
    }
    const std::size_t firstPoint = result.positions().size();
    element.sample(inner, result);
    sampled(i, firstPoint);
  }
  writer.commit();
}

// Pairs of shapes are compared level by level; a pair that was seen before is equal, or the search would be over.
bool qcShapeTree::equal_(const qcShape& that) const {
  std::vector<std::pair<const qcShape*, const qcShape*>> waiting{{this, &that}};
  std::set<std::pair<const qcShape*, const qcShape*>> seen;
  while (!waiting.empty()) {
    const auto [a, b] = waiting.back();
    waiting.pop_back();
    if (a == b) continue;
    const qcShapeTree* tree = asTree(*a);
    if (!tree) {
      if (!a->equal_(*b)) return false;
      continue;
    }
    if (typeid(*a) != typeid(*b)) return false;
    const auto& other = static_cast<const qcShapeTree&>(*b);
    if (tree->numChildren() != other.numChildren() || !tree->equalNode_(other)) return false;
    if (tree->refc() > 1 && !seen.emplace(a, b).second) continue;
    for (std::size_t i = 0; i < tree->children_.size(); ++i) {
      waiting.emplace_back(tree->children_[i].rep(), other.children_[i].rep());
    }
  }
  return true;
}

void qcShapeTree::checkNotHeldBy_(const qcShape& shape) const {
  if (qc_shapes::holds(shape, *this)) throw qcShapesError::BadGeom();
}

// Nothing else can refer to a tree that is still loading itself.
void qcShapeTree::checkLoaded_(qcArchive& archive, const Child& shape) const {
  if (shape.isNull() || archive.isStillLoading(shape.rep()) ||
      (!archive.isStillLoading(this) && qc_shapes::holds(*shape, *this))) {
    throw qcArchive::BadContent(kSource, kContentLine);
  }
}

void qcShapeTree::checkArchivable() const {
  std::uint64_t nodes = 1;
  visitTrees(*this, [&nodes](const qcShapeTree& tree, long) {
    nodes += tree.ownNodes_() - 1;
    for (const Child& child : tree.children_) nodes += asTree(*child) ? 1 : nodesOf_(*child);
    return nodes <= kMaxArchived;
  });
  if (nodes > kMaxArchived) throw qcArchive::BadContent(kSource, kContentLine);
}

void qcShapeTree::preLoad() {
  dismantle(children_);
  nodes_ = 1;
}

void qcShapeTree::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, kSource, kVersionLine);
  qcShape::dispatchSerialize(archive);
  if (archive.isStoring()) {
    checkArchivable();
    archive || children_;
    archive.checkDepth();
    return;
  }
  std::vector<Child> loaded;
  archive || loaded;
  archive.checkDepth();
  for (const Child& child : loaded) checkLoaded_(archive, child);
  children_.swap(loaded);
  if (recount_() > kMaxArchived) throw qcArchive::BadContent(kSource, kContentLine);
}
