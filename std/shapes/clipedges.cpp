#include "std/shapes/clipedges.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "std/shapes/exact.h"

namespace qc_shapes {

namespace {

using V = qcVector<2>;

constexpr double kRounding = 4 * std::numeric_limits<double>::epsilon();

void checkFinite(const V& p) {
  if (!std::isfinite(p.x()) || !std::isfinite(p.y())) throw qcShapesError::BadGeom();
}

V pointBetween(const V& a, const V& b, double t) {
  const V p = t <= 0.5 ? a + t * (b - a) : b + (1 - t) * (a - b);
  return std::isfinite(p.x() + p.y()) ? p : a;  // where the difference overflows
}

// On which side of an edge in the direction from u to v a point on its line comes to lie when it is nudged.
int lean(const V& u, const V& v) {
  if (v.y() != u.y()) return v.y() < u.y() ? 1 : -1;
  return v.x() > u.x() ? 1 : -1;
}

// 1 on the left and -1 on the right of the edge from u to v, of a polygon or of a shape that is nudged.
int sideOfPolygonEdge(const V& u, const V& v, const V& p, int nudge) {
  const int side = orientation(u, v, p);
  return side != 0 ? side : nudge * lean(u, v);
}
int sideOfShapeEdge(const V& a, const V& b, const V& p, int nudge) { return sideOfPolygonEdge(a, b, p, -nudge); }

// How often the chords wind around a point; `level` says whether an end at its height counts as above it.
template <class Side>
int windingOfChords(const std::vector<ClipEdge>& edges, const V& p, bool level, Side side) {
  const auto isAbove = [&p, level](const V& q) { return level ? q.y() >= p.y() : q.y() > p.y(); };
  int number = 0;
  for (const ClipEdge& edge : edges) {
    const bool up = isAbove(edge.to);
    if (isAbove(edge.from) == up || std::max(edge.from.x(), edge.to.x()) < p.x()) continue;
    if ((side(edge.from, edge.to) > 0) == up) number += up ? 1 : -1;
  }
  return number;
}

// ---- pairs of edges whose boxes overlap

std::vector<ClipBox> boxesOf(const ClipOutline& outline) {
  std::vector<ClipBox> boxes;
  boxes.reserve(outline.edges.size());
  for (const ClipEdge& edge : outline.edges) boxes.push_back(outline.boxOf(edge));
  return boxes;
}

ClipBox unionOf(const std::vector<ClipBox>& boxes) {
  ClipBox all = boxes.front();
  for (const ClipBox& box : boxes) all.add(box);
  return all;
}

// The boxes that overlap `window`, by number.
std::vector<std::int32_t> inWindow(const std::vector<ClipBox>& boxes, const ClipBox& window) {
  std::vector<std::int32_t> numbers;
  numbers.reserve(boxes.size());
  for (std::size_t i = 0; i < boxes.size(); ++i) {
    if (boxes[i].overlaps(window)) numbers.push_back(static_cast<std::int32_t>(i));
  }
  return numbers;
}

// The second boxes are put into slabs along one coordinate, so many that a box is in about two of them, and each of the
// first is compared with those in the slabs that it reaches. A pair is visited once, in the first slab of both.
template <class Visit>
void forOverlaps(const std::vector<ClipBox>& a, const std::vector<ClipBox>& b, Visit visit) {
  if (a.empty() || b.empty()) return;
  ClipBox window = unionOf(b);
  const std::vector<std::int32_t> first = inWindow(a, window);
  if (first.empty()) return;
  ClipBox reached = a[static_cast<std::size_t>(first.front())];
  for (const std::int32_t i : first) reached.add(a[static_cast<std::size_t>(i)]);
  const std::vector<std::int32_t> second = inWindow(b, reached);
  constexpr std::size_t kFew = 16;
  if (second.size() <= kFew) {
    for (const std::int32_t i : first) {
      for (const std::int32_t k : second) {
        if (a[static_cast<std::size_t>(i)].overlaps(b[static_cast<std::size_t>(k)])) visit(i, k);
      }
    }
    return;
  }
  window = b[static_cast<std::size_t>(second.front())];
  V total;
  for (const std::int32_t k : second) {
    const ClipBox& box = b[static_cast<std::size_t>(k)];
    window.add(box);
    total += box.high - box.low;
  }
  const auto most = static_cast<double>(second.size());
  const auto wanted = [&](int axis) {
    const double extent = window.high[axis] - window.low[axis];
    const double count = extent / total[axis] * most;
    return count >= 1 ? std::min(count, most) : 1;
  };
  const int axis = wanted(0) > wanted(1) ? 0 : 1;
  const auto slabs = static_cast<std::size_t>(wanted(axis));
  const double low = window.low[axis], extent = window.high[axis] - low;
  const double scale = extent > 0 && std::isfinite(extent) ? static_cast<double>(slabs) / extent : 0;
  const auto slabOf = [&](double x) {
    const double slab = (x - low) * scale;
    return slab > 0 ? std::min(static_cast<std::size_t>(std::min(slab, 1e9)), slabs - 1) : std::size_t{0};
  };
  std::vector<std::int32_t> starts(slabs + 1), entries;
  const auto eachSlab = [&](std::int32_t k, auto&& use) {
    const ClipBox& box = b[static_cast<std::size_t>(k)];
    for (std::size_t slab = slabOf(box.low[axis]); slab <= slabOf(box.high[axis]); ++slab) use(slab);
  };
  for (const std::int32_t k : second) eachSlab(k, [&](std::size_t slab) { ++starts[slab]; });
  for (std::size_t slab = 1; slab <= slabs; ++slab) starts[slab] += starts[slab - 1];
  entries.resize(static_cast<std::size_t>(starts[slabs]));
  for (const std::int32_t k : second) {
    eachSlab(k, [&](std::size_t slab) { entries[static_cast<std::size_t>(--starts[slab])] = k; });
  }
  for (const std::int32_t i : first) {
    const ClipBox& box = a[static_cast<std::size_t>(i)];
    const std::size_t from = slabOf(box.low[axis]), to = slabOf(box.high[axis]);
    for (std::size_t slab = from; slab <= to; ++slab) {
      for (auto entry = static_cast<std::size_t>(starts[slab]); entry < static_cast<std::size_t>(starts[slab + 1]);
           ++entry) {
        const ClipBox& other = b[static_cast<std::size_t>(entries[entry])];
        if (!box.overlaps(other) || std::max(from, slabOf(other.low[axis])) != slab) continue;
        visit(i, entries[entry]);
      }
    }
  }
}

// ---- crossings

// How far along a segment a point on it lies.
double placeOn(const V& a, const V& b, const V& p) {
  if (p == a) return 0;
  if (p == b) return 1;
  const bool wide = std::fabs(b.x() - a.x()) > std::fabs(b.y() - a.y());
  const double part = wide ? (p.x() - a.x()) / (b.x() - a.x()) : (p.y() - a.y()) / (b.y() - a.y());
  return part > 0 ? std::min(part, 1.0) : 0;
}

bool isBefore(const V& a, const V& b) { return a.x() != b.x() ? a.x() < b.x() : a.y() < b.y(); }

// Where two segments cross that do so; the same for either direction of both.
V crossing(const V& a, const V& b, const V& u, const V& v) {
  const V &a1 = isBefore(a, b) ? a : b, &b1 = isBefore(a, b) ? b : a;
  const V &u1 = isBefore(u, v) ? u : v, &v1 = isBefore(u, v) ? v : u;
  const V d = v1 - u1, way = b1 - a1;
  // What rounding does to the point grows as the angle gets smaller; of edges nearly on one line it may lie anywhere.
  constexpr double kFlat = 1e-4;
  if (std::fabs(d.cross(way)) > kFlat * (std::fabs(d.x() * way.y()) + std::fabs(d.y() * way.x()))) {
    const double before = d.cross(a1 - u1), after = d.cross(b1 - u1);
    return pointBetween(a1, b1, std::clamp(before / (before - after), 0.0, 1.0));
  }
  const double t = exactCrossing(a1, b1, u1, v1);
  return pointBetween(a1, b1, t >= 0 ? t : 0.5);
}

// Within the ends of a segment, for a point on its line.
bool isWithin(const V& a, const V& b, const V& p) {
  const ClipBox box = ClipBox::of(a, b);
  return box.overlaps({p, p});
}

class Finder {
 public:
  Finder(const ClipOutline& shape, const ClipOutline& polygon, int nudge)
      : shape_(shape), polygon_(polygon), nudge_(nudge) {}

