// Shapes drawn into images: against every pel asked by itself, in windows with sentinels around them.

#include "std/pelbuf/dispatch.h"
#include "support/randomshapes.h"
#include "vnxstd/math/random.h"
#include "vnxstd/math/xfpersp.h"
#include "vnxstd/pelbuf.h"

namespace {

using Buffer = qcPelBuffer<unsigned char>;
using Mode = qcRasterizationDefs::BoundaryFillMode;

/// A window at odd places in a larger root, on which what is drawn is compared, and around which nothing changes.
class Canvas {
 public:
  explicit Canvas(const qcPelRect& window) : whole_(window.width() + 7, window.height() + 5) {
    qfPelSet(whole_, kBack);
    whole_.offset(window.x0() - 3, window.y0() - 2);
    window_ = whole_;
    window_.window(window, false);
  }

  const Buffer& window() const { return window_; }
  bool isSet(long x, long y) const { return whole_.get(x, y) != kBack; }

  /// `expected` gives 1 or 0, or what is neither where it cannot tell.
  void expect(const std::function<int(long x, long y)>& expected) const {
    const qcPelRect all = whole_.window(), window = window_.window();
    int wrong = 0;
    for (long y = all.y0(); y < all.y1(); ++y) {
      for (long x = all.x0(); x < all.x1(); ++x) {
        const int wanted = window.contains(x, y) ? expected(x, y) : 0;
        if (static_cast<int>(isSet(x, y)) == 1 - wanted && ++wrong < 4) {
          ADD_FAILURE() << "pel " << x << ' ' << y << " should be " << wanted;
        }
      }
    }
  }

