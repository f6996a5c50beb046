#include <algorithm>
#include <array>
#include <cmath>

#include "format.h"
#include "overlay.h"
#include "pngfile.h"
#include "svg.h"

namespace {

// The page, in its pixels.
constexpr double kMargin = 20, kHeading = 62, kLegend = 210, kChart = 130;
constexpr double kWidest = 960, kHighest = 900, kNarrowest = 420;  // of the image
constexpr double kLetter = 11.6;                                   // width of one in the heading
constexpr double kSmallest = 1.5, kLargest = 3.4;                  // radii of points
constexpr std::size_t kMostScans = 120;                            // drawn of them: more would hide the image

struct Rgb {
  double r, g, b;
};
constexpr Rgb kInside{47, 129, 247}, kOn{250, 250, 250}, kOutside{251, 133, 0};

// From blue over white to orange.
std::string colourOf(double residual, double most) {
  const double share = most > 0 ? std::clamp(residual / most, -1.0, 1.0) : 0;
  const Rgb& end = share < 0 ? kInside : kOutside;
  const auto mix = [share = std::abs(share)](double on, double far) {
    return static_cast<int>(std::lround(on + share * (far - on)));
  };
  return formatted("#%02x%02x%02x", mix(kOn.r, end.r), mix(kOn.g, end.g), mix(kOn.b, end.b));
}

class Overlay {
 public:
  Overlay(const vnxMeasurement& measurement, const std::vector<ScanLine>& scans, const std::string& source)
      : measurement_(measurement),
        scans_(scans),
        source_(source),
        residuals_(measurement.residuals()),
        corner_(measurement.image.offset()),
        width_(static_cast<double>(measurement.image.width())),
        height_(static_cast<double>(measurement.image.height())),
        zoom_(std::min(kWidest / width_, kHighest / height_)),
        panel_(std::max(width_ * zoom_, kNarrowest), height_ * zoom_),
        svg_(std::max(panel_.x() + kLegend + 3 * kMargin,
                      2 * kMargin + kLetter * static_cast<double>(measurement.shapeText().size())),
             panel_.y() + kHeading + kChart + 3 * kMargin, measurement.shapeText()) {
    for (std::size_t i = 0; i < residuals_.size(); ++i)
      if (measurement_.used[i]) most_ = std::max(most_, std::abs(residuals_[i]));
    // Points stand apart, so that the shape shows between them.
    double length = 0;
    for (std::size_t i = 1; i < measurement.points.size(); ++i)
      length += measurement.points[i].distance(measurement.points[i - 1]) * zoom_;
    step_ = (scans.size() + kMostScans - 1) / kMostScans;
    radius_ = std::clamp(0.28 * length / static_cast<double>(measurement.points.size()), kSmallest, kLargest);
  }

  std::string operator()() {
    heading();
    picture();
    legend();
    chart();
    return svg_.finished();
  }

 private:
  qcVector<2> onPage(const qcVector<2>& p) const {
    return (p - corner_) * zoom_ + qcVector<2>(kMargin, kMargin + kHeading);
  }
  std::string path(std::vector<Chain> chains) const {
    for (Chain& chain : chains)
      for (qcVector<2>& p : chain) p = onPage(p);
    return svgPath(chains);
  }

  void heading() {
    svg_.text({kMargin, kMargin + 20}, measurement_.shapeText(), "title");
    std::string line =
        formatted("%zu edge points, %ld used, residual rms ", residuals_.size(), measurement_.inliers()) +
        measurement_.lengthText(measurement_.rms);
    if (measurement_.isCalibrated())
      line += formatted(" (%.3f px), %.5g ", measurement_.rms / measurement_.pixel(), measurement_.pixel()) +
              measurement_.unit + " a pixel";
    if (!source_.empty()) line += ", " + source_;
    if (!hasPng(measurement_.image.width(), measurement_.image.height()))
      line += std::string(", not drawn: the image (") + kNotDrawable + ')';
    svg_.text({kMargin, kMargin + 44}, line, "");
  }

  void picture() {
    const qcVector<2> at(kMargin, kMargin + kHeading);
    svg_.rect(at, panel_.x(), panel_.y(), "panel");
    svg_.beginClip(at, width_ * zoom_, panel_.y());
    const auto& image = measurement_.image;
    if (hasPng(image.width(), image.height()))
      svg_.image(pngOf(image), image.width(), image.height(), {qcMatrix<2>(zoom_, 0, 0, zoom_), at});
    std::vector<Chain> scans;
    for (std::size_t i = 0; i < scans_.size(); i += step_) scans.push_back({scans_[i].from, scans_[i].to});
    svg_.path(path(scans), "scan");
    svg_.casedPath(path(measurement_.region.outlines()), "region", "region");
    svg_.casedPath(path(measurement_.shapeInImage()), "fit", measurement_.shapeText());
    for (std::size_t i = 0; i < residuals_.size(); ++i) mark(onPage(measurement_.points[i]), i, radius_);
    svg_.endClip();
    const double length = roundLength(panel_.x() / 4 / zoom_ * measurement_.pixel());
    svg_.scaleBar({at.x() + 16, at.y() + panel_.y() - 18}, length / measurement_.pixel() * zoom_,
                  formatted("%g ", length) + measurement_.unit);
  }

