// Clipping of every kind of shape by polygons.

#include "support/randomshapes.h"

namespace {

using Child = qcPtrHandle_const<qcShape>;
using Result = qcShape::ClipResult;
constexpr double kNear = 1e-7;

constexpr unsigned kShare = kInstrumented ? 20 : 1;

struct Random : ::Random {
  using ::Random::Random;
  V point(double reach) { return {real(-reach, reach), real(-reach, reach)}; }
  V snapped(const V& p, double grid) {
    return grid > 0 ? V(std::round(p.x() / grid) * grid, std::round(p.y() / grid) * grid) : p;
  }

  /// Around a centre, in steps of the angle; simple unless snapping spoils that. Some points are repeated.
  Points star(const V& center, double low, double high, double grid) {
    const int n = integer(3, 12);
    Points points;
    for (int i = 0; i < n; ++i) {
      points.push_back(snapped(center + V(real(low, high), qcRadian(i * qcRadian::turn / n)), grid));
      if (integer(0, 9) == 0) points.push_back(points.back());
    }
    if (integer(0, 1) == 1) std::reverse(points.begin(), points.end());
    return points;
  }
};

std::vector<const qcShape*> parts(const qcShape& shape) {
  const auto* tree = dynamic_cast<const qcGeneralShapeTree*>(&shape);
  if (tree) return tree->elements_();
  return shape.isEmpty() ? std::vector<const qcShape*>() : std::vector<const qcShape*>{&shape};
}

double area(const qcShape& shape) {
  if (shape.isEmpty()) return 0;
  double sum = 0;
  if (const auto* polygon = dynamic_cast<const qcPolyline*>(&shape)) return polygon->area();
  if (const auto* contour = dynamic_cast<const qcContourTree*>(&shape)) return std::fabs(contour->area());
  if (const auto* circle = dynamic_cast<const qcCircle*>(&shape)) return kPi * circle->radius() * circle->radius();
  if (const auto* e = dynamic_cast<const qcEllipse2*>(&shape)) return kPi * e->radii().x() * e->radii().y();
  if (const auto* tree = dynamic_cast<const qcRegionTree*>(&shape)) {
    sum = area(tree->boundary());
    for (long i = 0; i < tree->numChildren(); ++i) sum -= area(tree->child(i));
    return sum;
  }
  if (!dynamic_cast<const qcGeneralShapeTree*>(&shape)) return area(*shape.decompose());
  for (const qcShape* part : parts(shape)) sum += area(*part);
  return sum;
}

bool within(const qcShape& shape, const V& p) {
  const auto all = parts(shape);
  return std::any_of(all.begin(), all.end(), [&](const qcShape* part) { return part->within(p); });
}

double length(const qcShape& shape) { return shape.isEmpty() ? 0 : shape.perimeter(); }

double distance(const qcShape& shape, const V& p) {
  return shape.isEmpty() ? HUGE_VAL : shape.nearestPoint(p).distance(p);
}

/// A polygon around everything outside another one: a frame, and a way in to the polygon and out again.
qcPolyline outsideOf(const qcPolyline& polygon) {
  Points inner = polygon.vertices();
  if (polygon.isRightHanded()) std::reverse(inner.begin(), inner.end());
  const auto leftmost = [](const V& a, const V& b) { return a.x() != b.x() ? a.x() < b.x() : a.y() < b.y(); };
  std::rotate(inner.begin(), std::min_element(inner.begin(), inner.end(), leftmost), inner.end());
  const V in(-100, inner.front().y());
  Points points{{-100, -100}, {100, -100}, {100, 100}, {-100, 100}, in};
  points.insert(points.end(), inner.begin(), inner.end());
  points.push_back(inner.front());
  points.push_back(in);
  return {points, true};
}

struct Kind {
  const char* name;
  std::function<Shape(Random&, double grid)> make;
  unsigned cases;
  friend void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }
};

/// One in four is thin, by a factor of up to 1e5.
qcEllipse2 anyEllipse(Random& r) {
  const double thin = r.integer(0, 3) == 0 ? std::pow(10, -r.real(0, 5)) : 1;
  return {
      r.point(4), qcRadian(r.real(-3, 3)), {r.real(0.5, 7) * thin, r.real(0.5, 7)}, r.flip(), qcRadian(r.real(-3, 3))};
}

