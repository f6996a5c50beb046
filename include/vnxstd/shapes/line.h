// Infinite lines, by point and direction (qcLine) and by angle and distance (qcFLine).
#pragma once

#include "vnxstd/export.h"
#include "vnxstd/math/angle.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/math/xform.h"
#include "vnxstd/shapes/shape.h"

class qc2Rigid;

/// What infinite lines have in common: they are neither contours nor regions, and everything that needs an extent,
/// a boundary of finite length or pieces throws qcShapesError::InfiniteExtent.
class VNXSTD_EXPORT qc_InfiniteLine : public qcShape {
 public:
  bool isOpenContour() const override { return false; }
  bool isRegion() const override { return false; }
  bool isFinite() const override { return false; }
  bool isEmpty() const override { return false; }
  bool hasTangent() const override { return true; }
  bool isDecomposed() const override { return false; }
  qcRect boundingBox() const override;
  double perimeter() const override;
  qcPerimPos nearestPerimPos(const qcShapeInfo& info, const qcVector<2>& p) const override;
  qcPtrHandle<qcShape> decompose() const override;
  qcPtrHandle<qcShape> clip_(const qcPolyline& polygon, qcClipInfo& info) const override;
  qcPtrHandle<qcShape> subShape(const qcShapeInfo& info, const std::pair<qcPerimPos, double>& piece) const override;
  void sample(const qcSampleParams& params, qcSampleResult& result) const override;
  void perimPointAndTangent_(const qcShapeInfo& info, const qcPerimPos& position, qcVector<2>& point,
                             qcRadian* tangent) const override;

 protected:
  qc_InfiniteLine() = default;
};

/// An infinite line, given by a direction and a point on it. The direction is kept as given; the operations take it for
/// a vector of length 1.
class VNXSTD_EXPORT qcLine : public qc_InfiniteLine {
 public:
  /// How far from 0 the cross product of two directions must be for their lines to have a crossing point.
  static constexpr double kParallel = 1e-12;

  /// The x axis.
  qcLine() : dir_(1, 0) {}
  /// Throws qcShapesError::DegenerateShape when `dir` is null.
  qcLine(const qcVector<2>& dir, const qcVector<2>& pos);
  qcLine(const qcRadian& angle, const qcVector<2>& pos) : dir_(1, angle), pos_(pos) {}
  /// The line through the origin in that direction. Throws qcShapesError::DegenerateShape when `dir` is null.
  explicit qcLine(const qcVector<2>& dir) : qcLine(dir, qcVector<2>()) {}
  static qcPersistent* make();

  const qcVector<2>& dir() const { return dir_; }
  const qcVector<2>& pos() const { return pos_; }
  /// Throws qcShapesError::DegenerateShape when `dir` is null.
  void dir(const qcVector<2>& dir);
  void pos(const qcVector<2>& pos);

  /// The angle of the direction, in [-pi, pi].
  qcRadian angle() const { return dir_.angle(); }
  void angle(const qcRadian& angle);
  /// The angle by which this line must be turned to have the direction of the other one, in [-pi, pi).
  qcRadian angle(const qcLine& other) const;

  /// The lines through `p` that are parallel to this one, and turned from it by +90 degrees.
  qcLine parallel(const qcVector<2>& p) const { return {dir_, p}; }
  qcLine normal(const qcVector<2>& p) const { return {dir_.perpendicular(), p}; }

  /// dir * (p - pos): the coordinate along the line of the foot of the perpendicular from `p`.
  double offset(const qcVector<2>& p) const { return dir_ * (p - pos_); }
  /// That foot: the point of the line nearest to `p`.
  qcVector<2> proj(const qcVector<2>& p) const { return pos_ + offset(p) * dir_; }
  qcVector<2> nearestPoint(const qcVector<2>& p) const override { return proj(p); }
  /// The distance of `p` from the line, never negative.
  double distToPoint(const qcVector<2>& p) const;

  /// The crossing point. Throws qcShapesError::LinesParallel when isParallel.
  qcVector<2> intersect(const qcLine& other) const;
  /// The magnitude of the cross product of the directions is below kParallel.
  bool isParallel(const qcLine& other) const;

  /// The line through the image of `pos` in the image of the direction, which is made of length 1. Throws
  /// qcShapesError::DegenerateShape when the direction is mapped to the null vector.
  qcLine map(const qcXform<2>& xform) const;

