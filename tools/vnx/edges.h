// Sub-pixel edge points along scan lines.
//
// Coordinates are those of the image plane: pel (x, y) covers the square from (x, y) to (x + 1, y + 1), so its centre
// lies at (x + 0.5, y + 0.5).
#pragma once

#include <optional>
#include <vector>

#include <vnxstd/math/vector.h>
#include <vnxstd/pelbuf/buffer.h>

/// Which way the grey level changes along a scan line.
enum class Polarity { darkToLight, lightToDark, any };

struct ScanLine {
  qcVector<2> from, to;
};

struct EdgePoint {
  qcVector<2> at;
  double strength = 0;  // grey levels per pixel, never negative
};

/// Finds the strongest edge along scan lines of one image. The profile is averaged over three pixels across the line,
/// differentiated by a Gaussian of one pixel, and its steepest place found by a parabola.
class EdgeFinder {
 public:
  /// `image` must be bound.
  EdgeFinder(const qcPelBuffer_const<unsigned char>& image, Polarity polarity);

  /// Nothing when the line lies outside the image, is shorter than the filter, or is flat.
  std::optional<EdgePoint> strongest(const ScanLine& line) const;

  /// The strongest edge of every line, less those that are weak beside the median of all.
  std::vector<EdgePoint> points(const std::vector<ScanLine>& lines) const;

 private:
  double grey(double x, double y) const;

  qcPelBuffer_const<unsigned char> image_;
  Polarity polarity_;
};
