#include "vnxstd/shapes/generaltree.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "std/shapes/segment.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/shapes/contourtree.h"
#include "vnxstd/shapes/regiontree.h"
#include "vnxstd/shapes/sampling.h"

namespace {

using Elements = std::vector<const qcShape*>;

const qc_Instantiator registered(typeid(qcGeneralShapeTree), &qcGeneralShapeTree::make);

// Open contours by where they start, in cells twice as wide as the tolerance: however quotients are rounded, what is
// within the tolerance is in the same cell or in one next to it. Without a tolerance each point is a cell.
class Starts {
 public:
  Starts(const Elements& shapes, double tolerance) : tolerance_(tolerance) {
    for (std::size_t i = shapes.size(); i-- > 0;) {
      if (!shapes[i]->isOpenContour()) continue;
      const qcVector<2> start = shapes[i]->startPoint();
      if (isFinite(start)) cells_[{cell(start.x()), cell(start.y())}].push_back({start, i});
    }
  }

  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  /// The first shape that starts at the point; it is not found again.
  std::size_t take(const qcVector<2>& point) {
    if (!isFinite(point)) return kNone;
    std::vector<Start>* nearest = nullptr;
    std::ptrdiff_t found = 0;
    std::size_t first = kNone;
    const int reach = tolerance_ > 0 ? 1 : 0;
    for (int i = -reach; i <= reach; ++i) {
      for (int j = -reach; j <= reach; ++j) {
        const auto starts = cells_.find({cell(point.x()) + i, cell(point.y()) + j});
        if (starts == cells_.end()) continue;
        std::vector<Start>& all = starts->second;
        for (std::size_t k = all.size(); k > 0 && all[k - 1].shape < first; --k) {
          if (!(qc_shapes::segmentLength(all[k - 1].point, point) <= tolerance_)) continue;
          nearest = &all;
          found = static_cast<std::ptrdiff_t>(k - 1);
          first = all[k - 1].shape;
        }
      }
    }
    if (nearest) nearest->erase(nearest->begin() + found);
    return first;
  }

 private:
  struct Start {
    qcVector<2> point;
    std::size_t shape;
  };

  static bool isFinite(const qcVector<2>& p) { return std::isfinite(p.x()) && std::isfinite(p.y()); }
  double cell(double x) const { return tolerance_ > 0 ? std::floor(x / (2 * tolerance_)) : x; }

  std::map<std::pair<double, double>, std::vector<Start>> cells_;  // the last shape first
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
