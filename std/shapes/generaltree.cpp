#include "vnxstd/shapes/generaltree.h"

#include <algorithm>
#include <cmath>

#include "std/shapes/segment.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/shapes/contourtree.h"
#include "vnxstd/shapes/regiontree.h"
#include "vnxstd/shapes/sampling.h"

namespace {

using Elements = std::vector<const qcShape*>;

const qc_Instantiator registered(typeid(qcGeneralShapeTree), &qcGeneralShapeTree::make);

// Open contours by where they start; each can be taken once.
class Starts {
 public:
  Starts(const Elements& shapes, double tolerance) : tolerance_(tolerance) {
    for (std::size_t i = 0; i < shapes.size(); ++i) {
      if (!shapes[i]->isOpenContour()) continue;
      const qcVector<2> start = shapes[i]->startPoint();
      if (!std::isnan(start.x())) starts_.push_back({start, i, false});
    }
    std::sort(starts_.begin(), starts_.end(), [](const Start& a, const Start& b) { return a.point.x() < b.point.x(); });
  }

  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  /// The first shape that starts at the point and is not taken.
  std::size_t take(const qcVector<2>& point) {
    const auto leftOf = [](const Start& start, double x) { return start.point.x() < x; };
    Start* found = nullptr;
    for (auto start = std::lower_bound(starts_.begin(), starts_.end(), point.x() - tolerance_, leftOf);
         start != starts_.end() && start->point.x() <= point.x() + tolerance_; ++start) {
      if (start->taken || qc_shapes::segmentLength(start->point, point) > tolerance_) continue;
      if (!found || start->shape < found->shape) found = &*start;
    }
    if (!found) return kNone;
    found->taken = true;
    return found->shape;
  }

 private:
  struct Start {
    qcVector<2> point;
    std::size_t shape;
    bool taken;
  };

  std::vector<Start> starts_;
  double tolerance_;
};

}  // namespace

qcGeneralShapeTree::qcGeneralShapeTree(const std::vector<Child>& children, bool copyChildren) {
  addChildren(children, copyChildren);
}

qcPersistent* qcGeneralShapeTree::make() { return new qcGeneralShapeTree; }

qcPtrHandle<qcGeneralShapeTree> qcGeneralShapeTree::connect(double tolerance) const {
  if (!(tolerance >= 0)) throw qcShapesError::BadParams();
  const Elements shapes = elements_();
  Starts starts(shapes, tolerance);
  // Each open contour leads to at most one other: they form paths, and circles.
  std::vector<std::size_t> next(shapes.size(), Starts::kNone);
  std::vector<bool> follows(shapes.size()), done(shapes.size());
  for (std::size_t i = 0; i < shapes.size(); ++i) {
    if (!shapes[i]->isOpenContour()) continue;
    next[i] = starts.take(shapes[i]->endPoint());
    if (next[i] != Starts::kNone) follows[next[i]] = true;
  }
  std::vector<std::vector<Child>> contours(shapes.size());
  std::vector<bool> closed(shapes.size());
  const auto follow = [&](std::size_t first) {
    std::size_t i = first;
    for (; i != Starts::kNone && !done[i]; i = next[i]) {
      done[i] = true;
      contours[first].push_back(shapes[i]);
    }
    closed[first] = i == first;
  };
  for (std::size_t i = 0; i < shapes.size(); ++i) {
    if (!follows[i]) follow(i);
  }
  for (std::size_t i = 0; i < shapes.size(); ++i) {
    if (!done[i]) follow(i);
  }
  std::vector<Child> connected;
  for (std::size_t i = 0; i < shapes.size(); ++i) {
    if (contours[i].size() > 1 || closed[i]) {
      connected.emplace_back(new qcContourTree(contours[i], closed[i], false));
    } else if (!contours[i].empty()) {
      connected.push_back(contours[i].front());
    }
  }
  return new qcGeneralShapeTree(connected, false);
}

qcPtrHandle<qcShapeTree> qcGeneralShapeTree::flatten(bool copyChildren) const {
  std::vector<Child> shapes;
  Elements waiting{this};
  while (!waiting.empty()) {
    const qcShape* shape = waiting.back();
    waiting.pop_back();
    if (const auto* tree = dynamic_cast<const qcShapeTree*>(shape)) {
      const Elements elements = tree->elements_();
      waiting.insert(waiting.end(), elements.rbegin(), elements.rend());
    } else {
      shapes.emplace_back(shape);
    }
  }
  return new qcGeneralShapeTree(shapes, copyChildren);
}

bool qcGeneralShapeTree::isFinite() const {
  const Elements elements = elements_();
  return std::all_of(elements.begin(), elements.end(), [](const qcShape* element) { return element->isFinite(); });
}

bool qcGeneralShapeTree::isReversible() const {
  const Elements elements = elements_();
  return std::all_of(elements.begin(), elements.end(), [](const qcShape* element) { return element->isReversible(); });
}

bool qcGeneralShapeTree::isMultipleContours_() const {
  const Elements elements = elements_();
  return elements.size() > 1 || (elements.size() == 1 && elements.front()->isMultipleContours_());
}

void qcGeneralShapeTree::sample(const qcSampleParams& params, qcSampleResult& result) const {
  if (params.uniformMode()) throw qcShapesError::BadParams();
  sampleElements_(params, result, [](std::size_t, std::size_t) {});
}

qcPtrHandle<qcShape> qcGeneralShapeTree::ofShapes_(
    const std::function<qcPtrHandle<qcShape>(const qcShape& shape)>& made) const {
  return rebuilt_(*this, {made});
}

qcPtrHandle<qcShapeTree> qcGeneralShapeTree::bareNode_(const Rebuild_&) const { return new qcGeneralShapeTree; }

bool qcGeneralShapeTree::isNested_(const qcShape& child) const {
  return dynamic_cast<const qcGeneralShapeTree*>(&child) != nullptr;
}

void qcGeneralShapeTree::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shaptree", 0);
  qcShapeTree::dispatchSerialize(archive);
}
