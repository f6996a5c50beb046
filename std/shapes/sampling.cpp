#include "vnxstd/shapes/sampling.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "std/archive/found.h"
#include "std/shapes/samplewriter.h"
#include "std/shapes/segment.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/shapes/polyline.h"
#include "vnxstd/shapes/shapeinfo.h"

using Params = qcShape::qcSampleParams;
using Result = qcShape::qcSampleResult;

namespace {

template <class T>
void reserveFor(std::vector<T>& values, long n) {
  if (n > 0) values.reserve(static_cast<std::size_t>(n));
}

// Room for more elements, by doubling, so that appending many short chains stays linear.
template <class T>
void growFor(std::vector<T>& values, std::size_t more) {
  const std::size_t needed = values.size() + more;
  if (values.capacity() < needed) values.reserve(std::max(needed, 2 * values.capacity()));
}

template <class T>
void truncate(std::vector<T>& values, std::size_t size) {
  if (values.size() > size) values.erase(values.begin() + static_cast<std::ptrdiff_t>(size), values.end());
}

template <class T>
void removeMarked(std::vector<T>& values, std::size_t first, const std::vector<bool>& marked) {
  std::size_t kept = first;
  for (std::size_t i = first; i < values.size(); ++i) {
    if (!marked[i - first]) values[kept++] = values[i];
  }
  truncate(values, kept);
}

qcRadian bisector(const qcRadian& earlier, const qcRadian& later) {
  const qcRadian d = (later - earlier).norm();
  const double turn = qcRadian::turn, half = turn / 2;
  return (d.plain() <= half ? earlier + d / 2 : later + (qcRadian(turn) - d) / 2).signedNorm();
}

// The points of a run of chains that are left when every joint keeps only the first point of its later chain.
class JointRemover {
 public:
  JointRemover(Result& result, std::size_t firstChain)
      : result_(result),
        firstChain_(firstChain),
        first_(static_cast<std::size_t>(result.breaks()[firstChain])),
        removed_(result.positions().size() - first_) {}

  void run(bool closed) {
    const std::vector<std::int32_t>& breaks = result_.breaks();
    for (std::size_t chain = breaks.size() - 1; chain > firstChain_; --chain) {
      if (!join(static_cast<std::size_t>(breaks[chain]) - 1, static_cast<std::size_t>(breaks[chain]))) return remove();
    }
    if (closed) join(result_.positions().size() - 1, first_);
    remove();
  }

 private:
  // Takes the point `end` away in favour of `start`, or of the next one that is left; false when `end` is the first
  // point of all, which stays.
  bool join(std::size_t end, std::size_t start) {
    if (end == first_) return false;
    while (removed_[start - first_]) ++start;
    std::vector<qcRadian>& tangents = result_.tangents();
    if (!tangents.empty()) tangents[start] = bisector(tangents[end], tangents[start]);
    removed_[end - first_] = true;
    return true;
  }

  void remove() {
    removeMarked(result_.positions(), first_, removed_);
    if (!result_.tangents().empty()) removeMarked(result_.tangents(), first_, removed_);
    if (!result_.perimPositions_().empty()) removeMarked(result_.perimPositions_(), first_, removed_);
  }

  Result& result_;
  std::size_t firstChain_;
  std::size_t first_;
  std::vector<bool> removed_;
};

}  // namespace

Params::qcSampleParams(double tolerance, double spacing, long maxPoints, bool computeTangents, bool duplicateCorners)
    : tolerance_(tolerance),
      spacing_(spacing),
      maxPoints_(static_cast<std::int32_t>(maxPoints)),
      computeTangents_(computeTangents),
      duplicateCorners_(duplicateCorners) {
  if (!(tolerance >= 0) || !(spacing >= 0) || maxPoints < 2 || maxPoints > INT32_MAX) throw qcShapesError::BadParams();
}

void Params::tolerance(double tolerance) {
  if (!(tolerance >= 0)) throw qcShapesError::BadParams();
  tolerance_ = tolerance;
}

void Params::spacing(double spacing) {
  if (!(spacing >= 0)) throw qcShapesError::BadParams();
  spacing_ = spacing;
}

void Params::maxPoints(long maxPoints) {
  if (maxPoints < (uniformMode_ ? 1 : 2) || maxPoints > INT32_MAX) throw qcShapesError::BadParams();
  maxPoints_ = static_cast<std::int32_t>(maxPoints);
}

