#include "gaugecommand.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <optional>

#include "calibration.h"
#include "files.h"
#include "numberoption.h"
#include "overlay.h"
#include "pngfile.h"
#include "svg.h"
#include "wholefile.h"

namespace {

constexpr int kFewestScans = 5, kMostScans = 10000;
constexpr std::size_t kLongestUnit = 100;  // bytes

template <class T>
T chosen(const char* option, const std::string& text, const std::map<std::string, T>& choices) {
  if (const auto found = choices.find(text); found != choices.end()) return found->second;
  std::string names;
  for (const auto& choice : choices) names += (names.empty() ? "" : ", ") + choice.first;
  throw WrongCall(std::string(option) + " takes one of " + names + ", not \"" + text + '"');
}

void print(const vnxMeasurement& measurement, const std::optional<Calibration>& calibration, double ms) {
  std::cout << measurement.shapeText() << '\n';
  if (const auto part = measurement.lineInRegion())
    std::cout << "in the region: " << measurement.pointText(part->p1()) << " to " << measurement.pointText(part->p2())
              << '\n';
  std::printf("points: %zu, used %ld\n", measurement.points.size(), measurement.inliers());
  std::cout << "residual rms: " << measurement.lengthText(measurement.rms);
  if (calibration) std::printf(" (%.4f px)", measurement.rms / measurement.pixel());
  std::cout << '\n';
  if (calibration) {
    std::cout << "calibration: " << calibration->model.text() << " from " << calibration->points.size()
              << " points, rms " << measurement.lengthText(calibration->rms) << ", largest "
              << measurement.lengthText(calibration->largest) << " in line " << calibration->largestLine;
    if (calibration->leftOutRms)
      std::cout << ", rms when left out " << measurement.lengthText(*calibration->leftOutRms);
    std::printf("\nscale: %.6g %s a pixel\n", measurement.pixel(), measurement.unit.c_str());
    if (const std::size_t outside = calibration->outside(measurement.points); outside > 0)
      std::printf("note: %zu of the points lie outside the calibrated area\n", outside);
  }
  std::printf("time: %.3f ms\n", ms);
}

}  // namespace

GaugeCommand::GaugeCommand(CLI::App& app)
    : command_(app.add_subcommand("gauge",
                                  "Find a line, a circle or an ellipse in a bitmap and measure it to a "
                                  "fraction of a pixel")) {
  command_->footer(
      "The pixel in column x and row y covers x to x + 1 and y to y + 1, so that its centre lies at x + 0.5, y + 0.5;\n"
      "y grows downwards. A line is given by its angle in degrees, from the x axis towards the y axis, and its\n"
      "distance from the origin, never negative: -sin(angle) * x + cos(angle) * y = distance. A feature needs edge\n"
      "points that agree on at least 40 % of the scans.\n\n"
      "Regions, in pixels and degrees:\n"
      "  X,Y,W,H                    an upright rectangle by its upper-left corner\n"
      "  affine:X,Y,W,H,ANGLE,SKEW  a rectangle by its centre, lengths, rotation and skew (SKEW may be left out)\n"
      "  ring:X,Y,R1,R2             the ring between two circles around X,Y, for round features\n"
      "  oval:X,Y,A,B,ANGLE,WIDTH   the ring of that width around an ellipse of radii A and B\n\n"
      "A calibration is a text file with four numbers a line, image x, image y, world x, world y, with commas,\n"
      "semicolons or tabs between them; a heading, empty lines and lines that begin with # are passed over. With it,\n"
      "edge points are mapped before anything is fitted, which undoes distortion, and results are in world units. Its\n"
      "residuals are reported; those of points left out in turn tell whether the transform bends more than the points\n"
      "bear out.");
  command_->add_option("image", image_, "Bitmap file; colours become grey");
  command_->add_option("--roi", region_, "Region: X,Y,W,H in pixels, or one of the forms below");
  command_->add_option(
      "--find", feature_,
      "line: scanned across along both pairs of sides, the better of both is kept;\ncircle, ellipse: scanned outwards "
      "from the middle of the region, or across the ring");
  command_->add_option("--polarity", polarity_,
                       "Change of grey along the scans, which run left to right, top to bottom or outwards: "
                       "dark-light, light-dark or any (any)");
  addNumber(*command_, "--scans", scans_, "Number of scans, 5 to 10000 (60)", kFewestScans, kMostScans);
  calibOption_ = command_->add_option("--calib", calib_, "Calibrate: a file of image and world points");
  transformOption_ = command_->add_option("--transform", transform_,
                                          "From image to world: linear, perspective, polynomial:ORDER (3) or "
                                          "deformation:SMOOTHNESS (0, through every point) (perspective)");
  unitOption_ = command_->add_option("--unit", unit_, "Name of the world's unit of length (mm)");
  command_->add_option("--save", save_, "Save image, points, fit and transform as one archive");
  command_->add_option("--overlay", overlay_,
                       "Draw over the image: the region (blue), the scans (grey-green), the points that carry the fit "
                       "(green), the others (red), the fit (yellow); as a page with points coloured by residual, a "
                       "legend and a scale bar where the file's name ends in .svg, else as a bitmap");
}

