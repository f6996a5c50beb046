
#include "support/archived.h"
#include "support/randomshapes.h"
#include "vnxstd/math/rigid.h"
#include "vnxstd/math/xfpersp.h"
#include "vnxstd/pelspan/pelspan.h"

namespace {

TEST(Sampling, CountsOfTheTable) {
  const qcCircle circle({0, 0}, 10);
  const qcLineSeg segment({0, 0}, {10, 0});
  const qcRect square({0, 0}, {1, 1});
  const std::tuple<const qcShape&, double, double, long, long> rows[] = {
      // -1: too many
      {circle, 0, 0, 2, 2},     {circle, 0, 1, 10, -1},      {circle, 0, 1, 63, 63},
      {circle, 0, 1, 62, -1},   {circle, 10, 0, 2, 2},       {circle, 5, 20 * kPi, 99, 3},
      {circle, 5, kPi, 99, 20}, {circle, 1e-300, 0, 99, -1}, {circle, 0, 1e-300, 2147483647, -1},
      {segment, 0, 0, 2, 2},    {segment, 0, 1, 11, 11},     {segment, 0, 3, 99, 5},
      {square, 0, 0, 2, 8},     {square, 0, 0.5, 3, 12},     {square, 0, 0.5, 2, -1}};
  for (const auto& row : rows) {
    const auto& [shape, tolerance, spacing, maxPoints, expected] = row;
    const Params params(tolerance, spacing, maxPoints);
    SCOPED_TRACE(testing::Message() << "row " << &row - rows);
    Result result;
    const std::wstring error = errorOf([&, &of = shape] { of.sample(params, result); });
    EXPECT_TRUE(expected < 0 ? error.starts_with(L"qcShapesError::SampleOverflow") : error.empty());
    EXPECT_EQ(static_cast<long>(result.positions().size()), std::max(0L, expected));
  }
  const V p(1, 1);
  const qcEllipse2 point(p, qcRadian(1), {0, 0}, false, qcRadian(2)), unit({0, 1}, {}, p, true, {});
  const Shape points[] = {new qcEllipse2(point), new qcEllipseArc2(unit, qcRadian(0), qcRadian(0)),
                          new qcCircle(p, 0),    new qcLineSeg(p, p),
                          new qcRect(p, {0, 0}), new qcPolyline({p}, true)};
  for (const Shape& shape : points) {
    Result result;
    shape->sample(Params(1, 1), result);
    EXPECT_EQ(result.positions(), std::vector<V>{p});
    EXPECT_EQ(result.closedFlags()[0], shape->isRegion());
  }
}

TEST(Sampling, ParametersTakeOnlyWhatTheyMay) {
  Params params(1, 2);
  for (const double bad : {-1e-300, -kInf, kNan}) {
    EXPECT_THROW(Params(bad, 0), qcShapesError::BadParams);
    EXPECT_THROW(params.tolerance(bad), qcShapesError::BadParams);
    EXPECT_THROW(params.spacing(bad), qcShapesError::BadParams);
  }
  for (const long bad : {1L, 0L, -1L, 2147483648L})
    EXPECT_THROW(params.maxPoints(bad), qcShapesError::BadParams) << bad;
  EXPECT_EQ(params, Params(1, 2));
  params.uniformMode(true);
  params.maxPoints(1);
  EXPECT_THROW(params.maxPoints(0), qcShapesError::BadParams);
}

TEST(Sampling, UniformModePutsMidpointsOfEqualArcs) {
  const qcLineSeg segment({0, 0}, {10, 0});
  Params params(0, 0, 4, true);
  params.uniformMode(true);
  params.recordPositions_(true);
  Result result;
  segment.sample(params, result);
  EXPECT_EQ(result.perimPositions_()[3], qcPerimPos(0, 8.75));
  // A polyline walks all its pieces when it is handed to the sampler of primitives.
  Result bent;
  qfUniformSamplePrimitive(qcPolyline({{0, 0}, {2, 0}, {2, 2}}, false), params, bent);
  EXPECT_EQ(bent.positions(), (std::vector<V>{{0.5, 0}, {1.5, 0}, {2, 0.5}, {2, 1.5}}));
  // The piece of an enclosing shape that is next gives the length and the number.
  const qcShapeInfo enclosing(qcPolyline({{0, 0}, {4, 0}, {4, 1}}, false));
  params.enclosingInfo_(&enclosing);
  result.pieceNumber_(1);
  qfUniformSamplePrimitive(segment, params, result);
  EXPECT_EQ(result.positions()[4], V(0.125, 0));
  EXPECT_EQ(result.perimPositions_()[4], qcPerimPos(1, 0.125));
  EXPECT_THROW(segment.sample(params, result), qcShapesError::BadIndex);
  EXPECT_EQ(result.pieceNumber_(), 2);
  params.enclosingInfo_(nullptr);
  Result none;
  qcLineSeg().sample(params, none);
  EXPECT_EQ(none.numChains(), 0);
}

// The merge step by step, one erasure after another.
void mergeSlowly(const Params& params, std::size_t first, bool closed, Result& result) {
  auto& breaks = result.breaks();
  for (std::size_t k = breaks.size(); !params.duplicateCorners() && k-- > first;) {
    if (k == first && !closed) break;
    const auto start = static_cast<std::size_t>(breaks[k]);
    const std::size_t j = k > first ? start - 1 : result.positions().size() - 1;
    if (j == static_cast<std::size_t>(breaks[first])) break;
    if (!result.tangents().empty()) {
      const qcRadian a = result.tangents()[j], b = result.tangents()[start], d = (b - a).norm();
      result.tangents()[start] = (d.plain() <= kPi ? a + d / 2 : b + (qcRadian(2 * kPi) - d) / 2).signedNorm();
      result.tangents().erase(result.tangents().begin() + static_cast<long>(j));
    }
    result.positions().erase(result.positions().begin() + static_cast<long>(j));
  }
  breaks.resize(first + 1);
  result.closedFlags().resize(first + 1);
  result.closedFlags()[first] = closed;
}

TEST(Sampling, MergingIsErasingJointByJoint) {
  forSeeds<Random>(400, [&](Random& random, unsigned) {
    const bool tangents = random.flip(), closed = random.integer(0, 1);
    const Params params(0, 0, 2, tangents, random.integer(0, 3) == 0);
    Result fast;
    for (int chain = random.integer(1, 6); chain > 0; --chain) {
      fast.breaks().push_back(static_cast<std::int32_t>(fast.positions().size()));
      fast.closedFlags().push_back(random.integer(0, 1));
      for (int n = random.integer(1, 3); n > 0; --n) {
        fast.positions().push_back(random.point());
        if (tangents) fast.tangents().push_back(qcRadian(random.real(-3, 3)));
      }
    }
    Result slow = fast;
    const int first = random.integer(0, static_cast<int>(fast.numChains()) - 1);
    mergeSlowly(params, static_cast<std::size_t>(first), closed, slow);
    qfMergeSubchains(params, first, closed, fast);
    ASSERT_EQ(fast, slow);
    EXPECT_TRUE(fast.isValid_());
    qfMergeSubchains(params, static_cast<int>(fast.numChains()), true, fast);
    EXPECT_EQ(fast, slow);
    EXPECT_THROW(qfMergeSubchains(params, -1, true, fast), qcShapesError::BadIndex);
  });
}

TEST(Sampling, CornersKeepOnePointWithTheBisectorAndChainsBecomePolylines) {
  const qcRect square({0, 0}, {1, 1});
  Result result;
  square.sample(Params(0, 0, 2, true, false), result);
  EXPECT_EQ(result.positions(), (std::vector<V>{{0, 0}, {1, 0}, {1, 1}, {0, 1}}));
  for (int i = 0; i < 4; ++i)
    EXPECT_TRUE(qfRealEq(result.tangents()[static_cast<std::size_t>(i)], qcRadian((2 * i - 1) * kPi / 4), 1e-12)) << i;
  qcLineSeg({5, 5}, {6, 5}).sample(Params(0, 0, 2, true), result);
  std::vector<qcPolyline> polylines;
  result.getPolylines(polylines);
  ASSERT_EQ(polylines.size(), 2u);
  EXPECT_TRUE(polylines[0].equal_(*square.decompose()));
  EXPECT_EQ(polylines[1], qcPolyline({{5, 5}, {6, 5}}, false));
  using Breaks = std::vector<std::int32_t>;
  for (const Breaks& breaks : {Breaks{1, 4}, {0, 6}, {0, -1}, {4, 0}, {0, 0}, {0}}) {
    result.breaks() = breaks;
    EXPECT_THROW(result.getPolylines(polylines), qcShapesError::BadParams);
    qcMemoryArchive archive(qcArchive::bigEndian, false);
    EXPECT_THROW(archive << result, qcArchive::BadContent);
    EXPECT_THROW(qfMergeSubchains(Params(0, 0, 2, true, false), 0, true, result), qcShapesError::BadParams);
  }
}

TEST(ShapeInfo, BuildersCombineTheLengthsOfPieces) {
  const auto lengths = [](const qcShapeInfo& info) {
    std::vector<double> all;
    for (long i = 0; i < info.numPieces(); ++i) all.push_back(info.pieceLength(i));
    return all;
  };
  qcShapeInfo info(qcPolyline({{0, 0}, {1, 0}, {1, 2}}, false)), other;
  info.append_(1, qcLineSeg({0, 0}, {5, 0}));
  info.append_(3, qcRect({0, 0}, {1, 3}));
  info.append_(0, qcPolyline());
  EXPECT_EQ(lengths(info), (std::vector<double>{1, 5, 2, 8}));
  info.reverseRecurs_(1, 3);
  EXPECT_EQ(lengths(info), (std::vector<double>{1, 2, 5, 8}));
  info.mapShape_(2, other);
  EXPECT_EQ(lengths(other), (std::vector<double>{2, 4, 10, 16}));
  info.extract_(3, other);
  EXPECT_EQ(lengths(other), std::vector<double>{8});
  info.flatten_(other, true);
  EXPECT_EQ(other.perimPos({3, 8}, 3.5), qcPerimPos(2, 0.5));
  EXPECT_EQ(info.perimPos({3, 7}, 3.5), qcPerimPos(3, 8));
  const qcShapeInfo before = info;
  EXPECT_THROW(info.append_(5, qcLineSeg()), qcShapesError::BadIndex);
  EXPECT_THROW(info.append_(0, qcLineSeg({-1e308, 0}, {1e308, 0})), qcShapesError::InfiniteExtent);
  EXPECT_THROW(info.extract_(4, info), qcShapesError::BadIndex);
  EXPECT_THROW(info.mapShape_(1e308, info), qcShapesError::InfiniteExtent);
  EXPECT_EQ(info, before);
  const qcShapeInfo taken = std::move(other);
  EXPECT_EQ(taken.perimeter(), 16);
  EXPECT_THROW(other.perimPos(0), qcShapesError::EmptyShape);  // NOLINT(bugprone-use-after-move): as documented
  EXPECT_THROW(taken.perimPos(kInf), qcShapesError::BadParams);
  EXPECT_EQ(taken.perimPos(-1e-300), qcPerimPos());

  // From the third piece of a chain to its own information.
  const qcShapeInfo alone(qcPolyline({{0, 0}, {5, 0}, {13, 0}}, false));
  std::vector<qcPerimPos> positions{{2, 4}, {3, 1}};
  qfConvertPerimPositions(info, 2, alone, 0, positions);
  EXPECT_EQ(positions, (std::vector<qcPerimPos>{{0, 4}, {1, 1}}));
  EXPECT_THROW(qfConvertPerimPositions(info, 0, alone, 2, positions), qcShapesError::BadIndex);
  // The end of one stays an end, past pieces without length, and a closed boundary wraps.
  const qcShapeInfo round(qcPolyline({{0, 0}, {4, 0}, {4, 2}, {0, 2}}, true)),
      gaps(qcPolyline({{0, 0}, {5, 0}, {5, 0}, {13, 0}}, false));
  positions = {{0, 5}, {1, 0}};
  qfConvertPerimPositions(alone, 0, gaps, 0, positions);
  EXPECT_EQ(positions, (std::vector<qcPerimPos>{{0, 5}, {2, 0}}));
  positions = {{1, 0}, {0, 1}, {2, 1}};
  qfConvertPerimPositions(round, 2, gaps, 0, positions);
  EXPECT_EQ(positions, (std::vector<qcPerimPos>{{2, 5}, {2, 2}, {0, 1}}));
  positions = {{1, 0}, {1, 0.3}};
  qfConvertPerimPositions(qcShapeInfo(qcPolyline({{0, 0}, {0.3, 0}}, true)), 0,
                          qcShapeInfo(qcPolyline({{0, 0}, {0.1, 0}, {0.1, 0.2}, {0, 0.2}}, true)), 0, positions);
  EXPECT_EQ(positions, (std::vector<qcPerimPos>{{2, 0}, {3, 0.2}}));
  positions = {{3, 8}};  // the start may lie elsewhere
  qfConvertPerimPositions(taken, 0, taken, 0, positions);
  EXPECT_EQ(positions[0], qcPerimPos(3, 8));
  info.extract_(2, other);
  positions = {{0, 9}};
  qfConvertPerimPositions(other, 0, info, 2, positions);
  EXPECT_EQ(positions[0], qcPerimPos(2, 5));
  EXPECT_TRUE(alone.distanceAlong({0, 15}) == 13 && alone.perimPos({0, 15}, -3) == qcPerimPos(1, 5));
  EXPECT_TRUE(round.distanceAlong({3, 2}) == 12 && round.distanceAlong({3, 3}) == 1);
  for (const qcShapeInfo& closed : {round, qcShapeInfo(qcRect())}) {
    EXPECT_THROW(closed.distanceAlong({0, kInf}), qcShapesError::BadParams);
    EXPECT_THROW(closed.perimPos(kInf), qcShapesError::BadParams);
  }
}

/// A shape with a decomposition of its own, which the defaults ask.
struct Composite : qcRect {
  Composite(Shape shape, bool decomposed) : parts(shape), isPrimitive(decomposed) {}
  bool isOpenContour() const override { return parts->isOpenContour(); }
  bool isRegion() const override { return parts->isRegion() || parts->startPoint() == parts->endPoint(); }
  bool isReversible() const override { return false; }
  bool isMultipleContours_() const override { return parts->isMultipleContours_(); }
  bool isDecomposed() const override { return isPrimitive; }
  Shape decompose() const override { return parts; }
  double perimeter() const override { return qcShape::perimeter(); }
  Shape reverse() const override { return qcShape::reverse(); }
  bool within(const V& p) const override { return qcShape::within(p); }
  Shape parts;
  bool isPrimitive;
};

TEST(ShapeDefaults, AskTheDecomposition) {
  const Composite bent(new qcPolyline({{0, 0}, {3, 0}, {3, 4}}, false), false);
  const qcShapeInfo info(bent);
  EXPECT_TRUE(info.numPieces() == 1 && bent.perimeter() == 7);
  EXPECT_EQ(bent.nearestPerimPos(info, {9, 2}), qcPerimPos(0, 5));
  V point;
  qcRadian tangent;
  bent.perimPointAndTangent(info, {0, 3}, point, tangent);
  EXPECT_TRUE(point == V(3, 0) && tangent == qcRadian(kPi / 2));
  EXPECT_TRUE(bent.subShape(info, {{0, 1}, 4})->equal_(qcPolyline({{1, 0}, {3, 0}, {3, 2}}, false)));
  const Composite disc(new qcEllipseArc2(qcEllipse2(), qcRadian(0), qcRadian(2 * kPi)), false);
  const qcShapeInfo round(disc);
  EXPECT_NEAR_POINT(disc.perimPoint(round, {0, -kPi / 2}), V(0, -1), 1e-12);
  EXPECT_NEAR(disc.subShape(round, {{0, 6}, 2})->perimeter(), 2, 1e-12);
  EXPECT_THROW(bent.within({0, 0}), qcShapesError::NotRegion);
  EXPECT_THROW(bent.reverse_(), qcShapesError::NotReversible);
  EXPECT_THROW(Composite(nullptr, false).perimeter(), qcBadPointer);
  EXPECT_THROW(Composite(new qcRect, false).nearestPerimPos(info, {}), qcBadPointer);
  const Shape segment(new qcLineSeg({0, 0}, {7, 0}));
  EXPECT_EQ(Composite(segment, true).perimPoint(info, {0, 2}), V(2, 0));
  EXPECT_THROW(Composite(new Composite(segment, true), true).perimPoint(info, {}), qcBadPointer);
  EXPECT_FALSE(qcContourTree({new Composite(segment, false)}, false, false).isReversible());
  qcRegionTree ring(qcCircle({0, 0}, 5));
  ring.addChild(qcRegionTree(qcCircle({0, 0}, 2), true));
  const qc2XformPerspective bends(qcMatrix<3>(1, 0, 0, 0, 1, 0, 0.01, 0, 1));
  const qcMappedShape seen(new Composite(ring.decompose(), false), bends, false);
  EXPECT_TRUE(!seen.within({0, 0}) && seen.within({3, 0}) && !seen.decompose()->within({0, 0}));
  EXPECT_EQ(qcShapeInfo(seen).numPieces(), 1);
}

// ---- the classes one by one

TEST(Lines, CrossingPointsLieOnBothAndFormsAgree) {
  forSeeds<Random>(300, [&](Random& random, unsigned) {
    const qcLine a(qcRadian(random.real(-9, 9)), random.point()), b(qcRadian(random.real(-9, 9)), random.point());
    const V crossing = a.intersect(b), p = random.point();
    const double scale = 1e-9 * (1 + crossing.len());
    EXPECT_LE(a.distToPoint(crossing) + b.distToPoint(crossing), scale);
    EXPECT_LE(a.normal(p).distToPoint(a.nearestPoint(p)), 1e-9);
    EXPECT_TRUE(a.isParallel(a.parallel(p)));
    EXPECT_THROW(a.intersect(a.parallel(p)), qcShapesError::LinesParallel);
    EXPECT_TRUE(qfRealEq(a.angle() + a.angle(b), b.angle(), 1e-9));
    const qcXform<2> xform = random.similarity(true, random.integer(0, 1));
    EXPECT_NEAR(a.map(xform).distToPoint(xform * p), a.distToPoint(p) * xform.scale(), 1e-8);

    const V q = random.point();
    const qcFLine f(p, q);
    const qcLine line = qcLineSeg(p, q).line();
    EXPECT_NEAR(std::fabs(f.distanceFrom(crossing)), line.distToPoint(crossing), scale);
    EXPECT_NEAR_POINT(f.nearestPoint(crossing), line.nearestPoint(crossing), scale);
    EXPECT_NEAR_POINT(f.rigid_() * V(f.distanceAlong(crossing), f.distanceFrom(crossing)), crossing, scale);
    EXPECT_NEAR(std::fabs(f.map(xform).distanceFrom(xform * crossing)),
                std::fabs(f.distanceFrom(crossing)) * xform.scale(), 10 * scale);
    EXPECT_TRUE(f == qcFLine(f.angle(), f.distance()) && f != qcFLine(f.angle(), f.distance() * 1.5));

    const qc2Rigid frame(qcDegree(random.real(-400, 400)), p);
    for (double t : {-3.0, 0.0, 5.0}) {
      EXPECT_NEAR(qcFLine::Xaxis(frame).distanceFrom(frame * V(t, 0)), 0, 1e-9);
      EXPECT_NEAR(qcFLine::Yaxis(frame).distanceFrom(frame * V(0, t)), 0, 1e-9);
    }
  });
  for (int i = 0; i < 1440; ++i)
    EXPECT_TRUE(qcFLine(qcDegree(0.25 * i), 2) == qcFLine(qcDegree(0.25 * i + 360.0 * (i - 700)), 2)) << i;
  for (const double scale : {1e-310, 1.0, 1e307})
    EXPECT_NEAR_POINT(qcLineSeg({0, 0}, {3 * scale, 4 * scale}).line().dir(), V(0.6, 0.8), 1e-9);
  EXPECT_TRUE(qcLine().isParallel(qcLine(V(1, 9e-13))));
  EXPECT_FALSE(qcLine().isParallel(qcLine(V(1, 1.1e-12))));
}

TEST(Lines, RefuseWhatMakesNoLineAndWhatNeedsAnEnd) {
  EXPECT_THROW(qcLine({0, -0.0}, {1, 1}), qcShapesError::DegenerateShape);
  EXPECT_THROW(qcLine().map({{0, 0, 0, 1}, {}}), qcShapesError::DegenerateShape);
  EXPECT_THROW(qcFLine().map({{0, 0, 0, 1}, {}}), qcShapesError::DegenerateShape);
  EXPECT_THROW(qcLineSeg({1, 1}, {1, 1}).line(), qcShapesError::DegenerateShape);
  EXPECT_THROW(qcFLine({1, 2}, {1, 2}), qcShapesError::DegenerateShape);
  for (const double bad : {-1e-9, kNan}) EXPECT_THROW(qcFLine(qcDegree(0), bad), qcShapesError::DegenerateShape);
  qcFLine kept(qcDegree(10), 4);
  EXPECT_THROW(kept.distance(-1), qcShapesError::DegenerateShape);
  EXPECT_TRUE(kept == qcFLine(qcDegree(370), 4));
  EXPECT_TRUE(qcLine().reverse()->equal_(qcLine({-1, 0}, {0, 0})));
}

TEST(Circles, CrossingsLieOnBoth) {
  V a, b;
  forSeeds<Random>(300, [&](Random& random, unsigned) {
    const qcCircle circle(random.point(), random.real(0, 9)), other(random.point(), random.real(0, 20));
    const qcLine line(qcRadian(random.real(-3, 3)), random.point());
    EXPECT_EQ(circle.intersections(line, a, b), line.distToPoint(circle.center()) <= circle.radius());
    if (circle.intersections(line, a, b)) {
      EXPECT_LE(circle.distToPoint(a) + circle.distToPoint(b) + line.distToPoint(a) + line.distToPoint(b), 1e-6);
      EXPECT_LE(line.offset(a), line.offset(b));
    } else {
      EXPECT_NEAR_POINT(b, line.nearestPoint(circle.center()), 1e-9);
      EXPECT_NEAR_POINT(a, circle.closestPoint(b), 1e-9);
    }
    const double d = circle.center().distance(other.center());
    const bool meet = d <= circle.radius() + other.radius() && d >= std::fabs(circle.radius() - other.radius());
    EXPECT_EQ(circle.intersections(other, a, b), meet);
    EXPECT_LE(circle.distToPoint(a) + other.distToPoint(b), 1e-6);
    if (meet) {
      EXPECT_LE(circle.distToPoint(b) + other.distToPoint(a), 1e-6);
      EXPECT_LE((other.center() - circle.center()).cross(a - b), 0);
    } else {
      EXPECT_NEAR(a.distance(b),
                  std::max(d - circle.radius() - other.radius(), std::fabs(circle.radius() - other.radius()) - d),
                  1e-9);
    }
    const double r = circle.radius();
    EXPECT_TRUE(qcCircle({0, 0}, r).intersections(qcCircle({r, 0}, 0), a, b) && a == b);
  });
  const qcCircle circle({0, 0}, 2);  // touched from outside, and met by itself
  EXPECT_TRUE(circle.intersections(qcLine({1, 0}, {0, 2}), a, b) && a == V(0, 2) && b == a);
  EXPECT_TRUE(circle.intersections(qcCircle({3, 0}, 1), a, b) && a == V(2, 0) && b == a);
  EXPECT_FALSE(circle.intersections(circle, a, b));
  EXPECT_EQ(circle.closestPoint({0, 0}), V(2, 0));
}

TEST(Circles, RefuseRadiiAndWhatIsNoCircle) {
  EXPECT_TRUE(qcCircle({1, 1}, 0).degen());
  qcCircle circle({1, 1}, 2);
  for (const double bad : {-1e-9, -kInf, kInf, kNan}) {
    EXPECT_THROW(qcCircle({0, 0}, bad), qcShapesError::BadRadius);
    EXPECT_THROW(circle.centerRadius(0, 0, bad), qcShapesError::BadRadius);
  }
  EXPECT_EQ(circle, qcCircle({1, 1}, 2));
  EXPECT_TRUE(circle.mapShape({{1, 1e-6, 0, 1}, {}})->equal_(circle.map2({{1, 1e-6, 0, 1}, {}})));
  EXPECT_TRUE(circle.mapShape({{0, 2, 2, 0}, {1, 0}})->equal_(qcCircle({3, 2}, 4)));
  EXPECT_TRUE(circle.mapShape({{1e-170, 0, 0, -1e-170}, {}})->equal_(qcCircle({1e-170, -1e-170}, 2e-170)));
  EXPECT_TRUE(qcCircle({1, 1}, 0).mapShape({{1, 2, 3, 4}, {}})->equal_(qcCircle({3, 7}, 0)));
  EXPECT_THROW(circle.map({{1e308, 0, 0, 1}, {}}), qcShapesError::BadParams);
}

TEST(Rectangles, FollowTheTables) {
  EXPECT_EQ(qcRect({10, 10}, {-4, 2}), qcRect({14, 10}, {4, 2}));
  const std::tuple<qcRect, qcRect, qcRect, qcRect> pairs[] = {
      {{{0, 0}, {1, 1}}, {{1, 0}, {1, 1}}, {}, {{0, 0}, {2, 1}}},
      {{{0, 0}, {4, 4}}, {{2, 1}, {9, 2}}, {{2, 1}, {2, 2}}, {{0, 0}, {11, 4}}},
      {{{1, 1}, {4, 4}}, {{3, 3}, {0, 0}}, {}, {{1, 1}, {4, 4}}},
      {{{1, 1}, {4, 4}}, {{7, -2}, {0, 5}}, {}, {{1, -2}, {6, 7}}}};
  for (const auto& [a, b, common, both] : pairs) {
    EXPECT_EQ(a & b, common);
    EXPECT_EQ(b.enclose(a), both);
  }
  EXPECT_FALSE(qcRect({0, 0}, {0, 5}).degen());
  qcRect negative;
  negative.size({-1, 0});
  EXPECT_TRUE(negative.degen() && !negative.within({0, 0}) && negative.enclose(negative) == negative);
  const qcRect rect({1, 2}, {3, 4});
  EXPECT_FALSE(rect.within({1, kNan}));
  const qcLineSeg sides[] = {rect.tSeg(), rect.rSeg(), rect.bSeg(), rect.lSeg()};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(sides[i].p2(), sides[(i + 1) % 4].p1());
  EXPECT_TRUE(rect.mapShape({{2, 0, 0, 3}, {1, 1}})->equal_(qcRect({3, 7}, {6, 12})));
  EXPECT_TRUE(rect.mapShape({{0, -1, 1, 0}, {}})->equal_(qcGenRect({-2, 1}, {0, 3}, {-4, 0})));

  EXPECT_EQ(qcRect({-0.5, 3}, {1, 4}).enclosePelRect(), qcPelRect(-1, 3, 2, 4));
  for (const double far : {1e300, kInf, kNan, -1e300}) qcRect({far, -5e9}, {1e300, 3e9}).enclosePelRect();
  EXPECT_EQ(qcRect({-5e9, 0}, {9e9, 1}).enclosePelRect(), qcPelRect(-2147483647 - 1, 0, 2147483647, 1));
}

// Also where the difference of the corners is rounded down.
TEST(Rectangles, BoxesHoldEveryPointOfWhatIsInThem) {
  Random random(1);
  for (int i = 0; i < 2000; ++i) {
    const V p = random.point(), q = std::ldexp(1, random.integer(-40, 10)) * random.point();
    const qcRect segment = qcLineSeg(p, q).boundingBox(), both = qcRect(p, {1, 2}).enclose(qcRect(q, {0.1, 0.3}));
    EXPECT_TRUE(segment.within(p) && segment.within(q) && qcPolyline({q, p}, true).boundingBox() == segment);
    EXPECT_TRUE(both.within(p + V(1, 2)) && both.within(q + V(0.1, 0.3)));
    const qcCircle circle(p, q.len());
    for (const V& far : {V(1, 0), V(0, 1), V(-1, 0), V(0, -1)})
      EXPECT_TRUE(circle.boundingBox().within(p + circle.radius() * far));
  }
}

TEST(Polylines, EditVerticesAndMeasureAreas) {
  qcPolyline line({{0, 0}, {1, 0}, {1, 1}, {0, 1}}, true);
  EXPECT_EQ(line.areaMoment0(), 1);
  EXPECT_TRUE(qcPolyline({{0, 0}, {1, 1}}, true).isRightHanded());
  EXPECT_EQ(line.closestVertexIndex({0.9, 2}), 2);
  line.insertVertices(1, line.vertices());
  line.removeVertex(7);
  line.insertVertex(7, line.vertex(4));
  EXPECT_EQ(line.vertices(), (std::vector<V>{{0, 0}, {0, 0}, {1, 0}, {1, 1}, {0, 1}, {1, 0}, {1, 1}, {0, 1}}));
  const qcPolyline before = line;
  for (const long bad : {-1L, 8L}) EXPECT_THROW(line.vertex(bad), qcShapesError::BadIndex);
  EXPECT_THROW(line.removeVertex(8), qcShapesError::BadIndex);
  EXPECT_THROW(line.insertVertex(9, {}), qcShapesError::BadIndex);
  EXPECT_EQ(line, before);
  line.isClosed(false);
  EXPECT_THROW(line.area(), qcShapesError::NotRegion);
  EXPECT_THROW(qcPolyline(true).isRightHanded(), qcShapesError::NotRegion);
  EXPECT_THROW(line.perimPoint(qcShapeInfo(qcLineSeg()), {}), qcShapesError::BadParams);
}

// ---- bytes and errors

TEST(ShapeArchives, OldLayoutsAreReadWhereTheClassHadThem) {
  const auto check = []<class T>(const T& value, bool isKnown) {
    T legacy;  // a version, and the fields without marker
    EXPECT_EQ(legacy.loadLegacy(*BytesArchive(headOf(kBig) + '\0' + stored(kBig, false, value).substr(7))), isKnown);
    EXPECT_EQ(legacy == value, isKnown);
  };
  check(qcLine({1, 2}, {2, -1}), true);
  check(qcFLine(qcDegree(2), 1), true);
  check(qcLineSeg({1, 2}, {2, -1}), true);
  check(qcCircle({2, -1}, 2), true);
  check(qcRect({2, -1}, {1, 2}), true);
  check(qcAffineRectangle({{2, 1, 0, -1}, {1, 2}}), true);
  check(qcGenRect({2, -1}, {1, 2}, {0, 0}), false);
  check(qcPolyline({{1, 2}, {2, -1}}, true), false);
  check(qcEllipse({1, 2}, {2, 1}, qcRadian(1)), false);
  qcEllipse turned;
  load(wire("F1 66 4B DF 00 00 00 00 one two 00 two one eight"), turned);
  EXPECT_EQ(turned.angle(), qcRadian(8).signedNorm());
}

TEST(ShapeArchives, ForgetShapesThatChange) {
  const auto check = []<class T>(T, const auto& change) {
    auto* const shape = new T;
    const Shape stored(shape);
    Shape first, same, second;
    qcMemoryArchive out(kLittle, false);
    {
      qcMemoryArchive other(kLittle, false);  // which holds it, too
      other << stored;
      out << stored << stored;
    }
    change(*shape);
    out << stored;
    load(bytesOf(out), first, same, second);
    EXPECT_TRUE(first == same && !first->equal_(*second) && second->equal_(*shape));
  };
  check(qcLineSeg(), [](auto& s) { s.p2({9, 9}); });
  check(qcFLine(), [](auto& s) { s.distance(3); });
  check(qcCircle(), [](auto& s) { s.centerRadius(1, 2, 3); });
  check(qcCircle(), [](auto& s) { s = qcCircle({1, 2}, 3); });
  check(qcEllipse(), [](auto& s) { s.radii({3, 2}); });
  check(qcEllipse2(), [](auto& s) { s.center({1, 2}); });
  check(qcEllipse2(), [](auto& s) { s.ellFromUnitCirc(qcXform<2>({2, 0, 0, 1}, {})); });
  check(qcEllipseArc2(), [](auto& s) { s.phiSpan(qcRadian(1)); });
  check(qcEllipseArc2(), [](auto& s) { s.ellipse(qcEllipse({}, {1, 2}, {})); });
  check(qcRect(), [](auto& s) { s.origin({1, 2}); });
  check(qcGenRect(), [](auto& s) { s.ySide({1, 2}); });
  check(qcAffineRectangle(), [](auto& s) { s.cornerPo({1, 2}); });
  check(qcAffineRectangle(), [](auto& s) { s.xLength(2); });
  check(qcPolyline(), [](auto& s) { s.addVertex({1, 2}); });
}

}  // namespace
