#include "gaugecommand.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <sstream>

#include <vnxstd/dib/dib.h>
#include <vnxstd/pelbuf/rootpool.h>

#include "files.h"
#include "overlay.h"

namespace {

constexpr int kFewestScans = 5, kMostScans = 10000;

template <class T>
T chosen(const char* option, const std::string& text, const std::map<std::string, T>& choices) {
  if (const auto found = choices.find(text); found != choices.end()) return found->second;
  std::string names;
  for (const auto& choice : choices) names += (names.empty() ? "" : ", ") + choice.first;
  throw WrongCall(std::string(option) + " takes one of " + names + ", not \"" + text + '"');
}

qcRect rectangle(const std::string& text) {
  std::istringstream in(text);
  double x = 0, y = 0, width = 0, height = 0;
  char c1 = 0, c2 = 0, c3 = 0;
  const bool isRead = static_cast<bool>(in >> x >> c1 >> y >> c2 >> width >> c3 >> height) && c1 == ',' && c2 == ',' &&
                      c3 == ',' && in.peek() == std::istringstream::traits_type::eof();
  // A sum is finite only where both its terms are.
  if (!isRead || !std::isfinite(x + width) || !std::isfinite(y + height) || width <= 0 || height <= 0)
    throw WrongCall("--roi takes X,Y,W,H: four finite numbers with commas between them, W and H above 0; not \"" +
                    text + '"');
  return {qcVector<2>(x, y), qcVector<2>(width, height)};
}

void print(const vnxMeasurement& measurement, double ms) {
  std::cout << measurement.shapeText() << '\n';
  if (const auto part = measurement.lineInRegion())
    std::printf("in the region: (%.4f, %.4f) to (%.4f, %.4f)\n", part->p1().x(), part->p1().y(), part->p2().x(),
                part->p2().y());
  std::printf("points: %zu, used %ld\nresidual rms: %.4f px\ntime: %.3f ms\n", measurement.points.size(),
              measurement.inliers(), measurement.rms, ms);
}

}  // namespace

GaugeCommand::GaugeCommand(CLI::App& app)
    : command_(app.add_subcommand("gauge",
                                  "Find a line or a circle in a bitmap and measure it to a fraction of a "
                                  "pixel")) {
  command_->footer(
      "The pixel in column x and row y covers x to x + 1 and y to y + 1, so that its centre lies at x + 0.5, y + 0.5;\n"
      "y grows downwards. A line is given by its angle in degrees, from the x axis towards the y axis, and its\n"
      "distance from the origin, never negative: -sin(angle) * x + cos(angle) * y = distance. A feature needs edge\n"
      "points that agree on at least 40 % of the scans.");
  command_->add_option("image", image_, "Bitmap file; colours become grey");
  command_->add_option("--roi", region_, "Region: X,Y,W,H in pixels");
  command_->add_option(
      "--find", feature_,
      "line: scanned across along rows and along columns, the better of both is kept;\ncircle: scanned from the middle "
      "of the region outwards");
  command_->add_option("--polarity", polarity_,
                       "Change of grey along the scans, which run left to right, top to bottom or outwards: "
                       "dark-light, light-dark or any (any)");
  command_->add_option("--scans", scans_, "Number of scans, 5 to 10000 (60)");
  command_->add_option("--save", save_, "Save image, points, fit and transform as one archive");
  command_->add_option("--overlay", overlay_,
                       "Draw over the image, as a bitmap: the region (blue), the scans (grey-green), the points that "
                       "carry the fit (green), the others (red), the fit (yellow)");
}

GaugeParams GaugeCommand::params() const {
  if (image_.empty()) throw WrongCall("which image?");
  if (region_.empty()) throw WrongCall("--roi X,Y,W,H is missing");
  if (feature_.empty()) throw WrongCall("--find line or --find circle is missing");
  if (scans_ < kFewestScans || scans_ > kMostScans) throw WrongCall("--scans takes 5 to 10000");
  GaugeParams params;
  params.region = rectangle(region_);
  params.feature = chosen<Feature>("--find", feature_, {{"line", Feature::line}, {"circle", Feature::circle}});
  params.polarity = chosen<Polarity>(
      "--polarity", polarity_,
      {{"any", Polarity::any}, {"dark-light", Polarity::darkToLight}, {"light-dark", Polarity::lightToDark}});
  params.scans = scans_;
  return params;
}

// Writing one result over another, or over the image, would lose what was there without a word.
void GaugeCommand::requireDistinctFiles() const {
  const std::string* files[] = {&image_, &save_, &overlay_};
  for (const std::string* a : files)
    for (const std::string* b : files)
      if (a < b && !a->empty() && !b->empty() && isSameFile(*a, *b))
        throw WrongCall("the image, --save and --overlay must be different files; two of them are " + *b);
}

bool GaugeCommand::run() const {
  const GaugeParams wanted = params();
  requireDistinctFiles();
  requireReadable(image_);
  const auto image =
      onFile(image_, [](const std::wstring& path) { return qcDIB::readPelBuffer(path, *qfDefaultPelRootPool()); });
  const auto start = std::chrono::steady_clock::now();
  const GaugeResult result = gauge(image, wanted);
  const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  if (!result) {
    std::cerr << "vnx gauge: nothing found: " << result.whyNot << '\n';
    return false;
  }
  print(*result.measurement, ms);
  if (!save_.empty()) saveMeasurement(save_, *result.measurement);
  if (!overlay_.empty())
    onFile(overlay_, [&](const std::wstring& path) {
      qcDIB::writePelBuffer(path, drawOverlay(*result.measurement, result.scans));
    });
  return true;
}
