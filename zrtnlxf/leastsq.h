// Least squares by orthogonal transformations: rows are taken in one by one, whatever their number, and only a triangle
// is kept.
#pragma once

#include <cstddef>
#include <vector>

namespace zrtnlxf {

/// The triangle R of the QR factorisation of a matrix whose rows arrive one after the other, by Givens rotations (Golub
/// and Van Loan, "Matrix Computations", 5.1.8 and 5.2.5).
class Triangle {
 public:
  /// Throws std::bad_alloc.
  explicit Triangle(std::size_t columns) : columns_(columns), elements_(columns * columns) {}

  /// Takes in one row of as many numbers as there are columns, which it destroys.
  void add(double* row) noexcept;

  double at(std::size_t row, std::size_t column) const noexcept { return elements_[row * columns_ + column]; }

 private:
  std::size_t columns_;
  std::vector<double> elements_;
};

/// The singular values of the first `columns` rows and columns of a triangle, and the vectors on its right, by
/// one-sided Jacobi rotations (Golub and Van Loan, 8.6.3). Small singular values come out as exactly as large ones.
struct SingularValues {
  /// Throws std::bad_alloc.
  SingularValues(const Triangle& triangle, std::size_t columns);

  std::vector<double> values;                // in no order
  std::vector<std::vector<double>> vectors;  // unit vectors v_i
};

}  // namespace zrtnlxf
