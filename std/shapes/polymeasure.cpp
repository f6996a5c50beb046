// What can be measured on polylines: moments, centres, hulls, distances.

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "std/shapes/exact.h"
#include "std/shapes/segment.h"
#include "vnxstd/math/rigid.h"
#include "vnxstd/shapes/polyline.h"
#include "vnxstd/shapes/rect.h"

namespace {

using V = qcVector<2>;
using Vertices = std::vector<V>;

// A point in a vector register.
typedef double Pair __attribute__((vector_size(16)));

Pair load(const V& v) { return Pair{v.x(), v.y()}; }

struct Moments {
  double m0 = 0, mx = 0, my = 0, mxx = 0, mxy = 0, myy = 0;

  /// Moments in coordinates from `origin` as moments in the coordinates that it is given in.
  Moments from(const V& origin) const {
    const double x = origin.x(), y = origin.y();
    return {m0,
            mx + m0 * x,
            my + m0 * y,
            mxx + x * (2 * mx + m0 * x),
            mxy + x * my + y * (mx + m0 * x),
            myy + y * (2 * my + m0 * y)};
  }
};

/// Coordinates from an origin.
struct From {
  V origin;
  V operator()(const V& p) const { return p - origin; }
};

/// Coordinates from an origin, along an axis of length 1 and across.
struct FromAlong {
  V origin, axis;
  V operator()(const V& p) const { return {axis * (p - origin), axis.cross(p - origin)}; }
};

// Sums over the pieces, times their weights, of what is in proportion to the integrals of 1, x, y, x * x, x * y and y *
// y along a piece from a to b, and over the triangle that it spans with the origin as well.
template <bool Second, class Local, class Weight>
Moments sumOver(const Vertices& vertices, const V& start, const Local& local, Weight weight) {
  Moments sum;
  V a = local(start);
  for (const V& vertex : vertices) {
    const V b = local(vertex);
    const double w = weight(a, b);
    sum.m0 += w;
    sum.mx += w * (a.x() + b.x());
    sum.my += w * (a.y() + b.y());
    if constexpr (Second) {
      sum.mxx += w * (a.x() * a.x() + a.x() * b.x() + b.x() * b.x());
      sum.mxy += w * (a.x() * (2 * a.y() + b.y()) + b.x() * (a.y() + 2 * b.y()));
      sum.myy += w * (a.y() * a.y() + a.y() * b.y() + b.y() * b.y());
    }
    a = b;
  }
  return sum;
}

// Over the triangles between the origin and each piece.
template <bool Second = true, class Local>
Moments areaMoments(const Vertices& vertices, const Local& local) {
  if (vertices.size() < 3) return {};
  const Moments m =
      sumOver<Second>(vertices, vertices.back(), local, [](const V& a, const V& b) { return a.cross(b); });
  return {m.m0 / 2, m.mx / 6, m.my / 6, m.mxx / 12, m.mxy / 24, m.myy / 12};
}

template <bool Second = true, class Local>
Moments arcLengthMoments(const Vertices& vertices, bool closed, const Local& local) {
  const V& start = closed ? vertices.back() : vertices.front();
  const Moments m = sumOver<Second>(vertices, start, local, qc_shapes::segmentLength);
  return {m.m0, m.mx / 2, m.my / 2, m.mxx / 3, m.mxy / 6, m.myy / 3};
}

V centerOf(const Moments& local, const V& origin) {
  return local.m0 != 0 ? origin + V(local.mx / local.m0, local.my / local.m0) : origin;
}

// The moments are integrated anew in the frame that is found: differences of moments in another one would lose those of
// thin shapes.
template <class Measure>
void principalMoments(const V& start, Measure momentsIn, V& moments, qc2Rigid& frame) {
  const V center = centerOf(momentsIn(From{start}), start);
  const Moments about = momentsIn(From{center});
  const double sign = about.m0 < 0 ? -1 : 1;
  double angle = std::atan2(2 * sign * about.mxy, sign * (about.mxx - about.myy)) / 2;
  if (qcDegree(qcRadian(angle)).plain() <= -90) angle = -angle;  // a rounding away from upright
  const Moments along = momentsIn(FromAlong{center, V(1, qcRadian(angle))});
  const double x = sign * along.mxx, y = sign * along.myy;
  moments = {std::max(x, y), std::min(x, y)};
  frame = qc2Rigid(qcRadian(angle), center);
}

// The vertices that a convex hull can have. Those that have another vertex in every quadrant around them are inside:
// all in the box between the vertices that lie furthest along the diagonals.
Vertices hullCandidates(const Vertices& vertices) {
  Vertices candidates;
  if (vertices.empty()) return candidates;
  std::array<double, 4> furthest;
  std::array<V, 4> corner;
  furthest.fill(-HUGE_VAL);
  corner.fill(vertices.front());
  for (const V& v : vertices) {
    const std::array<double, 4> along = {-v.x() - v.y(), v.x() - v.y(), v.x() + v.y(), v.y() - v.x()};
    for (std::size_t i = 0; i < 4; ++i) {
      if (!(along[i] > furthest[i])) continue;
      furthest[i] = along[i];
      corner[i] = v;
    }
  }
  const double left = std::max(corner[0].x(), corner[3].x()), right = std::min(corner[1].x(), corner[2].x());
  const double low = std::max(corner[0].y(), corner[1].y()), high = std::min(corner[2].y(), corner[3].y());
  for (const V& v : vertices) {
    const bool inside = left < v.x() && v.x() < right && low < v.y() && v.y() < high;
    if (!inside && !std::isnan(v.x()) && !std::isnan(v.y())) candidates.push_back(v);
  }
  return candidates;
}

// How far apart the boxes around two segments are, at least: along x or along y.
double gap(const V& a1, const V& a2, const V& b1, const V& b2) {
  double most = 0;
  for (int i = 0; i < 2; ++i) {
    const auto [lowA, highA] = std::minmax(a1[i], a2[i]);
    const auto [lowB, highB] = std::minmax(b1[i], b2[i]);
    most = std::max({most, lowA - highB, lowB - highA});
  }
  return most;
}

struct PointPair {
  V a, b;
  double distance() const { return qc_shapes::segmentLength(a, b); }
};

// Among equally near pairs the first along a.
PointPair nearestOfSegments(const V& a1, const V& a2, const V& b1, const V& b2) {
  const auto straddles = [](const V& p1, const V& p2, const V& q1, const V& q2) {
    return qc_shapes::orientation(p1, p2, q1) * qc_shapes::orientation(p1, p2, q2) < 0;
  };
  if (straddles(a1, a2, b1, b2) && straddles(b1, b2, a1, a2)) {
    const V a = a2 - a1, b = b2 - b1;
    // Of nearly parallel segments the cross product is little more than rounding. The ends of the other segment bound
    // the fraction; where that matters all points between them lie on both.
    const auto [low, high] =
        std::minmax({qc_shapes::nearestFraction(a1, a2, b1), qc_shapes::nearestFraction(a1, a2, b2)});
    const double fraction = (b1 - a1).cross(b) / a.cross(b);
    const V crossing = qc_shapes::pointAtFraction(a1, a2, std::min(high, std::max(low, fraction)));
    return {crossing, crossing};
  }
  const auto nearest = [](const V& p1, const V& p2, const V& p) {
    return qc_shapes::pointAtFraction(p1, p2, qc_shapes::nearestFraction(p1, p2, p));
  };
  PointPair pairs[] = {
      {a1, nearest(b1, b2, a1)}, {nearest(a1, a2, b1), b1}, {nearest(a1, a2, b2), b2}, {a2, nearest(b1, b2, a2)}};
  if (a1.distance(pairs[2].a) < a1.distance(pairs[1].a)) std::swap(pairs[1], pairs[2]);
  return *std::min_element(std::begin(pairs), std::end(pairs),
                           [](const PointPair& p, const PointPair& q) { return p.distance() < q.distance(); });
}

}  // namespace

