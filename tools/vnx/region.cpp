#include "region.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include <vnxstd/archive/archive.h>
#include <vnxstd/math/solve.h>

#include "numbers.h"
#include "wrongcall.h"

namespace {

constexpr double kInfinite = std::numeric_limits<double>::infinity();

// The part of a line, counted in lengths of its direction.
struct Span {
  double first = -kInfinite, last = kInfinite;
  bool isEmpty() const { return !(first < last); }
  void cut(const Span& other) {
    first = std::max(first, other.first);
    last = std::min(last, other.last);
  }
};

constexpr Span kNothing{kInfinite, -kInfinite};

// A rectangle is an affine image of the unit square, an ellipse one of the unit disc.
qcXform<2> fromUnit(const qcShape& outline) {
  if (const auto* rect = dynamic_cast<const qcRect*>(&outline))
    return {qcMatrix<2>(rect->width(), 0, 0, rect->height()), rect->origin()};
  if (const auto* affine = dynamic_cast<const qcAffineRectangle*>(&outline)) return affine->affRectFromUnitSq();
  return dynamic_cast<const qcEllipse2&>(outline).unitCircleMap();
}

// Slabs of the unit square: Liang and Barsky 1984.
Span acrossSquare(const qcVector<2>& p, const qcVector<2>& d) {
  Span span;
  for (const int axis : {0, 1}) {
    if (d[axis] == 0 && !(0 <= p[axis] && p[axis] <= 1)) return kNothing;
    if (d[axis] == 0) continue;
    const double a = -p[axis] / d[axis], b = (1 - p[axis]) / d[axis];
    span.cut({std::min(a, b), std::max(a, b)});
  }
  return span;
}

Span acrossDisc(const qcVector<2>& p, const qcVector<2>& d) {
  double a = 0, b = 0;
  if (qfSolveQuadratic(d * d, 2 * (p * d), p * p - 1, a, b) != 2) return kNothing;
  return {std::min(a, b), std::max(a, b)};
}

// Where the line p + t * d runs inside an outline.
Span chord(const qcShape& outline, const qcVector<2>& p, const qcVector<2>& d) {
  const qcXform<2> unit = fromUnit(outline);
  if (unit.isSingular()) return kNothing;
  const bool isRound = dynamic_cast<const qcEllipse2*>(&outline) != nullptr;
  return (isRound ? acrossDisc : acrossSquare)(unit.invMapPoint(p), unit.invMapVector(d));
}

template <class... Classes>
bool isOneOf(const qcShape* shape) {
  return (... || (dynamic_cast<const Classes*>(shape) != nullptr));
}

[[noreturn]] void refuse(const std::string& text) {
  throw WrongCall(
      "--roi takes X,Y,W,H, affine:X,Y,W,H,ANGLE,SKEW, ring:X,Y,R1,R2 or oval:X,Y,A,B,ANGLE,WIDTH: finite numbers with "
      "commas between them, lengths above 0, R1 below R2, WIDTH below twice A and B, SKEW below a right angle; not \"" +
      text + '"');
}

Region upright(const std::vector<double>& n) { return qcRect({n[0], n[1]}, {n[2], n[3]}); }

Region affine(const std::vector<double>& n) {
  const auto angle = [&](std::size_t i) { return qcRadian(qcDegree(i < n.size() ? n[i] : 0)); };
  return qcAffineRectangle({n[0], n[1]}, n[2], n[3], angle(4), angle(5));
}

Region ring(const std::vector<double>& n) {
  const auto circle = [&](double radius) {
    return qcEllipse2({n[0], n[1]}, qcRadian(0), {radius, radius}, true, qcRadian(0));
  };
  return {circle(n[2]), circle(n[3])};
}

Region oval(const std::vector<double>& n) {
  const auto ellipse = [&](double by) {
    return qcEllipse2({n[0], n[1]}, qcRadian(qcDegree(n[4])), {n[2] + by, n[3] + by}, true, qcRadian(0));
  };
  return {ellipse(-n[5] / 2), ellipse(n[5] / 2)};
}

}  // namespace

