// Sums of products of doubles without rounding, for what depends on a sign.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

#include "vnxstd/math/vector.h"

namespace qc_shapes {

/// A sum of doubles and of products of two doubles, exact unless something overflows or underflows: an expansion of
/// parts that do not overlap (J. R. Shewchuk, "Adaptive precision floating-point arithmetic and fast robust geometric
/// predicates", 1997). It holds up to kParts terms, a product counting for two.
class ExactSum {
 public:
  void add(double term);
  void addProduct(double a, double b);

  /// 1, 0 or -1; 0 when the sum is no number.
  int sign() const;
  /// The sum, but for its last bits.
  double value() const;
  /// The integers next below and above the sum.
  double floor() const;
  double ceil() const;

 private:
  static constexpr int kParts = 16;

  // The largest part, and the sign of the rest, which is smaller than the last bit of that part.
  double leading() const { return size_ > 0 ? parts_[static_cast<std::size_t>(size_ - 1)] : 0; }
  int signOfRest() const;

  std::array<double, kParts> parts_;  // by growing magnitude, none of them 0
  int size_ = 0;
};

/// The same as orientation, but 0 also where rounding could matter.
inline int clearOrientation(const qcVector<2>& a, const qcVector<2>& b, const qcVector<2>& p) {
  // Shewchuk's bound of what rounding can do to the difference of the products, and a little for what underflows.
  constexpr double kEpsilon = std::numeric_limits<double>::epsilon() / 2, kBound = (3 + 16 * kEpsilon) * kEpsilon;
  const double left = (a.x() - p.x()) * (b.y() - p.y()), right = (a.y() - p.y()) * (b.x() - p.x());
  const double difference = left - right;
  const double error = kBound * (std::fabs(left) + std::fabs(right)) + std::numeric_limits<double>::min();
  return static_cast<int>(difference > error) - static_cast<int>(-difference > error);
}

/// The same as orientation, the long way.
int exactOrientation(const qcVector<2>& a, const qcVector<2>& b, const qcVector<2>& p);

/// On which side of the line from `a` to `b` the point `p` lies: 1 on the left, -1 on the right, 0 on the line itself.
/// Exact for finite coordinates whose magnitudes span less than 1e140.
inline int orientation(const qcVector<2>& a, const qcVector<2>& b, const qcVector<2>& p) {
  const int side = clearOrientation(a, b, p);
  return side != 0 ? side : exactOrientation(a, b, p);
}

/// Which part of the way from `a` to `b` leads up to the line through `u` and `v`, which has these on different sides:
/// but for the last bits, however flat the angle is.
double exactCrossing(const qcVector<2>& a, const qcVector<2>& b, const qcVector<2>& u, const qcVector<2>& v);

}  // namespace qc_shapes