  void visit(std::int32_t s, std::int32_t c) {
    if (shape_.edges[static_cast<std::size_t>(s)].isArc()) {
      crossArc(s, c);
    } else {
      crossSegments(s, c);
    }
  }

  ClipCrossings finish() {
    sort(shape_, found_.onShape);
    sort(polygon_, found_.onPolygon);
    return std::move(found_);
  }

 private:
  void crossSegments(std::int32_t s, std::int32_t c) {
    const ClipEdge &edge = shape_.edges[static_cast<std::size_t>(s)],
                   &cut = polygon_.edges[static_cast<std::size_t>(c)];
    const V &a = edge.from, &b = edge.to, &u = cut.from, &v = cut.to;
    const int ou = orientation(a, b, u), ov = orientation(a, b, v);
    if (ou == ov && ou != 0) return;
    const int oa = orientation(u, v, a), ob = orientation(u, v, b);
    if (oa == ob && oa != 0) return;
    const bool touching = ou == 0 || ov == 0 || oa == 0 || ob == 0;
    if (touching) {
      const bool first = oa == 0 && isWithin(u, v, a), second = ou == 0 && isWithin(a, b, u);
      if (first || second || (ob == 0 && isWithin(u, v, b)) || (ov == 0 && isWithin(a, b, v))) found_.touched = true;
      // Each end is the start of one edge.
      if (first && a != u && a != v) addTouch(found_.onPolygon, c, placeOn(u, v, a), a);
      if (second && u != a && u != b) addTouch(found_.onShape, s, placeOn(a, b, u), u);
    }
    const int tie = nudge_ * lean(u, v), shapeTie = -nudge_ * lean(a, b);
    const int sideA = oa != 0 ? oa : tie, sideB = ob != 0 ? ob : tie;
    if (sideA == sideB || (ou != 0 ? ou : shapeTie) == (ov != 0 ? ov : shapeTie)) return;
    if (!touching) found_.crossed = true;
    const V p = oa == 0 ? a : ob == 0 ? b : ou == 0 ? u : ov == 0 ? v : crossing(a, b, u, v);
    addCrossing(s, placeOn(a, b, p), c, placeOn(u, v, p), p, sideB);
  }

