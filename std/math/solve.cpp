#include "vnxstd/math/solve.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory_resource>
#include <new>
#include <numeric>
#include <utility>

namespace {

const qc_ErrorRegistration<qcNMMatrix::Errors, qcNMMatrix::unstableErr> registered;

using Extended = long double;
using Numbers = std::pmr::vector<Extended>;

// b*b - 4*a*c. Where the two terms cancel, their rounding errors, which fma gives exactly, decide.
double discriminant(double a, double b, double c) {
  const double p = b * b, q = 4 * a * c;
  const double difference = p - q;
  if (3 * std::fabs(difference) >= p + std::fabs(q)) return difference;
  return difference + (std::fma(b, b, -p) - std::fma(4 * a, c, -q));
}

// The factors L and U of a matrix with its rows in the order of their pivots.
class Factors {
 public:
  Factors(Numbers elements, std::size_t n)
      : n_(n),
        lu_(std::move(elements)),
        order_(n, lu_.get_allocator()),
        work_(n, lu_.get_allocator()),
        reciprocal_(n, lu_.get_allocator()) {
    std::iota(order_.begin(), order_.end(), std::size_t{0});
    for (std::size_t k = 0; k < n_ && !singular_; ++k) eliminate(k);
  }

  bool singular() const { return singular_; }

  // Solves for one right-hand side, in place.
  void solve(Numbers& x) {
    for (std::size_t i = 0; i < n_; ++i) work_[i] = x[order_[i]];
    for (std::size_t i = 0; i < n_; ++i) {
      x[i] = work_[i] - dot(i, 0, i, x);
    }
    for (std::size_t i = n_; i-- > 0;) {
      x[i] = (x[i] - dot(i, i + 1, n_, x)) * reciprocal_[i];
    }
  }

 private:
  Extended& at(std::size_t row, std::size_t column) { return lu_[row * n_ + column]; }

  Extended dot(std::size_t row, std::size_t from, std::size_t to, const Numbers& x) {
    Extended sum = 0;
    for (std::size_t j = from; j < to; ++j) sum += at(row, j) * x[j];
    return sum;
  }

  void eliminate(std::size_t k) {
    std::size_t pivot = k;
    for (std::size_t i = k + 1; i < n_; ++i) {
      if (std::fabs(at(i, k)) > std::fabs(at(pivot, k))) pivot = i;
    }
    singular_ = at(pivot, k) == 0;
    if (singular_) return;
    if (pivot != k) {
      std::swap_ranges(&at(k, 0), &at(k, 0) + n_, &at(pivot, 0));
      std::swap(order_[k], order_[pivot]);
    }
    reciprocal_[k] = 1 / at(k, k);
    for (std::size_t i = k + 1; i < n_; ++i) {
      const Extended factor = at(i, k) *= reciprocal_[k];
      for (std::size_t j = k + 1; j < n_; ++j) at(i, j) -= factor * at(k, j);
    }
  }

  std::size_t n_;
  Numbers lu_;
  std::pmr::vector<std::size_t> order_;
  Numbers work_;
  Numbers reciprocal_;  // of the pivots
  bool singular_ = false;
};

// Scales the lines of a matrix, which start `start` apart and whose elements lie `step` apart, to a largest element
// between 1 and 2; gives their factors, powers of two. A line of zeros stays.
Numbers scale(Numbers& elements, std::size_t n, std::size_t start, std::size_t step) {
  Numbers factors(n, 1, elements.get_allocator());
  for (std::size_t i = 0; i < n; ++i) {
    Extended largest = 0;
    for (std::size_t j = 0; j < n; ++j) largest = std::max(largest, std::fabs(elements[i * start + j * step]));
    if (largest == 0) continue;
    int exponent = 0;
    factors[i] = 2 * std::frexp(largest, &exponent) / largest;  // exact: the digits are the same
    for (std::size_t j = 0; j < n; ++j) elements[i * start + j * step] *= factors[i];
  }
  return factors;
}

// The largest sum of magnitudes in a column, and the same of the inverse.
Extended norm(const Numbers& elements, std::size_t n) {
  Extended largest = 0;
  for (std::size_t j = 0; j < n; ++j) {
    Extended sum = 0;
    for (std::size_t i = 0; i < n; ++i) sum += std::fabs(elements[i * n + j]);
    largest = std::max(largest, sum);
  }
  return largest;
}

Extended normOfInverse(Factors& factors, Numbers& column) {
  const std::size_t n = column.size();
  Extended largest = 0;
  for (std::size_t j = 0; j < n; ++j) {
    std::fill(column.begin(), column.end(), Extended{0});
    column[j] = 1;
    factors.solve(column);
    Extended sum = 0;
    for (const Extended& value : column) sum += std::fabs(value);
    if (!(sum <= largest)) largest = sum;
    if (std::isnan(largest)) break;
  }
  return largest;
}

// As a double; beyond its range, and for NaN, infinity.
double narrowed(Extended value) {
  constexpr Extended most = std::numeric_limits<double>::max();
  return std::fabs(value) <= most ? static_cast<double>(value) : std::numeric_limits<double>::infinity();
}

}  // namespace

