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

/// Coordinates from an origin, along an axis of length 1 and across.
struct Frame {
  V origin, axis{1, 0};
  V operator()(const V& p) const {
    const V d = p - origin;
    return {axis * d, axis.cross(d)};
  }
};

// Over the triangles between the origin of the frame and each piece.
Moments areaMoments(const Vertices& vertices, const Frame& frame) {
  Moments sum;
  if (vertices.size() < 3) return sum;
  V a = frame(vertices.back());
  for (const V& vertex : vertices) {
    const V b = frame(vertex);
    const double c = a.cross(b);
    sum.m0 += c / 2;
    sum.mx += c / 6 * (a.x() + b.x());
    sum.my += c / 6 * (a.y() + b.y());
    sum.mxx += c / 12 * (a.x() * a.x() + a.x() * b.x() + b.x() * b.x());
    sum.mxy += c / 24 * (a.x() * (2 * a.y() + b.y()) + b.x() * (a.y() + 2 * b.y()));
    sum.myy += c / 12 * (a.y() * a.y() + a.y() * b.y() + b.y() * b.y());
    a = b;
  }
  return sum;
}

Moments arcLengthMoments(const Vertices& vertices, bool closed, const Frame& frame) {
  Moments sum;
  V a = frame(closed ? vertices.back() : vertices.front());
  for (const V& vertex : vertices) {
    const V b = frame(vertex);
    const double c = qc_shapes::segmentLength(a, b);
    sum.m0 += c;
    sum.mx += c / 2 * (a.x() + b.x());
    sum.my += c / 2 * (a.y() + b.y());
    sum.mxx += c / 3 * (a.x() * a.x() + a.x() * b.x() + b.x() * b.x());
    sum.mxy += c / 6 * (a.x() * (2 * a.y() + b.y()) + b.x() * (a.y() + 2 * b.y()));
    sum.myy += c / 3 * (a.y() * a.y() + a.y() * b.y() + b.y() * b.y());
    a = b;
  }
  return sum;
}

V centerOf(const Moments& local, const V& origin) {
  return local.m0 != 0 ? origin + V(local.mx / local.m0, local.my / local.m0) : origin;
}

// The moments are integrated anew in the frame that is found: differences of moments in another one would lose those of
// thin shapes.
template <class Measure>
void principalMoments(const V& start, Measure momentsIn, V& moments, qc2Rigid& frame) {
  const V center = centerOf(momentsIn(Frame{start}), start);
  const Moments about = momentsIn(Frame{center});
  const double sign = about.m0 < 0 ? -1 : 1;
  double angle = std::atan2(2 * sign * about.mxy, sign * (about.mxx - about.myy)) / 2;
  if (qcDegree(qcRadian(angle)).plain() <= -90) angle = -angle;  // a rounding away from upright
  const Moments along = momentsIn(Frame{center, V(1, qcRadian(angle))});
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

// The distance between the boxes around two segments, squared.
double squaredGap(const V& a1, const V& a2, const V& b1, const V& b2) {
  double sum = 0;
  for (int i = 0; i < 2; ++i) {
    const double gap =
        std::max(std::min(a1[i], a2[i]) - std::max(b1[i], b2[i]), std::min(b1[i], b2[i]) - std::max(a1[i], a2[i]));
    if (gap > 0) sum += gap * gap;
  }
  return sum;
}

struct PointPair {
  V a, b;
  double squared() const { return (a - b) * (a - b); }
};

PointPair nearestOfSegments(const V& a1, const V& a2, const V& b1, const V& b2) {
  const auto straddles = [](const V& p1, const V& p2, const V& q1, const V& q2) {
    return qc_shapes::orientation(p1, p2, q1) * qc_shapes::orientation(p1, p2, q2) < 0;
  };
  if (straddles(a1, a2, b1, b2) && straddles(b1, b2, a1, a2)) {
    const V a = a2 - a1, b = b2 - b1;
    const double fraction = (b1 - a1).cross(b) / a.cross(b);
    const V crossing = a1 + std::clamp(fraction, 0.0, 1.0) * a;
    return {crossing, crossing};
  }
  const auto nearest = [](const V& p1, const V& p2, const V& p) {
    return qc_shapes::pointAtFraction(p1, p2, qc_shapes::nearestFraction(p1, p2, p));
  };
  const PointPair pairs[] = {
      {a1, nearest(b1, b2, a1)}, {nearest(a1, a2, b1), b1}, {nearest(a1, a2, b2), b2}, {a2, nearest(b1, b2, a2)}};
  return *std::min_element(std::begin(pairs), std::end(pairs),
                           [](const PointPair& p, const PointPair& q) { return p.squared() < q.squared(); });
}

}  // namespace

double qcPolyline::areaMoment0() const {
  if (!closed_) throw qcShapesError::NotRegion();
  const std::size_t n = vertices_.size();
  if (n < 3) return 0;
  // The shoelace sum, taken together by the x of each vertex, which the first one need not join. Four partial sums do
  // not wait for each other.
  const V* v = vertices_.data();
  const double x0 = v[0].x();
  const auto term = [v, x0](std::size_t i) { return (v[i].x() - x0) * (v[i + 1].y() - v[i - 1].y()); };
  double sum[4] = {(v[n - 1].x() - x0) * (v[0].y() - v[n - 2].y()), 0, 0, 0};
  std::size_t i = 1;
  for (; i + 4 < n; i += 4) {
    for (std::size_t k = 0; k < 4; ++k) sum[k] += term(i + k);
  }
  for (; i + 1 < n; ++i) sum[0] += term(i);
  return ((sum[0] + sum[1]) + (sum[2] + sum[3])) / 2;
}

