#include "std/shapes/nesting.h"

#include <algorithm>
#include <cmath>
#include <typeinfo>
#include <utility>
#include <vector>

#include "std/shapes/clipedges.h"
#include "std/shapes/exact.h"
#include "std/shapes/segment.h"
#include "vnxstd/shapes/contourtree.h"
#include "vnxstd/shapes/lineseg.h"
#include "vnxstd/shapes/mappedshape.h"
#include "vnxstd/shapes/polyline.h"
#include "vnxstd/shapes/rect.h"
#include "vnxstd/shapes/shapeinfo.h"
#include "vnxstd/shapes/shapetree.h"

namespace qc_shapes {

namespace {

using V = qcVector<2>;
using Held = qcPtrHandle_const<qcShape>;
using Polygon = qcPtrHandle_const<qcPolyline>;

constexpr double kFinest = 1e-3;  // how closely curved boundaries are looked at, relative to the outer one's size

// A region with straight edges as the polyline through its vertices, which answers far sooner than a tree of segments;
// null when it has others.
Polygon polygonOf(const qcShape& region) {
  if (const auto* polyline = dynamic_cast<const qcPolyline*>(&region)) return new qcPolyline(*polyline);
  std::vector<V> vertices;
  const auto add = [&vertices](const V& p) {
    if (vertices.empty() || vertices.back() != p) vertices.push_back(p);
  };
  const auto* tree = dynamic_cast<const qcShapeTree*>(&region);
  if (!tree) return {};
  for (const qcShape* element : tree->elements_()) {
    if (const auto* polyline = dynamic_cast<const qcPolyline*>(element)) {
      std::for_each(polyline->vertices().begin(), polyline->vertices().end(), add);
    } else if (typeid(*element) == typeid(qcLineSeg)) {
      add(element->startPoint());
      add(element->endPoint());
    } else {
      return {};
    }
  }
  if (vertices.empty()) return {};
  return new qcPolyline(vertices, true);
}

class Outer {
 public:
  Outer(const qcShape& shape, double tolerance) : shape_(shape), box_(shape.boundingBox()) {
    const V low = box_.ul(), high = box_.lr();
    size_ = std::max(box_.width(), box_.height());
    tolerance_ =
        tolerance * std::max({std::fabs(low.x()), std::fabs(low.y()), std::fabs(high.x()), std::fabs(high.y()), size_});
  }

  double size() const { return size_; }
  double tolerance() const { return tolerance_; }
  double distance(const V& p) const { return segmentLength(p, shape_.nearestPoint(p)); }
  bool excludes(const V& p) const { return !shape_.within(p) && distance(p) > tolerance_; }
  bool mayHold(const qcRect& box) const {
    const V low = box.ul(), high = box.lr();
    return low.x() >= box_.ul().x() - tolerance_ && low.y() >= box_.ul().y() - tolerance_ &&
           high.x() <= box_.lr().x() + tolerance_ && high.y() <= box_.lr().y() + tolerance_;
  }