/// Arcs and segments by turns, around a centre.
Shape roundedContour(Random& r, bool closed) {
  const V center = r.point(4);
  qcPtrHandle<qcContourTree> tree(new qcContourTree);
  const int n = 2 * r.integer(1, 2);  // halves and quarters of all ellipses are the same
  V last;
  for (int i = 0; i < n; ++i) {
    const double radius = r.real(1, 7), from = i * 2 * kPi / n;
    const qcEllipse2 ellipse(center, qcRadian(0), {radius, r.real(1, 7)}, true, qcRadian(0));
    const qcEllipseArc2 arc(ellipse, qcRadian(from), qcRadian(r.real(0.3, 0.8) * 2 * kPi / n));
    if (i > 0) tree->addChild(qcLineSeg(last, arc.startPoint()));
    tree->addChild(arc);
    last = arc.endPoint();
  }
  if (closed) {
    tree->addChild(qcLineSeg(last, tree->startPoint()));
    tree->isClosed(true);
  }
  if (r.flip()) return tree->reverse();
  return tree;
}

/// A star with a hole that has the same shape, and an island in that.
Shape nestedStars(Random& r, double grid) {
  const V center = r.snapped(r.point(4), grid);
  Points outer = r.star({0, 0}, 3, 8, 0);
  const auto scaled = [&](double factor) {
    Points points;
    for (const V& p : outer) points.push_back(r.snapped(center + factor * p, grid / 4));
    return qcPolyline(points, true);
  };
  qcPtrHandle<qcRegionTree> island(new qcRegionTree(scaled(0.3))), tree(new qcRegionTree(scaled(1)));
  qcPtrHandle<qcRegionTree> hole(new qcRegionTree(scaled(0.6), true));
  hole->addChild(island, false);
  tree->addChild(hole, false);
  return tree;
}

Shape ringed(Random& r) {
  const qcEllipse2 ellipse = anyEllipse(r);
  qcPtrHandle<qcRegionTree> tree(new qcRegionTree(ellipse));
  const double factor = r.real(0.2, 0.9);
  tree->addChild(
      qcRegionTree(qcEllipse2(ellipse.center(), ellipse.angle(), factor * ellipse.radii(), true, qcRadian(0)), true));
  return tree;
}

const Kind kKinds[] = {
    {"polygon", [](Random& r, double g) -> Shape { return new qcPolyline(r.star(r.point(4), 1, 8, g), true); }, 60000},
    {"circle",
     [](Random& r, double g) -> Shape {
       const V c = r.snapped(r.point(4), g), edge = r.snapped(r.point(6), g);
       return new qcCircle(c, g > 0 ? std::round(c.distance(edge)) + 1 : c.distance(edge));
     },
     20000},
    {"ellipse", [](Random& r, double) -> Shape { return new qcEllipse2(anyEllipse(r)); }, 10000},
    {"rect",
     [](Random& r, double g) -> Shape {
       const V p = r.snapped(r.point(5), g), size = r.snapped(r.point(4) + V(5, 5), g);
       if (r.flip()) return new qcAffineRectangle(p, p + V(0, size.y()), p + V(size.x(), 0));
       return new qcRect(p, size);
     },
     5000},
    {"contour", [](Random& r, double) { return roundedContour(r, true); }, 5000},
    {"nested", nestedStars, 3000},
    {"ring", [](Random& r, double) { return ringed(r); }, 2000},
    {"segment",
     [](Random& r, double g) -> Shape { return new qcLineSeg(r.snapped(r.point(9), g), r.snapped(r.point(9), g)); },
     20000},
    {"polyline", [](Random& r, double g) -> Shape { return new qcPolyline(r.star(r.point(4), 1, 8, g), false); },
     20000},
    {"arc",
     [](Random& r, double) -> Shape {
       return new qcEllipseArc2(anyEllipse(r), qcRadian(r.real(-3, 3)), qcRadian(r.real(-6, 6)));
     },
     10000},
    {"open contour", [](Random& r, double) { return roundedContour(r, false); }, 5000},
    {"part of a part",
     [](Random& r, double g) {
       Shape shape = kKinds[r.integer(0, 6)].make(r, g);
       for (int i = 0; i < 3; ++i) {
         const qcPolyline polygon(r.star(r.snapped(r.point(2), g), 1, 8, r.flip() ? g : 0), true);
         const Shape part = shape->clip(polygon, false);
         if (!part->isEmpty()) shape = parts(*part)[0]->clone();
       }
       return shape;
     },
     4000}};

