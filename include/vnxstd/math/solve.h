// Quadratic equations and small dense systems of linear equations.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// Finds the distinct real roots of a*x*x + b*x + c = 0 and returns their number. Of two roots `first` is the one of
/// smaller magnitude, of two opposite ones the negative. A single root (a double one, or that of the linear equation
/// when `a` is 0) is stored in both. Without a root (also when a and b are 0, or a coefficient is not finite) 0 is
/// returned and both are left alone.
///
/// Roots are accurate to a few units in the last place, however far apart or close together they are: the larger is
/// found without cancellation, the smaller from their product, and the discriminant by Kahan's method ("On the cost of
/// floating-point computation without extra-precise arithmetic", 2004). Nothing overflows on the way; a root beyond the
/// range of double is infinite, one below it 0.
VNXSTD_EXPORT int qfSolveQuadratic(double a, double b, double c, double& first, double& second);

/// A small dense matrix of doubles, of any number of rows and columns. A value.
class VNXSTD_EXPORT qcNMMatrix {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// A system of equations has no solution that can be relied upon.
  class VNXSTD_EXPORT unstableErr : public qc_ErrorLeaf<unstableErr, Errors, 2> {};

  /// Without elements.
  qcNMMatrix() = default;
  /// All zeros. Throws std::bad_alloc when there is no room.
  qcNMMatrix(std::size_t rows, std::size_t columns);
  /// The elements row by row. Throws qcInvariantFailure unless there are rows * columns of them.
  qcNMMatrix(std::size_t rows, std::size_t columns, std::vector<double> elements);
  qcNMMatrix(const qcNMMatrix&) = default;
  /// Leaves the other matrix without elements.
  qcNMMatrix(qcNMMatrix&& other) noexcept { swap(other); }
  /// Throws std::bad_alloc when there is no room for a copy; the matrix is then as it was.
  qcNMMatrix& operator=(qcNMMatrix other) noexcept {
    swap(other);
    return *this;
  }
  ~qcNMMatrix() = default;

  std::size_t rows() const noexcept { return rows_; }
  std::size_t columns() const noexcept { return columns_; }

  /// The element of a row and a column, counted from 0. Throws qcInvariantFailure outside the matrix.
  double element(std::size_t row, std::size_t column) const { return elements_[index(row, column)]; }
  void element(std::size_t row, std::size_t column, double value) { elements_[index(row, column)] = value; }

  friend bool operator==(const qcNMMatrix&, const qcNMMatrix&) = default;

  /// Solves A * X = r, every column of `r` a right-hand side, by Gaussian elimination with partial pivoting in
  /// extended precision (long double). With `equilibrate`, the rows and then the columns of A are first scaled by
  /// powers of two to a largest element between 1 and 2, which takes the units of the unknowns out of the matter
  /// (Golub and Van Loan, "Matrix Computations", 3.5.2).
  ///
  /// `condition` receives the condition number in the 1-norm of the matrix that is factored, the equilibrated one where
  /// that was asked for: how much relative errors of the elements may grow. It is computed from the inverse, not
  /// estimated; infinite for a singular matrix. Throws unstableErr, after setting it, when it is not at most `bound`;
  /// also when A is empty or not square, `r` has another number of rows, or an element or the solution is not finite.
  /// Costs in proportion to the third power of the number of rows.
  static qcNMMatrix solve(const qcNMMatrix& A, const qcNMMatrix& r, bool equilibrate, double& condition, double bound);

 private:
  void swap(qcNMMatrix& other) noexcept {
    std::swap(rows_, other.rows_);
    std::swap(columns_, other.columns_);
    elements_.swap(other.elements_);
  }
  std::size_t index(std::size_t row, std::size_t column) const;

  std::size_t rows_ = 0;
  std::size_t columns_ = 0;
  std::vector<double> elements_;
};
