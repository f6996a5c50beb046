// Polylines and parallelograms beyond what the laws of test_allshapes hold for every shape.

#include "std/shapes/winding.h"
#include "support/randomshapes.h"
#include "vnxstd/math/rigid.h"
#include "vnxstd/pelspan/pelspan.h"

namespace {

/// The integrals of 1, x, y, x * x, x * y and y * y.
struct Integrals {
  long double of[6] = {};
  void add(long double weight, long double x, long double y) {
    const long double terms[] = {1, x, y, x * x, x * y, y * y};
    for (int i = 0; i < 6; ++i) of[i] += weight * terms[i];
  }
};

/// By quadrature, in extended precision: the middles of the sides of triangles, and Simpson's rule along the pieces,
/// are exact for squares. `shift` is added to every coordinate.
Integrals integrals(const Points& p, bool closed, bool area, long double shift) {
  Integrals sum;
  for (std::size_t i = closed ? 0 : 1; i < p.size(); ++i) {
    const V &a = p[(i + p.size() - 1) % p.size()], &b = p[i];
    const V middles[] = {(a + b) / 2, (a + p[0]) / 2, (b + p[0]) / 2};
    const double length = std::hypot(b.x() - a.x(), b.y() - a.y());
    const auto add = [&](long double weight, const V& q) { sum.add(weight, q.x() + shift, q.y() + shift); };
    for (const V& q : middles)
      if (area) add(static_cast<long double>((a - p[0]).cross(b - p[0])) / 6, q);
    if (area) continue;
    add(length / 6.0L, a);
    add(length / 1.5L, middles[0]);
    add(length / 6.0L, b);
  }
  return sum;
}

class Moments : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(AreaAndArcLength, Moments, testing::Bool());

TEST_P(Moments, AreExactFarFromTheOrigin) {
  const bool area = GetParam();
  forSeeds<Random>(300, [&](Random& random, unsigned seed) {
    const double shift = seed % 3 == 0 ? 0 : 1e6;
    Points local = random.gridPoints(random.integer(3, 12), 64), far;
    for (V& p : local) p /= 64;
    for (const V& p : local) far.push_back(p + V(shift, shift));
    const bool closed = area || random.flip();
    const qcPolyline line(far, closed);
    const Integrals near = integrals(local, closed, area, 0), here = integrals(local, closed, area, shift);
    if (std::fabs(near.of[0]) < 0.05L) return;  // of which rounding leaves less
    double m[6], first[3];
    V center, moments;
    qc2Rigid frame;
    if (area) {
      line.areaMoment2(m[0], m[1], m[2], m[3], m[4], m[5]);
      line.areaMoment1(first[0], first[1], first[2]);
      center = line.centerArea();
      line.principalMomentsArea(moments, frame);
      EXPECT_NEAR(line.areaMoment0(), m[0], 1e-13);
      EXPECT_EQ(line.isRightHanded(), near.of[0] > 0);
      EXPECT_EQ(line.area(), std::fabs(line.areaMoment0()));
    } else {
      line.arcLengthMoment2(m[0], m[1], m[2], m[3], m[4], m[5]);
      line.arcLengthMoment1(first[0], first[1], first[2]);
      center = line.centerArcLength();
      line.principalMomentsArcLength(moments, frame);
      EXPECT_NEAR(line.arcLengthMoment0(), m[0], 1e-12);
    }
    for (int i = 0; i < 6; ++i) {
      const auto expected = static_cast<double>(here.of[i]);
      EXPECT_NEAR(m[i], expected, 1e-12 * std::max(std::fabs(expected), std::fabs(m[0]))) << i;
      EXPECT_TRUE(i >= 3 || first[i] == m[i]);
    }
    const long double x = near.of[1] / near.of[0], y = near.of[2] / near.of[0];
    EXPECT_LE(center.distance(V(static_cast<double>(x) + shift, static_cast<double>(y) + shift)), 3e-10);
    EXPECT_EQ(frame.trans(), center);
    // Turned back from the principal frame, the moments are those about the centre.
    const double c = frame.cosAngle(), s = frame.sinAngle(), sign = near.of[0] < 0 ? -1 : 1;
    const long double xx = near.of[3] - x * near.of[1], xy = near.of[4] - x * near.of[2],
                      yy = near.of[5] - y * near.of[2];
    EXPECT_NEAR(moments.x() * c * c + moments.y() * s * s, sign * static_cast<double>(xx), 1e-12);
    EXPECT_NEAR((moments.x() - moments.y()) * c * s, sign * static_cast<double>(xy), 1e-12);
    EXPECT_NEAR(moments.x() * s * s + moments.y() * c * c, sign * static_cast<double>(yy), 1e-12);
    EXPECT_GE(moments.x(), moments.y());
    EXPECT_TRUE(frame.angle().plain() > -90 && frame.angle().plain() <= 90);
  });
}

TEST(Polylines, RefuseWhatTheyHaveTooFewVerticesFor) {
  V moments;
  qc2Rigid frame;
  const qcPolyline flat({{1, 1}, {5, 3}, {3, 2}}, true), open({{0, 0}, {4, 0}, {4, 0}, {2, 8}}, false);
  double m[6];
  EXPECT_THROW(flat.centerArea(), qcShapesError::DegenerateShape);
  EXPECT_THROW(flat.principalMomentsArea(moments, frame), qcShapesError::DegenerateShape);
  EXPECT_THROW(open.areaMoment2(m[0], m[1], m[2], m[3], m[4], m[5]), qcShapesError::NotRegion);
  EXPECT_THROW(open.principalMomentsArea(moments, frame), qcShapesError::NotRegion);
  EXPECT_TRUE(qcPolyline({{7, 8}, {7, 8}}, false).centerArcLength() == V(7, 8) && open.meanVertex() == V(2.5, 2));
  qcPolyline edited = open;
  EXPECT_THROW(edited.reserve(std::numeric_limits<long>::max()), std::length_error);
  edited.addVertices(edited.vertices());
  EXPECT_EQ(edited.numVertices(), 8);
  const qcPolyline empty(true);
  EXPECT_TRUE(empty.convexHull().isEmpty());
  const std::function<void()> refused[] = {[&] { empty.meanVertex(); },
                                           [&] { empty.center(); },
                                           [&] { empty.principalMomentsArcLength(moments, frame); },
                                           [&] { empty.extremalVertexIndex({}); },
                                           [&] { empty.closestVertexIndex({}); },
                                           [&] { empty.nearestPoints(open, moments, moments); },
                                           [&] { open.nearestPoints(empty, moments, moments); }};
  for (const auto& call : refused) EXPECT_THROW(call(), qcShapesError::EmptyShape) << &call - refused;
}

/// The angle swept along the points around q, which is not on the way.
double sweptAround(const V& q, const Points& points, bool closed) {
  double sum = 0;
  for (std::size_t i = closed ? 0 : 1; i < points.size(); ++i) {
    const V a = points[(i + points.size() - 1) % points.size()] - q, b = points[i] - q;
    sum += std::atan2(a.cross(b), a * b);
  }
  return sum;
}

/// A point close to p, beside the first piece or corner of the points that p is on, to the left.
V stepAside(const V& p, const Points& points, bool closed) {
  Points corners;
  std::unique_copy(points.begin(), points.end(), std::back_inserter(corners));
  while (closed && corners.size() > 1 && corners.back() == corners.front()) corners.pop_back();
  const std::size_t n = corners.size();
  const auto beside = [&p](double angle) {
    return p + 1e-3 * V(1, qcRadian(angle)) + 1e-6 * V(1, qcRadian(angle + kPi / 2));
  };
  for (std::size_t i = 0; i < n && n > 1; ++i) {
    const bool first = i == 0 && !closed, last = i + 1 == n && !closed;
    const V in = corners[i] - corners[(i + n - 1) % n], out = corners[(i + 1) % n] - corners[i], d = p - corners[i];
    const double heading = std::atan2(out.y(), out.x()), came = std::atan2(in.y(), in.x());
    const double turn = std::atan2(in.cross(out), in * out);
    if (d.isNull() && first) return beside(heading + kPi / 2);
    if (d.isNull() && last) return beside(came + kPi / 2);
    // The left side is as wide as half a turn less what the way turns; where it turns straight back, a full turn.
    if (d.isNull()) return beside(heading + (turn < kPi ? (kPi - turn) / 2 : kPi));
    if (!last && d.cross(out) == 0 && d * out > 0 && d * out < out * out) return beside(heading + kPi / 2);
  }
  return p;
}

// Rounding adds no corner to parts between corners, which would have no direction.
TEST(Polylines, PartsHaveTheCornersBetween) {
  for (unsigned seed = 0; seed < 100; ++seed) {
    Random random(seed);
    const qcPolyline line(random.gridPoints(6, 10000), seed % 2 == 0);
    const qcShapeInfo info(line);
    qcContourTree tree(line.isClosed());
    for (long i = 0; i < info.numPieces(); ++i) tree.addChild(qcLineSeg(line.vertex(i), line.vertex((i + 1) % 6)));
    for (std::int32_t i = 0; i < 16; ++i) {
      const std::int32_t from = i / 4, to = from + 1 + i % (4 - from);
      const double length = info.startOf(to) - info.startOf(from);
      const qcPerimPos start = info.perimPos({from, 0}, length);
      const Shape before = line.subShape(info, {{from, 0}, length}), behind = line.subShape(info, {start, 1e6});
      EXPECT_EQ(dynamic_cast<const qcPolyline&>(*before).numVertices(), to - from + 1);
      EXPECT_EQ(dynamic_cast<const qcPolyline&>(*behind).numVertices(), line.isClosed() ? 7 : 6 - to);
      EXPECT_EQ(tree.subShape(info, {start, 1e6})->startAngle(), behind->startAngle());
    }
  }
}

TEST(PolylineWinding, AgreesWithAnglesSweptOnGrids) {
  forSeeds<Random>(20000, [&](Random& random, unsigned seed) {
    const bool closed = random.integer(0, 3) > 0;
    const Points points = random.gridPoints(random.integer(1, 9), 4);
    // Powers of two change no angle, also where squares leave the range of doubles.
    const double scale = std::ldexp(1, 700 * random.integer(-1, 1));
    Points scaled = points;
    for (V& v : scaled) v *= scale;
    const qcPolyline line(scaled, closed);
    const V p = random.gridPoint(4), aside = stepAside(p, points, closed);
    const double swept = sweptAround(aside, points, closed);
    ASSERT_NEAR(line.generalWindingAngle(scale * p).plain(), swept, closed ? 1e-12 : 0.02) << seed;
    ASSERT_TRUE(!closed || line.within(scale * p) == (std::fabs(swept) > kPi)) << seed;
  });
}

// The points around one on the slanted side, one step of the last bit apart: rounding puts many on the wrong side.
TEST(PolylineWinding, IsExactBesideSides) {
  const double step = std::ldexp(1, -53);
  for (const double scale : {1.0, std::ldexp(1, -700), std::ldexp(1, 700)}) {
    const qcPolyline above({scale * V(-24, -24), scale * V(24, 24), scale * V(-24, 24)}, true);
    for (int i = -20; i <= 20; ++i) {
      for (int j = -20; j <= 20; ++j) {
        const V p(0.5 + i * step, 0.5 + j * step);  // below 0.5 every second one is rounded to even
        ASSERT_EQ(above.within(scale * p), p.y() >= p.x()) << scale << ' ' << i << ' ' << j;
      }
    }
  }
}

/// In whole numbers, piece by piece: upward and downward pieces with p on their left and right, and whether one holds
/// p.
qc_shapes::Winding windingOnGrid(const Points& points, const V& p) {
  qc_shapes::Winding sum;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const V a = points[i] - p, b = points[(i + 1) % points.size()] - p;
    const double cross = a.cross(b);
    sum.number += (a.y() <= 0 && b.y() > 0 && cross > 0) - (a.y() > 0 && b.y() <= 0 && cross < 0);
    sum.touches = sum.touches || (cross == 0 && a * b <= 0);
  }
  return sum;
}

