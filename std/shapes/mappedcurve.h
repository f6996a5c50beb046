// The image of a shape's boundary under a transform that bends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "std/shapes/lazy.h"
#include "std/shapes/samplewriter.h"
#include "vnxstd/math/matrix.h"
#include "vnxstd/math/xfbase.h"
#include "vnxstd/shapes/rect.h"
#include "vnxstd/shapes/shape.h"
#include "vnxstd/shapes/shapeinfo.h"

class qcRegionTree;

namespace qc_shapes {

/// The boundary of a shape, piece by piece as decomposition gives it, with the image of each point; what a mapped shape
/// holds in it is seen through both transforms at once. The pieces are cut into spans, each with a bound for how far
/// its image deviates from the chord between the images of its ends. The bound follows from the transform's own
/// (qc2XformBase::bendBound), so that it holds for all points and not only for those that are looked at. Every question
/// goes down to spans whose bound is small enough for the answer.
///
/// Errors of the transform at a point reach whoever asks; a boundary of which some point has no finite image, or that
/// bends too much for what spans there may be, throws qc2XformPerspectiveDefs::NumericalError.
class MappedCurve {
 public:
  using Held = qcPtrHandle_const<qcShape>;
  using Xform = qcPtrHandle_const<qc2XformBase>;
  /// A shape, and the transform that it is seen through.
  struct Seen {
    Held shape;
    Xform xform;
  };

  /// The share of the extent within which a box, nearest distances and insideness are determined.
  static constexpr double kPrecision = 1e-8;
  /// Within this share of the extent a point lies on the image.
  static constexpr double kOnCurve = 1e-10;

  /// Throws qcShapesError::InfiniteExtent for infinite shapes.
  MappedCurve(const Held& shape, const Xform& xform);

  /// A point of the boundary: a distance along a piece before it is mapped.
  struct Place {
    std::size_t piece = 0;
    double distance = 0;
  };

  /// The size of the image, which tolerances are relative to: about the diagonal of its bounding box.
  double extent() const { return extent_; }

  qcRect boundingBox() const;
  Place nearest(const qcVector<2>& p) const;
  /// The angle under which all contours are seen from p, travelled from start to end. For a point within the precision
  /// of the boundary that from its left side; `touches` tells whether it is one.
  double windingAngle(const qcVector<2>& p, bool& touches) const;
  /// Whether p lies in the image of the region: inside its boundary, and in no region that is cut out. What lies within
  /// the precision of a boundary is inside unless `openRegion`.
  bool within(const qcVector<2>& p, bool openRegion) const;
  double tangentRotation() const;

  /// The image, and the direction of its tangent unless `tangent` is null.
  qcVector<2> image(const Place& place, qcRadian* tangent) const;

  // Positions count the pieces of the shape that was given, of which each may have been decomposed into several.

  /// The length of the image of each of these.
  std::vector<double> lengths() const;
  /// The place at a length along the image of a piece, no further than its end.
  Place placeOn(std::int32_t number, double length) const;
  qcPerimPos positionOf(const Place& place) const;

  /// The length of the image of all that comes before a place, and the place before which a length comes; exactly on a
  /// joint that is the start of the later piece.
  double lengthTo(const Place& place) const;
  Place placeAt(double length) const;
  double length() const { return starts().back(); }
  /// The place itself, or where it is a joint the start of the next piece, unless the contour jumps there.
  Place normal(const Place& place) const;
  /// The shape that was given, as it is before it is mapped: with the same pieces and places, but other lengths.
  const MappedCurve& source() const;

  /// A polyline for each contour, or a contour tree of polylines where it jumps, that deviates from the image by the
  /// tolerance at most.
  std::vector<qcPtrHandle<qcShape>> outlines(double tolerance) const;
  /// The region trees, each with the number of the first of its contours, which are those of its elements.
  struct Region {
    Seen seen;
    std::size_t firstContour;
  };
  const std::vector<Region>& regions() const { return regions_; }

  /// Samples the pieces as qcMappedShape::sample says; in uniform mode one chain, closed or not.
  void sample(SampleWriter& writer) const;
  void sampleUniformly(SampleWriter& writer, bool closed) const;

 private:
  // A part of the decomposed shape that is asked for points by itself.
  struct Element {
    Seen seen;
    qcShapeInfo info;
  };
  struct Piece {
    std::size_t element;
    std::int32_t index;  // within the element
    std::int32_t owner;  // the piece of the shape that was given
    double length;
    qcVector<2> start, end;                // before they are mapped
    qcVector<2> startTangent, endTangent;  // of length 1; null when unknown
    std::size_t firstSpan = 0;
  };
  struct Chain {
    std::size_t first, last;  // pieces, the last one excluded
    bool closed;
    bool isTurned;          // travelled against the direction of its pieces
    std::ptrdiff_t parent;  // the chain that bounds the region from which this one takes or gives back, or -1
    bool isRound;           // one closed piece, without a corner where its ends meet
  };
  struct End {
    double distance;
    qcVector<2> source, image;
  };
  struct Span {
    std::size_t piece;
    End from, to;
    End middle;
    double deviation;
    double speed;  // by how much the expansion at the middle lengthens
  };
  // How often one question may halve spans, and how much more often for each piece: what bends without end must not
  // take all time and memory.
  struct Limit {
    std::size_t whole, each;
  };
  static constexpr Limit kKept{1 << 15, 16}, kLooked{1 << 18, 1 << 11}, kMeasured{1 << 15, 64},
      kSampled{1 << 20, 1 << 12};
  // How often it still may.
  class Effort {
   public:
    Effort(const Limit& limit, std::size_t pieces) : left_(limit.whole + limit.each * pieces) {}
    void spend() {
      if (left_-- == 0) throwTooBent();
    }

