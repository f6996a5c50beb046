#include "std/shapes/clipper.h"

#include <algorithm>
#include <cstdlib>
#include <span>
#include <tuple>
#include <utility>

#include "std/shapes/exact.h"

namespace qc_shapes {

namespace {

using V = qcVector<2>;
using Events = std::span<const ClipEvent>;

ClipBit wholeEdge(const ClipOutline& outline, std::size_t edge) {
  return {outline.edges[edge], static_cast<std::int32_t>(edge)};
}

// The events on the edges of a chain; they are sorted.
Events eventsOf(const ClipChain& chain, const std::vector<ClipEvent>& events) {
  const auto before = [](const ClipEvent& event, std::size_t edge) {
    return static_cast<std::size_t>(event.edge) < edge;
  };
  const auto first = std::lower_bound(events.begin(), events.end(), chain.first, before);
  return {first, std::lower_bound(first, events.end(), chain.last, before)};
}

// ---- regions

// Bits between two crossings, to be travelled once; -1 stands for both nodes of a whole contour.
struct Strand {
  std::int32_t start, end;
  std::size_t first, last;
  bool reversed;
};

class Weaver {
 public:
  explicit Weaver(std::int32_t numNodes) : numNodes_(static_cast<std::size_t>(numNodes)) {}

  // Adds the parts of a closed contour, each as often as `winding` says, which a crossing changes by `step` times its
  // sign; backwards where that is negative. The numbers of the edges are sign-changed for a polygon.
  void add(const ClipOutline& outline, const ClipChain& chain, Events events, int winding, int step, bool ofPolygon) {
    const auto crosses = [](const ClipEvent& event) { return event.node >= 0; };
    const auto start = std::find_if(events.begin(), events.end(), crosses);
    const std::size_t firstBit = bits_.size();
    if (start == events.end()) {
      if (winding != 0) addBits(outline, chain, {}, events, ofPolygon);
      return addStrands(-1, -1, firstBit, winding);
    }
    for (auto from = start;;) {
      winding += step * from->sign;
      auto to = std::find_if(from + 1, events.end(), crosses);
      const bool round = to == events.end();
      if (round) to = start;
      const std::size_t first = bits_.size();
      if (winding != 0) {
        // Round to the start of the chain, and from there on.
        if (round) {
          Place place{from->edge, from->place, from->point};
          addBits(outline, chain, place, Events(from + 1, events.end()), ofPolygon);
          addBits(outline, chain, {}, Events(events.begin(), to + 1), ofPolygon, true);
        } else {
          addBits(outline, chain, {from->edge, from->place, from->point}, Events(from + 1, to + 1), ofPolygon, true);
        }
      }
      addStrands(from->node, to->node, first, winding);
      if (round) return;
      from = to;
    }
  }

  // Every bit of a contour backwards once, for a comparison.
  void addReversed(const ClipOutline& outline, const ClipChain& chain, Events events) {
    const std::size_t first = bits_.size();
    addBits(outline, chain, {}, events, false);
    addStrands(-1, -1, first, -1);
  }

  std::vector<ClipPath> weave() const {
    constexpr std::size_t kNone = static_cast<std::size_t>(-1);
    std::vector<std::size_t> firstOut(numNodes_, kNone), nextOut(strands_.size(), kNone);
    std::vector<bool> used(strands_.size());
    for (std::size_t i = strands_.size(); i-- > 0;) {
      if (strands_[i].start < 0) continue;
      std::size_t& head = firstOut[static_cast<std::size_t>(strands_[i].start)];
      nextOut[i] = head;
      head = i;
    }
    std::vector<ClipPath> paths;
    for (std::size_t i = 0; i < strands_.size(); ++i) {
      if (used[i]) continue;
      ClipPath path;
      for (std::size_t strand = i;;) {
        used[strand] = true;
        append(strands_[strand], path);
        if (strands_[strand].end == strands_[i].start) break;
        std::size_t& head = firstOut[static_cast<std::size_t>(strands_[strand].end)];
        while (head != kNone && used[head]) head = nextOut[head];
        if (head == kNone) throw qcShapesError::BadGeom();  // coordinates beyond the range of exact signs
        strand = head;
      }
      paths.push_back(std::move(path));
    }
    return paths;
  }

 private:
  struct Place {
    std::int32_t edge = -1;
    double place = 0;
    V point;
  };

