#include "gauge.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <optional>
#include <tuple>

#include <vnxstd/cfit/circlefit.h>
#include <vnxstd/cfit/linefit.h>
#include <vnxstd/math/random.h>
#include <vnxstd/math/rigid.h>
#include <vnxstd/math/xflinear.h>
#include <vnxstd/shapes/circle.h>
#include <vnxstd/shapes/line.h>

#include "format.h"

namespace {

constexpr int kDraws = 300;            // random minimal samples; a seed is fixed, so results repeat exactly
constexpr double kNear = 1.0;          // pixels: a point this near a candidate supports it
constexpr double kTightest = 0.25;     // pixels: the limit never closes in further than this
constexpr double kSigmas = 3.0;        // points beyond this many residual RMS are outliers
constexpr double kLeastSupport = 0.4;  // of the scan lines must carry the fit
constexpr std::size_t kLeastPoints = 5;
constexpr double kStartRadius = 1.0;  // radial scans begin this far from the middle

struct Fit {
  qcPtrHandle<qcShape> shape;
  std::vector<bool> used;
  double rms = 0;
  std::size_t inliers = 0;
};

// What sets the two features apart: how many points define one, the least-squares fit, a point's distance, and a shift.
struct LineModel {
  using Shape = qcFLine;
  static constexpr std::size_t kMinimal = 2;
  static std::optional<qcFLine> fit(const std::vector<qcVector<2>>& points) {
    qcFLine line;
    if (!qcLSLineFitter(points).fit(line)) return std::nullopt;
    return line;
  }
  static double distance(const qcFLine& line, const qcVector<2>& p) { return std::abs(line.distanceFrom(p)); }
  static qcFLine moved(const qcFLine& line, const qcVector<2>& by) {
    qcFLine result = line.map({qcMatrix<2>(1, 0, 0, 1), by});
    result.angle(result.angle().norm());
    return result;
  }
};

struct CircleModel {
  using Shape = qcCircle;
  static constexpr std::size_t kMinimal = 3;
  static std::optional<qcCircle> fit(const std::vector<qcVector<2>>& points) {
    try {
      return qcLSCircleFitter(points).fit();
    } catch (const qcLSCircleFitter::UnstableErr&) {
      return std::nullopt;
    }
  }
  static double distance(const qcCircle& circle, const qcVector<2>& p) {
    return std::abs((p - circle.center()).len() - circle.radius());
  }
  static qcCircle moved(const qcCircle& circle, const qcVector<2>& by) {
    return {circle.center() + by, circle.radius()};
  }
};

template <class Model>
class RobustFit {
 public:
  explicit RobustFit(const std::vector<EdgePoint>& edges) {
    if (!edges.empty()) origin_ = edges.front().at;
    for (const EdgePoint& edge : edges) points_.push_back(edge.at - origin_);
  }

  /// Random minimal samples first, then least squares over the points that agree, until they no longer change.
  std::optional<Fit> operator()() {
    if (points_.size() < kLeastPoints) return std::nullopt;
    auto best = consensus();
    if (!best) return std::nullopt;
    std::vector<bool> used = within(*best, kNear);
    double rms = 0;
    for (int round = 0; round < 10; ++round) {
      const auto refined = Model::fit(chosen(used));
      if (!refined) return std::nullopt;
      best = refined;
      rms = residual(*best, used);
      std::vector<bool> next = within(*best, std::clamp(kSigmas * rms, kTightest, kNear));
      if (next == used) break;
      used = std::move(next);
    }
    const std::vector<qcVector<2>> kept = chosen(used);
    if (kept.size() < kLeastPoints) return std::nullopt;
    best = Model::fit(kept);
    if (!best) return std::nullopt;
    return Fit{qcPtrHandle<qcShape>(new Shape(Model::moved(*best, origin_))), used, residual(*best, used), kept.size()};
  }

 private:
  using Shape = typename Model::Shape;

  std::optional<Shape> consensus() {
    qcRandomUniform random(1);
    std::optional<Shape> best;
    std::size_t bestCount = 0;
    for (int draw = 0; draw < kDraws; ++draw) {
      std::vector<qcVector<2>> sample;
      for (std::size_t i = 0; i < Model::kMinimal; ++i)
        sample.push_back(points_[static_cast<std::size_t>(random.next(0, static_cast<double>(points_.size())))]);
      const auto candidate = Model::fit(sample);
      if (!candidate) continue;
      const std::vector<bool> near = within(*candidate, kNear);
      const auto count = static_cast<std::size_t>(std::count(near.begin(), near.end(), true));
      if (count > bestCount) {
        bestCount = count;
        best = candidate;
      }
    }
    return best;
  }

  std::vector<bool> within(const Shape& shape, double limit) const {
    std::vector<bool> used;
    for (const qcVector<2>& p : points_) used.push_back(Model::distance(shape, p) <= limit);
    return used;
  }
  std::vector<qcVector<2>> chosen(const std::vector<bool>& used) const {
    std::vector<qcVector<2>> kept;
    for (std::size_t i = 0; i < points_.size(); ++i)
      if (used[i]) kept.push_back(points_[i]);
    return kept;
  }
  double residual(const Shape& shape, const std::vector<bool>& used) const {
    double sum = 0, count = 0;
    for (std::size_t i = 0; i < points_.size(); ++i) {
      if (!used[i]) continue;
      const double d = Model::distance(shape, points_[i]);
      sum += d * d;
      ++count;
    }
    return count > 0 ? std::sqrt(sum / count) : 0;
  }

