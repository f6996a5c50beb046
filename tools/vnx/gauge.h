// Finds a straight or round feature in a region of an image and measures it.
#pragma once

#include <string>

#include "edges.h"
#include "measurement.h"

enum class Feature { line, circle, ellipse };

struct GaugeParams {
  Region region;
  Feature feature = Feature::line;
  Polarity polarity = Polarity::any;
  int scans = 60;           // number of scan lines
  std::string unit = "px";  // of the image's client coordinates
};

struct GaugeResult {
  qcPtrHandle<vnxMeasurement> measurement;  // null when nothing was found
  std::vector<ScanLine> scans;              // those that gave the points
  std::string whyNot;                       // nothing was found

  explicit operator bool() const { return whyNot.empty(); }
};

/// Scans the region's part inside the image, rejects outliers and fits by least squares. Edge points are found in the
/// image and carried to client coordinates by the image's transform before anything is fitted, so that a transform
/// that undoes the distortion of a lens makes straight lines straight.
///
/// A line: across the rectangle, along one pair of sides and along the other, and the better of the two is kept; of a
/// ring nothing. A circle or an ellipse: radially from the middle of the rectangle, or at right angles across the ring;
/// then again at right angles to the feature found.
///
/// Finds nothing when no feature is supported by enough of the scan lines: 40 %, so that a circle shows at least an arc
/// of 144 degrees, around a centre in the region or its hole; an ellipse also lacks at most 150 degrees in one piece.
GaugeResult gauge(const qcPelBuffer<unsigned char>& image, const GaugeParams& params);
