// The result of gauging one feature, as it is saved.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <vnxstd/archive/archive.h>
#include <vnxstd/math/vector.h>
#include <vnxstd/math/xfbase.h>
#include <vnxstd/pelbuf/buffer.h>
#include <vnxstd/shapes/lineseg.h>
#include <vnxstd/shapes/shape.h>

#include "chains.h"
#include "region.h"

/// The size of a pixel at a point of the image, in client units: the square root of the area that it has there. Nothing
/// where the transform is singular or not defined.
std::optional<double> sizeOfPixel(const qc2XformBase& clientFromImage, const qcVector<2>& at);

/// Image, region, edge points, fitted shape and the transform that carries the shape's own frame to its place: for a
/// line, the x axis runs along it from its point nearest the origin; for a circle or an ellipse, the unit circle
/// becomes it. Region and points are in image coordinates; shape, frame and rms in the client coordinates of the image,
/// which are the same pixels unless the image is calibrated.
class vnxMeasurement : public qcRepBase, public qcPersistent {
 public:
  static qcPersistent* make() { return new vnxMeasurement; }

  qcPelBuffer<unsigned char> image;
  Region region;
  std::vector<qcVector<2>> points;  // all edge points
  std::vector<bool> used;           // which of them carry the fit
  qcPtrHandle<qcShape> shape;
  qcPtrHandle<qc2XformBase> frame;
  double rms = 0;           // of the used points' distances from the shape
  std::string unit = "px";  // of client coordinates

  long inliers() const;
  /// The image has client coordinates of its own.
  bool isCalibrated() const;
  /// The size of a pixel among the points, in client units; 1 where that has none.
  double pixel() const;
  /// Of every point, its distance from the shape in client units: positive to the left of a line or outside a round
  /// shape. 0 for a point without client coordinates.
  std::vector<double> residuals() const;
  /// Of a line, the part inside the region that the points lie along, in client coordinates: nothing where it misses
  /// the region, nor for another shape.
  std::optional<qcLineSeg> lineInRegion() const;
  /// The shape, of a line the part inside the region, as chains of points in the image; without those that have no
  /// place in it.
  std::vector<Chain> shapeInImage() const;
  /// The shape's parameters as text: "line: angle 12.345 deg, distance 67.89 px".
  std::string shapeText() const;
  /// A length with its unit, and with as many digits as a ten-thousandth of a pixel takes.
  std::string lengthText(double length) const;
  std::string pointText(const qcVector<2>& p) const;

 protected:
  void dispatchSerialize(qcArchive& archive) override;
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  std::string number(double length) const;
};

/// Writes the measurement as the first object of a file archive, which may replace an earlier one. Throws FileError, as
/// loading does.
void saveMeasurement(const std::string& path, vnxMeasurement& measurement);
qcPtrHandle<vnxMeasurement> loadMeasurement(const std::string& path);
