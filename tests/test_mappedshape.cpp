// Shapes seen through transforms of any kind, and what these tell about how much they bend.

#include "support/bytes.h"
#include "support/randomshapes.h"
#include "support/xforms.h"

namespace {

using Xform = qcPtrHandle_const<qc2XformBase>;

double norm(const qcMatrix<2>& m) {
  double largest = 0;
  for (int i = 0; i < 72; ++i) largest = std::max(largest, (m * V(1, qcRadian(i * 0.0873))).len());
  return largest;
}

// The bound is above all differences that are found, and for short reaches not far above.
TEST(BendBound, HoldsAndIsNotLoose) {
  std::mt19937 engine(11);
  std::uniform_real_distribution<double> unit(-1, 1);
  for (const auto& [name, xform] : transforms()) {
    SCOPED_TRACE(name);
    int finite = 0;
    for (const double reach : {1e-4, 0.01, 0.3, 3.0}) {
      for (int trial = 0; trial < 8; ++trial) {
        const V center(8 * unit(engine), 8 * unit(engine)), along(reach, qcRadian(3 * unit(engine)));
        const qcMatrix<2> middle = xform->linearXform(center).matrix();
        const double bound = xform->bendBound(center, along);
        if (std::isinf(bound)) continue;
        ++finite;
        double largest = 0;
        for (int i = 0; i < 100; ++i) {
          const V at = center + V(reach * std::sqrt(0.5 + 0.5 * unit(engine)), qcRadian(i * 0.2));
          largest = std::max(largest, norm(xform->linearXform(at).matrix() - middle));
        }
        EXPECT_GE(bound, largest * 0.9999 - 1e-12);
        for (const double width : {0.0, 0.1 * reach}) {
          const auto [most, across] = xform->bendAlong(center, along, width);
          const V aside = width / reach * along.perpendicular();
          for (int i = 0; i < 20; ++i) {
            const V at = center + 0.99 * unit(engine) * along + unit(engine) * aside;
            const qcMatrix<2> change = xform->linearXform(at).matrix() - middle;
            EXPECT_LE((change * along).len(), reach * (most * 1.0001 + 1e-12));
            EXPECT_LE((change * aside).len(), width * (across * 1.0001 + 1e-12));
          }
        }
        if (reach <= 0.01) {
          EXPECT_LE(bound, 12 * largest + 1e-9) << reach;
        }
      }
    }
    EXPECT_GE(finite, 16);
  }
}

// ---- shapes

using Held = qcMappedShape::Held;

std::vector<std::pair<std::string, Held>> shapes() {
  const qcEllipse2 ellipse(qcEllipse({1, 2}, {5, 0.5}, qcRadian(0.4)));
  const auto island = [](double radius, bool hole) {
    return qcPtrHandle<qcRegionTree>(new qcRegionTree(qcCircle({1, 0.5}, radius), hole));
  };
  const qcPtrHandle<qcRegionTree> region(new qcRegionTree(qcRect({-6, -5}, {13, 11}))), hole = island(4, true);
  hole->addChild(*island(2, false));
  region->addChild(*hole);
  const qcPtrHandle<qcContourTree> contour(new qcContourTree);
  contour->addChild(qcLineSeg({-5, 0}, {0, 0}));
  contour->addChild(
      qcEllipseArc2(qcEllipse2(qcEllipse({0, 2}, {2, 2}, qcRadian(0))), qcRadian(-1.5707963267948966), qcRadian(2.5)));
  return {{"segment", new qcLineSeg({-7, -3}, {7, 5})},
          {"circle", new qcCircle({0.5, 1}, 6)},
          {"rectangle", new qcRect({-4, -5}, {9, 8})},
          {"thin ellipse", new qcEllipse2(ellipse)},
          {"arc", new qcEllipseArc2(ellipse, qcRadian(1), qcRadian(-4))},
          {"polygon", new qcPolyline({{-5, -5}, {6, -4}, {1, 0}, {5, 6}, {-4, 4}}, true)},
          {"polyline", new qcPolyline({{-5, -5}, {6, -4}, {6, -4}, {1, 0}, {5, 6}}, false)},
          {"left-handed polygon", new qcPolyline({{-5, -5}, {-4, 4}, {6, 0}}, true)},
          {"contour", contour},
          {"region", region}};
}

// That the rest agrees with the boundary is a law of all shapes.
TEST(MappedShape, HasTheBoundaryOfTheImage) {
  const auto away = [](const qcPolyline& line, const V& p) { return line.nearestPoint(p).distance(p); };
  const auto xforms = transforms();
  for (const auto& [name, shape] : shapes()) {
    for (const std::size_t which : {0U, 1U, 8U, 9U, 10U, 12U}) {  // one of every class
      const auto& [what, xform] = xforms[which];
      SCOPED_TRACE(name + ", " + what);
      const qcMappedShape mapped(shape, *xform, false);
      // The image of each contour by points, 5000 altogether or more.
      Result samples;
      shape->sample(Params(0, qcShapeInfo(*shape).perimeter() / 5000, 1000000, false, false), samples);
      xform->mapPoints(samples.positions().data(), samples.positions().data(), samples.positions().size());
      std::vector<qcPolyline> images;
      samples.getPolylines(images);
      double length = 0;
      for (const qcPolyline& image : images) length += image.perimeter();
      const double slack = 8e-6 * length;  // chords between dense points
      const qcShapeInfo info(mapped);
      EXPECT_NEAR(info.perimeter(), length, 1e-5 * length);
      EXPECT_EQ(info.numPieces(), qcShapeInfo(*shape).numPieces());
      // The end of a closed element of a collection is not its start.
      const qcMappedShape alone(Held(new qcGeneralShapeTree({shape}, false)), *xform, false);
      const qcShapeInfo ofAlone(alone);
      EXPECT_LT(qcShapeInfo(*alone.subShape(ofAlone, {ofAlone.perimPos(1e9), 1})).perimeter(), 1e-9 * length);
      // On the boundary: the left side counts for open contours, for regions it is inside.
      for (long i = 777; i + 1 < images[0].numVertices(); i += 1331) {
        const V p = images[0].vertex(i), ahead = images[0].vertex(i + 1) - images[0].vertex(i - 1);
        const V left = p + 1e-6 / ahead.len() * ahead.perpendicular();
        if (mapped.isOpenContour()) {
          EXPECT_NEAR(mapped.windingAngle(p).plain(), mapped.windingAngle(left).plain(), 1e-3) << i;
        } else if (what.find("inverse") == std::string::npos) {  // whose points are exact to 1e-10 only
          EXPECT_EQ(mapped.within(p), !mapped.isMultipleContours_()) << i;
        }
      }
      for (const double tolerance : {1e-2, 1e-5}) {
        const std::vector<qcPolyline> chains = chainsOf(mapped, Params(tolerance, 0, 1000000, false, false));
        ASSERT_EQ(chains.size(), images.size());
        long points = 0;
        for (std::size_t k = 0; k < chains.size(); ++k) {
          points += chains[k].numVertices();
          for (long i = 0; i < images[k].numVertices(); i += 29)
            EXPECT_LE(away(chains[k], images[k].vertex(i)), tolerance);
          for (long i = 0; i < chains[k].numVertices(); i += chains[k].numVertices() / 20 + 1)
            EXPECT_LT(away(images[k], chains[k].vertex(i)), slack);
        }
        // Not many more than what deviates by the tolerance would need at the strongest bend.
        EXPECT_LT(static_cast<double>(points), 60 + 6 * length / std::sqrt(tolerance)) << tolerance;
      }
      if (!mapped.isOpenContour()) continue;
      EXPECT_LT((mapped.startPoint() - images[0].startPoint()).len(), 1e-9);
      EXPECT_NEAR((mapped.startAngle() - images[0].startAngle()).signedNorm().plain(), 0, 0.01);
      EXPECT_NEAR((mapped.endAngle() - images[0].endAngle()).signedNorm().plain(), 0, 0.01);
      EXPECT_NEAR(mapped.tangentRotation().plain(), images[0].tangentRotation().plain(), 0.02);
    }
  }
}

// Holes that touch the boundary around them still do so, but for what decomposition deviates.
TEST(MappedShape, DecomposesTouchingHoles) {
  const auto xforms = transforms();
  for (int i = 0; i < 12; ++i) {
    const qcPtrHandle<qcRegionTree> region(new qcRegionTree(qcCircle({0, 0}, 4)));
    region->addChild(qcRegionTree(qcCircle({2, qcRadian(0.5 * i)}, 2), true));
    const qcGeneralShapeTree both({Held(new qcRect), Held(region)}, false);
    const auto parts = qcMappedShape(Held(region), *xforms[0].second, false).decompose();
    const auto all = qcMappedShape(both.clone(), *xforms[0].second, false).decompose();
    for (const double x : {-2.0, 1.0, 3.0}) {
      const qcVector<2> p(x, qcRadian(0.5 * i)), image = xforms[0].second->mapPoint(p);
      EXPECT_EQ(parts->within(image), x < 0) << i;
      EXPECT_EQ(dynamic_cast<const qcGeneralShapeTree&>(*all).child(1).within(image), x < 0) << i;
    }
  }
}

// What is a jump in the image may be lost in rounding before it is mapped, and the other way round.
TEST(MappedShape, HasThePiecesOfItsSourceWhateverRoundingLeavesOfAJump) {
  for (const double at : {0.0, 1000.0}) {
    const V end(at, 0), point(at + 1e-12, 0), start(at + 2e-12, 0);
    const Held first(new qcLineSeg({at - 1, 0}, end)), last(new qcLineSeg(start, {at + 1, 1}));
    const Held contour(new qcContourTree({first, Held(new qcLineSeg(point, point)), last}, false, false));
    const qc2XformPerspective bent(qcMatrix<3>(1, 0, at == 0 ? 1000 : -at, 0, 1, 0, 0, 1e-3, 1));
    const qcMappedShape shape(contour, bent, false);
    const qcShapeInfo info(shape);
    const qcPerimPos place = info.perimPos(0.5 * (1 + info.perimeter()));
    EXPECT_NEAR_POINT(shape.subShape(info, {place, 0.1})->startPoint(), shape.perimPoint(info, place), 1e-9);
  }
}

// A point that is passed twice is seen from the left of the first time, whether vertices of the image lie on it or not.
TEST(MappedShape, WindsAroundPointsPassedTwice) {
  const std::vector<V> paths[] = {{{0, 0}, {6, 0}, {6, 4}, {2, 4}, {2, -4}},
                                  {{0, 0}, {2, 0}, {6, 0}, {6, 4}, {2, 4}, {2, 0}, {2, -4}},
                                  {{0, 0}, {2, 0}, {6, 0}, {6, -4}, {2, -4}, {2, 4}, {-3, 4}},
                                  {{0, 0}, {6, 0}, {0, 0}, {0, 4}, {2, 0}, {4, 4}},
                                  {{0, 3}, {2, 0}, {4, 3}, {4, -3}, {2, 0}, {0, -3}}};
  for (const auto& [name, xform] : transforms()) {
    SCOPED_TRACE(name);
    for (const std::vector<V>& path : paths) {
      const qcMappedShape mapped(Held(new qcPolyline(path, false)), *xform, false);
      const V p = xform->mapPoint({2, 0});
      const double eps = 1e-5;
      // Beside the first time, in the wedge on its left.
      const V before = xform->mapPoint(V(2, 0) + eps * (path[0] - V(2, 0))) - p;
      const V behind = xform->mapPoint(V(2, 0) + eps * ((path[0].y() > 0 ? path[2] : V(6, 0)) - V(2, 0))) - p;
      V aside = (behind / behind.len() - before / before.len()).perpendicular();
      if (path[0].y() > 0) aside = before + behind;
      const double expected = mapped.windingAngle(p + 1e-6 / aside.len() * aside).plain();
      for (const double off : {0.0, 1e-13, -1e-13})
        EXPECT_NEAR(mapped.windingAngle(p + V(off, 2 * off)).plain(), expected, 1e-3) << &path - paths << ' ' << off;
    }
  }
}

// Trees that hold mapped shapes, and points, are as exact as shapes seen through both transforms at once.
TEST(MappedShape, NestsInTreesWithoutLoss) {
  const auto xforms = transforms();
  std::mt19937 engine(9);
  std::uniform_real_distribution<double> unit(-1, 1);
  for (const std::size_t outer : {0U, 2U, 9U}) {
    const Xform &bend = xforms[outer].second,
                inner(new qc2XformPoly(2, {0, 1, 0, 0.02, 0.01, -0.02}, {0, 0, 1, 0.01, -0.02, 0.02}));
    std::vector<Held> parts, flat;
    for (const auto& [name, shape] : shapes()) {
      const auto small = [&](const qcShape& s) { return Held(s.mapShape({{0.5, 0, 0, 0.5}, {}})); };
      const Held point(new qcCircle(V(4 * unit(engine), 4 * unit(engine)), 0)), part(small(*shape));
      for (const Held& each : {point, part}) {
        parts.emplace_back(new qcMappedShape(each, *inner, false));
        flat.emplace_back(new qcMappedShape(parts.back(), *bend, true));
      }
    }
    const qcMappedShape nested(Held(new qcGeneralShapeTree(parts, false)), *bend, false);
    const qcGeneralShapeTree apart(flat, false);
    const qcShapeInfo info(nested), expected(apart);
    const double size = nested.boundingBox().size().len();
    EXPECT_EQ(info.numPieces(), expected.numPieces());
    EXPECT_NEAR(info.perimeter(), expected.perimeter(), 1e-9 * size);
    EXPECT_LE((nested.boundingBox().size() - apart.boundingBox().size()).len(), 3e-8 * size);
    for (int i = 0; i < 100; ++i) {
      const Held& point = parts[static_cast<std::size_t>(i) % parts.size() / 2 * 2];
      V p = bend->mapPoint(i % 2 ? V(8 * unit(engine), 8 * unit(engine)) : point->nearestPoint({}));
      const V nearest = nested.nearestPoint(p);
      EXPECT_NEAR((nearest - p).len(), (apart.nearestPoint(p) - p).len(), 1e-8 * size);
      const qcPerimPos place = nested.nearestPerimPos(info, p);
      EXPECT_LE((nested.perimPoint(info, place) - nearest).len(), 1e-9 * size);
      EXPECT_LE((apart.perimPoint(expected, place) - nearest).len(), 1e-8 * size) << place.index();
      EXPECT_LE((nested.subShape(info, {place, 0.1})->nearestPoint(nearest) - nearest).len(), 1e-8 * size);
    }
    Result samples, flatSamples;
    nested.sample(Params(0, 0.3, 1000000), samples);
    apart.sample(Params(0, 0.3, 1000000), flatSamples);
    ASSERT_EQ(samples.positions().size(), flatSamples.positions().size());
    for (std::size_t i = 0; i < samples.positions().size(); ++i)
      EXPECT_LE((samples.positions()[i] - flatSamples.positions()[i]).len(), 1e-8 * size) << i;
  }
  for (int i = 1; i < 20; ++i) {  // however what comes before is rounded, a rectangle ends where it starts
    const Held line(new qcLineSeg({0, 0}, {1 + 0.37 * i, 3})), box(new qcRect({5, 5}, {1 + 0.37 * i, 2}));
    const qc2XformPerspective bent(qcMatrix<3>(1, 0, 0, 0, 1, 0, 0.01, 0.02, 1));
    const qcMappedShape both(Held(new qcGeneralShapeTree({line, box}, false)), bent, false);
    const qcShapeInfo info(both);
    V at;
    qcRadian start, end;
    both.perimPointAndTangent(info, {1, 0}, at, start);
    both.perimPointAndTangent(info, {1, info.pieceLength(1)}, at, end);
    EXPECT_NEAR((end - start).signedNorm().plain(), 0, 1e-9) << i;
  }
}

// ---- transforms that are hard to follow

// The identity with a bump of a width at (at, 0), of which `bendBound` knows or not.
class Bump : public qc2XformBase {
 public:
  Bump(double at, double width, bool knows) : at_(at), width_(width), knows_(knows) {}
  V mapPoint(const V& p) const override { return {p.x(), p.y() + 3 * width_ * height(p.x())}; }
  bool isLinear() const override { return false; }
  qc2XformLinear linearXform(const V& p) const override {
    const double slope = -6 * (p.x() - at_) / width_ * height(p.x());
    return {qcMatrix<2>(1, 0, slope, 1), mapPoint(p) - V(p.x(), slope * p.x() + p.y())};
  }
  qcPtrHandle<qc2XformBase> clone() const override { return new Bump(*this); }
  double bendBound(const V& center, const V& reach) const override {
    if (!knows_) return qc2XformBase::bendBound(center, reach);
    const double off = std::fabs(center.x() - at_) - reach.len();
    const double nearest = std::max(0.0, off / width_), fade = nearest > 1 ? nearest * std::exp(-nearest * nearest) : 1;
    const double slope = linearXform(center).matrix().element(1, 0);
    return std::min(6 * fade + std::fabs(slope), 12 * reach.len() / width_);
  }

