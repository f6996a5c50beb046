#include "zrtnlxf/leastsq.h"

#include <cmath>
#include <limits>
#include <numeric>

namespace zrtnlxf {

namespace {

constexpr int kMaxSweeps = 40;  // ten are usual; what is not finite never ends

double dot(const std::vector<double>& a, const std::vector<double>& b) {
  return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

void rotate(std::vector<double>& a, std::vector<double>& b, double c, double s) {
  for (std::size_t i = 0; i < a.size(); ++i) {
    const double first = a[i];
    a[i] = c * first - s * b[i];
    b[i] = s * first + c * b[i];
  }
}

}  // namespace

void Triangle::add(double* row) noexcept {
  for (std::size_t k = 0; k < columns_; ++k) {
    if (row[k] == 0) continue;
    double* const mine = &elements_[k * columns_];
    const double length = std::hypot(mine[k], row[k]);
    const double c = mine[k] / length, s = row[k] / length;
    mine[k] = length;
    for (std::size_t j = k + 1; j < columns_; ++j) {
      const double above = mine[j];
      mine[j] = c * above + s * row[j];
      row[j] = c * row[j] - s * above;
    }
  }
}

SingularValues::SingularValues(const Triangle& triangle, std::size_t columns)
    : values(columns), vectors(columns, std::vector<double>(columns)) {
  std::vector<std::vector<double>> images = vectors;  // of the vectors, which become orthogonal to each other
  for (std::size_t j = 0; j < columns; ++j) {
    vectors[j][j] = 1;
    for (std::size_t i = 0; i <= j; ++i) images[j][i] = triangle.at(i, j);
  }
  bool rotated = true;
  for (int sweep = 0; rotated && sweep < kMaxSweeps; ++sweep) {
    rotated = false;
    for (std::size_t p = 0; p + 1 < columns; ++p) {
      for (std::size_t q = p + 1; q < columns; ++q) {
        const double pp = dot(images[p], images[p]), qq = dot(images[q], images[q]), pq = dot(images[p], images[q]);
        if (std::fabs(pq) <= std::numeric_limits<double>::epsilon() * std::sqrt(pp) * std::sqrt(qq)) continue;
        rotated = true;
        const double zeta = (qq - pp) / (2 * pq);
        const double t = std::copysign(1 / (std::fabs(zeta) + std::hypot(1.0, zeta)), zeta);
        const double c = 1 / std::hypot(1.0, t), s = c * t;
        rotate(images[p], images[q], c, s);
        rotate(vectors[p], vectors[q], c, s);
      }
    }
  }
  for (std::size_t j = 0; j < columns; ++j) values[j] = std::sqrt(dot(images[j], images[j]));
}

}  // namespace zrtnlxf
