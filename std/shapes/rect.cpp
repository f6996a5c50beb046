#include "vnxstd/shapes/rect.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "vnxstd/archive/archive.h"
#include "vnxstd/pelspan/pelspan.h"
#include "vnxstd/shapes/genrect.h"
#include "vnxstd/shapes/lineseg.h"
#include "vnxstd/shapes/polyline.h"

namespace {

const qc_Instantiator registered(typeid(qcRect), &qcRect::make);

// The end of a pixel range, no further from its start than a size can say.
long clampedEnd(long start, double end) {
  return std::clamp(qfICeil(end), start, std::min(start, 0L) + std::numeric_limits<std::int32_t>::max());
}

}  // namespace

qcRect::qcRect(const qcVector<2>& origin, const qcVector<2>& size) : origin_(origin), size_(size) {
  for (int i = 0; i < 2; ++i) {
    if (size_[i] < 0) {
      origin_[i] -= size_[i];
      size_[i] = -size_[i];
    }
  }
}

qcRect::qcRect(const qcPelRect& pels)
    : origin_(pels.ul()), size_(static_cast<double>(pels.width()), static_cast<double>(pels.height())) {}

qcRect qcRect::fromCorners(const qcVector<2>& low, const qcVector<2>& high) {
  qcRect rect;
  rect.origin_ = low;
  rect.size_ = high - low;
  for (int i = 0; i < 2; ++i) {
    // The next larger size is not below the exact difference, so that its sum is not below the corner.
    if (low[i] + rect.size_[i] < high[i]) rect.size_[i] = std::nextafter(rect.size_[i], HUGE_VAL);
  }
  return rect;
}

qcPersistent* qcRect::make() { return new qcRect; }

void qcRect::origin(const qcVector<2>& origin) {
  mutating();
  origin_ = origin;
}

void qcRect::size(const qcVector<2>& size) {
  mutating();
  size_ = size;
}

qcLineSeg qcRect::tSeg() const { return {ul(), ur()}; }
qcLineSeg qcRect::rSeg() const { return {ur(), lr()}; }
qcLineSeg qcRect::bSeg() const { return {lr(), ll()}; }
qcLineSeg qcRect::lSeg() const { return {ll(), ul()}; }

qcRect qcRect::operator&(const qcRect& other) const {
  if (degen() || other.degen()) return {};
  const qcVector<2> far = lr(), otherFar = other.lr();
  const double left = std::max(origin_.x(), other.origin_.x()), top = std::max(origin_.y(), other.origin_.y());
  const double right = std::min(far.x(), otherFar.x()), bottom = std::min(far.y(), otherFar.y());
  if (!(right - left > 0) || !(bottom - top > 0)) return {};
  return {{left, top}, {right - left, bottom - top}};
}

qcRect qcRect::enclose(const qcRect& other) const {
  const qcVector<2> far = lr(), otherFar = other.lr();
  const qcVector<2> low(std::min(origin_.x(), other.origin_.x()), std::min(origin_.y(), other.origin_.y()));
  const qcVector<2> high(std::max(far.x(), otherFar.x()), std::max(far.y(), otherFar.y()));
  return fromCorners(low, high);
}

qcPelRect qcRect::enclosePelRect() const {
  const long left = qfIFloor(origin_.x()), top = qfIFloor(origin_.y());
  return qcPelRect::fromCorners(left, top, clampedEnd(left, lr().x()), clampedEnd(top, lr().y()));
}

qcGenRect qcRect::map(const qcXform<2>& xform) const {
  return {xform.mapPoint(origin_), xform.mapVector({size_.x(), 0}), xform.mapVector({0, size_.y()})};
}

double qcRect::perimeter() const { return 2 * (std::fabs(size_.x()) + std::fabs(size_.y())); }

bool qcRect::isRightHanded() const { return (size_.x() < 0) == (size_.y() < 0) || size_.x() == 0 || size_.y() == 0; }

bool qcRect::within(const qcVector<2>& p) const {
  const qcVector<2> far = lr();
  return origin_.x() <= p.x() && p.x() <= far.x() && origin_.y() <= p.y() && p.y() <= far.y();
}

qcPtrHandle<qcShape> qcRect::mapShape(const qcXform<2>& xform) const {
  const qcMatrix<2>& m = xform.matrix();
  const bool scales = m.element(0, 1) == 0 && m.element(1, 0) == 0 && m.element(0, 0) > 0 && m.element(1, 1) > 0;
  if (!scales) return new qcGenRect(map(xform));
  qcPtrHandle<qcRect> mapped(new qcRect);
  mapped->origin_ = xform.mapPoint(origin_);
  mapped->size_ = xform.mapVector(size_);
  return mapped;
}

qcPtrHandle<qcShape> qcRect::reverse() const { return outline_().reverse(); }

bool qcRect::equal_(const qcShape& that) const { return equalAs(*this, that); }

void qcRect::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shapes", 3316);
  qcShape::dispatchSerialize(archive);
  serializeCommon(archive);
}

bool qcRect::loadLegacy(qcArchive& archive) {
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shapes", 3316);
  serializeCommon(archive);
  return true;
}

void qcRect::serializeCommon(qcArchive& archive) {
  qcVector<2> origin = origin_, size = size_;
  archive || origin || size;
  if (archive.isStoring()) return;
  origin_ = origin;
  size_ = size;
}
