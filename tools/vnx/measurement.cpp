#include "measurement.h"

#include <algorithm>
#include <cmath>

#include <vnxstd/archive/file.h>
#include <vnxstd/math/xflinear.h>
#include <vnxstd/shapes/circle.h>
#include <vnxstd/shapes/line.h>

#include "files.h"
#include "format.h"
#include "wholefile.h"

namespace {

const qc_Instantiator registered(typeid(vnxMeasurement), &vnxMeasurement::make);

constexpr double kStep = 2;         // pixels: how finely a line is followed through a distorted image
constexpr long kMostSteps = 20000;  // to either side
constexpr double kDrawn = 0.02;     // pixels: how far what is drawn may be from the shape

// Where a line leaves what `isInside`, counted along it from a place inside; found by steps, then by halving.
template <class IsInside>
double leaves(double from, double step, IsInside isInside) {
  double in = from, out = from + step;
  for (long i = 0; i < kMostSteps && isInside(out); ++i) {
    in = out;
    out += step;
  }
  for (int i = 0; i < 60; ++i) {
    const double middle = (in + out) / 2;
    (isInside(middle) ? in : out) = middle;
  }
  return in;
}

}  // namespace

std::optional<double> sizeOfPixel(const qc2XformBase& clientFromImage, const qcVector<2>& at) {
  try {
    const double size = std::sqrt(std::abs(clientFromImage.linearXform(at).matrix().determinant()));
    if (std::isfinite(size) && size > 0) return size;
  } catch (const qcException&) {
  }
  return std::nullopt;
}

void vnxMeasurement::dispatchSerialize(qcArchive& archive) {
  serializeLevel(archive, this, 1, &vnxMeasurement::serialize_);
}

void vnxMeasurement::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(version, 1, "tools/vnx/measurement", 31);
  qcPersistent::dispatchSerialize(archive);
  archive || image;
  if (version == 0) {
    qcRect rectangle;
    archive || rectangle;
    region = rectangle;
  } else {
    archive || region;
  }
  archive || points || used || shape || frame || rms;
  if (version > 0) archive || unit;
  if (archive.isLoading() && used.size() != points.size()) throw qcArchive::BadContent("tools/vnx/measurement", 34);
}

long vnxMeasurement::inliers() const { return static_cast<long>(std::count(used.begin(), used.end(), true)); }

bool vnxMeasurement::isCalibrated() const {
  const auto* linear = dynamic_cast<const qc2XformLinear*>(image.clientFromImageXformBase().rep());
  return !linear || !linear->isIdentity();
}

double vnxMeasurement::pixel() const {
  qcVector<2> sum;
  for (const qcVector<2>& p : points) sum += p;
  const qcVector<2> middle = points.empty() ? region.centre() : sum / static_cast<double>(points.size());
  return sizeOfPixel(*image.clientFromImageXformBase(), middle).value_or(1);
}

std::vector<double> vnxMeasurement::residuals() const {
  const qc2XformBase& clientFromImage = *image.clientFromImageXformBase();
  const auto* line = dynamic_cast<const qcFLine*>(shape.rep());
  std::vector<double> distances;
  for (const qcVector<2>& point : points) {
    try {
      const qcVector<2> p = clientFromImage.mapPoint(point);
      if (line) {
        distances.push_back(line->distanceFrom(p));
      } else {
        const double distance = shape->nearestPoint(p).distance(p);
        distances.push_back(shape->isRegion() && shape->within(p) ? -distance : distance);
      }
    } catch (const qcException&) {
      distances.push_back(0);
    }
  }
  return distances;
}

std::optional<qcLineSeg> vnxMeasurement::lineInRegion() const {
  const auto* line = dynamic_cast<const qcFLine*>(shape.rep());
  if (!line || points.empty()) return std::nullopt;
  const auto isInside = [&](double along) {
    try {
      return region.contains(image.imageFromClientXformBase()->mapPoint(line->foot() + line->dir() * along));
    } catch (const qcException&) {
      return false;
    }
  };
  // Between the points that carry the fit the line runs inside.
  qcVector<2> sum;
  for (std::size_t i = 0; i < points.size(); ++i)
    if (used[i]) sum += points[i];
  double middle = 0;
  try {
    const qcVector<2> mean = sum / static_cast<double>(std::max(inliers(), 1L));
    middle = line->distanceAlong(image.clientFromImageXformBase()->mapPoint(mean));
  } catch (const qcException&) {
    return std::nullopt;
  }
  const double step = kStep * pixel();
  if (!isInside(middle)) return std::nullopt;
  const double first = leaves(middle, -step, isInside), last = leaves(middle, step, isInside);
  return qcLineSeg(line->foot() + line->dir() * first, line->foot() + line->dir() * last);
}

std::vector<Chain> vnxMeasurement::shapeInImage() const {
  std::vector<Chain> chains;
  if (const auto part = lineInRegion()) {
    // A distorted line is bent.
    const double spacing = isCalibrated() ? std::max(kStep * pixel(), part->perimeter() / kMostSteps) : 0;
    chains = chainsOf(*part, qcShape::qcSampleParams(0, spacing, kMostSteps + 2, false, false));
  } else if (!shape.isNull() && shape->isFinite() && !shape->isEmpty()) {
    chains = chainsOf(*shape, kDrawn * pixel());
  }
  std::erase_if(chains, [this](Chain& chain) {
    try {
      image.imageFromClientXformBase()->mapPoints(chain.data(), chain.data(), chain.size());
      return false;
    } catch (const qcException&) {  // no place in the image
      return true;
    }
  });
  return chains;
}

std::string vnxMeasurement::number(double length) const {
  const int digits = std::clamp(4 - static_cast<int>(std::floor(std::log10(pixel()) + 1e-9)), 0, 12);
  return formatted("%.*f", digits, length);
}

std::string vnxMeasurement::lengthText(double length) const { return number(length) + ' ' + unit; }

std::string vnxMeasurement::pointText(const qcVector<2>& p) const {
  return '(' + number(p.x()) + ", " + number(p.y()) + ')';
}

std::string vnxMeasurement::shapeText() const {
  if (const auto* line = dynamic_cast<const qcFLine*>(shape.rep()))
    return formatted("line: angle %.4f deg, distance ", line->angle().plain()) + lengthText(line->distance());
  if (const auto* circle = dynamic_cast<const qcCircle*>(shape.rep()))
    return "circle: centre " + pointText(circle->center()) + ", radius " + lengthText(circle->radius());
  if (const auto* ellipse = dynamic_cast<const qcEllipse2*>(shape.rep()))
    return "ellipse: centre " + pointText(ellipse->center()) + ", radii " + number(ellipse->radii().x()) + " and " +
           lengthText(ellipse->radii().y()) + formatted(", angle %.4f deg", qcDegree(ellipse->angle()).plain());
  return "no shape";
}

void saveMeasurement(const std::string& path, vnxMeasurement& measurement) {
  writeWhole(path, Existing::replaced, [&](const std::string& part) {
    qcFileArchive archive(qf_Widen(part), qcArchive::storing);
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
