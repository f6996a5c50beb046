#include "std/shapes/clipshape.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <typeinfo>
#include <utility>

#include "std/shapes/clipper.h"
#include "std/shapes/nesting.h"
#include "std/shapes/segment.h"
#include "vnxstd/shapes/circle.h"
#include "vnxstd/shapes/contourtree.h"
#include "vnxstd/shapes/ellipsearc.h"
#include "vnxstd/shapes/generaltree.h"
#include "vnxstd/shapes/line.h"
#include "vnxstd/shapes/lineseg.h"
#include "vnxstd/shapes/parallelogram.h"
#include "vnxstd/shapes/rect.h"
#include "vnxstd/shapes/regiontree.h"

namespace qc_shapes {

namespace {

using V = qcVector<2>;
using Handle = qcPtrHandle<qcShape>;
using Child = qcPtrHandle_const<qcShape>;
using Result = qcShape::ClipResult;

constexpr double kRounding = 4 * std::numeric_limits<double>::epsilon();

// ---- from shapes to edges

bool areNear(const V& a, const V& b) {
  return qfRealEq(a, b, kRounding * (std::fabs(a.x()) + std::fabs(a.y()) + std::fabs(b.x()) + std::fabs(b.y())));
}

void addArc(ClipOutline& outline, const qcEllipse2& ellipse, double from, double to, const V& end) {
  if (!ellipse.isDegenerate()) return outline.addArc(ellipse, from, to, end);
  // A flat one turns where one of both coordinates does.
  constexpr double kRightAngle = qcRadian::turn / 4;
  const double phase = ellipse.phase().plain();
  const double first = std::min(from, to) + phase, last = std::max(from, to) + phase;
  std::vector<double> stops;
  for (int i = 1; i <= 5; ++i) {  // by number, as far angles are further apart than right angles
    const double stop = (std::floor(first / kRightAngle) + i) * kRightAngle;
    if (stop < last) stops.push_back(stop - phase);
  }
  if (to < from) std::reverse(stops.begin(), stops.end());
  for (const double phi : stops) outline.addSegment(ellipse.point(qcRadian(phi)));
  outline.addSegment(end);
}

// Adds the pieces of a contour; where they do not follow each other, a closed one jumps, and an open one ends.
class Collector {
 public:
  Collector(ClipOutline& outline, bool closed) : outline_(outline), closed_(closed) {}

  /// `alone` is a shape that is all of the contour.
  void add(const qcShape& shape, bool alone = true) {
    if (const auto* segment = dynamic_cast<const qcLineSeg*>(&shape)) {
      goTo(segment->p1());
      outline_.addSegment(segment->p2());
    } else if (const auto* line = dynamic_cast<const qcPolyline*>(&shape)) {
      if (line->isEmpty()) return;
      goTo(line->vertex(0));
      for (const V& p : line->vertices()) outline_.addSegment(p);
    } else if (const auto* arc = dynamic_cast<const qcEllipseArc2*>(&shape)) {
      const double from = arc->phiStart().plain(), to = arc->phiEnd().plain();
      // The seam of a whole ellipse is best where no polygon touches it that has it for an incircle.
      constexpr double kAside = 0.7;
      const bool whole = alone && closed_ && std::fabs(to - from) >= qcRadian::turn;
      const double aside = whole && !arc->ellipse().isDegenerate() ? kAside : 0;
      const V start = aside != 0 ? arc->ellipse().point(qcRadian(from + aside)) : arc->startPoint();
      goTo(start);
      addArc(outline_, arc->ellipse(), from + aside, to + aside, aside != 0 ? start : arc->endPoint());
    } else if (const auto* contour = dynamic_cast<const qcContourTree*>(&shape)) {
      const std::vector<const qcShape*> elements = contour->elements_();
      for (const qcShape* element : elements) add(*element, alone && elements.size() == 1);
    } else {
      const Handle held = shape.decompose();
      const qcShape& parts = *held;
      if (typeid(parts) == typeid(shape)) throw qcShapesError::NotImplemented();  // a primitive that is not known here
      add(parts, alone);
    }
  }

