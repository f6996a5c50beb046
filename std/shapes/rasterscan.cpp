#include "std/shapes/rasterscan.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "std/pelbuf/dispatch.h"
#include "std/shapes/exact.h"
#include "vnxstd/shapes/errors.h"

namespace qc_shapes {
namespace {

constexpr double kOne = 4294967296.0;  // positions along a row count in 2^-32 pels

/// The pels [from, to) of a row.
struct Run {
  std::int64_t from, to;
};

/// Sets a run of pels: most are short, and a call of memset takes longer than they do.
inline void setRun(unsigned char* to, std::int64_t count, unsigned char value) {
  if (count > 128) {
    std::memset(to, value, static_cast<std::size_t>(count));
  } else if (count >= 16) {
    unsigned char pels[16];
    std::memset(pels, value, 16);
    for (std::int64_t i = 0; i + 16 < count; i += 16) std::memcpy(to + i, pels, 16);
    std::memcpy(to + count - 16, pels, 16);
  } else {
    for (std::int64_t i = 0; i < count; ++i) to[i] = value;
  }
}

/// Sets in every row the pels [-left, -right) from where it starts. Not inlined: the caller's constants would be saved
/// and restored around every call of memset.
[[gnu::noinline]] void setRuns(const qc_PelRows<unsigned char>& rows, const std::int32_t* left,
                               const std::int32_t* right, unsigned char value) {
  for (std::ptrdiff_t y = 0; y < rows.height; ++y) {
    if (left[y] > right[y]) setRun(rows.row(y) - left[y], left[y] - right[y], value);
  }
}

/// The smallest integer not below a number, kept within [0, limit]; 0 when it is no number.
inline std::int64_t ceilWithin(double value, double limit) {
  if (!(value > 0)) return 0;
  if (!(value < limit)) return static_cast<std::int64_t>(limit);
  const auto whole = static_cast<std::int64_t>(value);
  return whole + (static_cast<double>(whole) < value);
}

}  // namespace

RasterScan::RasterScan(const qcPelRect& window, qcRasterizationDefs::BoundaryFillMode mode)
    : mode_(mode),
      x0_(static_cast<double>(window.x0())),
      y0_(static_cast<double>(window.y0())),
      width_(window.width()),
      height_(window.height()) {}

// The first row of the window whose upper border is not above y.
std::int64_t RasterScan::rowFrom(double y) const {
  return static_cast<std::int64_t>(std::clamp(std::ceil(y) - y0_, 0.0, static_cast<double>(height_)));
}

std::int32_t RasterScan::nextBoundary(std::int32_t parent) {
  parents_.push_back(parent);
  return static_cast<std::int32_t>(parents_.size()) - 1;
}

void RasterScan::addPolygon(const qcVector<2>* vertices, std::size_t count) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  qcVector<2> low(kInfinity, kInfinity), high(-kInfinity, -kInfinity);
  for (std::size_t i = 0; i < count; ++i) {
    const qcVector<2>& v = vertices[i];
    if (!std::isfinite(v.x()) || !std::isfinite(v.y())) throw qcShapesError::BadGeom();
    low = {std::min(low.x(), v.x()), std::min(low.y(), v.y())};
    high = {std::max(high.x(), v.x()), std::max(high.y(), v.y())};
  }
  const auto width = static_cast<double>(width_), height = static_cast<double>(height_);
  if (misses(low.x(), high.x(), x0_, width) || misses(low.y(), high.y(), y0_, height)) return;
  if (edges_.empty()) edges_.reserve(count);
  for (std::size_t i = 0; i < count; ++i) addEdge(vertices[i], vertices[i + 1 < count ? i + 1 : 0]);
}

void RasterScan::addEdge(const qcVector<2>& from, const qcVector<2>& to) {
  const bool down = from.y() <= to.y();
  const qcVector<2>&a = down ? from : to, &b = down ? to : from;
  Edge edge{};
  edge.crossed = {rowFrom(a.y() - 0.5), rowFrom(b.y() - 0.5)};
  edge.occupied = edge.crossed;
  // Rows in which the edge comes inside a pel; one that runs along a border between two rows is in neither.
  if (mode_ != qcRasterizationDefs::center) edge.occupied = {rowFrom(std::floor(a.y())), rowFrom(b.y())};
  if (edge.occupied.first >= edge.occupied.end) return;
  edge.line = RowCrossing(a, b, std::fabs(x0_) + static_cast<double>(width_) + 1);
  edge.ellipse = -1;
  edge.winding = down ? 1 : -1;
  edge.boundary = static_cast<std::int32_t>(parents_.size()) - 1;
  edges_.push_back(edge);
}

