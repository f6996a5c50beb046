#include "std/shapes/rasterchains.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "vnxstd/shapes/circle.h"
#include "vnxstd/shapes/contourtree.h"
#include "vnxstd/shapes/ellipsearc.h"
#include "vnxstd/shapes/errors.h"
#include "vnxstd/shapes/lineseg.h"
#include "vnxstd/shapes/mappedshape.h"
#include "vnxstd/shapes/parallelogram.h"
#include "vnxstd/shapes/polyline.h"
#include "vnxstd/shapes/rect.h"
#include "vnxstd/shapes/shapeinfo.h"

namespace qc_shapes {

namespace {

// Null for other shapes.
const qcMappedShape* linearlyMapped(const qcShape& shape) {
  const auto* mapped = dynamic_cast<const qcMappedShape*>(&shape);
  return mapped && mapped->overallMapXform()->isLinear() ? mapped : nullptr;
}

}  // namespace

RasterChains::RasterChains(const qcPelRect& window, double margin, const qcShape::qcSampleParams& params)
    : params_(params), near_{{HUGE_VAL, HUGE_VAL}, {-HUGE_VAL, -HUGE_VAL}} {
  if (!window.isNull()) {
    near_.low = {static_cast<double>(window.x0()) - margin, static_cast<double>(window.y0()) - margin};
    near_.high = {static_cast<double>(window.x1()) + margin, static_cast<double>(window.y1()) + margin};
  }
  constexpr double kManyWindows = 16;
  const qcVector<2> size = near_.high - near_.low;
  large_ = kManyWindows * std::max(size.x(), size.y());
  params_.computeTangents(false);
  params_.duplicateCorners(true);  // where a contour jumps, both ends are corners
}

bool RasterChains::misses(const qcShape& shape) const {
  if (shape.isEmpty()) return true;
  const qcRect box = shape.boundingBox();
  const qcVector<2> corner = box.origin();
  if (!std::isfinite(corner.x()) || !std::isfinite(corner.y())) throw qcShapesError::BadGeom();
  return !ClipBox::of(corner, box.lr()).overlaps(near_);
}

std::vector<RasterChain> RasterChains::of(const qcShape& shape) {
  chains_.clear();
  std::vector<qcMappedShape::Held> images;
  std::vector<const qcShape*> waiting{&shape};
  while (!waiting.empty()) {
    const qcShape& next = *waiting.back();
    waiting.pop_back();
    const auto* tree = dynamic_cast<const qcShapeTree*>(&next);
    if (tree && !dynamic_cast<const qcContourTree*>(tree)) {
      const std::vector<const qcShape*> elements = tree->elements_();
      waiting.insert(waiting.end(), elements.begin(), elements.end());
    } else if (const auto* mapped = linearlyMapped(next)) {
      images.push_back(mapped->explicitShape());
      waiting.push_back(images.back().rep());
    } else if (!misses(next)) {
      chains_.push_back({{}, !next.isOpenContour()});
      add(next, true);
    }
  }
  std::erase_if(chains_, [](const RasterChain& chain) { return chain.points.empty(); });
  for (RasterChain& chain : chains_) {
    std::vector<qcVector<2>>& p = chain.points;
    while (chain.closed && p.size() > 1 && p.front() == p.back()) p.pop_back();
  }
  return std::move(chains_);
}

void RasterChains::add(const qcShape& shape, bool alone) {
  if (const auto* segment = dynamic_cast<const qcLineSeg*>(&shape)) {
    put(segment->p1());
    return put(segment->p2());
  }
  if (const auto* polyline = dynamic_cast<const qcPolyline*>(&shape)) {
    for (const qcVector<2>& p : polyline->vertices()) put(p);
    return;
  }
  if (const auto* contour = dynamic_cast<const qcContourTree*>(&shape)) {
    for (const qcShape* element : contour->elements_()) {
      if (!misses(*element)) {
        add(*element, false);
      } else {
        put(element->startPoint());
        put(element->endPoint());
      }
    }
    return;
  }
  const bool round = dynamic_cast<const qcCircle*>(&shape) || dynamic_cast<const qc_EllipseShape*>(&shape);
  if (round || dynamic_cast<const qc_ParallelogramShape*>(&shape)) {
    if (round && !isLarge(shape)) return addSamples(shape, alone);
    const qcPtrHandle<qcShape> primitive = shape.decompose();
    const auto* arc = dynamic_cast<const qcEllipseArc2*>(primitive.rep());
    return arc ? addArc(*arc) : add(*primitive, alone);
  }
  if (const auto* mapped = linearlyMapped(shape)) return add(*mapped->explicitShape(), alone);
  const auto* bent = dynamic_cast<const qcMappedShape*>(&shape);
  if (bent && isLarge(shape) && !shape.isMultipleContours_()) return addBent(*bent);
  addSamples(shape, alone);
}

bool RasterChains::isLarge(const qcShape& shape) const {
  const qcVector<2> size = shape.boundingBox().size();
  return std::max(size.x(), size.y()) > large_;
}

// Halves the shape before it is mapped until the images of its parts are away or small.
void RasterChains::addBent(const qcMappedShape& mapped) {
  const qcShape& shape = *mapped.underlyingShape();
  const qc2XformBase& xform = *mapped.overallMapXform();
  if (const auto* contour = dynamic_cast<const qcContourTree*>(&shape)) {  // to halve it takes time for each element
    for (const qcShape* element : contour->elements_()) {
      const qcMappedShape image(element->clone(), xform, false);
      if (!misses(image)) {
        add(image, false);
      } else {
        put(image.startPoint());
        put(image.endPoint());
      }
    }
    return;
  }
  const qcShapeInfo info(shape);
  constexpr double kShortest = 1e-15;  // of the whole
  std::vector<std::pair<double, double>> left{{0.0, info.perimeter()}};
  while (!left.empty()) {
    const auto [from, to] = left.back();
    left.pop_back();
    const qcMappedShape part(shape.subShape(info, {info.perimPos(from), to - from}), xform, false);
    if (part.isEmpty()) continue;
    if (misses(part)) {
      put(part.startPoint());  // to which the contour may jump
    } else if (isLarge(part) && to - from > kShortest * info.perimeter()) {
      const double middle = from + (to - from) / 2;
      left.emplace_back(middle, to);
      left.emplace_back(from, middle);
      continue;
    } else {
      addSamples(part, false);
    }
    put(part.endPoint());
  }
}

// Halves the arc until its parts are away, small, or as straight as doubles make them.
void RasterChains::addArc(const qcEllipseArc2& arc) {
  const qcEllipse2& ellipse = arc.ellipse();
  const double larger = std::max(ellipse.radii().x(), ellipse.radii().y());
  const double reach = larger + std::fabs(ellipse.center().x()) + std::fabs(ellipse.center().y());
  std::vector<std::pair<double, double>> left{{arc.phiStart().plain(), arc.phiEnd().plain()}};
  put(arc.startPoint());
  while (!left.empty()) {
    const auto [from, to] = left.back();
    left.pop_back();
    const qcEllipseArc2 part = qcEllipseArc2::between(ellipse, qcRadian(from), qcRadian(to));
    const double span = to - from;
    const bool straight = larger / reach * span * span < std::numeric_limits<double>::epsilon();
    if (!straight && !misses(part)) {
      if (isLarge(part)) {
        const double middle = from + span / 2;
        left.emplace_back(middle, to);
        left.emplace_back(from, middle);
        continue;
      }
      addSamples(part, false);
    }
    put(part.endPoint());
  }
}

void RasterChains::addSamples(const qcShape& shape, bool alone) {
  qcShape::qcSampleResult samples;
  shape.sample(params_, samples);
  const std::vector<std::int32_t>& breaks = samples.breaks();
  for (std::size_t i = 0; i < breaks.size(); ++i) {
    const std::size_t end =
        i + 1 < breaks.size() ? static_cast<std::size_t>(breaks[i + 1]) : samples.positions().size();
    if (alone && i > 0) chains_.push_back({});
    if (alone) chains_.back().closed = samples.closedFlags()[i];
    for (auto k = static_cast<std::size_t>(breaks[i]); k < end; ++k) put(samples.positions()[k]);
  }
}

void RasterChains::put(const qcVector<2>& p) {
  if (!std::isfinite(p.x()) || !std::isfinite(p.y())) throw qcShapesError::BadGeom();
  std::vector<qcVector<2>>& points = chains_.back().points;
  if (points.empty() || points.back() != p) points.push_back(p);
}

}  // namespace qc_shapes
