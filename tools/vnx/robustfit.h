// Least squares among outliers.
#pragma once

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

#include <vnxstd/math/random.h>

#include "models.h"

/// A feature fitted to those of the points that agree with it.
template <class Model>
class RobustFit {
 public:
  using Shape = typename Model::Shape;

  static constexpr std::size_t kLeastPoints = 5;

  struct Result {
    Shape shape;
    std::vector<bool> used;
    double rms = 0;  // of the used points' distances
    std::size_t inliers = 0;
  };

  /// `pixel` is the size of a pixel in the unit of the points.
  RobustFit(const std::vector<qcVector<2>>& points, double pixel) : pixel_(pixel) {
    if (!points.empty()) origin_ = points.front();
    for (const qcVector<2>& p : points) points_.push_back((p - origin_) / pixel_);
  }

  /// Random minimal samples first, then least squares over the points that agree, until they no longer change.
  std::optional<Result> operator()() const {
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
    return Result{Model::placed(*best, pixel_, origin_), used, residual(*best, used) * pixel_, kept.size()};
  }

 private:
  static constexpr double kNear = 1.0;       // pixels: a point this near a candidate supports it
  static constexpr double kTightest = 0.25;  // pixels: the limit never closes in further than this
  static constexpr double kSigmas = 3.0;     // points beyond this many residual RMS are outliers

  std::optional<Shape> consensus() const {
    qcRandomUniform random(1);  // always the same draws, so that results repeat exactly
    std::optional<Shape> best;
    std::size_t bestCount = 0;
    std::vector<qcVector<2>> sample(Model::kMinimal);
    for (int draw = 0; draw < Model::kDraws; ++draw) {
      for (qcVector<2>& p : sample)
        p = points_[static_cast<std::size_t>(random.next(0, static_cast<double>(points_.size())))];
      const auto candidate = Model::rough(sample);
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

  double pixel_;
  qcVector<2> origin_;               // sums of squares and cubes lose digits far from the origin: it is moved here
  std::vector<qcVector<2>> points_;  // from there, in pixels
};