class Clipping : public testing::TestWithParam<Kind> {};
INSTANTIATE_TEST_SUITE_P(All, Clipping, testing::ValuesIn(kKinds));

// By their areas and the points in them, or by their lengths and the points on them.
TEST_P(Clipping, PartsInsideFromOutside) {
  unsigned clippedCases = 0, points = 0;
  forSeeds<Random>(GetParam().cases / kShare, [&](Random& r, unsigned seed) {
    const double grid = seed % 3;
    const qcPolyline polygon(r.star(r.snapped(r.point(2), grid), 1, 8, grid), true);
    const Shape shape = GetParam().make(r, grid);
    const bool region = shape->isRegion();
    const double whole = region ? area(*shape) : length(*shape);
    if (polygon.area() == 0 || whole == 0) return;
    Result result;
    const Shape inside = shape->clip(polygon, result, region && r.flip()),
                outside = shape->clip(outsideOf(polygon), false);
    const double in = region ? area(*inside) : length(*inside), out = region ? area(*outside) : length(*outside);
    // What runs along the polygon is on both sides of it.
    ASSERT_TRUE(in + out > whole - 1e-9 && (in + out < whole + 1e-9 || (!region && grid > 0)));
    ASSERT_EQ(result == Result::outside, inside->isEmpty());
    ASSERT_EQ(result == Result::inside, inside->equal_(*shape));
    ASSERT_TRUE(!region || grid > 0 || (result == Result::inside) == (whole - in < 1e-12));
    clippedCases += result == Result::clipped;
    const qcShapeInfo info(*shape);
    double along = -1e-9;
    for (const qcShape* part : parts(*inside)) {
      ASSERT_TRUE(region ? part->isRightHanded() == shape->isRightHanded() : part->isOpenContour());
      if (GetParam().name != std::string("segment") && GetParam().name != std::string("arc")) continue;
      const double start = info.distanceAlong(shape->nearestPerimPos(info, part->startPoint()));
      ASSERT_GT(start, along - 1e-9);
      along = start + part->perimeter();
    }
    for (int i = 0; i < 4; ++i) {
      const V p = region ? r.point(9) : shape->perimPoint(info, info.perimPos(r.real(0, whole)));
      if ((region && distance(*shape, p) < kNear) || distance(polygon, p) < kNear) continue;
      const auto has = [&](const qcShape& part) { return region ? within(part, p) : distance(part, p) < 1e-9; };
      ASSERT_EQ(has(*inside), polygon.within(p) && has(*shape)) << p.x() << " " << p.y();
      ASSERT_EQ(has(*outside), !polygon.within(p) && has(*shape)) << p.x() << " " << p.y();
      ++points;
    }
    // What bounds the inside lies on either boundary, and of that the part inside the other.
    if (!region || seed % 16 != 0 || inside->isEmpty()) return;
    if (shape->isReversible()) {
      ASSERT_NEAR(inside->perimeter(), shape->reverse()->clip(polygon, false)->perimeter(), 1e-9);
    }
    qcShape::qcSampleResult samples;
    inside->sample(qcShape::qcSampleParams(0, 1, 1000), samples);
    for (const V& p : samples.positions()) ASSERT_LT(std::min(distance(*shape, p), distance(polygon, p)), 1e-9);
  });
  EXPECT_GT(clippedCases, GetParam().cases / kShare / 3);
  EXPECT_GT(points, GetParam().cases / kShare);
}