  void crossArc(std::int32_t s, std::int32_t c) {
    const ClipEdge &edge = shape_.edges[static_cast<std::size_t>(s)],
                   &cut = polygon_.edges[static_cast<std::size_t>(c)];
    const V &a = edge.from, &b = edge.to, &u = cut.from, &v = cut.to;
    const ClipEllipse& ellipse = shape_.ellipses[static_cast<std::size_t>(edge.ellipse)];
    const int turn = turnOf(edge, ellipse);
    const int sideU = sideOfShapeEdge(a, b, u, nudge_), sideV = sideOfShapeEdge(a, b, v, nudge_);
    if (sideU == turn && sideV == turn) return;  // beyond the chord
    const int sideA = sideOfPolygonEdge(u, v, a, nudge_), sideB = sideOfPolygonEdge(u, v, b, nudge_);
    const int ofChord = sideA != sideB && sideU != sideV ? sideB : 0;
    // The same numbers for either direction of the cut.
    const bool forward = isBefore(u, v);
    const V &low = forward ? u : v, &high = forward ? v : u;
    const V start = ellipse.toCircle(low), end = ellipse.toCircle(high), d = end - start;
    const bool inLow = start * start < 1, inHigh = end * end < 1;
    const bool inU = sideU != turn && (forward ? inLow : inHigh), inV = sideV != turn && (forward ? inHigh : inLow);
    const int sign = ofChord - turn * (static_cast<int>(inV) - static_cast<int>(inU));
    const bool once = sign != 0;
    if (!once && (ofChord != 0 || inU || inV)) return;
    // Where the line crosses the unit circle.
    const double squared = d * d, distance = start.cross(d) / std::sqrt(squared);
    const double half = (1 - std::fabs(distance)) * (1 + std::fabs(distance));
    const double middle = -(start * d) / squared, reach = half > 0 ? std::sqrt(half / squared) : 0;
    const auto onLine = [&](bool leaves) { return leaves == forward ? middle + reach : middle - reach; };
    const auto onCut = [&](bool leaves) {
      const double t = onLine(leaves);
      return t > 0 ? std::min(t, 1.0) : 0;  // also where it is no number, on tiny edges
    };
    const auto beyondCut = [&](bool leaves) { return std::max(-onLine(leaves), onLine(leaves) - 1); };
    const auto parameterAt = [&](double t) { return ellipse.parameter(pointBetween(start, end, t)); };
    const auto add = [&](bool leaves, int signOf) {
      const double t = onCut(leaves);
      addOnArc(s, c, parameterAt(t), pointBetween(low, high, t), signOf);
    };
    if (once) {
      // Where the cut passes an end of the arc by rounding alone, it may seem to enter where it leaves.
      const bool leaves = sign == turn;
      const double span = std::fabs(edge.placeTo - edge.placeFrom),
                   beyond = beyondArc(edge, parameterAt(onCut(leaves)));
      const bool turned = (beyond > 1e-3 * span && beyondArc(edge, parameterAt(onCut(!leaves))) < beyond) ||
                          (beyondCut(leaves) > 1e-3 && beyondCut(!leaves) < beyondCut(leaves));
      return add(leaves != turned, sign);
    }
    if (!(half > 2 * (ellipse.blur(u, d) + ellipse.blur(v, d)))) return;
    // The part of the line in the ellipse holds neither end of the cut, nor does it cross the chord: all of it is on
    // the cut or none, and on one side of the chord.
    if (!(middle > 0 && middle < 1)) return;
    const bool beforeChord = sideU == sideV || middle < exactCrossing(low, high, a, b);
    const int side = beforeChord == forward ? sideU : sideV;
    if (side == turn) return;
    add(false, -turn);
    add(true, turn);
  }

