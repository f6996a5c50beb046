#include "vnxstd/shapes/affrect.h"

#include <cmath>
#include <numbers>

#include "std/shapes/exact.h"
#include "std/shapes/segment.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/pelspan/pelspan.h"
#include "vnxstd/shapes/rect.h"

namespace {

const qc_ErrorRegistration<qcAffineRectangle::Errors, qcAffineRectangle::BadLength, qcAffineRectangle::BadSkew>
    registered;
const qc_Instantiator registeredShape(typeid(qcAffineRectangle), &qcAffineRectangle::make);

constexpr char kSource[] = "std/shapes/affrect";
constexpr int kLine = 629;  // what readers call themselves

void checkLength(double length) {
  if (!(length > 0) || !std::isfinite(length)) throw qcAffineRectangle::BadLength();
}

void checkSkew(const qcRadian& skew) {
  if (qcAffineRectangle::isBadSkew(skew)) throw qcAffineRectangle::BadSkew();
}

void checkRotation(const qcRadian& rotation) {
  if (!std::isfinite(rotation.plain())) throw qcShapesError::BadParams();
}

qcVector<2> column(const qcMatrix<2>& matrix, int index) {
  return {matrix.element(0, index), matrix.element(1, index)};
}

qcMatrix<2> fromColumns(const qcVector<2>& x, const qcVector<2>& y) { return {x.x(), y.x(), x.y(), y.y()}; }

}  // namespace

qcAffineRectangle::qcAffineRectangle(const qcVector<2>& po, const qcVector<2>& px, const qcVector<2>& py) {
  cornersPoPxPy(po, px, py);
}

qcAffineRectangle::qcAffineRectangle(const qcVector<2>& center, double xLength, double yLength,
                                     const qcRadian& xRotation, const qcRadian& skew) {
  centerLengthsRotAndSkew(center, xLength, yLength, xRotation, skew);
}

qcPersistent* qcAffineRectangle::make() { return new qcAffineRectangle; }

void qcAffineRectangle::affRectFromUnitSq(const qcXform<2>& xform) {
  mutating();
  valid_ = 0;
  affRectFromUnitSq_ = xform;
}

void qcAffineRectangle::cornersPoPxPy(const qcVector<2>& po, const qcVector<2>& px, const qcVector<2>& py) {
  const qcMatrix<2> matrix = fromColumns(px - po, py - po);
  if (po == px || matrix.isSingular() || qc_shapes::orientation(po, px, py) == 0) throw BadLength();
  checkLength(qc_shapes::segmentLength(po, px));
  checkLength(qc_shapes::segmentLength(po, py));
  mutating();
  valid_ = kCornerPo | kCornerPx | kCornerPy;
  cornerPo_ = po;
  cornerPx_ = px;
  cornerPy_ = py;
  affRectFromUnitSq_ = {matrix, po};
}

void qcAffineRectangle::lengthsRotAndSkew(double xLength, double yLength, const qcRadian& xRotation,
                                          const qcRadian& skew) {
  checkLength(xLength);
  checkLength(yLength);
  checkSkew(skew);
  checkRotation(xRotation);
  mutating();
  valid_ = kXLength | kYLength | kXRotation | kYRotation;
  xLength_ = xLength;
  yLength_ = yLength;
  xRotation_ = xRotation.signedNorm();
  yRotation_ = (xRotation + skew).signedNorm();
  affRectFromUnitSq_.matrix({xRotation_, yRotation_, xLength, yLength});
}

void qcAffineRectangle::centerLengthsRotAndSkew(const qcVector<2>& center, double xLength, double yLength,
                                                const qcRadian& xRotation, const qcRadian& skew) {
  const qcVector<2> kept = center;  // it may be the translation of this rectangle
  lengthsRotAndSkew(xLength, yLength, xRotation, skew);
  affRectFromUnitSq_.trans(kept - (xSide() + ySide()) * 0.5);
  center_ = kept;
  valid_ |= kCenter;
}

void qcAffineRectangle::cornerPoLengthsRotAndSkew(const qcVector<2>& po, double xLength, double yLength,
                                                  const qcRadian& xRotation, const qcRadian& skew) {
  lengthsRotAndSkew(xLength, yLength, xRotation, skew);
  affRectFromUnitSq_.trans(po);
}

void qcAffineRectangle::center(const qcVector<2>& center) { sidesAround(center, xSide(), ySide()); }

void qcAffineRectangle::cornerPo(const qcVector<2>& po) {
  mutating();
  valid_ = 0;
  affRectFromUnitSq_.trans(po);
}

void qcAffineRectangle::xLength(double xLength) {
  checkLength(xLength);
  sidesAround(center(), qcVector<2>(xLength, xRotation()), ySide());
  xLength_ = xLength;
  valid_ |= kXLength;
}

void qcAffineRectangle::yLength(double yLength) {
  checkLength(yLength);
  sidesAround(center(), xSide(), qcVector<2>(yLength, yRotation()).perpendicular());
  yLength_ = yLength;
  valid_ |= kYLength;
}

void qcAffineRectangle::xRotation(const qcRadian& xRotation) {
  checkRotation(xRotation);
  const qcRadian x = xRotation.signedNorm(), y = (x + skew()).signedNorm();
  sidesAround(center(), qcVector<2>(xLength(), x), qcVector<2>(yLength(), y).perpendicular());
  xRotation_ = x;
  valid_ |= kXRotation;
}

