#include "measurement.h"

#include <algorithm>

#include <vnxstd/archive/file.h>
#include <vnxstd/archive/text.h>
#include <vnxstd/shapes/circle.h>
#include <vnxstd/shapes/line.h>

#include "format.h"

namespace {

const qc_Instantiator registered(typeid(vnxMeasurement), &vnxMeasurement::make);

}  // namespace

void vnxMeasurement::dispatchSerialize(qcArchive& archive) {
  serializeLevel(archive, this, 0, &vnxMeasurement::serialize_);
}

void vnxMeasurement::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(version, 0, "tools/vnx/measurement", 31);
  qcPersistent::dispatchSerialize(archive);
  archive || image || region || points || used || shape || frame || rms;
  if (archive.isLoading() && used.size() != points.size()) throw qcArchive::BadContent("tools/vnx/measurement", 34);
}

long vnxMeasurement::inliers() const { return static_cast<long>(std::count(used.begin(), used.end(), true)); }

std::string vnxMeasurement::shapeText() const {
  if (const auto* line = dynamic_cast<const qcFLine*>(shape.rep()))
    return formatted("line: angle %.4f deg, distance %.4f px", line->angle().plain(), line->distance());
  if (const auto* circle = dynamic_cast<const qcCircle*>(shape.rep()))
    return formatted("circle: centre (%.4f, %.4f), radius %.4f px", circle->center().x(), circle->center().y(),
                     circle->radius());
  return "no shape";
}

void saveMeasurement(const std::string& path, vnxMeasurement& measurement) {
  qcFileArchive archive(qf_Widen(path), qcArchive::storing);
  qcPtrHandle<vnxMeasurement> handle(&measurement);
  archive || handle;
  archive.close();
}

qcPtrHandle<vnxMeasurement> loadMeasurement(const std::string& path) {
  qcFileArchive archive(qf_Widen(path), qcArchive::loading, qcArchive::littleEndian, false, true);
  qcPtrHandle<vnxMeasurement> handle;
  archive || handle;
  return handle;
}
