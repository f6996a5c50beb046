// The geometry that all ellipses and elliptic arcs share.
#pragma once

#include "std/shapes/elliptic.h"
#include "std/shapes/samplewriter.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/shapes/rect.h"

namespace qc_shapes {

/// Where the ellipse (a * cos t, b * sin t) is nearest to a point: the cosine and sine of t.
struct EllipseFoot {
  double c, s;
};

/// The foot on the first quadrant of a point with x and y of at least 0.
EllipseFoot firstQuadrantFoot(double a, double b, double x, double y);
/// Inside the evolute the distance has a second minimum, across the longer axis; false elsewhere.
bool secondFoot(double a, double b, double x, double y, EllipseFoot& foot);

/// The curve that a parameter phi traces from one value to another, in either direction and at most once round:
/// center + R(angle) * (rx * cos(phi + phase), sense * ry * sin(phi + phase)), where sense is 1 or -1.
class EllipseCurve {
 public:
  EllipseCurve(const qcVector<2>& center, const qcVector<2>& radii, double angle, double phase, bool rightHanded,
               double from, double to);

  bool isFlat() const { return radii_.x() == 0 || radii_.y() == 0; }
  /// Once round, but for rounding.
  bool isFull() const;
  double from() const { return from_; }
  double to() const { return to_; }

  qcVector<2> point(double phi) const;
  /// The direction of the tangent, travelling from `from` to `to`. Throws qcShapesError::NoTangent when flat or a
  /// point.
  qcRadian tangent(double phi) const;
  /// The direction in which the tangent turns.
  bool turnsLeft() const { return (direction_ > 0) == (sense_ > 0); }
  double tangentRotation() const;
  double windingAngle(const qcVector<2>& p) const;

  double length() const { return lengthTo(to_); }
  double lengthTo(double phi) const;
  /// The parameter at a distance from the start, also beyond the end.
  double parameterAt(double distance) const;

  /// The point of the whole ellipse nearest to `p`: of equally near ones the one on the side where the local
  /// coordinates of a frame along the axes are not negative.
  qcVector<2> nearestOnEllipse(const qcVector<2>& p) const;
  /// The parameter of the nearest point of the curve; of ones that are equally near but for rounding the first, or on a
  /// closed one, which is the whole ellipse, that of nearestOnEllipse.
  double nearestParameter(const qcVector<2>& p, bool closed) const;
  /// The parameter of the point of the ellipse that `p` becomes when the ellipse is pulled into a circle.
  double parameterOf(const qcVector<2>& p) const;
  /// The parameter at which a tangent, for growing parameters, has a direction. Not for flat ones.
  double parameterOfDirection(const qcVector<2>& direction) const;
  /// Inside the whole ellipse or on it.
  bool within(const qcVector<2>& p) const;
  qcRect boundingBox() const;

  /// One chain: see qc_EllipseShape::sample.
  void sample(SampleWriter& writer, bool closed) const;

 private:
  qcVector<2> local(const qcVector<2>& p) const;
  double localParameter(double c, double s) const;
  double behindStart(double phi) const;
  bool contains(double phi) const { return behindStart(phi) <= direction_ * (to_ - from_); }
  qcVector<2> leftNormal(double phi) const;
  bool isLeft(const qcVector<2>& p, bool onEnd) const;
  long steps(const qcShape::qcSampleParams& params, double length, bool closed) const;

  qcVector<2> center_, radii_, axis_;
  double phase_, sense_, from_, to_, direction_;
  EllipseLength along_;
};

}  // namespace qc_shapes