TEST(Lines, AreCutLikeLongSegments) {
  forSeeds<Random>(2000, [&](Random& r, unsigned seed) {
    const qcPolyline polygon(r.star(r.point(2), 1, 8, seed % 2), true);
    const V p = r.point(5), d(1, qcRadian(r.real(-3, 3)));
    const Shape cut = qcLineSeg(p - 1e3 * d, p + 1e3 * d).clip(polygon, false);
    for (const Shape& line : {Shape(new qcLine(7 * d, p)), Shape(new qcFLine(p, p + d))}) {
      Result result;
      const Shape clipped = line->clip(polygon, result, true);
      EXPECT_EQ(result, cut->isEmpty() ? Result::outside : Result::clipped);
      EXPECT_NEAR(length(*clipped), length(*cut), 1e-9);
      EXPECT_EQ(parts(*clipped).size(), parts(*cut).size());
    }
  });
  const qcPolyline square({{495, 0}, {505, 0}, {505, 10}, {495, 10}}, true);
  for (const double far : {1e17, 1e20, 1e300}) EXPECT_EQ(length(*qcLine({1, 0}, {far, 5}).clip(square, true)), 10);
}

TEST(Segments, InsideARectangleUpToItsSidesStayAsTheyAre) {
  const qcPolyline rectangle({{0, 0}, {214, 0}, {214, 474}, {0, 474}}, true);
  Random r(4);
  for (int i = 0; i < 20000 / static_cast<int>(kShare); ++i) {
    const V sides[] = {{0, r.real(1, 473)}, {214, r.real(1, 473)}, {r.real(1, 213), 0}, {r.real(1, 213), 474}};
    const int from = r.integer(0, 3);
    const qcLineSeg segment(sides[from], sides[(from + r.integer(1, 3)) % 4]);
    Result result;
    EXPECT_TRUE(segment.clip(rectangle, result, true)->equal_(segment) && result == Result::inside) << i;
  }
}

TEST(NearlySharedEdges, AreNotOvershot) {
  Random r(1);
  for (unsigned i = 0; i < 4000 / kShare; ++i) {
    SCOPED_TRACE(i);
    const V axis(1, qcRadian(r.real(-3, 3)));
    const auto at = [&](int x, int y) { return x * axis + y * V(-axis.y(), axis.x()); };
    const auto rect = [&](int x0, int x1, int y) {
      return qcPolyline({at(x0, 0), at(x1, 0), at(x1, y), at(x0, y)}, true);
    };
    const int x0 = r.integer(-4, 4), x1 = x0 + r.integer(1, 5), width = r.integer(1, 9);
    const int common = std::min(x1, width) - std::max(x0, 0);
    if (common <= 0) continue;
    ASSERT_LT(length(*qcLineSeg(at(x0, 0), at(x1, 0)).clip(rect(0, width, 5), true)), common + 1e-9);
    ASSERT_NEAR(length(*rect(x0, x1, 3).clip(rect(0, width, 5), true)), 2 * common + 6, 1e-9);
  }
}

/// Through the vertices of a polygon, with halves of ellipses in the place of some of its sides.
Shape bulged(Random& r, const qcPolyline& polygon) {
  qcPtrHandle<qcContourTree> tree(new qcContourTree(true));
  for (long i = 0; i < polygon.numVertices(); ++i) {
    const V &p = polygon.vertex(i), &q = polygon.vertex((i + 1) % polygon.numVertices());
    const V radii(p.distance(q) / 2, r.real(0.1, 5));
    if (radii.x() == 0 || r.flip()) {
      tree->addChild(qcLineSeg(p, q));
    } else {
      const qcEllipse2 ellipse((p + q) / 2, (p - q).angle(), radii, r.flip(), qcRadian(0));
      tree->addChild(qcEllipseArc2(ellipse, qcRadian(0), qcRadian(kPi)));
    }
  }
  return tree;
}

// Boundaries that cross themselves are what they wind around.
TEST(CrossingBoundaries, AreClippedWhereTheyWind) {
  forSeeds<Random>(8000 / kShare, [&](Random& r, unsigned seed) {
    const bool curved = seed >= 4000 / kShare;
    Points points[2];
    for (Points& p : points)
      for (int i = r.integer(3, 7); i > 0; --i) p.push_back(r.snapped(r.point(6), seed % 2));
    const qcPolyline a(points[0], true), b(points[1], true);
    const Shape shape = !curved ? a.clone() : seed % 4 == 0 ? nestedStars(r, 1) : bulged(r, a);
    const Shape both = shape->clip(b, false);
    for (const qcShape* part : parts(*both))
      ASSERT_TRUE(area(*part) < kNear || part->isRightHanded() == shape->isRightHanded());
    for (int i = 0; i < 20; ++i) {
      const V p = r.point(6);
      if (distance(*shape, p) < kNear || distance(b, p) < kNear) continue;
      ASSERT_EQ(within(*both, p), shape->within(p) && b.within(p)) << p.x() << " " << p.y();
    }
  });
}