 private:
  static constexpr unsigned char kBack = 77;
  Buffer whole_, window_;
};

V centerOf(long x, long y) { return {static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5}; }

/// Inside by the definition of a region tree, for points that are on no boundary.
bool isInside(const qcRegionTree& region, const V& p) {
  bool inside = region.boundary().within(p);
  for (long i = 0; i < region.numChildren(); ++i) inside = inside && !isInside(region.child(i), p);
  return inside;
}

/// The piece has a point inside the pel, its border not counted: no side of the square and not the piece itself has all
/// of the other on one side. Exact for multiples of 1/16.
bool touches(const V& a, const V& b, long x, long y) {
  const auto apart = [](double p, double q, long from) {
    return std::max(p, q) <= static_cast<double>(from) || std::min(p, q) >= static_cast<double>(from + 1);
  };
  if (apart(a.x(), b.x(), x) || apart(a.y(), b.y(), y)) return false;
  int left = 0, right = 0;
  for (const auto& corner : {std::array{x, y}, {x + 1, y}, {x, y + 1}, {x + 1, y + 1}}) {
    const V c(static_cast<double>(corner[0]), static_cast<double>(corner[1]));
    const double side = (b - a).cross(c - a);
    left += side >= 0;
    right += side <= 0;
  }
  return a == b || (left < 4 && right < 4);
}

bool touches(const qcRegionTree& region, long x, long y) {
  const Points& p = static_cast<const qcPolyline&>(region.boundary()).vertices();
  bool found = false;
  for (std::size_t i = 0; i < p.size(); ++i) found = found || touches(p[i], p[(i + 1) % p.size()], x, y);
  for (long i = 0; i < region.numChildren(); ++i) found = found || touches(region.child(i), x, y);
  return found;
}

struct Source : qcRandomUniform {
  using qcRandomUniform::qcRandomUniform;
  long below(long n) { return static_cast<long>(next(0, static_cast<double>(n) - 1e-9)); }
  double snapped(double low, double high, double grid) { return std::floor(next(low, high) / grid) * grid; }
  Points polygon(const V& low, const V& high, long count, double grid) {
    Points points(static_cast<std::size_t>(count));
    for (auto& p : points) p = {snapped(low.x(), high.x(), grid), snapped(low.y(), high.y(), grid)};
    return points;
  }
};

qcPolyline box(double x, double y, double width, double height) {
  return {{{x, y}, {x + width, y}, {x + width, y + height}, {x, y + height}}, true};
}

qcRegionTree regionOf(const qcShape& boundary, const std::vector<qcRegionTree>& children = {}, bool isHole = false) {
  qcRegionTree region(boundary, isHole);
  for (const qcRegionTree& child : children) region.addChild(child);
  return region;
}

/// In each mode; a centre on a boundary belongs to what is next to it towards growing x, then towards growing y.
void expectFilled(const qcRegionTree& region, const qcPelRect& window) {
  for (const Mode mode : {qcRasterizationDefs::center, qcRasterizationDefs::touched, qcRasterizationDefs::covered}) {
    SCOPED_TRACE(static_cast<int>(mode));
    const Canvas canvas(window);
    qfRasterize(region, canvas.window(), 5, mode);
    canvas.expect([&](long x, long y) {
      if (mode != qcRasterizationDefs::center && touches(region, x, y)) return mode == qcRasterizationDefs::touched;
      return isInside(region, centerOf(x, y) + V(0x1p-20, 0x1p-44));
    });
  }
}

TEST(RasterizeTest, PolygonsOfAnyFormAgreeWithEachPelAskedAlone) {
  Source random(1);
  for (int i = 0; i < 600; ++i) {
    SCOPED_TRACE(i);
    const double grid = std::ldexp(1.0, -static_cast<int>(random.below(5))), reach = i % 3 ? 5 : 40;
    const qcPelRect window(random.below(100) - 50, random.below(100) - 50, 1 + random.below(20), 1 + random.below(14));
    const V low(static_cast<double>(window.x0()) - reach, static_cast<double>(window.y0()) - reach);
    const V high(static_cast<double>(window.x1()) + reach, static_cast<double>(window.y1()) + reach);
    expectFilled(regionOf(qcPolyline(random.polygon(low, high, 1 + random.below(9), grid), true)), window);
  }
}

TEST(RasterizeTest, HolesMayOverlapAndContoursJump) {
  const qcPelRect window(-7, 3, 31, 29);
  for (const double shift : {0.0, 0.25, 0.5}) {
    // Straight lines where a contour jumps.
    const qcLineSeg low({2 + shift, 6}, {16 + shift, 8.1}), high({18 + shift, 20}, {4 + shift, 24.3});
    const qcContourTree jumps({qcContourTree::Child(low.clone()), high.clone()}, true, false);
    const Canvas canvas(window);
    qfRasterize(regionOf(jumps), canvas.window(), 5);
    canvas.expect([&](long x, long y) { return jumps.within(centerOf(x, y)); });
    // Holes that overlap, and touch the outer boundary.
    const qcPolyline diamond({{2 + shift, 10}, {9 + shift, 17}, {2 + shift, 24}, {-5 + shift, 17}}, true);
    const auto hole = [](const qcShape& shape) { return regionOf(shape, {}, true); };
    expectFilled(regionOf(box(-6 + shift, 5, 25, 24), {hole(diamond), hole(box(2, 12, 8, 9)),
                                                       hole(box(-6 + shift, 5, 3, 3.5)), hole(box(10, 5, 4.5, 24))}),
                 window);
  }
}

/// Boxes in boxes in any number and order.
qcRegionTree boxesWithin(Source& random, double x0, double y0, double x1, double y1, bool isHole) {
  qcRegionTree region(box(x0, y0, x1 - x0, y1 - y0), isHole);
  for (long i = random.below(4); i > 0 && x1 - x0 >= 2 && y1 - y0 >= 2; --i) {
    const double left = random.snapped(x0, x1 - 1, 0.25), top = random.snapped(y0, y1 - 1, 0.25);
    const double right = random.snapped(left + 1, x1, 0.25), low = random.snapped(top + 1, y1, 0.25);
    region.addChild(boxesWithin(random, left, top, right, low, !isHole));
  }
  return region;
}

TEST(RasterizeTest, TreesOfAnyFormAgreeWithEachPelAskedAlone) {
  Source random(7);
  const qcPelRect window(-7, 3, 31, 29);
  for (int i = 0; i < 200; ++i) {
    SCOPED_TRACE(i);
    const double shift = random.snapped(0, 1, 0.25);
    expectFilled(boxesWithin(random, -9 + shift, 1, 26 + shift, 34, false), window);
  }
}

TEST(RasterizeTest, CoordinatesOfAnySizeAreSafe) {
  Source random(3);
  const qcPelRect window(-3, 5, 9, 8);
  for (const double size : {1e9, 1e15, 1e100, 1e300, 1.7e308}) {
    const Canvas full(window);
    qfRasterizeContour(qcCircle({0, 0}, 4), full.window(), 1, size);
    full.expect([](long, long) { return 1; });
    for (int i = 0; i < 60; ++i) {
      SCOPED_TRACE(testing::Message() << size << ' ' << i);
      Points points{{random.next(-3, 6), random.next(5, 13)}};
      for (int k = 0; k < 4; ++k)
        points.push_back({random.next(-0.5, 0.5) * size * 2, random.next(-0.5, 0.5) * size * 2});
      const qcRegionTree region = regionOf(qcPolyline(points, true));
      for (const Mode mode : {qcRasterizationDefs::center, qcRasterizationDefs::touched}) {
        const Canvas canvas(window);
        qfRasterize(region, canvas.window(), 1, mode);
        canvas.expect([&](long x, long y) {
          if (size > 1e100) return 2;  // the products of coordinates leave the range of doubles
          const bool inside = isInside(region, centerOf(x, y));
          return mode == qcRasterizationDefs::center || inside ? int{inside} : 2;
        });
      }
      qfRasterize(regionOf(qcCircle(points[1] / 4, size / 4)), Canvas(window).window(), 1);
      const Canvas canvas(window);
      for (const double width : {0.0, 2.0, 1e6}) qfRasterizeContour(region.boundary(), canvas.window(), 1, width);
      canvas.expect([](long, long) { return 2; });
    }
  }
}

TEST(RasterizeTest, CirclesAndEllipsesAreExactWhereCentresDecide) {
  Source random(4);
  const qcPelRect window(-20, 7, 41, 37);
  for (int i = 0; i < 200; ++i) {
    SCOPED_TRACE(i);
    vnxstd::simd::setLevel(i % 3 ? vnxstd::simd::highest() : vnxstd::simd::Level::Baseline);
    const V center(random.next(-30, 30), random.next(0, 50)), radii(random.next(0, 30), random.next(0, 30));
    const qcEllipse2 ellipse(center, qcRadian(random.next(-4, 4)), radii, i % 2, qcRadian(1));
    const qcPtrHandle<qcShape> shape = i % 4 == 3   ? qcCircle(center, radii.x()).clone()
                                       : i % 4 == 2 ? ellipse.oldEllipse().clone()
                                                    : ellipse.clone();
    const auto place = [&](long x, long y, double reach) {
      return shape->nearestPoint(centerOf(x, y)).distance(centerOf(x, y)) < reach ? 2 : shape->within(centerOf(x, y));
    };
    for (const Mode mode : {qcRasterizationDefs::center, qcRasterizationDefs::touched, qcRasterizationDefs::covered}) {
      const Canvas canvas(window);
      qfRasterize(regionOf(*shape), canvas.window(), 1, mode);
      canvas.expect([&](long x, long y) {
        if (mode == qcRasterizationDefs::center) return place(x, y, 1e-9);
        // Within a pel's inner and outer circle, and the tolerance, the boundary decides.
        const bool decides = place(x, y, 0.3) == 2 && radii.x() > 1 && radii.y() > 1;
        return decides ? int{mode == qcRasterizationDefs::touched} : place(x, y, 0.9);
      });
    }
  }
}

// Which of the rows that it ends on a stroke sets.
TEST(RasterizeTest, BroadContoursTakeOneOfTwoBorders) {
  for (const double y : {3.0, 3.25, 3.5, 3.75}) {  // one row each
    const Canvas canvas(qcPelRect(3, -9, 27, 25));
    qfRasterizeContour(qcLineSeg({-100, y}, {100, y}), canvas.window(), 1, 1);
    canvas.expect([&](long, long row) { return row == static_cast<long>(std::ceil(y - 1)); });
  }
}

TEST(RasterizeTest, HugeContoursAreDrawnWhereTheyAre) {
  const qcPelRect window(-9, -8, 21, 19);
  const Params few(1e-4, 0, 4000, false, false);
  const auto near = [](double distance) { return std::fabs(distance) < 1e-3 ? 2 : distance < 0; };
  for (const int exponent : {7, 20, 30, 40, 60, 200}) {
    SCOPED_TRACE(exponent);
    const double r = std::ldexp(1, exponent), half = 2.3;
    const auto fromCircle = [&](long x, long y) {  // the one around (-r, 0) through the origin
      const V p = centerOf(x, y);
      return (p * p + 2 * p.x() * r) / (std::hypot(p.x() + r, p.y()) + r);
    };
    const auto expectStroke = [&](const qcShape& shape, const auto& distance) {
      const Canvas canvas(window);
      qfRasterizeContour(shape, canvas.window(), 1, 2 * half, few);
      canvas.expect([&](long x, long y) { return near(std::fabs(distance(x, y)) - half); });
    };
    const auto fromLine = [](long x, long y) { return centerOf(x, y) * V(2, 3) / std::sqrt(13.0); };
    expectStroke(qcLineSeg({-3 * r, 2 * r}, {6 * r, -4 * r}), fromLine);
    qcGeneralShapeTree tree({qcContourTree::Child(new qcCircle({9 * r, 9 * r}, r)),
                             qcContourTree::Child(new qcPolyline({{-3 * r, 2 * r}, {3 * r, -2 * r}}, false))},
                            false);
    expectStroke(tree, fromLine);
    expectStroke(qcMappedShape(tree.clone(), qc2XformLinear(), false), fromLine);
    // Half a disc of which only the straight side is near.
    const qcEllipseArc2 arc(qcEllipse2({0, 0}, qcRadian(0), {r, r}, true, qcRadian(0)), qcDegree(90), qcDegree(180));
    const qcContourTree left({qcContourTree::Child(new qcLineSeg({0, -r}, {0, r})), arc.clone()}, true, false);
    expectStroke(left, [](long x, long y) { return centerOf(x, y).x(); });
    for (const Mode mode : {qcRasterizationDefs::center, qcRasterizationDefs::touched, qcRasterizationDefs::covered}) {
      const Canvas canvas(window), round(window);
      qfRasterize(regionOf(left), canvas.window(), 1, mode, few);
      canvas.expect([](long x, long) { return x < 0; });
      if (exponent > 40) continue;
      qfRasterize(regionOf(qcCircle({-r, 0}, r)), round.window(), 1, mode, few);
      const double reach = mode == qcRasterizationDefs::center ? 1e-3 : 0.8;
      round.expect([&](long x, long y) { return std::fabs(fromCircle(x, y)) < reach ? 2 : fromCircle(x, y) < 0; });
    }
    if (exponent <= 40) expectStroke(qcCircle({-r, 0}, r), fromCircle);
  }
  // A circle that nearly reaches the line at infinity, and the ellipse that it comes to.
  const qcMappedShape far(new qcCircle({0, 0}, 9.999), qc2XformPerspective(qcMatrix<3>(1, 0, 0, 0, 1, 0, -0.1, 0, 1)),
                          false);
  const qcRect box = far.boundingBox();
  const Canvas bent(window), plain(window);
  qfRasterizeContour(far, bent.window(), 1, 2, few);
  qfRasterizeContour(qcEllipse2(box.origin() + box.size() / 2, {}, box.size() / 2, true, {}), plain.window(), 1, 2,
                     few);
  bent.expect([&](long x, long y) { return plain.window().get(x, y) == 1; });
}

TEST(RasterizeTest, ThinContoursAreConnectedAndNear) {
  Source random(6);
  const qcPelRect window(-2, -2, 36, 36);
  for (int i = 0; i < 400; ++i) {
    SCOPED_TRACE(i);
    const Points points = random.polygon({0, 0}, {32, 32}, 1 + random.below(6), i % 3 ? 0.5 : 1e-3);
    const qcPtrHandle<qcShape> shape =
        i % 4 ? qcPolyline(points, i % 2).clone() : qcCircle({16, 16}, random.next(0, 15)).clone();
    const Canvas canvas(window);
    qfRasterizeContour(*shape, canvas.window(), 1, 0, Params(1e-4, 0, INT32_MAX, false, false));
    canvas.expect([&](long x, long y) {
      const double distance = shape->nearestPoint(centerOf(x, y)).distance(centerOf(x, y));
      return distance < 0.71 ? 2 : 0;
    });
    // What can be reached from one pel is all.
    std::vector<std::array<long, 2>> left, reached;
    for (long k = 0; k < 36 * 36; ++k)
      if (canvas.isSet(k % 36 - 2, k / 36 - 2)) left.push_back({k % 36, k / 36});
    ASSERT_FALSE(left.empty());
    reached = {left[0]};
    for (std::size_t next = 0; next < reached.size(); ++next) {
      const auto [x, y] = reached[next];
      const auto isNear = [x = x, y = y](const auto& p) { return std::abs(p[0] - x) <= 1 && std::abs(p[1] - y) <= 1; };
      std::copy_if(left.begin(), left.end(), std::back_inserter(reached), isNear);
      std::erase_if(left, isNear);
    }
    EXPECT_TRUE(left.empty());
    if (points.size() == 2 && i % 4 && i % 2 == 0) {
      const V d = points[1] - points[0];
      EXPECT_LE(static_cast<double>(reached.size() - 1), std::max(std::fabs(d.x()), std::fabs(d.y())) + 2);
    }
  }
}

TEST(RasterizeTest, WrongArgumentsChangeNoPel) {
  const Canvas canvas(qcPelRect(0, 0, 9, 9));
  const auto polygon = [](double x) { return qcPolyline({{1, 1}, {8, 2}, {x, 7}}, true); };
  qcShape::qcSampleParams uniform(0, 0, 5);
  uniform.uniformMode(true);
  const auto fill = [&](const qcShape& shape, int mode, const auto&... params) {
    qfRasterize(regionOf(shape), canvas.window(), 1, static_cast<Mode>(mode), params...);
  };
  const auto draw = [&](const qcShape& shape, double width, const auto&... params) {
    qfRasterizeContour(shape, canvas.window(), 1, width, params...);
  };
  for (const double bad : {kNan, kInf, -kInf}) {
    EXPECT_THROW(fill(polygon(bad), 0), qcShapesError::BadGeom);
    EXPECT_THROW(fill(qcCircle({3, bad}, 3), 0), qcShapesError::BadGeom);
    EXPECT_THROW(draw(polygon(bad), 0), qcShapesError::BadGeom);
    EXPECT_THROW(draw(polygon(3), bad), qcShapesError::BadParams);
  }
  EXPECT_THROW(draw(polygon(3), -1e-300), qcShapesError::BadParams);
  EXPECT_THROW(draw(polygon(3), 1, uniform), qcShapesError::BadParams);
  EXPECT_THROW(fill(polygon(3), 0, uniform), qcShapesError::BadParams);
  EXPECT_THROW(fill(polygon(3), 3), qcShapesError::BadParams);
  EXPECT_THROW(draw(qcLine({1, 0}, {0, 4}), 1), qcShapesError::InfiniteExtent);
  EXPECT_THROW(qfRasterize(regionOf(polygon(3)), Buffer(), 1), qcPel::UnboundWindow);
  EXPECT_THROW(qfRasterizeContour(polygon(3), Buffer(), 1), qcPel::UnboundWindow);
  qfRasterize(qcRegionTree(), canvas.window(), 1);
  draw(qcPolyline(), 1);
  qcRect negative({7, 7}, {1, 1});
  negative.size({-4, 1});
  for (const int mode : {0, 1, 2}) fill(negative, mode);
  canvas.expect([](long, long) { return 0; });
}

}  // namespace
