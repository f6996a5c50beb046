#include "vnxstd/shapes/ellipse.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "std/archive/found.h"
#include "std/shapes/ellipsecurve.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/shapes/ellipsearc.h"

namespace {

const qc_Instantiator registered(typeid(qcEllipse), &qcEllipse::make);
const qc_Instantiator registered2(typeid(qcEllipse2), &qcEllipse2::make);

constexpr char kSource[] = "std/shapes/ellipse";
constexpr int kEllipse = 412, kEllipse2 = 1540;  // what readers call themselves

constexpr double kRightAngle = std::numbers::pi / 2;

bool isRadius(double radius) { return radius >= 0 && std::isfinite(radius); }
bool areRadii(const qcVector<2>& radii) { return isRadius(radii.x()) && isRadius(radii.y()); }

const qcVector<2>& checkedRadii(const qcVector<2>& radii) {
  if (!areRadii(radii)) throw qcShapesError::BadParams();
  return radii;
}

qcRadian checkedAngle(const qcRadian& angle) {
  if (!std::isfinite(angle.plain())) throw qcShapesError::BadParams();
  return angle.signedNorm();
}

// a * d - b * c with the error of one rounding: W. Kahan's way with fused operations.
double determinant(double a, double b, double c, double d) {
  const double bc = b * c, lost = std::fma(-b, c, bc);
  return std::fma(a, d, -bc) + lost;
}

qcMatrix<2> matrixOf(const qcVector<2>& radii, const qcRadian& angle, bool rightHanded, const qcRadian& phase) {
  const double rx = radii.x(), ry = rightHanded ? radii.y() : -radii.y();
  const double ca = std::cos(angle.plain()), sa = std::sin(angle.plain());
  const double cp = std::cos(phase.plain()), sp = std::sin(phase.plain());
  return {rx * ca * cp - ry * sa * sp, -rx * ca * sp - ry * sa * cp,  //
          rx * sa * cp + ry * ca * sp, ry * ca * cp - rx * sa * sp};
}

}  // namespace

qcEllipse::qcEllipse(const qcVector<2>& center, const qcVector<2>& radii, const qcRadian& angle)
    : center_(center), radii_(checkedRadii(radii)), angle_(checkedAngle(angle)) {}

qcPersistent* qcEllipse::make() { return new qcEllipse; }

void qcEllipse::center(const qcVector<2>& center) { *this = qcEllipse(center, radii_, angle_); }
void qcEllipse::radii(const qcVector<2>& radii) { *this = qcEllipse(center_, radii, angle_); }
void qcEllipse::angle(const qcRadian& angle) { *this = qcEllipse(center_, radii_, angle); }

qcEllipse qcEllipse::map(const qcXform<2>& xform) const { return qcEllipse2(*this).map(xform).oldEllipse(); }

qcPtrHandle<qcShape> qcEllipse::mapShape(const qcXform<2>& xform) const { return qcEllipse2(*this).mapShape(xform); }

qcPtrHandle<qcShape> qcEllipse::decompose() const { return qcEllipse2(*this).decompose(); }

bool qcEllipse::equal_(const qcShape& that) const { return equalAs(*this, that); }

qc_shapes::EllipseCurve qcEllipse::curve_() const { return arcCurve(0, qcRadian::turn); }

qc_shapes::EllipseCurve qcEllipse::arcCurve(double from, double to) const {
  return {center_, radii_, angle_.plain(), 0, true, from, to};
}

void qcEllipse::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, kSource, kEllipse);
  qcShape::dispatchSerialize(archive);
  qcVector<2> center = center_, radii = radii_;
  qcRadian angle = angle_;
  archive || center || radii || angle;
  if (archive.isStoring()) return;
  if (!areRadii(radii) || !std::isfinite(angle.plain())) {
    throw archive.located(qcArchive::BadContent(kSource, kEllipse), "radii >= 0 and a finite angle",
                          qf_Found(radii.x(), radii.y(), angle.plain()));
  }
  center_ = center;
  radii_ = radii;
  angle_ = angle.signedNorm();
}