TEST(Parts, OfAnArcByATriangleFromItsStartLieOnIt) {
  forSeeds<Random>(20000, [&](Random& r, unsigned seed) {
    const qcEllipse2 ellipse(r.point(1), r.angle(), {r.real(0.5, 4), r.real(0.5, 4)}, true, r.angle());
    const double from = r.real(-3, 3);
    const auto point = [&] { return ellipse.point(r.angle()); };
    const V other = point(), last = r.flip() ? point() : r.point(6);
    const qcPolyline triangle({ellipse.point(qcRadian(from)), other, last}, true);
    const Shape part = qcEllipseArc2::between(ellipse, qcRadian(from),
                                              qcRadian(from + (r.flip() ? 1 : -1) * std::min(r.real(1, 8), 2 * kPi)))
                           .clip(triangle, false);
    if (part->isEmpty()) return;
    const qcShapeInfo info(*part);
    for (int i = 0; i < 8; ++i) {
      const V p = part->perimPoint(info, info.perimPos(info.perimeter() * i / 8));
      ASSERT_LE(distance(ellipse, p), 1e-6) << seed;
      ASSERT_TRUE(triangle.within(p) || distance(triangle, p) < 1e-6) << seed;
    }
  });
}

// Whatever they come to, clipping ends, and errors are those of the library.
TEST(ExtremeCoordinates, AreBorne) {
  forSeeds<Random>(20000 / kShare, [&](Random& r, unsigned seed) {
    const auto extreme = [&r] {
      const double special[] = {0, -0.0, 5e-324, 1e-300, 1e-150, 1, 1, 2, 1e150, 1e300, 1e308, HUGE_VAL};
      return special[r.integer(0, r.integer(0, 9) == 0 ? 11 : 10)] * r.integer(-2, 2);
    };
    const auto points = [&] {
      Points result;
      for (int i = r.integer(1, 7); i > 0; --i) result.push_back({extreme(), extreme()});
      return result;
    };
    try {
      const qcPolyline polygon(points(), true), line(points(), r.flip());
      const qcCircle circle(line.vertex(0), std::fabs(extreme()));
      const qcShape& shape = seed % 2 == 0 ? static_cast<const qcShape&>(line) : circle;
      const Shape inside = shape.clip(polygon, false);
      if (!inside->isEmpty()) inside->boundingBox();
    } catch (const qcException&) {
    }
  });
}

qcPolyline box(double x0, double y0, double x1, double y1) { return {{{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}}, true}; }

struct Example {
  const char* name;
  Shape shape;
  qcPolyline polygon;
  Result result;
  double size;  // area or length of what is left
  std::size_t parts;
};

const qcPolyline kBox = box(0, 0, 10, 10);

Shape withHole(const qcShape& boundary, const qcShape& hole) {
  qcPtrHandle<qcRegionTree> tree(new qcRegionTree(boundary));
  tree->addChild(qcRegionTree(hole, true));
  return tree;
}

Shape withIsland() {
  qcRegionTree hole(box(1, 1, 9, 9), true);
  hole.addChild(qcRegionTree(box(4, 4, 6, 6)));
  qcPtrHandle<qcRegionTree> tree(new qcRegionTree(box(-5, -5, 15, 15)));
  tree->addChild(hole);
  return tree;
}

Shape negative(double x, double y, double width, double height) {
  qcPtrHandle<qcRect> rect(new qcRect);
  rect->origin({x, y});
  rect->size({width, height});
  return rect;
}

