#include "vnxstd/shapes/genrect.h"

#include "vnxstd/archive/archive.h"

namespace {

const qc_Instantiator registered(typeid(qcGenRect), &qcGenRect::make);

}  // namespace

qcPersistent* qcGenRect::make() { return new qcGenRect; }

void qcGenRect::origin(const qcVector<2>& origin) {
  mutating();
  origin_ = origin;
}

void qcGenRect::xSide(const qcVector<2>& xSide) {
  mutating();
  xSide_ = xSide;
}

void qcGenRect::ySide(const qcVector<2>& ySide) {
  mutating();
  ySide_ = ySide;
}

qcGenRect qcGenRect::map(const qcXform<2>& xform) const {
  return {xform.mapPoint(origin_), xform.mapVector(xSide_), xform.mapVector(ySide_)};
}

bool qcGenRect::equal_(const qcShape& that) const { return equalAs(*this, that); }

void qcGenRect::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, "std/shapes/genrect", 0);
  qcShape::dispatchSerialize(archive);
  qcVector<2> origin = origin_, xSide = xSide_, ySide = ySide_;
  archive || origin || xSide || ySide;
  if (archive.isStoring()) return;
  origin_ = origin;
  xSide_ = xSide;
  ySide_ = ySide;
}