  qcVector<2> origin_;               // sums of squares and cubes lose digits far from the origin: it is moved here
  std::vector<qcVector<2>> points_;  // from there
};

std::vector<ScanLine> across(const qcRect& region, int scans, bool alongRows) {
  std::vector<ScanLine> lines;
  const qcVector<2> o = region.origin(), s = region.size();
  for (int i = 0; i < scans; ++i) {
    const double at = (i + 0.5) / scans;
    lines.push_back(alongRows ? ScanLine{{o.x(), o.y() + at * s.y()}, {o.x() + s.x(), o.y() + at * s.y()}}
                              : ScanLine{{o.x() + at * s.x(), o.y()}, {o.x() + at * s.x(), o.y() + s.y()}});
  }
  return lines;
}

// Outward from the centre to the border of the region.
std::vector<ScanLine> radial(const qcRect& region, const qcVector<2>& centre, int scans) {
  std::vector<ScanLine> lines;
  const qcVector<2> low = region.origin(), high = region.lr();
  for (int i = 0; i < scans; ++i) {
    const double angle = 2 * std::numbers::pi * i / scans;
    const qcVector<2> u(std::cos(angle), std::sin(angle));
    const auto reach = [](double from, double step, double least, double most) {
      return step == 0 ? std::numeric_limits<double>::infinity() : ((step > 0 ? most : least) - from) / step;
    };
    const double length =
        std::min(reach(centre.x(), u.x(), low.x(), high.x()), reach(centre.y(), u.y(), low.y(), high.y()));
    if (length > kStartRadius) lines.push_back({centre + u * kStartRadius, centre + u * length});
  }
  return lines;
}

struct Attempt {
  Fit fit;  // as far as it came
  std::vector<EdgePoint> edges;
  std::vector<ScanLine> scans;
  std::string whyNot;  // it did not succeed
};

template <class Model>
Attempt attempt(const EdgeFinder& finder, std::vector<ScanLine> scans) {
  std::vector<EdgePoint> edges = finder.points(scans);
  const auto fit = RobustFit<Model>(edges)();
  const std::size_t wanted =
      std::max(kLeastPoints, static_cast<std::size_t>(std::ceil(kLeastSupport * static_cast<double>(scans.size()))));
  std::string whyNot;
  if (edges.size() < wanted)
    whyNot = formatted("%zu of %zu scans meet an edge, %zu are needed", edges.size(), scans.size(), wanted);
  else if (!fit || fit->inliers < wanted)
    whyNot = formatted("of %zu edge points %zu agree, %zu are needed", edges.size(), fit ? fit->inliers : 0, wanted);
  return {fit.value_or(Fit{}), std::move(edges), std::move(scans), whyNot};
}

Attempt findLine(const EdgeFinder& finder, const GaugeParams& params) {
  Attempt rows = attempt<LineModel>(finder, across(params.region, params.scans, true));
  Attempt columns = attempt<LineModel>(finder, across(params.region, params.scans, false));
  const auto rank = [](const Attempt& a) {
    return std::tuple(a.whyNot.empty(), a.fit.inliers, -a.fit.rms, a.edges.size());
  };
  return rank(rows) >= rank(columns) ? rows : columns;
}

Attempt findCircle(const EdgeFinder& finder, const GaugeParams& params) {
  const qcVector<2> middle = params.region.origin() + params.region.size() * 0.5;
  Attempt coarse = attempt<CircleModel>(finder, radial(params.region, middle, params.scans));
  if (!coarse.whyNot.empty()) return coarse;
  // From the circle's own centre the scan lines meet the edge at right angles, and enough of them must again: almost
  // half of those from the middle can meet one straight edge, which a large circle fits.
  const qcVector<2> centre = static_cast<const qcCircle&>(*coarse.fit.shape).center();
  if (params.region.within(centre)) return attempt<CircleModel>(finder, radial(params.region, centre, params.scans));
  coarse.whyNot =
      formatted("the centre of the best circle, (%.1f, %.1f), lies outside the region", centre.x(), centre.y());
  return coarse;
}

qcPtrHandle<qc2XformBase> frameOf(const qcShape& shape) {
  if (const auto* line = dynamic_cast<const qcFLine*>(&shape)) return new qc2XformLinear(line->rigid_().linear());
  const auto& circle = dynamic_cast<const qcCircle&>(shape);
  const double r = circle.radius();
  return new qc2XformLinear(qcMatrix<2>(r, 0, 0, r), circle.center());
}

}  // namespace

GaugeResult gauge(const qcPelBuffer<unsigned char>& image, const GaugeParams& wanted) {
  GaugeParams params = wanted;
  params.region = wanted.region & qcRect(image.window());  // what lies outside the image has no edges
  if (params.region.size().x() <= 0 || params.region.size().y() <= 0)
    return {{}, {}, formatted("the region lies outside the image of %ld x %ld pixels", image.width(), image.height())};
  const EdgeFinder finder(image, params.polarity);
  Attempt found = params.feature == Feature::line ? findLine(finder, params) : findCircle(finder, params);
  if (!found.whyNot.empty()) return {{}, {}, found.whyNot};
  qcPtrHandle<vnxMeasurement> measurement(new vnxMeasurement);
  measurement->image = image;
  measurement->region = params.region;
  for (const EdgePoint& edge : found.edges) measurement->points.push_back(edge.at);
  measurement->used = found.fit.used;
  measurement->shape = found.fit.shape;
  measurement->frame = frameOf(*found.fit.shape);
  measurement->rms = found.fit.rms;
  return {measurement, std::move(found.scans), {}};
}
