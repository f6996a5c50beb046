// Requests for points on a shape, and the points.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vnxstd/export.h"
#include "vnxstd/shapes/shape.h"

class qcPolyline;

/// What qcShape::sample is asked for. A chain of samples consists of equal arcs along each primitive piece of the
/// shape (for ellipses see qc_EllipseShape); both requirements, on deviation and on spacing, hold where both are given.
class VNXSTD_EXPORT qcShape::qcSampleParams {
 public:
  /// Throws qcShapesError::BadParams unless tolerance and spacing are at least 0 and maxPoints is at least 2.
  explicit qcSampleParams(double tolerance = 0.0, double spacing = 0.0, long maxPoints = 2,
                          bool computeTangents = false, bool duplicateCorners = true);

  // The setters throw qcShapesError::BadParams for a value out of range and keep the previous value then.

  /// How far the chain may deviate from the true curve; 0 asks for nothing. At least 0.
  double tolerance() const { return tolerance_; }
  void tolerance(double tolerance);

  /// How far apart along the curve samples may be; 0 asks for nothing. At least 0.
  double spacing() const { return spacing_; }
  void spacing(double spacing);

  /// The largest number of points that one primitive piece may be given; in uniform mode their exact number. At least
  /// 2, in uniform mode at least 1; at most 2147483647.
  long maxPoints() const { return maxPoints_; }
  void maxPoints(long maxPoints);

  /// Whether the angle of the tangent is computed for every sample.
  bool computeTangents() const { return computeTangents_; }
  void computeTangents(bool computeTangents) { computeTangents_ = computeTangents; }

  /// Whether a corner between two pieces is put out twice, as the end of the one and the start of the other. Otherwise
  /// it is put out once, with the bisector of both tangents.
  bool duplicateCorners() const { return duplicateCorners_; }
  void duplicateCorners(bool duplicateCorners) { duplicateCorners_ = duplicateCorners; }

  /// Whether exactly maxPoints samples are put in the middles of as many equal arcs, whatever tolerance and spacing
  /// say. Shapes without such a mode throw qcShapesError::BadParams.
  bool uniformMode() const { return uniformMode_; }
  void uniformMode(bool uniformMode) { uniformMode_ = uniformMode; }

  // Not part of the value: neither compared nor archived, and cleared by loading.

  /// Whether the perimeter position of every sample is recorded.
  bool recordPositions_() const { return record_; }
  void recordPositions_(bool record) { record_ = record; }

  /// The information of the shape of which the one to be sampled is a piece, or null. It numbers the recorded
  /// positions. It is not owned and must outlive the sampling.
  const qcShapeInfo* enclosingInfo_() const { return enclosing_; }
  void enclosingInfo_(const qcShapeInfo* info) { enclosing_ = info; }

  friend bool operator==(const qcSampleParams& a, const qcSampleParams& b) {
    return a.tolerance_ == b.tolerance_ && a.spacing_ == b.spacing_ && a.maxPoints_ == b.maxPoints_ &&
           a.computeTangents_ == b.computeTangents_ && a.duplicateCorners_ == b.duplicateCorners_ &&
           a.uniformMode_ == b.uniformMode_;
  }

  /// Stores or loads a version byte (0) and the six fields above. Throws qcArchive::BadContent when a field is out of
  /// range; a load that throws leaves the parameters as they were.
  friend VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcSampleParams& params);

 private:
  double tolerance_;
  double spacing_;
  std::int32_t maxPoints_;
  bool computeTangents_;
  bool duplicateCorners_;
  bool uniformMode_ = false;
  bool record_ = false;
  const qcShapeInfo* enclosing_ = nullptr;
};

/// The samples of one or several shapes: chains of points, appended one after another.
class VNXSTD_EXPORT qcShape::qcSampleResult {
 public:
  /// The points of all chains.
  const std::vector<qcVector<2>>& positions() const { return positions_; }
  std::vector<qcVector<2>>& positions() { return positions_; }
  /// The direction of the tangent at each point, in [-pi, pi); empty when tangents were not asked for.
  const std::vector<qcRadian>& tangents() const { return tangents_; }
  std::vector<qcRadian>& tangents() { return tangents_; }
  /// The index of the first point of each chain; a chain ends where the next one starts.
  const std::vector<std::int32_t>& breaks() const { return breaks_; }
  std::vector<std::int32_t>& breaks() { return breaks_; }
  /// For each chain whether its last point joins its first one.
  const std::vector<bool>& closedFlags() const { return closedFlags_; }
  std::vector<bool>& closedFlags() { return closedFlags_; }

  long numChains() const { return static_cast<long>(breaks_.size()); }

  // Room for n elements altogether; a number below 0 does nothing.
  void positionsReserve(long n);
  void positionsTangentsReserve(long n);
  void chainsReserve(long n);

  /// Empties everything; room that was made is kept.
  void reset();

  /// Replaces `polylines` by one polyline per chain. Throws qcShapesError::BadParams when the chains are not valid.
  void getPolylines(std::vector<qcPolyline>& polylines) const;

  /// The chains from one on cover all points behind its first, none of them is empty, each has a flag, and there are as
  /// many tangents as points or none.
  bool isValid_(std::size_t firstChain = 0) const;

  // Not part of the value: neither compared nor archived, and emptied by loading.

  /// The position of each point on the boundary, when recording was asked for. The index is the number of the piece of
  /// the enclosing shape, the distance the arc length along that piece.
  const std::vector<qcPerimPos>& perimPositions_() const { return recorded_; }
  std::vector<qcPerimPos>& perimPositions_() { return recorded_; }
  /// The number of the next piece of an enclosing shape; each piece that is sampled advances it.
  std::int32_t pieceNumber_() const { return nextPiece_; }
  void pieceNumber_(std::int32_t number) { nextPiece_ = number; }

  friend bool operator==(const qcSampleResult& a, const qcSampleResult& b) {
    return a.positions_ == b.positions_ && a.tangents_ == b.tangents_ && a.breaks_ == b.breaks_ &&
           a.closedFlags_ == b.closedFlags_;
  }

  /// Stores or loads a version byte (0) and the four vectors. Throws qcArchive::BadContent when the chains are not
  /// valid, which no reader would take; a load that throws leaves the result as it was.
  friend VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcSampleResult& result);

 private:
  std::vector<qcVector<2>> positions_;
  std::vector<qcRadian> tangents_;
  std::vector<std::int32_t> breaks_;
  std::vector<bool> closedFlags_;
  std::vector<qcPerimPos> recorded_;
  std::int32_t nextPiece_ = 0;
};

/// Appends the maxPoints points of a shape that lie in the middles of as many equal arcs of its boundary, as one open
/// chain. Appends nothing, and opens no chain, when tangents are asked for and the shape has none. For shapes that have
/// a uniform mode; otherwise like qcShape::sample. With an enclosing shape the length is that of the piece which is
/// next by number, and the number advances.
VNXSTD_EXPORT void qfUniformSamplePrimitive(const qcShape& shape, const qcShape::qcSampleParams& params,
                                            qcShape::qcSampleResult& result);

/// Joins the chains from number `firstChain` on into one, which is closed or not. Where duplicateCorners is false each
/// joint keeps one point, the first of the later chain, with the bisector of both tangents; this includes the joint
/// between the end and the start of a closed chain. Throws qcShapesError::BadIndex when firstChain is below 0 or above
/// the number of chains, and BadParams when those chains are not valid or do not agree with the parameters.
VNXSTD_EXPORT void qfMergeSubchains(const qcShape::qcSampleParams& params, int firstChain, bool closed,
                                    qcShape::qcSampleResult& result);