  // The bits from a place, or from the start of the chain, through the given events and, unless the last of them is
  // the end, on to the end of the chain.
  void addBits(const ClipOutline& outline, const ClipChain& chain, const Place& from, Events events, bool ofPolygon,
               bool endAtLast = false) {
    std::size_t edge = from.edge < 0 ? chain.first : static_cast<std::size_t>(from.edge);
    if (edge == chain.last) return;
    ClipBit bit = wholeEdge(outline, edge);
    if (from.edge >= 0) {
      bit.from = from.point;
      bit.placeFrom = from.place;
    }
    const auto put = [&](ClipBit part) {
      if (part.from == part.to) return;
      if (ofPolygon) part.edge = -1 - part.edge;
      bits_.push_back(part);
    };
    for (const ClipEvent& event : events) {
      while (edge != static_cast<std::size_t>(event.edge)) {
        put(bit);
        bit = wholeEdge(outline, ++edge);
      }
      ClipBit part = bit;
      part.to = bit.from = event.point;
      part.placeTo = bit.placeFrom = event.place;
      put(part);
    }
    if (endAtLast) return;
    put(bit);
    while (++edge != chain.last) put(wholeEdge(outline, edge));
  }

  void addStrands(std::int32_t start, std::int32_t end, std::size_t firstBit, int winding) {
    const Strand strand = winding < 0 ? Strand{end, start, firstBit, bits_.size(), true}
                                      : Strand{start, end, firstBit, bits_.size(), false};
    strands_.insert(strands_.end(), static_cast<std::size_t>(std::abs(winding)), strand);
  }

  void append(const Strand& strand, ClipPath& path) const {
    const std::size_t size = path.size();
    path.insert(path.end(), bits_.begin() + static_cast<std::ptrdiff_t>(strand.first),
                bits_.begin() + static_cast<std::ptrdiff_t>(strand.last));
    if (!strand.reversed) return;
    std::for_each(path.begin() + static_cast<std::ptrdiff_t>(size), path.end(), [](ClipBit& bit) { bit.reverse(); });
    std::reverse(path.begin() + static_cast<std::ptrdiff_t>(size), path.end());
  }