qcEllipse2::qcEllipse2(const qcVector<2>& center, const qcRadian& angle, const qcVector<2>& radii, bool isRightHanded,
                       const qcRadian& phase)
    : radii_(checkedRadii(radii)),
      angle_(checkedAngle(angle)),
      phase_(checkedAngle(phase)),
      rightHanded_(isRightHanded),
      map_(dofToMatrix(), center) {}

qcEllipse2::qcEllipse2(const qc2XformLinear& unitCircleMap) : map_(unitCircleMap) { matrixToDof(); }

qcEllipse2::qcEllipse2(const qcEllipse& ellipse)
    : qcEllipse2(ellipse.center(), ellipse.angle(), ellipse.radii(), true, qcRadian(0)) {}

qcEllipse2::qcEllipse2(double xx, double xy, double yy, double x, double y, double constant) {
  const double scale = std::copysign(std::max({std::fabs(xx), std::fabs(xy), std::fabs(yy)}), xx);
  const double a = xx / scale, b = xy / scale, c = yy / scale, d = x / scale, e = y / scale, f = constant / scale;
  const double det = determinant(a, b / 2, b / 2, c);
  if (!(det > 0)) throw qcShapesError::BadCoef();
  // The step to where a slope vanishes. The one from the origin finds the centre; rounding errors, which a long ellipse
  // multiplies, leave some slope there, and the second step takes that out.
  const auto stepFrom = [&](const qcVector<2>& slope) {
    return qcVector<2>(b * slope.y() - 2 * c * slope.x(), b * slope.x() - 2 * a * slope.y()) / (4 * det);
  };
  const qcVector<2> guess = stepFrom({d, e});
  const qcVector<2> slope(2 * a * guess.x() + b * guess.y() + d, b * guess.x() + 2 * c * guess.y() + e);
  const qcVector<2> step = stepFrom(slope), center = guess + step;
  // In coordinates from the centre the quadratic form is `level`; its eigenvalues belong to the axes.
  const double there = guess.x() * (a * guess.x() + b * guess.y() + d) + guess.y() * (c * guess.y() + e) + f;
  const double level = -(there + slope * step / 2);
  const double spread = std::hypot((a - c) / 2, b / 2), larger = (a + c) / 2 + spread, smaller = det / larger;
  const qcVector<2> radii(std::sqrt(level / smaller), std::sqrt(level / larger));
  if (!areRadii(radii) || !(radii.y() > 0)) throw qcShapesError::BadCoef();
  *this = qcEllipse2(center, qcRadian(spread == 0 ? 0.0 : std::atan2(-b, c - a) / 2), radii, true, qcRadian(0));
}

qcPersistent* qcEllipse2::make() { return new qcEllipse2; }

void qcEllipse2::center(const qcVector<2>& center) {
  mutating();
  map_.trans(center);
}

void qcEllipse2::radii(const qcVector<2>& radii) { *this = qcEllipse2(center(), angle_, radii, rightHanded_, phase_); }

void qcEllipse2::angle(const qcRadian& angle) { *this = qcEllipse2(center(), angle, radii_, rightHanded_, phase_); }

void qcEllipse2::phase(const qcRadian& phase) { *this = qcEllipse2(center(), angle_, radii_, rightHanded_, phase); }

void qcEllipse2::isRightHanded(bool isRightHanded) {
  *this = qcEllipse2(center(), angle_, radii_, isRightHanded, phase_);
}

void qcEllipse2::ellFromUnitCirc(const qc2XformLinear& unitCircleMap) { *this = qcEllipse2(unitCircleMap); }

