#include "vnxstd/cfit/pointlinefit.h"

#include <algorithm>
#include <cmath>

#include "std/cfit/moments.h"
#include "vnxstd/math/rigid.h"
#include "vnxstd/math/solve.h"

using cfit::Matrix3;
using cfit::Vector3;
using cfit::Wide;
using UnstableErr = qcLSPointToLineFitter::UnstableErr;

namespace {

const qc_ErrorRegistration<qcLSPointToLineFitter::Errors, qcLSPointToLineFitter::UnstableErr,
                           qcLSPointToLineFitter::BadArgErr>
    registered;

constexpr double kCondition = 1e14;

void require(bool determined) {
  if (!determined) throw UnstableErr();
}

Matrix3 moments(const qc_WeightedSums& s) { return {{{s.xx, s.xy, s.x}, {s.xy, s.yy, s.y}, {s.x, s.y, s.w}}}; }

qc_WeightedSums weightedSums(const Matrix3& m) {
  return {static_cast<double>(m[2][2]), static_cast<double>(m[0][2]), static_cast<double>(m[1][2]),
          static_cast<double>(m[0][0]), static_cast<double>(m[1][1]), static_cast<double>(m[0][1])};
}

// The sum of squared distances as a function of N parameters x: x * matrix * x - 2 * right * x + constant.
template <std::size_t N>
struct Quadratic {
  std::array<std::array<Wide, N>, N> matrix{};
  std::array<Wide, N> right{};
  Wide constant = 0;

  // The same as a function of fewer parameters y, where x = basis * y.
  template <std::size_t M>
  Quadratic<M> restricted(const int (&basis)[N][M]) const {
    Quadratic<M> result;
    result.constant = constant;
    for (std::size_t i = 0; i < N; ++i) {
      for (std::size_t k = 0; k < M; ++k) {
        result.right[k] += basis[i][k] * right[i];
        for (std::size_t j = 0; j < N; ++j) {
          for (std::size_t l = 0; l < M; ++l) result.matrix[k][l] += basis[i][k] * basis[j][l] * matrix[i][j];
        }
      }
    }
    return result;
  }

  Wide at(const std::array<Wide, N>& x) const {
    Wide value = constant;
    for (std::size_t i = 0; i < N; ++i) {
      Wide product = -2 * right[i];
      for (std::size_t j = 0; j < N; ++j) product += matrix[i][j] * x[j];
      value += product * x[i];
    }
    return value;
  }

  std::array<double, N> minimum(Wide n) const {
    qcNMMatrix a(N, N), r(N, 1);
    for (std::size_t i = 0; i < N; ++i) {
      for (std::size_t j = 0; j < N; ++j) a.element(i, j, static_cast<double>(matrix[i][j]));
      r.element(i, 0, static_cast<double>(right[i]));
    }
    std::array<double, N> x;
    try {
      double condition = 0;
      const double bound = std::min(kCondition, static_cast<double>(1 / cfit::rounding(n)));
      const qcNMMatrix solution = qcNMMatrix::solve(a, r, true, condition, bound);
      for (std::size_t i = 0; i < N; ++i) x[i] = solution.element(i, 0);
    } catch (const qcNMMatrix::unstableErr&) {
      throw UnstableErr();
    }
    return x;
  }
};

// In the parameters a, b, tx, c, d, ty of (a*x + b*y + tx, c*x + d*y + ty).
Quadratic<6> affine(const qc_PointLineSums& s) {
  const Matrix3 xx = moments(s.xx), xy = moments(s.xy), yy = moments(s.yy);
  Quadratic<6> result;
  result.constant = s.dd;
  for (std::size_t i = 0; i < 3; ++i) {
    result.right[i] = s.dx[i];
    result.right[i + 3] = s.dy[i];
    for (std::size_t j = 0; j < 3; ++j) {
      result.matrix[i][j] = xx[i][j];
      result.matrix[i][j + 3] = result.matrix[i + 3][j] = xy[i][j];
      result.matrix[i + 3][j + 3] = yy[i][j];
    }
  }
  return result;
}

// In the parameters a, b, tx, ty of (a*x - b*y + tx, b*x + a*y + ty).
Quadratic<4> similarity(const qc_PointLineSums& s) {
  constexpr int kBasis[6][4] = {{1, 0, 0, 0}, {0, -1, 0, 0}, {0, 0, 1, 0}, {0, 1, 0, 0}, {1, 0, 0, 0}, {0, 0, 0, 1}};
  return affine(s).restricted(kBasis);
}

// The translation that is best for a given rotation: inverse(between) * (right - mixed * (cos, sin)).
class Translation {
 public:
  Translation(const Quadratic<4>& q, Wide unit) : q_(q) {
    const auto& m = q.matrix;
    const Wide product = m[2][2] * m[3][3];
    determinant_ = product - m[2][3] * m[3][2];
    require(determinant_ > (cfit::kRank + 2 * unit) * product);  // else the lines are parallel
    growth_ = product / determinant_;
  }

