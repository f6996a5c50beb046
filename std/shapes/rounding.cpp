#include "std/shapes/rounding.h"

#include <cmath>
#include <limits>
#include <typeinfo>

#include "vnxstd/shapes/ellipsearc.h"
#include "vnxstd/shapes/lineseg.h"
#include "vnxstd/shapes/polyline.h"

namespace qc_shapes {

namespace {

double magnitude(const qcVector<2>& v) { return std::fabs(v.x()) + std::fabs(v.y()); }

}  // namespace

double roundingOfEnds(const qcShape& contour) {
  constexpr double kRelative = 16 * std::numeric_limits<double>::epsilon();
  if (typeid(contour) == typeid(qcLineSeg)) return 0;
  if (const auto* arc = dynamic_cast<const qcEllipseArc2*>(&contour)) {
    return kRelative * (magnitude(arc->ellipse().center()) + magnitude(arc->ellipse().radii()));
  }
  if (dynamic_cast<const qcPolyline*>(&contour)) return 0;
  return kRelative * (magnitude(contour.startPoint()) + magnitude(contour.endPoint()));
}

}  // namespace qc_shapes