  void finish() {
    if (outline_.chains.size() > before_) outline_.endChain(closed_);
  }

 private:
  void goTo(const V& p) {
    const bool started = outline_.chains.size() > before_;
    if (started && areNear(p, outline_.at())) return;
    if (started && closed_) return outline_.addSegment(p);
    if (started) outline_.endChain(false);
    outline_.beginChain(p);
  }

  ClipOutline& outline_;
  const bool closed_;
  const std::size_t before_ = outline_.chains.size();
};

// The boundaries of a region, all with its inside on the left, and the shapes that they came from.
struct Boundaries {
  ClipOutline outline;
  std::vector<const qcShape*> sources;

  // False when it encloses nothing.
  bool add(const qcShape& boundary, bool inside) {
    if (isVoid(boundary)) return false;
    const bool reversed = boundary.isRightHanded() != inside;
    if (const auto* polygon = dynamic_cast<const qcPolyline*>(&boundary)) {
      outline.addPolygon(polygon->vertices(), reversed);
    } else {
      Collector collector(outline, true);
      collector.add(boundary);
      collector.finish();
      if (reversed && outline.chains.size() > sources.size()) outline.reverseChain();
    }
    if (outline.chains.size() > sources.size()) sources.push_back(&boundary);
    return true;
  }
};

Boundaries boundariesOf(const qcShape& region) {
  Boundaries boundaries;
  const auto* tree = dynamic_cast<const qcRegionTree*>(&region);
  if (!tree) {
    boundaries.add(region, true);
    return boundaries;
  }
  std::vector<std::pair<const qcRegionTree*, bool>> left{{tree, true}};
  while (!left.empty()) {
    const auto [node, inside] = left.back();
    left.pop_back();
    if (!boundaries.add(node->boundary(), inside)) continue;
    for (long i = node->numChildren(); i-- > 0;) left.emplace_back(&node->child(i), !inside);
  }
  return boundaries;
}

// ---- from edges to shapes

// The same path with parts of one edge, or one ellipse, that follow each other as one.
ClipPath merged(const ClipPath& path, bool closed) {
  const auto continues = [&](const ClipBit& a, const ClipBit& b, double& shift) {
    shift = 0;
    if (a.ellipse != b.ellipse) return false;
    if ((a.placeFrom < a.placeTo) != (b.placeFrom < b.placeTo)) return false;
    if (!a.isArc()) return a.edge == b.edge && a.placeTo == b.placeFrom;
    const double gap = a.placeTo - b.placeFrom;
    if (gap != 0 && std::fabs(std::fabs(gap) - qcRadian::turn) > 1e-12) return false;
    shift = gap;
    return std::fabs(b.placeTo + shift - a.placeFrom) <= qcRadian::turn * (1 + 1e-12);
  };
  ClipPath result;
  double shift = 0;
  for (const ClipBit& bit : path) {
    if (!result.empty() && continues(result.back(), bit, shift)) {
      result.back().to = bit.to;
      result.back().placeTo = bit.placeTo + shift;
    } else {
      result.push_back(bit);
    }
  }
  if (closed && result.size() > 1 && continues(result.back(), result.front(), shift)) {
    result.front().from = result.back().from;
    result.front().placeFrom = result.back().placeFrom - shift;
    result.pop_back();
  }
  return result;
}

class Builder {
 public:
  explicit Builder(const ClipOutline& outline) : outline_(outline) {}