  // The best (tx, ty) where the right-hand side of their equations is (rx, ry).
  std::array<Wide, 2> solve(Wide rx, Wide ry) const {
    const auto& m = q_.matrix;
    return {(m[3][3] * rx - m[2][3] * ry) / determinant_, (m[2][2] * ry - m[3][2] * rx) / determinant_};
  }
  std::array<Wide, 2> at(Wide c, Wide s) const {
    const auto& m = q_.matrix;
    return solve(q_.right[2] - m[2][0] * c - m[2][1] * s, q_.right[3] - m[3][0] * c - m[3][1] * s);
  }

  // How much eliminating the translation enlarges rounding errors.
  Wide growth() const { return growth_; }

  // What is left for the rotation.
  Quadratic<2> eliminated() const {
    Quadratic<2> result;
    const std::array<Wide, 2> constant = solve(q_.right[2], q_.right[3]);
    for (std::size_t i = 0; i < 2; ++i) {
      const auto& row = q_.matrix[i];
      result.right[i] = q_.right[i] - row[2] * constant[0] - row[3] * constant[1];
      for (std::size_t j = 0; j < 2; ++j) {
        const std::array<Wide, 2> column = solve(q_.matrix[2][j], q_.matrix[3][j]);
        result.matrix[i][j] = q_.matrix[i][j] - row[2] * column[0] - row[3] * column[1];
      }
    }
    return result;
  }

 private:
  const Quadratic<4>& q_;
  Wide determinant_ = 0, growth_ = 0;
};

// The unit vector w at which w * H * w - 2 * g * w is least; `lost` is the rounding error of H and g. With multiplier
// m, (H + m) * w = g, and H + m has no negative eigenvalue at the global minimum. In the frame of the eigenvectors,
// with x = m + the smaller eigenvalue and `gap` between the two, the length of w is 1 where (g1 / x)^2 + (g2 / (x +
// gap))^2 = 1; the left side falls from x = 0 on.
std::array<Wide, 2> unitMinimum(const Quadratic<2>& f, Wide lost) {
  const Wide half = 0.5L * (f.matrix[0][0] - f.matrix[1][1]), mixed = f.matrix[0][1];
  const Wide gap = 2 * std::hypot(half, mixed);
  const Wide turn = 0.5L * std::atan2(mixed, half);
  const Wide c = std::cos(turn), s = std::sin(turn);  // (c, s) belongs to the larger eigenvalue, (-s, c) to the smaller
  const Wide g1 = c * f.right[1] - s * f.right[0], g2 = c * f.right[0] + s * f.right[1];

  std::array<Wide, 2> w{};
  Wide curvature = 0;  // half the second derivative along the unit circle
  if (std::fabs(g1) <= lost && std::fabs(g2) < gap) {
    // Two minima, mirrored on the larger eigenvector: take the one nearer to no rotation.
    const Wide w2 = g2 / gap, w1 = (s > 0 ? -1 : 1) * std::sqrt((1 - w2) * (1 + w2));
    w = {c * w2 - s * w1, s * w2 + c * w1};
    curvature = gap * w1 * w1;
  } else {
    Wide low = std::max(std::fabs(g1), std::fabs(g2) - gap), high = std::hypot(g1, g2);
    constexpr int kBisections = 80;  // of the exponent range first, then of the digits
    Wide x = high;
    for (int i = 0; i < kBisections && low < high; ++i) {
      x = std::sqrt(low * high);
      const Wide w1 = g1 / x, w2 = g2 / (x + gap);
      (w1 * w1 + w2 * w2 > 1 ? low : high) = x;
    }
    const Wide w1 = g1 / x, w2 = g2 / (x + gap), length = std::hypot(w1, w2);
    w = {(c * w2 - s * w1) / length, (s * w2 + c * w1) / length};
    curvature = x + gap * w1 * w1;
  }
  require(curvature > cfit::kRank * (std::fabs(f.matrix[0][0]) + std::fabs(f.matrix[1][1])) + lost);
  return w;
}

qcXform<2> fitRigid(const qc_PointLineSums& sums, Wide n) {
  const Quadratic<4> q = similarity(sums);
  const Wide unit = cfit::rounding(n);
  const Translation translation(q, unit);
  const Wide squares = q.matrix[0][0] + q.matrix[1][1];  // of the points
  const Wide lost = unit * translation.growth() * (squares + std::sqrt(squares * q.constant));
  const std::array<Wide, 2> w = unitMinimum(translation.eliminated(), lost);
  qc2Rigid rigid(qcDegree(static_cast<double>(std::atan2(w[1], w[0])) * qcDegree::perRadian), qcVector<2>());
  const std::array<Wide, 2> t = translation.at(rigid.cosAngle(), rigid.sinAngle());
  rigid.trans({static_cast<double>(t[0]), static_cast<double>(t[1])});
  return rigid.linear();
}

bool allFinite(const qc_PointLineSums& s) {
  const auto finite = [](const qc_WeightedSums& w) { return cfit::allFinite(w.w, w.x, w.y, w.xx, w.yy, w.xy); };
  return finite(s.xx) && finite(s.xy) && finite(s.yy) && cfit::allFinite(s.dx[0], s.dx[1], s.dx[2], s.dd) &&
         cfit::allFinite(s.dy[0], s.dy[1], s.dy[2]);
}

qcXform<2> checked(const qcXform<2>& xform) {
  const qcMatrix<2>& m = xform.matrix();
  require(cfit::allFinite(m.element(0, 0), m.element(0, 1), m.element(1, 0), m.element(1, 1), xform.trans().x(),
                          xform.trans().y()));
  return xform;
}

}  // namespace