qcArchive& operator||(qcArchive& archive, Params& params) {
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shapes", 1662);
  Params fields = params;
  archive || fields.tolerance_ || fields.spacing_ || fields.maxPoints_;
  archive || fields.computeTangents_ || fields.duplicateCorners_ || fields.uniformMode_;
  if (archive.isStoring()) return archive;
  // A count of 1 can be left behind by leaving uniform mode.
  if (!(fields.tolerance_ >= 0) || !(fields.spacing_ >= 0) || fields.maxPoints_ < 1) {
    throw archive.located(qcArchive::BadContent("std/shapes/shapes", 1662),
                          "a tolerance and a spacing >= 0, and points",
                          qf_Found(fields.tolerance_, fields.spacing_, fields.maxPoints_));
  }
  fields.record_ = false;
  fields.enclosing_ = nullptr;
  params = fields;
  return archive;
}

void Result::positionsReserve(long n) { reserveFor(positions_, n); }

void Result::positionsTangentsReserve(long n) {
  reserveFor(positions_, n);
  reserveFor(tangents_, n);
}

void Result::chainsReserve(long n) {
  reserveFor(breaks_, n);
  reserveFor(closedFlags_, n);
}

void Result::reset() {
  positions_.clear();
  tangents_.clear();
  breaks_.clear();
  closedFlags_.clear();
  recorded_.clear();
  nextPiece_ = 0;
}

bool Result::isValid_(std::size_t firstChain) const {
  if (closedFlags_.size() != breaks_.size()) return false;
  if (!tangents_.empty() && tangents_.size() != positions_.size()) return false;
  if (breaks_.empty()) return positions_.empty();
  const auto first = breaks_.begin() + static_cast<std::ptrdiff_t>(std::min(firstChain, breaks_.size() - 1));
  const bool ascending = std::adjacent_find(first, breaks_.end(), std::greater_equal<>()) == breaks_.end();
  return ascending && breaks_.front() == 0 && *first >= 0 &&
         static_cast<std::size_t>(breaks_.back()) < positions_.size();
}

void Result::getPolylines(std::vector<qcPolyline>& polylines) const {
  if (!isValid_()) throw qcShapesError::BadParams();
  std::vector<qcPolyline> made;
  made.reserve(breaks_.size());
  for (std::size_t i = 0; i < breaks_.size(); ++i) {
    const auto start = positions_.begin() + breaks_[i];
    const auto end = i + 1 < breaks_.size() ? positions_.begin() + breaks_[i + 1] : positions_.end();
    made.emplace_back(std::vector<qcVector<2>>(start, end), closedFlags_[i]);
  }
  polylines = std::move(made);
}

qcArchive& operator||(qcArchive& archive, Result& result) {
  if (archive.isStoring() && !result.isValid_()) throw qcArchive::BadContent("std/shapes/shapes", 1837);
  unsigned char version = 0;
  archive || version;
  qcArchive::checkVersion(archive, version, 0, "std/shapes/shapes", 1837);
  if (archive.isStoring())
    return archive || result.positions_ || result.tangents_ || result.breaks_ || result.closedFlags_;
  Result loaded;
  archive || loaded.positions_ || loaded.tangents_ || loaded.breaks_ || loaded.closedFlags_;
  if (!loaded.isValid_()) {
    throw archive.located(
        qcArchive::BadContent("std/shapes/shapes", 1837), "samples that belong together",
        qf_Found(loaded.positions_.size(), loaded.tangents_.size(), loaded.breaks_.size(), loaded.closedFlags_.size()));
  }
  result = std::move(loaded);
  return archive;
}

