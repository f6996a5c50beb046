// Finds a straight or round feature in a region of an image and measures it.
#pragma once

#include <string>

#include "edges.h"
#include "measurement.h"

enum class Feature { line, circle };

struct GaugeParams {
  qcRect region;
  Feature feature = Feature::line;
  Polarity polarity = Polarity::any;
  int scans = 60;  // number of scan lines
};

struct GaugeResult {
  qcPtrHandle<vnxMeasurement> measurement;  // null when nothing was found
  std::vector<ScanLine> scans;              // those that gave the points
  std::string whyNot;                       // nothing was found

  explicit operator bool() const { return whyNot.empty(); }
};

/// Scans the region's part inside the image (a line: across it, along rows and along columns, and the better of the two
/// is kept; a circle: radially from the middle of the region, then again from the centre found), rejects outliers and
/// fits by least squares. Finds nothing when no feature is supported by enough of the scan lines: 40 %, so that a
/// circle shows at least an arc of 144 degrees, around a centre in the region.
GaugeResult gauge(const qcPelBuffer<unsigned char>& image, const GaugeParams& params);
