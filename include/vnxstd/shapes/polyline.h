// Polylines: straight pieces between vertices, open or closed.
#pragma once

#include <utility>
#include <vector>

#include "vnxstd/export.h"
#include "vnxstd/shapes/shape.h"

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

  /// Half the shoelace sum: the signed area, positive for a right-handed polygon; 0 with less than 3 vertices. Throws
  /// qcShapesError::NotRegion when not closed.
  double areaMoment0() const;
  /// The magnitude of areaMoment0.
  double area() const;
  /// The index of the vertex nearest to `p`. Throws qcShapesError::EmptyShape.
  long closestVertexIndex(const qcVector<2>& p) const;
  /// The sum of the signed angles under which the pieces are seen from `p`. For a point on the polyline it is the limit
  /// from the left side of the first piece or corner on which the point lies.
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
  /// on the boundary are inside where the region lies to its left.
  bool within(const qcVector<2>& p) const override;
  qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const override { return new qcPolyline(map(xform)); }
  /// A closed polyline keeps its first vertex.
  qcPtrHandle<qcShape> reverse() const override;
  qcPtrHandle<qcShape> decompose() const override { return clone(); }
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

  std::vector<qcVector<2>> vertices_;
  bool closed_;
};