 private:
  const qcShape& shape_;
  qcRect box_;
  double size_, tolerance_;
};

// Appends where on the way from a to b the edge from c to d crosses or touches, as fractions of the way.
void appendCrossings(const V& a, const V& b, const V& c, const V& d, std::vector<double>& at) {
  const auto apart = [](double a1, double a2, double b1, double b2) {
    return std::max(a1, a2) < std::min(b1, b2) || std::max(b1, b2) < std::min(a1, a2);
  };
  if (apart(a.x(), b.x(), c.x(), d.x()) || apart(a.y(), b.y(), c.y(), d.y())) return;
  const int sideC = orientation(a, b, c), sideD = orientation(a, b, d);
  if (sideC == 0) at.push_back(nearestFraction(a, b, c));
  if (sideD == 0) at.push_back(nearestFraction(a, b, d));
  if (sideC * sideD >= 0 || orientation(c, d, a) * orientation(c, d, b) > 0) return;
  const double fraction = (c - a).cross(d - c) / (b - a).cross(d - c);
  if (fraction > 0 && fraction < 1) at.push_back(fraction);  // as is so but for rounding, and overflow
}

ClipBox boxOf(const std::vector<V>& points) {
  ClipBox box{points.front(), points.front()};
  for (const V& p : points) box.add({p, p});
  return box;
}

// Between two neighbouring crossings an edge is on one side; its middle tells on which.
bool polygonInside(const std::vector<V>& inner, const std::vector<V>& edges, const Outer& outer) {
  std::vector<std::pair<V, V>> near;
  const ClipBox box = boxOf(inner);
  for (std::size_t i = 0; i < edges.size(); ++i) {
    const V &c = edges[i], &d = edges[(i + 1) % edges.size()];
    if (ClipBox::of(c, d).overlaps(box)) near.emplace_back(c, d);
  }
  std::vector<double> at;
  for (std::size_t i = 0; i < inner.size(); ++i) {
    const V &a = inner[i], &b = inner[(i + 1) % inner.size()];
    at = {0, 1};
    for (const auto& [c, d] : near) appendCrossings(a, b, c, d, at);
    std::sort(at.begin(), at.end());
    for (std::size_t k = 1; k < at.size(); ++k) {
      if (outer.excludes(pointAtFraction(a, b, (at[k - 1] + at[k]) / 2))) return false;
    }
    if (outer.excludes(a)) return false;
  }
  return true;
}

// The shapes that a region's boundary consists of: asking each of them for points does not search through all.
std::vector<const qcShape*> elementsOf(const qcShape& region) {
  const auto* tree = dynamic_cast<const qcShapeTree*>(&region);
  return tree ? tree->elements_() : std::vector<const qcShape*>{&region};
}

// A point at some distance from the outer boundary has all points within that distance on its own side.
bool curveInside(const qcShape& inner, const Outer& outer) {
  struct Stretch {
    double start, length;
  };
  std::vector<Stretch> stretches;
  const double finest = std::max(kFinest * outer.size(), outer.tolerance());
  for (const qcShape* element : elementsOf(inner)) {
    const qcShapeInfo info(*element);
    for (long piece = 0; piece < info.numPieces(); ++piece) {
      if (outer.excludes(element->perimPoint(info, {static_cast<std::int32_t>(piece), 0}))) return false;
      stretches.push_back({info.startOf(piece), info.pieceLength(piece)});
    }
    while (!stretches.empty()) {
      const auto [start, length] = stretches.back();
      stretches.pop_back();
      const double half = length / 2;
      const V p = element->perimPoint(info, info.perimPos(start + half));
      if (outer.excludes(p)) return false;
      if (!(length > finest) || outer.distance(p) >= half) continue;
      stretches.push_back({start, half});
      stretches.push_back({start + half, half});
    }
  }
  return true;
}

// Where the pieces of a boundary start.
std::vector<V> cornersOf(const qcShape& boundary) {
  std::vector<V> corners;
  for (const qcShape* element : elementsOf(boundary)) {
    const qcShapeInfo info(*element);
    for (long piece = 0; piece < info.numPieces(); ++piece) {
      corners.push_back(element->perimPoint(info, {static_cast<std::int32_t>(piece), 0}));
    }
  }
  return corners;
}

// No corner of the outer boundary lies inside the inner one.
bool holdsNoCorner(const qcShape& inner, const std::vector<V>& corners, const Outer& outer) {
  const qcRect bounds = inner.boundingBox();
  const ClipBox box{bounds.ul(), bounds.lr()};
  return std::none_of(corners.begin(), corners.end(), [&](const V& p) {
    return box.overlaps({p, p}) && inner.within(p) && segmentLength(p, inner.nearestPoint(p)) > outer.tolerance();
  });
}

// Decomposition deviates from the image under a transform that is not linear.
bool isBent(const qcShape& shape) {
  const auto* mapped = dynamic_cast<const qcMappedShape*>(&shape);
  if (mapped && !mapped->overallMapXform()->isLinear()) return true;
  const auto* tree = dynamic_cast<const qcShapeTree*>(mapped ? mapped->underlyingShape().rep() : &shape);
  if (!tree) return false;
  const std::vector<const qcShape*> elements = tree->elements_();
  return std::any_of(elements.begin(), elements.end(), [](const qcShape* element) { return isBent(*element); });
}

// In primitives, if it is made of any, but still a region.
Held inPrimitives(const qcShape& region) {
  if (isBent(region)) return region.clone();
  Held decomposed(region.decompose());
  return decomposed->isRegion() ? decomposed : Held(region.clone());
}

const qcContourTree* contourIn(const qcShape& shape) {
  const auto* mapped = dynamic_cast<const qcMappedShape*>(&shape);
  return dynamic_cast<const qcContourTree*>(mapped ? mapped->underlyingShape().rep() : &shape);
}

// The boundary with a segment wherever it jumps, as distances and positions leave jumps out; null when it does not.
Held withoutJumps(const qcShape& boundary) {
  if (!contourIn(boundary)) return {};
  std::vector<Held> parts, waiting{Held(boundary.clone())};
  while (!waiting.empty()) {
    const Held shape = waiting.back();
    waiting.pop_back();
    const qcContourTree* contour = contourIn(*shape);
    if (!contour) {
      parts.push_back(shape);
      continue;
    }
    const auto* mapped = dynamic_cast<const qcMappedShape*>(shape.rep());
    const std::vector<const qcShape*> elements = contour->elements_();
    for (auto element = elements.rbegin(); element != elements.rend(); ++element) {
      waiting.emplace_back(mapped ? new qcMappedShape(Held(*element), *mapped->overallMapXform(), true) : *element);
    }
  }
  std::vector<Held> whole;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    whole.push_back(parts[i]);
    const V end = parts[i]->endPoint(), start = parts[(i + 1) % parts.size()]->startPoint();
    if (end != start) whole.emplace_back(new qcLineSeg(end, start));
  }
  return whole.size() > parts.size() ? Held(new qcContourTree(whole, true, false)) : Held();
}

}  // namespace