  /// A line has no enclosing rectangle: throws qcShapesError::InfiniteExtent.
  qcRect encloseRect() const;

  qcPtrHandle<qcShape> clone() const override { return new qcLine(*this); }
  bool isReversible() const override { return true; }
  qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const override { return new qcLine(map(xform)); }
  qcPtrHandle<qcShape> reverse() const override { return new qcLine(-dir_, pos_); }
  bool equal_(const qcShape& that) const override;
  friend bool operator==(const qcLine& a, const qcLine& b) { return a.dir_ == b.dir_ && a.pos_ == b.pos_; }

  bool loadLegacy(qcArchive& archive) override;

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &qcLine::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  void serializeCommon(qcArchive& archive);

  qcVector<2> dir_;
  qcVector<2> pos_;
};

/// An infinite line in normal form: the angle of its direction, in degrees, and its distance from the origin, never
/// negative. The points of the line fulfil -sin(angle) * x + cos(angle) * y = distance; the line runs in the direction
/// (cos angle, sin angle) through the foot of the perpendicular from the origin.
class VNXSTD_EXPORT qcFLine : public qc_InfiniteLine {
 public:
  /// Within which distance, sine and cosine of two equal lines agree.
  static constexpr double kEqual = 1e-15;

  /// The x axis.
  qcFLine() = default;
  /// Throws qcShapesError::DegenerateShape when the distance is negative or NaN.
  qcFLine(const qcDegree& angle, double distance);
  /// The line from `a` towards `b`; where it would have a negative distance, the angle is that of b - a plus 180
  /// degrees. Throws qcShapesError::DegenerateShape when the points are equal or no numbers.
  qcFLine(const qcVector<2>& a, const qcVector<2>& b);
  static qcPersistent* make();

  /// The axes of a rigid frame, in the directions of angle and angle + 90 degrees; turned by 180 degrees where the
  /// distance would be negative.
  static qcFLine Xaxis(const qc2Rigid& frame);
  static qcFLine Yaxis(const qc2Rigid& frame);

  const qcDegree& angle() const { return angle_; }
  double distance() const { return distance_; }
  double sinAngle() const { return sin_; }
  double cosAngle() const { return cos_; }
  void angle(const qcDegree& angle);
  /// Throws qcShapesError::DegenerateShape when the distance is negative or NaN.
  void distance(double distance);

  /// The direction, of length 1, and the foot of the perpendicular from the origin.
  qcVector<2> dir() const { return {cos_, sin_}; }
  qcVector<2> foot() const { return {-sin_ * distance_, cos_ * distance_}; }
  /// The same line by direction and foot.
  qcLine line() const { return {dir(), foot()}; }
  /// The frame whose x axis is this line and whose origin is its foot.
  qc2Rigid rigid_() const;

  /// The coordinate of `p` along the line, from the foot on, and its signed distance, positive on the left.
  double distanceAlong(const qcVector<2>& p) const { return (p - foot()) * dir(); }
  double distanceFrom(const qcVector<2>& p) const { return cos_ * p.y() - sin_ * p.x() - distance_; }
  qcVector<2> nearestPoint(const qcVector<2>& p) const override { return foot() + distanceAlong(p) * dir(); }

  /// Throws qcShapesError::DegenerateShape when the direction is mapped to the null vector, or a coordinate overflows.
  qcFLine map(const qcXform<2>& xform) const;

  qcPtrHandle<qcShape> clone() const override { return new qcFLine(*this); }
  bool isReversible() const override { return false; }
  qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const override { return new qcFLine(map(xform)); }
  /// As by operator==.
  bool equal_(const qcShape& that) const override;

  /// Distance, sine and cosine differ by at most kEqual each; angles that differ by whole turns are equal.
  int operator==(const qcFLine& that) const;
  int operator!=(const qcFLine& that) const { return !(*this == that); }

  bool loadLegacy(qcArchive& archive) override;

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &qcFLine::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  void serializeCommon(qcArchive& archive);
  void set(const qcDegree& angle, double distance);
  static qcFLine through(const qcVector<2>& p, const qcDegree& angle);

  qcDegree angle_;
  double distance_ = 0;
  double sin_ = 0;
  double cos_ = 1;
};