  // A contour: one primitive, a polyline, or a contour tree.
  Handle contour(const ClipPath& bits, bool closed) const {
    ClipPath path = merged(bits, closed);
    for (ClipBit& bit : path) {
      if (bit.isArc() && ellipseOf(bit).isStraight(bit.placeTo - bit.placeFrom, bit.from)) bit.ellipse = -1;
    }
    const bool straight = std::none_of(path.begin(), path.end(), [](const ClipBit& bit) { return bit.isArc(); });
    if (!straight) dropPoints(path);
    if (straight && (closed || path.size() > 1)) {
      std::vector<V> vertices;
      vertices.reserve(path.size() + 1);
      for (const ClipBit& bit : path) vertices.push_back(bit.from);
      if (!closed) vertices.push_back(path.back().to);
      return new qcPolyline(std::move(vertices), closed);
    }
    if (straight) return new qcLineSeg(path.front().from, path.front().to);
    if (path.size() == 1 && closed) {
      const ClipBit& bit = path.front();
      const Handle whole(new qcEllipse2(ellipseOf(bit).ellipse()));
      const bool forward = bit.placeFrom < bit.placeTo;
      return forward ? whole : whole->reverse();
    }
    if (path.size() == 1) return arc(path.front());
    std::vector<Child> pieces;
    pieces.reserve(path.size());
    for (const ClipBit& bit : path) {
      pieces.push_back(bit.isArc() ? Child(arc(bit)) : Child(new qcLineSeg(bit.from, bit.to)));
    }
    // Arcs have ends of their own, within rounding; segments meet them.
    for (std::size_t i = 0; i < path.size(); ++i) {
      if (path[i].isArc()) continue;
      const std::size_t before = (i + path.size() - 1) % path.size(), after = (i + 1) % path.size();
      V from = path[i].from, to = path[i].to;
      if (path[before].isArc() && (closed || i > 0)) from = pieces[before]->endPoint();
      if (path[after].isArc() && (closed || after > 0)) to = pieces[after]->startPoint();
      pieces[i] = new qcLineSeg(from, to);
    }
    return new qcContourTree(pieces, closed, false);
  }

  double area(const ClipPath& path) const {
    const V origin = path.front().from;
    double sum = 0;
    for (const ClipBit& bit : path) {
      sum += (bit.from - origin).cross(bit.to - origin);
      if (!bit.isArc()) continue;
      const ClipEllipse& ellipse = ellipseOf(bit);
      const double span = bit.placeTo - bit.placeFrom;
      const V& radii = ellipse.ellipse().radii();
      sum += ellipse.sense() * radii.x() * radii.y() * (span - std::sin(span));
    }
    return sum / 2;
  }

  // A point in the middle of a bit that is as long as any.
  V pointOn(const ClipPath& path) const {
    const auto longest = std::max_element(path.begin(), path.end(), [](const ClipBit& a, const ClipBit& b) {
      return a.from.distance(a.to) < b.from.distance(b.to);
    });
    if (!longest->isArc()) return (longest->from + longest->to) / 2;
    return ellipseOf(*longest).ellipse().point(qcRadian((longest->placeFrom + longest->placeTo) / 2));
  }

  bool isInside(const V& p, const std::vector<ClipEdge>& loop) const {
    return windingOfShape(loop, outline_.ellipses, p, 1) != 0;
  }

