// Connected regions of run-length images: what blobs there are, where they lie and how they are shaped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vnxstd/archive/widths.h"
#include "vnxstd/export.h"
#include "vnxstd/math/angle.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/math/xfcache.h"
#include "vnxstd/pelspan/pelspan.h"
#include "vnxstd/rlebuf/rlebuf.h"
#include "vnxstd/shapes/polyline.h"

/// What is known of a region, in image coordinates. Moments are those of its pel centres.
struct VNXSTD_EXPORT qcRLERegion {
  unsigned char value = 0;
  qcInt64 area = 0;       ///< pels
  qcPelRect boundingBox;  ///< the smallest rectangle with all pels
  qcVector<2> centroid;   ///< the mean of the pel centres
  double xx = 0;          ///< the mean of (x - centroid x) squared
  double xy = 0;          ///< the mean of (x - centroid x) (y - centroid y)
  double yy = 0;          ///< the mean of (y - centroid y) squared

  /// The direction in which the pels spread most, in [-pi/2, pi/2] radians; 0 where they spread alike in all, up
  /// to rounding.
  qcRadian angle() const;
  /// The square root of the ratio of the greatest spread (a mean of squares, as above) to the least, both with the
  /// twelfth that the extent of a pel adds: 1 for a disk or a square, more the longer and thinner the region is.
  double elongation() const;
};

/// The regions of an image, in the order of their first pels, from the top down and from left to right: sets of pels of
/// one value, not 0, which are connected through neighbours, four of them or eight. A copy of what it needs of the
/// image; does not change once made, so that several threads may read it.
class VNXSTD_EXPORT qcRLERegions {
 public:
  enum Connectivity : std::int32_t { four = 4, eight = 8 };

  /// Time and memory are in proportion to the number of runs (times an inverse Ackermann function, which is below 5).
  /// Rounding errors of moments grow with the size of the region, not with its distance from the origin. Labels runs
  /// with a disjoint-set forest, linked by rank: R. E. Tarjan and J. van Leeuwen, "Worst-case analysis of set union
  /// algorithms", J. ACM 31 (1984). Throws qcRLEBuffer::Degenerate, qcPelFunc::BadParams for another connectivity,
  /// qcPelFunc::Range for more than 4294967295 stretches.
  explicit qcRLERegions(const qcRLEBuffer& image, Connectivity connectivity = eight);

  std::size_t size() const noexcept { return regions_.size(); }
  /// These throw qcPelFunc::BadParams for an index that is not below the number of regions, and take time in proportion
  /// to the runs of the region.
  const qcRLERegion& region(std::size_t index) const { return regions_[checked(index)]; }
  /// The region as an image of its bounding box, its value on 0, with the transform of the image.
  qc_TmpRLEBuffer image(std::size_t index) const;
  /// The outer border along the edges of pels, as a closed, right-handed polyline whose vertices are corners. A region
  /// of eight-connected pels may touch itself at corners. A logarithmic factor goes into looking for the way.
  qcPolyline boundary(std::size_t index) const;
  /// The outer border and those of the holes, which are left-handed, so that the areas add up to that of the region.
  std::vector<qcPolyline> boundaries(std::size_t index) const;

 private:
  friend class qc_BorderWalk;
  /// Pels [first, last) of a row, counted from the image's corner.
  struct Piece {
    std::int32_t first, last, row;
  };

  std::size_t checked(std::size_t index) const;
  void label(const qcRLEBuffer& image);
  qcRLERegion measured(unsigned char value, const Piece* begin, const Piece* end) const;

  Connectivity connectivity_;
  std::int32_t offsetX_, offsetY_;
  qc2XformCache xforms_;
  std::vector<Piece> pieces_;        // by region, then from the top down and from left to right
  std::vector<std::size_t> starts_;  // the first piece of every region, and behind the last one
  std::vector<qcRLERegion> regions_;
};