void RasterScan::addEllipse(const qcVector<2>& center, const qcVector<2>& u, const qcVector<2>& v) {
  for (const qcVector<2>& w : {center, u, v}) {
    if (!std::isfinite(w.x()) || !std::isfinite(w.y())) throw qcShapesError::BadGeom();
  }
  // Along the directions of (u.y, v.y) and across; none of the products leaves the range of doubles.
  const double height = std::hypot(u.y(), v.y()), cosine = u.y() / height, sine = v.y() / height;
  const double slope = (u.x() * cosine + v.x() * sine) / height, width = std::fabs(u.x() * sine - v.x() * cosine);
  const bool isFlat = !std::isfinite(1 / height) || !std::isfinite(slope) || width == 0;
  if (isFlat) return;
  Edge edge{};
  edge.ellipse = static_cast<std::int32_t>(ellipses_.size());
  edge.boundary = static_cast<std::int32_t>(parents_.size()) - 1;
  edge.crossed = edge.occupied = {rowFrom(center.y() - height - 0.5), rowFrom(center.y() + height - 0.5)};
  if (edge.occupied.first >= edge.occupied.end) return;
  ellipses_.push_back({center, slope, 1 / height, width});
  edges_.insert(edges_.end(), 2, edge);
  edges_.end()[-2].winding = 1;
  edges_.end()[-1].winding = -1;
}

std::int64_t RasterScan::column(const Edge& edge, std::int64_t row) const {
  const double y = rowY(row) + 0.5, base = x0_ + 0.5;
  if (edge.ellipse < 0) return edge.line.first(y, base, width_ + 1, false);
  const Ellipse& ellipse = ellipses_[static_cast<std::size_t>(edge.ellipse)];
  const double distance = y - ellipse.center.y(), middle = ellipse.center.x() + distance * ellipse.slope - base;
  return ceilWithin(middle - edge.winding * ellipse.halfWidth(distance), static_cast<double>(width_ + 1));
}

RowCrossing::RowCrossing(const qcVector<2>& a, const qcVector<2>& b, double reach) : a_(a), b_(b) {
  const double dy = b.y() - a.y();
  slope_ = (b.x() - a.x()) / dy;
  // Less than ten roundings, with room to spare.
  error_ = std::isfinite(slope_) && std::isfinite(dy) ? std::ldexp(std::fabs(a.x()) + std::fabs(b.x()) + reach, -49)
                                                      : std::numeric_limits<double>::infinity();
}

std::int64_t RowCrossing::first(double y, double base, std::int64_t limit, bool beyond) const {
  const double place = x(y) - base, high = place + error_, last = static_cast<double>(limit);
  if (place > 0 && place < last) {
    const auto whole = static_cast<std::int64_t>(place);
    const double fraction = place - static_cast<double>(whole);
    if (fraction > error_ && fraction < 1 - error_) return whole + 1;
  }
  std::int64_t from = ceilWithin(place - error_, last);
  std::int64_t to = high < last ? ceilWithin(high, last) : limit;  // no number is as good as the last
  while (from < to) {
    const std::int64_t middle = from + (to - from) / 2;
    const int side = orientation(a_, b_, {base + static_cast<double>(middle), y});
    if (side < 0 || (side == 0 && !beyond)) {
      to = middle;
    } else {
      from = middle + 1;
    }
  }
  return from;
}

/// Which of nested boundaries wind around a place, and whether the region of the outermost one is there: a region is
/// where its boundary winds and none of the regions directly inside it is. Boundaries are strung on paths, each going
/// on with the child below which most others are: so every way out passes few paths. Along a path, inside and outside
/// alternate down to the first region that is blocked, as its boundary does not wind or a child beside the path is
/// there.
class NestedRegions {
 public:
  /// The number of the boundary around each, which is smaller than its own; -1 for the first one.
  explicit NestedRegions(const std::vector<std::int32_t>& parents) : regions_(parents.size()) {
    const std::size_t count = parents.size();
    std::vector<std::int32_t> sizes(count, 1), heavy(count, -1);
    for (std::size_t i = count; i-- > 1;) {
      const auto parent = static_cast<std::size_t>(parents[i]);
      sizes[parent] += sizes[i];
      if (heavy[parent] < 0 || sizes[static_cast<std::size_t>(heavy[parent])] < sizes[i]) {
        heavy[parent] = static_cast<std::int32_t>(i);
      }
    }
    for (std::size_t i = 0; i < count; ++i) {
      const std::int32_t parent = parents[i];
      if (parent >= 0 && heavy[static_cast<std::size_t>(parent)] == static_cast<std::int32_t>(i)) continue;
      paths_.push_back({blocked_.size(), blocked_.size(), parent});
      for (auto k = static_cast<std::int32_t>(i); k >= 0; k = heavy[static_cast<std::size_t>(k)]) {
        regions_[static_cast<std::size_t>(k)] = {0, 0, paths_.size() - 1, blocked_.size()};
        blocked_.push_back(1);
      }
      blocked_.push_back(1);  // where there is nothing more
    }
  }

