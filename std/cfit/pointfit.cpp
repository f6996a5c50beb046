#include "vnxstd/cfit/pointfit.h"

#include <cmath>

#include "std/cfit/moments.h"
#include "std/cfit/simd.h"
#include "vnxstd/math/rigid.h"
#include "vnxstd/math/solve.h"

using cfit::Wide;
using UnstableErr = qcLSPointToPointFitter::UnstableErr;

namespace {

const qc_ErrorRegistration<qcLSPointToPointFitter::Errors, qcLSPointToPointFitter::UnstableErr,
                           qcLSPointToPointFitter::BadArgErr>
    registered;

void addOneByOne(qc_PairSums& sums, const qcVector<2>* p, const qcVector<2>* q, std::size_t count) {
  qc_PairSums local = sums;  // of which no one else has the address: it stays in registers
  for (std::size_t i = 0; i < count; ++i) local.add(p[i].x(), p[i].y(), q[i].x(), q[i].y());
  sums = local;
}

#if VNXSTD_CFIT_AVX2

// Four sums to a register, each of them taken in the same order as above: half the time.
[[gnu::target("avx2")]] void addAvx2(qc_PairSums& sums, const qcVector<2>* p, const qcVector<2>* q, std::size_t count) {
  cfit::Four first = {sums.p.x, sums.p.y, sums.q.x, sums.q.y};
  cfit::Four byPx = {sums.p.xx, sums.p.xy, sums.qxpx, sums.qypx};
  cfit::Four byPy = {0, sums.p.yy, sums.qxpy, sums.qypy};
  cfit::Two byQx = {sums.q.xx, sums.q.xy};
  double qyqy = sums.q.yy;
  for (std::size_t i = 0; i < count; ++i) {
    const cfit::Two second = cfit::load(q[i]);
    const cfit::Four pair = __builtin_shufflevector(cfit::load(p[i]), second, 0, 1, 2, 3);
    first += pair;
    byPx += p[i].x() * pair;
    byPy += p[i].y() * pair;
    byQx += q[i].x() * second;
    qyqy += q[i].y() * q[i].y();
  }
  sums.p = {first[0], first[1], byPx[0], byPy[1], byPx[1]};
  sums.q = {first[2], first[3], byQx[0], qyqy, byQx[1]};
  sums.qxpx = byPx[2];
  sums.qypx = byPx[3];
  sums.qxpy = byPy[2];
  sums.qypy = byPy[3];
}

#else

constexpr auto addAvx2 = &addOneByOne;

#endif

void require(bool determined) {
  if (!determined) throw UnstableErr();
}

Wide quotient(Wide numerator, Wide denominator) {
  require(std::fabs(denominator) > std::fabs(numerator) * cfit::kQuotient);
  return numerator / denominator;
}

// The sums about the means, and how far rounding may have moved them.
struct Centred {
  const qc_PairSums& sums;
  Wide n;
  Wide unit;                // what centring may lose, relative to the sums
  Wide sxx, sxy, syy;       // of qx*qx, qx*qy, qy*qy
  Wide pSpread;             // of px*px + py*py
  Wide cxx, cxy, cyx, cyy;  // of qx*px, qy*px, qx*py, qy*py

  Centred(const qc_PairSums& s, Wide count) : sums(s), n(count), unit(cfit::centring(count)) {
    require(cfit::allFinite(s.p) && cfit::allFinite(s.q) && cfit::allFinite(s.qxpx, s.qypx, s.qxpy, s.qypy));
    const auto centred = [this](Wide product, Wide a, Wide b) { return product - a * b / n; };
    sxx = centred(s.q.xx, s.q.x, s.q.x);
    sxy = centred(s.q.xy, s.q.x, s.q.y);
    syy = centred(s.q.yy, s.q.y, s.q.y);
    pSpread = centred(s.p.xx, s.p.x, s.p.x) + centred(s.p.yy, s.p.y, s.p.y);
    cxx = centred(s.qxpx, s.p.x, s.q.x);
    cxy = centred(s.qypx, s.p.x, s.q.y);
    cyx = centred(s.qxpy, s.p.y, s.q.x);
    cyy = centred(s.qypy, s.p.y, s.q.y);
  }

