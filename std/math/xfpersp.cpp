#include "vnxstd/math/xfpersp.h"

#include <new>
#include <utility>

#include "std/math/nlxf.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/math/xfdeform.h"
#include "zrtnlxf/perspective.h"

namespace {

using Defs = qc2XformPerspectiveDefs;
using vnxstd::coordinates;
using vnxstd::newState;

constexpr const char* kSource = "std/math/xfpersp";
constexpr int kVersionLine = 236;

const qc_ErrorRegistration<Defs::Errors, Defs::BadParams, Defs::NumericalError> errorsRegistered;
const qc_Instantiator registered(typeid(qc2XformPerspective), &qc2XformPerspective::make);

// Of all three nonlinear transforms.
void convertStatus(long code) {
  switch (static_cast<zrtnlxf::Status>(code)) {
    case zrtnlxf::outOfMemory:
      throw std::bad_alloc();
    case zrtnlxf::badArgument:
      throw Defs::BadParams(L"bad points, order or numbers");
    case zrtnlxf::badDeformArgument:
      throw qc2XformDeformDefs::BadParams();
    case zrtnlxf::atInfinity:
      throw Defs::NumericalError(L"the point has no finite image");
    case zrtnlxf::singular:
      throw Defs::NumericalError(L"the transform has no inverse");
    case zrtnlxf::degenerate:
      throw Defs::NumericalError(L"the points determine no transform");
    case zrtnlxf::notConverged:
      throw Defs::NumericalError(L"no point is found that has this image");
    default:
      break;
  }
}

const struct ConverterRegistration {
  ConverterRegistration() { qfRegisterExceptionConverter(zrtnlxf::facility, &convertStatus); }
} converterRegistered;

qcMatrix<3> homogeneous(const qcXform<2>& xform) {
  const qcMatrix<2>& m = xform.matrix();
  return {m.element(0, 0),
          m.element(0, 1),
          xform.trans().x(),
          m.element(1, 0),
          m.element(1, 1),
          xform.trans().y(),
          0,
          0,
          1};
}

}  // namespace

void qc2XformPerspective::Destruct::operator()(qmath_xformPerspective* state) const noexcept {
  qmath_xformPerspective_destruct(state);
}

qc2XformPerspective::qc2XformPerspective(State state) noexcept : state_(std::move(state)) {}

qc2XformPerspective::qc2XformPerspective()
    : state_(newState<qmath_xformPerspective>(&qmath_xformPerspective_construct)) {}

qc2XformPerspective::qc2XformPerspective(const qcMatrix<3>& matrix) : qc2XformPerspective() {
  double elements[9];
  for (int i = 0; i < 9; ++i) elements[i] = matrix.element(i / 3, i % 3);
  qfThrowExceptionOnFailure(qmath_xformPerspective_setMatrix(state_.get(), elements));
}

qc2XformPerspective::qc2XformPerspective(const qcVector<2> (&from)[4], const qcVector<2> (&to)[4])
    : state_(newState<qmath_xformPerspective>(&qmath_xformPerspective_construct4Points, coordinates(from),
                                              coordinates(to))) {}

qc2XformPerspective::qc2XformPerspective(const std::vector<qcVector<2>>& from, const std::vector<qcVector<2>>& to) {
  if (from.size() != to.size()) throw Defs::BadParams(L"lists of unequal length");
  state_.reset(newState<qmath_xformPerspective>(&qmath_xformPerspective_constructPoints, coordinates(from.data()),
                                                coordinates(to.data()), from.size()));
}

qc2XformPerspective::qc2XformPerspective(const qmath_xformPerspective& state)
    : state_(newState<qmath_xformPerspective>(&qmath_xformPerspective_constructCopy, &state)) {}

qc2XformPerspective::qc2XformPerspective(const qc2XformPerspective& other)
    : qc2XformBase(other),
      state_(newState<qmath_xformPerspective>(&qmath_xformPerspective_constructCopy, other.state_.get())) {}

