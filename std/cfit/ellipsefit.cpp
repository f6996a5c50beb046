#include "vnxstd/cfit/ellipsefit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numbers>
#include <optional>

#include "std/cfit/moments.h"
#include "vnxstd/math/solve.h"
#include "vnxstd/shapes/errors.h"

using cfit::Matrix3;
using cfit::Vector3;
using cfit::Wide;

namespace {

constexpr int kSteps = 50;
constexpr double kConverged = 1e-15;  // of the sum of squares: what a step gains no more than that is rounding
constexpr double kFirstDamping = 1e-6, kLargestDamping = 1e6;

// The points about their mean, in units of their root mean square distance from it.
struct Normalised {
  std::vector<qcVector<2>> points;
  qcXform<2> back;

  explicit Normalised(const std::vector<qcVector<2>>& from) {
    if (from.size() < 5) throw qcShapesError::BadCoef();
    Wide x = 0, y = 0, squares = 0;
    for (const qcVector<2>& p : from) {
      x += p.x();
      y += p.y();
    }
    const auto n = static_cast<Wide>(from.size());
    const qcVector<2> mean(static_cast<double>(x / n), static_cast<double>(y / n));
    for (const qcVector<2>& p : from) {
      const Wide dx = static_cast<Wide>(p.x()) - mean.x(), dy = static_cast<Wide>(p.y()) - mean.y();
      squares += dx * dx + dy * dy;
    }
    const auto unit = static_cast<double>(std::sqrt(squares / n));
    if (!std::isfinite(unit) || unit < std::numeric_limits<double>::min()) throw qcShapesError::BadCoef();
    for (const qcVector<2>& p : from) points.push_back((p - mean) / unit);
    back = {qcMatrix<2>(unit, 0, 0, unit), mean};
  }
};

Vector3 cross(const Vector3& a, const Vector3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
Wide squared(const Vector3& v) { return v[0] * v[0] + v[1] * v[1] + v[2] * v[2]; }

Wide determinant(const Matrix3& m) {
  const Vector3 c = cross(m[1], m[2]);
  return m[0][0] * c[0] + m[0][1] * c[1] + m[0][2] * c[2];
}

// S - t * C, C the quadratic form 4 * xx * yy - xy^2.
Matrix3 pencil(Matrix3 s, Wide t) {
  s[0][2] -= 2 * t;
  s[2][0] -= 2 * t;
  s[1][1] += t;
  return s;
}

// The vector v with (S - t * C) v = 0 for the one t that is not negative: S has no negative direction and C has one
// positive, so that all three t are real. Newton's method from above falls on the largest without passing it.
std::optional<Vector3> constrainedMinimum(const Matrix3& s) {
  // det(S - t * C) is the cubic 4 * (t^3 - ...): its other coefficients by its values.
  const Wide c0 = determinant(s), up = determinant(pencil(s, 1)), down = determinant(pencil(s, -1));
  const Wide c3 = -4, c2 = (up + down) / 2 - c0, c1 = (up - down) / 2 - c3;
  const Wide norm = std::sqrt(squared(s[0]) + squared(s[1]) + squared(s[2]));
  Wide t = 2 * norm;  // no t is above the norm of the inverse of C, 1 or less, times that of S
  for (int i = 0; i < 200; ++i) {
    const Wide f = ((c3 * t + c2) * t + c1) * t + c0, slope = (3 * c3 * t + 2 * c2) * t + c1;
    if (f >= 0 || slope >= 0) break;
    const Wide next = t - f / slope;
    if (!(next < t)) break;
    t = next;
  }
  const Matrix3 m = pencil(s, std::max<Wide>(t, 0));
  Vector3 best = cross(m[0], m[1]);
  for (const Vector3& other : {cross(m[1], m[2]), cross(m[2], m[0])})
    if (squared(other) > squared(best)) best = other;
  // A second direction without resistance: fewer than five different points.
  if (!(std::sqrt(squared(best)) > cfit::kRank * norm * norm)) return std::nullopt;
  return best;
}

qcEllipse2 direct(const std::vector<qcVector<2>>& points) {
  // Sums of products of (x^2, xy, y^2) among themselves and with (x, y, 1).
  Matrix3 quadratic{}, mixed{};
  Wide xx = 0, xy = 0, yy = 0;
  for (const qcVector<2>& p : points) {
    const Wide x = p.x(), y = p.y();
    const Vector3 second{x * x, x * y, y * y}, first{x, y, 1};
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t k = 0; k < 3; ++k) {
        quadratic[i][k] += second[i] * second[k];
        mixed[i][k] += second[i] * first[k];
      }
    xx += second[0];
    xy += second[1];
    yy += second[2];
  }
  const auto n = static_cast<Wide>(points.size());
  const Wide spread = xx * yy - xy * xy;
  if (!(spread > cfit::kRank * xx * yy)) throw qcShapesError::BadCoef();  // on one line
  // The best linear part for each quadratic one; what is left of the sums is a form in the quadratic part alone. The
  // mean is the origin, which leaves no products of x or y with 1.
  Matrix3 linear{};
  for (std::size_t i = 0; i < 3; ++i)
    linear[i] = {(xy * mixed[i][1] - yy * mixed[i][0]) / spread, (xy * mixed[i][0] - xx * mixed[i][1]) / spread,
                 -mixed[i][2] / n};
  Matrix3 s = quadratic;
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t k = 0; k < 3; ++k)
      for (std::size_t j = 0; j < 3; ++j) s[i][k] += mixed[i][j] * linear[k][j];
  const auto conic = constrainedMinimum(s);
  if (!conic) throw qcShapesError::BadCoef();
  Vector3 rest{};
  for (std::size_t j = 0; j < 3; ++j)
    for (std::size_t k = 0; k < 3; ++k) rest[j] += linear[k][j] * (*conic)[k];
  const Wide scale = std::sqrt(squared(*conic));
  const auto coefficient = [scale](Wide value) { return static_cast<double>(value / scale); };
  return {coefficient((*conic)[0]), coefficient((*conic)[1]), coefficient((*conic)[2]),
          coefficient(rest[0]),     coefficient(rest[1]),     coefficient(rest[2])};
}

