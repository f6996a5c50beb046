#include "demo.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ostream>

#include <vnxstd/pelbuf/rootpool.h>
#include <vnxstd/shapes/circle.h>
#include <vnxstd/shapes/line.h>

#include "files.h"
#include "gauge.h"
#include "overlay.h"
#include "part.h"
#include "platedemo.h"
#include "wholefile.h"

namespace {

constexpr long kWidth = 640, kHeight = 480;
constexpr double kTolerance = 0.05;  // pixels
constexpr const char* kImage = "part.bmp";

struct Job {
  const char* name;
  Feature feature;
  Polarity polarity;
  qcRect region;
  qcVector<2> a, b;  // a line's two ends in the part's frame
};

// A job's region: around the middle of an edge, or around the hole.
qcRect around(const qcVector<2>& centre, double width, double height) {
  const auto whole = [](double v) { return std::round(v); };
  return qcRect(qcVector<2>(whole(centre.x() - width / 2), whole(centre.y() - height / 2)), qcVector<2>(width, height));
}

std::vector<Job> jobs(const Part& part) {
  const double l = part.halfLength, w = part.halfWidth;
  const auto edge = [&](const char* name, qcVector<2> a, qcVector<2> b, Polarity polarity, double width,
                        double height) {
    return Job{name, Feature::line, polarity, around(part.inImage((a + b) * 0.5), width, height), a, b};
  };
  return {edge("left", {-l, -w}, {-l, w}, Polarity::darkToLight, 50, 180),
          edge("right", {l, -w}, {l, w}, Polarity::lightToDark, 50, 180),
          edge("top", {-l, -w}, {l, -w}, Polarity::darkToLight, 300, 50),
          edge("bottom", {-l, w}, {l, w}, Polarity::lightToDark, 300, 50),
          {"hole", Feature::circle, Polarity::darkToLight, around(part.inImage(part.hole), 150, 150), {}, {}}};
}

// The largest distance of the measured line from the true edge, within the region's part of it.
double lineError(const Part& part, const Job& job, const qcFLine& line) {
  double worst = 0;
  for (const double t : {0.2, 0.5, 0.8})
    worst = std::max(worst, std::abs(line.distanceFrom(part.inImage(job.a + (job.b - job.a) * t))));
  return worst;
}

double circleError(const Part& part, const qcCircle& circle) {
  return std::max(circle.center().distance(part.inImage(part.hole)), std::abs(circle.radius() - part.holeRadius));
}

double errorOf(const Part& part, const Job& job, const qcShape& shape) {
  if (job.feature == Feature::line) return lineError(part, job, dynamic_cast<const qcFLine&>(shape));
  return circleError(part, dynamic_cast<const qcCircle&>(shape));
}

bool measurePart(std::ostream& out) {
  const Part part;
  writeBitmap(kImage, drawPart(part, kWidth, kHeight));
  const auto image = readBitmap(kImage);

  char text[200];
  std::snprintf(text, sizeof text, "%-7s %-58s %6s %8s %9s %8s\n", "feature", "fit", "used", "rms px", "error px",
                "time ms");
  out << text;
  bool good = true;
  for (const Job& job : jobs(part)) {
    const auto start = std::chrono::steady_clock::now();
    const GaugeResult result = gauge(image, {job.region, job.feature, job.polarity});
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    if (!result) {
      out << job.name << ": not found: " << result.whyNot << '\n';
      good = false;
      continue;
    }
    const std::string archive = std::string(job.name) + ".arc", overlay = std::string(job.name) + "-overlay.bmp";
    saveMeasurement(archive, *result.measurement);
    // What is printed and drawn is what the archive gives back.
    const qcPtrHandle<vnxMeasurement> loaded = loadMeasurement(archive);
    writeBitmap(overlay, drawOverlay(*loaded, result.scans));
    const double error = errorOf(part, job, *loaded->shape);
    good = good && error <= kTolerance;
    std::snprintf(text, sizeof text, "%-7s %-58s %6ld %8.4f %9.4f %8.3f\n", job.name, loaded->shapeText().c_str(),
                  loaded->inliers(), loaded->rms, error, ms);
    out << text;
  }
  std::snprintf(text, sizeof text, "all errors within %.2f px of the part as drawn (noise seed %d): %s\n", kTolerance,
                part.optics.seed, good ? "yes" : "NO");
  out << text << "written: " << kImage << " and, for every feature, NAME.arc and NAME-overlay.bmp\n";
  return good;
}

}  // namespace

bool runDemo(std::ostream& out) {
  const bool isPartGood = measurePart(out);
  return measurePlate(out) && isPartGood;
}
