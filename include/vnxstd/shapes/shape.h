// The interface that every geometric shape implements, and positions along a shape's boundary.
#pragma once

#include <compare>
#include <cstdint>
#include <typeinfo>
#include <utility>
#include <vector>

#include "vnxstd/archive/handle.h"
#include "vnxstd/archive/persistent.h"
#include "vnxstd/export.h"
#include "vnxstd/math/angle.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/math/xform.h"
#include "vnxstd/shapes/errors.h"

class qcArchive;
class qcClipInfo;
class qcPolyline;
class qcRect;
class qcShapeInfo;

/// A position on a shape's boundary: the number of a piece (a primitive of the decomposed shape), and the distance
/// along that piece from its start. A shape that is not itself decomposed counts as one piece, number 0, but trees have
/// the pieces of their elements. Positions compare by index first, then by distance, exactly.
class VNXSTD_EXPORT qcPerimPos {
 public:
  constexpr qcPerimPos() = default;
  constexpr qcPerimPos(std::int32_t index, double distance) : index_(index), distance_(distance) {}

  constexpr std::int32_t index() const { return index_; }
  constexpr double distance() const { return distance_; }
  constexpr void index(std::int32_t index) { index_ = index; }
  constexpr void distance(double distance) { distance_ = distance; }

  friend constexpr bool operator==(const qcPerimPos&, const qcPerimPos&) = default;
  friend constexpr auto operator<=>(const qcPerimPos&, const qcPerimPos&) = default;

 private:
  std::int32_t index_ = 0;
  double distance_ = 0;
};

/// Stores or loads a version byte (0), the index and the distance. A load that throws leaves the position as it was.
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcPerimPos& position);

/// A geometric shape in the plane: the common interface of points, lines, curves, regions and collections of them.
/// Shapes are handled through qcPtrHandle<qcShape>. Operations that derive one shape from another return a new shape
/// and leave this one unchanged; classes of shapes have setters of their own.
///
/// Coordinates are doubles; angles turn from the x axis towards the y axis. A direction's left side is the side of the
/// y axis when the direction is the x axis, and a region is right-handed when it lies to the left of its boundary
/// (counter-clockwise where y points up).
///
/// What a region's nearest point, perimeter positions and samples refer to is its boundary. Where several points are
/// equally near, the first in traversal order is returned. Positions along a closed boundary wrap around; along an open
/// one they are clamped to its ends. A distance or length that is NaN throws qcShapesError::BadParams; making the
/// information of a shape whose length is no finite number throws qcShapesError::InfiniteExtent. Coordinates are not
/// checked: with NaN, infinities, or differences whose squares leave the range of doubles, answers mean nothing.
///
/// A shape may be read from several threads while nobody changes it; nothing here takes a lock.
class VNXSTD_EXPORT qcShape : public virtual qcRepBase, public virtual qcPersistent {
 public:
  class qcSampleParams;  // sampling.h
  class qcSampleResult;

  /// What became of a shape that was clipped: nothing of it, a part, or all of it lies inside the polygon.
  enum class ClipResult : std::int32_t { outside = 0, clipped = 1, inside = 2 };

  /// A deep copy.
  virtual qcPtrHandle<qcShape> clone() const = 0;

  /// The shape is a single open curve with a start and an end.
  virtual bool isOpenContour() const = 0;
  /// The shape encloses an area: inside and outside are defined.
  virtual bool isRegion() const = 0;
  /// False for infinite lines.
  virtual bool isFinite() const = 0;
  /// The shape has no points. Asking an empty shape for a point or an extent throws qcShapesError::EmptyShape.
  virtual bool isEmpty() const = 0;
  /// A tangent direction is defined along the shape.
  virtual bool hasTangent() const = 0;
  /// The shape is already made of primitives only: segments, arcs, polylines, trees of them.
  virtual bool isDecomposed() const = 0;
  /// reverse() is supported.
  virtual bool isReversible() const = 0;

  /// The smallest axis-aligned rectangle around the shape. Throws qcShapesError::InfiniteExtent for infinite shapes.
  virtual qcRect boundingBox() const = 0;
  /// The point of the shape nearest to `p`.
  virtual qcVector<2> nearestPoint(const qcVector<2>& p) const = 0;

  /// The length of the boundary. Throws qcShapesError::InfiniteExtent for infinite shapes. By default that of
  /// decompose().
  virtual double perimeter() const;
  /// The position of the boundary point nearest to `p`; `info` must be the information of this shape. By default the
  /// decomposed shape is asked, and the answer has index 0 and the distance from the start of the whole boundary.
  virtual qcPerimPos nearestPerimPos(const qcShapeInfo& info, const qcVector<2>& p) const;

  // Of open contours; by default these throw qcShapesError::NotOpenContour.

  virtual qcVector<2> startPoint() const;
  virtual qcVector<2> endPoint() const;
  /// The direction of the tangent at the start and at the end. Throws qcShapesError::NoTangent when there is none.
  virtual qcRadian startAngle() const;
  virtual qcRadian endAngle() const;
  /// How far the tangent turns altogether from the start to the end, in radians, whole turns included.
  virtual qcRadian tangentRotation() const;
  /// The angle that is swept around `p` while the contour is travelled. For a point on the contour itself it is the
  /// limit from the left side.
  virtual qcRadian windingAngle(const qcVector<2>& p) const;

  // Of regions; by default these throw qcShapesError::NotRegion.

  /// The region lies to the left of its boundary.
  virtual bool isRightHanded() const;
  /// `p` lies inside the region.
  virtual bool within(const qcVector<2>& p) const;

