#include "platedemo.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iomanip>
#include <ostream>
#include <sstream>

#include <vnxstd/archive/file.h>
#include <vnxstd/shapes/line.h>

#include "blobs.h"
#include "calibration.h"
#include "files.h"
#include "format.h"
#include "gauge.h"
#include "overlay.h"
#include "plate.h"
#include "render.h"
#include "svg.h"
#include "wholefile.h"

namespace {

constexpr long kWidth = 640, kHeight = 480;

struct Transform {
  const char* name;
  bool mustHold;  // the tolerance
};
constexpr Transform kTransforms[] = {
    {"linear", false}, {"perspective", false}, {"polynomial:5", true}, {"deformation:10", false}};
constexpr double kWorldTolerance = 0.01;  // millimetres; a pixel is about a tenth of one
constexpr const char *kBoard = "board.bmp", *kBoardPoints = "board.csv", *kPlate = "plate.bmp", *kShapes = "plate.arc",
                     *kDrawing = "plate.svg";

// Finds the dots of the board and writes, for each, its place in the image and on the board.
void writeBoardPoints(const Camera& camera, const Board& board, const qcPelBuffer<unsigned char>& image) {
  const Blobs blobs = findBlobs(image, {{}, false, 100});
  std::ostringstream file;
  file << "image_x,image_y,world_x,world_y\n" << std::setprecision(9);
  for (int row = 0; row < board.rows; ++row)
    for (int column = 0; column < board.columns; ++column) {
      const qcVector<2> world = board.dot(column, row), expected = camera.toImage(world);
      const auto distance = [&](std::size_t i) { return blobs.regions.region(i).centroid.distance(expected); };
      const auto nearest = std::min_element(blobs.kept.begin(), blobs.kept.end(),
                                            [&](std::size_t a, std::size_t b) { return distance(a) < distance(b); });
      if (nearest == blobs.kept.end() || distance(*nearest) > 5) continue;
      const qcVector<2> at = blobs.regions.region(*nearest).centroid;
      file << at.x() << ',' << at.y() << ',' << world.x() << ',' << world.y() << '\n';
    }
  writeText(kBoardPoints, file.str());
}

struct WorldJob {
  const char* name;
  Feature feature;
  Region region;
  std::function<double(const qcShape&)> error;  // millimetres
};

std::vector<WorldJob> worldJobs(const Camera& camera, const Plate& plate) {
  const qcVector<2> a = plate.low, b(plate.low.x(), plate.high.y());
  const qcVector<2> from = camera.toImage(a), to = camera.toImage(b), hole = camera.toImage(plate.hole.center()),
                    oval = camera.toImage(plate.oval.center());
  constexpr double kPixels = 10.3;  // about a millimetre
  return {
      {"edge", Feature::line,
       qcAffineRectangle((from + to) * 0.5, from.distance(to) * 0.9, 40, (to - from).angle(), qcRadian(0)),
       [=](const qcShape& shape) {
         double worst = 0;
         for (const double t : {0.1, 0.5, 0.9})
           worst = std::max(worst, std::abs(dynamic_cast<const qcFLine&>(shape).distanceFrom(a + (b - a) * t)));
         return worst;
       }},
      {"hole", Feature::circle, Region::parsed(formatted("ring:%.0f,%.0f,50,95", hole.x(), hole.y())),
       [=](const qcShape& shape) {
         const auto& circle = dynamic_cast<const qcCircle&>(shape);
         return std::max(circle.center().distance(plate.hole.center()),
                         std::abs(circle.radius() - plate.hole.radius()));
       }},
      {"oval", Feature::ellipse,
       Region::parsed(formatted("oval:%.0f,%.0f,%.0f,%.0f,24,40", oval.x(), oval.y(), plate.oval.radii().x() * kPixels,
                                plate.oval.radii().y() * kPixels)),
       [=](const qcShape& shape) {
         const auto& ellipse = dynamic_cast<const qcEllipse2&>(shape);
         const qcVector<2> radii = ellipse.radii() - plate.oval.radii();
         return std::max({ellipse.center().distance(plate.oval.center()), std::abs(radii.x()), std::abs(radii.y())});
       }}};
}

// What was measured, in millimetres, over the plate as it is.
void drawInMillimetres(const Plate& plate, const std::vector<qcPtrHandle<qcShape>>& measured) {
  std::vector<qcPtrHandle<qcShape>> shapes{qcPtrHandle<qcShape>(new qcRect(plate.low, plate.high - plate.low))};
  shapes.insert(shapes.end(), measured.begin(), measured.end());
  writeWhole(kShapes, Existing::replaced, [&](const std::string& part) {
    qcFileArchive archive(qf_Widen(part), qcArchive::storing);
    for (qcPtrHandle<qcShape>& shape : shapes) archive || shape;
    archive.close();
  });
  writeText(kDrawing, renderArchive(kShapes).svg);
}

}  // namespace

bool measurePlate(std::ostream& out) {
  const Camera camera;
  const Board board;
  const Plate plate;
  const auto picture = [&](const char* name, const auto& thing) {
    auto drawn =
        drawPicture([&](const qcVector<2>& p) { return thing.contains(camera.toWorld(p)); }, {}, kWidth, kHeight);
    writeBitmap(name, drawn);
    return drawn;
  };
  writeBoardPoints(camera, board, picture(kBoard, board));
  auto image = picture(kPlate, plate);
  const std::vector<CalibrationPoint> points = readCalibrationPoints(kBoardPoints);
  const std::vector<WorldJob> jobs = worldJobs(camera, plate);

  out << "\na plate through a lens that distorts, in mm, by " << points.size() << " dots of " << kBoard << '\n'
      << formatted("%-15s %9s %9s", "transform", "rms", "left out");
  for (const WorldJob& job : jobs) out << formatted(" %9s", (job.name + std::string(" error")).c_str());
  out << '\n';
  bool good = true;
  std::vector<qcPtrHandle<qcShape>> measured;
  for (const Transform& transform : kTransforms) {
    const Calibration calibration = calibrate(kBoardPoints, points, CalibrationModel::parsed(transform.name));
    image.clientFromImageXformBase(calibration.worldFromImage, false);
    out << formatted("%-15s %9.4f %9.4f", transform.name, calibration.rms, calibration.leftOutRms.value_or(0));
    for (const WorldJob& job : jobs) {
      const GaugeResult result = gauge(image, {job.region, job.feature, Polarity::any, 90, "mm"});
      if (!result) {
        out << formatted(" %10s", "none");
        good = good && !transform.mustHold;
        continue;
      }
      const double error = job.error(*result.measurement->shape);
      out << formatted(" %10.4f", error);
      good = good && (error <= kWorldTolerance || !transform.mustHold);
      if (!transform.mustHold) continue;
      measured.push_back(result.measurement->shape);
      const std::string name = std::string("plate-") + job.name;
      saveMeasurement(name + ".arc", *result.measurement);
      writeText(name + "-overlay.svg", overlaySvg(*loadMeasurement(name + ".arc"), result.scans, kPlate));
    }
    out << '\n';
  }
  drawInMillimetres(plate, measured);
  out << formatted("errors of polynomial:5 within %.2f mm, a tenth of a pixel, of the plate as drawn: %s\n",
                   kWorldTolerance, good ? "yes" : "NO")
      << "written: " << kBoard << ", " << kBoardPoints << ", " << kPlate << ", " << kShapes << " and " << kDrawing
      << ", its drawing;\nfor every feature plate-NAME.arc and plate-NAME-overlay.svg\n";
  return good;
}