int qfSolveQuadratic(double a, double b, double c, double& first, double& second) {
  if (!std::isfinite(a) || !std::isfinite(b) || !std::isfinite(c) || (a == 0 && b == 0)) return 0;
  if (a == 0 || (b == 0 && c == 0)) {
    first = second = a == 0 && c != 0 ? -c / b : 0;
    return 1;
  }
  if (c == 0) {
    first = 0;
    second = -b / a;
    return 2;
  }
  // With x = y * 2^k the outer coefficients get the same size, and their product can neither overflow nor vanish.
  const int scaleA = std::ilogb(a);
  const int k = (std::ilogb(c) - scaleA) / 2;
  constexpr int kFarApart = 200;  // the roots differ by a factor beyond 2^400: neither feels the other
  if (b != 0 && std::ilogb(b) - k - scaleA > kFarApart) {
    first = -c / b;
    second = -b / a;
    return 2;
  }
  const double sa = std::scalbn(a, -scaleA), sb = std::scalbn(b, -k - scaleA);
  const double sc = std::scalbn(c, -2 * k - scaleA);
  const double d = discriminant(sa, sb, sc);
  if (d < 0) return 0;
  if (d == 0) {
    first = second = std::scalbn(-sb / (2 * sa), k);
    return 1;
  }
  double larger = -std::sqrt(-sc / sa), smaller = -larger;
  if (sb != 0) {
    const double q = -0.5 * (sb + std::copysign(std::sqrt(d), sb));
    larger = q / sa;
    smaller = sc / q;
  }
  if (std::fabs(larger) < std::fabs(smaller) || (larger < 0 && larger == -smaller)) std::swap(larger, smaller);
  first = std::scalbn(smaller, k);
  second = std::scalbn(larger, k);
  return 2;
}

qcNMMatrix::qcNMMatrix(std::size_t rows, std::size_t columns) : rows_(rows), columns_(columns) {
  if (columns != 0 && rows > elements_.max_size() / columns) throw std::bad_alloc();
  elements_.resize(rows * columns);
}

qcNMMatrix::qcNMMatrix(std::size_t rows, std::size_t columns, std::vector<double> elements)
    : rows_(rows), columns_(columns), elements_(std::move(elements)) {
  const std::size_t count = elements_.size();
  const bool fits = columns == 0 || rows == 0 ? count == 0 : count / columns == rows && count % columns == 0;
  if (!fits) throw qcInvariantFailure();
}

std::size_t qcNMMatrix::index(std::size_t row, std::size_t column) const {
  if (row >= rows_ || column >= columns_) throw qcInvariantFailure();
  return row * columns_ + column;
}

qcNMMatrix qcNMMatrix::solve(const qcNMMatrix& A, const qcNMMatrix& r, bool equilibrate, double& condition,
                             double bound) {
  condition = std::numeric_limits<double>::infinity();
  const auto finite = [](double value) { return std::isfinite(value); };
  const std::size_t n = A.rows_;
  if (n == 0 || A.columns_ != n || r.rows_ != n || !std::ranges::all_of(A.elements_, finite) ||
      !std::ranges::all_of(r.elements_, finite)) {
    throw unstableErr();
  }
  std::array<std::byte, 2560> local;  // enough for systems of up to eight unknowns
  std::pmr::monotonic_buffer_resource memory(local.data(), local.size());
  Numbers scaled(A.elements_.begin(), A.elements_.end(), &memory), x(n, &memory);
  Numbers rowScale(n, 1, &memory), columnScale(n, 1, &memory);
  if (equilibrate) {
    rowScale = scale(scaled, n, n, 1);
    columnScale = scale(scaled, n, 1, n);
  }
  const Extended size = norm(scaled, n);
  Factors factors(std::move(scaled), n);
  if (!factors.singular()) condition = narrowed(size * normOfInverse(factors, x));
  if (!(condition <= bound) || std::isinf(condition)) throw unstableErr();

  qcNMMatrix result(n, r.columns_);
  for (std::size_t j = 0; j < r.columns_; ++j) {
    for (std::size_t i = 0; i < n; ++i) x[i] = r.element(i, j) * rowScale[i];
    factors.solve(x);
    for (std::size_t i = 0; i < n; ++i) {
      const double value = narrowed(x[i] * columnScale[i]);
      if (!finite(value)) throw unstableErr();
      result.element(i, j, value);
    }
  }
  return result;
}