double qcPolyline::areaMoment0() const {
  if (!closed_) throw qcShapesError::NotRegion();
  const std::size_t n = vertices_.size();
  if (n < 3) return 0;
  // The shoelace sum, two pieces at a time: with the first vertex they span quadrilaterals, whose diagonals have twice
  // the area as their cross product. Two sums do not wait for each other.
  const V* v = vertices_.data();
  const Pair origin = load(v[0]);
  const auto quadrilateral = [v, origin](std::size_t i) {
    const Pair across = load(v[i + 1]) - load(v[i - 1]);
    return (load(v[i]) - origin) * Pair{across[1], across[0]};
  };
  Pair sum = {0, 0}, other = {0, 0};
  std::size_t i = 1;
  for (; i + 3 < n; i += 4) {
    sum += quadrilateral(i);
    other += quadrilateral(i + 2);
  }
  if (i + 1 < n) sum += quadrilateral(i), i += 2;
  sum += other;
  const double last = i < n ? (v[i - 1] - v[0]).cross(v[i] - v[0]) : 0;
  return (sum[0] - sum[1] + last) / 2;
}

void qcPolyline::areaMoment1(double& m0, double& mx, double& my) const {
  double mxx, mxy, myy;
  areaMoment2(m0, mx, my, mxx, mxy, myy);
}