Region Region::parsed(const std::string& text) {
  const std::size_t colon = text.find(':');
  const std::string kind = colon == std::string::npos ? "" : text.substr(0, colon);
  const auto read = readNumbers(std::string_view(text).substr(colon == std::string::npos ? 0 : colon + 1));
  if (!read) refuse(text);
  const std::vector<double>& n = *read;
  const auto takes = [&](const char* name, std::size_t fewest, std::size_t most) {
    return kind == name && n.size() >= fewest && n.size() <= most && n[2] > 0 && n[3] > 0;
  };
  std::optional<Region> region;
  try {
    if (takes("", 4, 4)) region = upright(n);
    if (takes("affine", 5, 6)) region = affine(n);
    if (takes("ring", 4, 4) && n[2] < n[3]) region = ring(n);
    if (takes("oval", 6, 6) && 0 < n[5] && n[5] < 2 * std::min(n[2], n[3])) region = oval(n);
  } catch (const qcException&) {  // a skew of a right angle, sizes that overflow
  }
  if (!region) refuse(text);
  const qcRect box = region->outline().boundingBox();
  const double area = fromUnit(region->outline()).matrix().determinant();
  if (!std::isfinite(box.lr().x()) || !std::isfinite(box.lr().y()) || !std::isfinite(area) || area == 0) refuse(text);
  return *region;
}

bool Region::contains(const qcVector<2>& p) const { return outline_->within(p) && !(isRing() && hole_->within(p)); }

qcVector<2> Region::centre() const {
  const qcXform<2> unit = fromUnit(*outline_);
  return isRing() ? unit.trans() : unit * qcVector<2>(0.5, 0.5);
}

std::vector<Chain> Region::outlines() const {
  constexpr double kDrawn = 0.05;  // pixels
  std::vector<Chain> chains = chainsOf(*outline_, kDrawn);
  if (isRing()) chains.push_back(chainsOf(*hole_, kDrawn).front());
  return chains;
}

qcEllipse2 Region::middle() const {
  const auto& outer = dynamic_cast<const qcEllipse2&>(*outline_);
  const auto& inner = dynamic_cast<const qcEllipse2&>(*hole_);
  return {outer.center(), outer.angle(), (outer.radii() + inner.radii()) * 0.5, true, qcRadian(0)};
}

Region Region::within(const qcRect& window) const {
  if (const auto* rect = dynamic_cast<const qcRect*>(outline_.rep())) return *rect & window;
  return *this;
}

std::vector<ScanLine> Region::across(const qcRect& window, int scans, bool alongRows) const {
  const qcXform<2> unit = fromUnit(*outline_);
  const qcVector<2> x = unit.mapVector({1, 0}), y = unit.mapVector({0, 1});
  const qcVector<2> along = alongRows ? x : y, aside = alongRows ? y : x;
  std::vector<ScanLine> lines;
  for (int i = 0; i < scans; ++i) {
    const qcVector<2> from = unit.trans() + aside * ((i + 0.5) / scans);
    Span span{0, 1};
    span.cut(chord(window, from, along));
    if (!span.isEmpty()) lines.push_back({from + along * span.first, from + along * span.last});
  }
  return lines;
}

std::optional<ScanLine> Region::ray(const qcRect& window, const qcVector<2>& from, const qcVector<2>& through,
                                    double skip) const {
  const double length = from.distance(through);
  if (!(length > 0)) return std::nullopt;
  const qcVector<2> u = (through - from) / length;
  Span span{skip, kInfinite};
  span.cut(chord(*outline_, from, u));
  span.cut(chord(window, from, u));
  if (isRing()) {
    const Span hole = chord(*hole_, from, u);
    if (hole.first <= span.first) span.first = std::max(span.first, hole.last);
    if (hole.first > span.first) span.last = std::min(span.last, hole.first);
  }
  if (span.isEmpty()) return std::nullopt;
  return ScanLine{from + u * span.first, from + u * span.last};
}

qcArchive& operator||(qcArchive& archive, Region& region) {
  Region read = region;
  archive || read.outline_ || read.hole_;
  if (archive.isStoring()) return archive;
  const qcShape *outline = read.outline_.rep(), *hole = read.hole_.rep();
  const bool isGood =
      hole ? isOneOf<qcEllipse2>(outline) && isOneOf<qcEllipse2>(hole) : isOneOf<qcRect, qcAffineRectangle>(outline);
  if (!isGood) throw qcArchive::BadContent("tools/vnx/region", 177);
  region = read;
  return archive;
}
