// Every class of shapes, and every operation of their interface: what works, what the geometry does not allow, and the
// laws that hold for all of them.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "vnxstd/shapes.h"

namespace {

using Params = qcShape::qcSampleParams;
using Result = qcShape::qcSampleResult;
using Shape = qcPtrHandle<qcShape>;
using V = qcVector<2>;

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
    for (const auto& [name, letter] : kLetters) {
      if (error.starts_with(std::wstring(L"qcShapesError::") + name)) return letter;
    }
    ADD_FAILURE() << std::string(error.begin(), error.end());
    return '?';
  };
  qcShapeInfo info;
  qcClipInfo clipInfo;
  const V p(1.5, 1.25);
  const qcPolyline window({{-3, -3}, {2, -3}, {2, 4}, {-3, 4}}, true);
  V point;
  qcRadian tangent;
  Result result;
  Params params(0.5, 0.5, 1000), withTangents(0, 0, 1000, true), uniform(0, 0, 5);
  uniform.uniformMode(true);
  const std::function<void()> groups[][8] = {
      {[&] { shape.boundingBox(); }, [&] { shape.nearestPoint(p); }, [&] { shape.perimeter(); },
       [&] { info = qcShapeInfo(shape); }, [&] { shape.nearestPerimPos(info, p); },
       [&] {
         shape.perimPoint(info, {0, 0.25});
       },
       [&] {
         shape.perimPointAndTangent(info, {0, 0.25}, point, tangent);
       }},
      {[&] { shape.startPoint(); }, [&] { shape.endPoint(); }, [&] { shape.startAngle(); }, [&] { shape.endAngle(); },
       [&] { shape.tangentRotation(); }, [&] { shape.windingAngle(p); }},
      {[&] { shape.isRightHanded(); }, [&] { shape.within(p); }},
      {[&] { shape.clone(); },
       [&] {
         shape.mapShape({{1, 2, 0, 3}, {4, 5}});
       },
       [&] { shape.reverse(); }, [&] { shape.reverse_(); }, [&] { shape.decompose(); },
       [&] {
         shape.subShape(info, {{0, 0.25}, 0.5});
       },
       [&] { shape.clip_(window, clipInfo); }, [&] { shape.cloneThat_(window); }},
      {[&] { shape.sample(params, result); }, [&] { result.reset(), shape.sample(withTangents, result); },
       [&] { result.reset(), shape.sample(uniform, result); }}};
  std::string all;
  const bool flags[] = {shape.isOpenContour(), shape.isRegion(),     shape.isFinite(),     shape.isEmpty(),
                        shape.hasTangent(),    shape.isDecomposed(), shape.isReversible(), shape.isMultipleContours_()};
  for (int i = 0; i < 8; ++i) all.push_back(flags[i] ? "ORFETDVM"[i] : '-');
  for (const auto& group : groups) {
    all.push_back(' ');
    for (const auto& act : group) {
      if (act) all.push_back(outcome(act));
    }
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
  const Shape hole(new qcRegionTree(qcCircle(o, 2), true));
  const qcEllipse2 flat(o, qcRadian(1), {2, 0}, true, qcRadian(0));
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
      {"region", treeOf<qcRegionTree>({hole}, *disc), "-RF-T-VM ....... OOOOOO .. ........ ..P"},
      {"region, no holes", new qcRegionTree(qcPolyline({o, a, b}, true)), "-RF-TDV- ....... OOOOOO .. ........ ..P"},
      {"region, point", new qcRegionTree(qcCircle(a, 0)), "-RF---V- ......T OOOOOO .. ........ .TP"},
      {"region, empty", new qcRegionTree, "--FE-DV- EE..EEE OOOOOO RR .....E.. ..P"},
      {"collection", treeOf<qcGeneralShapeTree>({segment, disc, hole}), "--F-T--M ....... OOOOOO RR ..VV.... ..P"},
      {"collection of one", treeOf<qcGeneralShapeTree>({segment}), "--F-TDV- ....... OOOOOO RR ........ ..P"},
      {"collection with a line", treeOf<qcGeneralShapeTree>({segment, line}),
       "----T-VM I.IIIII OOOOOO RR ....II.. IIP"},
      {"collection, empty", new qcGeneralShapeTree, "--FE-DV- EE..EEE OOOOOO RR .....E.. ..P"},
      {"collection of empty", treeOf<qcGeneralShapeTree>({new qcPolyline, new qcGeneralShapeTree}),
       "--FE-DV- EE..EEE OOOOOO RR .....E.. ..P"}};
  for (const auto& [name, shape, expected] : rows) EXPECT_EQ(outcomes(*shape), expected) << name;
}

}  // namespace
