#include "std/shapes/rounding.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <typeinfo>

#include "vnxstd/shapes/ellipsearc.h"
#include "vnxstd/shapes/lineseg.h"
#include "vnxstd/shapes/mappedshape.h"
#include "vnxstd/shapes/polyline.h"

namespace qc_shapes {

namespace {

double magnitude(const qcVector<2>& v) { return std::fabs(v.x()) + std::fabs(v.y()); }

// How far the numbers reach that the ends of an arc are made of; 0 for other shapes.
double reachOfArc(const qcShape& shape) {
  const auto reach = [](const qcEllipse2& ellipse) { return magnitude(ellipse.center()) + magnitude(ellipse.radii()); };
  if (const auto* arc = dynamic_cast<const qcEllipseArc2*>(&shape)) return reach(arc->ellipse());
  if (const auto* arc = dynamic_cast<const qcEllipseArc*>(&shape)) return reach(qcEllipseArc2(*arc).ellipse());
  return 0;
}

double stretchAt(const qc2XformBase& xform, const qcVector<2>& p) {
  const qcMatrix<2> matrix = xform.linearXform(p).matrix();
  return magnitude(matrix * qcVector<2>(1, 0)) + magnitude(matrix * qcVector<2>(0, 1));
}

}  // namespace

double roundingOfEnds(const qcShape& contour) {
  constexpr double kRelative = 16 * std::numeric_limits<double>::epsilon();
  if (typeid(contour) == typeid(qcLineSeg)) return 0;
  if (const double reach = reachOfArc(contour); reach != 0) return kRelative * reach;
  if (dynamic_cast<const qcPolyline*>(&contour)) return 0;
  const double ends = magnitude(contour.startPoint()) + magnitude(contour.endPoint());
  const auto* mapped = dynamic_cast<const qcMappedShape*>(&contour);
  const double reach = mapped ? reachOfArc(*mapped->underlyingShape()) : 0;
  if (reach == 0) return kRelative * ends;
  const qcShape& arc = *mapped->underlyingShape();
  const qc2XformBase& xform = *mapped->overallMapXform();
  const double stretch = std::max(stretchAt(xform, arc.startPoint()), stretchAt(xform, arc.endPoint()));
  return kRelative * (ends + stretch * reach);
}

}  // namespace qc_shapes
