// Circles.
#pragma once

#include "vnxstd/export.h"
#include "vnxstd/shapes/shape.h"

class qcEllipse;
class qcEllipse2;
class qcLine;

/// A circle: the region inside, with the circle as its boundary. The boundary starts at angle 0 and turns from the x
/// axis towards the y axis, so that a circle is always right-handed and cannot be reversed. A radius of 0 is allowed.
/// Positions on the perimeter have index 0 and the arc length from angle 0.
class VNXSTD_EXPORT qcCircle : public qcShape {
 public:
  /// The origin, with radius 0.
  qcCircle() = default;
  /// Throws qcShapesError::BadRadius when the radius is negative, infinite or NaN.
  qcCircle(const qcVector<2>& center, double radius);
  static qcPersistent* make();

  const qcVector<2>& center() const { return center_; }
  double radius() const { return radius_; }
  void center(const qcVector<2>& center);
  /// These throw qcShapesError::BadRadius like the constructor.
  void radius(double radius);
  void centerRadius(double x, double y, double radius);

  /// The radius is 0.
  bool degen() const { return radius_ <= 0; }

  /// The point of the circle nearest to `p`; for the centre itself the one at angle 0.
  qcVector<2> closestPoint(const qcVector<2>& p) const;
  /// The distance from `p` to the circle (not to the disc), never negative.
  double distToPoint(const qcVector<2>& p) const;

  /// Where a line crosses the circle, `a` before `b` along the line; a tangent gives the same point twice. When they do
  /// not meet: returns false, `a` is the point of the circle nearest to the line and `b` that of the line nearest to
  /// the circle. The direction of the line must be of length 1.
  bool intersections(const qcLine& line, qcVector<2>& a, qcVector<2>& b) const;
  /// Where two circles cross. Seen from this centre towards the other, `a` is on the right and `b` on the left;
  /// circles that touch give the same point twice. When they do not meet: returns false, `a` is the point of this
  /// circle nearest to the other, `b` that of the other nearest to this; for concentric circles, equal ones included,
  /// these are the points at angle 0.
  bool intersections(const qcCircle& other, qcVector<2>& a, qcVector<2>& b) const;

  /// The image under an affine map: an ellipse. That of map2 starts at the image of the circle's start, and is
  /// left-handed when the map mirrors. Both throw qcShapesError::BadParams when a radius of the image is not finite.
  qcEllipse map(const qcXform<2>& xform) const;
  qcEllipse2 map2(const qcXform<2>& xform) const;

  qcPtrHandle<qcShape> clone() const override { return new qcCircle(*this); }
  bool isOpenContour() const override { return false; }
  bool isRegion() const override { return true; }
  bool isFinite() const override { return true; }
  bool isEmpty() const override { return false; }
  bool hasTangent() const override { return radius_ > 0; }
  bool isDecomposed() const override { return false; }
  bool isReversible() const override { return false; }
  qcRect boundingBox() const override;
  qcVector<2> nearestPoint(const qcVector<2>& p) const override { return closestPoint(p); }
  double perimeter() const override { return qcRadian::turn * radius_; }
  qcPerimPos nearestPerimPos(const qcShapeInfo& info, const qcVector<2>& p) const override;
  bool isRightHanded() const override { return true; }
  /// The circle itself is inside.
  bool within(const qcVector<2>& p) const override;
  /// How far two columns of a matrix that counts as a similarity may differ from equal length and right angles,
  /// relative to their length.
  static constexpr double kSimilarity = 1e-12;
  /// A circle, for transforms that keep circles: similarities, mirrored or not. The image under any other transform is
  /// that of map2.
  qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const override;
  /// A qcEllipseArc2 that runs once round.
  qcPtrHandle<qcShape> decompose() const override;
  qcPtrHandle<qcShape> clip_(const qcPolyline& polygon, qcClipInfo& info) const override;
  /// A qcEllipseArc2.
  qcPtrHandle<qcShape> subShape(const qcShapeInfo& info, const std::pair<qcPerimPos, double>& piece) const override;
  /// One closed chain of points at equal angles, from angle 0 on and at least 2; the first point is not repeated. The
  /// deviation is that of a chord: its sagitta. Throws qcShapesError::BadParams in uniform mode.
  void sample(const qcSampleParams& params, qcSampleResult& result) const override;
  bool equal_(const qcShape& that) const override;
  void perimPointAndTangent_(const qcShapeInfo& info, const qcPerimPos& position, qcVector<2>& point,
                             qcRadian* tangent) const override;
  friend bool operator==(const qcCircle& a, const qcCircle& b) {
    return a.center_ == b.center_ && a.radius_ == b.radius_;
  }

  bool loadLegacy(qcArchive& archive) override;

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &qcCircle::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  void serializeCommon(qcArchive& archive);
  qcVector<2> pointAt(double angle) const;

  qcVector<2> center_;
  double radius_ = 0;
};
