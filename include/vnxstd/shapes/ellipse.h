// Ellipses.
#pragma once

#include "vnxstd/export.h"
#include "vnxstd/math/xflinear.h"
#include "vnxstd/shapes/ellipseshape.h"

class qcEllipse2;

/// An ellipse by its centre, the two semi-axes (its radii), and the direction of the first of them. Its boundary starts
/// on the first axis and is always right-handed. The older of two classes: a qcEllipse2 also knows where its boundary
/// starts and in which direction it runs.
class VNXSTD_EXPORT qcEllipse : public qc_EllipseShape {
 public:
  /// The unit circle.
  qcEllipse() = default;
  /// The angle is kept reduced into [-pi, pi). Throws qcShapesError::BadParams when a radius is negative, infinite or
  /// NaN, or the angle is not finite; so do the setters, and then change nothing.
  qcEllipse(const qcVector<2>& center, const qcVector<2>& radii, const qcRadian& angle);
  static qcPersistent* make();

  const qcVector<2>& center() const { return center_; }
  const qcVector<2>& radii() const { return radii_; }
  const qcRadian& angle() const { return angle_; }
  void center(const qcVector<2>& center);
  void radii(const qcVector<2>& radii);
  void angle(const qcRadian& angle);

  /// A radius is exactly 0.
  bool isDegenerate() const { return radii_.x() == 0 || radii_.y() == 0; }
  /// The image under an affine map.
  qcEllipse map(const qcXform<2>& xform) const;

  qcPtrHandle<qcShape> clone() const override { return new qcEllipse(*this); }
  bool isRegion() const override { return true; }
  bool isDecomposed() const override { return false; }
  bool isReversible() const override { return false; }
  bool isRightHanded() const override { return true; }
  /// A qcEllipse2, which keeps where the boundary starts and its direction.
  qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const override;
  /// A qcEllipseArc2 that runs once round.
  qcPtrHandle<qcShape> decompose() const override;
  bool equal_(const qcShape& that) const override;
  friend bool operator==(const qcEllipse& a, const qcEllipse& b) {
    return a.center_ == b.center_ && a.radii_ == b.radii_ && a.angle_ == b.angle_;
  }

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &qcEllipse::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version);
  qc_shapes::EllipseCurve curve_() const override;

 private:
  template <class Arc, class Ellipse>
  friend class qc_EllipseArcOf;
  qc_shapes::EllipseCurve arcCurve(double from, double to) const;

  qcVector<2> center_;
  qcVector<2> radii_{1, 1};
  qcRadian angle_;
};

/// An ellipse as an affine image of the unit circle, kept in two forms that always agree: the transform, which makes
/// mapping exact, and its degrees of freedom. The matrix of the transform is R(angle) * diag(rx, s * ry) * R(phase),
/// where s is 1 for a right-handed ellipse and -1 for a left-handed one, and its translation is the centre. The
/// boundary is traced by the image of (cos phi, sin phi), from phi = 0 on.
///
/// Of the four ways to read the degrees of freedom from a matrix (the axes in either order, each in either direction)
/// the one is taken whose phase is nearest to the phase before, or to 0 without one, so that rotations and scalings
/// leave the phase alone; for equal radii the phase is 0. They reproduce the matrix to 1e-15 times its norm.
///
/// Radii that are negative, infinite or NaN, angles that are not finite, and maps that would give such radii, throw
/// qcShapesError::BadParams; setters then change nothing.
class VNXSTD_EXPORT qcEllipse2 : public qc_EllipseShape {
 public:
  /// The unit circle, right-handed.
  qcEllipse2() = default;
  /// The angles are kept reduced into [-pi, pi).
  qcEllipse2(const qcVector<2>& center, const qcRadian& angle, const qcVector<2>& radii, bool isRightHanded,
             const qcRadian& phase);
  /// The image of the unit circle.
  explicit qcEllipse2(const qc2XformLinear& unitCircleMap);
  qcEllipse2(const qcEllipse& ellipse);
  /// The points where xx * x * x + xy * x * y + yy * y * y + x * x + ... + constant, with the coefficients in this
  /// order, is 0; right-handed, with phase 0. Throws qcShapesError::BadCoef when these are not an ellipse with two
  /// positive radii.
  qcEllipse2(double xx, double xy, double yy, double x, double y, double constant);
  static qcPersistent* make();