void qcPolyline::areaMoment2(double& m0, double& mx, double& my, double& mxx, double& mxy, double& myy) const {
  if (!closed_) throw qcShapesError::NotRegion();
  const V origin = isEmpty() ? V() : vertices_.front();
  const Moments m = areaMoments(vertices_, From{origin}).from(origin);
  m0 = m.m0, mx = m.mx, my = m.my, mxx = m.mxx, mxy = m.mxy, myy = m.myy;
}

double qcPolyline::area() const { return std::fabs(areaMoment0()); }

qcVector<2> qcPolyline::centerArea() const {
  if (areaMoment0() == 0) throw qcShapesError::DegenerateShape();
  return centerOf(areaMoments<false>(vertices_, From{vertices_.front()}), vertices_.front());
}

void qcPolyline::principalMomentsArea(qcVector<2>& moments, qc2Rigid& frame) const {
  if (areaMoment0() == 0) throw qcShapesError::DegenerateShape();
  const auto momentsIn = [this](const auto& local) { return areaMoments(vertices_, local); };
  principalMoments(vertices_.front(), momentsIn, moments, frame);
}

void qcPolyline::arcLengthMoment1(double& m0, double& mx, double& my) const {
  double mxx, mxy, myy;
  arcLengthMoment2(m0, mx, my, mxx, mxy, myy);
}

void qcPolyline::arcLengthMoment2(double& m0, double& mx, double& my, double& mxx, double& mxy, double& myy) const {
  Moments m;
  if (!isEmpty()) m = arcLengthMoments(vertices_, closed_, From{vertices_.front()}).from(vertices_.front());
  m0 = m.m0, mx = m.mx, my = m.my, mxx = m.mxx, mxy = m.mxy, myy = m.myy;
}

qcVector<2> qcPolyline::centerArcLength() const {
  checkNotEmpty();
  return centerOf(arcLengthMoments<false>(vertices_, closed_, From{vertices_.front()}), vertices_.front());
}

void qcPolyline::principalMomentsArcLength(qcVector<2>& moments, qc2Rigid& frame) const {
  checkNotEmpty();
  const auto momentsIn = [this](const auto& local) { return arcLengthMoments(vertices_, closed_, local); };
  principalMoments(vertices_.front(), momentsIn, moments, frame);
}