  // Of the values of a parameter that differ by whole turns the one nearest to the arc, kept on the arc.
  static double placeOnArc(const ClipEdge& edge, double phi) {
    const double middle = (edge.placeFrom + edge.placeTo) / 2, least = std::min(edge.placeFrom, edge.placeTo);
    const double place = middle + std::remainder(phi - middle, qcRadian::turn);
    return place > least ? std::min(place, std::max(edge.placeFrom, edge.placeTo)) : least;
  }

  // How far a value of the parameter, but for whole turns, is from those of the arc; negative between its ends.
  static double beyondArc(const ClipEdge& edge, double phi) {
    const double middle = (edge.placeFrom + edge.placeTo) / 2;
    return std::fabs(std::remainder(phi - middle, qcRadian::turn)) - std::fabs(edge.placeTo - edge.placeFrom) / 2;
  }

  static int turnOf(const ClipEdge& edge, const ClipEllipse& ellipse) {
    return edge.placeFrom < edge.placeTo ? ellipse.sense() : -ellipse.sense();
  }

  void addOnArc(std::int32_t s, std::int32_t c, double phi, V p, int sign) {
    const ClipEdge &edge = shape_.edges[static_cast<std::size_t>(s)],
                   &cut = polygon_.edges[static_cast<std::size_t>(c)];
    // What rounding alone keeps from an end is put there, so that nothing is left between them.
    const double reach = kRounding * (std::fabs(p.x()) + std::fabs(p.y()));
    const auto isNear = [&](const V& q) { return qfRealEq(p, q, reach); };
    const bool atStart = isNear(edge.from), atArcsEnd = atStart || isNear(edge.to);
    const bool atCutsStart = isNear(cut.from), atCutsEnd = atCutsStart || isNear(cut.to);
    double place = placeOnArc(edge, phi);
    if (atArcsEnd) {
      place = atStart ? edge.placeFrom : edge.placeTo;
      p = atStart ? edge.from : edge.to;
    }
    if (atCutsEnd) p = atCutsStart ? cut.from : cut.to;
    (atArcsEnd || atCutsEnd ? found_.touched : found_.crossed) = true;
    addCrossing(s, place, c, placeOn(cut.from, cut.to, p), p, sign);
  }