  Wide pSquares() const { return Wide{sums.p.xx} + sums.p.yy; }
  Wide qSquares() const { return Wide{sums.q.xx} + sums.q.yy; }

  // n times the sums of the dot and of the cross products of q and p.
  Wide dot() const { return n * (cxx + cyy); }
  Wide cross() const { return n * (cyx - cxy); }

  // Requires second points that spread along both axes; gives the rounding of sxx * syy - sxy * sxy, relative to
  // sxx * syy, where the points are nearly on one line: that of all three factors.
  Wide spread() const {
    require(sxx > unit * sums.q.xx && syy > unit * sums.q.yy);
    const Wide root = std::sqrt(sums.q.xx / sxx) + std::sqrt(sums.q.yy / syy);
    return unit * root * root;
  }

  // The transform with that matrix which maps the mean of q onto the mean of p.
  qcXform<2> through(Wide a, Wide b, Wide c, Wide d) const {
    const qcMatrix<2> m(static_cast<double>(a), static_cast<double>(b), static_cast<double>(c), static_cast<double>(d));
    const auto shift = [&](Wide p, int row) {
      return static_cast<double>((p - m.element(row, 0) * Wide{sums.q.x} - m.element(row, 1) * Wide{sums.q.y}) / n);
    };
    const qcVector<2> t(shift(sums.p.x, 0), shift(sums.p.y, 1));
    require(cfit::allFinite(m.element(0, 0), m.element(0, 1), m.element(1, 0), m.element(1, 1), t.x(), t.y()));
    return {m, t};
  }
};

qcXform<2> fitRigid(const Centred& s) {
  const Wide dot = s.dot(), cross = s.cross();
  require(std::fabs(dot) > cfit::kQuotient || std::fabs(cross) > cfit::kQuotient);
  const Wide lost =
      cfit::kRank * std::sqrt((s.sxx + s.syy) * s.pSpread) + s.unit * std::sqrt(s.qSquares() * s.pSquares());
  require(std::hypot(dot, cross) > s.n * lost);
  const auto angle = static_cast<double>(std::atan2(cross, dot));
  qc2Rigid rigid(qcDegree(angle * qcDegree::perRadian), qcVector<2>());
  rigid.trans(s.through(rigid.cosAngle(), -rigid.sinAngle(), rigid.sinAngle(), rigid.cosAngle()).trans());
  return rigid.linear();
}

qcXform<2> fitSimilarity(const Centred& s) {
  const Wide denominator = s.n * (s.sxx + s.syy);
  require(denominator > s.n * s.unit * s.qSquares());
  const Wide a = quotient(s.dot(), denominator);
  const Wide b = quotient(s.cross(), denominator);
  return s.through(a, -b, b, a);
}

// The columns of the matrix are kept perpendicular by a multiplier, which solves q*m^2 + linear*m + q*sxx*syy = 0. With
// m = y * sqrt(sxx * syy) the equation loses its unit: ratio*y^2 + y + ratio = 0. No coefficient can overflow then.
qcXform<2> fitPerpendicular(const Centred& s) {
  require(s.pSpread > 0);
  const Wide lost = s.spread() + s.unit * s.pSquares() / s.pSpread;
  const Wide q = s.cxy * s.cxx + s.cyy * s.cyx;
  const Wide linear = (s.cxx * s.cxx + s.cyx * s.cyx) * s.syy + (s.cxy * s.cxy + s.cyy * s.cyy) * s.sxx;
  const Wide size = std::sqrt(s.sxx * s.syy);
  require(linear > 0);
  const auto ratio = static_cast<double>(q * size / linear);
  double y = 0, other = 0;
  require(qfSolveQuadratic(ratio, 1, ratio, y, other) > 0);
  const Wide multiplier = y * size;
  const Wide denominator = s.sxx * s.syy - multiplier * multiplier;
  // It vanishes together with the discriminant, as its root: half the digits are lost there.
  require(denominator > std::sqrt(cfit::kRank + lost) * s.sxx * s.syy);
  const Wide a = quotient(multiplier * s.cxy + s.cxx * s.syy, denominator);
  const Wide b = quotient(s.cxy * s.sxx + multiplier * s.cxx, denominator);
  const Wide c = quotient(s.cyx * s.syy + multiplier * s.cyy, denominator);
  const Wide d = quotient(s.cyy * s.sxx + multiplier * s.cyx, denominator);
  return s.through(a, b, c, d);
}

qcXform<2> fitAffine(const Centred& s) {
  const Wide lost = s.spread();
  const Wide denominator = s.sxx * s.syy - s.sxy * s.sxy;
  require(denominator > (cfit::kRank + lost) * s.sxx * s.syy);
  const Wide a = quotient(s.cxx * s.syy - s.cxy * s.sxy, denominator);
  const Wide b = quotient(s.cxy * s.sxx - s.cxx * s.sxy, denominator);
  const Wide c = quotient(s.cyx * s.syy - s.cyy * s.sxy, denominator);
  const Wide d = quotient(s.cyy * s.sxx - s.cyx * s.sxy, denominator);
  return s.through(a, b, c, d);
}

}  // namespace

