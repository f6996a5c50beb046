#include "chains.h"

#include <algorithm>
#include <iterator>

#include <vnxstd/shapes/rect.h>

namespace {

constexpr long kMostPoints = 100000;  // on each piece of a shape
constexpr double kFinest = 1e-8;      // of a shape's size: a tenth of what that many points can do on a circle

}  // namespace

std::vector<Chain> chainsOf(const qcShape& shape, const qcShape::qcSampleParams& params) {
  qcShape::qcSampleResult samples;
  shape.sample(params, samples);
  std::vector<Chain> chains;
  const auto at = [&](std::size_t i) { return std::next(samples.positions().begin(), static_cast<std::ptrdiff_t>(i)); };
  for (std::size_t c = 0; c < samples.breaks().size(); ++c) {
    const bool isLast = c + 1 == samples.breaks().size();
    chains.emplace_back(at(static_cast<std::size_t>(samples.breaks()[c])),
                        isLast ? samples.positions().end() : at(static_cast<std::size_t>(samples.breaks()[c + 1])));
    if (samples.closedFlags()[c] && !chains.back().empty()) chains.back().push_back(chains.back().front());
  }
  return chains;
}

std::vector<Chain> chainsOf(const qcShape& shape, double tolerance) {
  const qcRect box = shape.boundingBox();
  const double finest = std::max(box.width(), box.height()) * kFinest;
  return chainsOf(shape, qcShape::qcSampleParams(std::max(tolerance, finest), 0, kMostPoints, false, false));
}