const Example kExamples[] = {
    {"a rectangle of negative size", negative(8, 2, -4, 5), kBox, Result::outside, 0, 0},
    {"itself", kBox.clone(), kBox, Result::inside, 100, 1},
    {"itself, the other way", kBox.reverse(), kBox, Result::inside, 100, 1},
    {"an edge shared from inside", box(0, 2, 5, 8).clone(), kBox, Result::inside, 30, 1},
    {"an edge shared from outside", box(10, 2, 15, 8).clone(), kBox, Result::outside, 0, 0},
    {"a corner shared", box(10, 10, 15, 15).clone(), kBox, Result::outside, 0, 0},
    {"a corner on an edge", new qcPolyline({{10, 5}, {12, 4}, {12, 6}}, true), kBox, Result::outside, 0, 0},
    {"around", box(-5, -5, 15, 15).clone(), kBox, Result::clipped, 100, 1},
    {"two bumps below one line",
     new qcPolyline(
         {{0, 0}, {1, 0}, {1, -2}, {3, -2}, {3, 0}, {5, 0}, {5, -2}, {7, -2}, {7, 0}, {9, 0}, {9, 5}, {0, 5}}, true),
     box(-1, -3, 12, 0), Result::clipped, 8, 2},
    {"areas that meet in a point", new qcPolyline({{2, 2}, {8, 2}, {5, 12}}, true),
     qcPolyline({{0, 0}, {10, 0}, {10, 5}, {5, 2}, {0, 5}}, true), Result::clipped, 54 / 11.8, 2},
    {"a rectangle, moved by rounding alone", new qcRect({0.1, 0.1}, {0.2, 0.2}), box(0.1, 0.1, 0.1 + 0.2, 0.1 + 0.2),
     Result::inside, 0.04, 1},
    {"a corner that rounding alone moves off an edge", new qcRect({-0.1, -0.3}, {0.5, 0.3}),
     qcPolyline({{-0.5, 0.2}, {0.1, -0.1}, {0.6, 0.5}, {-0.3, 0.6}}, true), Result::clipped, 0.085 / 6, 1},
    {"an incircle", new qcCircle({5, 5}, 5), kBox, Result::inside, 25 * kPi, 1},
    {"a circumcircle", new qcCircle({5, 5}, 5), qcPolyline({{10, 5}, {5, 10}, {0, 5}, {5, 0}}, true), Result::clipped,
     50, 1},
    {"half a circle", new qcCircle({10, 5}, 2), kBox, Result::clipped, 2 * kPi, 1},
    {"the middle of a circle", new qcCircle({5, 5}, 6), kBox, Result::clipped,
     36 * kPi - 4 * (36 * std::acos(5 / 6.0) - 5 * std::sqrt(11)), 1},
    {"a point", new qcCircle({5, 5}, 0), kBox, Result::inside, 0, 1},
    {"a point outside", new qcCircle({5, 15}, 0), kBox, Result::outside, 0, 0},
    {"a whole turn, and on",
     new qcContourTree({Child(new qcEllipseArc2({{5, 5}, {}, {1, 1}, true, {}}, {}, qcRadian(2 * kPi))),
                        Child(new qcLineSeg({12, 2}, {12, 8}))},
                       true, false),
     kBox, Result::clipped, kPi + 8, 1},
    {"a slender arc beside",
     new qcContourTree({Child(new qcEllipseArc2({{-0.70867812111021089, 0.76362627877348088},
                                                 qcRadian(2.0842622212685722),
                                                 {3.6892133579135944, 0.026903777078710653},
                                                 false,
                                                 qcRadian(1.976583224397217)},
                                                qcRadian(0.10451554621800163), qcRadian(0.031259494679637401)))},
                       true, false),
     qcPolyline({{0.19689376639966416, -0.79443789355504424}, {-0.70867812111021089, 0.76362627877348088}, {-40, 10}},
                true),
     Result::outside, 0, 0},
    {"a hole kept", withHole(box(2, 2, 12, 8), qcCircle({5, 5}, 1)), kBox, Result::clipped, 48 - kPi, 1},
    {"a hole opened", withHole(box(2, 2, 12, 8), qcCircle({10, 5}, 1)), kBox, Result::clipped, 48 - kPi / 2, 1},
    {"a ring cut in two", withHole(qcCircle({5, 5}, 20), qcCircle({5, 5}, 18)), box(-30, 0, 40, 2), Result::clipped, -1,
     2},
    {"inside a hole", withHole(box(-5, -5, 15, 15), box(-1, -1, 11, 11)), kBox, Result::outside, 0, 0},
    {"an island cut to a bow tie", withIsland(), qcPolyline({{4, 2}, {6, 2}, {4, 8}, {6, 8}}, true), Result::clipped,
     -1, 1},
    {"filling a hole", withHole(box(-5, -5, 15, 15), kBox), kBox, Result::outside, 0, 0},
    {"along an edge", new qcLineSeg({-5, 10}, {5, 10}), kBox, Result::clipped, 5, 1},
    {"on an edge", new qcLineSeg({7, 0}, {5, 0}), kBox, Result::inside, 2, 1},
    {"through a corner", new qcLineSeg({5, 15}, {15, 5}), kBox, Result::outside, 0, 0},
    {"up to an edge", new qcLineSeg({5, 5}, {10, 5}), kBox, Result::inside, 5, 1},
    {"up to an edge from outside", new qcLineSeg({15, 5}, {10, 5}), kBox, Result::outside, 0, 0},
    {"corner to corner", new qcLineSeg({-1, -1}, {11, 11}), kBox, Result::clipped, std::sqrt(200), 1},
    {"a point on the edge", new qcLineSeg({10, 5}, {10, 5}), kBox, Result::inside, 0, 1},
    {"a point, and on outside",
     new qcContourTree({Child(new qcLineSeg({5, 5}, {5, 5})), Child(new qcLineSeg({20, 5}, {25, 5}))}, false, false),
     kBox, Result::outside, 0, 0},
    {"round a corner", new qcPolyline({{0, -5}, {0, 10}, {15, 10}}, false), kBox, Result::clipped, 20, 1},
    {"out and in again", new qcPolyline({{5, 5}, {15, 5}, {15, 6}, {5, 6}}, false), kBox, Result::clipped, 10, 2},
    {"a line along an edge", new qcLine(V(1, 0), {3, 10}), kBox, Result::clipped, 10, 1},
    {"a polygon without area", kBox.clone(), qcPolyline({{2, 2}, {8, 8}}, true), Result::outside, 0, 0},
    {"nothing", new qcPolyline, kBox, Result::outside, 0, 0}};