// At every instruction-set level and by way of cells, in polygons of all sizes: tangled ones, combs and thin ones.
TEST(PolylineWinding, IsTheSameInEveryWay) {
  forSeeds<Random>(1500, [&](Random& random, unsigned seed) {
    const int count = random.integer(1, seed % 4 == 0 ? 200 : 20), size = random.flip() ? 6 : 1000;
    Points points = random.gridPoints(count, size);
    for (int i = 0; seed % 3 == 0 && i < count; ++i) points[static_cast<std::size_t>(i)] = V(i, i % 2 * size);
    const double flat = std::ldexp(1, -40 * random.integer(0, 1)), far = random.integer(0, 1) * 0x1p40;
    Points placed;
    for (const V& v : points) placed.push_back(V(v.x(), flat * v.y() + far));
    const qcPolyline polygon(placed, true);
    const qcPreparedPolygon prepared(polygon);
    for (int k = 0; k < 40; ++k) {
      const auto any = [&] { return points[static_cast<std::size_t>(random.integer(0, count - 1))]; };
      const V p = k % 4 == 0 ? any() : k % 4 == 1 ? V(any().x(), any().y()) : random.gridPoint(size + 1) - V(1, 0);
      const V at(p.x(), flat * p.y() + far);
      ASSERT_EQ(prepared.within(at), polygon.within(at)) << seed;
      const qc_shapes::Winding expected = windingOnGrid(points, p);
      for (const auto counter : qc_shapes::windingCounters()) {
        const qc_shapes::Winding found = counter(points.data(), points.size(), p);
        ASSERT_EQ(found.touches, expected.touches) << seed;
        ASSERT_TRUE(found.touches || found.number == expected.number) << seed;
      }
      ASSERT_TRUE(expected.touches || far != 0 || prepared.within(at) == (expected.number != 0)) << seed;
    }
  });
  EXPECT_THROW(qcPreparedPolygon(qcPolyline({{0, 0}, {1, 0}, {1, 1}}, false)), qcShapesError::NotRegion);
}

