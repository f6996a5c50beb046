#include "gauge.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <tuple>

#include "format.h"
#include "robustfit.h"

namespace {

constexpr double kLeastSupport = 0.4;  // of the scan lines must carry the fit
constexpr double kStartRadius = 1.0;   // radial scans begin this far from the middle

// What every attempt needs.
struct Scene {
  const GaugeParams& params;
  Region region;
  qcRect window;
  EdgeFinder finder;
  qcPtrHandle_const<qc2XformBase> clientFromImage, imageFromClient;
  double pixel;  // the size of a pixel in the middle of the region, in client units
};

template <class Model>
struct Attempt {
  std::optional<typename RobustFit<Model>::Result> fit;
  std::vector<EdgePoint> edges;
  std::vector<ScanLine> scans;
  std::string whyNot;  // it did not succeed
};

// The edge points that have client coordinates, and these.
std::vector<qcVector<2>> mapped(const qc2XformBase& clientFromImage, std::vector<EdgePoint>& edges) {
  std::vector<qcVector<2>> points;
  std::erase_if(edges, [&](const EdgePoint& edge) {
    try {
      points.push_back(clientFromImage.mapPoint(edge.at));
      return false;
    } catch (const qcException&) {  // beyond the horizon of a perspective
      return true;
    }
  });
  return points;
}

template <class Model>
Attempt<Model> attempt(const Scene& scene, std::vector<ScanLine> scans) {
  using Fit = RobustFit<Model>;
  std::vector<EdgePoint> edges = scene.finder.points(scans);
  const auto fit = Fit(mapped(*scene.clientFromImage, edges), scene.pixel)();
  const std::size_t wanted = std::max(
      Fit::kLeastPoints, static_cast<std::size_t>(std::ceil(kLeastSupport * static_cast<double>(scans.size()))));
  std::string whyNot;
  if (edges.size() < wanted)
    whyNot = formatted("%zu of %zu scans meet an edge, %zu are needed", edges.size(), scans.size(), wanted);
  else if (!fit || fit->inliers < wanted)
    whyNot = formatted("of %zu edge points %zu agree, %zu are needed", edges.size(), fit ? fit->inliers : 0, wanted);
  return {fit, std::move(edges), std::move(scans), whyNot};
}

Attempt<LineModel> findLine(const Scene& scene) {
  if (scene.region.isRing()) return {{}, {}, {}, "a line is looked for in a rectangle, not in a ring"};
  auto rows = attempt<LineModel>(scene, scene.region.across(scene.window, scene.params.scans, true));
  auto columns = attempt<LineModel>(scene, scene.region.across(scene.window, scene.params.scans, false));
  const auto rank = [](const Attempt<LineModel>& a) {
    return std::tuple(a.whyNot.empty(), a.fit ? a.fit->inliers : 0, a.fit ? -a.fit->rms : 0, a.edges.size());
  };
  return rank(rows) >= rank(columns) ? rows : columns;
}

std::vector<ScanLine> along(const Scene& scene, const std::vector<Ray>& rays) {
  std::vector<ScanLine> scans;
  for (const Ray& ray : rays)
    if (const auto scan = scene.region.ray(scene.window, ray.from, ray.through, kStartRadius)) scans.push_back(*scan);
  return scans;
}

template <class Model>
Attempt<Model> findRound(const Scene& scene) {
  const int count = scene.params.scans;
  Attempt<Model> coarse = attempt<Model>(
      scene, along(scene, scene.region.isRing() ? raysThrough(scene.region.middle(), count)
                                                : CircleModel::rays(qcCircle(scene.region.centre(), 1), count)));
  if (!coarse.whyNot.empty()) return coarse;
  // From the feature itself the scan lines meet the edge at right angles, and enough of them must again: almost half of
  // those from the middle can meet one straight edge, which a large circle fits.
  std::vector<Ray> rays;
  bool isCentred = false;
  try {
    isCentred = scene.region.outline().within(scene.imageFromClient->mapPoint(coarse.fit->shape.center()));
    if (isCentred)
      for (const Ray& ray : Model::rays(coarse.fit->shape, count))
        rays.push_back({scene.imageFromClient->mapPoint(ray.from), scene.imageFromClient->mapPoint(ray.through)});
  } catch (const qcException&) {  // no place in the image
    isCentred = false;
  }
  if (!isCentred) {
    const qcVector<2> centre = coarse.fit->shape.center();
    coarse.whyNot =
        formatted("the centre of the best fit, (%.1f, %.1f), lies outside the region", centre.x(), centre.y());
    return coarse;
  }
  Attempt<Model> fine = attempt<Model>(scene, along(scene, rays));
  if (!fine.whyNot.empty()) return fine;
  std::vector<EdgePoint> used;
  for (std::size_t i = 0; i < fine.edges.size(); ++i)
    if (fine.fit->used[i]) used.push_back(fine.edges[i]);
  fine.whyNot = Model::whyNot(fine.fit->shape, mapped(*scene.clientFromImage, used));
  return fine;
}

template <class Model>
GaugeResult result(const qcPelBuffer<unsigned char>& image, const Scene& scene, Attempt<Model> found) {
  if (!found.whyNot.empty()) return {{}, {}, found.whyNot};
  qcPtrHandle<vnxMeasurement> measurement(new vnxMeasurement);
  measurement->image = image;
  measurement->region = scene.region;
  for (const EdgePoint& edge : found.edges) measurement->points.push_back(edge.at);
  measurement->used = found.fit->used;
  measurement->shape = new typename Model::Shape(found.fit->shape);
  measurement->frame = new qc2XformLinear(Model::frame(found.fit->shape));
  measurement->rms = found.fit->rms;
  measurement->unit = scene.params.unit;
  return {measurement, std::move(found.scans), {}};
}

}  // namespace

GaugeResult gauge(const qcPelBuffer<unsigned char>& image, const GaugeParams& params) {
  const qcRect window(image.window());
  const Region region = params.region.within(window);  // what lies outside the image has no edges
  const qcRect box = region.outline().boundingBox() & window;
  if (box.size().x() <= 0 || box.size().y() <= 0)
    return {{}, {}, formatted("the region lies outside the image of %ld x %ld pixels", image.width(), image.height())};
  const auto& clientFromImage = image.clientFromImageXformBase();
  const auto pixel = sizeOfPixel(*clientFromImage, region.centre());
  if (!pixel) return {{}, {}, "the transform of the image is singular in the middle of the region"};
  const Scene scene{
      params, region, window, EdgeFinder(image, params.polarity), clientFromImage, image.imageFromClientXformBase(),
      *pixel};
  switch (params.feature) {
    case Feature::circle:
      return result(image, scene, findRound<CircleModel>(scene));
    case Feature::ellipse:
      return result(image, scene, findRound<EllipseModel>(scene));
    default:
      return result(image, scene, findLine(scene));
  }
}