   private:
    std::size_t left_;
  };
  Effort effort(const Limit& limit) const { return {limit, pieces_.size()}; }
  // A stretch of a piece whose length is computed well by one rule, and the length of what comes before on the piece.
  struct Stretch {
    double from, before;
  };

  MappedCurve(const Held& shape, const Xform& xform, const MappedCurve* mapped);

  // A shape that is decomposed, whose pieces own those of its parts, and how long the parts are that have been added.
  struct Whole {
    qcShapeInfo info;
    double start = 0;
  };
  void addAll(const Seen& all, Whole* whole);
  void addRegion(const qcRegionTree& region, const Xform& xform, Whole* whole);
  void addContour(const Seen& contour, bool isTurned, std::ptrdiff_t parent, Whole* whole);
  void addPrimitives(const Seen& seen, Whole* whole);
  template <class OwnerOf>
  double addElement(const Seen& seen, const OwnerOf& ownerOf);
  void cut();
  std::size_t endOfSpans(std::size_t piece) const;
  bool jumps(const Span& from, const Span& to) const;
  bool jumpsBehind(std::size_t span) const;
  const qc2XformBase& xformOf(const Piece& piece) const { return *elements_[piece.element].seen.xform; }
  double windingAngle(const Chain& chain, const qcVector<2>& p, Effort& effort, bool& touches) const;

  End endAt(const Piece& piece, double distance) const;
  qcVector<2> sourceTangent(const Piece& piece, double distance, qcVector<2>& point) const;
  Span spanBetween(std::size_t piece, const End& from, const End& to) const;
  Span wholePiece(std::size_t piece) const;
  bool isShortest(const Span& span) const;
  void halve(const Span& span, Span& first, Span& second) const;
  [[noreturn]] static void throwAtInfinity();
  [[noreturn]] static void throwTooBent();
  template <class IsDone, class Leaf>
  void refine(const Span& whole, Effort& effort, const IsDone& isDone, const Leaf& leaf) const;
  double furthest(const qcVector<2>& towards) const;
  template <class Slope>
  Place lowestNear(const Place& place, const Slope& slope) const;

  // How the image moves at a distance along a piece: the tangent before it is mapped, the point and its velocity.
  struct Motion {
    double distance;
    qcVector<2> tangent, image, velocity;
  };
  Motion motionAt(const Piece& piece, double distance) const;
  double change(const Piece& piece, const Motion& from, const Motion& middle, const Motion& to) const;
  double turning(const Piece& piece, const Motion& from, const Motion& to, int depth, Effort& effort) const;
  double gauss(const Piece& piece, double from, double to) const;
  void measure(const Piece& piece, const Motion& from, const Motion& to, double whole, int depth, Effort& effort,
               double& before, std::vector<Stretch>& stretches) const;
  // The stretches and the length of each piece, and what comes before it; behind the last one the whole length.
  struct Measures {
    std::vector<std::vector<Stretch>> stretches;
    std::vector<double> lengths, starts;
  };
  Measures measured() const;
  const Measures& measures() const {
    return measures_.get([this] { return measured(); });
  }
  const std::vector<double>& starts() const { return measures().starts; }
  double lengthOnPiece(std::size_t piece, double distance) const;
  double distanceOnPiece(std::size_t piece, double length) const;
  std::size_t firstOf(std::int32_t owner) const;
  qcPtrHandle<qcShape> outline(const Chain& chain, double tolerance, Effort& effort) const;
  std::int32_t takeNumbers(SampleWriter& writer) const;
  void add(SampleWriter& writer, const Place& place, std::int32_t firstNumber) const;
  std::vector<double> sampleDistances(const qcShape::qcSampleParams& params, std::size_t piece, bool isRound,
                                      Effort& effort) const;

  Held given_;
  const MappedCurve* mapped_;       // that which this one is the source of, or null
  std::vector<bool> isCorner_;      // for each piece without length that was found
  std::vector<std::int32_t> ends_;  // owners of those where the piece before ends, in order
  long numOwners_ = 0;              // of the pieces of the shape that was given
  std::vector<Element> elements_;
  std::vector<Piece> pieces_;
  std::vector<Chain> chains_;
  std::vector<Region> regions_;
  std::vector<Span> spans_;
  double extent_ = 0;

  Lazy<qcRect> box_;
  Lazy<Measures> measures_;
  Lazy<MappedCurve> before_;
};

// Calls `leaf` in order with the parts of a span for which `isDone` holds, or that cannot be cut.
template <class IsDone, class Leaf>
void MappedCurve::refine(const Span& whole, Effort& effort, const IsDone& isDone, const Leaf& leaf) const {
  std::vector<Span> waiting{whole};
  while (!waiting.empty()) {
    const Span span = waiting.back();
    waiting.pop_back();
    const bool cannot = isShortest(span);
    if (cannot && !std::isfinite(span.deviation)) throwAtInfinity();
    if (isDone(span) || cannot) {
      leaf(span);
      continue;
    }
    effort.spend();
    Span first, second;
    halve(span, first, second);
    waiting.push_back(second);
    waiting.push_back(first);
  }
}

}  // namespace qc_shapes
