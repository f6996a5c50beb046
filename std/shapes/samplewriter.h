// What the samplers of all shapes share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vnxstd/shapes/sampling.h"

namespace qc_shapes {

/// Throws qcShapesError::BadParams when the result holds chains already and they do not agree with the parameters.
void checkConsistent(const qcShape::qcSampleParams& params, const qcShape::qcSampleResult& result);

/// How many equal steps of at most `step` a total takes, at least 1. Throws qcShapesError::SampleOverflow for more than
/// `limit`.
long stepsFor(double total, double step, long limit);

/// Half the angle that a chord of a circle may span when the arc is to deviate from it by no more than the tolerance,
/// at most a right angle: a chord that spans the angle 2a has the sagitta r - r * cos(a).
double chordHalfAngle(double tolerance, double radius);

/// Appends samples to a result, and takes back what it appended unless commit is reached.
class SampleWriter {
 public:
  /// Checks that parameters and result agree.
  SampleWriter(const qcShape::qcSampleParams& params, qcShape::qcSampleResult& result);
  ~SampleWriter();
  SampleWriter(const SampleWriter&) = delete;
  SampleWriter& operator=(const SampleWriter&) = delete;

  const qcShape::qcSampleParams& params() const { return params_; }
  qcShape::qcSampleResult& result() const { return result_; }
  /// How many chains the result held before.
  int firstChain() const { return static_cast<int>(breaks_); }
  /// How many points the result held before.
  std::size_t firstPosition() const { return positions_; }

  /// Numbers the pieces from 0 on, as a shape of pieces does that is not itself a piece of another.
  void numberOwnPieces();
  /// The number of the piece to be sampled now, or of the first of several.
  std::int32_t takePiece(std::int32_t count = 1);

  /// Starts a chain that will have `count` points, or more after makeRoom. These throw qcShapesError::SampleOverflow
  /// when the result cannot number so many.
  void openChain(bool closed, long count);
  void makeRoom(long count);
  /// Parts that are not asked for are ignored.
  void add(const qcVector<2>& point, const qcRadian& tangent, const qcPerimPos& position) {
    result_.positions().push_back(point);
    if (params_.computeTangents()) result_.tangents().push_back(tangent);
    if (params_.recordPositions_()) result_.perimPositions_().push_back(position);
  }

  void commit();

 private:
  const qcShape::qcSampleParams& params_;
  qcShape::qcSampleResult& result_;
  std::size_t positions_, tangents_, breaks_, flags_, recorded_;
  std::int32_t pieceNumber_;
  bool ownPieces_ = false;
  bool committed_ = false;
};

/// Turns the points of a closed chain, from number `first` to the last of all, the other way round, and keeps its first
/// point.
void turnChain(qcShape::qcSampleResult& result, std::size_t first);

/// Samples a segment as a chain of its own: the one piece of a qcLineSeg, or one of many of a polyline.
void sampleSegment(SampleWriter& writer, const qcVector<2>& p1, const qcVector<2>& p2);

/// Samples a chain of segments, of which the first has a length, each without its end but the last of an open chain.
/// Neither tangents nor positions may be asked for.
void sampleJoined(SampleWriter& writer, const std::vector<qcVector<2>>& vertices, bool closed);

}  // namespace qc_shapes