  static void addTouch(std::vector<ClipEvent>& events, std::int32_t edge, double place, const V& p) {
    events.push_back({p, place, edge, -1, 0});
  }

  void addCrossing(std::int32_t s, double placeOnShape, std::int32_t c, double placeOnPolygon, const V& p, int sign) {
    found_.onShape.push_back({p, placeOnShape, s, found_.numNodes, sign});
    found_.onPolygon.push_back({p, placeOnPolygon, c, found_.numNodes, sign});
    ++found_.numNodes;
  }

  static void sort(const ClipOutline& outline, std::vector<ClipEvent>& events) {
    std::sort(events.begin(), events.end(), [&outline](const ClipEvent& a, const ClipEvent& b) {
      if (a.edge != b.edge) return a.edge < b.edge;
      const ClipEdge& edge = outline.edges[static_cast<std::size_t>(a.edge)];
      return edge.along(a.place) < edge.along(b.place);
    });
  }

  const ClipOutline &shape_, &polygon_;
  const int nudge_;
  ClipCrossings found_;
};

}  // namespace

ClipEllipse::ClipEllipse(const qcEllipse2& ellipse)
    : ellipse_(ellipse), axis_(1, ellipse.angle()), sense_(ellipse.isRightHanded() ? 1 : -1) {}

qcVector<2> ClipEllipse::toCircle(const qcVector<2>& p) const {
  const V d = p - ellipse_.center();
  return {axis_ * d / ellipse_.radii().x(), axis_.cross(d) / ellipse_.radii().y()};
}

double ClipEllipse::parameter(const qcVector<2>& onCircle) const {
  return std::atan2(sense_ * onCircle.y(), onCircle.x()) - ellipse_.phase().plain();
}

bool ClipEllipse::isStraight(double span, const qcVector<2>& p) const {
  const double larger = std::max(ellipse_.radii().x(), ellipse_.radii().y());
  return larger * span * span < 8 * kRounding * (larger + reach(p));
}

double ClipEllipse::blur(const qcVector<2>& p, const qcVector<2>& d) const {
  const double across = std::fabs(d.y()) / ellipse_.radii().x() + std::fabs(d.x()) / ellipse_.radii().y();
  return kRounding * (1 + reach(p) * across / d.len());
}

double ClipEllipse::slack(const qcVector<2>& p) const {
  const double a = ellipse_.radii().x(), b = ellipse_.radii().y(), larger = std::max(a, b);
  return 4 * std::min(kRounding * larger / std::min(a, b), 1.0) * (larger + reach(p));
}

double ClipEllipse::reach(const qcVector<2>& p) const {
  const V& c = ellipse_.center();
  return std::fabs(p.x()) + std::fabs(p.y()) + std::fabs(c.x()) + std::fabs(c.y());
}

ClipBox ClipOutline::boxOf(const ClipEdge& edge) const {
  ClipBox box = ClipBox::of(edge.from, edge.to);
  if (!edge.isArc()) return box;
  // The tangents at both ends meet outside.
  const qcEllipse2& ellipse = ellipses[static_cast<std::size_t>(edge.ellipse)].ellipse();
  const V middle = ellipse.point(qcRadian((edge.placeFrom + edge.placeTo) / 2)) - ellipse.center();
  const V meet = ellipse.center() + middle / std::cos((edge.placeTo - edge.placeFrom) / 2);
  box.add({meet, meet});
  const double reach =
      std::fabs(box.low.x()) + std::fabs(box.low.y()) + std::fabs(box.high.x()) + std::fabs(box.high.y());
  box.widen(kRounding * reach);
  return box;
}

void ClipOutline::beginChain(const qcVector<2>& start) {
  checkFinite(start);
  chains.push_back({edges.size(), edges.size(), start});
  at_ = start;
}

void ClipOutline::addSegment(const qcVector<2>& to) {
  checkFinite(to);
  if (to == at_) return;
  edges.push_back({at_, to});
  at_ = to;
}

void ClipOutline::addArc(const qcEllipse2& ellipse, double from, double to, const qcVector<2>& end) {
  checkFinite(ellipse.center());
  constexpr double kRightAngle = qcRadian::turn / 4;
  const int pieces = 1 + static_cast<int>(std::fabs(to - from) / kRightAngle);
  const auto number = static_cast<std::int32_t>(ellipses.size());
  ellipses.emplace_back(ellipse);
  double place = from;
  for (int i = 1; i <= pieces; ++i) {
    const double next = i == pieces ? to : from + (to - from) * i / pieces;
    const V p = i == pieces ? end : ellipse.point(qcRadian(next));
    checkFinite(p);
    if (p == at_) continue;
    if (ellipses.back().isStraight(next - place, p)) {
      edges.push_back({at_, p});
    } else {
      edges.push_back({at_, p, place, next, number});
    }
    at_ = p;
    place = next;
  }
}

void ClipOutline::endChain(bool closed) {
  if (closed) addSegment(chains.back().start);
  chains.back().last = edges.size();
}

void ClipOutline::addPolygon(const std::vector<qcVector<2>>& vertices, bool reversed) {
  if (edges.empty()) edges.reserve(vertices.size());  // later on, room for one more each time would copy them all
  beginChain(vertices.front());
  for (std::size_t i = 1; i < vertices.size(); ++i) addSegment(vertices[reversed ? vertices.size() - i : i]);
  endChain(true);
}

void ClipOutline::reverseChain() {
  const auto first = edges.begin() + static_cast<std::ptrdiff_t>(chains.back().first);
  std::for_each(first, edges.end(), [](ClipEdge& edge) {
    edge.reverse();
    if (!edge.isArc()) std::swap(edge.placeFrom, edge.placeTo);  // these count from where the segment now starts
  });
  std::reverse(first, edges.end());
}

ClipCrossings findCrossings(const ClipOutline& shape, const ClipOutline& polygon, int nudge) {
  Finder finder(shape, polygon, nudge);
  std::vector<ClipBox> boxes = boxesOf(shape);
  for (std::size_t i = 0; i < boxes.size(); ++i) {
    const ClipEdge& edge = shape.edges[i];
    if (edge.isArc()) boxes[i].widen(shape.ellipses[static_cast<std::size_t>(edge.ellipse)].slack(edge.from));
  }
  forOverlaps(boxes, boxesOf(polygon), [&](std::int32_t s, std::int32_t c) { finder.visit(s, c); });
  return finder.finish();
}

namespace {

bool segmentsCross(const ClipEdge& a, const ClipEdge& b) {
  return orientation(a.from, a.to, b.from) * orientation(a.from, a.to, b.to) < 0 &&
         orientation(b.from, b.to, a.from) * orientation(b.from, b.to, a.to) < 0;
}

// Takes arcs apart where their boxes overlap, until they are straight. Crossings at angles that rounding could have
// made are none, nor are those of arcs that lie on each other for so long that the search is given up.
bool edgesCross(const ClipOutline& outline, const ClipEdge& one, const ClipEdge& other) {
  if (!one.isArc() && !other.isArc()) return segmentsCross(one, other);
  constexpr int kMostPairs = 4096;
  constexpr double kFlat = 1e-5, kAside = 0.4837;  // so that no simple place is where two parts meet
  const auto ellipseOf = [&](const ClipEdge& e) -> const ClipEllipse& {
    return outline.ellipses[static_cast<std::size_t>(e.ellipse)];
  };
  if (one.isArc() && other.isArc() && ellipseOf(one).ellipse() == ellipseOf(other).ellipse()) return false;
  const auto isBent = [&](const ClipEdge& e) {
    return e.isArc() && !ellipseOf(e).isStraight(e.placeTo - e.placeFrom, e.from);
  };
  std::vector<std::array<ClipEdge, 2>> left{{one, other}};
  for (int pairs = 0; !left.empty() && pairs < kMostPairs; ++pairs) {
    auto [a, b] = left.back();
    left.pop_back();
    if (!outline.boxOf(a).overlaps(outline.boxOf(b))) continue;
    if (!isBent(a) || (isBent(b) && a.from.distance(a.to) < b.from.distance(b.to))) std::swap(a, b);
    if (!isBent(a)) {
      const V along = a.to - a.from, way = b.to - b.from;
      if (segmentsCross(a, b) && std::fabs(along.cross(way)) > kFlat * along.len() * way.len()) return true;
      continue;
    }
    const double middle = a.placeFrom + kAside * (a.placeTo - a.placeFrom);
    ClipEdge rest = a;
    a.placeTo = rest.placeFrom = middle;
    a.to = rest.from = ellipseOf(a).ellipse().point(qcRadian(middle));
    left.push_back({rest, b});
    left.push_back({a, b});
  }
  return false;
}

}  // namespace

bool crossesItself(const ClipOutline& outline) {
  const std::vector<ClipBox> boxes = boxesOf(outline);
  std::vector<std::size_t> chainOf;
  for (std::size_t i = 0; i < outline.chains.size(); ++i) chainOf.resize(outline.chains[i].last, i);
  bool crosses = false;
  forOverlaps(boxes, boxes, [&](std::int32_t i, std::int32_t k) {
    const auto one = static_cast<std::size_t>(i), other = static_cast<std::size_t>(k);
    if (crosses || one >= other || chainOf[one] != chainOf[other]) return;
    crosses = edgesCross(outline, outline.edges[one], outline.edges[other]);
  });
  return crosses;
}

int windingOfPolygon(const ClipOutline& polygon, const qcVector<2>& p, int nudge) {
  const auto side = [&](const V& u, const V& v) { return sideOfPolygonEdge(u, v, p, nudge); };
  return windingOfChords(polygon.edges, p, nudge < 0, side);
}

int windingOfShape(const std::vector<ClipEdge>& edges, const std::vector<ClipEllipse>& ellipses, const qcVector<2>& p,
                   int nudge) {
  const auto side = [&](const V& a, const V& b) { return sideOfShapeEdge(a, b, p, nudge); };
  int number = windingOfChords(edges, p, nudge > 0, side);
  for (const ClipEdge& edge : edges) {
    if (!edge.isArc()) continue;
    const ClipEllipse& ellipse = ellipses[static_cast<std::size_t>(edge.ellipse)];
    const int turn = edge.placeFrom < edge.placeTo ? ellipse.sense() : -ellipse.sense();
    const V onCircle = ellipse.toCircle(p);
    if (onCircle * onCircle < 1 && side(edge.from, edge.to) != turn) number += turn;
  }
  return number;
}

}  // namespace qc_shapes
