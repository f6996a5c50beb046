// The boundaries that clipping works on: segments and short arcs, and where those of a shape and of a polygon cross.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "vnxstd/math/vector.h"
#include "vnxstd/shapes/ellipse.h"

namespace qc_shapes {

/// An ellipse that arcs lie on, and the map that makes it the unit circle. Not a flat one.
class ClipEllipse {
 public:
  explicit ClipEllipse(const qcEllipse2& ellipse);

  const qcEllipse2& ellipse() const { return ellipse_; }
  /// 1 when the ellipse turns left for growing parameters, else -1.
  int sense() const { return sense_; }
  qcVector<2> toCircle(const qcVector<2>& p) const;
  /// The parameter of a point near the unit circle, up to whole turns.
  double parameter(const qcVector<2>& onCircle) const;
  /// An arc at `p` that spans so little is nowhere further from its chord than rounding may put it. Whether a point
  /// lies between the two must not be asked of it: the direction of its chord has been lost.
  bool isStraight(double span, const qcVector<2>& p) const;
  /// How far rounding may put a line in the direction d on the unit circle beside its place there, when it was made
  /// from a point.
  double blur(const qcVector<2>& p, const qcVector<2>& d) const;
  /// How far from the ellipse a point may lie that seems to be in the unit circle, of an arc that starts at `p`: what
  /// rounding makes there is stretched by the ratio of the radii.
  double slack(const qcVector<2>& p) const;

 private:
  double reach(const qcVector<2>& p) const;

  qcEllipse2 ellipse_;
  qcVector<2> axis_;
  int sense_;
};

/// A piece of boundary: a segment, or an arc that spans less than half a turn, of the ellipse with that number. Places
/// on a segment run from 0 to 1, on an arc they are values of the parameter. Both ends differ.
struct ClipEdge {
  qcVector<2> from, to;
  double placeFrom = 0, placeTo = 1;
  std::int32_t ellipse = -1;

  bool isArc() const { return ellipse >= 0; }
  void reverse() {
    std::swap(from, to);
    std::swap(placeFrom, placeTo);
  }
  /// Grows along the edge.
  double along(double place) const { return placeTo < placeFrom ? -place : place; }
};

struct ClipBox {
  qcVector<2> low, high;

  static ClipBox of(const qcVector<2>& a, const qcVector<2>& b) {
    return {{std::min(a.x(), b.x()), std::min(a.y(), b.y())}, {std::max(a.x(), b.x()), std::max(a.y(), b.y())}};
  }
  bool overlaps(const ClipBox& other) const {
    return low.x() <= other.high.x() && other.low.x() <= high.x() && low.y() <= other.high.y() &&
           other.low.y() <= high.y();
  }
  void add(const ClipBox& other) {
    low = {std::min(low.x(), other.low.x()), std::min(low.y(), other.low.y())};
    high = {std::max(high.x(), other.high.x()), std::max(high.y(), other.high.y())};
  }
  void widen(double margin) {
    low -= {margin, margin};
    high += {margin, margin};
  }
};

/// A contour of the edges from number `first` up to but not including `last`; without edges it is the point `start`.
struct ClipChain {
  std::size_t first, last;
  qcVector<2> start;
};

struct ClipOutline {
  std::vector<ClipEdge> edges;
  std::vector<ClipChain> chains;
  std::vector<ClipEllipse> ellipses;

  /// A box around one of the edges, or a part of one.
  ClipBox boxOf(const ClipEdge& edge) const;

  // Contours are added between beginChain and endChain. These throw qcShapesError::BadGeom when a coordinate is not
  // finite.

  void beginChain(const qcVector<2>& start);
  /// A segment from where the contour is.
  void addSegment(const qcVector<2>& to);
  /// An arc from where the contour is, in pieces; what its own start is away from there is rounding.
  void addArc(const qcEllipse2& ellipse, double from, double to, const qcVector<2>& end);
  void endChain(bool closed);
  void addPolygon(const std::vector<qcVector<2>>& vertices, bool reversed);
  /// Turns the last contour, a closed one, round.
  void reverseChain();
  /// Where the last contour is.
  const qcVector<2>& at() const { return at_; }

 private:
  qcVector<2> at_;
};

/// A place on an edge: a crossing of that number, or with the number -1 a point where the boundaries touch. The sign
/// of a crossing is 1 where the shape goes from the right of the polygon's edge to its left, else -1.
struct ClipEvent {
  qcVector<2> point;
  double place;
  std::int32_t edge;
  std::int32_t node;
  int sign;
};

/// All that clipping has to know of both boundaries. It is decided as if the shape were moved by an infinitesimally
/// small vector, (e, e * e) times `nudge`, which is 1 or -1: no vertex then lies on an edge, and no edges overlap. That
/// is exact for segments. For an arc, the chord is taken exactly; whether a vertex lies between chord and arc is
/// decided once, and whatever crosses agrees with it: along every closed contour, the signs add up to 0.
struct ClipCrossings {
  std::vector<ClipEvent> onShape, onPolygon;  // in the order of the edges, and along each of them
  std::int32_t numNodes = 0;
  bool touched = false;  // the nudge has decided something
  bool crossed = false;  // something really crosses
};

ClipCrossings findCrossings(const ClipOutline& shape, const ClipOutline& polygon, int nudge);

/// Whether two edges of one contour cross; where they only touch they do not.
bool crossesItself(const ClipOutline& outline);

/// How often the polygon winds around a point of the shape, and the closed contours of the shape around a point of the
/// polygon, with the shape moved as for the crossings.
int windingOfPolygon(const ClipOutline& polygon, const qcVector<2>& p, int nudge);
int windingOfShape(const std::vector<ClipEdge>& edges, const std::vector<ClipEllipse>& ellipses, const qcVector<2>& p,
                   int nudge);

}  // namespace qc_shapes