  /// The shape carried through a transform.
  virtual qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const = 0;
  /// The same shape traversed the other way. By default throws qcShapesError::NotReversible.
  virtual qcPtrHandle<qcShape> reverse() const;
  /// An equivalent shape made of primitives.
  virtual qcPtrHandle<qcShape> decompose() const = 0;
  /// The piece of the boundary that starts at `piece.first` and runs for `piece.second`, a length of at least 0 (else
  /// qcShapesError::BadParams). It ends at the end of an open boundary, and after one full round of a closed one.
  /// `info` must be the information of this shape. By default the decomposed shape is asked.
  virtual qcPtrHandle<qcShape> subShape(const qcShapeInfo& info, const std::pair<qcPerimPos, double>& piece) const;

  /// The part of the shape inside a polygon; see clip. It writes to `info` what became of the shape.
  virtual qcPtrHandle<qcShape> clip_(const qcPolyline& polygon, qcClipInfo& info) const = 0;

  /// The same as reverse().
  virtual qcPtrHandle<qcShape> reverse_() const;

  /// Appends points on the shape to `result`; see qcSampleParams. A shape that is a single point is sampled as that
  /// point when no tangents are asked for, and throws qcShapesError::NoTangent when they are. Throws BadParams when the
  /// result already holds chains and these do not agree with the parameters in having tangents or recorded positions,
  /// SampleOverflow when more points would be needed than allowed, InfiniteExtent for infinite shapes. The result is
  /// unchanged when this throws.
  virtual void sample(const qcSampleParams& params, qcSampleResult& result) const = 0;

  /// The other shape is of the same type and equal in all stored fields, exactly.
  virtual bool equal_(const qcShape& that) const = 0;
  /// The shape consists of more than one contour.
  virtual bool isMultipleContours_() const;

  /// The point at a position, and the direction of the tangent there unless `tangent` is null. A position exactly on a
  /// joint belongs to the later piece, except at the very end of an open shape. `info` must be the information of this
  /// shape. Throws qcShapesError::BadIndex for a piece that the shape does not have, NoTangent where there is no
  /// tangent; what is written to is then unchanged. By default the decomposed shape is asked.
  virtual void perimPointAndTangent_(const qcShapeInfo& info, const qcPerimPos& position, qcVector<2>& point,
                                     qcRadian* tangent) const;

  /// The same as that.clone().
  virtual qcPtrHandle<qcShape> cloneThat_(const qcShape& that) const;

  /// Appends the lengths of the pieces that positions on this shape refer to. By default the shape is one piece; shapes
  /// that are made of primitives and count as decomposed append those of each primitive, trees those of each element.
  virtual void pieceLengths_(std::vector<double>& lengths) const;

  /// Appends the shapes that this one holds by handles. By default it holds none. No shape may be among those that it
  /// holds, directly or through others.
  virtual void heldShapes_(std::vector<const qcShape*>& held) const;

  /// The part of the shape inside a clipping polygon; the polygon itself is inside. What is inside a polygon that
  /// crosses itself is what it winds around (see qcPolyline::within), in whichever direction: polygons of both
  /// directions clip alike, and with `rightHanded` a left-handed one is reversed before clip_ sees it.
  ///
  /// - A shape that lies inside wholly, touching the polygon or not, is given as a copy; one of which nothing lies
  ///   inside, as an empty polyline. What only touches the polygon from outside, in points or along an edge, leaves
  ///   nothing of a region; of a contour it leaves what runs along an edge, but no single points.
  /// - What is left of a line or a segment is one qcLineSeg, or several in a qcGeneralShapeTree. Open contours give a
  ///   qcLineSeg, qcPolyline, qcEllipseArc2 or an open qcContourTree, or several of these in a qcGeneralShapeTree, in
  ///   the order of the contour.
  /// - A region gives a region of the same handedness: a closed qcPolyline, or where arcs bound it a closed
  ///   qcContourTree of qcLineSeg and qcEllipseArc2, or an ellipse; a qcRegionTree if it has holes or comes from one;
  ///   or several of these in a qcGeneralShapeTree. One that crosses itself leaves one contour, with bridges.
  ///
  /// Which edges cross is decided exactly, and for arcs in such a way that what is inside and what is outside always
  /// make up the whole; only the crossing points are rounded. Takes time in proportion to n log n for n edges of both,
  /// and to the number of pairs of edges whose boxes overlap.
  ///
  /// Throws qcShapesError::NotRegion when the polyline is not closed or empty, BadGeom when a coordinate of one of both
  /// is not finite, NotImplemented for primitives other than segments, polylines and arcs of ellipses.
  qcPtrHandle<qcShape> clip(const qcPolyline& polygon, qcClipInfo& info) const;
  qcPtrHandle<qcShape> clip(const qcPolyline& polygon, bool rightHanded) const;
  qcPtrHandle<qcShape> clip(const qcPolyline& polygon, ClipResult& result, bool rightHanded) const;

  qcVector<2> perimPoint(const qcShapeInfo& info, const qcPerimPos& position) const;
  void perimPointAndTangent(const qcShapeInfo& info, const qcPerimPos& position, qcVector<2>& point,
                            qcRadian& tangent) const;

 protected:
  qcShape() = default;
  qcShape(const qcShape&) = default;
  qcShape& operator=(const qcShape&) = default;

  /// What equal_ of a class D comes to: exactly the same type, and equal by operator==.
  template <class D>
  static bool equalAs(const D& shape, const qcShape& that) {
    return typeid(shape) == typeid(that) && shape == static_cast<const D&>(that);
  }

  void dispatchSerialize(qcArchive& archive) override;
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  qcPtrHandle<qcShape> decomposed() const;
};
