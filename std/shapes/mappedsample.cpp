// Mapped curves by points.
#include <algorithm>

#include "std/shapes/mappedcurve.h"
#include "vnxstd/shapes/contourtree.h"
#include "vnxstd/shapes/polyline.h"

namespace qc_shapes {

std::vector<qcPtrHandle<qcShape>> MappedCurve::outlines(double tolerance) const {
  std::vector<qcPtrHandle<qcShape>> all;
  Effort most = effort(kLooked);
  for (const Chain& chain : chains_) all.push_back(outline(chain, tolerance, most));
  return all;
}

// A polyline, or several where the contour jumps.
qcPtrHandle<qcShape> MappedCurve::outline(const Chain& chain, double tolerance, Effort& effort) const {
  std::vector<std::vector<qcVector<2>>> runs(1);
  const auto add = [&](const qcVector<2>& p) {
    if (runs.back().empty() || runs.back().back() != p) runs.back().push_back(p);
  };
  const std::size_t first = pieces_[chain.first].firstSpan, end = endOfSpans(chain.last);
  for (std::size_t i = first; i < end; ++i) {
    refine(
        spans_[i], effort, [tolerance](const Span& span) { return span.deviation <= tolerance; },
        [&](const Span& span) { add(span.from.image); });
    if (i + 1 < end && !jumpsBehind(i)) continue;
    add(spans_[i].to.image);
    if (i + 1 < end) runs.emplace_back();
  }
  if (chain.isTurned) {
    std::reverse(runs.begin(), runs.end());
    for (std::vector<qcVector<2>>& run : runs) std::reverse(run.begin(), run.end());
  }
  const bool jumpsAtEnd = chain.closed && jumps(spans_[end - 1], spans_[first]);
  if (runs.size() == 1 && !jumpsAtEnd) {
    if (chain.closed && runs[0].size() > 1) runs[0].pop_back();
    return new qcPolyline(std::move(runs[0]), chain.closed);
  }
  std::vector<Held> parts;
  for (std::vector<qcVector<2>>& run : runs) parts.emplace_back(new qcPolyline(std::move(run), false));
  return new qcContourTree(parts, chain.closed, false);
}

std::vector<double> MappedCurve::sampleDistances(const qcShape::qcSampleParams& params, std::size_t piece, bool isRound,
                                                 Effort& effort) const {
  const double whole = pieces_[piece].length;
  const long limit = params.maxPoints() - (isRound ? 0 : 1), least = isRound ? 2 : 1;
  if (limit < least) throw qcShapesError::SampleOverflow();
  const double length = params.spacing() > 0 ? measures().lengths[piece] : 0;
  const long steps = params.spacing() > 0 ? std::max(least, stepsFor(length, params.spacing(), limit)) : least;
  std::vector<double> distances;
  End from = endAt(pieces_[piece], 0);
  for (long i = 1; i <= steps; ++i) {
    const double part = static_cast<double>(i) / static_cast<double>(steps);
    const double until = i == steps             ? whole
                         : params.spacing() > 0 ? distanceOnPiece(piece, part * length)
                                                : part * whole;
    const End to = endAt(pieces_[piece], until);
    if (params.tolerance() > 0) {
      refine(
          spanBetween(piece, from, to), effort, [&](const Span& span) { return span.deviation <= params.tolerance(); },
          [&](const Span& span) {
            distances.push_back(span.from.distance);
            if (distances.size() > static_cast<std::size_t>(limit)) throw qcShapesError::SampleOverflow();
          });
    } else {
      distances.push_back(from.distance);
    }
    from = to;
  }
  if (!isRound) distances.push_back(whole);
  return distances;
}

// The number of the first piece.
std::int32_t MappedCurve::takeNumbers(SampleWriter& writer) const {
  if (numOwners_ > 1 && !writer.params().enclosingInfo_()) writer.numberOwnPieces();
  const std::int32_t number = writer.takePiece();
  for (long i = 1; i < numOwners_; ++i) writer.takePiece();
  return number;
}

void MappedCurve::add(SampleWriter& writer, const Place& place, std::int32_t firstNumber) const {
  qcRadian tangent;
  const qcVector<2> point = image(place, writer.params().computeTangents() ? &tangent : nullptr);
  qcPerimPos position;
  if (writer.params().recordPositions_()) position = positionOf(place);
  position.index(position.index() + firstNumber);
  writer.add(point, tangent, position);
}

void MappedCurve::sample(SampleWriter& writer) const {
  const qcShape::qcSampleParams& params = writer.params();
  qcShape::qcSampleResult& result = writer.result();
  const std::int32_t number = takeNumbers(writer);
  Effort most = effort(kSampled);
  // Points among other shapes are left out where tangents are asked for.
  const bool hasLength =
      std::any_of(pieces_.begin(), pieces_.end(), [](const Piece& piece) { return piece.length > 0; });
  for (const Chain& chain : chains_) {
    const int firstChain = static_cast<int>(result.numChains());
    const std::size_t firstPoint = result.positions().size();
    for (std::size_t i = chain.first; i < chain.last; ++i) {
      const bool isPoint = !(pieces_[i].length > 0);
      if (isPoint && params.computeTangents() && hasLength) continue;
      if (isPoint && params.computeTangents()) throw qcShapesError::NoTangent();
      const std::vector<double> distances =
          isPoint ? std::vector<double>{0} : sampleDistances(params, i, chain.isRound, most);
      writer.openChain(chain.isRound, static_cast<long>(distances.size()));
      for (const double distance : distances) add(writer, {i, distance}, number);
    }
    if (!chain.isRound) qfMergeSubchains(params, firstChain, chain.closed, result);
    if (chain.isTurned && result.positions().size() > firstPoint) turnChain(result, firstPoint);
  }
}

void MappedCurve::sampleUniformly(SampleWriter& writer, bool closed) const {
  const std::int32_t number = takeNumbers(writer);
  const long n = writer.params().maxPoints();
  writer.openChain(closed, n);
  for (long i = 0; i < n; ++i) {
    add(writer, placeAt((static_cast<double>(i) + 0.5) * (length() / static_cast<double>(n))), number);
  }
}

}  // namespace qc_shapes
