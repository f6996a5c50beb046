// Polylines: straight pieces between vertices, open or closed.
#pragma once

#include <utility>
#include <vector>

#include "vnxstd/export.h"
#include "vnxstd/shapes/shape.h"

class qc2Rigid;

/// Straight pieces between an ordered list of vertices. A closed polyline has one more piece, from the last vertex back
/// to the first (which is not repeated), and is a polygon: a region. Consecutive vertices may coincide. An open
/// polyline of one vertex has one piece, of length 0.
///
/// Positions on the perimeter have the number of the piece as index. Queries are linear in the number of vertices
/// unless said otherwise.
class VNXSTD_EXPORT qcPolyline : public qcShape {
 public:
  explicit qcPolyline(bool closed = false) : closed_(closed) {}
  qcPolyline(const std::vector<qcVector<2>>& vertices, bool closed) : vertices_(vertices), closed_(closed) {}
  qcPolyline(std::vector<qcVector<2>>&& vertices, bool closed) : vertices_(std::move(vertices)), closed_(closed) {}
  static qcPersistent* make();

  bool isClosed() const { return closed_; }
  void isClosed(bool closed);

  long numVertices() const { return static_cast<long>(vertices_.size()); }
  const std::vector<qcVector<2>>& vertices() const { return vertices_; }
  void vertices(const std::vector<qcVector<2>>& vertices);
  /// These throw qcShapesError::BadIndex for an index below 0 or not below the number of vertices. Insertion puts the
  /// new vertices before the given index, which may be the number of vertices.
  const qcVector<2>& vertex(long index) const;
  void vertex(long index, const qcVector<2>& p);
  void addVertex(const qcVector<2>& p);
  void addVertices(const std::vector<qcVector<2>>& points);
  void insertVertex(long index, const qcVector<2>& p);
  void insertVertices(long index, const std::vector<qcVector<2>>& points);
  void removeVertex(long index);

  /// Room for n vertices altogether; a number below 0 does nothing. No value changes, but the vertices may move: not to
  /// be called while another thread reads them. Throws std::bad_alloc or std::length_error.
  void reserve(long n) const;
  long capacity() const { return static_cast<long>(vertices_.capacity()); }

  // Moments of the enclosed area, signed like the area: positive for a right-handed polygon, and a part that is wound
  // around twice counts twice. They throw qcShapesError::NotRegion when not closed, and are 0 with less than 3
  // vertices. Closed formulas, summed in coordinates from the first vertex: for a polygon of size 1 at a distance of
  // 1e6 they are within 1e-12, relatively, of those of the vertices as stored (C. Steger, "On the calculation of
  // arbitrary moments of polygons", 1996).

  /// The area: half the shoelace sum.
  double areaMoment0() const;
  /// The area m0 and the integrals of x and y over it.
  void areaMoment1(double& m0, double& mx, double& my) const;
  /// Also those of x * x, x * y and y * y.
  void areaMoment2(double& m0, double& mx, double& my, double& mxx, double& mxy, double& myy) const;
  /// The magnitude of areaMoment0.
  double area() const;
  /// The centre of gravity of the area. Throws qcShapesError::DegenerateShape when the area is 0.
  qcVector<2> centerArea() const;
  /// The second moments of the area about its principal axes: frame.trans() is the centre of gravity, the x axis of the
  /// frame the direction in which the area extends furthest, at an angle in (-90, 90] degrees. moments.x() is the
  /// integral of x * x in that frame and moments.y(), which is not larger, that of y * y, as of a right-handed polygon;
  /// they are negative only where a polygon crosses itself and winds both ways. Where both are equal any pair of axes
  /// will do. Throws qcShapesError::DegenerateShape when the area is 0.
  void principalMomentsArea(qcVector<2>& moments, qc2Rigid& frame) const;

  // The same of the pieces themselves, as of a thin wire: of the arc length, whether closed or not.

  double arcLengthMoment0() const { return perimeter(); }
  void arcLengthMoment1(double& m0, double& mx, double& my) const;
  void arcLengthMoment2(double& m0, double& mx, double& my, double& mxx, double& mxy, double& myy) const;
  /// The first vertex when the length is 0. These throw qcShapesError::EmptyShape.
  qcVector<2> centerArcLength() const;
  void principalMomentsArcLength(qcVector<2>& moments, qc2Rigid& frame) const;

  // These throw qcShapesError::EmptyShape.

  qcVector<2> meanVertex() const;
  /// The centre of the bounding box.
  qcVector<2> center() const;
  /// The index of the vertex nearest to `p`, and of the one furthest in a direction; the first of several.
  long closestVertexIndex(const qcVector<2>& p) const;
  long extremalVertexIndex(const qcRadian& direction) const;
  /// A pair of points, one on this polyline and one on the other, with the least distance; where they cross, the same
  /// point twice. Among several pairs the first along this polyline, then along the other. What a closed polyline
  /// encloses does not count. Takes time in proportion to the product of the numbers of pieces, little for pairs of
  /// pieces whose boxes are further apart than the best pair so far.
  void nearestPoints(const qcPolyline& other, qcVector<2>& onThis, qcVector<2>& onOther) const;

