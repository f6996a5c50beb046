#include "std/shapes/clipshape.h"

#include "vnxstd/shapes/circle.h"
#include "vnxstd/shapes/ellipseshape.h"
#include "vnxstd/shapes/line.h"
#include "vnxstd/shapes/lineseg.h"
#include "vnxstd/shapes/parallelogram.h"
#include "vnxstd/shapes/shapetree.h"

namespace qc_shapes {

qcPtrHandle<qcShape> clipShape(const qcShape&, const qcPolyline&, qcClipInfo&) {
  throw qcShapesError::NotImplemented();
}

}  // namespace qc_shapes

using qc_shapes::clipShape;

qcPtrHandle<qcShape> qcCircle::clip_(const qcPolyline& polygon, qcClipInfo& info) const {
  return clipShape(*this, polygon, info);
}
qcPtrHandle<qcShape> qcLineSeg::clip_(const qcPolyline& polygon, qcClipInfo& info) const {
  return clipShape(*this, polygon, info);
}
qcPtrHandle<qcShape> qcPolyline::clip_(const qcPolyline& polygon, qcClipInfo& info) const {
  return clipShape(*this, polygon, info);
}
qcPtrHandle<qcShape> qc_EllipseShape::clip_(const qcPolyline& polygon, qcClipInfo& info) const {
  return clipShape(*this, polygon, info);
}
qcPtrHandle<qcShape> qc_InfiniteLine::clip_(const qcPolyline& polygon, qcClipInfo& info) const {
  return clipShape(*this, polygon, info);
}
qcPtrHandle<qcShape> qc_ParallelogramShape::clip_(const qcPolyline& polygon, qcClipInfo& info) const {
  return clipShape(*this, polygon, info);
}
qcPtrHandle<qcShape> qcShapeTree::clip_(const qcPolyline& polygon, qcClipInfo& info) const {
  return clipShape(*this, polygon, info);
}
