#include "vnxstd/shapes/rasterize.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <typeinfo>
#include <utility>
#include <vector>

#include "std/shapes/exact.h"
#include "std/shapes/nesting.h"
#include "std/shapes/rasterchains.h"
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

namespace {

using qc_shapes::RasterChain;
using qc_shapes::RasterChains;
using qc_shapes::RasterScan;
using qc_shapes::RowCrossing;

/// Adds the boundary of a region. Where centres decide, circles and ellipses are not sampled.
void addBoundary(RasterScan& scan, const qcShape& boundary, bool byCenters, RasterChains& chains) {
  const auto addEllipse = [&](const qcEllipse2& ellipse) {
    const qc2XformLinear map = ellipse.unitCircleMap();
    const qcMatrix<2>& m = map.matrix();
    scan.addEllipse(map.trans(), {m.element(0, 0), m.element(1, 0)}, {m.element(0, 1), m.element(1, 1)});
  };
  if (typeid(boundary) == typeid(qcPolyline)) {  // or it would be copied
    const std::vector<qcVector<2>>& vertices = static_cast<const qcPolyline&>(boundary).vertices();
    return scan.addPolygon(vertices.data(), vertices.size());
  }
  if (byCenters) {
    if (const auto* circle = dynamic_cast<const qcCircle*>(&boundary)) {
      return scan.addEllipse(circle->center(), {circle->radius(), 0}, {0, circle->radius()});
    }
    if (const auto* ellipse = dynamic_cast<const qcEllipse2*>(&boundary)) return addEllipse(*ellipse);
    if (const auto* ellipse = dynamic_cast<const qcEllipse*>(&boundary)) return addEllipse(qcEllipse2(*ellipse));
  }
  for (const RasterChain& chain : chains.of(boundary)) scan.addPolygon(chain.points.data(), chain.points.size());
}

/// The outline of a broad line: a rectangle around every piece, a sector at every corner and half a disc at every end.
/// All of them wind the same way and share the points at which they meet, so that no centre falls between.
class BroadLine {
 public:
  // Bounded, so that products of coordinates stay in the range of doubles: what is that broad is so all over the
  // window.
  BroadLine(RasterScan& scan, const qcPelRect& window, double width, double tolerance)
      : scan_(scan), half_(std::min(width / 2, 1e100)) {
    const qcVector<2> margin(half_ + 1, half_ + 1);
    low_ = qcVector<2>(static_cast<double>(window.x0()), static_cast<double>(window.y0())) - margin;
    high_ = qcVector<2>(static_cast<double>(window.x1()), static_cast<double>(window.y1())) + margin;
    // Bounded, so that no width takes more than some 10^5 points per end.
    constexpr double kLeast = 1e-5;
    step_ = 2 * std::max(qc_shapes::chordHalfAngle(tolerance > 0 ? tolerance : 0.1, half_), kLeast);
  }

  void draw(const RasterChain& chain) {
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
      const qcVector<2>& to = p[(i + 1) % p.size()];
      addPiece(p[i], to, left);
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
  void addPiece(qcVector<2> from, qcVector<2> to, const qcVector<2>& left) {
    if (!cut(from, to)) return;
    const qcVector<2> outline[] = {from + left, from, from - left, to - left, to, to + left};
    scan_.addPolygon(outline, 6);
  }

  bool isNear(const qcVector<2>& p) const {
    return p.x() >= low_.x() && p.y() >= low_.y() && p.x() <= high_.x() && p.y() <= high_.y();
  }

  // Cuts a piece to where it is near, unless that is all the same: the sides of what reaches far out would be turned by
  // the rounding of its corners. False when nothing is left.
  bool cut(qcVector<2>& from, qcVector<2>& to) const {
    constexpr double kFar = 0x1p30;
    const auto isFar = [&](const qcVector<2>& p) {
      return std::max(std::fabs(p.x() - low_.x()), std::fabs(p.y() - low_.y())) > kFar;
    };
    if ((!isFar(from) && !isFar(to)) || half_ > kFar) return true;
    const qcVector<2> corners[] = {low_, {high_.x(), low_.y()}, high_, {low_.x(), high_.y()}};
    std::vector<qcVector<2>> ends;
    for (const qcVector<2>& end : {from, to}) {
      if (isNear(end)) ends.push_back(end);
    }
    for (int i = 0; i < 4; ++i) {
      const qcVector<2>&u = corners[i], &v = corners[(i + 1) % 4];
      const auto beside = [](const qcVector<2>& a, const qcVector<2>& b, const qcVector<2>& p, const qcVector<2>& q) {
        return qc_shapes::orientation(a, b, p) != qc_shapes::orientation(a, b, q);
      };
      if (!beside(from, to, u, v) || !beside(u, v, from, to)) continue;
      ends.push_back(u + qc_shapes::exactCrossing(u, v, from, to) * (v - u));
    }
    if (ends.size() < 2) return false;
    const auto [first, last] = std::minmax_element(
        ends.begin(), ends.end(), [way = to / 2 - from / 2](const qcVector<2>& a, const qcVector<2>& b) {
          return (b - a) * qc_shapes::normalized(way) > 0;
        });
    from = *first;
    to = *last;
    return true;
  }

  // From one direction to the other, by an angle that is not negative.
  void addSector(const qcVector<2>& tip, const qcVector<2>& from, const qcVector<2>& to, double angle) {
    if (!isNear(tip)) return;
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
  qcVector<2> low_, high_;  // what is nearer to the window than half the width
  std::vector<qcVector<2>> points_;
};

/// The thinnest line that is connected.
class ThinLine {
 public:
  ThinLine(const qcPelRect& window, const qc_PelRows<unsigned char>& rows, unsigned char value)
      : window_(window), rows_(rows), value_(value) {}

  void draw(const RasterChain& chain) const {
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
  RasterChains chains(window, 1, params);
  // What a node excludes from its parent lies inside the parent's boundary, and is nowhere else looked at.
  std::vector<std::pair<const qcRegionTree*, std::int32_t>> nodes{{&region, -1}};
  while (!nodes.empty()) {
    const auto [node, parent] = nodes.back();
    nodes.pop_back();
    if (node->isEmpty() || qc_shapes::isVoid(node->boundary()) || chains.misses(node->boundary())) continue;
    const std::int32_t number = scan.nextBoundary(parent);
    addBoundary(scan, node->boundary(), byCenters, chains);
    for (long i = 0; i < node->numChildren(); ++i) nodes.emplace_back(&node->child(i), number);
  }
  scan.fill(rows, value);
}

void qfRasterizeContour(const qcShape& shape, const qcPelBuffer<unsigned char>& buffer, unsigned char value,
                        double width, const Params& params) {
  if (!(width >= 0) || std::isinf(width) || params.uniformMode()) throw qcShapesError::BadParams();
  const qc_PelRows<unsigned char> rows = qf_PelRows(buffer);
  const qcPelRect window = buffer.window();
  const std::vector<RasterChain> chains = RasterChains(window, 1 + width / 2, params).of(shape);
  if (width == 0) {
    for (const RasterChain& chain : chains) ThinLine(window, rows, value).draw(chain);
    return;
  }
  RasterScan scan(window, qcRasterizationDefs::center);
  scan.nextBoundary(-1);
  BroadLine line(scan, window, width, params.tolerance());
  for (const RasterChain& chain : chains) line.draw(chain);
  scan.fill(rows, value);
}