// Normal equations of one step: unknowns are the shift of the centre and the strains xx, yy and 2 * xy of the circle.
struct Equations {
  static constexpr std::size_t kUnknowns = 5;
  std::array<std::array<double, kUnknowns>, kUnknowns> matrix{};
  std::array<double, kUnknowns> right{};
  double squares = 0;
};

Equations equations(const qcEllipse2& ellipse, const std::vector<qcVector<2>>& points) {
  Equations result;
  const qc2XformLinear fromCircle = ellipse.unitCircleMap();
  for (const qcVector<2>& p : points) {
    const qcVector<2> foot = ellipse.nearestPoint(p);
    const qcRadian phi = ellipse.phi(foot);
    const qcVector<2> u(1, phi), normal = -qcVector<2>(1, ellipse.tangent(phi)).perpendicular();
    const double height = normal * fromCircle.mapVector(u), distance = normal * (p - foot);
    const std::array<double, Equations::kUnknowns> row{normal.x(), normal.y(), height * u.x() * u.x(),
                                                       height * u.y() * u.y(), height * u.x() * u.y()};
    for (std::size_t i = 0; i < row.size(); ++i) {
      for (std::size_t k = 0; k < row.size(); ++k) result.matrix[i][k] += row[i] * row[k];
      result.right[i] += row[i] * distance;
    }
    result.squares += distance * distance;
  }
  return result;
}

std::optional<qcEllipse2> stepped(const qcEllipse2& ellipse, const Equations& equations, double damping) {
  qcNMMatrix matrix(Equations::kUnknowns, Equations::kUnknowns), right(Equations::kUnknowns, 1);
  for (std::size_t i = 0; i < Equations::kUnknowns; ++i) {
    for (std::size_t k = 0; k < Equations::kUnknowns; ++k)
      matrix.element(i, k, equations.matrix[i][k] * (i == k ? 1 + damping : 1));
    right.element(i, 0, equations.right[i]);
  }
  try {
    double condition = 0;
    const qcNMMatrix step = qcNMMatrix::solve(matrix, right, true, condition, 1e15);
    const double shear = step.element(4, 0) / 2;
    const qcMatrix<2> strain(1 + step.element(2, 0), shear, shear, 1 + step.element(3, 0));
    if (!(strain.determinant() > 0) || !(strain.element(0, 0) > 0)) return std::nullopt;  // turned inside out
    const qc2XformLinear fromCircle = ellipse.unitCircleMap();
    return qcEllipse2(qc2XformLinear(fromCircle.matrix() * strain,
                                     fromCircle.trans() + qcVector<2>(step.element(0, 0), step.element(1, 0))));
  } catch (const qcNMMatrix::unstableErr&) {
  } catch (const qcShapesError::Errors&) {
  }
  return std::nullopt;
}

qcEllipse2 refined(qcEllipse2 ellipse, const std::vector<qcVector<2>>& points) {
  Equations now = equations(ellipse, points);
  double damping = kFirstDamping;
  for (int i = 0; i < kSteps && damping <= kLargestDamping; ++i) {
    const auto next = stepped(ellipse, now, damping);
    if (!next || next->isDegenerate()) {
      damping *= 10;
      continue;
    }
    const Equations there = equations(*next, points);
    if (!(there.squares < now.squares)) {
      if (there.squares <= now.squares * (1 + kConverged)) break;
      damping *= 10;
      continue;
    }
    const bool isConverged = there.squares >= now.squares * (1 - kConverged);
    ellipse = *next;
    now = there;
    damping = std::max(damping / 10, 1e-12);
    if (isConverged) break;
  }
  return ellipse;
}

qcEllipse2 canonical(const qcEllipse2& ellipse, const qcXform<2>& back) {
  const qcEllipse2 mapped = ellipse.map(back);
  double angle = mapped.angle().plain(), first = mapped.radii().x(), second = mapped.radii().y();
  if (first < second) {
    std::swap(first, second);
    angle += std::numbers::pi / 2;
  }
  angle -= std::numbers::pi * std::floor(angle / std::numbers::pi + 0.5);
  if (!std::isfinite(first) || !(second > 0)) throw qcShapesError::BadCoef();
  return {mapped.center(), qcRadian(angle), {first, second}, true, qcRadian(0)};
}

}  // namespace

qcEllipse2 qfFitEllipseDirect(const std::vector<qcVector<2>>& points) {
  const Normalised normalised(points);
  return canonical(direct(normalised.points), normalised.back);
}

qcEllipse2 qfFitEllipse(const std::vector<qcVector<2>>& points) {
  const Normalised normalised(points);
  return canonical(refined(direct(normalised.points), normalised.points), normalised.back);
}
