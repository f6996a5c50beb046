#include "vnxstd/math/xfinverse.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

#include "vnxstd/archive/archive.h"
#include "vnxstd/math/xfpersp.h"
#include "zrtnlxf/points.h"

namespace {

constexpr const char* kSource = "std/math/xfinverse";
constexpr int kVersionLine = 94;
constexpr int kContentLine = 103;

const qc_Instantiator registered(typeid(qc2XformInverse), &qc2XformInverse::make);

[[noreturn]] void throwNoInverse() { throw qc2XformPerspectiveDefs::NumericalError(L"the expansion has no inverse"); }

qc2XformLinear inverseOf(const qc2XformLinear& linear) {
  const qcMatrix<2>& m = linear.matrix();
  const double terms = std::fabs(m.element(0, 0) * m.element(1, 1)) + std::fabs(m.element(0, 1) * m.element(1, 0));
  if (!(std::fabs(m.determinant()) > 8 * std::numeric_limits<double>::epsilon() * terms)) throwNoInverse();
  const qc2XformLinear inverse = linear.inverse();
  const qcMatrix<2>& n = inverse.matrix();
  for (const double number :
       {n.element(0, 0), n.element(0, 1), n.element(1, 0), n.element(1, 1), inverse.trans().x(), inverse.trans().y()}) {
    if (!std::isfinite(number)) throwNoInverse();
  }
  return inverse;
}

}  // namespace

qc2XformInverse::qc2XformInverse() : qc2XformInverse(qc2XformPoly()) {}

qc2XformInverse::qc2XformInverse(const qc2XformPoly& forward)
    : forward_(qcPtrHandle_const<qc2XformPoly>(new qc2XformPoly(forward))) {
  inverseOf(forward.linearXform(forward.origin()));
}

qc2XformInverse::qc2XformInverse(const qc2XformDeform& forward)
    : forward_(qcPtrHandle_const<qc2XformDeform>(new qc2XformDeform(forward))) {
  inverseOf(forward.linearXform(forward.origin()));
}

qc2XformInverse& qc2XformInverse::operator=(const qc2XformInverse& other) {
  mutating();
  forward_ = other.forward_;
  return *this;
}

const qc2XformBase& qc2XformInverse::forward() const {
  return std::visit([](const auto& forward) -> const qc2XformBase& { return *forward; }, forward_);
}

qcVector<2> qc2XformInverse::mapPoint(const qcVector<2>& point) const {
  return std::visit([&](const auto& forward) { return forward->invMapPoint(point); }, forward_);
}

bool qc2XformInverse::isLinear() const { return forward().isLinear(); }

qc2XformLinear qc2XformInverse::linearXform(const qcVector<2>& point) const {
  return inverseOf(forward().linearXform(isLinear() ? point : mapPoint(point)));
}

// With A the inverse derivative at the centre: where the derivative D of the transform undone differs from that at the
// centre's point by less than 1 / (2 |A|), over twice as far as A maps the reach, that disc covers what is around the
// centre, and D^-1 - A = A (D0 - D) D^-1 is a geometric series (the inverse function theorem).
double qc2XformInverse::bendBound(const qcVector<2>& center, const qcVector<2>& reach) const {
  if (isLinear()) return 0;
  const qcMatrix<2> inverse = linearXform(center).matrix();
  const double norm = zrtnlxf::norm(inverse), length = 2 * norm * reach.len();
  const qcVector<2> along = inverse * reach;
  const double part = norm * forward().bendBound(mapPoint(center), along * (length / std::max(along.len(), 1e-300)));
  return part <= 0.5 ? norm * part / (1 - part) : std::numeric_limits<double>::infinity();
}

qcPtrHandle<qc2XformBase> qc2XformInverse::inverseBase() const { return forward().clone(); }

qcPtrHandle<qc2XformBase> qc2XformInverse::clone() const {
  return std::visit(
      [](const auto& forward) -> qcPtrHandle<qc2XformBase> {
        using Class = std::remove_const_t<typename std::remove_cvref_t<decltype(forward)>::element_type>;
        return new qc2XformInverse(Forward(qcPtrHandle_const<Class>(new Class(*forward))));
      },
      forward_);
}

qcPersistent* qc2XformInverse::make() { return new qc2XformInverse; }

void qc2XformInverse::dispatchSerialize(qcArchive& archive) {
  serializeLevel(archive, this, 0, &qc2XformInverse::serialize_);
}

void qc2XformInverse::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, kSource, kVersionLine);
  qc2XformBase::dispatchSerialize(archive);
  qcPtrHandle_const<qc2XformBase> stored;
  if (archive.isStoring()) stored = qcPtrHandle_const<qc2XformBase>(&forward());
  archive || stored;
  if (archive.isStoring()) return;
  if (const auto* poly = dynamic_cast<const qc2XformPoly*>(stored.rep())) {
    forward_ = qcPtrHandle_const<qc2XformPoly>(poly);
  } else if (const auto* deform = dynamic_cast<const qc2XformDeform*>(stored.rep())) {
    forward_ = qcPtrHandle_const<qc2XformDeform>(deform);
  } else {  // what could hold others could hold this one
    throw qcArchive::BadContent(kSource, kContentLine);
  }
}
