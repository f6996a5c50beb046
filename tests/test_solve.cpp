// Quadratic equations against exact integer discriminants, dense systems against integer solutions and published
// condition numbers.

#include "support/test.h"
#include "vnxstd/math/solve.h"

namespace {

using Wide = long double;
using Roots = std::vector<double>;
using Matrix = qcNMMatrix;
using Unstable = qcNMMatrix::unstableErr;
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kMax = std::numeric_limits<double>::max();
constexpr double kTiny = std::numeric_limits<double>::denorm_min();

Roots solved(double a, double b, double c) {
  double first = kNan, second = kNan;
  const int count = qfSolveQuadratic(a, b, c, first, second);
  EXPECT_TRUE(count != 1 || first == second);
  return count == 0 ? Roots{} : count == 1 ? Roots{first} : Roots{first, second};
}

TEST(Quadratic, DegenerateAndExtremeEquations) {
  EXPECT_EQ(solved(0, 0, 0), Roots{});
  EXPECT_EQ(solved(0, 2, -3), Roots{1.5});
  EXPECT_EQ(solved(1, kNan, 1), Roots{});
  EXPECT_EQ(solved(0, 1, kInf), Roots{});
  EXPECT_EQ(solved(kMax, 0, -kMax), (Roots{-1, 1}));
  EXPECT_EQ(solved(kTiny, -3 * kTiny, 2 * kTiny), (Roots{1, 2}));
  EXPECT_EQ(solved(kTiny, 1, kTiny), (Roots{-kTiny, -kInf}));
}

// With integer coefficients the discriminant is an exact integer, however nearly its terms cancel. Powers of two change
// no digit: roots scale exactly as the coefficients do, at any exponent.
TEST(Quadratic, RandomIntegersAgainstExactDiscriminants) {
  std::mt19937_64 engine(1);
  const auto integer = [&](int bits) { return static_cast<std::int64_t>(engine()) >> (63 - bits) | 1; };
  std::uniform_int_distribution<int> shift(-480, 480);
  int counts[3] = {};
  for (int round = 0; round < 20000; ++round) {
    std::int64_t a = integer(1 + round % 29), c = integer(1 + round % 28), b = integer(1 + round % 30);
    if (round % 2) {  // b*b next to 4*a*c, where plain arithmetic sees nothing but rounding
      c = a < 0 ? -std::abs(c) : std::abs(c);
      b = static_cast<std::int64_t>(2 * std::sqrt(static_cast<double>(a * c))) + round / 2 % 3 - 1;
    }
    const std::int64_t d = b * b - 4 * a * c;
    const int size = shift(engine), unit = shift(engine) / 2;
    const auto scaled = [](std::int64_t value, int by) { return std::ldexp(static_cast<double>(value), by); };
    Roots roots = solved(scaled(a, size), scaled(b, size + unit), scaled(c, size + 2 * unit));
    for (double& root : roots) root = std::ldexp(root, -unit);
    ASSERT_EQ(roots.size(), d < 0 ? 0 : d == 0 ? 1 : 2) << a << " " << b << " " << c;
    ++counts[roots.size()];
    if (roots.empty() || b == 0) continue;
    const Wide q = -(Wide(b) + std::copysign(std::sqrt(Wide(d)), Wide(b))) / 2;
    ASSERT_LE(std::fabs(roots.front() * q / Wide(c) - 1), 1e-15L);
    ASSERT_LE(std::fabs(roots.back() * Wide(a) / q - 1), 1e-15L);
  }
  EXPECT_GT(std::min(counts[0], counts[2]), 4000);
  EXPECT_GT(counts[1], 10);
}

// Rows and columns in other units change nothing where the matrix is equilibrated, and make it hopeless where not.
TEST(DenseSystem, FindsIntegerSolutionsInAnyUnits) {
  std::mt19937 engine(3);
  std::uniform_int_distribution<int> digit(-9, 9), exponent(100, 300);
  for (std::size_t round = 0; round < 300; ++round) {
    const std::size_t n = 2 + round % 7;
    Matrix A(n, n), r(n, 1);
    std::vector<int> x(n);  // the unknowns, and the exponents of their units
    for (std::size_t j = 0; j < n; ++j) x[j] = j % 2 ? exponent(engine) : -exponent(engine);
    for (std::size_t i = 0; i < n; ++i) {
      const int rowUnit = exponent(engine) - 200;
      for (std::size_t j = 0; j < n; ++j) {
        const int element = digit(engine) + (j == (i + 1) % n ? 70 : 10);
        A.element(i, j, std::ldexp(element, rowUnit + x[j]));
        r.element(i, 0, r.element(i, 0) + std::ldexp(element * x[j], rowUnit));
      }
    }
    double condition = 0;
    const Matrix found = Matrix::solve(A, r, true, condition, 1e3);
    for (std::size_t i = 0; i < n; ++i) ASSERT_NEAR(std::ldexp(found.element(i, 0), x[i]), x[i], 1e-12);
    EXPECT_THROW(Matrix::solve(A, r, false, condition, 1e14), Unstable);
  }
  double condition = 0;  // without pivoting, the second equation would lose all its digits
  EXPECT_EQ(Matrix::solve(Matrix(2, 2, {1e-25, 1, 1, 1}), Matrix(2, 1, {1, 2}), false, condition, 10),
            Matrix(2, 1, {1, 1}));
}

// The condition numbers of Hilbert's matrices in the 1-norm are published.
TEST(DenseSystem, MeasuresAndBoundsTheCondition) {
  const double published[] = {1, 27, 748, 28375, 943656, 29070279, 985194889.719848};
  for (std::size_t n = 1; n <= std::size(published); ++n) {
    const double expected = published[n - 1];
    Matrix A(n, n);
    for (std::size_t k = 0; k < n * n; ++k) A.element(k / n, k % n, 1 / static_cast<double>(k / n + k % n + 1));
    double condition = 0;
    EXPECT_NO_THROW(Matrix::solve(A, Matrix(n, 1), false, condition, expected * 1.001));
    EXPECT_THROW(Matrix::solve(A, Matrix(n, 1), false, condition = 0, expected * 0.999), Unstable);
    EXPECT_NEAR(condition / expected, 1, 1e-6) << n;
  }
}

TEST(DenseSystem, RefusesWhatHasNoReliableSolution) {
  const Matrix one(1, 1, {1}), two(2, 1, {1, 2});
  double condition = 0;
  const auto refused = [&](const Matrix& A, const Matrix& r, double bound) {
    EXPECT_THROW(Matrix::solve(A, r, true, condition, bound), Unstable);
    EXPECT_THROW(Matrix::solve(A, r, false, condition, bound), Unstable);
  };
  refused(Matrix(2, 2), two, kInf);
  EXPECT_EQ(condition, kInf);
  refused(Matrix(2, 2, {0.1, 0.3, 0.7, 2.1}), two, 1e14);
  refused(Matrix(2, 2, {1, 0, kNan, 1}), two, 1e14);
  refused(Matrix(2, 3, {1, 0, 0, 0, 1, 0}), two, 1e14);
  refused(one, one, kNan);
  refused(one, Matrix(1, 1, {kInf}), 1e14);
  refused(Matrix(1, 1, {1e-300}), Matrix(1, 1, {1e300}), 1e14);
  EXPECT_THROW(one.element(0, 1), qcInvariantFailure);
  EXPECT_THROW(Matrix(SIZE_MAX / 2 + 1, 2), std::bad_alloc);
  Matrix from(two);
  const Matrix to(std::move(from));
  EXPECT_THROW(from.element(0, 0), qcInvariantFailure);  // NOLINT(bugprone-use-after-move): empty, as documented
  EXPECT_EQ(to, two);
}

}  // namespace