// Positions are recorded piece by piece and joined afterwards; points alone are written joined.
TEST(PolylineSampling, GivesTheSamePointsInBothWays) {
  forSeeds<Random>(2000, [&](Random& random, unsigned seed) {
    const Points points = random.gridPoints(random.integer(1, seed % 50 == 0 ? 200 : 9), random.integer(0, 9));
    const qcPolyline line(points, random.flip());
    qcShape::qcSampleParams params(0, random.integer(0, 3) * 0.7, random.flip() ? 4 : 1000, false, false);
    qcShape::qcSampleResult joined, apart;
    const auto throws = [&](qcShape::qcSampleResult& result) {
      try {
        line.sample(params, result);
        line.sample(params, result);
        return false;
      } catch (const qcShapesError::SampleOverflow&) {
        return true;
      }
    };
    const bool overflows = throws(joined);
    params.recordPositions_(true);
    ASSERT_EQ(throws(apart), overflows) << seed;
    ASSERT_EQ(joined, apart) << seed;
  });
}

TEST(PolylineHulls, AreConvexAndHoldEveryVertex) {
  forSeeds<Random>(2000, [&](Random& random, unsigned) {
    const int size = random.integer(0, 9), count = random.integer(1, 60);
    Points points = random.gridPoints(count, size);
    const qcPolyline line(points, random.flip()), hull = line.convexHull();
    const double angle = random.real(-9, 9);
    const V far = points[static_cast<std::size_t>(line.extremalVertexIndex(qcRadian(angle)))];
    const Points& kept = hull.vertices();
    const std::size_t n = kept.size();
    ASSERT_GE(n, 1u);
    for (std::size_t i = 0; i < n; ++i) {
      EXPECT_NE(std::find(points.begin(), points.end(), kept[i]), points.end());
      EXPECT_TRUE(kept[0].x() < kept[i].x() || (kept[0].x() == kept[i].x() && kept[0].y() <= kept[i].y()));
      const V side = kept[(i + 1) % n] - kept[i];
      EXPECT_TRUE(n < 3 ? n == 1 || !side.isNull() : side.cross(kept[(i + 2) % n] - kept[i]) > 0);
      for (const V& p : points) {
        EXPECT_LE((p - far) * V(1, qcRadian(angle)), 1e-12);
        EXPECT_TRUE(n < 2 ? p == kept[0] : side.cross(p - kept[i]) >= 0);
        EXPECT_TRUE(n != 2 || hull.boundingBox().within(p));
      }
    }
    // What is no number is left out.
    points.insert(points.begin() + random.integer(0, count), V(NAN, 1));
    points.push_back({0, NAN});
    EXPECT_EQ(qcPolyline(points, true).convexHull(), hull);
  });
  Points circle;  // of which every vertex stays
  for (int i = 0; i < 1000; ++i) circle.push_back(V(1, qcRadian(i * kPi / 500)));
  EXPECT_EQ(qcPolyline(circle, true).convexHull().numVertices(), 1000);
}