  std::size_t numNodes_;
  std::vector<ClipBit> bits_;
  std::vector<Strand> strands_;
};

bool isBefore(const V& a, const V& b) { return a.x() != b.x() ? a.x() < b.x() : a.y() < b.y(); }

// Takes away pairs of bits that run to and fro.
std::vector<ClipBit> withoutOpposites(const std::vector<ClipPath>& paths) {
  struct Keyed {
    ClipBit bit;
    bool forward;
  };
  std::vector<Keyed> all;
  for (const ClipPath& path : paths) {
    for (const ClipBit& bit : path) {
      const bool forward = isBefore(bit.from, bit.to);
      all.push_back({bit, forward});
      if (!forward) all.back().bit.reverse();
    }
  }
  const auto key = [](const ClipBit& b) {
    const bool arc = b.isArc();
    return std::tuple(b.from.x(), b.from.y(), b.to.x(), b.to.y(), b.ellipse, arc ? b.placeFrom : 0,
                      arc ? b.placeTo : 0);
  };
  std::sort(all.begin(), all.end(), [&](const Keyed& a, const Keyed& b) { return key(a.bit) < key(b.bit); });
  std::vector<ClipBit> kept;
  for (auto first = all.begin(); first != all.end();) {
    const auto last = std::find_if(first + 1, all.end(), [&](const Keyed& k) { return key(k.bit) != key(first->bit); });
    auto surplus = std::count_if(first, last, [](const Keyed& k) { return k.forward; }) * 2 - (last - first);
    for (; first != last; ++first) {
      if (surplus == 0 || first->forward != (surplus > 0)) continue;
      kept.push_back(first->bit);
      if (!first->forward) kept.back().reverse();
      surplus += first->forward ? -1 : 1;
    }
  }
  return kept;
}

// The point at which a bit leaves its start or, seen backwards, its end: for an arc within its tangent.
V pointBeside(const ClipOutline& shape, const ClipBit& bit, bool atStart) {
  if (!bit.isArc()) return atStart ? bit.to : bit.from;
  const qcEllipse2& ellipse = shape.ellipses[static_cast<std::size_t>(bit.ellipse)].ellipse();
  const double near = atStart ? bit.placeFrom : bit.placeTo, far = atStart ? bit.placeTo : bit.placeFrom;
  return ellipse.point(qcRadian(near + (far - near) / 64));
}

// Whether, turning to the right from the direction towards `back`, `a` comes before `b`; around p.
bool isFurtherLeft(const V& p, const V& back, const V& a, const V& b) {
  const auto half = [&](const V& q) {  // 0 on the right of the way back, 1 on the left of it
    const int side = orientation(p, back, q);
    return side != 0 ? side > 0 : (q - p) * (back - p) > 0;
  };
  if (half(a) != half(b)) return half(b);
  return orientation(p, a, b) < 0;
}

// Joins bits into closed paths by their ends; where several go on, the sharpest turn to the left is taken, so that
// areas that touch in a point are bounded each by its own path.
std::vector<ClipPath> joined(const ClipOutline& shape, std::vector<ClipBit> bits) {
  std::sort(bits.begin(), bits.end(), [](const ClipBit& a, const ClipBit& b) { return isBefore(a.from, b.from); });
  std::vector<bool> used(bits.size());
  std::vector<ClipPath> paths;
  for (std::size_t i = 0; i < bits.size(); ++i) {
    if (used[i]) continue;
    ClipPath path;
    for (std::size_t at = i;;) {
      used[at] = true;
      path.push_back(bits[at]);
      const V p = bits[at].to;
      if (p == bits[i].from) break;
      const V back = pointBeside(shape, bits[at], false);
      auto candidate =
          static_cast<std::size_t>(std::lower_bound(bits.begin(), bits.end(), p,
                                                    [](const ClipBit& a, const V& q) { return isBefore(a.from, q); }) -
                                   bits.begin());
      std::size_t best = bits.size();
      for (; candidate < bits.size() && bits[candidate].from == p; ++candidate) {
        if (used[candidate]) continue;
        const V beside = pointBeside(shape, bits[candidate], true);
        if (best == bits.size() || isFurtherLeft(p, back, beside, pointBeside(shape, bits[best], true))) {
          best = candidate;
        }
      }
      if (best == bits.size()) throw qcShapesError::BadGeom();
      at = best;
    }
    paths.push_back(std::move(path));
  }
  return paths;
}

bool anyInside(const std::vector<int>& windings) {
  return std::any_of(windings.begin(), windings.end(), [](int winding) { return winding != 0; });
}

}  // namespace

ClipPaths clipRegion(const ClipOutline& shape, const ClipOutline& polygon) {
  constexpr int kNudge = 1;
  const ClipCrossings crossings = findCrossings(shape, polygon, kNudge);
  std::vector<int> windings;
  windings.reserve(shape.chains.size());
  for (const ClipChain& chain : shape.chains) windings.push_back(windingOfPolygon(polygon, chain.start, kNudge));
  const ClipChain& outer = polygon.chains.front();
  int around = windingOfShape(shape.edges, shape.ellipses, outer.start, kNudge);
  ClipPaths clipped;
  if (crossings.numNodes == 0 && !crossings.touched && around == 0) {
    const bool all = std::find(windings.begin(), windings.end(), 0) == windings.end();
    if (all) clipped.result = qcShape::ClipResult::inside;
    if (all || !anyInside(windings)) return clipped;
  }
  clipped.result = qcShape::ClipResult::clipped;
  // However often the shape winds around all of the polygon, once is enough.
  if (crossings.numNodes == 0 && !anyInside(windings)) around = std::clamp(around, -1, 1);
  Weaver weaver(crossings.numNodes);
  for (std::size_t i = 0; i < shape.chains.size(); ++i) {
    const ClipChain& chain = shape.chains[i];
    weaver.add(shape, chain, eventsOf(chain, crossings.onShape), windings[i], 1, false);
  }
  weaver.add(polygon, outer, crossings.onPolygon, around, -1, true);
  clipped.paths = weaver.weave();
  if (!crossings.touched) return clipped;
  std::vector<ClipBit> bits = withoutOpposites(clipped.paths);
  if (!bits.empty() && !crossings.crossed) {
    Weaver whole(0);
    for (const ClipChain& chain : shape.chains) whole.addReversed(shape, chain, eventsOf(chain, crossings.onShape));
    std::vector<ClipPath> both = whole.weave();
    both.push_back(bits);
    if (withoutOpposites(both).empty()) {
      clipped.paths.clear();
      clipped.result = qcShape::ClipResult::inside;
      return clipped;
    }
  }
  clipped.paths = joined(shape, std::move(bits));
  if (clipped.paths.empty()) clipped.result = qcShape::ClipResult::outside;
  return clipped;
}

// ---- contours

namespace {

struct Stop {
  std::int32_t edge;
  double along;
  double place;
  V point;