  /// Whether the region of boundary 0 is here.
  bool isInside() const { return paths_.front().isInside(); }

  /// Goes past a crossing.
  void turn(std::int32_t boundary, std::int32_t winding) {
    Region* region = &regions_[static_cast<std::size_t>(boundary)];
    region->winding += winding;
    while (true) {
      Path& path = paths_[region->path];
      const bool wasInside = path.isInside();
      block(path, region->place, region->winding == 0 || region->insideChildren > 0);
      if (wasInside == path.isInside() || path.parent < 0) return;
      region = &regions_[static_cast<std::size_t>(path.parent)];
      region->insideChildren += wasInside ? -1 : 1;
    }
  }

 private:
  struct Region {
    std::int32_t winding = 0, insideChildren = 0;  // those beside the path
    std::size_t path = 0, place = 0;
  };
  struct Path {
    std::size_t start, firstBlocked;
    std::int32_t parent;

    bool isInside() const { return (firstBlocked - start) % 2 != 0; }
  };

  void block(Path& path, std::size_t place, bool blocked) {
    blocked_[place] = static_cast<unsigned char>(blocked);
    if (blocked) {
      path.firstBlocked = std::min(path.firstBlocked, place);
    } else if (path.firstBlocked == place) {
      const void* next = std::memchr(&blocked_[place], 1, blocked_.size() - place);
      path.firstBlocked = static_cast<std::size_t>(static_cast<const unsigned char*>(next) - blocked_.data());
    }
  }

  std::vector<Region> regions_;
  std::vector<Path> paths_;
  std::vector<unsigned char> blocked_;  // 1 or 0, along all paths
};

/// The walk down the rows, with the edges that matter to the row it has come to.
class RasterRows {
 public:
  RasterRows(const RasterScan& scan, const qc_PelRows<unsigned char>& rows, unsigned char value)
      : scan_(scan),
        rows_(rows),
        value_(value),
        byCenters_(scan.mode_ == qcRasterizationDefs::center),
        regions_(scan.parents_) {
    cursors_.reserve(scan.edges_.size());
    if (!byCenters_) {
      inside_.reserve(scan.edges_.size());
      touched_.reserve(scan.edges_.size());
    }
  }

  void run() {
    std::vector<std::uint32_t> order(scan_.edges_.size());
    for (std::uint32_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [this](std::uint32_t a, std::uint32_t b) {
      return scan_.edges_[a].occupied.first < scan_.edges_[b].occupied.first;
    });
    std::size_t next = 0;
    const auto nextStart = [&] { return next < order.size() ? edge(order[next]).occupied.first : scan_.height_; };
    for (std::int64_t row = nextStart(); row < scan_.height_;) {
      for (; nextStart() == row; ++next) cursors_.push_back(started(order[next]));
      std::int64_t end = nextStart();  // until here nothing starts or ends
      for (const Cursor& cursor : cursors_) end = std::min(end, edge(cursor.edge).occupied.end);
      for (; row < end; ++row) {
        advance(row);
        byCenters_ ? fillByCenters(row) : fillByBorders(row);
      }
      std::erase_if(cursors_, [&](const Cursor& cursor) { return edge(cursor.edge).occupied.end == row; });
      if (cursors_.empty()) row = nextStart();
    }
  }

 private:
  /// Where an edge crosses the centres of a row. The position, less what it can be wrong by, is the next whole number
  /// of pels unless its fraction is within `doubt`, twice that.
  struct Cursor {
    std::int64_t position, step;
    std::int64_t column;
    std::uint32_t doubt, edge;
    std::int32_t winding, boundary;
  };

  const RasterScan::Edge& edge(std::uint32_t index) const { return scan_.edges_[index]; }

