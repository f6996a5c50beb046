// The geometry of a piece from p1 to p2, shared by segments and by the shapes that are made of them.
#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>

#include "std/shapes/exact.h"
#include "vnxstd/math/angle.h"
#include "vnxstd/math/vector.h"

namespace qc_shapes {

/// Tiny and huge segments have a length, too, though not as the square root of the sum of squares.
inline double segmentLength(const qcVector<2>& p1, const qcVector<2>& p2) {
  const qcVector<2> d = p2 - p1;
  const double squared = d * d;
  return squared > 1e-280 && squared < 1e300 ? std::sqrt(squared) : std::hypot(d.x(), d.y());
}

/// Length 1, also for vectors whose squared length overflows or underflows; null vectors stay null.
inline qcVector<2> normalized(const qcVector<2>& v) {
  const double largest = std::max(std::fabs(v.x()), std::fabs(v.y()));
  if (!(largest > 0)) return v;
  const qcVector<2> scaled(v.x() / largest, v.y() / largest);
  return scaled / scaled.len();
}

/// The vector times a power of two, so that squares of its coordinates do not overflow, nor all of them underflow.
inline qcVector<2> scaled(const qcVector<2>& v) {
  int exponent = 0;
  std::frexp(std::max(std::fabs(v.x()), std::fabs(v.y())), &exponent);
  return {std::ldexp(v.x(), -exponent), std::ldexp(v.y(), -exponent)};
}

inline qcRadian segmentAngle(const qcVector<2>& p1, const qcVector<2>& p2) {
  return qcRadian(std::atan2(p2.y() - p1.y(), p2.x() - p1.x())).signedNorm();
}

/// The nearest point, as its fraction of the way from p1 to p2: 0 and 1 are the ends themselves.
inline double nearestFraction(const qcVector<2>& p1, const qcVector<2>& p2, const qcVector<2>& p) {
  const qcVector<2> d = p2 - p1;
  const double squared = d * d, t = (p - p1) * d;
  if (!(t > 0) || squared == 0) return 0;
  return t < squared ? t / squared : 1;
}

inline qcVector<2> pointAtFraction(const qcVector<2>& p1, const qcVector<2>& p2, double fraction) {
  if (!(fraction > 0)) return p1;
  return fraction < 1 ? p1 + fraction * (p2 - p1) : p2;
}

/// A point on a chain of segments.
struct ChainPoint {
  qcVector<2> point;
  long piece = 0;
  double fraction = 0;  // of the way along the piece
};

/// The first of the nearest points on the pieces of a chain, which has one vertex at least; the piece behind the last
/// vertex leads back to the first.
inline ChainPoint nearestOnChain(const qcVector<2>* vertices, long pieces, long count, const qcVector<2>& p) {
  ChainPoint nearest{vertices[0], 0, 0};
  double least = segmentLength(p, nearest.point);
  for (long piece = 0; piece < pieces; ++piece) {
    const qcVector<2>&start = vertices[piece], &end = vertices[(piece + 1) % count];
    const double fraction = nearestFraction(start, end, p);
    const qcVector<2> point = pointAtFraction(start, end, fraction);
    const double distance = segmentLength(p, point);
    if (distance < least) {
      least = distance;
      nearest = {point, piece, fraction};
    }
  }
  return nearest;
}

/// The point at a distance from p1, kept on the segment.
inline qcVector<2> pointAtDistance(const qcVector<2>& p1, const qcVector<2>& p2, double distance) {
  if (!(distance > 0)) return p1;
  const double length = segmentLength(p1, p2);
  return distance < length ? p1 + distance / length * (p2 - p1) : p2;
}

/// Inside the segment, ends excluded; exactly.
inline bool isOnSegment(const qcVector<2>& p1, const qcVector<2>& p2, const qcVector<2>& p) {
  const auto isBetween = [](double a, double b, double x) { return (a < x && x < b) || (b < x && x < a); };
  return (isBetween(p1.x(), p2.x(), p.x()) || isBetween(p1.y(), p2.y(), p.y())) && orientation(p1, p2, p) == 0;
}

/// On which side of a piece in a direction lies what is next to a point of it in the direction `aside`, not far away:
/// 1 on the left, -1 on the right. Straight on counts as left, straight back as right, as if `aside` were turned to the
/// left by very little.
inline int sideOf(const qcVector<2>& direction, const qcVector<2>& aside) {
  const qcVector<2> d = scaled(direction), a = scaled(aside);
  const double cross = d.cross(a);
  return (cross != 0 ? cross : d * a) < 0 ? -1 : 1;
}

/// The signed angle under which the segment is seen from p; for a point on the segment, from one that lies beside it in
/// the direction `aside`, in the limit.
inline double angleSubtended(const qcVector<2>& p1, const qcVector<2>& p2, const qcVector<2>& p,
                             const qcVector<2>& aside) {
  if (isOnSegment(p1, p2, p)) return sideOf(p2 - p1, aside) * std::numbers::pi;
  const qcVector<2> a = scaled(p1 == p ? -aside : p1 - p), b = scaled(p2 == p ? -aside : p2 - p);
  const int side = p1 == p || p2 == p ? sideOf(p2 - p1, aside) : orientation(p1, p2, p);
  return std::copysign(std::atan2(a.cross(b), a * b), side);
}

}  // namespace qc_shapes