  const qcVector<2>& center() const { return map_.trans(); }
  const qcVector<2>& radii() const { return radii_; }
  const qcRadian& angle() const { return angle_; }
  const qcRadian& phase() const { return phase_; }
  qc2XformLinear unitCircleMap() const { return map_; }
  void center(const qcVector<2>& center);
  void radii(const qcVector<2>& radii);
  void angle(const qcRadian& angle);
  void phase(const qcRadian& phase);
  void isRightHanded(bool isRightHanded);
  /// Makes this the image of the unit circle.
  void ellFromUnitCirc(const qc2XformLinear& unitCircleMap);

  /// Coefficients of the conic, in the order of the constructor; those of xx and yy are not negative. Numbers of this
  /// precision place an ellipse to about 1e-15 * (larger radius + distance of the centre from the origin)^2 / smaller
  /// radius^2 of its larger radius: long ellipses do not come back from them. Throws qcShapesError::DegenerateShape
  /// when a radius is 0.
  void coeffs(double& xx, double& xy, double& yy, double& x, double& y, double& constant) const;
  /// The same ellipse without phase and handedness.
  qcEllipse oldEllipse() const;
  /// A radius is exactly 0.
  bool isDegenerate() const { return radii_.x() == 0 || radii_.y() == 0; }

  // The images under affine maps; rotation and scaling are about the origin.
  qcEllipse2 map(const qc2XformLinear& xform) const;
  qcEllipse2 translate(const qcVector<2>& by) const;
  qcEllipse2 rotate(const qcRadian& by) const;
  qcEllipse2 scale(const qcVector<2>& factors) const;

  /// The image of (cos phi, sin phi).
  qcVector<2> point(const qcRadian& phi) const;
  /// The parameter, in [-pi, pi), of the point where the ray from the centre through `p` meets the ellipse; for the
  /// centre itself that of the end of the first axis. On a flat ellipse, of the nearest point, on the way out.
  qcRadian phi(const qcVector<2>& p) const;
  /// The parameter, in [-pi, pi), at which the tangent has a direction. Throws qcShapesError::NoTangent when
  /// degenerate.
  qcRadian phiFromDir(const qcRadian& direction) const;
  /// The direction of the boundary at a parameter. Throws qcShapesError::NoTangent when degenerate.
  qcRadian tangent(const qcRadian& phi) const;

  qcPtrHandle<qcShape> clone() const override { return new qcEllipse2(*this); }
  bool isRegion() const override { return true; }
  bool isDecomposed() const override { return false; }
  bool isReversible() const override { return true; }
  /// The boundary runs counter-clockwise, from the x axis towards the y axis, as the parameter grows.
  bool isRightHanded() const override { return rightHanded_; }
  qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const override { return new qcEllipse2(map(xform)); }
  /// An ellipse of the other handedness that starts at the same point.
  qcPtrHandle<qcShape> reverse() const override;
  /// A qcEllipseArc2 that runs once round.
  qcPtrHandle<qcShape> decompose() const override;
  bool equal_(const qcShape& that) const override;
  friend bool operator==(const qcEllipse2& a, const qcEllipse2& b) {
    return a.radii_ == b.radii_ && a.angle_ == b.angle_ && a.phase_ == b.phase_ && a.rightHanded_ == b.rightHanded_ &&
           a.map_ == b.map_;
  }

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &qcEllipse2::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version);
  qc_shapes::EllipseCurve curve_() const override;

 private:
  template <class Arc, class Ellipse>
  friend class qc_EllipseArcOf;
  qc_shapes::EllipseCurve arcCurve(double from, double to) const;
  qcMatrix<2> dofToMatrix() const;
  void matrixToDof();

  qcVector<2> radii_{1, 1};
  qcRadian angle_;
  qcRadian phase_;
  bool rightHanded_ = true;
  qc2XformLinear map_;
};
