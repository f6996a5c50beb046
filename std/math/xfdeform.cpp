#include "vnxstd/math/xfdeform.h"

#include "std/archive/found.h"
#include "std/math/nlxf.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/math/xfinverse.h"
#include "zrtnlxf/deform.h"

namespace {

using Defs = qc2XformDeformDefs;
using Points = std::vector<qcVector<2>>;
using vnxstd::coordinates;
using vnxstd::newState;

constexpr const char* kSource = "std/math/xfdeform";
constexpr int kVersionLine = 171;
constexpr int kContentLine = 186;

const qc_ErrorRegistration<Defs::Errors, Defs::BadParams> errorsRegistered;
const qc_Instantiator registered(typeid(qc2XformDeform), &qc2XformDeform::make);

qmath_xformDeformParts partsOf(const qmath_xformDeform* state) {
  qmath_xformDeformParts parts;
  qfThrowExceptionOnFailure(qmath_xformDeform_getParts(state, &parts));
  return parts;
}

Points pointsOf(const double* numbers, std::size_t count) {
  Points points(count);
  for (std::size_t i = 0; i < count; ++i) points[i] = qcVector<2>(numbers[2 * i], numbers[2 * i + 1]);
  return points;
}

}  // namespace

void qc2XformDeform::Destruct::operator()(qmath_xformDeform* state) const noexcept {
  qmath_xformDeform_destruct(state);
}

qc2XformDeform::qc2XformDeform() : state_(newState<qmath_xformDeform>(&qmath_xformDeform_construct)) {}

qc2XformDeform::qc2XformDeform(const Points& from, const Points& to, double smoothness) {
  if (from.size() != to.size()) throw Defs::BadParams();
  state_.reset(newState<qmath_xformDeform>(&qmath_xformDeform_constructPoints, coordinates(from.data()),
                                           coordinates(to.data()), from.size(), smoothness));
}

qc2XformDeform::qc2XformDeform(const qc2XformDeform& other)
    : qc2XformBase(other), state_(newState<qmath_xformDeform>(&qmath_xformDeform_constructCopy, other.state_.get())) {}

qc2XformDeform& qc2XformDeform::operator=(const qc2XformDeform& other) {
  qc2XformDeform copy(other);
  mutating();
  state_.swap(copy.state_);
  return *this;
}

qc2XformDeform::~qc2XformDeform() = default;

double qc2XformDeform::smoothness() const {
  double smoothness = 0;
  qfThrowExceptionOnFailure(qmath_xformDeform_getSmoothness(state_.get(), &smoothness));
  return smoothness;
}

Points qc2XformDeform::from() const {
  const qmath_xformDeformParts parts = partsOf(state_.get());
  return pointsOf(parts.from, parts.count);
}

Points qc2XformDeform::to() const {
  const qmath_xformDeformParts parts = partsOf(state_.get());
  return pointsOf(parts.to, parts.count);
}

qcVector<2> qc2XformDeform::origin() const { return partsOf(state_.get()).origin; }

void qc2XformDeform::update(const Points& from, const Points& to) {
  if (from.size() != to.size()) throw Defs::BadParams();
  mutating();
  qfThrowExceptionOnFailure(
      qmath_xformDeform_update(state_.get(), coordinates(from.data()), coordinates(to.data()), from.size()));
}

qcVector<2> qc2XformDeform::mapPoint(const qcVector<2>& point) const {
  const qmath_vect from = point;
  qmath_vect image;
  qfThrowExceptionOnFailure(qmath_xformDeform_mapPoint(state_.get(), &from, &image));
  return image;
}

void qc2XformDeform::mapPoints(const qcVector<2>* in, qcVector<2>* out, std::size_t count) const {
  qfThrowExceptionOnFailure(qmath_xformDeform_mapPoints(state_.get(), coordinates(in), coordinates(out), count));
}

qcVector<2> qc2XformDeform::invMapPoint(const qcVector<2>& point) const {
  const qmath_vect image = point;
  qmath_vect result;
  qfThrowExceptionOnFailure(qmath_xformDeform_getInverse(state_.get(), &image, &result));
  return result;
}

bool qc2XformDeform::isLinear() const { return qmath_xformDeform_getIsLinear(state_.get()) == 1; }

qc2XformLinear qc2XformDeform::linearXform(const qcVector<2>& point) const {
  const qmath_vect at = point;
  qmath_xformLinear linear;
  qfThrowExceptionOnFailure(qmath_xformDeform_getLinearXform(state_.get(), &at, &linear));
  return qcXform<2>(linear);
}

double qc2XformDeform::bendBound(const qcVector<2>& center, const qcVector<2>& reach) const {
  const qmath_vect at = center;
  double bend = 0;
  qfThrowExceptionOnFailure(qmath_xformDeform_getBend(state_.get(), &at, reach.len(), &bend));
  return bend;
}

qcPtrHandle<qc2XformBase> qc2XformDeform::inverseBase() const { return new qc2XformInverse(*this); }

qcPtrHandle<qc2XformBase> qc2XformDeform::clone() const { return new qc2XformDeform(*this); }

qcPersistent* qc2XformDeform::make() { return new qc2XformDeform; }

void qc2XformDeform::dispatchSerialize(qcArchive& archive) {
  serializeLevel(archive, this, 0, &qc2XformDeform::serialize_);
}

void qc2XformDeform::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, kSource, kVersionLine);
  qc2XformBase::dispatchSerialize(archive);
  qmath_xformDeformParts parts = partsOf(state_.get());
  qcVector<2> origin = parts.origin;
  Points from, to, weights;
  if (archive.isStoring()) {
    from = pointsOf(parts.from, parts.count);
    to = pointsOf(parts.to, parts.count);
    weights = pointsOf(parts.weights, parts.count);
  }
  archive || parts.smoothness || origin || parts.unit;
  archive.block(parts.affine, 6);
  archive || from || to || weights;
  if (archive.isStoring()) return;
  parts.origin = origin;
  parts.from = coordinates(from.data());
  parts.to = coordinates(to.data());
  parts.weights = coordinates(weights.data());
  parts.count = from.size();
  qmath_xformDeform* loaded = nullptr;
  const bool isEqual = to.size() == from.size() && weights.size() == from.size();
  const zrtnlxf::Status status =
      isEqual ? qmath_xformDeform_constructParts(&parts, &loaded) : zrtnlxf::badDeformArgument;
  if (status == zrtnlxf::outOfMemory) qfThrowExceptionOnFailure(status);
  if (status < 0) {
    throw archive.located(
        qcArchive::BadContent(kSource, kContentLine), "points that define the transform",
        isEqual ? "points that do not" : qf_Found(from.size(), to.size(), weights.size()) + " points");
  }
  state_.reset(loaded);
}
