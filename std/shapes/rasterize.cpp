#include "vnxstd/shapes/rasterize.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>
#include <vector>

#include "std/shapes/rasterscan.h"
#include "std/shapes/samplewriter.h"
#include "std/shapes/segment.h"
#include "vnxstd/pelbuf/apply.h"
#include "vnxstd/shapes/circle.h"
#include "vnxstd/shapes/ellipse.h"
#include "vnxstd/shapes/errors.h"
#include "vnxstd/shapes/polyline.h"
#include "vnxstd/shapes/rect.h"
#include "vnxstd/shapes/regiontree.h"

using Params = qcShape::qcSampleParams;
using Result = qcShape::qcSampleResult;

namespace {

using qc_shapes::RasterScan;
using qc_shapes::RowCrossing;

bool isFinite(const qcVector<2>& p) { return std::isfinite(p.x()) && std::isfinite(p.y()); }

/// The points of a chain, each once where it is repeated.
struct Chain {
  std::vector<qcVector<2>> points;
  bool closed;
};

/// Nothing of the shape is nearer to the window than `margin`.
bool misses(const qcShape& shape, const qcPelRect& window, double margin) {
  if (shape.isEmpty() || window.isNull()) return true;
  const qcRect box = shape.boundingBox();
  if (!isFinite(box.origin())) throw qcShapesError::BadGeom();
  const auto apart = [margin](double low, double size, long first, long end) {
    return low > static_cast<double>(end) + margin || low + size < static_cast<double>(first) - margin;
  };
  return apart(box.origin().x(), box.width(), window.x0(), window.x1()) ||
         apart(box.origin().y(), box.height(), window.y0(), window.y1());
}

std::vector<Chain> chainsOf(const qcShape& shape, const Params& params) {
  Params plain(params);
  plain.computeTangents(false);
  plain.duplicateCorners(true);  // where a contour jumps, both ends are corners
  Result samples;
  shape.sample(plain, samples);
  std::vector<Chain> chains;
  const std::vector<qcVector<2>>& positions = samples.positions();
  if (!std::all_of(positions.begin(), positions.end(), isFinite)) throw qcShapesError::BadGeom();
  for (std::size_t i = 0; i < samples.breaks().size(); ++i) {
    const auto first = positions.begin() + samples.breaks()[i];
    const auto end = i + 1 < samples.breaks().size() ? positions.begin() + samples.breaks()[i + 1] : positions.end();
    Chain& chain = chains.emplace_back();
    std::unique_copy(first, end, std::back_inserter(chain.points));
    chain.closed = samples.closedFlags()[i];
    while (chain.closed && chain.points.size() > 1 && chain.points.front() == chain.points.back()) {
      chain.points.pop_back();
    }
  }
  return chains;
}

/// Adds the boundary of a region. Where centres decide, circles and ellipses are not sampled.
void addBoundary(RasterScan& scan, const qcShape& boundary, bool byCenters, const Params& params) {
  const auto addEllipse = [&](const qcEllipse2& ellipse) {
    const qc2XformLinear map = ellipse.unitCircleMap();
    const qcMatrix<2>& m = map.matrix();
    scan.addEllipse(map.trans(), {m.element(0, 0), m.element(1, 0)}, {m.element(0, 1), m.element(1, 1)});
  };
  if (const auto* polygon = dynamic_cast<const qcPolyline*>(&boundary)) {
    scan.addPolygon(polygon->vertices().data(), polygon->vertices().size());
    return;
  }
  if (byCenters) {
    if (const auto* circle = dynamic_cast<const qcCircle*>(&boundary)) {
      return scan.addEllipse(circle->center(), {circle->radius(), 0}, {0, circle->radius()});
    }
    if (const auto* ellipse = dynamic_cast<const qcEllipse2*>(&boundary)) return addEllipse(*ellipse);
    if (const auto* ellipse = dynamic_cast<const qcEllipse*>(&boundary)) return addEllipse(qcEllipse2(*ellipse));
  }
  for (const Chain& chain : chainsOf(boundary, params)) scan.addPolygon(chain.points.data(), chain.points.size());
}

/// The outline of a broad line: a rectangle around every piece, a sector at every corner and half a disc at every end.
/// All of them wind the same way and share the points at which they meet, so that no centre falls between.
class BroadLine {
 public:
  BroadLine(RasterScan& scan, double width, double tolerance) : scan_(scan), half_(width / 2) {
    // Bounded, so that no width takes more than some 10^5 points per end.
    constexpr double kLeast = 1e-5;
    step_ = 2 * std::max(qc_shapes::chordHalfAngle(tolerance > 0 ? tolerance : 0.1, half_), kLeast);
  }