namespace qc_shapes {

void checkConsistent(const Params& params, const Result& result) {
  if (result.numChains() == 0) return;
  const bool records = params.recordPositions_();
  const std::size_t recorded = result.perimPositions_().size();
  if (params.computeTangents() == result.tangents().empty() || recorded != (records ? result.positions().size() : 0)) {
    throw qcShapesError::BadParams();
  }
}

long stepsFor(double total, double step, long limit) {
  if (!(static_cast<double>(limit) * step >= total)) throw qcShapesError::SampleOverflow();
  const double quotient = total / step;
  if (!(quotient < static_cast<double>(limit))) return limit;
  const auto steps = static_cast<long>(quotient);
  return std::max(1L, static_cast<double>(steps) < quotient ? steps + 1 : steps);
}

double chordHalfAngle(double tolerance, double radius) {
  // Twice the arc sine of a root, which large radii leave their digits: 1 - cos(a) = 2 sin(a / 2)^2.
  return tolerance <= radius ? 2 * std::asin(std::sqrt(tolerance / radius / 2)) : std::numbers::pi / 2;
}

SampleWriter::SampleWriter(const Params& params, Result& result)
    : params_(params),
      result_(result),
      positions_(result.positions().size()),
      tangents_(result.tangents().size()),
      breaks_(result.breaks().size()),
      flags_(result.closedFlags().size()),
      recorded_(result.perimPositions_().size()),
      pieceNumber_(result.pieceNumber_()) {
  checkConsistent(params, result);
}

SampleWriter::~SampleWriter() {
  if (committed_) return;
  truncate(result_.positions(), positions_);
  truncate(result_.tangents(), tangents_);
  truncate(result_.breaks(), breaks_);
  truncate(result_.closedFlags(), flags_);
  truncate(result_.perimPositions_(), recorded_);
  result_.pieceNumber_(pieceNumber_);
}

void SampleWriter::numberOwnPieces() {
  ownPieces_ = true;
  result_.pieceNumber_(0);
}

std::int32_t SampleWriter::takePiece(std::int32_t count) {
  const std::int32_t piece = result_.pieceNumber_();
  if (ownPieces_ || params_.enclosingInfo_()) result_.pieceNumber_(piece + std::min(count, INT32_MAX - piece));
  return piece;
}

void SampleWriter::openChain(bool closed, long count) {
  makeRoom(count);
  result_.breaks().push_back(static_cast<std::int32_t>(result_.positions().size()));
  result_.closedFlags().push_back(closed);
}

void SampleWriter::makeRoom(long count) {
  const std::size_t size = result_.positions().size();
  if (size > INT32_MAX || static_cast<std::size_t>(count) > INT32_MAX - size) throw qcShapesError::SampleOverflow();
  growFor(result_.positions(), static_cast<std::size_t>(count));
  if (params_.computeTangents()) growFor(result_.tangents(), static_cast<std::size_t>(count));
  if (params_.recordPositions_()) growFor(result_.perimPositions_(), static_cast<std::size_t>(count));
}

void SampleWriter::commit() {
  if (ownPieces_) result_.pieceNumber_(pieceNumber_);
  committed_ = true;
}

void turnChain(Result& result, std::size_t first) {
  const std::vector<qcVector<2>>& points = result.positions();
  if (first == points.size()) return;
  const std::size_t kept = points[first] == points.back() ? 0 : 1;
  const auto turn = [from = static_cast<std::ptrdiff_t>(first + kept)](auto& values) {
    if (!values.empty()) std::reverse(values.begin() + from, values.end());
  };
  turn(result.positions());
  turn(result.tangents());
  turn(result.perimPositions_());
  for (std::size_t i = first; i < result.tangents().size(); ++i) {
    result.tangents()[i] = (result.tangents()[i] + qcRadian(qcRadian::turn / 2)).signedNorm();
  }
}

namespace {

/// How many steps the spacing asks for.
class Spacing {
 public:
  explicit Spacing(const Params& params)
      : spacing_(params.spacing()), perUnit_(1 / params.spacing()), limit_(params.maxPoints() - 1) {}

  long stepsOver(double length) const {
    if (limit_ < 1) throw qcShapesError::SampleOverflow();
    if (spacing_ == 0) return 1;
    // Only near to a whole number does the quotient say another thing than this product, which takes less time.
    const double steps = length * perUnit_;
    if (!(steps < static_cast<double>(limit_))) return stepsFor(length, spacing_, limit_);
    const auto whole = static_cast<long>(steps);
    const double rest = steps - static_cast<double>(whole);
    constexpr double kNear = 1e-5;
    return kNear < rest && rest < 1 - kNear ? whole + 1 : stepsFor(length, spacing_, limit_);
  }

