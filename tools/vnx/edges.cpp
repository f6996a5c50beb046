#include "edges.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

constexpr int kReach = 3;  // the filter's taps on each side: three sigma
constexpr double kSigma = 1.0;
constexpr double kWeakest = 2.0;        // grey levels per pixel; below lies noise
constexpr double kWeakFraction = 0.35;  // of the median strength; weaker edges are something else

// The derivative of a Gaussian, scaled so that a ramp of one grey level per pixel gives 1.
std::array<double, 2 * kReach + 1> derivativeTaps() {
  std::array<double, 2 * kReach + 1> taps{};
  double slope = 0;
  for (std::size_t k = 0; k < taps.size(); ++k) {
    const double x = static_cast<double>(k) - kReach;
    taps[k] = x * std::exp(-x * x / (2 * kSigma * kSigma));
    slope += taps[k] * x;
  }
  for (double& tap : taps) tap /= slope;
  return taps;
}

}  // namespace

EdgeFinder::EdgeFinder(const qcPelBuffer_const<unsigned char>& image, Polarity polarity)
    : image_(image), polarity_(polarity) {}

// Bilinear between pel centres; the outermost pels go on beyond the border.
double EdgeFinder::grey(double x, double y) const {
  const qcPair<long> corner = image_.offset();
  const double column =
      std::clamp(x - 0.5 - static_cast<double>(corner.x()), 0.0, static_cast<double>(image_.width() - 1));
  const double row =
      std::clamp(y - 0.5 - static_cast<double>(corner.y()), 0.0, static_cast<double>(image_.height() - 1));
  const auto c = static_cast<long>(column), r = static_cast<long>(row);
  const long right = c + 1 < image_.width() ? 1 : 0, below = r + 1 < image_.height() ? image_.rowUpdate() : 0;
  const unsigned char* pel = image_.pointToOffset() + r * image_.rowUpdate() + c;
  const double fx = column - static_cast<double>(c), fy = row - static_cast<double>(r);
  const double top = pel[0] + fx * (pel[right] - pel[0]);
  const double bottom = pel[below] + fx * (pel[below + right] - pel[below]);
  return top + fy * (bottom - top);
}

std::optional<EdgePoint> EdgeFinder::strongest(const ScanLine& line) const {
  static const auto taps = derivativeTaps();
  const qcVector<2> span = line.to - line.from;
  const auto steps = static_cast<int>(span.len());
  if (steps <= 2 * kReach + 2 || image_.width() == 0 || image_.height() == 0) return std::nullopt;
  const qcVector<2> unit = span.unit(), across = unit.perpendicular();

  std::vector<double> profile;
  profile.reserve(static_cast<std::size_t>(steps) + 1);
  for (int i = 0; i <= steps; ++i) {
    const qcVector<2> p = line.from + unit * static_cast<double>(i);
    double sum = 0;
    for (const double offset : {-1.0, 0.0, 1.0}) {
      const qcVector<2> q = p + across * offset;
      sum += grey(q.x(), q.y());
    }
    profile.push_back(sum / 3);
  }

  std::vector<double> slope(profile.size(), 0.0);
  for (std::size_t i = kReach; i + kReach < profile.size(); ++i)
    for (std::size_t k = 0; k < taps.size(); ++k) slope[i] += taps[k] * profile[i + k - kReach];
  if (polarity_ == Polarity::lightToDark)
    for (double& s : slope) s = -s;
  if (polarity_ == Polarity::any)
    for (double& s : slope) s = std::abs(s);

  const auto peak = std::max_element(slope.begin() + kReach + 1, slope.end() - kReach - 1);
  if (*peak < kWeakest) return std::nullopt;
  const double before = peak[-1], after = peak[1], bend = before - 2 * *peak + after;
  const double shift = bend < 0 ? std::clamp(0.5 * (before - after) / bend, -0.5, 0.5) : 0;
  const double along = static_cast<double>(peak - slope.begin()) + shift;
  return EdgePoint{line.from + unit * along, *peak};
}

std::vector<EdgePoint> EdgeFinder::points(const std::vector<ScanLine>& lines) const {
  std::vector<EdgePoint> found;
  for (const ScanLine& line : lines)
    if (const auto edge = strongest(line)) found.push_back(*edge);
  if (found.empty()) return found;
  std::vector<double> strengths;
  strengths.reserve(found.size());
  for (const EdgePoint& edge : found) strengths.push_back(edge.strength);
  const auto middle = strengths.begin() + static_cast<std::ptrdiff_t>(strengths.size() / 2);
  std::nth_element(strengths.begin(), middle, strengths.end());
  std::erase_if(found, [weak = kWeakFraction * *middle](const EdgePoint& edge) { return edge.strength < weak; });
  return found;
}