  void draw(const Chain& chain) {
    const std::vector<qcVector<2>>& p = chain.points;
    if (p.size() == 1) {
      addSector(p[0], {half_, 0}, {-half_, 0}, std::numbers::pi);
      addSector(p[0], {-half_, 0}, {half_, 0}, std::numbers::pi);
      return;
    }
    const std::size_t pieces = chain.closed ? p.size() : p.size() - 1;
    const auto aside = [&](std::size_t piece) {  // to the left
      const qcVector<2> d = qc_shapes::normalized(p[(piece + 1) % p.size()] / 2 - p[piece] / 2);
      return half_ * qcVector<2>(-d.y(), d.x());
    };
    const qcVector<2> first = aside(0);
    qcVector<2> left = first;
    if (!chain.closed) addSector(p.front(), left, -left, std::numbers::pi);
    for (std::size_t i = 0; i < pieces; ++i) {
      const qcVector<2>&from = p[i], &to = p[(i + 1) % p.size()];
      const qcVector<2> outline[] = {from + left, from, from - left, to - left, to, to + left};
      scan_.addPolygon(outline, 6);
      const bool isLast = i + 1 == pieces;
      if (isLast && !chain.closed) {
        addSector(to, -left, left, std::numbers::pi);
        break;
      }
      const qcVector<2> next = isLast ? first : aside(i + 1);
      const double turn = std::atan2(left.cross(next), left * next);
      turn > 0 ? addSector(to, -left, -next, turn) : addSector(to, next, left, -turn);
      left = next;
    }
  }

 private:
  // From one direction to the other, by an angle that is not negative.
  void addSector(const qcVector<2>& tip, const qcVector<2>& from, const qcVector<2>& to, double angle) {
    const int steps = static_cast<int>(std::ceil(angle / step_));
    points_ = {tip, tip + from};
    for (int i = 1; i < steps; ++i) {
      const double a = angle * i / steps, c = std::cos(a), s = std::sin(a);
      points_.push_back(tip + qcVector<2>(c * from.x() - s * from.y(), s * from.x() + c * from.y()));
    }
    points_.push_back(tip + to);
    scan_.addPolygon(points_.data(), points_.size());
  }

  RasterScan& scan_;
  double half_, step_;
  std::vector<qcVector<2>> points_;
};

/// The thinnest line that is connected.
class ThinLine {
 public:
  ThinLine(const qcPelRect& window, const qc_PelRows<unsigned char>& rows, unsigned char value)
      : window_(window), rows_(rows), value_(value) {}

  void draw(const Chain& chain) const {
    const std::vector<qcVector<2>>& p = chain.points;
    const std::size_t pieces = chain.closed && p.size() > 1 ? p.size() : p.size() - 1;
    const auto course = [&](std::size_t piece) { return courseOf(p[piece], p[(piece + 1) % p.size()]); };
    if (!chain.closed || pieces == 0) {
      setPel(p.front());
      setPel(p.back());
    } else if (course(pieces - 1) != course(0)) {
      setPel(p.front());
    }
    for (std::size_t i = 0; i < pieces; ++i) {
      if (i > 0 && course(i) != course(i - 1)) setPel(p[i]);
      drawPiece(p[i], p[(i + 1) % p.size()]);
    }
  }

 private:
  struct Course {
    bool horizontal, growing;
    friend bool operator==(const Course&, const Course&) = default;
  };

  static Course courseOf(const qcVector<2>& a, const qcVector<2>& b) {
    const bool horizontal = std::fabs(b.x() / 2 - a.x() / 2) >= std::fabs(b.y() / 2 - a.y() / 2);
    return {horizontal, horizontal ? a.x() < b.x() : a.y() < b.y()};
  }

