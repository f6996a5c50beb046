// The chains of points by which contours are drawn, as far as a window needs them.
#pragma once

#include <vector>

#include "std/shapes/clipedges.h"
#include "vnxstd/pelspan/pelspan.h"
#include "vnxstd/shapes/sampling.h"

class qcEllipseArc2;
class qcMappedShape;

namespace qc_shapes {

/// Points that are joined by straight pieces, none of them equal to the next one.
struct RasterChain {
  std::vector<qcVector<2>> points;
  bool closed = false;
};

/// Makes chains of contours: straight pieces as they are, curves sampled. What stays away from a window by more than a
/// margin is replaced by a straight line between its ends, which stays away on the same side: curves of any size take
/// few points.
class RasterChains {
 public:
  RasterChains(const qcPelRect& window, double margin, const qcShape::qcSampleParams& params);

  /// Nothing of the shape comes near. Throws qcShapesError::BadGeom when its box is not finite.
  bool misses(const qcShape& shape) const;
  /// The chains of a shape, or of all shapes in a tree, that come near. Throws qcShapesError::BadGeom for a coordinate
  /// that is not finite, and what sampling throws.
  std::vector<RasterChain> of(const qcShape& shape);

 private:
  // To the last chain. A shape that stands alone may come in several, which say whether they are closed.
  void add(const qcShape& shape, bool alone);
  void addArc(const qcEllipseArc2& arc);
  void addBent(const qcMappedShape& mapped);
  void addSamples(const qcShape& shape, bool alone);
  void put(const qcVector<2>& p);
  bool isLarge(const qcShape& shape) const;

  qcShape::qcSampleParams params_;
  ClipBox near_;
  double large_;  // the longest side of the boxes of curves that are sampled as a whole
  std::vector<RasterChain> chains_;
};

}  // namespace qc_shapes