 private:
  double spacing_, perUnit_;
  long limit_;
};

qcVector<2> segmentStep(const qcVector<2>& p1, const qcVector<2>& p2, long steps) {
  return (p2 - p1) / static_cast<double>(steps);
}

}  // namespace

void sampleSegment(SampleWriter& writer, const qcVector<2>& p1, const qcVector<2>& p2) {
  const Params& params = writer.params();
  const std::int32_t piece = writer.takePiece();
  if (p1 == p2) {
    if (params.computeTangents()) throw qcShapesError::NoTangent();
    writer.openChain(false, 1);
    writer.add(p1, qcRadian(), {piece, 0});
    return;
  }
  const double length = segmentLength(p1, p2);
  const long steps = Spacing(params).stepsOver(length);
  const qcVector<2> step = segmentStep(p1, p2, steps);
  const qcRadian tangent = params.computeTangents() ? segmentAngle(p1, p2) : qcRadian();
  writer.openChain(false, steps + 1);
  writer.add(p1, tangent, {piece, 0});  // the step may have overflown
  for (long i = 1; i < steps; ++i) {
    const auto done = static_cast<double>(i);
    writer.add(p1 + done * step, tangent, {piece, done / static_cast<double>(steps) * length});
  }
  writer.add(p2, tangent, {piece, length});
}

void sampleJoined(SampleWriter& writer, const std::vector<qcVector<2>>& vertices, bool closed) {
  constexpr std::size_t kBatch = 64;  // pieces whose points are made room for together
  const Spacing spacing(writer.params());
  std::array<long, kBatch> steps;
  std::vector<qcVector<2>>& positions = writer.result().positions();
  const std::size_t n = vertices.size(), pieces = closed ? n : n - 1;
  const auto end = [&](std::size_t piece) -> const qcVector<2>& { return vertices[piece + 1 < n ? piece + 1 : 0]; };
  writer.openChain(closed, 1);
  for (std::size_t batch = 0; batch < pieces; batch += kBatch) {
    const std::size_t count = std::min(kBatch, pieces - batch);
    writer.takePiece(static_cast<std::int32_t>(count));
    long total = 0;
    for (std::size_t i = 0; i < count; ++i) {
      const qcVector<2>&p1 = vertices[batch + i], &p2 = end(batch + i);
      steps[i] = p1 == p2 ? 0 : spacing.stepsOver(segmentLength(p1, p2));
      total += steps[i];
    }
    writer.makeRoom(total + 1);
    const std::size_t size = positions.size();
    positions.resize(size + static_cast<std::size_t>(total));
    qcVector<2>* to = positions.data() + size;
    for (std::size_t i = 0; i < count; ++i) {
      const qcVector<2>&p1 = vertices[batch + i], &p2 = end(batch + i);
      const qcVector<2> step = segmentStep(p1, p2, steps[i]);
      if (steps[i] > 0) *to++ = p1;  // the step may have overflown
      for (long k = 1; k < steps[i]; ++k) *to++ = p1 + static_cast<double>(k) * step;
    }
  }
  if (!closed) positions.push_back(vertices.back());
}

}  // namespace qc_shapes

void qfUniformSamplePrimitive(const qcShape& shape, const Params& params, Result& result) {
  qc_shapes::SampleWriter writer(params, result);
  qcShapeInfo info;
  const std::int32_t piece = writer.takePiece();
  if (params.enclosingInfo_()) {
    params.enclosingInfo_()->extract_(piece, info);
  } else {
    info = qcShapeInfo(shape);
  }
  const long n = params.maxPoints();
  if (!params.computeTangents() || shape.hasTangent()) {
    writer.openChain(false, n);
    const double step = info.perimeter() / static_cast<double>(n);
    qcVector<2> point;
    qcRadian tangent;
    for (long i = 0; i < n; ++i) {
      const double distance = (static_cast<double>(i) + 0.5) * step;
      shape.perimPointAndTangent_(info, {0, distance}, point, params.computeTangents() ? &tangent : nullptr);
      writer.add(point, tangent, {piece, distance});
    }
  }
  writer.commit();
}

void qfMergeSubchains(const Params& params, int firstChain, bool closed, Result& result) {
  qc_shapes::checkConsistent(params, result);
  if (firstChain < 0 || firstChain > result.numChains()) throw qcShapesError::BadIndex();
  if (firstChain == result.numChains()) return;
  const auto first = static_cast<std::size_t>(firstChain);
  if (!result.isValid_(first)) throw qcShapesError::BadParams();
  if (!params.duplicateCorners()) JointRemover(result, first).run(closed);
  truncate(result.breaks(), first + 1);
  truncate(result.closedFlags(), first + 1);
  result.closedFlags()[first] = closed;
}