  void setPel(const qcVector<2>& p) const {
    const double x = std::floor(p.x()) - static_cast<double>(window_.x0());
    const double y = std::floor(p.y()) - static_cast<double>(window_.y0());
    if (x < 0 || y < 0 || !(x < static_cast<double>(window_.width())) || !(y < static_cast<double>(window_.height()))) {
      return;
    }
    rows_.row(static_cast<std::ptrdiff_t>(y))[static_cast<std::ptrdiff_t>(x)] = value_;
  }

  // One pel for every centre, along the longer extent, that the piece passes.
  void drawPiece(const qcVector<2>& p, const qcVector<2>& q) const {
    const bool horizontal = courseOf(p, q).horizontal;
    const auto along = [&](const qcVector<2>& v) { return horizontal ? qcVector<2>(v.y(), v.x()) : v; };
    const bool swapped = along(q).y() < along(p).y();
    const qcVector<2> a = along(swapped ? q : p), b = along(swapped ? p : q);
    const auto first = static_cast<double>(horizontal ? window_.x0() : window_.y0());
    const auto base = static_cast<double>(horizontal ? window_.y0() : window_.x0());
    const std::int64_t length = horizontal ? window_.width() : window_.height();
    const std::int64_t limit = horizontal ? window_.height() : window_.width();
    const RowCrossing line(a, b, std::fabs(base) + static_cast<double>(limit) + 1);
    const auto place = [&](double y) {
      return static_cast<std::int64_t>(std::clamp(std::ceil(y - 0.5) - first, 0.0, static_cast<double>(length)));
    };
    for (std::int64_t i = place(a.y()), end = place(b.y()); i < end; ++i) {
      const std::int64_t across = line.first(first + static_cast<double>(i) + 0.5, base, limit + 1, true) - 1;
      if (across < 0 || across >= limit) continue;
      rows_.row(static_cast<std::ptrdiff_t>(horizontal ? across : i))[horizontal ? i : across] = value_;
    }
  }

  qcPelRect window_;
  qc_PelRows<unsigned char> rows_;
  unsigned char value_;
};

}  // namespace

const Params& qcRasterizationDefs::RasterizeSampParams() {
  static const Params params(0.1, 0.0, INT32_MAX, false, false);
  return params;
}

void qfRasterize(const qcRegionTree& region, const qcPelBuffer<unsigned char>& buffer, unsigned char value,
                 qcRasterizationDefs::BoundaryFillMode mode, const Params& params) {
  const bool byCenters = mode == qcRasterizationDefs::center;
  const bool isMode = byCenters || mode == qcRasterizationDefs::touched || mode == qcRasterizationDefs::covered;
  if (!isMode || params.uniformMode()) throw qcShapesError::BadParams();
  const qc_PelRows<unsigned char> rows = qf_PelRows(buffer);
  const qcPelRect window = buffer.window();
  RasterScan scan(window, mode);
  // What a node excludes from its parent lies inside the parent's boundary, and is nowhere else looked at.
  std::vector<std::pair<const qcRegionTree*, std::int32_t>> nodes{{&region, -1}};
  while (!nodes.empty()) {
    const auto [node, parent] = nodes.back();
    nodes.pop_back();
    if (node->isEmpty() || misses(node->boundary(), window, 0)) continue;
    const std::int32_t number = scan.nextBoundary(parent);
    addBoundary(scan, node->boundary(), byCenters, params);
    for (long i = 0; i < node->numChildren(); ++i) nodes.emplace_back(&node->child(i), number);
  }
  scan.fill(rows, value);
}

void qfRasterizeContour(const qcShape& shape, const qcPelBuffer<unsigned char>& buffer, unsigned char value,
                        double width, const Params& params) {
  if (!(width >= 0) || std::isinf(width) || params.uniformMode()) throw qcShapesError::BadParams();
  const qc_PelRows<unsigned char> rows = qf_PelRows(buffer);
  const qcPelRect window = buffer.window();
  if (misses(shape, window, width / 2)) return;
  const std::vector<Chain> chains = chainsOf(shape, params);
  if (width == 0) {
    for (const Chain& chain : chains) ThinLine(window, rows, value).draw(chain);
    return;
  }
  RasterScan scan(window, qcRasterizationDefs::center);
  scan.nextBoundary(-1);
  BroadLine line(scan, width, params.tolerance());
  for (const Chain& chain : chains) line.draw(chain);
  scan.fill(rows, value);
}