qcVector<2> qcPolyline::meanVertex() const {
  checkNotEmpty();
  const V origin = vertices_.front();
  V sum;
  for (const V& v : vertices_) sum += v - origin;
  return origin + sum / static_cast<double>(vertices_.size());
}

qcVector<2> qcPolyline::center() const {
  const qcRect box = boundingBox();
  return box.origin() + box.size() / 2;
}

long qcPolyline::closestVertexIndex(const qcVector<2>& p) const {
  checkNotEmpty();
  const auto nearer = [&p](const V& a, const V& b) { return p.distance(a) < p.distance(b); };
  return static_cast<long>(std::min_element(vertices_.begin(), vertices_.end(), nearer) - vertices_.begin());
}

long qcPolyline::extremalVertexIndex(const qcRadian& direction) const {
  checkNotEmpty();
  const V along(1, direction), origin = vertices_.front();
  const auto further = [&](const V& a, const V& b) { return along * (a - origin) < along * (b - origin); };
  return static_cast<long>(std::max_element(vertices_.begin(), vertices_.end(), further) - vertices_.begin());
}

void qcPolyline::nearestPoints(const qcPolyline& other, qcVector<2>& onThis, qcVector<2>& onOther) const {
  checkNotEmpty();
  other.checkNotEmpty();
  PointPair best{vertices_.front(), other.vertices_.front()};
  double least = std::numeric_limits<double>::infinity();
  for (long i = 0; i < numPieces(); ++i) {
    const V &a1 = pieceStart(i), &a2 = pieceEnd(i);
    bool isOnPiece = false;  // whether the best pair is; only there may an equally near one come before it
    const auto comesFirst = [&](double distance) { return distance < least || (isOnPiece && distance == least); };
    for (long j = 0; j < other.numPieces(); ++j) {
      const V &b1 = other.pieceStart(j), &b2 = other.pieceEnd(j);
      if (!comesFirst(gap(a1, a2, b1, b2))) continue;
      const PointPair pair = nearestOfSegments(a1, a2, b1, b2);
      const double distance = pair.distance();
      if (!comesFirst(distance) || (distance == least && !(a1.distance(pair.a) < a1.distance(best.a)))) continue;
      best = pair;
      least = distance;
      isOnPiece = true;
    }
  }
  onThis = best.a;
  onOther = best.b;
}

qcPolyline qcPolyline::convexHull() const {
  Vertices points = hullCandidates(vertices_);
  qcPolyline hull(true);
  if (points.empty()) return hull;
  const auto before = [](const V& a, const V& b) { return a.x() < b.x() || (a.x() == b.x() && a.y() < b.y()); };
  const auto [least, most] = std::minmax_element(points.begin(), points.end(), before);
  const V first = *least, last = *most;
  Vertices& kept = hull.vertices_;
  kept.push_back(first);
  if (last == first) return hull;
  // On the right of the way from the first to the last point, then on the left of it; no others can be on the hull.
  const auto side = [&](int wanted) {
    return [&first, &last, wanted](const V& p) { return qc_shapes::orientation(first, last, p) == wanted; };
  };
  const auto right = std::partition(points.begin(), points.end(), side(-1));
  const auto left = std::partition(right, points.end(), side(1));
  std::sort(points.begin(), right, before);
  std::sort(right, left, [&before](const V& a, const V& b) { return before(b, a); });
  // Each point takes away those before it where the way would not turn left.
  std::size_t start = 0;
  const auto append = [&](const V& p) {
    while (kept.size() > start + 1 && qc_shapes::orientation(kept[kept.size() - 2], kept.back(), p) <= 0) {
      kept.pop_back();
    }
    kept.push_back(p);
  };
  std::for_each(points.begin(), right, append);
  append(last);
  start = kept.size() - 1;
  std::for_each(right, left, append);
  append(first);
  kept.pop_back();
  return hull;
}