void qcPolyline::areaMoment1(double& m0, double& mx, double& my) const {
  double mxx, mxy, myy;
  areaMoment2(m0, mx, my, mxx, mxy, myy);
}

void qcPolyline::areaMoment2(double& m0, double& mx, double& my, double& mxx, double& mxy, double& myy) const {
  if (!closed_) throw qcShapesError::NotRegion();
  const V origin = isEmpty() ? V() : vertices_.front();
  const Moments m = areaMoments(vertices_, Frame{origin}).from(origin);
  m0 = m.m0, mx = m.mx, my = m.my, mxx = m.mxx, mxy = m.mxy, myy = m.myy;
}

double qcPolyline::area() const { return std::fabs(areaMoment0()); }

qcVector<2> qcPolyline::centerArea() const {
  if (areaMoment0() == 0) throw qcShapesError::DegenerateShape();
  return centerOf(areaMoments(vertices_, Frame{vertices_.front()}), vertices_.front());
}

void qcPolyline::principalMomentsArea(qcVector<2>& moments, qc2Rigid& frame) const {
  if (areaMoment0() == 0) throw qcShapesError::DegenerateShape();
  const auto momentsIn = [this](const Frame& f) { return areaMoments(vertices_, f); };
  principalMoments(vertices_.front(), momentsIn, moments, frame);
}

void qcPolyline::arcLengthMoment1(double& m0, double& mx, double& my) const {
  double mxx, mxy, myy;
  arcLengthMoment2(m0, mx, my, mxx, mxy, myy);
}

void qcPolyline::arcLengthMoment2(double& m0, double& mx, double& my, double& mxx, double& mxy, double& myy) const {
  Moments m;
  if (!isEmpty()) m = arcLengthMoments(vertices_, closed_, Frame{vertices_.front()}).from(vertices_.front());
  m0 = m.m0, mx = m.mx, my = m.my, mxx = m.mxx, mxy = m.mxy, myy = m.myy;
}

qcVector<2> qcPolyline::centerArcLength() const {
  checkNotEmpty();
  return centerOf(arcLengthMoments(vertices_, closed_, Frame{vertices_.front()}), vertices_.front());
}

void qcPolyline::principalMomentsArcLength(qcVector<2>& moments, qc2Rigid& frame) const {
  checkNotEmpty();
  const auto momentsIn = [this](const Frame& f) { return arcLengthMoments(vertices_, closed_, f); };
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
  return std::min_element(vertices_.begin(), vertices_.end(), nearer) - vertices_.begin();
}

long qcPolyline::extremalVertexIndex(const qcRadian& direction) const {
  checkNotEmpty();
  const V along(1, direction), origin = vertices_.front();
  const auto further = [&](const V& a, const V& b) { return along * (a - origin) < along * (b - origin); };
  return std::max_element(vertices_.begin(), vertices_.end(), further) - vertices_.begin();
}

void qcPolyline::nearestPoints(const qcPolyline& other, qcVector<2>& onThis, qcVector<2>& onOther) const {
  checkNotEmpty();
  other.checkNotEmpty();
  PointPair best{vertices_.front(), other.vertices_.front()};
  double least = std::numeric_limits<double>::infinity();
  for (long i = 0; i < numPieces(); ++i) {
    const V &a1 = pieceStart(i), &a2 = pieceEnd(i);
    for (long j = 0; j < other.numPieces(); ++j) {
      const V &b1 = other.pieceStart(j), &b2 = other.pieceEnd(j);
      if (!(squaredGap(a1, a2, b1, b2) < least)) continue;
      const PointPair pair = nearestOfSegments(a1, a2, b1, b2);
      if (!(pair.squared() < least)) continue;
      best = pair;
      least = pair.squared();
    }
  }
  onThis = best.a;
  onOther = best.b;
}

qcPolyline qcPolyline::convexHull() const {
  Vertices points = hullCandidates(vertices_);
  const auto before = [](const V& a, const V& b) { return a.x() < b.x() || (a.x() == b.x() && a.y() < b.y()); };
  std::sort(points.begin(), points.end(), before);
  points.erase(std::unique(points.begin(), points.end()), points.end());
  qcPolyline hull(true);
  if (points.size() < 3) {
    hull.vertices_ = std::move(points);
    return hull;
  }
  // Along the side of small y to the last point, then back along the other side. Each point takes away those before it
  // where the way would not turn left.
  Vertices& kept = hull.vertices_;
  std::size_t first = 1;
  const auto append = [&](const V& p) {
    while (kept.size() > first && qc_shapes::orientation(kept[kept.size() - 2], kept.back(), p) <= 0) kept.pop_back();
    kept.push_back(p);
  };
  std::for_each(points.begin(), points.end(), append);
  first = kept.size();
  std::for_each(points.rbegin() + 1, points.rend(), append);
  kept.pop_back();
  return hull;
}
