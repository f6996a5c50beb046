#include "models.h"

#include <algorithm>

#include <vnxstd/shapes/ellipsearc.h>
#include <vnxstd/shapes/sampling.h>

#include "format.h"

namespace {

constexpr double kWidestGap = 150;  // degrees of an ellipse's parameter without points
constexpr double kTurn = 2 * std::numbers::pi;

}  // namespace

std::vector<Ray> raysThrough(const qcEllipse2& ellipse, int count) {
  qcShape::qcSampleParams params(0, 0, count, true);
  params.uniformMode(true);
  qcShape::qcSampleResult samples;
  const qcEllipse2 round(ellipse.center(), ellipse.angle(), ellipse.radii(), true, qcRadian(0));
  qcEllipseArc2(round, qcRadian(0), qcRadian(kTurn)).sample(params, samples);
  const bool isFirstLarger = round.radii().x() >= round.radii().y();
  const double larger = std::max(round.radii().x(), round.radii().y()),
               smaller = std::min(round.radii().x(), round.radii().y());
  std::vector<Ray> rays;
  for (std::size_t i = 0; i < samples.positions().size(); ++i) {
    const qcVector<2>& on = samples.positions()[i];
    const qcVector<2> inward = qcVector<2>(1, samples.tangents()[i]).perpendicular();
    const qcVector<2> u = round.unitCircleMap().invMapPoint(on);
    const double alongLarger = isFirstLarger ? u.x() : u.y(), alongSmaller = isFirstLarger ? u.y() : u.x();
    rays.push_back({on + inward * (smaller / larger * std::hypot(smaller * alongLarger, larger * alongSmaller)), on});
  }
  return rays;
}

std::optional<qcFLine> LineModel::fit(const std::vector<qcVector<2>>& points) {
  qcFLine line;
  if (!qcLSLineFitter(points).fit(line)) return std::nullopt;
  return line;
}

qcFLine LineModel::placed(const qcFLine& line, double scale, const qcVector<2>& by) {
  qcFLine result = line.map({qcMatrix<2>(scale, 0, 0, scale), by});
  result.angle(result.angle().norm());
  return result;
}

std::optional<qcCircle> CircleModel::fit(const std::vector<qcVector<2>>& points) {
  try {
    return qcLSCircleFitter(points).fit();
  } catch (const qcLSCircleFitter::UnstableErr&) {
    return std::nullopt;
  }
}

qc2XformLinear CircleModel::frame(const qcCircle& circle) {
  const double r = circle.radius();
  return {qcMatrix<2>(r, 0, 0, r), circle.center()};
}

std::vector<Ray> CircleModel::rays(const qcCircle& circle, int count) {
  std::vector<Ray> rays;
  rays.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i)
    rays.push_back({circle.center(), circle.center() + qcVector<2>(circle.radius(), qcRadian(kTurn * i / count))});
  return rays;
}

std::optional<qcEllipse2> EllipseModel::rough(const std::vector<qcVector<2>>& points) {
  try {
    return qfFitEllipseDirect(points);
  } catch (const qcShapesError::BadCoef&) {
    return std::nullopt;
  }
}

std::optional<qcEllipse2> EllipseModel::fit(const std::vector<qcVector<2>>& points) {
  try {
    return qfFitEllipse(points);
  } catch (const qcShapesError::BadCoef&) {
    return std::nullopt;
  }
}

std::string EllipseModel::whyNot(const qcEllipse2& ellipse, const std::vector<qcVector<2>>& points) {
  std::vector<double> at;
  at.reserve(points.size());
  for (const qcVector<2>& p : points) at.push_back(ellipse.phi(p).plain());
  std::sort(at.begin(), at.end());
  double widest = at.empty() ? kTurn : at.front() + kTurn - at.back();
  for (std::size_t i = 1; i < at.size(); ++i) widest = std::max(widest, at[i] - at[i - 1]);
  const double degrees = widest * 360 / kTurn;
  if (degrees <= kWidestGap) return {};
  return formatted("the best ellipse has no edge points over %.0f of its 360 degrees, %.0f may be without", degrees,
                   kWidestGap);
}