void qcEllipse2::coeffs(double& xx, double& xy, double& yy, double& x, double& y, double& constant) const {
  if (isDegenerate()) throw qcShapesError::DegenerateShape();
  const double larger = std::max(radii_.x(), radii_.y()), rx = radii_.x() / larger, ry = radii_.y() / larger;
  const double ca = std::cos(angle_.plain()), sa = std::sin(angle_.plain()), u = center().x(), v = center().y();
  const double a = ry * ry * ca * ca + rx * rx * sa * sa, c = ry * ry * sa * sa + rx * rx * ca * ca;
  const double b = 2 * (ry - rx) * (ry + rx) * sa * ca;
  xx = a;
  xy = b;
  yy = c;
  x = -2 * a * u - b * v;
  y = -b * u - 2 * c * v;
  const double alongX = ry * (ca * u + sa * v), alongY = rx * (ca * v - sa * u);
  constant = alongX * alongX + alongY * alongY - rx * larger * (ry * larger) * rx * ry;
}

qcEllipse qcEllipse2::oldEllipse() const { return {center(), radii_, angle_}; }

qcEllipse2 qcEllipse2::map(const qc2XformLinear& xform) const {
  qcEllipse2 mapped(*this);
  mapped.map_ = xform * map_;
  mapped.matrixToDof();
  return mapped;
}

qcEllipse2 qcEllipse2::translate(const qcVector<2>& by) const {
  qcEllipse2 moved(*this);
  moved.center(center() + by);
  return moved;
}

qcEllipse2 qcEllipse2::rotate(const qcRadian& by) const { return map(qcXform<2>({by, by, 1, 1}, {})); }

qcEllipse2 qcEllipse2::scale(const qcVector<2>& factors) const {
  return map(qcXform<2>({factors.x(), 0, 0, factors.y()}, {}));
}

qcVector<2> qcEllipse2::point(const qcRadian& phi) const { return map_.mapPoint(qcVector<2>(1, phi)); }

qcRadian qcEllipse2::phi(const qcVector<2>& p) const { return qcRadian(curve_().parameterOf(p)).signedNorm(); }

qcRadian qcEllipse2::phiFromDir(const qcRadian& direction) const {
  if (isDegenerate()) throw qcShapesError::NoTangent();
  return qcRadian(curve_().parameterOfDirection(qcVector<2>(1, direction))).signedNorm();
}

qcRadian qcEllipse2::tangent(const qcRadian& phi) const { return curve_().tangent(phi.plain()); }

qcPtrHandle<qcShape> qcEllipse2::reverse() const {
  qcPtrHandle<qcEllipse2> reversed(new qcEllipse2(*this));
  const qcMatrix<2>& m = map_.matrix();
  reversed->map_.matrix({m.element(0, 0), -m.element(0, 1), m.element(1, 0), -m.element(1, 1)});
  reversed->rightHanded_ = !rightHanded_;
  reversed->phase_ = (-phase_).signedNorm();
  return reversed;
}

qcPtrHandle<qcShape> qcEllipse2::decompose() const {
  return new qcEllipseArc2(*this, qcRadian(0), qcRadian(qcRadian::turn));
}

bool qcEllipse2::equal_(const qcShape& that) const { return equalAs(*this, that); }

qc_shapes::EllipseCurve qcEllipse2::curve_() const { return arcCurve(0, qcRadian::turn); }

qc_shapes::EllipseCurve qcEllipse2::arcCurve(double from, double to) const {
  return {center(), radii_, angle_.plain(), phase_.plain(), rightHanded_, from, to};
}

qcMatrix<2> qcEllipse2::dofToMatrix() const { return matrixOf(radii_, angle_, rightHanded_, phase_); }

