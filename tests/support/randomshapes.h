// Random shapes for tests that compare their operations with each other, and the short names of such tests.
#pragma once

#include "support/test.h"
#include "vnxstd/shapes.h"

using V = qcVector<2>;
using Points = std::vector<V>;
using Shape = qcPtrHandle<qcShape>;
using Params = qcShape::qcSampleParams;
using Result = qcShape::qcSampleResult;
constexpr double kPi = std::numbers::pi, kInf = std::numeric_limits<double>::infinity(), kNan = NAN;

#define EXPECT_NEAR_POINT(a, b, eps) EXPECT_LE((V(a) - V(b)).len(), eps)

/// The polylines of a shape's samples.
inline std::vector<qcPolyline> chainsOf(const qcShape& shape, const Params& params) {
  Result samples;
  shape.sample(params, samples);
  std::vector<qcPolyline> chains;
  samples.getPolylines(chains);
  return chains;
}

/// Points at most `spacing` apart along the boundary, by the perimeter alone.
inline Points walk(const qcShape& shape, double spacing) {
  const qcShapeInfo info(shape);
  const int n = std::max(1, static_cast<int>(std::ceil(info.perimeter() / spacing)));
  Points points;
  for (int i = 0; i <= n; ++i) points.push_back(shape.perimPoint(info, info.perimPos(info.perimeter() * i / n)));
  return points;
}

/// The same sequence of numbers, and of what is made from them, for the same seed.
class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  double real(double low, double high) { return std::uniform_real_distribution<double>(low, high)(engine_); }
  int integer(int low, int high) { return std::uniform_int_distribution<int>(low, high)(engine_); }
  bool flip() { return integer(0, 1) == 1; }
  V point() { return {real(-20, 20), real(-20, 20)}; }
  /// From 0 to size, both in whole numbers.
  V gridPoint(int size) { return V(integer(0, size), integer(0, size)); }
  Points gridPoints(int count, int size) {
    Points points;
    for (; count > 0; --count) points.push_back(gridPoint(size));
    return points;
  }
  /// A polyline that repeats some of its vertices.
  qcPolyline polyline(bool closed) {
    Points vertices;
    for (int n = integer(2, 9); n > 0; --n) {
      vertices.push_back(point());
      if (integer(0, 3) == 0) vertices.push_back(vertices.back());
    }
    return {vertices, closed};
  }
  qcRadian angle() { return qcRadian(real(-3, 3)); }
  qcEllipse2 ellipse() { return {point(), angle(), {real(0.5, 9), real(0.5, 9)}, integer(0, 1) == 1, angle()}; }
  /// Short ones and whole turns, in both directions.
  template <class Arc, class Ellipse>
  Shape arc(const Ellipse& ellipse) {
    const double span = integer(0, 4) == 0 ? 2 * kPi : real(0.1, 6.28);
    return new Arc(ellipse, angle(), qcRadian(integer(0, 1) ? span : -span));
  }
  /// Segments, polylines and arcs, of either class, each from the end of the one before; some in contours of their own.
  qcPtrHandle<qcContourTree> contour(bool closed) {
    const bool primitive = integer(0, 1);
    const qcPtrHandle<qcContourTree> tree(new qcContourTree(closed));
    qcContourTree nested;
    V end = point();
    for (int n = integer(1, 5); n > 0; --n) {
      Shape piece = new qcLineSeg(point(), point());
      const int kind = integer(0, 3);
      if (kind == 1) piece = new qcPolyline(polyline(false));
      if (kind == 2) piece = arc<qcEllipseArc2>(ellipse());
      if (kind == 3 && !primitive) piece = arc<qcEllipseArc>(ellipse().oldEllipse());
      piece = piece->mapShape(qcXform<2>({1, 0, 0, 1}, end - piece->startPoint()));
      if (kind == 3 && !primitive) piece = new qcEllipseArc(dynamic_cast<qcEllipseArc2&>(*piece).oldEllipseArc());
      end = piece->endPoint();
      (nested.isLeaf() && integer(0, 1) ? *tree : nested).addChild(*piece);
      if (nested.numChildren() == 2 || (n == 1 && !nested.isLeaf())) {
        tree->addChild(nested);
        nested.removeChildren();
      }
    }
    if (closed) tree->addChild(qcLineSeg(tree->child(tree->numChildren() - 1).endPoint(), tree->child(0).startPoint()));
    return tree;
  }
  /// Within a circle; its holes and islands are within smaller ones, side by side.
  qcPtrHandle<qcRegionTree> region(const V& center, double radius, bool hole, int levels) {
    Shape boundary = new qcCircle(center, radius * real(0.8, 0.95));
    const int kind = integer(0, 4);
    if (kind == 4) {
      const qc2XformLinear mirror(qcMatrix<2>(-1, 0, 0, 1), {});
      boundary = new qcMappedShape(new qcCircle({-center.x(), center.y()}, 0.9 * radius), mirror, false);
    }
    if (kind == 1) boundary = new qcEllipse2(center, angle(), {0.95 * radius, 0.8 * radius}, integer(0, 1), angle());
    if (kind == 2 || kind == 3) {
      Points star;
      for (int i = 0; i < 12; ++i) star.push_back(center + V(radius * real(0.85, 0.95), qcDegree(30 * i)));
      if (integer(0, 1)) std::reverse(star.begin(), star.end());
      boundary = new qcPolyline(star, true);
      star.push_back(star[0]);
      if (kind == 3) boundary = new qcContourTree({new qcPolyline(star, false)}, true, false);
    }
    const qcPtrHandle<qcRegionTree> tree(new qcRegionTree(*boundary, hole));
    for (const double side : {-0.4, 0.4}) {
      if (levels < 2 || integer(0, 2) == 0) continue;
      tree->addChild(*region(center + V(side * radius, 0), 0.38 * radius, !hole, levels - 1));
    }
    return tree;
  }
  qcXform<2> affine() { return {{real(-9, 9), real(-9, 9), real(-9, 9), real(-9, 9)}, point()}; }
  qcXform<2> similarity(bool rotates, bool mirrors) {
    return {point(), real(0.2, 4), mirrors ? -1.0 : 1.0, qcRadian(0), qcRadian(rotates ? real(-3, 3) : 0)};
  }

 private:
  std::mt19937 engine_;
};

/// Calls check(random numbers, seed) for as many seeds, until one fails.
template <class R, class Check>
void forSeeds(unsigned count, const Check& check) {
  for (unsigned seed = 0; seed < count && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    R random(seed);
    check(random, seed);
  }
}
