// Lengths along ellipses.
#pragma once

namespace qc_shapes {

/// Carlson's symmetric elliptic integrals of the first and second kind, for arguments of at least 0 of which at most
/// one (for the second, not the last) is 0. To full precision, in about ten square roots.
/// B. C. Carlson, Numerical computation of real or complex elliptic integrals, Numerical Algorithms 10 (1995), 13-26.
double carlsonRF(double x, double y, double z);
double carlsonRD(double x, double y, double z);

/// The length of the curve (rx * cos t, ry * sin t) from t = 0 on, as a function of t, and the inverse of it. Accurate
/// to about the precision of the larger radius, for any ratio of the radii. Not for several threads: the length of a
/// quarter is computed when it is first needed.
class EllipseLength {
 public:
  EllipseLength(double rx, double ry) : rx_(rx), ry_(ry) {}

  /// All the way round.
  double total() const { return 4 * quarter(); }
  /// Odd, and without bounds: further rounds add up.
  double at(double t) const;
  double parameterAt(double length) const;

 private:
  double quarter() const;
  double inQuarter(double a, double b, double length) const;

  double rx_, ry_;
  mutable double quarter_ = -1;
};

}  // namespace qc_shapes