GaugeParams GaugeCommand::params() const {
  if (image_.empty()) throw WrongCall("which image?");
  if (region_.empty()) throw WrongCall("--roi X,Y,W,H, or another region, is missing");
  if (feature_.empty()) throw WrongCall("--find line, circle or ellipse is missing");
  GaugeParams params;
  params.region = Region::parsed(region_);
  params.feature = chosen<Feature>(
      "--find", feature_, {{"line", Feature::line}, {"circle", Feature::circle}, {"ellipse", Feature::ellipse}});
  params.polarity = chosen<Polarity>(
      "--polarity", polarity_,
      {{"any", Polarity::any}, {"dark-light", Polarity::darkToLight}, {"light-dark", Polarity::lightToDark}});
  if (params.feature == Feature::line && params.region.isRing())
    throw WrongCall("--find line takes a rectangle as --roi, not a ring");
  params.scans = scans_;
  if (unit_.size() > kLongestUnit)
    throw WrongCall("--unit takes a name of at most " + std::to_string(kLongestUnit) + " bytes");
  if (!calibOption_->count() && (transformOption_->count() || unitOption_->count()))
    throw WrongCall("--transform and --unit belong to --calib, which is missing");
  if (calibOption_->count()) params.unit = unit_;
  return params;
}

bool GaugeCommand::run() const {
  const GaugeParams wanted = params();
  // Writing one result over another, or over the image, would lose what was there without a word.
  requireDistinct("the image, --calib, --save and --overlay", {image_, calib_, save_, overlay_});
  const CalibrationModel model = CalibrationModel::parsed(transform_);
  std::optional<Calibration> calibration;
  if (calibOption_->count()) calibration = calibrate(calib_, readCalibrationPoints(calib_), model);
  auto image = readBitmap(image_);
  if (calibration) image.clientFromImageXformBase(calibration->worldFromImage, false);
  const auto start = std::chrono::steady_clock::now();
  const GaugeResult result = gauge(image, wanted);
  const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  if (!result) {
    std::cerr << "vnx gauge: nothing found: " << result.whyNot << '\n';
    return false;
  }
  print(*result.measurement, calibration, ms);
  if (!save_.empty()) saveMeasurement(save_, *result.measurement);
  if (overlay_.empty()) return true;
  if (!isSvg(overlay_)) {
    writeBitmap(overlay_, drawOverlay(*result.measurement, result.scans));
    return true;
  }
  if (!hasPng(image.width(), image.height())) std::cout << "not drawn: the image (" << kNotDrawable << ")\n";
  writeText(overlay_, overlaySvg(*result.measurement, result.scans, image_));
  return true;
}