qc2XformPerspective& qc2XformPerspective::operator=(const qc2XformPerspective& other) {
  mutating();
  qfThrowExceptionOnFailure(qmath_xformPerspective_assign(state_.get(), other.state_.get()));
  return *this;
}

qc2XformPerspective::~qc2XformPerspective() = default;

qcMatrix<3> qc2XformPerspective::matrix() const {
  double h[9];
  qfThrowExceptionOnFailure(qmath_xformPerspective_getMatrix(state_.get(), h));
  return {h[0], h[1], h[2], h[3], h[4], h[5], h[6], h[7], h[8]};
}

bool qc2XformPerspective::isSingular() const { return qmath_xformPerspective_getIsSingular(state_.get()) == 1; }

qcVector<2> qc2XformPerspective::mapPoint(const qcVector<2>& point) const {
  const qmath_vect from = point;
  qmath_vect image;
  qfThrowExceptionOnFailure(qmath_xformPerspective_mapPoint(state_.get(), &from, &image));
  return image;
}

void qc2XformPerspective::mapPoints(const qcVector<2>* in, qcVector<2>* out, std::size_t count) const {
  qfThrowExceptionOnFailure(qmath_xformPerspective_mapPoints(state_.get(), coordinates(in), coordinates(out), count));
}

bool qc2XformPerspective::isLinear() const { return qmath_xformPerspective_getIsLinear(state_.get()) == 1; }

qc2XformLinear qc2XformPerspective::linearXform(const qcVector<2>& point) const {
  const qmath_vect at = point;
  qmath_xformLinear linear;
  qfThrowExceptionOnFailure(qmath_xformPerspective_getLinearXform(state_.get(), &at, &linear));
  return qcXform<2>(linear);
}

double qc2XformPerspective::bendBound(const qcVector<2>& center, const qcVector<2>& reach) const {
  const qmath_vect at = center;
  double bend = 0;
  qfThrowExceptionOnFailure(qmath_xformPerspective_getBend(state_.get(), &at, reach.len(), &bend));
  return bend;
}

qc2XformBase::Bend qc2XformPerspective::bendAlong(const qcVector<2>& center, const qcVector<2>& reach,
                                                  double width) const {
  const qmath_vect at = center, along = reach;
  Bend bend{};
  qfThrowExceptionOnFailure(
      qmath_xformPerspective_getBendAlong(state_.get(), &at, &along, width, &bend.along, &bend.across));
  return bend;
}

qcPtrHandle<qc2XformBase> qc2XformPerspective::composeBase(const qc2XformBase& other) const {
  if (const auto* perspective = dynamic_cast<const qc2XformPerspective*>(&other)) {
    return new qc2XformPerspective(matrix() * perspective->matrix());
  }
  if (!other.isLinear()) return qc2XformBase::composeBase(other);
  return new qc2XformPerspective(matrix() * homogeneous(other.linearXform(qcVector<2>())));
}

qcPtrHandle<qc2XformBase> qc2XformPerspective::inverseBase() const {
  return new qc2XformPerspective(
      State(newState<qmath_xformPerspective>(&qmath_xformPerspective_getInverse, state_.get())));
}

qcPtrHandle<qc2XformBase> qc2XformPerspective::clone() const { return new qc2XformPerspective(*this); }

qcPersistent* qc2XformPerspective::make() { return new qc2XformPerspective; }

void qc2XformPerspective::dispatchSerialize(qcArchive& archive) {
  serializeLevel(archive, this, 0, &qc2XformPerspective::serialize_);
}

void qc2XformPerspective::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, kSource, kVersionLine);
  qc2XformBase::dispatchSerialize(archive);
  qcMatrix<3> stored;
  if (archive.isStoring()) stored = matrix();
  archive || stored;
  if (archive.isLoading()) state_ = std::move(qc2XformPerspective(stored).state_);
}