 private:
  double height(double x) const { return std::exp(-(x - at_) * (x - at_) / (width_ * width_)); }
  double at_, width_;
  bool knows_;
};

// However narrow the bump and wherever it lies, none of the questions passes over it.
TEST(MappedShape, NarrowBumpsAreFound) {
  std::mt19937 engine(5);
  std::uniform_real_distribution<double> unit(0, 1);
  for (const auto& [width, knows] : {std::pair(0.3, true), std::pair(1e-3, true), std::pair(1e-6, true),
                                     std::pair(1.0, false), std::pair(0.1, false)}) {
    for (int i = 0; i < 20; ++i) {
      const double at = 5 + 40 * unit(engine), top = 3 * width;
      SCOPED_TRACE(testing::Message() << width << ' ' << at);
      const qcMappedShape mapped(Held(new qcLineSeg({0, 0}, {100, 0})), Bump(at, width, knows), false);
      EXPECT_NEAR(mapped.boundingBox().height(), top, 100 * qcMappedShape::kPrecision);
      EXPECT_LT((mapped.nearestPoint({at, 1.5 * top}) - V(at, top)).len(), 1e-4 * width + 2e-5);
      Result samples;
      mapped.sample(Params(0.01 * width, 0, 100000), samples);
      double highest = 0;
      for (const V& p : samples.positions()) highest = std::max(highest, p.y());
      EXPECT_GE(highest, 0.99 * top);
      EXPECT_GT(qcShapeInfo(mapped).perimeter(), 100 + top);
      EXPECT_NEAR(mapped.tangentRotation().plain(), 0, 1e-6);
    }
  }
  const qc2XformPerspective flat(qcMatrix<3>(1, 0, 0, 0, 1, 0, 1e-17, 0, 1));  // bends by less than rounding errors
  EXPECT_NEAR_POINT(qcMappedShape(Held(new qcLineSeg({0, 0}, {8, 0})), flat, false).nearestPoint({2.5, 1}), V(2.5, 0),
                    1e-9);
}

// What needs the points of a shape.
std::vector<std::function<void()>> questions(const qcShape& shape, Result& samples) {
  const V origin;
  return {[&, origin] { shape.nearestPoint(origin); }, [&] { shape.boundingBox(); }, [&] { shape.decompose(); },
          [&] { shape.sample(Params(0.1, 0, 1000000), samples); }, [&] { qcShapeInfo whole(shape); }};
}

// A shape across the line at infinity has no extent; beside it, however close, it has.
TEST(MappedShape, LineAtInfinity) {
  const qc2XformPerspective xform(qcMatrix<3>(1, 0, 0, 0, 1, 0, 0.1, 0, 1));  // at x = -10
  Result samples;
  for (const double left : {-11.0, -10.0, -10.5, -10.0000001}) {
    const qcMappedShape mapped(Held(new qcRect({left, -1}, {15, 2})), xform, false);
    for (const auto& ask : questions(mapped, samples)) EXPECT_THROW(ask(), qc2XformPerspectiveDefs::NumericalError);
    EXPECT_THROW(mapped.within({0, 0}), qc2XformPerspectiveDefs::NumericalError);
    // The centre of the box has an image, and the rest is not asked for.
    EXPECT_TRUE(mapped.isRightHanded());
    EXPECT_GT(mapped.perimeter(), 0);
  }
  const qcMappedShape close(Held(new qcLineSeg({-9.999, 0}, {-9, 1})), xform, false);
  EXPECT_NEAR(close.boundingBox().width(), 99990.0 - 90.0, 1e-3);
  EXPECT_NEAR(qcShapeInfo(close).perimeter(), std::hypot(99900, 10), 1e-3);  // lines stay straight
  EXPECT_THROW(close.sample(Params(1e-3, 1, 50), samples), qcShapesError::SampleOverflow);
  EXPECT_EQ(samples.numChains(), 0);
}

// A line beside the one at infinity stays straight, as does one across a steep valley; what seems to bend without end
// is not followed for all that.
TEST(MappedShape, BendsAlongItsWayOnly) {
  const Held line(new qcLineSeg({0, 0}, {1, 1}));
  const qcMappedShape beside(line, qc2XformPerspective(qcMatrix<3>(1, 0, 0, 0, 1, 0, -1, 1, 1e-6)), false);
  const qcMappedShape valley(line, qc2XformPoly(2, {0, 1, 0, 1e12, -2e12, 1e12}, {0, 0, 1, 0, 0, 0}), false);
  EXPECT_NEAR_POINT(beside.boundingBox().size(), V(1e6, 1e6), 1e-3);
  EXPECT_NEAR(qcShapeInfo(beside).perimeter(), 1e6 * std::sqrt(2), 1e-2);
  EXPECT_NEAR_POINT(valley.boundingBox().size(), V(1, 1), 1e-3);
  const qc2XformPoly deep(2, {-1e12, 1, 0, 1e12, 0, 1e12}, {0, 0, 1, 0, 0, 0});  // zero on the circle, and steep
  const qcMappedShape around(Held(new qcCircle({0, 0}, 1)), deep, false);
  EXPECT_THROW(around.boundingBox(), qc2XformPerspectiveDefs::NumericalError);
  qcGeneralShapeTree rings;
  for (int i = 1; i <= 300; ++i) rings.addChild(qcCircle({0, 0}, i));
  const qc2XformPerspective hardly(qcMatrix<3>(1, 0, 0, 0, 1, 0, 1e-5, 2e-5, 1));
  EXPECT_FALSE(qcMappedShape(Held(new qcGeneralShapeTree(rings)), hardly, false).decompose()->isEmpty());
}

// ---- building

TEST(MappedShape, CollapsesAndMeasuresByTheExpansion) {
  const Held circle(new qcCircle({2, 0}, 1));
  const qc2XformLinear twice(qcMatrix<2>(2, 0, 0, 2), {}), mirror(qcMatrix<2>(-1, 0, 0, 1), {});
  const qc2XformPerspective bends(qcMatrix<3>(1, 0, 0, 0, 1, 0, 0.1, 0, 1));
  EXPECT_DOUBLE_EQ(qcMappedShape(circle, twice, false).perimeter(), 2 * qcRadian::turn);
  EXPECT_DOUBLE_EQ(qcMappedShape(circle, mirror, false).perimeter(), qcRadian::turn);
  EXPECT_FALSE(qcMappedShape(circle, mirror, false).isRightHanded());
  const Held both = qcMappedShape(Held(new qcGeneralShapeTree({circle}, false)), mirror, false).explicitShape();
  EXPECT_FALSE(dynamic_cast<const qcShapeTree&>(*both).child(0).isRightHanded());
  // Of all pairs of transforms, nested and collapsed are the same shape, one with a plain shape inside.
  const std::initializer_list<const qc2XformBase*> xforms = {&twice, &mirror, &bends};
  for (const qc2XformBase* first : xforms) {
    for (const qc2XformBase* second : xforms) {
      const Held inner(new qcMappedShape(circle, *first, false));
      const qcMappedShape nested(inner, *second, false), collapsed(inner, *second, true);
      EXPECT_EQ(collapsed.shape(), circle);
      EXPECT_EQ(nested.underlyingShape(), circle);
      EXPECT_EQ(qcMappedShape(nested.clone(), mirror, true).shape()->perimeter(), circle->perimeter());
      const bool linear = first->isLinear() && second->isLinear();
      EXPECT_EQ(dynamic_cast<const qc2XformLinear*>(collapsed.mapXform().rep()) != nullptr, linear);
      const V p(1, 0.7), image = second->mapPoint(first->mapPoint(p));
      EXPECT_LT((nested.overallMapXform()->mapPoint(p) - image).len(), 1e-15);
      EXPECT_LT((collapsed.mapXform()->mapPoint(p) - image).len(), 1e-15);
      EXPECT_FALSE(nested.equal_(collapsed));
      EXPECT_TRUE(qcMappedShape(circle, qc2XformLinear(qcXform<2>().inverse()), false)
                      .equal_(qcMappedShape(circle, qc2XformLinear(), false)));
      EXPECT_TRUE(nested.equal_(*qcMappedShape(inner->clone(), *second, false).clone()));
    }
  }
  // The expansion at the centre of the box: w = 1.2 there.
  const qcMatrix<2> at = qcMappedShape(circle, bends, false).overallMapXformLinear().matrix();
  EXPECT_DOUBLE_EQ(at.element(0, 0) * 1.44 + at.element(1, 1) * 1.2, 2);
  const std::pair<qcMatrix<2>, bool> table[] = {
      {{1, 0, 0, 1.02}, true},  {{1, 0, 0, -1.02}, true}, {{1, 0, 0, 1.05}, false}, {{3, 0.03, 0, 3}, true},
      {{3, 0.06, 0, 3}, false}, {{0, 0, 0, 0}, false},    {{1, 1, 1, 1}, false},    {{0, -2, 2, 0}, true}};
  for (const auto& [m, preserves] : table) {
    EXPECT_EQ(qfIsAnglePreserving({m, {}}, qcMappedShape::kAspectTolerance, qcMappedShape::kShearTolerance), preserves);
    const double x = std::hypot(m.element(0, 0), m.element(1, 0)), y = std::hypot(m.element(0, 1), m.element(1, 1));
    const qcMappedShape mapped(Held(new qcRect({0, 0}, {1, 1})), qc2XformLinear(m, {}), false);
    EXPECT_DOUBLE_EQ(mapped.perimeter(), preserves ? 4 * x : 2 * (x + y));
    EXPECT_DOUBLE_EQ(qcShapeInfo(mapped).perimeter(), 2 * (x + y));
  }
}

TEST(MappedShape, EmptyInfiniteAndMissingShapes) {
  const qc2XformPerspective bends(qcMatrix<3>(1, 0, 0, 0, 1, 0, 0.1, 0, 1));
  EXPECT_THROW(qcMappedShape(Held(), bends, true), qcBadPointer);
  qcMappedShape none;
  Result samples;
  for (const auto& ask : questions(none, samples)) EXPECT_THROW(ask(), qcBadPointer);
  EXPECT_THROW(none.mapShape({}), qcBadPointer);
  EXPECT_THROW(none.shape(Held()), qcBadPointer);
  EXPECT_EQ(qcMappedShape(Held(new qcPolyline), bends, false).perimeter(), 0);
  const Held line(new qcLine(V(1, 1)));
  const qcMappedShape turned(line, qc2XformLinear(qcMatrix<2>(0, -1, 1, 0), {1, 0}), false);
  EXPECT_LT((turned.nearestPoint({5, 0}) - V(3, -2)).len(), 1e-12);
  // A single point, and a closed polygon that is one.
  for (const bool closed : {false, true}) {
    const qcMappedShape point(Held(new qcPolyline({{1, 2}, {1, 2}}, closed)), bends, false);
    EXPECT_LT((point.nearestPoint({9, 9}) - V(1 / 1.1, 2 / 1.1)).len(), 1e-15);
    EXPECT_EQ(point.boundingBox().size(), V());
    EXPECT_EQ(qcShapeInfo(point).perimeter(), 0);
    samples.reset();
    point.sample(Params(0.1, 0.1), samples);
    EXPECT_EQ(samples.positions().size(), 1U);
    EXPECT_THROW(point.sample(Params(0.1, 0, 9, true), samples), qcShapesError::BadParams);
  }
}

// None sees the half of what another one computes.
TEST(MappedShape, IsAskedByThreads) {
  const auto xform = transforms()[0].second;
  for (int i = 0; i < 100; ++i) {
    const qcMappedShape shape(Held(new qcCircle({2, 0}, 1)), *xform, false);
    const auto ask = [&shape](double& sum) {
      const qcShapeInfo info(shape);
      sum = info.perimeter() + shape.boundingBox().width() + shape.subShape(info, {{0, 0.1}, 0.2})->endPoint().x() +
            shape.explicitShape()->perimeter();
    };
    double first = 0, second = 1;
    std::jthread other(ask, std::ref(first));
    ask(second);
    other.join();
    EXPECT_EQ(first, second);
  }
}

TEST(MappedShape, ThousandsOfLevels) {
  Held shape(new qcLineSeg({0, 0}, {1, 0}));
  for (int i = 0; i < 100000; ++i) shape = Held(new qcMappedShape(shape, qc2XformLinear(qcMatrix<2>(), {1, 0}), false));
  EXPECT_LT((shape->boundingBox().ul() - V(100000, 0)).len(), 1e-9);
  const Shape copy = shape->clone();
  EXPECT_TRUE(copy->equal_(*shape));
}

TEST(MappedShape, LoadedInPlaceForgetsWhatItComputed) {
  const Held circle(new qcCircle({2, 0}, 1));
  qcMappedShape target(circle, qc2XformLinear(qcMatrix<2>(5, 0, 0, 5), {}), false);
  EXPECT_NEAR(target.boundingBox().width(), 10, 1e-12);
  load(archived(kBig, false, qcMappedShape(circle, qc2XformPerspective(), false)), target);
  EXPECT_NEAR(target.boundingBox().width(), 2, 1e-9);
  qcMemoryArchive archive(kBig, false);
  archive << qcMappedShape() << qcMappedShape();
  qcMemoryArchive in(archive.storage(), static_cast<long>(archive.bytes().size()), false);
  for (int i = 0; i < 2; ++i) EXPECT_NO_THROW(in >> std::make_unique<qcMappedShape>().operator*()) << "shares nothing";
}

// No shape is inside itself, whether built or loaded.
TEST(MappedShape, DoesNotHoldItself) {
  const qcPtrHandle<qcMappedShape> inner(new qcMappedShape(Held(new qcCircle), qc2XformLinear(), false));
  const qcPtrHandle<qcGeneralShapeTree> tree(new qcGeneralShapeTree({Held(inner)}, false));
  const qcPtrHandle<qcMappedShape> outer(new qcMappedShape(tree, qc2XformLinear(), false));
  for (const Held& shape : {Held(inner), Held(tree), Held(outer)})
    EXPECT_THROW(inner->shape(shape), qcShapesError::BadGeom);
  EXPECT_THROW(*inner = *outer, qcShapesError::BadGeom);
  EXPECT_THROW(tree->addChild(Held(outer), false), qcShapesError::BadGeom);
  EXPECT_TRUE(inner->shape()->isRegion());
  outer->shape(Held(new qcRect));
  inner->shape(outer);
  // Assigned what it alone holds.
  outer->shape(Held(new qcMappedShape(Held(new qcCircle({0, 0}, 1)), qc2XformLinear(), false)));
  *outer = static_cast<const qcMappedShape&>(*outer->shape());
  EXPECT_DOUBLE_EQ(outer->perimeter(), qcRadian::turn);
}

}  // namespace