TEST(PolylineDistances, AreTheLeastOfAWalk) {
  forSeeds<Random>(300, [&](Random& random, unsigned) {
    const auto made = [&random] {
      Points points;
      const V around = random.point();
      for (int n = random.integer(1, 7); n > 0; --n) points.push_back(around + 0.4 * random.point());
      return qcPolyline(points, random.flip());
    };
    const qcPolyline a = made(), b = made();
    V p, q, s, t;
    a.nearestPoints(b, p, q);
    b.nearestPoints(a, s, t);
    const double distance = p.distance(q), spacing = 0.05;
    EXPECT_LE(a.nearestPoint(p).distance(p) + b.nearestPoint(q).distance(q), 1e-12);
    EXPECT_NEAR(s.distance(t), distance, 1e-12);
    double least = HUGE_VAL;
    for (const V& along : walk(a, spacing)) least = std::min(least, b.nearestPoint(along).distance(along));
    EXPECT_LE(distance, least + 1e-12);
    EXPECT_GE(distance, least - spacing);
  });
  V p, q;
  // Ends a few steps of the last bit beside the same line.
  forSeeds<Random>(20000, [&](Random& random, unsigned seed) {
    const auto near = [&random](double t) { return V(t, 0.7 * t) + std::ldexp(1, -52) * random.gridPoint(6); };
    const qcPolyline a({near(-1), near(1)}, false), b({near(random.real(-1, 0)), near(random.real(0, 1))}, false);
    a.nearestPoints(b, p, q);
    ASSERT_LE(p.distance(q) + a.nearestPoint(p).distance(p) + b.nearestPoint(q).distance(q), 4e-15) << seed;
  });
  for (const Points& later : {Points{{8, 1}, {8, -1}, {2, -1}, {2, 1}}, Points{{8, 1}, {2, 1}}}) {
    qcPolyline({{0, 0}, {10, 0}}, false).nearestPoints(qcPolyline(later, false), p, q);
    EXPECT_EQ(p, V(2, 0));  // the first along a, though the last along the other
  }
}

