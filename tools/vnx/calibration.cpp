#include "calibration.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include <vnxstd/cfit/pointfit.h>
#include <vnxstd/math/xfdeform.h>
#include <vnxstd/math/xflinear.h>
#include <vnxstd/math/xfpersp.h>
#include <vnxstd/math/xfpoly.h>
#include <vnxstd/shapes/polyline.h>

#include "files.h"
#include "format.h"
#include "numbers.h"
#include "wrongcall.h"

namespace {

constexpr std::size_t kLargestFile = 16 << 20;  // bytes
constexpr std::size_t kMostBends = 2000;        // points of a deformation, which costs their third power
constexpr std::size_t kQuickBends = 300;        // of which another ten deformations cost nothing that is felt
constexpr std::size_t kFolds = 10;

struct Lists {
  std::vector<qcVector<2>> image, world;

  void add(const CalibrationPoint& point) {
    image.push_back(point.image);
    world.push_back(point.world);
  }
};

Lists listsOf(const std::vector<CalibrationPoint>& points) {
  Lists lists;
  for (const CalibrationPoint& point : points) lists.add(point);
  return lists;
}

// Sums are taken around the first points, wherever these lie.
qcXform<2> affine(const std::vector<qcVector<2>>& from, const std::vector<qcVector<2>>& to) {
  qcLSPointToPointFitter fitter;
  for (std::size_t i = 0; i < from.size(); ++i) fitter.update(to[i] - to[0], from[i] - from[0]);
  const qcXform<2> shifted = fitter.fit(6);
  return {shifted.matrix(), to[0] + shifted.trans() - shifted.matrix() * from[0]};
}

qcPtrHandle<qc2XformBase> fitted(const Lists& lists, const CalibrationModel& model) {
  switch (model.kind) {
    case CalibrationKind::perspective:
      return new qc2XformPerspective(lists.image, lists.world);
    case CalibrationKind::polynomial:
      return new qc2XformPoly(lists.image, lists.world, model.order);
    case CalibrationKind::deformation:
      return new qc2XformDeform(lists.image, lists.world, model.smoothness);
    default:
      return new qc2XformLinear(affine(lists.image, lists.world));
  }
}

std::size_t fewest(const CalibrationModel& model) {
  switch (model.kind) {
    case CalibrationKind::perspective:
      return 4;
    case CalibrationKind::polynomial:
      return qc2XformPoly::size(model.order);
    default:
      return 3;
  }
}

std::size_t distinct(std::vector<qcVector<2>> points) {
  const auto order = [](const qcVector<2>& p) { return std::pair(p.x(), p.y()); };
  std::sort(points.begin(), points.end(), [&](const auto& a, const auto& b) { return order(a) < order(b); });
  return static_cast<std::size_t>(std::unique(points.begin(), points.end()) - points.begin());
}

// Why these points cannot do, or nothing.
std::string whyNot(const Lists& lists, const CalibrationModel& model) {
  const std::size_t enough = fewest(model), count = distinct(lists.image);
  if (count < enough)
    return formatted("%zu different image points, of which a %s transform needs %zu", count, model.text().c_str(),
                     enough);
  if (model.kind == CalibrationKind::deformation && count > kMostBends)
    return formatted("%zu image points, of which a deformation takes at most %zu", count, kMostBends);
  try {
    affine(lists.image, lists.image);
  } catch (const qcLSPointToPointFitter::UnstableErr&) {
    return "the image points lie on one line, or too far apart";
  }
  try {
    affine(lists.world, lists.world);
  } catch (const qcLSPointToPointFitter::UnstableErr&) {
    return "the world points lie on one line, or too far apart";
  }
  return {};
}

// A transform that turns from right-handed to left-handed between two of its points folds the image in between.
void requireUnfolded(const std::string& path, const Calibration& calibration) {
  const auto area = [&](const CalibrationPoint& point) {
    return calibration.worldFromImage->linearXform(point.image).matrix().determinant();
  };
  const double first = area(calibration.points.front());
  for (const CalibrationPoint& point : calibration.points)
    if (!(area(point) * first > 0))
      throw FileError(path, formatted("the %s transform folds the image over near the point of line %ld",
                                      calibration.model.text().c_str(), point.line));
}

void measureResiduals(Calibration& calibration) {
  double squares = 0;
  for (const CalibrationPoint& point : calibration.points) {
    const double distance = calibration.worldFromImage->mapPoint(point.image).distance(point.world);
    squares += distance * distance;
    if (!(distance > calibration.largest) && calibration.largestLine > 0) continue;
    calibration.largest = distance;
    calibration.largestLine = point.line;
  }
  calibration.rms = std::sqrt(squares / static_cast<double>(calibration.points.size()));
}

std::optional<double> leftOutRms(const std::vector<CalibrationPoint>& points, const CalibrationModel& model) {
  if (model.kind == CalibrationKind::deformation && points.size() > kQuickBends) return std::nullopt;
  const std::size_t folds = std::min(kFolds, points.size());
  double squares = 0;
  try {
    for (std::size_t fold = 0; fold < folds; ++fold) {
      Lists known, unknown;
      for (std::size_t i = 0; i < points.size(); ++i) (i % folds == fold ? unknown : known).add(points[i]);
      if (!whyNot(known, model).empty()) return std::nullopt;
      const auto xform = fitted(known, model);
      for (std::size_t i = 0; i < unknown.image.size(); ++i) {
        const double distance = xform->mapPoint(unknown.image[i]).distance(unknown.world[i]);
        squares += distance * distance;
      }
    }
  } catch (const qcException&) {  // the rest determines nothing
    return std::nullopt;
  }
  return std::sqrt(squares / static_cast<double>(points.size()));
}

std::string printable(std::string_view text) {
  std::string result(text.substr(0, 60));
  for (char& c : result)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
  return text.size() > result.size() ? result + "..." : result;
}

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '"'; }

}  // namespace

