#include "vnxstd/math/xfpoly.h"

#include <algorithm>
#include <cmath>

#include "std/archive/found.h"
#include "std/math/nlxf.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/math/xfinverse.h"
#include "vnxstd/math/xfpersp.h"
#include "zrtnlxf/polynomial.h"

namespace {

using vnxstd::coordinates;

constexpr const char* kSource = "std/math/xfpoly";
constexpr int kVersionLine = 188;
constexpr int kContentLine = 197;

static_assert(qc2XformPoly::kMaxOrder == zrtnlxf::kMaxPolyOrder);

const qc_ErrorRegistration<qc2XformPoly::Errors, qc2XformPoly::BadParams, qc2XformPoly::IllDefined> errorsRegistered;
const qc_Instantiator registered(typeid(qc2XformPoly), &qc2XformPoly::make);

int checked(zrtnlxf::Status status) {
  qfThrowExceptionOnFailure(status);
  return status;
}

}  // namespace

std::size_t qc2XformPoly::size(int order) { return static_cast<std::size_t>(checked(qmath_xformPolySize(order))); }

int qc2XformPoly::minOrder(const std::vector<qcVector<2>>& points) {
  return checked(qmath_xformPolyMinOrder_(coordinates(points.data()), points.size()));
}

int qc2XformPoly::maxOrder(const std::vector<qcVector<2>>& points) {
  return checked(qmath_xformPolyMaxOrder_(coordinates(points.data()), points.size()));
}

qc2XformPoly::qc2XformPoly(int order) : order_(order), coefs_(2 * size(order)) {
  qfThrowExceptionOnFailure(qmath_xformPolyInitIdentityArray_(order_, coefs_.data()));
}

qc2XformPoly::qc2XformPoly(int order, const std::vector<double>& xCoefs, const std::vector<double>& yCoefs,
                           const qcVector<2>& origin, const qcVector<2>& scale)
    : order_(order), origin_(origin), scale_(scale), coefs_(xCoefs) {
  coefs_.insert(coefs_.end(), yCoefs.begin(), yCoefs.end());
  if (xCoefs.size() != yCoefs.size() || !isValid()) {
    throw qc2XformPerspectiveDefs::BadParams(L"bad order, coefficients, origin or scale");
  }
}

qc2XformPoly::qc2XformPoly(const std::vector<qcVector<2>>& from, const std::vector<qcVector<2>>& to, int order)
    : order_(order), coefs_(2 * size(order)) {
  if (from.size() != to.size()) throw qc2XformPerspectiveDefs::BadParams(L"lists of unequal length");
  qmath_vect origin, scale;
  qfThrowExceptionOnFailure(qmath_xformPolyFit_(coordinates(from.data()), coordinates(to.data()), from.size(), order_,
                                                &origin, &scale, coefs_.data()));
  origin_ = origin;
  scale_ = scale;
}

qc2XformPoly& qc2XformPoly::operator=(const qc2XformPoly& other) {
  std::vector<double> coefs = other.coefs_;
  mutating();
  order_ = other.order_;
  origin_ = other.origin_;
  scale_ = other.scale_;
  coefs_.swap(coefs);
  return *this;
}

std::vector<double> qc2XformPoly::xCoefs() const {
  return {coefs_.begin(), coefs_.begin() + static_cast<std::ptrdiff_t>(coefs_.size() / 2)};
}

std::vector<double> qc2XformPoly::yCoefs() const {
  return {coefs_.begin() + static_cast<std::ptrdiff_t>(coefs_.size() / 2), coefs_.end()};
}

bool qc2XformPoly::isValid() const {
  const auto isFinite = [](double value) { return std::isfinite(value); };
  return order_ >= 1 && order_ <= kMaxOrder && coefs_.size() == 2 * size(order_) &&
         std::ranges::all_of(coefs_, isFinite) && isFinite(origin_.x()) && isFinite(origin_.y()) &&
         isFinite(scale_.x()) && isFinite(scale_.y()) && scale_.x() != 0 && scale_.y() != 0;
}

qmath_xformPoly qc2XformPoly::poly() const { return {order_, origin_, scale_, coefs_.data()}; }

qcVector<2> qc2XformPoly::mapPoint(const qcVector<2>& point) const {
  const qmath_vect from = point;
  const qmath_xformPoly p = poly();
  qmath_vect image;
  qfThrowExceptionOnFailure(qmath_xformPolyMapPoint_(&p, &from, &image));
  return image;
}

