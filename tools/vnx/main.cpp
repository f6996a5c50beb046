// vnx: measures features in bitmaps and says what files hold.

#include <CLI/CLI.hpp>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <iostream>

#include <vnxstd/archive/text.h>
#include <vnxstd/dib/dib.h>

#include "demo.h"
#include "gauge.h"
#include "info.h"
#include "overlay.h"

namespace {

enum Exit { kGood = 0, kNotFound = 1, kWrongCall = 2, kFileFailed = 3 };

struct GaugeCall {
  std::string image, save, overlay;
  std::vector<double> region;
  GaugeParams params;
};

int runGauge(GaugeCall& call) {
  const qcPelBuffer<unsigned char> image = qcDIB::readPelBuffer(qf_Widen(call.image));
  call.params.region = qcRect(qcVector<2>(call.region[0], call.region[1]), qcVector<2>(call.region[2], call.region[3]));
  const auto start = std::chrono::steady_clock::now();
  const auto result = gauge(image, call.params);
  const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  if (!result) {
    std::cerr << "vnx gauge: nothing found in the region\n";
    return kNotFound;
  }
  vnxMeasurement& measurement = *result->measurement;
  std::cout << measurement.shapeText() << '\n';
  std::printf("points: %zu, used %ld\nresidual rms: %.4f px\ntime: %.3f ms\n", measurement.points.size(),
              measurement.inliers(), measurement.rms, ms);
  if (!call.save.empty()) saveMeasurement(call.save, measurement);
  if (!call.overlay.empty()) {
    qcDIB bitmap;
    bitmap.init(drawOverlay(measurement, result->scans));
    bitmap.write(qf_Widen(call.overlay));
  }
  return kGood;
}

void addGauge(CLI::App& app, GaugeCall& call) {
  CLI::App* command =
      app.add_subcommand("gauge", "Find a line or a circle in a bitmap and measure it to a fraction of a pixel");
  command->add_option("image", call.image, "Bitmap file; colours become grey")->required();
  command->add_option("--roi", call.region, "Region: X,Y,W,H in pixels")
      ->required()
      ->delimiter(',')
      ->expected(4)
      ->check(CLI::Number);
  const std::map<std::string, Feature> features{{"line", Feature::line}, {"circle", Feature::circle}};
  command->add_option("--find", call.params.feature, "line or circle")
      ->required()
      ->transform(CLI::CheckedTransformer(features).description(""));
  const std::map<std::string, Polarity> polarities{
      {"dark-light", Polarity::darkToLight}, {"light-dark", Polarity::lightToDark}, {"any", Polarity::any}};
  command
      ->add_option("--polarity", call.params.polarity,
                   "Change of grey along the scans, which run left to right, top to bottom, or outwards: dark-light, "
                   "light-dark or any")
      ->transform(CLI::CheckedTransformer(polarities).description(""));
  command->add_option("--scans", call.params.scans, "Number of scan lines (60)")->check(CLI::Range(5, 10000));
  command->add_option("--save", call.save, "Save image, points, fit and transform as one archive");
  command->add_option("--overlay", call.overlay, "Draw region, scans, points and fit over the image, as a bitmap");
}

int run(int argc, char** argv) {
  CLI::App app{"Measures features in bitmaps and says what bitmaps and archives hold", "vnx"};
  app.footer(
      "Exit status: 0 done, 1 nothing found (demo: or out of tolerance), 2 a wrong call, 3 a file or standard output "
      "failed");
  app.require_subcommand(1);
  GaugeCall gaugeCall;
  addGauge(app, gaugeCall);
  std::string file;
  CLI::App* info = app.add_subcommand("info", "Say what a bitmap or an archive holds");
  info->add_option("file", file, "The file")->required();
  CLI::App* demo = app.add_subcommand("demo", "Draw a part, measure it, compare with the truth; writes its files here");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kGood : kWrongCall;
  }
  if (demo->parsed()) return runDemo(std::cout) ? kGood : kNotFound;
  if (info->parsed()) {
    describeFile(file, std::cout);
    return kGood;
  }
  // A sum is finite only where both its terms are.
  const std::vector<double>& r = gaugeCall.region;
  if (!std::isfinite(r[0] + r[2]) || !std::isfinite(r[1] + r[3]) || r[2] <= 0 || r[3] <= 0) {
    std::cerr << "vnx gauge: the region takes four numbers, width and height above 0, and its corners must be finite\n";
    return kWrongCall;
  }
  return runGauge(gaugeCall);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const int status = run(argc, argv);
    if (std::cout.flush() && std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
    std::cerr << "vnx: writing to standard output failed\n";
  } catch (const UnknownFile&) {
    std::cerr << "vnx: neither a bitmap nor an archive\n";
  } catch (const qcException& error) {
    std::cerr << "vnx: " << qf_Narrow(error.message(true)) << '\n';
  } catch (const std::exception& error) {
    std::cerr << "vnx: " << error.what() << '\n';
  }
  return kFileFailed;
}