bool isVoid(const qcShape& boundary) {
  if (typeid(boundary) != typeid(qcRect)) return false;
  const qcVector<2>& size = static_cast<const qcRect&>(boundary).size();
  return size.x() < 0 || size.y() < 0;
}

bool liesInside(const qcShape& innerBoundary, const qcShape& outerBoundary, double tolerance) {
  // Polygons are taken as they are, with an edge wherever they jump; the others are decomposed.
  Polygon polygon = polygonOf(innerBoundary), edges = polygonOf(outerBoundary);
  const Held innerWhole = polygon.isNull() ? withoutJumps(innerBoundary) : Held(polygon);
  const Held outerWhole = edges.isNull() ? withoutJumps(outerBoundary) : Held(edges);
  const qcShape& inner = innerWhole.isNull() ? innerBoundary : *innerWhole;
  const qcShape& outer = outerWhole.isNull() ? outerBoundary : *outerWhole;
  if (!Outer(outer, tolerance).mayHold(inner.boundingBox())) return false;
  Held a, b;
  if (polygon.isNull()) polygon = polygonOf(*(a = inPrimitives(inner)));
  if (edges.isNull()) edges = polygonOf(*(b = inPrimitives(outer)));
  const Outer around(edges.isNull() ? outer : *edges, tolerance);
  const bool inside = polygon.isNull() || edges.isNull()
                          ? curveInside(a.isNull() ? inner : *a, around)
                          : polygonInside(polygon->vertices(), edges->vertices(), around);
  return inside &&
         holdsNoCorner(polygon.isNull() ? inner : *polygon, edges.isNull() ? cornersOf(*b) : edges->vertices(), around);
}

}  // namespace qc_shapes