  /// The convex hull: a closed, right-handed polyline from the vertex of smallest x (of these the one of smallest y)
  /// on, without repeated vertices and without any that lie on a straight line with their neighbours, exactly. That of
  /// a straight line has 2 vertices, that of a point 1, that of an empty polyline none; vertices with a coordinate that
  /// is NaN are left out. Takes time in proportion to n log n (A. M. Andrew, "Another efficient algorithm for convex
  /// hulls in two dimensions", 1979).
  qcPolyline convexHull() const;

  /// The sum of the signed angles under which the pieces are seen from `p`. For a point on the polyline it is the limit
  /// from the left side of the first piece or corner on which the point lies. That around a closed polyline is a number
  /// of full turns, and the number is exact.
  qcRadian generalWindingAngle(const qcVector<2>& p) const;
  qcPolyline map(const qcXform<2>& xform) const;

  qcPtrHandle<qcShape> clone() const override { return new qcPolyline(*this); }
  bool isOpenContour() const override { return !closed_ && !vertices_.empty(); }
  bool isRegion() const override { return closed_ && !vertices_.empty(); }
  bool isFinite() const override { return true; }
  bool isEmpty() const override { return vertices_.empty(); }
  bool hasTangent() const override;
  bool isDecomposed() const override { return true; }
  bool isReversible() const override { return true; }
  qcRect boundingBox() const override;
  qcVector<2> nearestPoint(const qcVector<2>& p) const override;
  double perimeter() const override;
  qcPerimPos nearestPerimPos(const qcShapeInfo& info, const qcVector<2>& p) const override;
  qcVector<2> startPoint() const override;
  qcVector<2> endPoint() const override;
  qcRadian startAngle() const override;
  qcRadian endAngle() const override;
  /// The sum of the turns at the vertices, each in [-pi, pi).
  qcRadian tangentRotation() const override;
  qcRadian windingAngle(const qcVector<2>& p) const override;
  /// The signed area is not negative.
  bool isRightHanded() const override;
  /// The general winding angle exceeds pi in magnitude: a polygon that winds twice still counts as inside, and points
  /// on the boundary are inside where the region lies to its left. Exact: crossings of a ray are counted, by signs that
  /// rounding does not touch (K. Hormann and A. Agathos, "The point in polygon problem for arbitrary polygons", 2001).
  bool within(const qcVector<2>& p) const override;
  qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const override { return new qcPolyline(map(xform)); }
  /// A closed polyline keeps its first vertex.
  qcPtrHandle<qcShape> reverse() const override;
  qcPtrHandle<qcShape> decompose() const override { return clone(); }
  qcPtrHandle<qcShape> clip_(const qcPolyline& polygon, qcClipInfo& info) const override;
  /// An open polyline. A length of 0 gives a single vertex.
  qcPtrHandle<qcShape> subShape(const qcShapeInfo& info, const std::pair<qcPerimPos, double>& piece) const override;
  /// Samples each piece like a segment and joins the chains by qfMergeSubchains into one. Pieces of length 0 give one
  /// point, but are left out when tangents are asked for. An empty polyline appends nothing. Throws
  /// qcShapesError::BadParams in uniform mode.
  void sample(const qcSampleParams& params, qcSampleResult& result) const override;
  bool equal_(const qcShape& that) const override;
  /// Where pieces of length 0 meet, the tangent is that of the next piece with a length, or else of the one before.
  /// Constant time for a position on a piece that has a length.
  void perimPointAndTangent_(const qcShapeInfo& info, const qcPerimPos& position, qcVector<2>& point,
                             qcRadian* tangent) const override;
  void pieceLengths_(std::vector<double>& lengths) const override;
  friend bool operator==(const qcPolyline& a, const qcPolyline& b) {
    return a.vertices_ == b.vertices_ && a.closed_ == b.closed_;
  }

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &qcPolyline::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  long numPieces() const;
  const qcVector<2>& pieceStart(long piece) const;
  const qcVector<2>& pieceEnd(long piece) const;
  void checkIndex(long index, long limit) const;
  void checkNotEmpty() const;
  void checkOpenContour() const;
  qcPerimPos normalized(const qcShapeInfo& info, const qcPerimPos& position) const;
  qcVector<2> pointOnPiece(const qcPerimPos& position) const;
  qcRadian tangentNear(long piece) const;

  mutable std::vector<qcVector<2>> vertices_;  // mutable for reserve alone
  bool closed_;
};