TEST(Examples, AreAsComputedByHandAloneAndTogether) {
  const qcPolyline open({{0, 0}, {5, 0}, {0, 5}}, false), none(true), broken({{0, 0}, {kNan, 0}, {0, 5}}, true);
  qcGeneralShapeTree together;
  std::size_t expected = 0;
  Result result;
  for (const Example& example : kExamples) {
    SCOPED_TRACE(example.name);
    const qcShape& shape = *example.shape;
    const Shape left = shape.clip(example.polygon, result, true);
    EXPECT_EQ(result, example.result);
    EXPECT_EQ(parts(*left).size(), example.parts);
    EXPECT_TRUE(example.size < 0 ||
                std::fabs((shape.isRegion() ? area(*left) : length(*left)) - example.size) <= 1e-12);
    EXPECT_TRUE(result != Result::inside || left->equal_(shape));
    qcClipInfo info;
    EXPECT_THROW(shape.clip(open, info), qcShapesError::NotRegion);
    EXPECT_THROW(shape.clip(none, true), qcShapesError::NotRegion);
    together.addChild(shape);
    expected += parts(*shape.clip(kBox, true)).size();
    if (shape.isEmpty()) continue;
    EXPECT_THROW(shape.clip(broken, false), qcShapesError::BadGeom);
  }
  EXPECT_EQ(parts(*together.clip(kBox, result, true)).size(), expected);
  EXPECT_EQ(result, Result::clipped);
  const qcGeneralShapeTree inner({Child(new qcCircle({5, 5}, 1)), Child(new qcLineSeg({1, 1}, {2, 2}))}, false);
  EXPECT_TRUE(inner.clip(kBox, result, true)->equal_(inner));
  EXPECT_EQ(result, Result::inside);
  EXPECT_THROW(qcLineSeg({0, HUGE_VAL}, {1, 1}).clip(kBox, true), qcShapesError::BadGeom);
}

TEST(Arcs, StayArcs) {
  const Shape half = qcCircle({10, 5}, 2).clip(kBox, true);
  const auto* contour = dynamic_cast<const qcContourTree*>(half.rep());
  ASSERT_TRUE(contour && contour->numChildren() == 2);
  const auto isArc = [&](long i) { return dynamic_cast<const qcEllipseArc2*>(&contour->child(i)) != nullptr; };
  EXPECT_NE(isArc(0), isArc(1));
  EXPECT_NEAR(contour->perimeter(), 2 * kPi + 4, 1e-12);
}

}  // namespace
