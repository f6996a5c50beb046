#include "vnxstd/shapes/ellipseshape.h"

#include <algorithm>
#include <cmath>

#include "std/shapes/ellipsecurve.h"
#include "vnxstd/shapes/ellipsearc.h"

using qc_shapes::EllipseCurve;

namespace {

// Near the tips of thin ellipses, lengths that differ by rounding alone can have parameters that differ by much more.
double between(double phi, double from, double to) { return std::clamp(phi, std::min(from, to), std::max(from, to)); }

}  // namespace

bool qc_EllipseShape::hasTangent() const {
  const EllipseCurve curve = curve_();
  return !curve.isFlat() && curve.from() != curve.to();
}

qcRect qc_EllipseShape::boundingBox() const { return curve_().boundingBox(); }

qcVector<2> qc_EllipseShape::nearestPoint(const qcVector<2>& p) const {
  const EllipseCurve curve = curve_();
  return isRegion() ? curve.nearestOnEllipse(p) : curve.point(curve.nearestParameter(p, false));
}

double qc_EllipseShape::perimeter() const { return curve_().length(); }

qcPerimPos qc_EllipseShape::nearestPerimPos(const qcShapeInfo&, const qcVector<2>& p) const {
  const EllipseCurve curve = curve_();
  return {0, curve.lengthTo(curve.nearestParameter(p, isRegion()))};
}

EllipseCurve qc_EllipseShape::arc() const {
  if (isRegion()) throw qcShapesError::NotOpenContour();
  return curve_();
}

qcVector<2> qc_EllipseShape::startPoint() const {
  const EllipseCurve curve = arc();
  return curve.point(curve.from());
}

qcVector<2> qc_EllipseShape::endPoint() const {
  const EllipseCurve curve = arc();
  return curve.point(curve.to());
}

qcRadian qc_EllipseShape::startAngle() const {
  const EllipseCurve curve = arc();
  return curve.tangent(curve.from());
}

qcRadian qc_EllipseShape::endAngle() const {
  const EllipseCurve curve = arc();
  return curve.tangent(curve.to());
}

qcRadian qc_EllipseShape::tangentRotation() const { return qcRadian(arc().tangentRotation()); }

qcRadian qc_EllipseShape::windingAngle(const qcVector<2>& p) const { return qcRadian(arc().windingAngle(p)); }

bool qc_EllipseShape::within(const qcVector<2>& p) const {
  if (!isRegion()) throw qcShapesError::NotRegion();
  return curve_().within(p);
}

// The distance of a position from the start, wrapped around an ellipse and clamped to an arc.
double qc_EllipseShape::placeOn(const EllipseCurve& curve, const qcPerimPos& position) const {
  if (position.index() != 0) throw qcShapesError::BadIndex();
  const double distance = position.distance(), length = curve.length();
  if (std::isnan(distance) || (isRegion() && std::isinf(distance))) throw qcShapesError::BadParams();
  if (!isRegion()) return std::min(std::max(distance, 0.0), length);
  if (!(length > 0)) return 0;
  const double rest = std::fmod(distance, length);
  return rest < 0 ? rest + length : rest;
}

// The ends have exactly their own parameters, and nothing lies beyond them.
double qc_EllipseShape::parameterAt(const EllipseCurve& curve, double distance) const {
  if (isRegion()) return curve.parameterAt(distance);
  return distance < curve.length() ? between(curve.parameterAt(distance), curve.from(), curve.to()) : curve.to();
}

qcPtrHandle<qcShape> qc_EllipseShape::subShape(const qcShapeInfo&, const std::pair<qcPerimPos, double>& piece) const {
  const EllipseCurve curve = curve_();
  const double start = placeOn(curve, piece.first);
  if (!(piece.second >= 0)) throw qcShapesError::BadParams();
  const double from = parameterAt(curve, start);
  const double last = isRegion() ? from + qcRadian::turn : curve.to();
  const bool wholeRound = isRegion() && piece.second >= curve.length();
  const double to = wholeRound ? last : between(parameterAt(curve, start + piece.second), from, last);
  const qcPtrHandle<qcShape> whole = decompose();
  const qcEllipse2& ellipse = static_cast<const qcEllipseArc2&>(*whole).ellipse();
  return new qcEllipseArc2(qcEllipseArc2::between(ellipse, qcRadian(from), qcRadian(to)));
}

void qc_EllipseShape::sample(const qcSampleParams& params, qcSampleResult& result) const {
  if (params.uniformMode()) {
    if (isRegion()) throw qcShapesError::BadParams();
    return qfUniformSamplePrimitive(*this, params, result);
  }
  qc_shapes::SampleWriter writer(params, result);
  curve_().sample(writer, isRegion());
  writer.commit();
}

void qc_EllipseShape::perimPointAndTangent_(const qcShapeInfo&, const qcPerimPos& position, qcVector<2>& point,
                                            qcRadian* tangent) const {
  const EllipseCurve curve = curve_();
  const double phi = parameterAt(curve, placeOn(curve, position));
  if (tangent) *tangent = curve.tangent(phi);
  point = curve.point(phi);
}