qcLSPointToLineFitter::qcLSPointToLineFitter(const std::vector<qcFLine>& lines,
                                             const std::vector<qcVector<2>>& points) {
  if (lines.size() != points.size()) throw BadArgErr();
  for (std::size_t i = 0; i < lines.size(); ++i) update(lines[i], points[i]);
}

void qcLSPointToLineFitter::update(const qcFLine& line, const qcVector<2>* points, std::size_t count) {
  qf_CountPoints<UnstableErr>(n_, count);
  for (std::size_t i = 0; i < count; ++i) {
    sums_.add(-line.sinAngle(), line.cosAngle(), line.distance(), points[i].x(), points[i].y());
  }
}

qcLSPointToLineFitter& qcLSPointToLineFitter::operator+=(const qcLSPointToLineFitter& other) {
  qf_CountPoints<UnstableErr>(n_, static_cast<std::size_t>(other.n_));
  sums_ += other.sums_;
  return *this;
}

qcXform<2> qcLSPointToLineFitter::fit(int degreesOfFreedom) const {
  if (degreesOfFreedom != 3 && degreesOfFreedom != 4 && degreesOfFreedom != 6) throw BadArgErr();
  require(n_ >= degreesOfFreedom && allFinite(sums_));
  if (degreesOfFreedom == 3) return checked(fitRigid(sums_, n_));
  if (degreesOfFreedom == 4) {
    const std::array<double, 4> x = similarity(sums_).minimum(n_);
    return checked({qcMatrix<2>(x[0], -x[1], x[1], x[0]), qcVector<2>(x[2], x[3])});
  }
  const std::array<double, 6> x = affine(sums_).minimum(n_);
  return checked({qcMatrix<2>(x[0], x[1], x[3], x[4]), qcVector<2>(x[2], x[5])});
}

double qcLSPointToLineFitter::error(const qcXform<2>& xform) const {
  const Matrix3 h = cfit::homogeneous(xform);
  return cfit::notNegative(affine(sums_).at({h[0][0], h[0][1], h[0][2], h[1][0], h[1][1], h[1][2]}));
}

qcLSPointToLineFitter operator*(const qcXform<2>& xform, const qcLSPointToLineFitter& fitter) {
  const Matrix3 h = cfit::homogeneous(xform);
  qcLSPointToLineFitter result = fitter;
  qc_PointLineSums& s = result.sums_;
  for (qc_WeightedSums* sums : {&s.xx, &s.xy, &s.yy}) *sums = weightedSums(cfit::mapped(h, moments(*sums)));
  for (double* sums : {s.dx, s.dy}) {
    const Vector3 image = cfit::mapped(h, Vector3{sums[0], sums[1], sums[2]});
    for (std::size_t i = 0; i < 3; ++i) sums[i] = static_cast<double>(image[i]);
  }
  return result;
}