// The singular value decomposition. The matrix is the sum of a rotation by angle + phase times half the sum of the
// signed radii, and of a reflection, whose angle is angle - phase, times half their difference. The angles are rounded
// once, at the end: where long double is wider, their errors stay well below the precision of the matrix.
void qcEllipse2::matrixToDof() {
  const qcMatrix<2>& m = map_.matrix();
  int exponent = 0;
  double largest = 0;
  for (int i = 0; i < 4; ++i) {
    const double size = std::fabs(m.element(i / 2, i % 2));
    if (!std::isfinite(size)) throw qcShapesError::BadParams();
    largest = std::max(largest, size);
  }
  std::frexp(largest, &exponent);
  const auto element = [&](int row, int column) { return std::ldexp(m.element(row, column), -exponent); };
  const double a = element(0, 0), b = element(0, 1), c = element(1, 0), d = element(1, 1);
  const double turning = std::hypot(a + d, c - b) / 2, mirroring = std::hypot(a - d, b + c) / 2;
  const double det = determinant(a, b, c, d), first = turning + mirroring;
  const bool rightHanded = !(det < 0);
  qcVector<2> radii(first, first > 0 ? std::fabs(det) / first : 0);
  const auto angleOf = [](double y0, double y1, double x0, double x1) {
    return std::atan2(static_cast<long double>(y0) + y1, static_cast<long double>(x0) + x1);
  };
  long double sum = angleOf(c, -b, a, d), difference = angleOf(b, c, a, -d);  // of angle and phase
  // Radii that differ by less than rounding have any phase; it shall be 0.
  const double smaller = std::min(turning, mirroring), larger = std::max(turning, mirroring);
  const bool equal = smaller <= std::numeric_limits<double>::epsilon() * larger;
  if (equal) {
    radii = {larger, larger};
    (rightHanded ? difference : sum) = rightHanded ? sum : difference;
  } else {
    // Turning the axes by a right angle exchanges the radii, and turns one of both directions round.
    const double away = static_cast<double>(sum - difference) / 2 - phase_.plain();
    if (std::fmod(std::nearbyint(away / kRightAngle), 2) != 0) {
      radii = {radii.y(), radii.x()};
      (rightHanded ? difference : sum) = rightHanded ? angleOf(-b, -c, -a, d) : angleOf(-c, b, -a, -d);
    }
  }
  long double angle = (sum + difference) / 2, phase = (sum - difference) / 2;
  const qcRadian away = (qcRadian(static_cast<double>(phase)) - phase_).signedNorm();
  if (!equal && std::fabs(away.plain()) > kRightAngle) {
    angle -= std::copysign(std::numbers::pi_v<long double>, angle);
    phase -= std::copysign(std::numbers::pi_v<long double>, phase);
  }
  radii = {std::ldexp(radii.x(), exponent), std::ldexp(radii.y(), exponent)};
  radii_ = checkedRadii(radii);
  angle_ = qcRadian(static_cast<double>(angle)).signedNorm();
  phase_ = qcRadian(static_cast<double>(phase)).signedNorm();
  rightHanded_ = rightHanded;
}

void qcEllipse2::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, kSource, kEllipse2);
  qcShape::dispatchSerialize(archive);
  if (archive.isStoring()) {
    archive || radii_ || angle_ || phase_ || rightHanded_ || map_;
    return;
  }
  qcEllipse2 loaded;
  archive || loaded.radii_ || loaded.angle_ || loaded.phase_ || loaded.rightHanded_ || loaded.map_;
  // Both forms are kept, but for whole turns, as stored. They must agree, at least as well as anybody computes them.
  const bool finite = std::isfinite(loaded.angle_.plain()) && std::isfinite(loaded.phase_.plain());
  // The smallest numbers are multiples of 5e-324.
  const double tolerance = 1e-9 * loaded.radii_.x() + 1e-9 * loaded.radii_.y() + 1e-322;
  if (!areRadii(loaded.radii_) || !finite || !qfRealEq(loaded.dofToMatrix(), loaded.map_.matrix(), tolerance)) {
    throw archive.located(qcArchive::BadContent(kSource, kEllipse2), "radii and angles that make the map", "others");
  }
  radii_ = loaded.radii_;
  angle_ = loaded.angle_.signedNorm();
  phase_ = loaded.phase_.signedNorm();
  rightHanded_ = loaded.rightHanded_;
  map_ = loaded.map_;
}
