// Rotation and translation.
#pragma once

#include <cmath>

#include "vnxstd/export.h"
#include "vnxstd/math/angle.h"
#include "vnxstd/math/matrix.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/math/xform.h"

/// The rigid map p -> R * p + t, R the rotation by an angle in degrees. A plain value without virtual functions;
/// nothing allocates and nothing throws. A * B applies B first and A second. The angle is kept as given, whole turns
/// included; comparisons are exact.
class VNXSTD_EXPORT qc2Rigid {
 public:
  /// The identity.
  qc2Rigid() = default;
  qc2Rigid(const qcDegree& angle, const qcVector<2>& trans) : trans_(trans) { this->angle(angle); }

  const qcDegree& angle() const { return angle_; }
  /// Sets the angle and computes its sine and cosine.
  void angle(const qcDegree& angle) {
    const double radians = angle.plain() * qcRadian::perDegree;
    angle_ = angle;
    sin_ = std::sin(radians);
    cos_ = std::cos(radians);
  }
  const qcVector<2>& trans() const { return trans_; }
  void trans(const qcVector<2>& trans) { trans_ = trans; }
  double sinAngle() const { return sin_; }
  double cosAngle() const { return cos_; }

  /// R * v, and R * p + t.
  qcVector<2> mapVector(const qcVector<2>& v) const {
    return {cos_ * v.x() - sin_ * v.y(), sin_ * v.x() + cos_ * v.y()};
  }
  qcVector<2> mapPoint(const qcVector<2>& p) const { return mapVector(p) + trans_; }
  qcVector<2> operator*(const qcVector<2>& p) const { return mapPoint(p); }
  /// The inverse maps, transposed(R) * v and transposed(R) * (p - t).
  qcVector<2> invMapVector(const qcVector<2>& v) const {
    return {cos_ * v.x() + sin_ * v.y(), cos_ * v.y() - sin_ * v.x()};
  }
  qcVector<2> invMapPoint(const qcVector<2>& p) const { return invMapVector(p - trans_); }
  /// The angle turned by this rotation, and back; not reduced.
  qcRadian mapAngle(const qcRadian& angle) const { return angle + qcRadian(angle_); }
  qcRadian invMapAngle(const qcRadian& angle) const { return angle - qcRadian(angle_); }

  /// The angle -a and the translation -(transposed(R) * t).
  qc2Rigid inverse() const { return {-angle_, -invMapVector(trans_)}; }
  /// The transform that applies `first` and then this one: the sum of the angles, and t + R * first.t.
  qc2Rigid compose(const qc2Rigid& first) const { return {angle_ + first.angle_, trans_ + mapVector(first.trans_)}; }
  qc2Rigid operator*(const qc2Rigid& first) const { return compose(first); }
  qcXform<2> operator*(const qcXform<2>& first) const { return linear() * first; }

  /// The same map as a plain transform.
  qcXform<2> linear() const { return {qcMatrix<2>(cos_, -sin_, sin_, cos_), trans_}; }

  /// True when angle and translation are exactly 0.
  bool isIdentity() const { return angle_.plain() == 0 && trans_.isNull(); }

  /// Whether this transform is near a reference: of inverse(reference) * this, the cosine of half the angle exceeds
  /// that of half the bounds' angle, and each translation component is, without its sign, strictly less than that of
  /// the bounds. Half angles tell whole turns apart: an angle of 359 degrees is not near 0.
  bool isBounded(const qc2Rigid& reference, const qc2Rigid& bounds) const {
    const qc2Rigid relation = reference.inverse() * *this;
    return cosHalf(relation.angle_) > cosHalf(bounds.angle_) &&
           std::fabs(relation.trans_.x()) < std::fabs(bounds.trans_.x()) &&
           std::fabs(relation.trans_.y()) < std::fabs(bounds.trans_.y());
  }

  friend bool operator==(const qc2Rigid& a, const qc2Rigid& b) { return a.angle_ == b.angle_ && a.trans_ == b.trans_; }

 private:
  static double cosHalf(const qcDegree& angle) { return std::cos(angle.plain() * qcRadian::perDegree * 0.5); }

  qcVector<2> trans_;
  qcDegree angle_;
  double sin_ = 0;
  double cos_ = 1;
};

/// The plain transform that applies `first` and then `xform`.
inline qcXform<2> operator*(const qcXform<2>& xform, const qc2Rigid& first) { return xform * first.linear(); }
