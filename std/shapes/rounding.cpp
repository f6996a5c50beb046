#include "std/shapes/rounding.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <typeinfo>

#include "vnxstd/shapes/contourtree.h"
#include "vnxstd/shapes/ellipsearc.h"
#include "vnxstd/shapes/lineseg.h"
#include "vnxstd/shapes/mappedshape.h"
#include "vnxstd/shapes/polyline.h"

namespace qc_shapes {

namespace {

double magnitude(const qcVector<2>& v) { return std::fabs(v.x()) + std::fabs(v.y()); }

// Of what an end comes from: what maps leave of the coordinates that it had before.
constexpr double kRelative = 1e-12;

// How far the numbers reach that the ends of an arc are made of; 0 for other shapes. Centre and radii of a flat arc are
// far larger than itself, and good to the last digits.
double reachOfArc(const qcShape& shape) {
  const auto reach = [](const qcEllipseArc2& arc) {
    constexpr double kLastDigits = 16 * std::numeric_limits<double>::epsilon();
    const double center = magnitude(arc.ellipse().center()), radii = magnitude(arc.ellipse().radii());
    return radii * std::min(1.0, std::fabs(arc.phiSpan().plain())) + kLastDigits / kRelative * (center + radii);
  };
  if (const auto* arc = dynamic_cast<const qcEllipseArc2*>(&shape)) return reach(*arc);
  if (const auto* arc = dynamic_cast<const qcEllipseArc*>(&shape)) return reach(qcEllipseArc2(*arc));
  return 0;
}

double stretchAt(const qc2XformBase& xform, const qcVector<2>& p) {
  const qcMatrix<2> matrix = xform.linearXform(p).matrix();
  return magnitude(matrix * qcVector<2>(1, 0)) + magnitude(matrix * qcVector<2>(0, 1));
}

qcVector<2> endOf(const qcShape& contour, bool atStart) { return atStart ? contour.startPoint() : contour.endPoint(); }

// How far the numbers reach that one end of a contour comes from: through maps and trees down to the arc or the point
// that is given. What is held deeper is left out, so that deep alternations cost no more.
double reachOfEnd(const qcShape& contour, bool atStart) {
  constexpr int kLevels = 8;
  double reach = 0, stretch = 1;
  const qcShape* shape = &contour;
  for (int level = 0; level < kLevels; ++level) {
    const qcVector<2> end = endOf(*shape, atStart);
    reach = std::max(reach, stretch * (magnitude(end) + reachOfArc(*shape)));
    if (const auto* mapped = dynamic_cast<const qcMappedShape*>(shape)) {
      shape = &*mapped->underlyingShape();
      stretch *= stretchAt(*mapped->overallMapXform(), endOf(*shape, atStart));
    } else if (const auto* tree = dynamic_cast<const qcContourTree*>(shape)) {
      shape = atStart ? tree->elements_().front() : tree->elements_().back();
    } else {
      break;
    }
  }
  return reach;
}

}  // namespace

double roundingOfEnds(const qcShape& contour) {
  if (typeid(contour) == typeid(qcLineSeg)) return 0;
  if (const double reach = reachOfArc(contour); reach != 0) return kRelative * reach;
  if (dynamic_cast<const qcPolyline*>(&contour)) return 0;
  return kRelative * (reachOfEnd(contour, true) + reachOfEnd(contour, false));
}

}  // namespace qc_shapes