CalibrationModel CalibrationModel::parsed(const std::string& text) {
  const std::size_t colon = text.find(':');
  const std::string name = text.substr(0, colon);
  std::optional<double> value;
  bool isGood = true;
  if (colon != std::string::npos) {
    const auto numbers = readNumbers(std::string_view(text).substr(colon + 1));
    isGood = numbers && numbers->size() == 1;
    if (isGood) value = numbers->front();
  }
  CalibrationModel model;
  if (name == "polynomial") {
    model.kind = CalibrationKind::polynomial;
    const double order = value.value_or(model.order);
    isGood = isGood && order >= 1 && order <= qc2XformPoly::kMaxOrder && order == std::floor(order);
    if (isGood) model.order = static_cast<int>(order);
  } else if (name == "deformation") {
    model.kind = CalibrationKind::deformation;
    model.smoothness = value.value_or(model.smoothness);
    isGood = isGood && model.smoothness >= 0;
  } else {
    model.kind = name == "linear" ? CalibrationKind::linear : CalibrationKind::perspective;
    isGood = isGood && !value && (name == "linear" || name == "perspective");
  }
  if (!isGood)
    throw WrongCall(
        "--transform takes linear, perspective, polynomial:ORDER with an order from 1 to 9, or deformation:SMOOTHNESS "
        "with a smoothness of at least 0; not \"" +
        text + '"');
  return model;
}

std::string CalibrationModel::text() const {
  switch (kind) {
    case CalibrationKind::perspective:
      return "perspective";
    case CalibrationKind::polynomial:
      return formatted("polynomial:%d", order);
    case CalibrationKind::deformation:
      return smoothness > 0 ? formatted("deformation:%g", smoothness) : "deformation";
    default:
      return "linear";
  }
}

std::size_t Calibration::outside(const std::vector<qcVector<2>>& image) const {
  const qcPolyline hull = qcPolyline(listsOf(points).image, true).convexHull();
  return static_cast<std::size_t>(
      std::count_if(image.begin(), image.end(), [&](const qcVector<2>& p) { return !hull.within(p); }));
}

std::vector<CalibrationPoint> readCalibrationPoints(const std::string& path) {
  std::ifstream file = openedOnce(path);
  std::string text(kLargestFile + 1, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (file.bad()) throw unreadable(path);
  text.resize(static_cast<std::size_t>(file.gcount()));
  if (text.size() > kLargestFile) throw FileError(path, "is too large for a list of points", Fault::limit);
  std::string_view rest = text;
  if (rest.starts_with("\xEF\xBB\xBF")) rest.remove_prefix(3);  // a byte order mark
  std::vector<CalibrationPoint> points;
  bool isFirst = true;
  for (long number = 1; !rest.empty(); ++number) {
    const std::size_t end = rest.find('\n');
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    const std::size_t start = line.find_first_not_of(" \t\r");
    if (start == std::string_view::npos || line[start] == '#') continue;
    const bool isHeading = std::exchange(isFirst, false) && isLetter(line[start]);
    if (isHeading) continue;
    const char separator = line.find(';') != line.npos ? ';' : line.find(',') != line.npos ? ',' : '\t';
    const auto numbers = readNumbers(line, separator);
    if (!numbers || numbers->size() != 4)
      throw FileError(path, formatted("line %ld: ", number) +
                                "four finite numbers are needed, image x, image y, world x, world y; not \"" +
                                printable(line) + '"');
    points.push_back({{(*numbers)[0], (*numbers)[1]}, {(*numbers)[2], (*numbers)[3]}, number});
  }
  return points;
}

Calibration calibrate(const std::string& path, std::vector<CalibrationPoint> points, const CalibrationModel& model) {
  const Lists lists = listsOf(points);
  if (const std::string why = whyNot(lists, model); !why.empty()) throw FileError(path, why);
  Calibration calibration;
  calibration.model = model;
  calibration.points = std::move(points);
  try {
    calibration.worldFromImage = fitted(lists, model);
    requireUnfolded(path, calibration);
    calibration.worldFromImage->inverseBase();  // what cannot be undone cannot be drawn either
    measureResiduals(calibration);
  } catch (const qcLSPointToPointFitter::UnstableErr&) {  // although neither list alone was too much
    throw FileError(path, "the points lie too far apart for a " + model.text() + " transform");
  } catch (const qcException& error) {
    throw FileError(path, "the points determine no " + model.text() + " transform: " + qf_Narrow(error.message(true)));
  }
  calibration.leftOutRms = leftOutRms(calibration.points, model);
  return calibration;
}