// No number crashes or hangs what is measured.
TEST(PolylineMeasures, AnswerAnyNumbers) {
  const double numbers[] = {0, -0.0, 1, -1, 1e-320, 1e308, -1e308, HUGE_VAL, -HUGE_VAL, std::nan(""), 3};
  forSeeds<Random>(3000, [&](Random& random, unsigned) {
    const auto point = [&] { return V(numbers[random.integer(0, 10)], numbers[random.integer(0, 10)]); };
    Points points, others;
    for (int n = random.integer(1, 30); n > 0; --n) points.push_back(point()), others.push_back(point());
    const qcPolyline line(points, true), other(others, random.flip());
    double m[6];
    V p, q;
    qc2Rigid frame;
    line.areaMoment2(m[0], m[1], m[2], m[3], m[4], m[5]);
    other.principalMomentsArcLength(p, frame);
    if (line.areaMoment0() != 0) line.principalMomentsArea(p, frame);
    line.nearestPoints(other, p, q);
    line.within(p);
    qcPreparedPolygon(line).within(point());
    other.generalWindingAngle(point());
    EXPECT_GE(line.convexHull().numVertices() + line.extremalVertexIndex(qcRadian(m[0])), 0);
    const qcAffineRectangle rect(qcXform<2>({p.x(), q.x(), p.y(), q.y()}, point()));
    rect.within(point());
    rect.encloseImageRect({{q.x(), p.x(), q.y(), p.y()}, point()});
    if (std::isfinite(p.x())) qcAffineRectangle(rect).xRotation(qcRadian(p.x()));
  });
}

using Rect = qcAffineRectangle;

/// The four numbers and the centre by which a rectangle can be made.
struct Description {
  V center;
  double x, y;
  qcRadian rotation, skew;
};

Description describe(const Rect& r) { return {r.center(), r.xLength(), r.yLength(), r.xRotation(), r.skew()}; }