  Cursor started(std::uint32_t index) const {
    const RasterScan::Edge& e = edge(index);
    Cursor cursor{0, 0, 0, UINT32_MAX, index, e.winding, e.boundary};  // always in doubt
    if (!byCenters_ || e.ellipse >= 0) return cursor;
    const auto steps = static_cast<double>(e.crossed.end - 1 - e.crossed.first);
    const double x = e.line.x(scan_.rowY(e.crossed.first) + 0.5) - (scan_.x0_ + 0.5);
    const double slope = steps > 0 ? e.line.slope() : 0;
    // The slope is within two bits of its last place; steps and position are cut off.
    const double margin = (e.line.error() + steps * std::fabs(slope) * 0x1p-51) * kOne + steps + 3;
    constexpr double kFar = 0x1p29;
    if (margin < 0x1p30 && std::fabs(x) < kFar && std::fabs(x + steps * slope) < kFar) {
      cursor.position = static_cast<std::int64_t>(x * kOne + kOne + margin);
      cursor.step = static_cast<std::int64_t>(slope * kOne);
      cursor.doubt = static_cast<std::uint32_t>(2 * margin + 1);
    }
    return cursor;
  }

  // Brings the cursors to a row and into the order of their columns.
  void advance(std::int64_t row) {
    bool sorted = true;
    std::int64_t before = INT64_MIN;
    for (Cursor& cursor : cursors_) {
      std::int64_t column = cursor.position >> 32;
      if (static_cast<std::uint32_t>(cursor.position) <= cursor.doubt) [[unlikely]] {
        column = scan_.column(edge(cursor.edge), row);
      }
      cursor.position += cursor.step;
      cursor.column = column;
      sorted = sorted && before <= column;
      before = column;
    }
    if (!sorted) sort();
  }

  // From one row to the next few change places; but the first row of many edges may have any order.
  void sort() {
    std::size_t moves = 0;
    for (std::size_t i = 1; i < cursors_.size(); ++i) {
      const Cursor moving = cursors_[i];
      std::size_t to = i;
      for (; to > 0 && cursors_[to - 1].column > moving.column; --to) cursors_[to] = cursors_[to - 1];
      cursors_[to] = moving;
      moves += i - to;
      if (moves > 64 + 8 * i) {
        std::sort(cursors_.begin(), cursors_.end(),
                  [](const Cursor& a, const Cursor& b) { return a.column < b.column; });
        return;
      }
    }
  }

  // Calls put(from, to) for what lies inside a row, from left to right; some may be empty.
  template <class Put>
  void forInside(Put&& put) {
    std::int64_t from = 0;
    if (scan_.parents_.size() == 1) {
      std::int32_t winding = 0;
      for (const Cursor& cursor : cursors_) {
        if (winding == 0) from = cursor.column;
        winding += cursor.winding;
        if (winding == 0) put(from, cursor.column);
      }
      return;
    }
    for (const Cursor& cursor : cursors_) {
      const bool wasInside = regions_.isInside();
      regions_.turn(cursor.boundary, cursor.winding);
      if (wasInside == regions_.isInside()) continue;
      if (wasInside) put(from, cursor.column);
      from = cursor.column;
    }
  }

  void set(std::int64_t row, std::int64_t from, std::int64_t to) const {
    from = std::max<std::int64_t>(from, 0);
    to = std::min(to, scan_.width_);
    if (from < to) setRun(rows_.row(static_cast<std::ptrdiff_t>(row)) + from, to - from, value_);
  }

  void fillByCenters(std::int64_t row) {
    forInside([&](std::int64_t from, std::int64_t to) { set(row, from, to); });
  }

  // Pels without a piece of the boundary inside are wholly inside or outside, and their centres tell which; the others
  // are all set or all left out.
  void fillByBorders(std::int64_t row) {
    const bool all = scan_.mode_ == qcRasterizationDefs::touched;
    inside_.clear();
    touched_.clear();
    for (Cursor& cursor : cursors_) {
      const RasterScan::Edge& e = edge(cursor.edge);
      cursor.winding = e.crossed.contains(row) ? e.winding : 0;
      const Run run = touchedBy(e.line, row);
      if (run.from < run.to) touched_.push_back(run);
    }
    forInside([&](std::int64_t from, std::int64_t to) {
      if (from < to) inside_.push_back({from, to});
    });
    if (all) {
      for (const auto& runs : {inside_, touched_}) {
        for (const Run& run : runs) set(row, run.from, run.to);
      }
      return;
    }
    std::sort(touched_.begin(), touched_.end(), [](const Run& a, const Run& b) { return a.from < b.from; });
    auto out = touched_.begin();
    std::int64_t behind = 0;  // everything that is left out so far ends before it
    for (const Run& run : inside_) {
      for (std::int64_t from = std::max(run.from, behind); from < run.to; from = std::max(from, behind)) {
        for (; out != touched_.end() && out->from <= from; ++out) behind = std::max(behind, out->to);
        if (from < behind) continue;
        const std::int64_t to = out != touched_.end() ? std::min(run.to, out->from) : run.to;
        set(row, from, to);
        from = to;
      }
    }
  }

