#include "vnxstd/math/xfbase.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "vnxstd/archive/archive.h"
#include "vnxstd/math/xfcomp.h"
#include "zrtnlxf/points.h"

namespace {

// People search logs and old reports for the places named in errors, so these do not follow the source.
constexpr const char* kSource = "std/math/xfbase";
constexpr int kVersionLine = 58;

const qc_Instantiator baseRegistered(typeid(qc2XformBase), nullptr);
const qc_ErrorRegistration<qc2XformDefs::Errors, qc2XformDefs::NotImplemented> errorsRegistered;

}  // namespace

qcPtrHandle<qc2XformBase> qc2XformBase::composeBase(const qc2XformBase& other) const {
  return new qc2XformComposed(*this, other, true, true);
}

qcPtrHandle<qc2XformBase> qc2XformBase::inverseBase() const { throw qc2XformDefs::NotImplemented(); }

qcPtrHandle<qc2XformBase> qc2XformBase::clone() const { throw qc2XformDefs::NotImplemented(); }

void qc2XformBase::mapPoints(const qcVector<2>* in, qcVector<2>* out, std::size_t count) const {
  for (std::size_t i = 0; i < count; ++i) out[i] = mapPoint(in[i]);
}

double qc2XformBase::bendBound(const qcVector<2>& center, const qcVector<2>& reach) const {
  constexpr int kPoints = 256;
  constexpr double kGolden = 0.6180339887498949;  // steps of this part of a turn lie evenly, but in no pattern
  const qcMatrix<2> middle = linearXform(center).matrix();
  if (isLinear()) return 0;
  const double radius = reach.len();
  double largest = 0;
  const auto look = [&](const qcVector<2>& at) {
    const double difference = zrtnlxf::norm(linearXform(at).matrix() - middle);
    largest = std::isfinite(difference) ? std::max(largest, difference) : std::numeric_limits<double>::infinity();
  };
  try {
    for (const double end : {-1.0, 1.0}) look(center + end * reach);
    for (int i = 1; i <= kPoints; ++i) {
      const double turn = kGolden * i, along = 2 * (turn - std::floor(turn)) - 1;
      look(center + along * reach);
      look(center + qcVector<2>(std::sqrt(static_cast<double>(i) / kPoints) * radius, qcRadian(qcRadian::turn * turn)));
    }
  } catch (const qcException&) {  // a point without an image
    return std::numeric_limits<double>::infinity();
  }
  return 2 * largest;
}

qc2XformBase::Bend qc2XformBase::bendAlong(const qcVector<2>& center, const qcVector<2>& reach, double) const {
  const double bend = bendBound(center, reach);
  return {bend, bend};
}

void qc2XformBase::dispatchSerialize(qcArchive& archive) {
  serializeLevel(archive, this, 0, &qc2XformBase::serialize_);
}

void qc2XformBase::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, kSource, kVersionLine);
  qcPersistent::dispatchSerialize(archive);
}