  void mark(const qcVector<2>& at, std::size_t i, double radius) {
    if (!measurement_.used[i]) return svg_.cross(at, kLargest, "rejected");
    svg_.dot(at, radius, colourOf(residuals_[i], most_), measurement_.lengthText(residuals_[i]));
  }

  void legend() {
    const double x = panel_.x() + 2 * kMargin, top = kMargin + kHeading;
    double y = top + 14;
    const auto row = [&](const char* kind, const char* name) {
      svg_.casedPath(svgPath({{{x, y - 4}, {x + 26, y - 4}}}), kind);
      svg_.text({x + 38, y}, name, "");
      y += 24;
    };
    row("fit", "fitted shape");
    row("region", "region");
    svg_.path(svgPath({{{x, y - 4}, {x + 26, y - 4}}}), "scan");
    svg_.text({x + 38, y},
              formatted("scan lines (%zu)", scans_.size()) + (step_ > 1 ? formatted(", one in %zu", step_) : ""), "");
    y += 24;
    svg_.cross({x + 13, y - 4}, kLargest, "rejected");
    svg_.text({x + 38, y},
              formatted("points left out (%ld)", static_cast<long>(residuals_.size()) - measurement_.inliers()), "");
    y += 32;
    svg_.text({x, y}, formatted("points used (%ld), by residual", measurement_.inliers()), "");
    y += 12;
    constexpr int kSteps = 60;
    constexpr double kHeight = 150;
    for (int i = 0; i < kSteps; ++i)
      svg_.add("<rect x=\"" + svgNumber(x) + "\" y=\"" + svgNumber(y + i * kHeight / kSteps) +
               "\" width=\"18\" height=\"" + svgNumber(kHeight / kSteps + 0.5) + "\" fill=\"" +
               colourOf(1 - 2 * (i + 0.5) / kSteps, 1) + "\"/>\n");
    const bool isRound = measurement_.shape->isRegion();
    const std::array<std::string, 3> ticks{'+' + measurement_.lengthText(most_) + (isRound ? ", outside" : ""), "0",
                                           measurement_.lengthText(-most_) + (isRound ? ", inside" : "")};
    for (std::size_t i = 0; i < ticks.size(); ++i)
      svg_.text({x + 26, y + 5 + static_cast<double>(i) * (kHeight - 2) / 2}, ticks[i], "small");
  }

  // The residuals in the order of the scan lines: what is systematic shows as a wave.
  void chart() {
    const double x = kMargin, y = panel_.y() + kHeading + 2 * kMargin, width = panel_.x(), middle = y + kChart / 2;
    const double reach = kChart / 2 - 10, most = most_ > 0 ? most_ * 1.1 : 1;
    const auto at = [&](double residual) { return middle - std::clamp(residual / most, -1.0, 1.0) * reach; };
    svg_.rect({x, y}, width, kChart, "panel");
    svg_.rect({x, at(measurement_.rms)}, width, at(-measurement_.rms) - at(measurement_.rms), "band");
    svg_.path(svgPath({{{x, middle}, {x + width, middle}}}), "axis");
    const double radius = std::clamp(width / static_cast<double>(residuals_.size()), kSmallest, kLargest);
    for (std::size_t i = 0; i < residuals_.size(); ++i) {
      const double across = x + width * (static_cast<double>(i) + 0.5) / static_cast<double>(residuals_.size());
      mark({across, at(residuals_[i])}, i, radius);
    }
    svg_.text({x + width + kMargin, y + 14}, "residuals along the scans", "");
    svg_.text({x + width + kMargin, y + 32}, "band: rms " + measurement_.lengthText(measurement_.rms), "small");
  }

  const vnxMeasurement& measurement_;
  const std::vector<ScanLine>& scans_;
  std::string source_;
  std::vector<double> residuals_;
  qcVector<2> corner_;
  double width_, height_, zoom_;
  qcVector<2> panel_;
  Svg svg_;
  double radius_ = kLargest;  // of points in the image
  std::size_t step_ = 1;      // from one scan that is drawn to the next
  double most_ = 0;           // the largest residual of a point that is used
};

}  // namespace

std::string overlaySvg(const vnxMeasurement& measurement, const std::vector<ScanLine>& scans,
                       const std::string& source) {
  return Overlay(measurement, scans, source)();
}
