#include "measurement.h"

#include <algorithm>
#include <limits>

#include <vnxstd/archive/file.h>
#include <vnxstd/math/rigid.h>
#include <vnxstd/shapes/circle.h>
#include <vnxstd/shapes/line.h>

#include "files.h"
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

// Liang and Barsky 1984.
std::optional<qcLineSeg> vnxMeasurement::lineInRegion() const {
  const auto* line = dynamic_cast<const qcFLine*>(shape.rep());
  if (!line) return std::nullopt;
  const qc2Rigid onLine = line->rigid_();
  const qcVector<2> p = onLine * qcVector<2>(0, 0), d = onLine.mapVector(qcVector<2>(1, 0));
  double first = -std::numeric_limits<double>::infinity(), last = -first;
  const auto cut = [&](double from, double step, double least, double most) {
    if (step == 0) return least <= from && from <= most;
    const double a = (least - from) / step, b = (most - from) / step;
    first = std::max(first, std::min(a, b));
    last = std::min(last, std::max(a, b));
    return first <= last;
  };
  const qcVector<2> low = region.origin(), high = region.lr();
  if (!cut(p.x(), d.x(), low.x(), high.x()) || !cut(p.y(), d.y(), low.y(), high.y())) return std::nullopt;
  return qcLineSeg(p + d * first, p + d * last);
}

std::string vnxMeasurement::shapeText() const {
  if (const auto* line = dynamic_cast<const qcFLine*>(shape.rep()))
    return formatted("line: angle %.4f deg, distance %.4f px", line->angle().plain(), line->distance());
  if (const auto* circle = dynamic_cast<const qcCircle*>(shape.rep()))
    return formatted("circle: centre (%.4f, %.4f), radius %.4f px", circle->center().x(), circle->center().y(),
                     circle->radius());
  return "no shape";
}

void saveMeasurement(const std::string& path, vnxMeasurement& measurement) {
  onFile(path, [&](const std::wstring& name) {
    qcFileArchive archive(name, qcArchive::storing);
    qcPtrHandle<vnxMeasurement> handle(&measurement);
    archive || handle;
    archive.close();
  });
}

qcPtrHandle<vnxMeasurement> loadMeasurement(const std::string& path) {
  return onFile(path, [](const std::wstring& name) {
    qcFileArchive archive(name);
    qcPtrHandle<vnxMeasurement> handle;
    archive || handle;
    return handle;
  });
}
