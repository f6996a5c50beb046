#include "std/shapes/exact.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <numeric>
#include <utility>

namespace qc_shapes {
namespace {

int signOf(double value) { return (value > 0) - (value < 0); }

double largestOf(std::initializer_list<qcVector<2>> points) {
  double largest = 0;
  for (const qcVector<2>& v : points) largest = std::max({largest, std::fabs(v.x()), std::fabs(v.y())});
  return largest;
}

// Scaled by a power of two, so that the products of coordinates up to `largest` do not leave the range.
ExactSum determinant(const qcVector<2>& a, const qcVector<2>& b, const qcVector<2>& p, double largest) {
  const int exponent = -std::ilogb(largest);
  const auto scaled = [exponent](const qcVector<2>& v) {
    return qcVector<2>(std::ldexp(v.x(), exponent), std::ldexp(v.y(), exponent));
  };
  const qcVector<2> u = scaled(a), v = scaled(b), w = scaled(p);
  ExactSum sum;
  for (const auto& [from, to] : {std::pair(&u, &v), std::pair(&v, &w), std::pair(&w, &u)}) {
    sum.addProduct(from->x(), to->y());
    sum.addProduct(-from->y(), to->x());
  }
  return sum;
}

}  // namespace

void ExactSum::add(double term) {
  int kept = 0;
  for (int i = 0; i < size_; ++i) {
    const double part = parts_[static_cast<std::size_t>(i)], sum = term + part;
    const double ofPart = sum - term;
    const double lost = (term - (sum - ofPart)) + (part - ofPart);
    if (lost != 0) parts_[static_cast<std::size_t>(kept++)] = lost;
    term = sum;
  }
  if (term != 0) parts_[static_cast<std::size_t>(kept++)] = term;
  size_ = kept;
}

void ExactSum::addProduct(double a, double b) {
  const double product = a * b;
  add(std::fma(a, b, -product));
  add(product);
}

int ExactSum::sign() const { return signOf(leading()); }

// The smallest first: the rest can be half as large as the leading part.
double ExactSum::value() const { return std::accumulate(parts_.begin(), parts_.begin() + size_, 0.0); }

int ExactSum::signOfRest() const { return size_ > 1 ? signOf(parts_[static_cast<std::size_t>(size_ - 2)]) : 0; }

// The rest reaches an integer only from one: it is smaller than any fraction that the leading part has.
double ExactSum::floor() const {
  const double whole = std::floor(leading());
  return whole == leading() && signOfRest() < 0 ? whole - 1 : whole;
}

double ExactSum::ceil() const {
  const double whole = std::ceil(leading());
  return whole == leading() && signOfRest() > 0 ? whole + 1 : whole;
}

int exactOrientation(const qcVector<2>& a, const qcVector<2>& b, const qcVector<2>& p) {
  const double largest = largestOf({a, b, p});
  return largest > 0 && std::isfinite(largest) ? determinant(a, b, p, largest).sign() : 0;
}

double exactCrossing(const qcVector<2>& a, const qcVector<2>& b, const qcVector<2>& u, const qcVector<2>& v) {
  const double largest = largestOf({a, b, u, v});
  const double before = std::fabs(determinant(u, v, a, largest).value());
  const double after = std::fabs(determinant(u, v, b, largest).value());
  return before / (before + after);
}

}  // namespace qc_shapes
