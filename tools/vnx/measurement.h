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
#include <vnxstd/shapes/rect.h>
#include <vnxstd/shapes/shape.h>

/// Image, region, edge points, fitted shape and the transform that carries the shape's own frame into the image: for a
/// line, the x axis runs along it from its point nearest the origin; for a circle, the unit circle becomes the circle.
class vnxMeasurement : public qcRepBase, public qcPersistent {
 public:
  static qcPersistent* make() { return new vnxMeasurement; }

  qcPelBuffer<unsigned char> image;
  qcRect region;
  std::vector<qcVector<2>> points;  // all edge points
  std::vector<bool> used;           // which of them carry the fit
  qcPtrHandle<qcShape> shape;
  qcPtrHandle<qc2XformBase> frame;
  double rms = 0;  // of the used points' distances from the shape, pixels

  long inliers() const;
  /// Of a line, the part inside the region: nothing where it misses the region, nor for another shape.
  std::optional<qcLineSeg> lineInRegion() const;
  /// The shape's parameters as text: "line: angle 12.345 deg, distance 67.89".
  std::string shapeText() const;

 protected:
  void dispatchSerialize(qcArchive& archive) override;
  void serialize_(qcArchive& archive, unsigned char version);
};

/// Writes the measurement as the first object of a file archive. Throws FileError, as loading does.
void saveMeasurement(const std::string& path, vnxMeasurement& measurement);
qcPtrHandle<vnxMeasurement> loadMeasurement(const std::string& path);
