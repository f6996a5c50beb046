// Every class of shapes, and every operation of their interface: what works, what the geometry does not allow, and the
// laws that hold for all of them.

#include "support/bytes.h"
#include "support/randomshapes.h"
#include "support/xforms.h"
#include "vnxstd/pelbuf.h"

namespace {

// ---- which operation of which shape works

/// Calls every operation and notes what it comes to: a dot, or a letter for the error. The groups: length and places;
/// open contours; regions; shapes made from this one; samples.
std::string outcomes(const qcShape& shape) {
  const auto outcome = [](const std::function<void()>& act) {
    static constexpr std::pair<const wchar_t*, char> kLetters[] = {
        {L"NotOpenContour", 'O'}, {L"NotRegion", 'R'}, {L"NotReversible", 'V'},
        {L"InfiniteExtent", 'I'}, {L"NoTangent", 'T'}, {L"EmptyShape", 'E'},
        {L"BadParams", 'P'},      {L"BadIndex", 'B'},  {L"BadGeom", 'G'}};
    const std::wstring error = errorOf(act);
    if (error.empty()) return '.';
    for (const auto& [name, letter] : kLetters)
      if (error.starts_with(std::wstring(L"qcShapesError::") + name)) return letter;
    ADD_FAILURE() << std::string(error.begin(), error.end());
    return '?';
  };
  qcShapeInfo info;
  qcClipInfo clipInfo;
  const V p(1.5, 1.25);
  const qcPerimPos place(0, 0.25);
  const qcXform<2> shear({1, 2, 0, 3}, {4, 5});
  const qcPolyline window({{-3, -3}, {2, -3}, {2, 4}, {-3, 4}}, true);
  V point;
  qcRadian tangent;
  Result result;
  Params params(0.5, 0.5, 1000), withTangents(0, 0, 1000, true), uniform(0, 0, 5);
  uniform.uniformMode(true);
  const std::function<void()> groups[][8] = {
      {[&] { shape.boundingBox(); }, [&] { shape.nearestPoint(p); }, [&] { shape.perimeter(); },
       [&] { info = qcShapeInfo(shape); }, [&] { shape.nearestPerimPos(info, p); },
       [&] { shape.perimPoint(info, place); }, [&] { shape.perimPointAndTangent(info, place, point, tangent); }},
      {[&] { shape.startPoint(); }, [&] { shape.endPoint(); }, [&] { shape.startAngle(); }, [&] { shape.endAngle(); },
       [&] { shape.tangentRotation(); }, [&] { shape.windingAngle(p); }},
      {[&] { shape.isRightHanded(); }, [&] { shape.within(p); }},
      {[&] { shape.clone(); }, [&] { shape.mapShape(shear); }, [&] { shape.reverse(); }, [&] { shape.reverse_(); },
       [&] { shape.decompose(); }, [&] { shape.subShape(info, std::pair(place, 0.5)); },
       [&] { shape.clip_(window, clipInfo); }, [&] { shape.cloneThat_(window); }},
      {[&] { shape.sample(params, result); }, [&] { result.reset(), shape.sample(withTangents, result); },
       [&] { result.reset(), shape.sample(uniform, result); }}};
  std::string all;
  const bool flags[] = {shape.isOpenContour(), shape.isRegion(),     shape.isFinite(),     shape.isEmpty(),
                        shape.hasTangent(),    shape.isDecomposed(), shape.isReversible(), shape.isMultipleContours_()};
  for (int i = 0; i < 8; ++i) all.push_back(flags[i] ? "ORFETDVM"[i] : '-');
  for (const auto& group : groups) {
    all.push_back(' ');
    for (const auto& act : group)
      if (act) all.push_back(outcome(act));
  }
  return all;
}

template <class Tree, class... Rest>
Shape treeOf(const std::vector<Shape>& children, const Rest&... rest) {
  Tree* const tree = new Tree(rest...);
  const Shape held(tree);
  for (const Shape& child : children) tree->addChild(*child);
  return held;
}

TEST(AllShapes, AnswerOrSayWhyNot) {
  const V o(0, 0), a(1, 0), b(1, 2);
  const Shape segment(new qcLineSeg(o, a)), arc(new qcEllipseArc2(qcEllipse2(), qcRadian(0), qcRadian(2)));
  const Shape back(new qcLineSeg(arc->endPoint(), o)), disc(new qcCircle(o, 5)), line(new qcLine(a, b));
  const Shape hole(new qcRegionTree(qcCircle(o, 2), true)), region = treeOf<qcRegionTree>({hole}, *disc);
  const qcEllipse2 flat(o, qcRadian(1), {2, 0}, true, qcRadian(0));
  const qc2XformPerspective bend(qcMatrix<3>(1, 0.1, 3, -0.2, 0.9, 4, 0.02, 0.01, 1));
  const qc2XformLinear turn(qcXform<2>({0, -2, 1, 1}, {3, 4}));
  const std::tuple<const char*, Shape, const char*> rows[] = {
      {"segment", segment, "O-F-TDV- ....... ...... RR ........ ..."},
      {"segment, point", new qcLineSeg(a, a), "O-F--DV- ......T ..TT.. RR ........ .T."},
      {"line", line, "----T-V- I.IIIII OOOOOO RR ....II.. III"},
      {"line by angle and distance", new qcFLine(a, b), "----T--- I.IIIII OOOOOO RR ..VVII.. III"},
      {"circle", disc, "-RF-T--- ....... OOOOOO .. ..VV.... ..P"},
      {"circle, point", new qcCircle(a, 0), "-RF----- ......T OOOOOO .. ..VV.... .TP"},
      {"ellipse", new qcEllipse2, "-RF-T-V- ....... OOOOOO .. ........ ..P"},
      {"ellipse, flat", new qcEllipse2(flat), "-RF---V- ......T OOOOOO .. ........ .TP"},
      {"ellipse, point", new qcEllipse2(a, {}, {0, 0}, true, {}), "-RF---V- ......T OOOOOO .. ........ .TP"},
      {"older ellipse", new qcEllipse, "-RF-T--- ....... OOOOOO .. ..VV.... ..P"},
      {"older ellipse, flat", new qcEllipse(a, {0, 2}, {}), "-RF----- ......T OOOOOO .. ..VV.... .TP"},
      {"arc", arc, "O-F-TDV- ....... ...... RR ........ ..."},
      {"arc, once round", new qcEllipseArc2, "O-F-TDV- ....... ...... RR ........ ..."},
      {"arc, flat", new qcEllipseArc2(flat, qcRadian(0), qcRadian(1)), "O-F--DV- ......T ..TT.. RR ........ .T."},
      {"arc, point", new qcEllipseArc2(qcEllipse2(), qcRadian(1), qcRadian(0)),
       "O-F--DV- ......T ..TT.. RR ........ .T."},
      {"older arc", new qcEllipseArc, "O-F-T-V- ....... ...... RR ........ ..."},
      {"rectangle", new qcRect(o, b), "-RF-T-V- ....... OOOOOO .. ........ ..P"},
      {"rectangle, flat", new qcRect(o, a), "-RF-T-V- ....... OOOOOO .. ........ ..P"},
      {"rectangle, point", new qcRect(a, o), "-RF---V- ......T OOOOOO .. ........ .TP"},
      {"general rectangle", new qcGenRect(o, a, b), "-RF-T-V- ....... OOOOOO .. ........ ..P"},
      {"general rectangle, point", new qcGenRect(a, o, o), "-RF---V- ......T OOOOOO .. ........ .TP"},
      {"affine rectangle", new qcAffineRectangle, "-RF-T-V- ....... OOOOOO .. ........ ..P"},
      {"affine rectangle, flat", new qcAffineRectangle(qcXform<2>({2, 4, 1, 2}, a)),
       "-RF-T-V- ....... OOOOOO .. ........ ..P"},
      {"polyline, open", new qcPolyline({o, a, a, b}, false), "O-F-TDV- ....... ...... RR ........ ..P"},
      {"polyline, closed", new qcPolyline({o, a, a, b}, true), "-RF-TDV- ....... OOOOOO .. ........ ..P"},
      {"polyline, one vertex", new qcPolyline({a}, false), "O-F--DV- ......T ..TT.. RR ........ .TP"},
      {"polyline, one vertex, closed", new qcPolyline({a}, true), "-RF--DV- ......T OOOOOO .. ........ .TP"},
      {"polyline, empty", new qcPolyline, "--FE-DV- EE..EEE OOOOOO RR .....E.. ..P"},
      {"polyline, empty, closed", new qcPolyline(true), "--FE-DV- EE..EEE OOOOOO RR .....E.. ..P"},
      {"contour, open", treeOf<qcContourTree>({segment, arc}), "O-F-TDV- ....... ...... RR ........ ..."},
      {"contour, closed", treeOf<qcContourTree>({segment, arc, back}, true), "-RF-TDV- ....... OOOOOO .. ........ ..."},
      {"contour, of one point", treeOf<qcContourTree>({new qcPolyline({a}, false)}),
       "O-F--DV- ......T ..TT.. RR ........ .T."},
      {"contour, empty", new qcContourTree, "--FE-DV- EE..EEE OOOOOO RR .....E.. ..."},
      {"contour, empty, closed", new qcContourTree(true), "--FE-DV- EE..EEE OOOOOO RR .....E.. ..."},
      {"region", region, "-RF-T-VM ....... OOOOOO .. ........ ..P"},
      {"region, no holes", new qcRegionTree(qcPolyline({o, a, b}, true)), "-RF-TDV- ....... OOOOOO .. ........ ..P"},
      {"region, point", new qcRegionTree(qcCircle(a, 0)), "-RF---V- ......T OOOOOO .. ........ .TP"},
      {"region, empty", new qcRegionTree, "--FE-DV- EE..EEE OOOOOO RR .....E.. ..P"},
      {"collection", treeOf<qcGeneralShapeTree>({segment, disc, hole}), "--F-T--M ....... OOOOOO RR ..VV.... ..P"},
      {"collection of one", treeOf<qcGeneralShapeTree>({segment}), "--F-TDV- ....... OOOOOO RR ........ ..P"},
      {"collection with a line", treeOf<qcGeneralShapeTree>({segment, line}),
       "----T-VM I.IIIII OOOOOO RR ....II.. IIP"},
      {"collection, empty", new qcGeneralShapeTree, "--FE-DV- EE..EEE OOOOOO RR .....E.. ..P"},
      {"mapped segment", new qcMappedShape(segment, bend, false), "O-F-TDV- ....... ...... RR ........ ..."},
      {"mapped circle", new qcMappedShape(disc, bend, false), "-RF-T--- ....... OOOOOO .. ..VV.... ..P"},
      {"mapped circle, linearly", new qcMappedShape(disc, turn, false), "-RF-T--- ....... OOOOOO .. ..VV.... ..P"},
      {"mapped ellipse", new qcMappedShape(new qcEllipse2, bend, false), "-RF-T-V- ....... OOOOOO .. ........ ..P"},
      {"mapped line", new qcMappedShape(line, bend, false), "----T-V- IIIIIII OOOOOO RR ....III. III"},
      {"mapped line, linearly", new qcMappedShape(line, turn, false), "----T-V- I.IIIII OOOOOO RR ....II.. III"},
      {"mapped empty", new qcMappedShape(new qcPolyline, bend, false), "--FE-DV- EE..EEE OOOOOO RR .....E.. ..P"},
      {"mapped region", new qcMappedShape(region, bend, false), "-RF-T-VM ....... OOOOOO .. ........ ..P"},
      {"mapped collection", new qcMappedShape(treeOf<qcGeneralShapeTree>({segment, disc, hole}), bend, false),
       "--F-T--M ....... OOOOOO RR ..VV.... ..P"},
      {"collection of empty", treeOf<qcGeneralShapeTree>({new qcPolyline, new qcGeneralShapeTree}),
       "--FE-DV- EE..EEE OOOOOO RR .....E.. ..P"}};
  for (const auto& [name, shape, expected] : rows) EXPECT_EQ(outcomes(*shape), expected) << name;
}

// ---- laws for all of them

/// One way of making a finite shape.
struct Kind {
  const char* name;
  std::function<Shape(Random&)> make;
  unsigned seeds = 60;
};
std::ostream& operator<<(std::ostream& out, const Kind& kind) { return out << kind.name; }

const qcRect kUpright({}, {1, 2});
const Kind kKinds[] = {
    {"segment", [](Random& r) -> Shape { return new qcLineSeg(r.point(), r.point()); }},
    {"circle", [](Random& r) -> Shape { return new qcCircle(r.point(), r.real(0.5, 9)); }},
    {"ellipse", [](Random& r) -> Shape { return new qcEllipse2(r.ellipse()); }},
    {"older ellipse", [](Random& r) -> Shape { return new qcEllipse(r.ellipse().oldEllipse()); }},
    {"arc", [](Random& r) { return r.arc<qcEllipseArc2>(r.ellipse()); }},
    {"older arc", [](Random& r) { return r.arc<qcEllipseArc>(r.ellipse().oldEllipse()); }},
    {"rectangle", [](Random& r) -> Shape { return new qcRect(r.point(), r.point()); }},
    {"general rectangle", [](Random& r) -> Shape { return new qcGenRect(kUpright.map(r.affine())); }},
    {"affine rectangle", [](Random& r) -> Shape { return new qcAffineRectangle(r.affine()); }},
    {"open polyline", [](Random& r) -> Shape { return new qcPolyline(r.polyline(false)); }},
    {"closed polyline", [](Random& r) -> Shape { return new qcPolyline(r.polyline(true)); }},
    {"open contour", [](Random& r) -> Shape { return r.contour(false); }},
    {"closed contour", [](Random& r) -> Shape { return r.contour(true); }},
    {"region", [](Random& r) -> Shape { return r.region(r.point(), r.real(5, 18), r.integer(0, 1), 3); }},
    {"collection",
     [](Random& r) -> Shape {
       qcGeneralShapeTree tree;
       for (int n = r.integer(1, 4); n > 0; --n) tree.addChild(*kKinds[r.integer(0, n > 1 ? 13 : 14)].make(r));
       return tree.clone();
     }},
    {"mapped linearly",
     [](Random& r) -> Shape {
       const qcXform<2> xform(r.point(), r.angle(), r.angle(), r.real(0.5, 2), r.real(0.5, 2));
       return new qcMappedShape(kKinds[r.integer(0, 14)].make(r), qc2XformLinear(xform), r.integer(0, 1));
     }},
    {"mapped by a perspective",
     [](Random& r) -> Shape {
       const qcMatrix<3> matrix(1, 0.1, 3, -0.2, 0.9, 4, r.real(-1, 1) * 3e-3, r.real(-1, 1) * 3e-3, 1);
       return new qcMappedShape(kKinds[r.integer(0, 15)].make(r), qc2XformPerspective(matrix), r.integer(0, 1));
     },
     10},
    {"mapped by any class",
     [](Random& r) -> Shape {
       static const NamedXforms xforms = transforms();
       const Shape shape = kKinds[r.integer(0, 14)].make(r);
       const qcRect box = shape->boundingBox();
       const double scale = 14 / box.size().len();
       const auto& xform = xforms[static_cast<std::size_t>(r.integer(1, static_cast<int>(xforms.size()) - 1))].second;
       const V middle = box.origin() + box.size() / 2;
       return new qcMappedShape(shape->mapShape({{scale, 0, 0, scale}, -scale * middle}), *xform, r.integer(0, 1));
     },
     9},
    {"decomposed", [](Random& r) { return kKinds[r.integer(0, 15)].make(r)->decompose(); }}};

class ShapeLaws : public testing::TestWithParam<Kind> {
 protected:
  /// Runs a law on many random shapes.
  void forMany(void (*law)(const qcShape&, const qcShapeInfo&, Random&)) {
    for (unsigned seed = 1; seed <= GetParam().seeds; ++seed) {
      SCOPED_TRACE(testing::Message() << "seed " << seed);
      Random random(seed);
      try {
        const Shape shape = GetParam().make(random);
        law(*shape, qcShapeInfo(*shape), random);
      } catch (const qcException& error) {
        const std::wstring text = error.message(true);
        ADD_FAILURE() << std::string(text.begin(), text.end());
      }
      if (HasFailure()) return;
    }
  }
};
INSTANTIATE_TEST_SUITE_P(Kinds, ShapeLaws, testing::ValuesIn(kKinds));

/// Of the class, or seen through a transform.
template <class T>
bool is(const qcShape& shape) {
  const auto* mapped = dynamic_cast<const qcMappedShape*>(&shape);
  return dynamic_cast<const T*>(mapped ? &*mapped->underlyingShape() : &shape);
}
/// A shape that holds others of classes that reversing may change.
bool isHolder(const qcShape& shape) {
  return is<qcGeneralShapeTree>(shape) || dynamic_cast<const qcMappedShape*>(&shape);
}
bool isBent(const qcShape& shape) {
  const auto* mapped = dynamic_cast<const qcMappedShape*>(&shape);
  return mapped && !mapped->overallMapXform()->isLinear();
}
double lengthOf(const qcShape& shape) { return qcShapeInfo(shape).perimeter(); }
/// One boundary or open curve, which a position runs along.
bool isOneContour(const qcShape& shape) {
  return is<qcRegionTree>(shape) ? !shape.isMultipleContours_() : !is<qcGeneralShapeTree>(shape);
}
/// A region without an area, of which nothing but its boundary is left.
bool isFlat(const qcShape& shape) {
  if (const auto* mapped = dynamic_cast<const qcMappedShape*>(&shape)) return isFlat(*mapped->underlyingShape());
  if (!shape.isRegion()) return false;
  if (is<qcPolyline>(shape)) return static_cast<const qcPolyline&>(shape).area() < 1e-6;
  return is<qcContourTree>(shape) && std::fabs(static_cast<const qcContourTree&>(shape).area()) < 1e-6;
}
/// The boundary of circles and regions has a direction of its own.
bool isOriented(const qcShape& shape) {
  return shape.isRegion() && !isFlat(shape) && !dynamic_cast<const qcCircle*>(&shape) &&
         !dynamic_cast<const qcRegionTree*>(&shape);
}
/// The boundary does not cross itself.
bool isSimple(const qcShape& shape) {
  return shape.isRegion() && !isFlat(shape) && !is<qcPolyline>(shape) && !is<qcContourTree>(shape);
}
/// An ellipse decomposes into an arc that runs once round.
bool isRound(const qcShape& shape) {
  return !isBent(shape) && shape.isRegion() && (is<qcCircle>(shape) || is<qc_EllipseShape>(shape));
}
bool isStraight(const qcShape& shape) {
  const auto* mapped = dynamic_cast<const qcMappedShape*>(&shape);
  if (isBent(shape) && !dynamic_cast<const qc2XformPerspective*>(mapped->overallMapXform().rep())) return false;
  return is<qcLineSeg>(shape) || is<qcPolyline>(shape) || is<qc_ParallelogramShape>(shape);
}
V at(const qcShape& shape, double distance) {
  const qcShapeInfo info(shape);
  return shape.perimPoint(info, info.perimPos(distance));
}
Shape otherDirection(const qcShape& shape) { return shape.isReversible() ? shape.reverse() : shape.clone(); }

TEST_P(ShapeLaws, NearestPointIsTheNearestOfADenseWalk) {
  forMany([](const qcShape& shape, const qcShapeInfo& info, Random& random) {
    const double spacing = 0.05;
    const std::vector<V> points = walk(shape, spacing);
    for (int i = 0; i < 5; ++i) {
      const V p = random.point(), nearest = shape.nearestPoint(p);
      double least = kInf;
      for (const V& q : points) least = std::min(least, p.distance(q));
      EXPECT_LE(p.distance(nearest), least + 1e-9);
      EXPECT_GE(p.distance(nearest), least - spacing);
      EXPECT_NEAR_POINT(shape.nearestPoint(nearest), nearest, 1e-9);
      EXPECT_NEAR(shape.decompose()->nearestPoint(p).distance(p), p.distance(nearest), isBent(shape) ? 1e-4 : 1e-9);
      EXPECT_NEAR_POINT(shape.perimPoint(info, shape.nearestPerimPos(info, p)), nearest, 1e-9);
    }
  });
}

TEST_P(ShapeLaws, PositionsRunAlongTheBoundaryByArcLength) {
  forMany([](const qcShape& shape, const qcShapeInfo& info, Random& random) {
    const double total = info.perimeter();
    EXPECT_NEAR(total, shape.perimeter(), dynamic_cast<const qcMappedShape*>(&shape) ? total / 5 : 1e-9);
    if (isOneContour(shape)) {
      EXPECT_NEAR_POINT(at(shape, 0), shape.isRegion() ? at(shape, total) : shape.startPoint(), 1e-9);
    }
    Params uniform(0, 0, 7);
    uniform.uniformMode(true);
    Result samples;
    if (shape.isOpenContour() && !is<qcPolyline>(shape)) shape.sample(uniform, samples);
    for (std::size_t i = 0; i < samples.positions().size(); ++i)
      EXPECT_NEAR_POINT(at(shape, (static_cast<double>(i) + 0.5) / 7 * total), samples.positions()[i], 1e-8);
    for (int i = 0; i < 20; ++i) {
      const double d = random.real(-total, 2 * total);
      const double expected = shape.isRegion() ? d - total * std::floor(d / total) : std::clamp(d, 0.0, total);
      long piece = 0;
      while (piece + 1 < info.numPieces() && info.startOf(piece + 1) <= expected) ++piece;
      EXPECT_EQ(info.perimPos(d).index(), piece);
      EXPECT_NEAR(info.perimPos(d).distance(), expected - info.startOf(piece), 1e-9);
      // From a joint, or from anywhere.
      const double joint = info.startOf(random.integer(0, static_cast<int>(info.numPieces()) - 1));
      const double start = random.flip() ? joint : random.real(0, total);
      const qcPerimPos moved = info.perimPos(info.perimPos(start), d - start);
      const double error = info.distanceAlong(moved) - expected;
      EXPECT_NEAR(shape.isRegion() ? std::remainder(error, total) : error, 0, 1e-8);
      // The tangent points along the chord to a point a little further on, unless a corner lies between.
      const qcPerimPos place = info.perimPos(expected), next = info.perimPos(place, 1e-6);
      if (place.index() != next.index() || next.distance() <= place.distance()) continue;
      V p, q;
      qcRadian tangent, later;
      shape.perimPointAndTangent(info, place, p, tangent);
      shape.perimPointAndTangent(info, next, q, later);
      const bool corner = !qfRealEq(tangent, later, 1e-3);
      EXPECT_NEAR_POINT((q - p) / 1e-6, V(1, tangent), corner ? kInf : 1e-4);
    }
  });
}

TEST_P(ShapeLaws, MappingThenMeasuringIsMeasuringThenScaling) {
  forMany([](const qcShape& shape, const qcShapeInfo& info, Random& random) {
    const bool mirrors = random.flip();
    const qcXform<2> xform = random.similarity(true, mirrors);
    const Shape mapped = shape.mapShape(xform);
    qcShapeInfo scaled;
    info.mapShape_(xform.scale(), scaled);
    EXPECT_NEAR(scaled.perimeter(), lengthOf(*mapped), 1e-8);
    const V p = random.point();
    EXPECT_NEAR(mapped->nearestPoint(xform * p).distance(xform * p), shape.nearestPoint(p).distance(p) * xform.scale(),
                1e-8);
    if (shape.isRegion()) {
      EXPECT_EQ(mapped->within(xform * p), shape.within(p));
      EXPECT_TRUE(!isOriented(shape) || mapped->isRightHanded() == (shape.isRightHanded() != mirrors));
    }
    if (shape.isOpenContour()) {
      const double winding = shape.windingAngle(p).plain();
      EXPECT_NEAR(mapped->windingAngle(xform * p).plain(), mirrors ? -winding : winding, 1e-8);
    }
    // Under any affine map the pieces go to the pieces of the image, and back.
    const qcXform<2> affine(random.point(), qcRadian(random.real(-3, 3)), qcRadian(random.real(-3, 3)), 2, 0.7);
    const Shape sheared = shape.mapShape(affine), back = sheared->mapShape(affine.inverse());
    for (const V& q : walk(shape, 1)) {
      EXPECT_NEAR_POINT(sheared->nearestPoint(affine * q), affine * q, 1e-8);
      EXPECT_NEAR_POINT(back->nearestPoint(q), q, 1e-8);
    }
    EXPECT_NEAR(lengthOf(*back), info.perimeter(), 1e-8);
  });
}

TEST_P(ShapeLaws, ReversingRunsBackAndTwiceIsTheSameShape) {
  forMany([](const qcShape& shape, const qcShapeInfo& info, Random& random) {
    if (!shape.isReversible()) return;  // what throws then is in the table
    const Shape back = shape.reverse_(), twice = back->reverse();
    const double total = info.perimeter(), d = random.real(0, total);
    EXPECT_TRUE(twice->equal_(shape) || twice->equal_(*shape.decompose()) || isHolder(shape));
    EXPECT_NEAR_POINT(at(*twice, d), at(shape, d), 1e-9);
    const V p = random.point();
    EXPECT_NEAR(lengthOf(*back), total, 1e-8);
    EXPECT_NEAR(back->nearestPoint(p).distance(p), shape.nearestPoint(p).distance(p), 1e-9);
    if (isOneContour(shape) && !is<qcRegionTree>(shape)) {
      EXPECT_TRUE(!shape.isDecomposed() || isHolder(shape) || qcShapeInfo(*back) == info.reverse_());
      EXPECT_NEAR_POINT(at(*back, total - d), at(shape, d), 1e-9);
    }
    if (shape.isOpenContour()) {
      EXPECT_EQ(back->startPoint(), shape.endPoint());
      EXPECT_NEAR(back->tangentRotation().plain(), -shape.tangentRotation().plain(), 1e-9);
      EXPECT_NEAR(back->windingAngle(p).plain(), -shape.windingAngle(p).plain(), 1e-9);
      EXPECT_TRUE(qfRealEq(back->startAngle(), shape.endAngle() + qcRadian(kPi), 1e-9));
    } else if (shape.isRegion()) {
      const bool turns = isOriented(shape) || is<qcRegionTree>(shape);  // circles do not reverse
      EXPECT_TRUE(!turns || back->isRightHanded() != shape.isRightHanded());
      EXPECT_EQ(back->within(p), shape.within(p));
    }
  });
}

TEST_P(ShapeLaws, PartsOfTheBoundaryAreThatBoundary) {
  forMany([](const qcShape& shape, const qcShapeInfo& info, Random& random) {
    const double total = info.perimeter(), start = random.real(0, total), length = random.real(0, total * 1.2);
    for (const double from : {start, info.distanceAlong({static_cast<std::int32_t>(info.numPieces() - 1), 0})}) {
      const Shape part = shape.subShape(info, {info.perimPos(from), length});
      const double expected = std::min(length, shape.isRegion() ? total : total - from);
      EXPECT_TRUE(part->isOpenContour() || !isOneContour(shape));
      ASSERT_NEAR(lengthOf(*part), expected, 1e-8);
      for (double t : {0.1, 0.3, 0.8, 0.9})
        EXPECT_NEAR_POINT(at(*part, t * expected), at(shape, from + t * expected), 1e-8);
    }
    EXPECT_NEAR(shape.subShape(info, {info.perimPos(start), 0})->perimeter(), 0, 1e-12);
    EXPECT_THROW(shape.subShape(info, {{0, 0}, -1e-300}), qcShapesError::BadParams);
    EXPECT_THROW(shape.subShape(info, {{0, 0}, kNan}), qcShapesError::BadParams);
    EXPECT_THROW(shape.subShape(info, {{-1, 0}, 1}), qcShapesError::BadIndex);
  });
}

TEST_P(ShapeLaws, WindingAndInsideAgreeWithDenseSamples) {
  forMany([](const qcShape& shape, const qcShapeInfo&, Random& random) {
    const std::vector<qcPolyline> chains = chainsOf(shape, Params(0, 0.05, INT32_MAX));
    qcRect sampled = chains[0].boundingBox();
    for (const qcPolyline& chain : chains) sampled = sampled.enclose(chain.boundingBox());
    const qcRect box = shape.boundingBox();
    EXPECT_NEAR_POINT(box.origin(), sampled.origin(), 0.1);
    EXPECT_NEAR_POINT(box.size(), sampled.size(), 0.1);
    EXPECT_NEAR_POINT(box.enclose(sampled).origin(), box.origin(), 1e-9);
    EXPECT_NEAR_POINT(box.enclose(sampled).size(), box.size(), 1e-9);
    const V p = random.point();
    if (shape.nearestPoint(p).distance(p) < 0.1) return;
    double swept = 0;
    for (const qcPolyline& chain : chains) swept += chain.generalWindingAngle(p).plain();
    if (shape.isOpenContour()) {
      EXPECT_NEAR(shape.windingAngle(p).plain(), swept, 1e-9);
      EXPECT_NEAR(shape.decompose()->windingAngle(p).plain(), swept, 1e-9);
    } else if (shape.isRegion()) {
      EXPECT_EQ(shape.within(p), std::fabs(swept) > kPi);
      EXPECT_EQ(isRound(shape) || shape.decompose()->within(p), isRound(shape) || shape.within(p));
      EXPECT_TRUE(!isSimple(shape) || chains[0].isRightHanded() == shape.isRightHanded());
    }
  });
}

TEST_P(ShapeLaws, SamplesKeepSpacingToleranceAndPositions) {
  forMany([](const qcShape& shape, const qcShapeInfo& info, Random& random) {
    const double spacing = random.real(0.1, 3), tolerance = random.real(0.001, 0.3);
    for (int mode = 0; mode < 8; ++mode) {
      Params params(mode & 1 ? tolerance : 0, mode & 2 ? spacing : 0, 100000, true, mode & 4);
      params.recordPositions_(true);
      Result result;
      shape.sample(params, result);
      ASSERT_TRUE(result.isValid_());
      EXPECT_TRUE(result.numChains() == 1 || !isOneContour(shape));
      EXPECT_EQ(result.pieceNumber_(), 0);
      const auto& points = result.positions();
      ASSERT_EQ(result.perimPositions_().size(), points.size());
      for (std::size_t chain = 0, i = 0; chain < result.breaks().size(); ++chain) {
        const auto first = static_cast<std::size_t>(result.breaks()[chain]);
        const bool closed = result.closedFlags()[chain];
        const std::size_t end =
            chain + 1 < result.breaks().size() ? static_cast<std::size_t>(result.breaks()[chain + 1]) : points.size();
        EXPECT_TRUE(closed == shape.isRegion() || is<qcGeneralShapeTree>(shape));
        for (; i < end; ++i) {
          const V &p = points[i], &q = points[i + 1 < end ? i + 1 : first];
          EXPECT_NEAR_POINT(shape.perimPoint(info, result.perimPositions_()[i]), p, 1e-9);
          if (i + 1 == end && !closed) continue;
          const V middle = 0.5 * (p + q), ahead = p + p.distance(q) * V(1, result.tangents()[i]);
          EXPECT_LE(p.distance(q), mode & 2 ? spacing + 1e-9 : kInf);
          EXPECT_LE(shape.nearestPoint(middle).distance(middle), mode & 1 ? tolerance + 1e-9 : kInf);
          EXPECT_NEAR_POINT(ahead, q, mode & 4 && isStraight(shape) ? 1e-9 : kInf);
        }
      }
      // The same request as a piece of another shape, numbers the pieces from where the result stands.
      Result piece;
      piece.pieceNumber_(7);
      qcShapeInfo enclosing;
      params.enclosingInfo_(&enclosing);
      shape.sample(params, piece);
      EXPECT_EQ(piece, result);
      EXPECT_EQ(piece.pieceNumber_(), 7 + info.numPieces());
      const qcPerimPos &last = result.perimPositions_().back(), &moved = piece.perimPositions_().back();
      EXPECT_EQ(moved, qcPerimPos(last.index() + 7, last.distance()));
      EXPECT_LE(last.distance(), info.pieceLength(last.index()));
    }
  });
}

TEST_P(ShapeLaws, CopiesAndArchivesAreEqualAndOtherTypesAreNot) {
  forMany([](const qcShape& shape, const qcShapeInfo&, Random& random) {
    EXPECT_TRUE(shape.clone()->equal_(shape));
    EXPECT_TRUE(shape.cloneThat_(*otherDirection(shape))->equal_(*otherDirection(shape)));
    for (const Kind& other : kKinds) EXPECT_FALSE(shape.equal_(*other.make(random)));
    for (const auto ordering : kOrderings) {
      Shape loaded;
      EXPECT_TRUE(load(archived(ordering, false, shape.clone()), loaded)->equal_(shape));
    }
  });
}

// Points of the result are those of the shape that are inside the polygon, where neither is near.
TEST_P(ShapeLaws, ClippingLeavesWhatIsInside) {
  forMany([](const qcShape& shape, const qcShapeInfo& info, Random& random) {
    const V c = random.point(), x(random.real(3, 25), random.angle()), y(random.real(3, 25), random.angle());
    const qcPolyline polygon({c - x, c - y, c + x, c + y}, true), all({{-1e3, -1e3}, {1e3, -1e3}, {0, 1e3}}, true);
    qcShape::ClipResult result;
    EXPECT_TRUE(shape.clip(all, result, false)->equal_(shape) && result == qcShape::ClipResult::inside);
    const Shape none = shape.clip(qcPolyline({{1e3, 0}, {2e3, 0}, {2e3, 1e3}}, true), result, true);
    EXPECT_TRUE(none->isEmpty() && result == qcShape::ClipResult::outside);
    const Shape clipped = shape.clip(polygon, result, true);
    EXPECT_EQ(clipped->isEmpty(), result == qcShape::ClipResult::outside);
    EXPECT_EQ(clipped->equal_(shape), result == qcShape::ClipResult::inside);
    const bool handed = isSimple(shape) && clipped->isRegion();
    EXPECT_TRUE(!handed || clipped->isEmpty() || clipped->isRightHanded() == shape.isRightHanded());
    const auto* parts = dynamic_cast<const qcGeneralShapeTree*>(&*clipped);
    const auto within = [&](const V& p) {
      if (!parts) return clipped->isRegion() && clipped->within(p);
      return std::any_of(parts->children().begin(), parts->children().end(),
                         [&](const auto& part) { return part->isRegion() && part->within(p); });
    };
    for (int i = 0; i < 20; ++i) {
      const V p = random.point(), on = at(shape, random.real(0, info.perimeter()));
      if (shape.isRegion() && std::min(shape.nearestPoint(p).distance(p), polygon.nearestPoint(p).distance(p)) > 1e-2) {
        EXPECT_EQ(within(p), shape.within(p) && polygon.within(p));
      }
      if (isFlat(shape) || polygon.nearestPoint(on).distance(on) < 1e-2) continue;
      const double away = clipped->isEmpty() ? 1 : clipped->nearestPoint(on).distance(on);
      EXPECT_EQ(away < (isBent(shape) ? 1e-3 : 1e-8), polygon.within(on)) << away;
    }
  });
}

// Pel centres that are not near the boundary are set when they are inside, and along the contour when they are close.
TEST_P(ShapeLaws, DrawingSetsWhatIsInsideAndAlong) {
  forMany([](const qcShape& shape, const qcShapeInfo&, Random& random) {
    qcPelBuffer<unsigned char> inside(qcPelRect(-20, -20, 40, 40)), along(qcPelRect(-20, -20, 40, 40));
    qfPelClear(inside);
    qfPelClear(along);
    const double width = random.real(0.01, random.integer(0, 4) ? 6 : 40);
    qfRasterizeContour(shape, along, 1, width, Params(1e-4, 0, INT32_MAX, false, false));
    const auto* tree = dynamic_cast<const qcRegionTree*>(&shape);
    const bool fills = shape.isRegion() && (tree || isOneContour(shape));
    if (fills) qfRasterize(tree ? *tree : qcRegionTree(shape), inside, 1);
    for (long i = 0; i < 1600; i += random.integer(1, 20)) {
      const long x = i % 40 - 20, y = i / 40 - 20;
      const V p(static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5);
      const double away = shape.nearestPoint(p).distance(p);
      EXPECT_TRUE(!fills || away < 0.1 || (inside.get(x, y) == 1) == shape.within(p)) << x << ' ' << y;
      const double beyond = away - width / 2;
      EXPECT_TRUE(std::fabs(beyond) < 3e-4 || (along.get(x, y) == 1) == (beyond < 0)) << x << ' ' << y;
    }
  });
}

// Parts are what the whole is.
TEST_P(ShapeLaws, DecomposingKeepsWhatAShapeIs) {
  forMany([](const qcShape& shape, const qcShapeInfo&, Random&) {
    const Shape parts = shape.decompose();
    EXPECT_TRUE(parts->isDecomposed());
    if (isRound(shape)) return;
    EXPECT_TRUE(parts->isRegion() == shape.isRegion() && parts->isOpenContour() == shape.isOpenContour());
    EXPECT_TRUE(!isOriented(shape) || parts->isRightHanded() == shape.isRightHanded());
  });
}

// No argument crashes, hangs or allocates without bound: every operation returns or throws one of our errors.
TEST_P(ShapeLaws, AnyNumbersAreAnswered) {
  const double numbers[] = {0, -0.0, 1, -1, 1e-320, 1e308, -1e308, kInf, -kInf, kNan, 3};
  Random random(5);
  const auto number = [&] { return numbers[random.integer(0, 10)]; };
  const auto point = [&] { return V(number(), number()); };
  const unsigned rounds = GetParam().seeds < 10 ? 50 : 50 * GetParam().seeds;
  unsigned answered = 0;
  for (unsigned i = 0; i < rounds; ++i) {
    try {
      const int kind = random.integer(0, 2);
      Shape shape = GetParam().make(random);
      if (kind == 0) shape = new qcPolyline({point(), point(), point()}, random.integer(0, 1));
      if (kind == 1) shape = shape->mapShape({{number(), number(), number(), number()}, point()});
      if (random.flip()) shape = otherDirection(*shape);
      if (shape->isRegion()) shape->within(point());
      if (shape->isOpenContour()) shape->windingAngle(point());
      shape->nearestPoint(point());
      const qcShapeInfo info(*shape);
      shape->nearestPerimPos(info, point());
      info.perimPos(number());
      Result result;
      shape->sample(
          Params(std::fabs(numbers[random.integer(0, 8)]), std::fabs(numbers[random.integer(0, 8)]), 1000, true),
          result);
      const qcPerimPos place = info.perimPos({random.integer(-1, 2), number()}, number());
      shape->perimPoint(info, {0, number()});
      shape->subShape(info, {place, number()});
      shape->clip(qcPolyline({point(), point(), point(), point()}, true), true);
      ++answered;
    } catch (const qcException&) {
    }
  }
  EXPECT_TRUE(answered > 0 || rounds <= 500);
}

TEST(Sampling, ResultIsUnchangedByASamplerThatThrows) {
  Params params(0, 1, 4, true);
  params.recordPositions_(true);
  Result result;
  qcLineSeg({0, 0}, {1, 1}).sample(params, result);
  const Result before = result;
  EXPECT_THROW(qcPolyline({{0, 0}, {1, 0}, {9, 0}}, false).sample(params, result), qcShapesError::SampleOverflow);
  for (const bool tangents : {false, true}) {
    Params unlike(0, 0, 2, tangents);  // without recording, at least
    for (const Kind& kind : kKinds) {
      Random random(1);
      EXPECT_THROW(kind.make(random)->sample(unlike, result), qcShapesError::BadParams) << kind.name;
    }
    EXPECT_THROW(qfMergeSubchains(unlike, 0, false, result), qcShapesError::BadParams);
  }
  EXPECT_EQ(result, before);
  EXPECT_EQ(result.perimPositions_(), before.perimPositions_());
}

}  // namespace