 private:
  // Takes away what has no length but for rounding, beside arcs, whose ends are rounded anyway.
  static void dropPoints(ClipPath& path) {
    for (std::size_t i = 0; i < path.size();) {
      const bool whole = path[i].isArc() && std::fabs(path[i].placeTo - path[i].placeFrom) > 1;
      if (whole || path.size() == 1 || !areNear(path[i].from, path[i].to)) {
        ++i;
        continue;
      }
      (i + 1 < path.size() ? path[i + 1].from : path[i - 1].to) = i + 1 < path.size() ? path[i].from : path[i].to;
      path.erase(path.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }

  const ClipEllipse& ellipseOf(const ClipBit& bit) const {
    return outline_.ellipses[static_cast<std::size_t>(bit.ellipse)];
  }
  Handle arc(const ClipBit& bit) const {
    return new qcEllipseArc2(
        qcEllipseArc2::between(ellipseOf(bit).ellipse(), qcRadian(bit.placeFrom), qcRadian(bit.placeTo)));
  }

  const ClipOutline& outline_;
};

Handle collected(const std::vector<Handle>& shapes) {
  if (shapes.size() == 1) return shapes.front();
  return new qcGeneralShapeTree(std::vector<Child>(shapes.begin(), shapes.end()), false);
}

// Regions from closed paths, of which those that run to the right bound holes.
class RegionBuilder {
 public:
  RegionBuilder(const Boundaries& boundaries, const qcShape& region, const ClipOutline& polygon,
                std::vector<ClipPath> paths)
      : boundaries_(boundaries),
        polygon_(polygon),
        builder_(boundaries.outline),
        leftHanded_(!region.isRightHanded()),
        tree_(dynamic_cast<const qcRegionTree*>(&region) != nullptr) {
    for (ClipPath& path : paths) {
      if (path.empty()) continue;
      const double area = builder_.area(path);
      // That of a path that crosses itself, with four edges at least, may add up to nothing.
      const bool nothing = !(std::fabs(area) > 0) || (area < 0 && isNoise(path, area));
      if (nothing && (path.size() < 4 || !crossed())) continue;
      ClipBox box = boundaries.outline.boxOf(path.front());
      for (const ClipBit& bit : path) box.add(boundaries.outline.boxOf(bit));
      loops_.push_back({std::move(path), area, box, -1, {}});
    }
  }

  bool isEmpty() const { return loops_.empty(); }

  // Parts of a boundary that crosses itself, or was cut by one, can only be told together what they wind around.
  Handle build() {
    turnToLeft();
    if (loops_.size() > 1 && crossed()) return bridged();
    const bool holes = std::any_of(loops_.begin(), loops_.end(), [](const Loop& loop) { return loop.area < 0; });
    if (holes && !nest()) return bridged();
    std::vector<Handle> shapes;
    if (!holes && !tree_) {
      for (const Loop& loop : loops_) shapes.push_back(boundary(loop));
      return collected(shapes);
    }
    try {
      // The smallest first: they are complete when they are put into a larger one.
      for (std::size_t i = loops_.size(); i-- > 0;) {
        Loop& loop = loops_[i];
        const bool hole = (loop.area < 0) != leftHanded_;
        qcPtrHandle<qcRegionTree> node(new qcRegionTree(Child(boundary(loop)), hole));
        node->addChildren(loop.children, false);
        if (loop.parent < 0) {
          shapes.push_back(node);
        } else {
          loops_[static_cast<std::size_t>(loop.parent)].children.push_back(node);
        }
      }
    } catch (const qcShapesError::BadGeom&) {
      return bridged();  // boundaries that cross
    }
    std::reverse(shapes.begin(), shapes.end());
    return collected(shapes);
  }

 private:
  struct Loop {
    ClipPath path;
    double area;
    ClipBox box;
    std::ptrdiff_t parent;
    std::vector<Child> children;
  };

  bool crossed() {
    if (!crossed_) crossed_ = crossesItself(boundaries_.outline) || crossesItself(polygon_);
    return *crossed_;
  }

  // What is wound around to the right is inside, too, and may be most of what is left where something crosses itself.
  void turnToLeft() {
    double area = 0;
    for (const Loop& loop : loops_) area += loop.area;
    if (!(area < 0)) return;
    for (Loop& loop : loops_) {
      loop.path = reversed(std::move(loop.path));
      loop.area = -loop.area;
    }
  }

  // Only a region with holes, or one that crosses itself, has paths to the right, but for rounding.
  bool isNoise(const ClipPath& path, double area) const {
    if (boundaries_.outline.chains.size() > 1) return false;
    double noise = 0;
    for (const ClipBit& bit : path) {
      noise += bit.from.distance(bit.to) * (std::fabs(bit.from.x()) + std::fabs(bit.from.y()));
    }
    return std::fabs(area) <= kRounding * noise;
  }

  // Gives every hole the smallest area around it, and every area the smallest hole. False when a hole is in none.
  bool nest() {
    std::stable_sort(loops_.begin(), loops_.end(),
                     [](const Loop& a, const Loop& b) { return std::fabs(a.area) > std::fabs(b.area); });
    std::vector<std::vector<ClipEdge>> edges;
    for (std::size_t i = 0; i < loops_.size(); ++i) {
      edges.emplace_back(loops_[i].path.begin(), loops_[i].path.end());
      const V p = builder_.pointOn(loops_[i].path);
      const bool hole = loops_[i].area < 0;
      for (std::size_t k = i; k-- > 0 && loops_[i].parent < 0;) {
        const bool other = (loops_[k].area < 0) != hole;
        if (!other || !loops_[k].box.overlaps({p, p})) continue;
        if (builder_.isInside(p, edges[k])) loops_[i].parent = static_cast<std::ptrdiff_t>(k);
      }
      if (hole && loops_[i].parent < 0) return false;
    }
    return true;
  }

  // The boundary as it came, where all of it is left.
  Handle boundary(const Loop& loop) const {
    const ClipOutline& outline = boundaries_.outline;
    const std::int32_t start = loop.path.front().edge;
    const auto after = std::upper_bound(
        outline.chains.begin(), outline.chains.end(), start,
        [](std::int32_t edge, const ClipChain& chain) { return edge < static_cast<std::int32_t>(chain.first); });
    if (start >= 0 && after != outline.chains.begin()) {
      const ClipChain& chain = *(after - 1);
      const bool all = std::all_of(loop.path.begin(), loop.path.end(), [&](const ClipBit& bit) {
        const auto edge = static_cast<std::size_t>(bit.edge);
        return bit.edge >= 0 && edge >= chain.first && edge < chain.last && bit.from == outline.edges[edge].from &&
               bit.to == outline.edges[edge].to;
      });
      if (all && loop.path.size() == chain.last - chain.first) {
        return boundaries_.sources[static_cast<std::size_t>(after - 1 - outline.chains.begin())]->clone();
      }
    }
    return builder_.contour(handed(loop.path), true);
  }

  static ClipPath reversed(ClipPath path) {
    for (ClipBit& bit : path) bit.reverse();
    std::reverse(path.begin(), path.end());
    return path;
  }
  ClipPath handed(ClipPath path) const { return leftHanded_ ? reversed(std::move(path)) : path; }

  // One contour through all paths, there and back again between them: it winds like all of them together.
  Handle bridged() const {
    ClipPath all = loops_.front().path;
    const V home = all.front().from;
    for (std::size_t i = 1; i < loops_.size(); ++i) {
      const ClipPath& path = loops_[i].path;
      ClipBit bridge;
      bridge.edge = std::numeric_limits<std::int32_t>::min();  // that of no part of the paths
      bridge.from = home;
      bridge.to = path.front().from;
      all.push_back(bridge);
      all.insert(all.end(), path.begin(), path.end());
      bridge.reverse();
      all.push_back(bridge);
    }
    return builder_.contour(handed(std::move(all)), true);
  }

  const Boundaries& boundaries_;
  const ClipOutline& polygon_;
  const Builder builder_;
  const bool leftHanded_, tree_;
  std::optional<bool> crossed_;
  std::vector<Loop> loops_;
};

// ---- clipping

ClipOutline outlineOf(const qcPolyline& polygon) {
  ClipOutline outline;
  outline.addPolygon(polygon.vertices(), !polygon.isRightHanded());
  return outline;
}

// A segment of the line that reaches across the polygon.
Handle acrossPolygon(const qcShape& shape, const qcPolyline& polygon) {
  const auto* line = dynamic_cast<const qcLine*>(&shape);
  const qcLine whole = line ? *line : static_cast<const qcFLine&>(shape).line();
  const V along = normalized(whole.dir());
  // The first foot is as coarse as the digits of a point that is far away.
  const V foot = qcLine(along, whole.pos()).proj(polygon.center());
  const V middle = qcLine(along, foot).proj(polygon.center());
  const double reach = polygon.boundingBox().perimeter();
  return new qcLineSeg(middle - reach * along, middle + reach * along);
}

Handle clipContour(const qcShape& shape, const qcPolyline& polygon, Result& result) {
  ClipOutline outline;
  Collector collector(outline, false);
  collector.add(shape);
  collector.finish();
  const ClipPaths clipped = clipContours(outline, outlineOf(polygon));
  result = clipped.result;
  if (result == Result::outside) return new qcPolyline;
  if (result == Result::inside) return shape.clone();
  const Builder builder(outline);
  std::vector<Handle> pieces;
  for (const ClipPath& path : clipped.paths) pieces.push_back(builder.contour(path, false));
  return collected(pieces);
}

Handle clipArea(const qcShape& shape, const qcPolyline& polygon, Result& result) {
  const Boundaries boundaries = boundariesOf(shape);
  const ClipOutline outline = outlineOf(polygon);
  result = Result::outside;
  if (boundaries.sources.empty()) return new qcPolyline(true);
  ClipPaths clipped = clipRegion(boundaries.outline, outline);
  result = clipped.result;
  if (result == Result::inside) return shape.clone();
  RegionBuilder builder(boundaries, shape, outline, std::move(clipped.paths));
  if (!builder.isEmpty()) return builder.build();
  result = Result::outside;
  return new qcPolyline(true);
}

Handle clipElements(const qcGeneralShapeTree& tree, const qcPolyline& polygon, Result& result) {
  std::vector<Child> shapes;
  bool all = true;
  for (const qcShape* element : tree.elements_()) {
    qcClipInfo info;
    const Handle part = element->clip_(polygon, info);
    all = all && info.result() == Result::inside;
    if (info.result() == Result::outside) continue;
    const auto* parts = dynamic_cast<const qcGeneralShapeTree*>(part.rep());
    if (parts) {
      shapes.insert(shapes.end(), parts->children().begin(), parts->children().end());
    } else {
      shapes.push_back(part);
    }
  }
  result = shapes.empty() ? Result::outside : all ? Result::inside : Result::clipped;
  if (result == Result::outside) return new qcPolyline;
  return all ? tree.clone() : Handle(new qcGeneralShapeTree(shapes, false));
}

// The corners of a polygon that is an upright rectangle, in whichever direction it runs.
bool isUprightRectangle(const qcPolyline& polygon, V& low, V& high) {
  if (polygon.numVertices() != 4 || !polygon.isClosed()) return false;
  const V* v = polygon.vertices().data();
  const bool alongX = v[0].y() == v[1].y() && v[1].x() == v[2].x() && v[2].y() == v[3].y() && v[3].x() == v[0].x();
  const bool alongY = v[0].x() == v[1].x() && v[1].y() == v[2].y() && v[2].x() == v[3].x() && v[3].y() == v[0].y();
  low = {std::min(v[0].x(), v[2].x()), std::min(v[0].y(), v[2].y())};
  high = {std::max(v[0].x(), v[2].x()), std::max(v[0].y(), v[2].y())};
  return (alongX || alongY) && std::isfinite(high.x() - low.x() + (high.y() - low.y()));
}

enum class Cut { unsure, outside, kept };

// Cuts a segment to a rectangle, unless rounding could matter to whether anything is left. Without branches that depend
// on where the segment lies, but for the last ones.
// (Y. Liang and B. Barsky, "A new concept and method for line clipping", 1984.)
Cut cutToRectangle(V& p1, V& p2, const V& low, const V& high) {
  constexpr double kSure = 1e-9;
  const V start = p1, way = p2 - p1;
  V first, in, out;
  bool along = false;  // a side, which says nothing
  for (int i = 0; i < 2; ++i) {
    const bool rises = way[i] >= 0;
    first[i] = rises ? low[i] : high[i];
    const double last = rises ? high[i] : low[i], scale = 1 / way[i];
    in[i] = (first[i] - start[i]) * scale;
    out[i] = (last - start[i]) * scale;
    along = along || (!std::isfinite(scale) && (start[i] == low[i] || start[i] == high[i]));
  }
  // An end that lies inside stays as it is, whatever rounding makes of its distance from a side.
  const auto isInside = [&](const V& p) {
    return p.x() >= low.x() && p.x() <= high.x() && p.y() >= low.y() && p.y() <= high.y();
  };
  const bool keepsStart = isInside(p1), keepsEnd = isInside(p2);
  const double enters = keepsStart ? 0 : std::max({in.x(), in.y(), 0.0});
  const double leaves = keepsEnd ? 1 : std::min({out.x(), out.y(), 1.0});
  const double rest = leaves - enters;
  if (along || !(std::fabs(rest) >= kSure) || !std::isfinite(way.x() + way.y())) return Cut::unsure;
  if (rest < 0) return Cut::outside;
  for (int i = 0; i < 2; ++i) {
    const double last = way[i] >= 0 ? high[i] : low[i];
    p1[i] = keepsStart ? start[i] : enters == in[i] ? first[i] : start[i] + enters * way[i];
    p2[i] = keepsEnd ? p2[i] : leaves == out[i] ? last : start[i] + leaves * way[i];
  }
  return Cut::kept;
}

Handle clipSegment(const qcLineSeg& segment, const qcPolyline& polygon, qcClipInfo& info) {
  V low, high, p1 = segment.p1(), p2 = segment.p2();
  const Cut cut = isUprightRectangle(polygon, low, high) ? cutToRectangle(p1, p2, low, high) : Cut::unsure;
  if (cut == Cut::unsure) return clipShape(segment, polygon, info);
  const bool all = p1 == segment.p1() && p2 == segment.p2();
  info.result(cut == Cut::outside ? Result::outside : all ? Result::inside : Result::clipped);
  return cut == Cut::outside ? Handle(new qcPolyline) : Handle(new qcLineSeg(p1, p2));
}

}  // namespace

qcPtrHandle<qcShape> clipShape(const qcShape& shape, const qcPolyline& polygon, qcClipInfo& info) {
  if (!polygon.isRegion()) throw qcShapesError::NotRegion();
  Result result = Result::outside;
  Handle inside;
  if (shape.isEmpty()) {
    inside = new qcPolyline;
  } else if (const auto* tree = dynamic_cast<const qcGeneralShapeTree*>(&shape)) {
    inside = clipElements(*tree, polygon, result);
  } else if (dynamic_cast<const qc_InfiniteLine*>(&shape)) {
    inside = clipContour(*acrossPolygon(shape, polygon), polygon, result);
  } else if (shape.isRegion()) {
    inside = clipArea(shape, polygon, result);
  } else {
    inside = clipContour(shape, polygon, result);
  }
  info.result(result);
  return inside;
}

}  // namespace qc_shapes

using qc_shapes::clipShape;

qcPtrHandle<qcShape> qcCircle::clip_(const qcPolyline& polygon, qcClipInfo& info) const {
  return clipShape(*this, polygon, info);
}
qcPtrHandle<qcShape> qcLineSeg::clip_(const qcPolyline& polygon, qcClipInfo& info) const {
  return qc_shapes::clipSegment(*this, polygon, info);
}
qcPtrHandle<qcShape> qcPolyline::clip_(const qcPolyline& polygon, qcClipInfo& info) const {
  return clipShape(*this, polygon, info);
}
qcPtrHandle<qcShape> qcShapeTree::clip_(const qcPolyline& polygon, qcClipInfo& info) const {
  return clipShape(*this, polygon, info);
}
qcPtrHandle<qcShape> qc_EllipseShape::clip_(const qcPolyline& polygon, qcClipInfo& info) const {
  return clipShape(*this, polygon, info);
}
qcPtrHandle<qcShape> qc_InfiniteLine::clip_(const qcPolyline& polygon, qcClipInfo& info) const {
  return clipShape(*this, polygon, info);
}
qcPtrHandle<qcShape> qc_ParallelogramShape::clip_(const qcPolyline& polygon, qcClipInfo& info) const {
  return clipShape(*this, polygon, info);
}