qcLSPointToPointFitter::qcLSPointToPointFitter(const std::vector<qcVector<2>>& first,
                                               const std::vector<qcVector<2>>& second) {
  if (first.size() != second.size()) throw BadArgErr();
  update(first.data(), second.data(), first.size());
}

void qcLSPointToPointFitter::update(const qcVector<2>* p, const qcVector<2>* q, std::size_t count) {
  qf_CountPoints<UnstableErr>(n_, count);
  (cfit::haveAvx2() ? addAvx2 : addOneByOne)(sums_, p, q, count);
}

qcLSPointToPointFitter& qcLSPointToPointFitter::operator+=(const qcLSPointToPointFitter& other) {
  qf_CountPoints<UnstableErr>(n_, static_cast<std::size_t>(other.n_));
  sums_ += other.sums_;
  return *this;
}

qcXform<2> qcLSPointToPointFitter::fit(int degreesOfFreedom) const {
  if (degreesOfFreedom < 3 || degreesOfFreedom > 6) throw BadArgErr();
  require(n_ >= (degreesOfFreedom <= 4 ? 2 : 3));
  const Centred centred(sums_, n_);
  switch (degreesOfFreedom) {
    case 3:
      return fitRigid(centred);
    case 4:
      return fitSimilarity(centred);
    case 5:
      return fitPerpendicular(centred);
    default:
      return fitAffine(centred);
  }
}

double qcLSPointToPointFitter::error(const qcXform<2>& xform) const {
  const qc_PairSums& s = sums_;
  const Wide a = xform.matrix().element(0, 0), b = xform.matrix().element(0, 1);
  const Wide c = xform.matrix().element(1, 0), d = xform.matrix().element(1, 1);
  const Wide tx = xform.trans().x(), ty = xform.trans().y();
  return cfit::notNegative((a * a + c * c) * s.q.xx + (b * b + d * d) * s.q.yy + 2 * (a * b + c * d) * s.q.xy +
                           2 * (a * tx + c * ty) * s.q.x + 2 * (b * tx + d * ty) * s.q.y -
                           2 * (tx * s.p.x + ty * s.p.y) - 2 * (a * s.qxpx + b * s.qypx + c * s.qxpy + d * s.qypy) +
                           n_ * (tx * tx + ty * ty) + s.p.xx + s.p.yy);
}

qcLSPointToPointFitter operator*(const qcXform<2>& xform, const qcLSPointToPointFitter& fitter) {
  const qc_PairSums& s = fitter.sums_;
  const Wide n = fitter.n_;
  const cfit::Matrix3 h = cfit::homogeneous(xform);
  const cfit::Matrix3 cross =
      cfit::mapped(h, cfit::Matrix3{{{s.qxpx, s.qxpy, s.q.x}, {s.qypx, s.qypy, s.q.y}, {s.p.x, s.p.y, n}}});
  qcLSPointToPointFitter result = fitter;
  result.sums_ = {cfit::pointSums(cfit::mapped(h, cfit::moments(s.p, n))),
                  cfit::pointSums(cfit::mapped(h, cfit::moments(s.q, n))),
                  static_cast<double>(cross[0][0]),
                  static_cast<double>(cross[1][0]),
                  static_cast<double>(cross[0][1]),
                  static_cast<double>(cross[1][1])};
  return result;
}