  friend bool operator<(const Stop& a, const Stop& b) { return a.edge != b.edge ? a.edge < b.edge : a.along < b.along; }
};

struct Stretch {
  Stop from, to;
};

// The stretches of a contour that the polygon winds around.
void addStretches(const ClipOutline& shape, const ClipChain& chain, Events events, int winding,
                  std::vector<Stretch>& stretches) {
  const auto stopAt = [&](std::size_t edge, bool atEnd) {
    // The end of an edge is the start of the next one.
    if (atEnd && edge + 1 < chain.last)
      return Stop{static_cast<std::int32_t>(edge + 1), shape.edges[edge + 1].along(shape.edges[edge + 1].placeFrom),
                  shape.edges[edge + 1].placeFrom, shape.edges[edge].to};
    const ClipEdge& e = shape.edges[edge];
    const double place = atEnd ? e.placeTo : e.placeFrom;
    return Stop{static_cast<std::int32_t>(edge), e.along(place), place, atEnd ? e.to : e.from};
  };
  Stop from = stopAt(chain.first, false);
  const auto stopHere = [&](const Stop& to) {
    if (winding != 0) stretches.push_back({from, to});
    from = to;
  };
  for (const ClipEvent& event : events) {
    if (event.sign == 0) continue;
    const auto edge = static_cast<std::size_t>(event.edge);
    const ClipEdge& e = shape.edges[edge];
    stopHere(event.place == e.placeTo ? stopAt(edge, true)
                                      : Stop{event.edge, e.along(event.place), event.place, event.point});
    winding += event.sign;
  }
  stopHere(stopAt(chain.last - 1, true));
}

// Joins stretches that overlap or follow each other, and leaves out those without length.
std::vector<Stretch> unionOf(std::vector<Stretch> stretches) {
  std::sort(stretches.begin(), stretches.end(), [](const Stretch& a, const Stretch& b) { return a.from < b.from; });
  std::vector<Stretch> united;
  for (const Stretch& stretch : stretches) {
    if (!united.empty() && !(united.back().to < stretch.from)) {
      united.back().to = std::max(united.back().to, stretch.to);
    } else {
      united.push_back(stretch);
    }
  }
  std::erase_if(united, [](const Stretch& stretch) { return !(stretch.from < stretch.to); });
  return united;
}

ClipPath pathOf(const ClipOutline& shape, const Stretch& stretch) {
  ClipPath path;
  for (std::int32_t edge = stretch.from.edge; edge <= stretch.to.edge; ++edge) {
    ClipBit bit = wholeEdge(shape, static_cast<std::size_t>(edge));
    if (edge == stretch.from.edge) bit.from = stretch.from.point, bit.placeFrom = stretch.from.place;
    if (edge == stretch.to.edge) bit.to = stretch.to.point, bit.placeTo = stretch.to.place;
    if (bit.from != bit.to) path.push_back(bit);
  }
  return path;
}

}  // namespace

ClipPaths clipContours(const ClipOutline& shape, const ClipOutline& polygon) {
  ClipPaths clipped;
  bool whole = true;
  const ClipCrossings left = findCrossings(shape, polygon, 1);
  // What runs along an edge of the polygon is on either side of it, depending on the nudge.
  const ClipCrossings right = left.touched ? findCrossings(shape, polygon, -1) : ClipCrossings();
  bool point = false;
  for (const ClipChain& chain : shape.chains) {
    if (chain.first == chain.last) {
      const bool isIn =
          windingOfPolygon(polygon, chain.start, 1) != 0 || windingOfPolygon(polygon, chain.start, -1) != 0;
      point = point || isIn;
      whole = whole && isIn;
      continue;
    }
    std::vector<Stretch> stretches;
    addStretches(shape, chain, eventsOf(chain, left.onShape), windingOfPolygon(polygon, chain.start, 1), stretches);
    if (left.touched) {
      addStretches(shape, chain, eventsOf(chain, right.onShape), windingOfPolygon(polygon, chain.start, -1), stretches);
    }
    stretches = unionOf(std::move(stretches));
    const auto isWhole = [&](const Stretch& stretch) {
      const ClipEdge &first = shape.edges[chain.first], &last = shape.edges[chain.last - 1];
      return static_cast<std::size_t>(stretch.from.edge) == chain.first && stretch.from.place == first.placeFrom &&
             static_cast<std::size_t>(stretch.to.edge) == chain.last - 1 && stretch.to.place == last.placeTo;
    };
    whole = whole && stretches.size() == 1 && isWhole(stretches.front());
    for (const Stretch& stretch : stretches) {
      ClipPath path = pathOf(shape, stretch);
      if (!path.empty()) clipped.paths.push_back(std::move(path));
    }
  }
  // A point alone is no part of a contour that goes on elsewhere.
  const bool any = !clipped.paths.empty() || (point && whole);
  clipped.result = !any    ? qcShape::ClipResult::outside
                   : whole ? qcShape::ClipResult::inside
                           : qcShape::ClipResult::clipped;
  return clipped;
}

}  // namespace qc_shapes
