// Calibrations: transforms from the image to the world, from points whose places in both are known.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <vnxstd/math/vector.h>
#include <vnxstd/math/xfbase.h>

struct CalibrationPoint {
  qcVector<2> image, world;
  long line = 0;  // of the file, counted from 1
};

enum class CalibrationKind { linear, perspective, polynomial, deformation };

struct CalibrationModel {
  CalibrationKind kind = CalibrationKind::perspective;
  int order = 3;          // of a polynomial
  double smoothness = 0;  // of a deformation, square pixels

  /// "linear", "perspective", "polynomial:ORDER" or "deformation:SMOOTHNESS", where order (3) and smoothness (0) may be
  /// left out. Throws WrongCall for any other text.
  static CalibrationModel parsed(const std::string& text);
  std::string text() const;
};

struct Calibration {
  CalibrationModel model;
  std::vector<CalibrationPoint> points;
  qcPtrHandle<qc2XformBase> worldFromImage;
  double rms = 0;        // of the distances between mapped and given world points
  double largest = 0;    // of these distances
  long largestLine = 0;  // where it is
  /// The same rms of points that the transform does not know: it is determined up to ten times without every tenth of
  /// the points. Nothing where there are too few for that, or so many that it would take long.
  std::optional<double> leftOutRms;

  /// How many of these image points lie outside the convex hull of the calibration's, where it is a guess.
  std::size_t outside(const std::vector<qcVector<2>>& image) const;
};

/// Reads points from a text file: four numbers a line, image x and y in pixels and world x and y, with commas,
/// semicolons or tabs between them. Empty lines and lines that begin with # are passed over, and a first line that
/// begins with a letter. Throws FileError for anything else, with the number of the line.
std::vector<CalibrationPoint> readCalibrationPoints(const std::string& path);

/// The transform of the model through these points, or next to them: a linear one, a perspective and a polynomial by
/// least squares, a deformation through or near all of them. Throws FileError, beginning with the path, when they are
/// too few or too many, on one line, or determine no transform, or one that folds the image over.
Calibration calibrate(const std::string& path, std::vector<CalibrationPoint> points, const CalibrationModel& model);
