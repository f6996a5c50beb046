// Trees of shapes beyond the laws of test_allshapes.

#include "support/archived.h"
#include "support/randomshapes.h"
#include "support/smallstack.h"
#include "vnxstd/math/xfpersp.h"
#include "vnxstd/math/xfpoly.h"

namespace {

using Child = qcShapeTree::Child;
using Place = qcRegionTree::Place;

Shape region(const qcShape& boundary, bool isHole, const std::vector<Child>& children = {}) {
  qcRegionTree tree(boundary, isHole);
  tree.addChildren(children, false);
  return new qcRegionTree(tree);
}
const qcRegionTree& asRegion(const qcShape& shape) { return dynamic_cast<const qcRegionTree&>(shape); }
qcPolyline square(double low, double high) { return {{{low, low}, {high, low}, {high, high}, {low, high}}, true}; }

std::vector<qcPolyline> chains(const qcShape& shape, double tolerance) {
  return chainsOf(shape, Params(tolerance, 0, 1000000, false, false));
}

/// The boundaries of a region, in the order of a walk.
struct Nest {
  std::vector<Child> boundaries;
  std::vector<bool> holes;

  explicit Nest(const qcRegionTree& tree) { add(tree); }
  void add(const qcRegionTree& tree) {
    boundaries.emplace_back(tree.boundary().clone());
    holes.push_back(tree.isHole());
    for (const Child& child : tree.children()) add(asRegion(*child));
  }
  double distance(const V& p) const {
    double least = HUGE_VAL;
    for (const Child& boundary : boundaries) least = std::min(least, p.distance(boundary->nearestPoint(p)));
    return least;
  }
  bool within(const V& p) const {
    long around = 0;
    for (const Child& boundary : boundaries) around += boundary->within(p);
    return around % 2 == 1;
  }
};

TEST(RegionTrees, AreWhatAnOddNumberOfBoundariesSurrounds) {
  forSeeds<Random>(60, [&](Random& random, unsigned seed) {
    const auto made = random.region(random.point(), 20, seed % 2, 4);
    const qcRegionTree& tree = *made;
    const Nest nest(tree);
    const long count = static_cast<long>(nest.boundaries.size());
    EXPECT_EQ(tree.size(true), count);
    const Shape back = tree.reverse(), flat = tree.flatten(true), flipped = tree.flip();
    for (int i = 0; i < 60; ++i) {
      const V p = tree.boundingBox().origin() + V(random.real(0, 40), random.real(0, 40));
      const double away = nest.distance(p);
      if (away < 1e-6) continue;
      const bool within = nest.within(p);
      for (const Child& other : {Child(made), Child(back), Child(flat), Child(flipped)})
        EXPECT_EQ(other->within(p), within);
      EXPECT_NEAR(p.distance(tree.nearestPoint(p)), away, 1e-9);
      EXPECT_EQ(tree.classify(p, away * 0.999), within ? Place::inside : Place::outside);
      const Place near = tree.classify(p, away * 1.001);
      EXPECT_TRUE(near == Place::boundary || (near == Place::outside && !within));
    }
    // Islands to the left of their boundaries, holes to the right.
    double perimeter = 0;
    const std::vector<qcPolyline> loops = chains(tree, 1e-3), reversed = chains(*back, 1e-3);
    ASSERT_EQ(static_cast<long>(loops.size()), count);
    for (std::size_t i = 0; i < loops.size(); ++i) {
      EXPECT_TRUE(loops[i].isClosed());
      EXPECT_EQ(loops[i].isRightHanded(), !nest.holes[i]);
      EXPECT_EQ(reversed[i].isRightHanded(), static_cast<bool>(nest.holes[i]));
      EXPECT_NEAR(loops[i].perimeter(), nest.boundaries[i]->perimeter(), 0.05);
      perimeter += nest.boundaries[i]->perimeter();
    }
    EXPECT_NEAR(tree.perimeter(), perimeter, 1e-9);
    EXPECT_EQ(tree.unregionize()->numChildren(), count);
    EXPECT_TRUE(asRegion(*flipped).flip()->equal_(tree) && !flipped->equal_(tree));
  });
}

// Squares and cubes, over [-4, 4] x [-4, 4] one to one.
const qc2XformPoly kBends(3, {0, 10, 0, 0, 0, 1, 0.05, 0, 0, 0}, {0, 0, 10, 1, 0, 0, 0, 0, 0, 0.1});

const qcPolyline kNotched({{0, 0}, {8, 0}, {8, 8}, {4.001, 8}, {4, 1}, {3.999, 8}, {0, 8}}, true);

TEST(RegionTrees, TakeWhatLiesInsideAndAlternates) {
  qcContourTree moon(true), open;
  moon.addChild(qcEllipseArc2(qcEllipse2({0, 0}, {}, {4, 4}, true, {}), qcRadian(kPi / 2), qcRadian(kPi)));
  moon.addChild(qcEllipseArc2(qcEllipse2({0, 0}, {}, {1, 4}, true, {}), qcRadian(1.5 * kPi), qcRadian(-kPi)));
  open.addChild(qcLineSeg({0, 0}, {1, 1}));
  const qcCircle disc({0, 0}, 4);
  const qcMappedShape bent(new qcPolyline(square(-2, 2)), kBends, false);
  const auto closed = [](const Child& part) { return Child(new qcContourTree({part}, true, false)); };
  const Child cup = closed(new qcPolyline({{0, 8}, {0, 0}, {8, 0}, {8, 8}}, false)), low(new qcCircle({0, 0.1}, 0.4));
  const Child half = closed(new qcEllipseArc2(qcEllipse2({0, 0}, {}, {4, 4}, true, {}), {}, qcRadian(kPi)));
  const std::tuple<Child, Child, bool> rows[] = {
      {square(0, 8).clone(), square(0, 8).clone(), true},  // the same
      {square(0, 8).clone(), square(4, 8).clone(), true},  // touching two edges
      {square(0, 8).clone(), qcCircle({4, 4}, 4).clone(), true},
      {square(0, 8).clone(), qcCircle({4, 4}, 4.001).clone(), false},
      {square(0, 8).clone(), qcEllipse({4, 4}, {4, 1}, qcRadian(0)).clone(), true},
      {square(0, 8).clone(), qcEllipse({4, 4}, {4.01, 1}, qcRadian(0)).clone(), false},
      {kNotched.clone(), square(0.1, 0.9).clone(), true},
      {kNotched.clone(), square(0.1, 5).clone(), false},  // the notch comes in between
      {kNotched.clone(), qcPolyline({{1, 2}, {7, 2}, {7, 3}, {1, 3}}, true).clone(), false},
      {disc.clone(), qcCircle({2, 0}, 2).clone(), true},  // touching from inside
      {disc.clone(), qcCircle({2, 0}, 2.01).clone(), false},
      {disc.clone(), square(-2.82, 2.82).clone(), true},
      {disc.clone(), square(-2.84, 2.84).clone(), false},
      {moon.clone(), qcCircle({-2.5, 0}, 1.4).clone(), true},
      {moon.clone(), qcCircle({-2.5, 0}, 1.6).clone(), false},
      {moon.clone(), qcCircle({0, 0}, 2).clone(), false},
      {cup, qcPolyline({{2, 8}, {2, 2}, {6, 2}, {6, 8}}, true).clone(), true},  // touching the line of a jump
      {half, low, false},                                                       // across it
      {new qcMappedShape(half, kBends, false), new qcMappedShape(low, kBends, false), false},
      {moon.clone(), closed(new qcPolyline({{-0.7, 3}, {-3, 0}, {-0.7, -3}}, false)), false},
      {bent.clone(), bent.clone(), true},
      {qcRect({1e9, 1e9}, {8, 8}).clone(), qcRect({1e9 + 7, 1e9 + 7}, {1, 1}).clone(), true}};
  for (const auto& row : rows) {
    const auto& [outer, inner, fits] = row;
    SCOPED_TRACE(&row - rows);
    for (const bool hole : {false, true}) {
      qcRegionTree tree(outer, hole);
      EXPECT_THROW(tree.addChild(qcRegionTree(inner, hole)), qcShapesError::BadGeom);
      EXPECT_EQ(errorOf([&, &in = inner] { tree.addChild(qcRegionTree(in, !hole)); }).empty(), fits);
      EXPECT_EQ(tree.isRightHanded(), !hole);
      EXPECT_EQ(tree.isLeaf(), !fits);
    }
  }
  EXPECT_THROW(region(qcRegionTree(disc), true), qcShapesError::BadGeom);
  EXPECT_THROW(qcRegionTree(qcGeneralShapeTree{}), qcShapesError::BadGeom);
  EXPECT_THROW(qcRegionTree(qcMappedShape(region(disc, false), kBends, false)), qcShapesError::BadGeom);
  EXPECT_THROW(qcRegionTree(qcLineSeg({0, 0}, {1, 1})), qcShapesError::NotRegion);
  EXPECT_THROW((qcRegionTree(open)), qcShapesError::NotRegion);
  EXPECT_THROW(qcRegionTree(Child{}), qcBadPointer);
  qcRegionTree tree(square(0, 8));
  tree.addChild(region(square(1, 7), true), false);
  EXPECT_FALSE(tree.child(0).isRoot());
  EXPECT_THROW(tree.boundary(square(2, 8)), qcShapesError::BadGeom);
  // A way in and out around what is left out is no room for a hole.
  const qcPolyline keyhole({{0, 0}, {10, 0}, {10, 10}, {0, 10}, {0, 0}, {4, 4}, {4, 6}, {6, 6}, {6, 4}, {4, 4}}, true);
  EXPECT_THROW(qcRegionTree(keyhole, false).addChild(qcRegionTree(square(2, 8), true)), qcShapesError::BadGeom);
  EXPECT_TRUE(tree.boundary().equal_(square(0, 8)));
  tree.boundary(qcCircle({4, 4}, 6));
  EXPECT_FALSE(tree.within({4, 4}));
  EXPECT_TRUE(tree.child(0).within({4, 4}));
}

// Small numbers, so that everything that can cross, touch and coincide does.
TEST(RegionTrees, NestPolygonsLikeAWalkAlongTheirEdges) {
  int fitting = 0;
  forSeeds<Random>(4000, [&](Random& random, unsigned seed) {
    const qcPolyline outer(random.gridPoints(random.integer(3, 5), 4), true);
    Points corners = random.gridPoints(random.integer(3, 5), 2);
    for (V& corner : corners) corner += V(1, 1);
    const qcPolyline inner(corners, true);
    bool inside = true;
    const qcShapeInfo info(inner);
    for (int i = 0; i < 4000 && inside; ++i) {
      const V p = inner.perimPoint(info, info.perimPos(info.perimeter() * i / 4000));
      inside = outer.within(p) || outer.nearestPoint(p).distance(p) < 1e-8;
    }
    const qcContourTree around({Child(new qcPolyline(outer.vertices(), false))}, true, false);
    qcRegionTree tree(seed % 2 ? static_cast<const qcShape&>(around) : outer);
    const std::wstring error = errorOf([&] { tree.addChild(qcRegionTree(inner, true)); });
    EXPECT_TRUE(inside ? error.empty() : error.starts_with(L"qcShapesError::BadGeom")) << seed;
    fitting += inside;
  });
  EXPECT_GT(fitting, 200);
}

TEST(ContourTrees, OfSegmentsAreThePolylineThroughTheirEnds) {
  forSeeds<Random>(300, [&](Random& random, unsigned seed) {
    const bool closed = seed % 2, simple = seed % 3 == 0;
    std::vector<V> corners;
    const int n = random.integer(2, 9);
    for (int i = 0; i < n; ++i) {
      const V corner(random.integer(0, 6), random.integer(0, 6));
      corners.push_back(simple ? V(0, 0) + V(random.real(1, 9), qcRadian(6.0 * i / n)) : corner);
    }
    const qcPolyline line(corners, closed);
    qcContourTree tree(closed), jumping(closed);  // the latter also along the lines of jumps, and through points
    for (std::size_t i = 0; i + (closed ? 0 : 1) < corners.size(); ++i) {
      const V& next = corners[(i + 1) % corners.size()];
      tree.addChild(qcLineSeg(corners[i], next));
      jumping.addChild(qcLineSeg(corners[i], random.flip() ? next : corners[i]));
    }
    if (!closed) jumping.addChild(qcLineSeg(corners.back(), corners.back()));
    if (closed) corners.push_back(corners.front());
    Child piece(new qcPolyline(corners, false));
    const qc2XformPerspective bent(qcMatrix<3>(1, 0, 0, 0, 1, 0, closed ? 0.0625 : 0, 0, 1));
    if (seed % 5 == 0) piece = new qcContourTree({piece}, false, false);
    if (corners.size() % 2 == 0) piece = new qcMappedShape(piece, bent, false);
    const qcContourTree whole({piece}, closed, false);
    const qcShapeInfo info(line);
    EXPECT_EQ(info, qcShapeInfo(tree));
    for (int i = 0; i < 30; ++i) {
      V p(random.integer(0, 6), random.integer(0, 6));
      if (i % 2) p += V(random.real(-1, 1), random.real(-1, 1));
      if (simple && i < 20) p = corners[static_cast<std::size_t>(i) % corners.size()];
      EXPECT_EQ(tree.nearestPoint(p), line.nearestPoint(p));
      EXPECT_EQ(tree.nearestPerimPos(info, p), line.nearestPerimPos(info, p));
      // Which side of itself a contour shows where it passes twice is another matter.
      if (!simple && line.nearestPoint(p).distance(p) < 1e-9) continue;
      const auto around = [&](const qcShape& shape, const V& at) {
        return closed ? shape.within(at) : shape.windingAngle(at).plain();
      };
      EXPECT_NEAR(around(tree, p), around(line, p), 1e-12) << p.x() << " " << p.y();
      EXPECT_NEAR(around(jumping, p), around(line, p), 1e-12) << p.x() << " " << p.y();
      const V seen = corners.size() % 2 == 0 ? bent.mapPoint(p) : p;
      EXPECT_NEAR(around(whole, seen), around(line, p), 1e-9) << p.x() << " " << p.y();
    }
    EXPECT_NEAR(closed ? tree.area() : 0, closed ? line.areaMoment0() : 0, 1e-12);
    const auto turned = [&](const qcShape& shape) { return closed || !simple ? 0 : shape.tangentRotation().plain(); };
    EXPECT_NEAR(turned(tree), turned(line), 1e-12);
    for (const bool tangents : {false, true}) {
      if (!line.hasTangent()) continue;
      const Params params(0, 0.7, 1000, tangents, seed % 5 == 0);
      Result expected, result;
      line.sample(params, expected);
      tree.sample(params, result);
      EXPECT_TRUE(result == expected || !simple);
    }
  });
}

// The end before a jump is no place behind it, whether it is asked for through trees or maps, straight or bent.
TEST(ContourTrees, HavePlacesOnBothSidesOfAJump) {
  const qcPolyline flat({{2, 0}, {3, 0}, {3, 0}}, false);
  forSeeds<Random>(40, [&](Random& random, unsigned seed) {
    const bool closed = seed % 2;
    const qcPtrHandle<qcContourTree> contour(new qcContourTree(closed));
    V end(-3, -3);
    for (int i = 0; i < 5; ++i) {
      const V start = random.flip() ? end : V(random.real(-3, 3), random.real(-3, 3));
      end = random.integer(0, 3) == 0 ? start : V(random.real(-3, 3), random.real(-3, 3));
      contour->addChild(qcLineSeg(start, end));
    }
    if (contour->child(4).perimeter() > 0) {  // however the length of what is left is rounded
      const qcGeneralShapeTree alone({contour}, false);
      const qcShapeInfo own(alone);
      EXPECT_NEAR_POINT(alone.subShape(own, {own.perimPos(0.1 * own.perimeter()), 1e3})->endPoint(), end, 1e-9);
    }
    Child shape = contour;
    if (closed && random.flip()) shape = region(*contour, false);
    if (random.flip()) shape = new qcGeneralShapeTree({shape, Child(flat.clone()), shape}, false);
    const Child bare = shape;
    if (random.flip()) shape = new qcMappedShape(shape, kBends, false);
    const qcShapeInfo info(*shape), own(*bare);
    for (std::int32_t i = 0; i < info.numPieces() && shape != bare; ++i)
      EXPECT_NEAR_POINT(shape->perimPoint(info, {i, 0}), kBends.mapPoint(bare->perimPoint(own, {i, 0})), 1e-9) << i;
    EXPECT_NEAR(qcShapeInfo(*shape->decompose()).perimeter(), info.perimeter(), 1e-4);
    if (shape->isOpenContour()) {
      EXPECT_TRUE(qfRealEq(shape->endAngle() - shape->startAngle(), shape->tangentRotation(), 1e-6));
    }
    for (int i = 0; i < 60; ++i) {
      const V p(random.real(-40, 40), random.real(-40, 40)), nearest = shape->nearestPoint(p);
      const qcPerimPos place = shape->nearestPerimPos(info, p);
      EXPECT_NEAR_POINT(shape->perimPoint(info, place), nearest, 1e-9);
      EXPECT_NEAR_POINT(shape->subShape(info, {place, 0.1})->nearestPoint(nearest), nearest, 1e-9);
    }
  });
}

// Pieces without length take the tangent behind or before them, up to a jump.
TEST(ContourTrees, PassPiecesWithoutLength) {
  const auto contour = [](const std::vector<V>& ends) {
    const qcPtrHandle<qcContourTree> tree(new qcContourTree);
    for (std::size_t i = 0; i < ends.size(); i += 2) tree->addChild(qcLineSeg(ends[i], ends[i + 1]));
    return tree;
  };
  V point;
  qcRadian tangent;
  const auto ended = contour({{0, 0}, {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1}}),
             alone = contour({{0, 0}, {1, 0}, {2, 0}, {2, 0}});
  ended->perimPointAndTangent(qcShapeInfo(*ended), {2, 0}, point, tangent);
  EXPECT_TRUE(point == V(0, 1) && tangent == qcRadian(kPi / 2));
  EXPECT_THROW(alone->perimPointAndTangent(qcShapeInfo(*alone), {1, 0}, point, tangent), qcShapesError::NoTangent);
  const qcContourTree joint({Child(new qcPolyline({{-1, 0}, {0, 0}, {0, 0}}, false)), ended}, false, false);
  joint.perimPointAndTangent(qcShapeInfo(joint), {0, 1}, point, tangent);
  EXPECT_TRUE(point == V(0, 0) && tangent == qcRadian(kPi / 2));
  const Child line(new qcPolyline({{0, 0}, {1, 0}, {1, 0}}, false));
  const Child jumps(
      new qcMappedShape(new qcContourTree({line, contour({{5, 5}, {5, 5}})}, false, false), kBends, false));
  const qcContourTree on({jumps, contour({jumps->endPoint(), {9, 9}})}, false, false);
  const qcShapeInfo info(on);
  EXPECT_NEAR_POINT(on.perimPoint(info, {0, info.pieceLength(0)}), kBends.mapPoint({1, 0}), 1e-9);
  // They end next to the origin, where nothing but the numbers that they come from tells that this is rounding.
  const qcEllipseArc2 arc(qcEllipse2({0, 1e4}, qcRadian(0), {1e4, 1e4}, true, qcRadian(0)), qcRadian(-kPi / 2 - 1e-4),
                          qcRadian(1e-4));
  const Child mapped(new qcMappedShape(Child(new qcEllipseArc2(arc)), qc2XformLinear(), false));
  const Child within(new qcMappedShape(new qcContourTree({mapped}, false, false), qc2XformLinear(), false));
  const Child far(new qcMappedShape(new qcLineSeg({1e6 - 2, 0}, {1e6 + 2e-10, 0}),
                                    qc2XformLinear(qcXform<2>(qcMatrix<2>(), {-1e6, 0})), false));
  for (const Child& half :
       {Child(new qcEllipseArc2(arc)), Child(new qcEllipseArc(arc.oldEllipseArc())), mapped, within, far}) {
    const qcContourTree rounded({half, contour({{0, 0}, {3, 0.5}})}, false, false);
    EXPECT_EQ(rounded.nearestPerimPos(qcShapeInfo(rounded), {0.1, -1}), qcPerimPos(1, 0));
  }
  for (const V& second : {V(1, 1), V(2, 1)}) {
    Result result;
    contour({{1, 1}, {1, 1}, second, second})->sample(Params(0, 0, 2), result);
    EXPECT_EQ(result.positions(), second == V(1, 1) ? std::vector<V>{second} : (std::vector<V>{{1, 1}, second}));
  }
}

// perimeter() estimates the length of a mapped piece, which uniform sampling and clipping need exactly.
TEST(ContourTrees, HaveMappedPieces) {
  const Child bent(new qcMappedShape(new qcLineSeg({-2, -2}, {2, 1}), kBends, false));
  qcContourTree tree({bent}, false, false);
  tree.addChild(qcLineSeg(tree.endPoint(), {50, 60}));
  const qcShapeInfo info(tree);
  Params params(0, 0, 9);
  params.uniformMode(true);
  Result samples;
  tree.sample(params, samples);
  for (std::size_t i = 0; i < 9; ++i) {
    const V expected = tree.perimPoint(info, info.perimPos((static_cast<double>(i) + 0.5) / 9 * info.perimeter()));
    EXPECT_LE(samples.positions()[i].distance(expected), 1e-9) << i;
  }
  const Shape cut = tree.clip(square(-15, 15), true), alone = bent->clip(square(-15, 15), true);
  EXPECT_NEAR(qcShapeInfo(*cut).perimeter(), qcShapeInfo(*alone).perimeter(), 1e-9);
  // To (x^3, x^2), and nearly: where the length is estimated, the image stands still, or is 1e-10 times as fast.
  for (const double speed : {0.0, 1e-10}) {
    const qc2XformPoly still(3, {0, speed, 0, 0, 0, 0, 1, 0, 0, 0}, {0, 0, 1, 1, 0, 0, 0, 0, 0, 0});
    const Child cusp(new qcMappedShape(new qcLineSeg({1, 0}, {-1, 0}), still, false));
    EXPECT_NEAR(qcContourTree({cusp}, true, false).area(), -0.8, 1e-5);
    const long once = chains(*cusp, 0.01)[0].numVertices();
    EXPECT_GT(chains(qcContourTree({cusp, cusp}, false, false), 0.01)[0].numVertices(), once);
  }
}

// From the left of each part, also where a piece ends at what it has passed.
TEST(ContourTrees, WindAroundWhatAPieceHasPassed) {
  const Child loop(new qcPolyline({{-5, 0}, {0, 0}, {3, 0}, {3, 3}, {0, 0}}, false));
  const qcContourTree contour({loop, Child(new qcLineSeg({0, 0}, {-5, 5}))}, false, false);
  EXPECT_NEAR(contour.windingAngle({0, 0}).plain(), 1.75 * kPi, 1e-12);
}

// However rounding parts the ends of arcs from those of other pieces, all of them are corners of the contour.
TEST(ContourTrees, MeetArcsButForRounding) {
  const Child arc(new qcEllipseArc2(qcEllipse2({1, 2}, {}, {3, 3}, true, {}), {}, qcRadian(kPi / 2)));
  const Child from(new qcLineSeg({1, 2}, arc->startPoint())), back(new qcLineSeg(arc->endPoint(), {1, 2}));
  for (int i = 1; i < 100; ++i) {
    const qcXform<2> turn({}, 1, 1, {}, qcRadian(0.06 * i));
    const Child turned = from->mapShape(turn), mapped(new qcMappedShape(arc, qc2XformLinear(turn), false)),
                last = back->mapShape(turn), rest(new qcLineSeg(mapped->endPoint(), last->startPoint()));
    for (const Child& middle : {Child(arc->mapShape(turn)), mapped}) {
      const qcContourTree pie({turned, middle, rest, last}, true, false);
      for (const Child& piece : pie.children())
        EXPECT_TRUE(pie.within(piece->startPoint()) && pie.within(piece->endPoint())) << i;
    }
  }
}

TEST(ContourTrees, EncloseTheAreaOfTheirSamples) {
  forSeeds<Random>(100, [&](Random& random, unsigned seed) {
    const auto contour = random.contour(true);
    EXPECT_NEAR(contour->area(), chains(*contour, 1e-5)[0].areaMoment0(), 0.02) << seed;
  });
  const qcEllipse2 ellipse({5, 7}, qcRadian(1), {3, 2}, false, qcRadian(0.5));
  const qcContourTree around({Child(new qcEllipseArc2(ellipse, qcRadian(0), qcRadian(2))),
                              Child(new qcEllipseArc2(ellipse, qcRadian(2), qcRadian(2 * kPi - 2)))},
                             true, false);
  EXPECT_NEAR(around.area(), -6 * kPi, 1e-12);
  // A gap counts for what is inside, but not for the length.
  const qcContourTree corner({Child(new qcPolyline({{0, 0}, {4, 0}, {4, 4}}, false))}, true, false);
  EXPECT_TRUE(corner.perimeter() == 8 && corner.area() == 8 && corner.within({3, 1}) && !corner.within({1, 3}));
}

// Against a look at every start, on a grid: many coincide, and many are as far from an end as the tolerance. What has
// no ends stays as it is.
TEST(GeneralTrees, ConnectWhatStartsFirstOfAllNearby) {
  forSeeds<Random>(400, [](Random& random, unsigned seed) {
    const double tolerance = 0.5 * (seed % 5);
    qcGeneralShapeTree apart;
    for (int i = 0; i < 12; ++i) {
      const V start = random.gridPoint(6), end = random.gridPoint(6);
      const qcEllipse2 around(start, qcRadian(0), {1, 2}, true, qcRadian(0));
      if (i % 3 == 0) apart.addChild(qcEllipseArc2(around, random.angle(), qcRadian(i % 2 ? 2 * kPi : -2)));
      if (i % 3 == 1) apart.addChild(qcPolyline({start, random.gridPoint(6), end}, false));
      if (i % 3 == 2) apart.addChild(qcLineSeg(start, end));
    }
    std::vector<const qcShape*> starts = apart.elements_();
    std::map<const qcShape*, const qcShape*> next;
    for (const qcShape* piece : apart.elements_()) {
      const auto start = std::find_if(starts.begin(), starts.end(), [&](const qcShape* other) {
        return other->startPoint().distance(piece->endPoint()) <= tolerance;
      });
      if (start == starts.end()) continue;
      next[piece] = *start;
      starts.erase(start);
    }
    for (const double bad : {-1.0, kNan}) EXPECT_THROW(apart.connect(bad), qcShapesError::BadParams);
    apart.addChild(qcCircle({0, 0}, 1));
    const auto joined = apart.connect(tolerance);
    EXPECT_EQ(joined->flatten(false)->size(true), apart.size(true));
    for (const Child& child : joined->children()) {
      if (dynamic_cast<const qcCircle*>(&*child)) continue;
      const auto pieces = qcGeneralShapeTree({child}, false).flatten(false)->elements_();
      for (std::size_t i = 0; i + 1 < pieces.size(); ++i) EXPECT_EQ(next[pieces[i]], pieces[i + 1]) << seed;
      EXPECT_EQ(next[pieces.back()], child->isRegion() ? pieces.front() : nullptr) << seed;
    }
  });
}

// ---- editing

TEST(Trees, ThatAnEditFailsOnStayAsTheyWere) {
  const Child segment(new qcLineSeg({1, 1}, {2, 2})), circle(new qcCircle({4, 4}, 1));
  const Child hole = region(square(1, 2), true), island = region(square(1, 2), false);
  const qcPtrHandle<qcShapeTree> contour(new qcContourTree({segment, segment}, false, false));
  const qcPtrHandle<qcShapeTree> general(new qcGeneralShapeTree({segment, circle}, false));
  const qcPtrHandle<qcShapeTree> regions(new qcRegionTree(square(0, 8)));
  regions->addChildren({hole, hole}, false);
  const std::tuple<qcPtrHandle<qcShapeTree>, Child, Child> trees[] = {
      {contour, segment, circle}, {regions, hole, island}, {general, segment, general}};
  for (const auto& [tree, good, bad] : trees) {
    qcShapeTree& t = *tree;
    const Child before(t.clone());
    const std::vector<Child> children = t.children();
    for (const Child& child : {bad, Child()}) {
      const std::vector<Child> both{good, child};
      const std::function<void()> edits[] = {
          [&] { t.addChild(child, false); },        [&] { t.addChildren(both, false); },
          [&] { t.insertChild(1, child, false); },  [&] { t.insertChildren(0, both, false); },
          [&] { t.replaceChild(1, child, false); }, [&] { t.replaceChildren(both, false); }};
      for (const auto& edit : edits) {
        const std::wstring error = errorOf(edit);
        EXPECT_TRUE(error.starts_with(child.isNull() ? L"qcBadPointer" : L"qcShapesError::BadGeom"));
      }
    }
    EXPECT_THROW(t.insertChild(3, *good), qcShapesError::BadIndex);
    for (const long index : {-1L, 2L, 1L << 40U}) {
      EXPECT_THROW(t.insertChild(index == 2 ? 3 : index, good, true), qcShapesError::BadIndex);
      EXPECT_THROW(t.replaceChild(index, good, true), qcShapesError::BadIndex);
      EXPECT_THROW(t.replaceChild(index, *good), qcShapesError::BadIndex);
      EXPECT_THROW(t.removeChild(index), qcShapesError::BadIndex);
      EXPECT_THROW(t.child(index), qcShapesError::BadIndex);
    }
    EXPECT_TRUE(t.children() == children && t.equal_(*before));
    // Its own children, and copies of them, in every way.
    t.insertChildren(1, t.children(), false);  // a a b b
    t.removeChild(0);
    t.replaceChild(2, *children[0]);
    t.insertChild(0, children[1], true);
    t.addChild(*children[1]);  // b a b a b
    ASSERT_EQ(t.numChildren(), 5);
    for (long i = 0; i < 5; ++i) EXPECT_TRUE(t.child(i).equal_(*children[i % 2 ? 0 : 1]));
    t.removeChildren();
    EXPECT_TRUE(t.isLeaf() && t.size(true) == 1 && t.height() == 0);
  }
}

TEST(Trees, ContainNoneOfThemselves) {
  const qcPtrHandle<qcGeneralShapeTree> a(new qcGeneralShapeTree), b(new qcGeneralShapeTree), c(new qcGeneralShapeTree);
  b->addChild(a, false);
  c->addChild(b, false);
  EXPECT_THROW(a->addChild(c, false), qcShapesError::BadGeom);
  EXPECT_THROW(*a = *c, qcShapesError::BadGeom);
  a->addChild(c, true);
  a->addChild(*c);
  EXPECT_EQ(c->size(true), 12);
  // A tree can become a part of itself, which goes meanwhile.
  qcRegionTree around(square(0, 8));
  around.addChild(region(square(1, 7), true), false);
  around = around.child(0);
  EXPECT_TRUE(around.isHole() && around.boundary().equal_(square(1, 7)));
  // Of two references to one child the second is bent onto the tree that is being loaded.
  const Shape twice(new qcGeneralShapeTree({Child(a), Child(a)}, false));
  std::string bytes = archived(kBig, false, twice);
  const std::size_t last = bytes.rfind("\x4F\xE5\x70");
  Shape loaded;
  EXPECT_TRUE(load(bytes, loaded)->equal_(*twice));
  bytes[last + 8] = 1;
  EXPECT_THROW(load(bytes, loaded), qcArchive::BadContent);
}

TEST(Trees, GrowNoFurtherThanTheyCanBeWalked) {
  Child doubled(new qcGeneralShapeTree), twin(new qcGeneralShapeTree);
  long levels = 0;
  const auto grow = [&](Child& tree) {
    if (levels % 4 == 1) tree = new qcMappedShape(tree, qc2XformLinear(), false);
    tree = new qcGeneralShapeTree({tree, tree}, false);
  };
  for (; levels < 19; ++levels) grow(doubled), grow(twin);
  Shape loaded;
  EXPECT_EQ(doubled->clone()->equal_(*load(archived(kBig, false, doubled), loaded)), true);
  grow(doubled), grow(twin), ++levels;
  EXPECT_THROW(archived(kBig, false, doubled), qcArchive::BadContent);
  const auto growOn = [&] {
    for (; levels < 40; ++levels) grow(doubled), grow(twin);
  };
  EXPECT_THROW(growOn(), qcShapesError::BadGeom);
  EXPECT_EQ(levels, 30);
  EXPECT_TRUE(twin->clone()->clone()->equal_(*doubled));  // a thousand million nodes
}

/// Everything that walks a tree, on a stack that its levels would overflow if they were called one from the other.
void walkDeepTrees() {
  constexpr long kLevels = 10000;
  Child general(new qcLineSeg({0, 0}, {1, 0})), contour = general, regions;
  for (long i = 0; i < kLevels; ++i) {
    general = new qcGeneralShapeTree({general}, false);
    contour = new qcContourTree({contour}, false, false);
    const auto size = static_cast<double>(1 + i);
    const std::vector<Child> inner(i > 0 ? 1 : 0, regions);
    regions = region(square(-size, size), (kLevels - i) % 2 == 0, inner);
  }
  for (const Child& tree : {general, contour, regions}) {
    const auto& deep = dynamic_cast<const qcShapeTree&>(*tree);
    const bool isRegion = deep.isRegion();
    EXPECT_EQ(deep.height(), kLevels - isRegion);
    EXPECT_EQ(deep.size(true), deep.height() + 1);
    for (const Shape& other :
         {deep.clone(), deep.mapShape(qcXform<2>()), deep.decompose(), deep.reverse()->reverse()}) {
      EXPECT_TRUE(other->equal_(deep));
    }
    EXPECT_EQ(deep.flatten(true)->perimeter(), isRegion ? 4 * kLevels * (kLevels + 1) : 1);
    EXPECT_EQ(deep.boundingBox().width(), isRegion ? 2 * kLevels : 1);
    const qcShapeInfo info(deep);
    EXPECT_EQ(deep.perimPoint(info, deep.nearestPerimPos(info, {0.25, 0})), V(isRegion ? 1 : 0.25, 0));
    EXPECT_EQ(deep.subShape(info, {{}, 0.5})->perimeter(), 0.5);
    EXPECT_EQ(chains(deep, 0).size(), isRegion ? kLevels : 1U);
    EXPECT_THROW(qcGeneralShapeTree({tree, nullptr}, true), qcBadPointer);  // a copy is dropped
  }
  for (const double x : {0.5, 1.5})
    EXPECT_EQ(asRegion(*regions).classify({x, 0.2}), x < 1 ? Place::outside : Place::inside);
  EXPECT_EQ(asRegion(*regions).unregionize()->numChildren(), kLevels);
  EXPECT_TRUE(contour->tangentRotation().plain() == 0 && contour->endPoint() == V(1, 0));
  EXPECT_EQ(dynamic_cast<const qcGeneralShapeTree&>(*general).connect()->numChildren(), 1);
}

TEST(Trees, OfAnyDepthNeedNoStack) {
  onStackOf(1U << 18U, walkDeepTrees);
  Child deep(new qcGeneralShapeTree);
  for (int i = 0; i < 600; ++i) deep = new qcGeneralShapeTree({deep}, false);
  EXPECT_THROW(archived(kBig, false, deep), qcArchive::BadContent);
}

TEST(Trees, AndMappedShapesInTurnAreMeasuredOnce) {
  qcPtrHandle_const<qcShape> nest(new qcRect(V(1, 2), V(3, 4)));
  for (int i = 0; i < 60; ++i) {
    const auto tree = qcPtrHandle<qcGeneralShapeTree>(new qcGeneralShapeTree);
    tree->addChild(nest, false);
    nest = qcPtrHandle_const<qcShape>(new qcMappedShape(tree, qc2XformLinear(), false));
  }
  EXPECT_EQ(nest->boundingBox(), qcRect(V(1, 2), V(3, 4)));
}

TEST(Trees, AreRefusedWhenTheyContradictThemselves) {
  const Child hole = region(square(1, 2), true);
  const qcPtrHandle<qcPolyline> line(new qcPolyline({{0, 0}, {1, 0}}, false));
  const qcPtrHandle<qcRegionTree> tree(new qcRegionTree(square(0, 8)));
  const Child contour(new qcContourTree({Child(line)}, false, false));
  tree->addChild(hole, false);
  line->isClosed(true);  // behind the contour's back
  Shape loaded;
  EXPECT_THROW(load(archived(kBig, false, contour), loaded), qcArchive::BadContent);
  std::string bytes = archived(kBig, false, Child(tree));
  ASSERT_NO_THROW(load(bytes, loaded));
  bytes[bytes.size() - 3] = 1;  // two holes, one in the other
  EXPECT_THROW(load(bytes, loaded), qcArchive::BadContent);
  // Shapes that only look as if they were there.
  const auto mapped = [](const Child& shape) { return Child(new qcMappedShape(shape, qc2XformLinear(), false)); };
  const Child piece = mapped(new qcLineSeg({0, 0}, {1, 0})), around(new qcRegionTree(mapped(new qcCircle({0, 0}, 1))));
  for (const Child& holder : {Child(new qcContourTree({piece}, false, false)), around}) {
    std::vector<const qcShape*> held;
    holder->heldShapes_(held);
    const_cast<qcShape*>(held[0])->preLoad();
    EXPECT_THROW(load(archived(kBig, false, holder), loaded), qcArchive::BadContent);
  }
  // An orientation that the boundary does not have is kept like any other.
  bytes = archived(kBig, false, Child(new qcRegionTree(square(0, 8))));
  bytes[bytes.size() - 2] = 0;
  EXPECT_TRUE(load(bytes, loaded)->clone()->equal_(*loaded));
  // A tree in place is left empty.
  qcRegionTree place(*tree);
  bytes = archived(kBig, false, *tree);
  EXPECT_THROW(load(bytes.substr(0, bytes.size() - 1), place), qcArchive::Errors);
  EXPECT_TRUE(place.isLeaf() && place.isEmpty());
  EXPECT_TRUE(load(bytes, place).equal_(*tree));
}

}  // namespace