void expectNear(const Description& a, const Description& b) {
  EXPECT_LE(a.center.distance(b.center), 1e-12);
  EXPECT_NEAR(a.x, b.x, 1e-12);
  EXPECT_NEAR(a.y, b.y, 1e-12);
  EXPECT_TRUE(qfRealEq(a.rotation, b.rotation, 1e-12) && qfRealEq(a.skew, b.skew, 1e-9));
}

/// Whatever was kept agrees with what a rectangle finds that never was asked.
void expectCurrent(const Rect& r) {
  const Rect fresh(r.affRectFromUnitSq());
  EXPECT_EQ(fresh, r);
  expectNear(describe(r), describe(fresh));
  const auto corners = [](const Rect& a) { return Points{a.cornerPo(), a.cornerPx(), a.cornerPy(), a.cornerPopp()}; };
  for (std::size_t i = 0; i < 4; ++i) EXPECT_LE(corners(r)[i].distance(corners(fresh)[i]), 1e-12);
  EXPECT_TRUE(qfRealEq(r.yRotation(), fresh.yRotation(), 1e-12));
}

TEST(AffineRectangles, EachSetterSetsWhatItSaysAndNothingElse) {
  Rect r;
  Random random(1);
  const auto angle = [&random] { return qcRadian(random.real(-9, 9)); };
  const auto good = [&] {
    qcRadian skew = angle();
    while (std::fabs(std::cos(skew.plain())) < 0.1) skew = angle();
    return skew;
  };
  for (int i = 0; i < 3000; ++i) {
    SCOPED_TRACE(i);
    Description d = describe(r);
    const V p = random.point();
    const double a = random.real(0.1, 9), b = random.real(0.1, 9);
    const qcRadian turn = angle(), skew = good();
    const V corner = r.cornerPo(), x(a, turn), y = V(b, turn + skew).perpendicular();
    const int kind = random.integer(0, 8);
    if (kind == 0) r.center(d.center = p);
    if (kind == 1) r.xLength(d.x = a);
    if (kind == 2) r.yLength(d.y = a);
    if (kind == 3) r.xRotation(d.rotation = turn);
    if (kind == 4) r.skew(d.skew = skew);
    if (kind == 5) r.centerLengthsRotAndSkew(p, a, b, turn, skew);
    if (kind == 6) r.cornerPo(p), d.center = p + d.center - corner;
    if (kind == 7) r.cornerPoLengthsRotAndSkew(p, a, b, turn, skew);
    if (kind == 8) r.cornersPoPxPy(p, p + x, p + y);
    if (kind == 5 || kind > 6) d = {kind == 5 ? p : p + (x + y) / 2, a, b, turn, skew};
    EXPECT_TRUE(kind != 8 || r.isRightHanded() == (std::cos(skew.plain()) > 0));
    expectNear(describe(r), d);
    expectCurrent(r);
    if (HasFailure()) return;
  }
}

TEST(AffineRectangles, RefuseWhatSpansNoAreaAndStayAsTheyAre) {
  const V c(5, 5);
  const double right = kPi / 2;
  Rect r(c, 1, 1, qcRadian(0), qcRadian(right - 0.002));
  const Rect before = r;
  for (const double bad : {0.0, -1.0, -HUGE_VAL, HUGE_VAL, std::nan("")}) {
    EXPECT_THROW(r.centerLengthsRotAndSkew(c, bad, 1, {}, qcRadian(right)), Rect::BadLength);
    EXPECT_THROW(r.cornerPoLengthsRotAndSkew(c, 1, bad, {}, {}), Rect::BadLength);
    EXPECT_THROW(r.xLength(bad), Rect::BadLength);
    EXPECT_THROW(r.yLength(bad), Rect::BadLength);
    if (std::isfinite(bad)) continue;
    EXPECT_THROW(r.xRotation(qcRadian(bad)), qcShapesError::BadParams);
    EXPECT_THROW(r.cornerPoLengthsRotAndSkew(c, 1, 1, qcRadian(bad), {}), qcShapesError::BadParams);
  }
  for (const double bad : {right, -right, -right + 0.0005, 3 * right - 0.0009, HUGE_VAL, std::nan("")}) {
    EXPECT_THROW(r.cornerPoLengthsRotAndSkew(c, 1, 1, {}, qcRadian(bad)), Rect::BadSkew);
    EXPECT_THROW(r.skew(qcRadian(bad)), Rect::BadSkew);
  }
  const V bad[][3] = {{c, c, {1, 2}},
                      {c, {1, 2}, c},
                      {{1, 2}, c, c},
                      {{0.1, 0.1}, {0.3, 0.3}, {0.7, 0.7}},
                      {{-1e308, 0}, {1e308, 0}, {0, 1}}};
  for (const auto& [po, px, py] : bad) EXPECT_THROW(r.cornersPoPxPy(po, px, py), Rect::BadLength);
  EXPECT_EQ(r, before);
  // A transform may be singular, and everything can be asked all the same.
  const Rect flat({{2, 4, 1, 2}, {1, 1}}), point({{0, 0, 0, 0}, {1, 1}});
  EXPECT_TRUE(flat.within({3, 2}) && !flat.within({9, 5}) && !flat.within({3, 3}) && point.within({1, 1}));
}