  // The pels of a row inside which, borders left out, an edge has a point.
  Run touchedBy(const RowCrossing& line, std::int64_t row) const {
    const double top = scan_.rowY(row), bottom = top + 1;
    const bool leans = line.a().x() <= line.b().x();  // to the right, on the way down
    const bool startsHere = line.a().y() >= top, endsHere = line.b().y() <= bottom;
    const double leftY = leans ? top : bottom, rightY = leans ? bottom : top;
    const double leftX = leans ? line.a().x() : line.b().x(), rightX = leans ? line.b().x() : line.a().x();
    const auto whole = [&](double x) {
      return static_cast<std::int64_t>(std::clamp(x - scan_.x0_, 0.0, static_cast<double>(scan_.width_)));
    };
    const auto column = [&](double y, bool beyond) { return line.first(y, scan_.x0_, scan_.width_ + 1, beyond); };
    return {(leans ? startsHere : endsHere) ? whole(std::floor(leftX)) : column(leftY, true) - 1,
            (leans ? endsHere : startsHere) ? whole(std::ceil(rightX)) : column(rightY, false)};
  }

  const RasterScan& scan_;
  const qc_PelRows<unsigned char>& rows_;
  unsigned char value_;
  bool byCenters_;
  std::vector<Cursor> cursors_;
  NestedRegions regions_;
  std::vector<Run> inside_, touched_;
};

/// Rows of an ellipse that are computed together: while they are, the stores of the rows before go on to the cache.
constexpr std::int32_t kEllipseRows = 16;

/// Where the rows from a distance from the centre on begin and end, counted from the window's end: cutting off the
/// fraction there is the ceiling here, and has instructions.
[[gnu::always_inline]] inline void ellipseEnds(const RasterScan::Ellipse& ellipse, double distance, double end,
                                               double width, std::int32_t* left, std::int32_t* right) {
  const RasterScan::Ellipse e = ellipse;
  for (std::int32_t i = 0; i < kEllipseRows; ++i) {
    const double middle = end - (e.center.x() + (distance + i) * e.slope), half = e.halfWidth(distance + i);
    left[i] = static_cast<std::int32_t>(std::min(width, std::max(0.0, middle + half)));
    right[i] = static_cast<std::int32_t>(std::min(width, std::max(0.0, middle - half)));
  }
}

void ellipseEndsBaseline(const RasterScan::Ellipse& ellipse, double distance, double end, double width,
                         std::int32_t* left, std::int32_t* right) {
  ellipseEnds(ellipse, distance, end, width, left, right);
}

#if VNXSTD_X86
[[gnu::target("avx2")]] void ellipseEndsAvx2(const RasterScan::Ellipse& ellipse, double distance, double end,
                                             double width, std::int32_t* left, std::int32_t* right) {
  ellipseEnds(ellipse, distance, end, width, left, right);
}
#endif

void RasterScan::fillEllipse(const qc_PelRows<unsigned char>& rows, unsigned char value) const {
  auto* ends = &ellipseEndsBaseline;
#if VNXSTD_X86
  if (vnxstd::simd::level() != vnxstd::simd::Level::Baseline) ends = &ellipseEndsAvx2;
#endif
  const Rows range = edges_[0].crossed;
  const double width = static_cast<double>(width_), end = x0_ + 0.5 + width;
  std::int32_t left[kEllipseRows], right[kEllipseRows];
  const auto columns = static_cast<std::ptrdiff_t>(width_);
  for (std::int64_t first = range.first; first < range.end; first += kEllipseRows) {
    ends(ellipses_[0], rowY(first) + 0.5 - ellipses_[0].center.y(), end, width, left, right);
    const auto row = static_cast<std::ptrdiff_t>(first);
    const auto count = static_cast<std::ptrdiff_t>(std::min<std::int64_t>(kEllipseRows, range.end - first));
    setRuns({rows.row(row) + columns, rows.pitch, columns, count}, left, right, value);
  }
}

void RasterScan::fill(const qc_PelRows<unsigned char>& rows, unsigned char value) const {
  if (edges_.empty()) return;
  if (edges_.size() == 2 && ellipses_.size() == 1 && parents_.size() == 1) return fillEllipse(rows, value);
  RasterRows(*this, rows, value).run();
}

}  // namespace qc_shapes
