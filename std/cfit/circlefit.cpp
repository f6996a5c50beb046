#include "vnxstd/cfit/circlefit.h"

#include <algorithm>
#include <cmath>

#include "std/cfit/moments.h"
#include "std/cfit/simd.h"
#include "vnxstd/math/solve.h"

using cfit::Wide;

namespace {

const qc_ErrorRegistration<qcLSCircleFitter::Errors, qcLSCircleFitter::UnstableErr> registered;

constexpr double kCondition = 1e14;

struct Sums {
  qc_PointSums points;
  qc_CubicSums cubes;

  void add(const qcVector<2>& p) {
    points.add(p.x(), p.y());
    cubes.add(p.x(), p.y());
  }
};

// Adds the points of even number to one set of sums and the others to a second one: one chain of additions would wait
// for itself.
void addInTwos(Sums& even, Sums& odd, const qcVector<2>* points, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) (i % 2 == 0 ? even : odd).add(points[i]);
}

#if VNXSTD_CFIT_AVX2

// The same, to the bit.
[[gnu::target("avx2")]] void addAvx2(Sums& even, Sums& odd, const qcVector<2>* points, std::size_t count) {
  cfit::Four first{}, second{}, products{}, cubes{}, mixed{};
  for (std::size_t i = 0; i + 1 < count; i += 2) {
    cfit::Four p;  // x, y, x, y
    std::memcpy(&p, points + i, sizeof p);
    const cfit::Four swapped = __builtin_shufflevector(p, p, 1, 0, 3, 2), squares = p * p;
    first += p;
    second += squares;
    products += p * swapped;
    cubes += squares * p;
    mixed += squares * swapped;
  }
  even = {{first[0], first[1], second[0], second[1], products[0]}, {cubes[0], cubes[1], mixed[1], mixed[0]}};
  odd = {{first[2], first[3], second[2], second[3], products[2]}, {cubes[2], cubes[3], mixed[3], mixed[2]}};
  if (count % 2 != 0) even.add(points[count - 1]);
}

#else

constexpr auto addAvx2 = &addInTwos;

#endif

}  // namespace

void qcLSCircleFitter::update(const qcVector<2>* points, std::size_t count) {
  qf_CountPoints<UnstableErr>(n_, count);
  Sums even, odd;
  (cfit::haveAvx2() ? addAvx2 : addInTwos)(even, odd, points, count);
  even.points += odd.points;
  even.cubes += odd.cubes;
  sums_ += even.points;
  cubes_ += even.cubes;
}

qcLSCircleFitter& qcLSCircleFitter::operator+=(const qcLSCircleFitter& other) {
  qf_CountPoints<UnstableErr>(n_, static_cast<std::size_t>(other.n_));
  sums_ += other.sums_;
  cubes_ += other.cubes_;
  return *this;
}

qcCircle qcLSCircleFitter::fit() const {
  if (n_ < 3) throw UnstableErr();
  const qc_PointSums& s = sums_;
  const qcNMMatrix a(3, 3, {s.xx, s.xy, s.x, s.xy, s.yy, s.y, s.x, s.y, static_cast<double>(n_)});
  const qcNMMatrix r(3, 1, {-cubes_.xxx - cubes_.xyy, -cubes_.yyy - cubes_.xxy, -s.xx - s.yy});
  const double bound = std::min(kCondition, static_cast<double>(1 / cfit::rounding(n_)));
  qcNMMatrix solution;
  try {
    double condition = 0;
    solution = qcNMMatrix::solve(a, r, true, condition, bound);
  } catch (const qcNMMatrix::unstableErr&) {
    throw UnstableErr();
  }
  const Wide cx = -0.5L * solution.element(0, 0), cy = -0.5L * solution.element(1, 0);
  const auto radius = static_cast<double>(std::fabs(std::sqrt(cx * cx + cy * cy - solution.element(2, 0))));
  if (!std::isfinite(radius)) throw UnstableErr();
  return {qcVector<2>(static_cast<double>(cx), static_cast<double>(cy)), radius};
}

double qcLSCircleFitter::error(const qcCircle& circle) const {
  const Wide cx = circle.center().x(), cy = circle.center().y(), r = circle.radius();
  const Wide k = cx * cx + cy * cy - r * r;
  const Wide cubes = Wide{cubes_.xxx} + cubes_.yyy + cubes_.xyy + cubes_.xxy;
  return static_cast<double>(cubes + (1 - 2 * cx) * sums_.xx + (1 - 2 * cy) * sums_.yy - 2 * (cx + cy) * sums_.xy +
                             (k - 2 * cx) * sums_.x + (k - 2 * cy) * sums_.y + n_ * k);
}

qcLSCircleFitter operator*(const qcXform<2>& xform, const qcLSCircleFitter& fitter) {
  const qc_PointSums& s = fitter.sums_;
  const qc_CubicSums& t = fitter.cubes_;
  const cfit::Matrix3 h = cfit::homogeneous(xform);
  // The moments of the mapped points, weighted by the unmapped x, y and 1.
  const cfit::Matrix3 byX =
      cfit::mapped(h, cfit::Matrix3{{{t.xxx, t.xxy, s.xx}, {t.xxy, t.xyy, s.xy}, {s.xx, s.xy, s.x}}});
  const cfit::Matrix3 byY =
      cfit::mapped(h, cfit::Matrix3{{{t.xxy, t.xyy, s.xy}, {t.xyy, t.yyy, s.yy}, {s.xy, s.yy, s.y}}});
  const cfit::Matrix3 by1 = cfit::mapped(h, cfit::moments(s, fitter.n_));
  const auto cube = [&](std::size_t i, std::size_t j, std::size_t k) {
    return static_cast<double>(cfit::dot(h[i], {byX[j][k], byY[j][k], by1[j][k]}));
  };
  qcLSCircleFitter result = fitter;
  result.sums_ = cfit::pointSums(by1);
  result.cubes_ = {cube(0, 0, 0), cube(1, 1, 1), cube(0, 1, 1), cube(0, 0, 1)};
  return result;
}
