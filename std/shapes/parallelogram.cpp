#include "vnxstd/shapes/parallelogram.h"

#include <algorithm>

#include "std/shapes/exact.h"
#include "std/shapes/samplewriter.h"
#include "std/shapes/segment.h"
#include "vnxstd/shapes/polyline.h"
#include "vnxstd/shapes/rect.h"
#include "vnxstd/shapes/shapeinfo.h"

double qc_ParallelogramShape::distToPoint(const qcVector<2>& p) const {
  return qc_shapes::segmentLength(p, nearestPoint(p));
}

bool qc_ParallelogramShape::hasTangent() const {
  const std::array<qcVector<2>, 4> c = corners_();
  return c[1] != c[0] || c[2] != c[0] || c[3] != c[0];
}

qcRect qc_ParallelogramShape::boundingBox() const {
  const std::array<qcVector<2>, 4> c = corners_();
  const auto [left, right] = std::minmax({c[0].x(), c[1].x(), c[2].x(), c[3].x()});
  const auto [low, high] = std::minmax({c[0].y(), c[1].y(), c[2].y(), c[3].y()});
  return qcRect::fromCorners({left, low}, {right, high});
}

qcVector<2> qc_ParallelogramShape::nearestPoint(const qcVector<2>& p) const {
  return qc_shapes::nearestOnChain(corners_().data(), 4, 4, p).point;
}

double qc_ParallelogramShape::perimeter() const {
  const std::array<qcVector<2>, 4> c = corners_();
  double sum = 0;
  for (std::size_t i = 0; i < 4; ++i) sum += qc_shapes::segmentLength(c[i], c[(i + 1) % 4]);
  return sum;
}

bool qc_ParallelogramShape::within(const qcVector<2>& p) const {
  // The box settles most, and what lies on the line of a flat one.
  if (!boundingBox().within(p)) return false;
  const std::array<qcVector<2>, 4> corners = corners_();
  bool left = false, right = false;
  for (std::size_t i = 0; i < 4; ++i) {
    const int side = qc_shapes::orientation(corners[i], corners[(i + 1) % 4], p);
    left = left || side > 0;
    right = right || side < 0;
  }
  return !(left && right);
}

qcPtrHandle<qcShape> qc_ParallelogramShape::decompose() const { return new qcPolyline(outline_()); }

void qc_ParallelogramShape::sample(const qcSampleParams& params, qcSampleResult& result) const {
  qc_shapes::SampleWriter writer(params, result);
  const qcPolyline sides = outline_();
  qcSampleParams alone = params;
  alone.enclosingInfo_(nullptr);
  const std::int32_t piece = writer.takePiece();
  sides.sample(alone, result);
  if (params.recordPositions_()) {
    const qcShapeInfo info(sides);
    const double total = perimeter();  // which rounding may keep below the sum of the sides
    std::vector<qcPerimPos>& recorded = result.perimPositions_();
    for (std::size_t i = writer.firstPosition(); i < recorded.size(); ++i) {
      recorded[i] = {piece, std::min(info.distanceAlong(recorded[i]), total)};
    }
  }
  writer.commit();
}

qcPolyline qc_ParallelogramShape::outline_() const {
  const std::array<qcVector<2>, 4> corners = corners_();
  return {std::vector<qcVector<2>>(corners.begin(), corners.end()), true};
}