// Corners and points of the sides are inside, also where rounding would put them elsewhere.
TEST(AffineRectangles, HoldTheirSides) {
  forSeeds<Random>(2000, [&](Random& random, unsigned seed) {
    const V po = random.gridPoint(40), x = random.gridPoint(40) - V(20, 20), y = random.gridPoint(40) - V(20, 20);
    const Rect rect({{x.x(), y.x(), x.y(), y.y()}, po});
    const qcGenRect same(po, x, y);
    for (int i = -1; i <= 5; ++i) {
      for (int j = -1; j <= 5; ++j) {
        const V p = po + i * x / 4 + j * y / 4;
        const bool inside = i >= 0 && i <= 4 && j >= 0 && j <= 4;
        ASSERT_TRUE(rect.degen() || rect.within(p) == inside) << seed;
        ASSERT_EQ(same.within(p), rect.within(p)) << seed;
        ASSERT_TRUE(!inside || rect.encloseRect().within(p)) << seed;
      }
    }
    EXPECT_EQ(same.degen(), rect.degen());
    EXPECT_EQ(rect.distToPoint(po + x / 4), 0);
  });
}

TEST(AffineRectangles, CoverExactlyThePixelsThatTheirImageTouches) {
  const double tiny = std::ldexp(1, -30);
  const auto around = [](const V& po, double scale) {
    return Rect().map({{1, 0, 0, 1}, po}).encloseImageRect({{scale, 0, 0, scale}, {}});
  };
  EXPECT_EQ(around({1 - tiny, 0.5}, 1 + tiny), qcPelRect(0, 0, 3, 2));  // from 1 - 2^-60 on
  EXPECT_EQ(around({1e300, -1e300}, 1), qcPelRect(2147483647, -2147483647 - 1, 0, 0));
  // Products of 24 bits and their sums fit extended precision.
  forSeeds<Random>(2000, [&](Random& random, unsigned seed) {
    const int bits = seed % 2 ? 2 : 20;
    const auto number = [&] { return std::ldexp(random.integer(-(8 << bits), 8 << bits), -bits); };
    const qcXform<2> rect({number(), number(), number(), number()}, {number(), number()});
    const qcXform<2> map({number(), number(), number(), number()}, {number(), number()});
    long double low[2] = {HUGE_VALL, HUGE_VALL}, high[2] = {-HUGE_VALL, -HUGE_VALL};
    for (const V& corner : {V(0, 0), V(1, 0), V(0, 1), V(1, 1)}) {
      const V p = rect * corner;  // exact
      for (int i = 0; i < 2; ++i) {
        const long double value = static_cast<long double>(map.matrix().element(i, 0)) * p.x() +
                                  static_cast<long double>(map.matrix().element(i, 1)) * p.y() + map.trans()[i];
        low[i] = std::min(low[i], std::floor(value));
        high[i] = std::max(high[i], std::ceil(value));
      }
    }
    ASSERT_EQ(Rect(rect).encloseImageRect(map),
              qcPelRect::fromCorners(static_cast<long>(low[0]), static_cast<long>(low[1]), static_cast<long>(high[0]),
                                     static_cast<long>(high[1])))
        << seed;
  });
}

}  // namespace