void qc2XformPoly::mapPoints(const qcVector<2>* in, qcVector<2>* out, std::size_t count) const {
  const qmath_xformPoly p = poly();
  qfThrowExceptionOnFailure(qmath_xformPolyMapPoints_(&p, coordinates(in), coordinates(out), count));
}

qcVector<2> qc2XformPoly::invMapPoint(const qcVector<2>& point) const {
  const qmath_vect image = point;
  const qmath_xformPoly p = poly();
  qmath_vect result;
  qfThrowExceptionOnFailure(qmath_xformPolyInvMapPoint_(&p, &image, &result));
  return result;
}

bool qc2XformPoly::isLinear() const {
  const qmath_xformPoly p = poly();
  return qmath_xformPolyIsLinear_(&p) == 1;
}

qc2XformLinear qc2XformPoly::linearXform(const qcVector<2>& point) const {
  const qmath_vect at = point;
  const qmath_xformPoly p = poly();
  qmath_xformLinear linear;
  qfThrowExceptionOnFailure(qmath_xformPolyLinearXform_(&p, &at, &linear));
  return qcXform<2>(linear);
}

double qc2XformPoly::bendBound(const qcVector<2>& center, const qcVector<2>& reach) const {
  const qmath_vect at = center;
  const qmath_xformPoly p = poly();
  double bend = 0;
  qfThrowExceptionOnFailure(qmath_xformPolyBend_(&p, &at, reach.len(), &bend));
  return bend;
}

qc2XformBase::Bend qc2XformPoly::bendAlong(const qcVector<2>& center, const qcVector<2>& reach, double width) const {
  if (width > 0) return qc2XformBase::bendAlong(center, reach, width);
  const qmath_vect at = center, along = reach;
  const qmath_xformPoly p = poly();
  double bend = 0;
  qfThrowExceptionOnFailure(qmath_xformPolyBendAlong_(&p, &at, &along, &bend));
  return {bend, bend};
}

qcPtrHandle<qc2XformBase> qc2XformPoly::leftCompose(const qcXform<2>& second) const {
  const std::size_t n = size(order_);
  std::vector<double> x(n), y(n);
  for (std::size_t i = 0; i < n; ++i) {
    const qcVector<2> image = second.mapVector(qcVector<2>(coefs_[i], coefs_[n + i]));
    x[i] = image.x();
    y[i] = image.y();
  }
  x[0] += second.trans().x();
  y[0] += second.trans().y();
  return new qc2XformPoly(order_, x, y, origin_, scale_);
}

qcPtrHandle<qc2XformBase> qc2XformPoly::inverseBase() const { return new qc2XformInverse(*this); }

qcPtrHandle<qc2XformBase> qc2XformPoly::clone() const { return new qc2XformPoly(*this); }

qcPersistent* qc2XformPoly::make() { return new qc2XformPoly; }

void qc2XformPoly::dispatchSerialize(qcArchive& archive) {
  serializeLevel(archive, this, 0, &qc2XformPoly::serialize_);
}

void qc2XformPoly::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, kSource, kVersionLine);
  qc2XformBase::dispatchSerialize(archive);
  if (archive.isStoring()) {
    archive || order_ || origin_ || scale_;
    archive.block(coefs_.data(), coefs_.size());
    return;
  }
  qc2XformPoly loaded;
  archive || loaded.order_ || loaded.origin_ || loaded.scale_;
  if (loaded.order_ < 1 || loaded.order_ > kMaxOrder) {
    throw archive.located(qcArchive::BadContent(kSource, kContentLine), "an order from 1 to " + qf_Found(kMaxOrder),
                          qf_Found(loaded.order_));
  }
  loaded.coefs_.resize(2 * size(loaded.order_));
  archive.block(loaded.coefs_.data(), loaded.coefs_.size());
  if (!loaded.isValid()) {
    throw archive.located(qcArchive::BadContent(kSource, kContentLine), "finite numbers, and a scale that is not 0",
                          "a scale of " + qf_Found(loaded.scale_.x(), loaded.scale_.y()));
  }
  order_ = loaded.order_;
  origin_ = loaded.origin_;
  scale_ = loaded.scale_;
  coefs_.swap(loaded.coefs_);
}