void qcAffineRectangle::skew(const qcRadian& skew) {
  checkSkew(skew);
  const qcRadian y = (xRotation() + skew).signedNorm();
  sidesAround(center(), xSide(), qcVector<2>(yLength(), y).perpendicular());
  yRotation_ = y;
  valid_ |= kYRotation;
}

// By value: the centre may be the translation of this rectangle.
void qcAffineRectangle::sidesAround(qcVector<2> center, const qcVector<2>& xSide, const qcVector<2>& ySide) {
  mutating();
  affRectFromUnitSq_ = {fromColumns(xSide, ySide), center - (xSide + ySide) * 0.5};
  center_ = center;
  valid_ = kCenter;
}

qcVector<2> qcAffineRectangle::xSide() const { return column(affRectFromUnitSq_.matrix(), 0); }
qcVector<2> qcAffineRectangle::ySide() const { return column(affRectFromUnitSq_.matrix(), 1); }

qcVector<2> qcAffineRectangle::cornerPo() const {
  return cached(kCornerPo, cornerPo_, [this] { return corners_()[0]; });
}
qcVector<2> qcAffineRectangle::cornerPx() const {
  return cached(kCornerPx, cornerPx_, [this] { return corners_()[1]; });
}
qcVector<2> qcAffineRectangle::cornerPy() const {
  return cached(kCornerPy, cornerPy_, [this] { return corners_()[3]; });
}
qcVector<2> qcAffineRectangle::cornerPopp() const {
  return cached(kCornerPopp, cornerPopp_, [this] { return corners_()[2]; });
}
qcVector<2> qcAffineRectangle::center() const {
  return cached(kCenter, center_, [this] { return affRectFromUnitSq_.trans() + (xSide() + ySide()) * 0.5; });
}
double qcAffineRectangle::xLength() const {
  return cached(kXLength, xLength_, [this] { return std::hypot(xSide().x(), xSide().y()); });
}
double qcAffineRectangle::yLength() const {
  return cached(kYLength, yLength_, [this] { return std::hypot(ySide().x(), ySide().y()); });
}
// The rotations of the matrix, which a singular one would refuse to give.
qcRadian qcAffineRectangle::xRotation() const {
  return cached(kXRotation, xRotation_, [this] { return qcRadian(std::atan2(xSide().y(), xSide().x())).signedNorm(); });
}
qcRadian qcAffineRectangle::yRotation() const {
  return cached(kYRotation, yRotation_,
                [this] { return qcRadian(std::atan2(-ySide().x(), ySide().y())).signedNorm(); });
}
qcRadian qcAffineRectangle::skew() const { return (yRotation() - xRotation()).signedNorm(); }

bool qcAffineRectangle::isBadSkew(const qcRadian& skew) {
  const double magnitude = std::fabs(skew.signedNorm().plain());
  return !std::isfinite(magnitude) || qfRealEq(magnitude, std::numbers::pi / 2, kBadSkew);
}

qcAffineRectangle qcAffineRectangle::map(const qcXform<2>& xform) const {
  return qcAffineRectangle(xform * affRectFromUnitSq_);
}

qcRect qcAffineRectangle::encloseRect() const { return boundingBox(); }

qcPelRect qcAffineRectangle::encloseImageRect(const qcXform<2>& imageFromClient) const {
  qcVector<2> low(HUGE_VAL, HUGE_VAL), high = -low;
  for (int corner = 0; corner < 4; ++corner) {
    for (int row = 0; row < 2; ++row) {
      qc_shapes::ExactSum coordinate;
      coordinate.add(imageFromClient.trans()[row]);
      for (int i = 0; i < 2; ++i) {
        const double factor = imageFromClient.matrix().element(row, i);
        coordinate.addProduct(factor, affRectFromUnitSq_.trans()[i]);
        if ((corner & 1) != 0) coordinate.addProduct(factor, xSide()[i]);
        if ((corner & 2) != 0) coordinate.addProduct(factor, ySide()[i]);
      }
      low[row] = std::fmin(low[row], coordinate.floor());
      high[row] = std::fmax(high[row], coordinate.ceil());
    }
  }
  return qcRect::fromCorners(low, high).enclosePelRect();
}

qcPtrHandle<qcShape> qcAffineRectangle::reverse() const {
  return new qcAffineRectangle(qcXform<2>(fromColumns(ySide(), xSide()), affRectFromUnitSq_.trans()));
}

bool qcAffineRectangle::equal_(const qcShape& that) const { return equalAs(*this, that); }

std::array<qcVector<2>, 4> qcAffineRectangle::corners_() const {
  const qcVector<2>&po = affRectFromUnitSq_.trans(), x = xSide(), y = ySide();
  return {po, po + x, po + (x + y), po + y};
}

void qcAffineRectangle::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, kSource, kLine);
  qcShape::dispatchSerialize(archive);
  serializeCommon(archive);
}

bool qcAffineRectangle::loadLegacy(qcArchive& archive) {
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, kSource, kLine);
  serializeCommon(archive);
  return true;
}

void qcAffineRectangle::serializeCommon(qcArchive& archive) {
  archive || affRectFromUnitSq_;
  if (archive.isLoading()) valid_ = 0;
}
