// What the least-squares fitters have in common: counts and sums over points.
//
// A fitter is a value that accumulates running sums. Adding a point costs a fixed number of multiplications and
// additions and stores no point; fits and errors are computed from the sums alone, at a cost that does not depend on
// the number of points. The sums are doubles, everything that is computed from them runs in long double.
//
// What holds for every fitter:
//  - A bulk update gives the sums of single updates but for rounding, and the same ones on every processor.
//  - Up to 2147483647 points (or pairs) are counted; an update that would go beyond throws UnstableErr and changes
//    nothing.
//  - Infinite and NaN coordinates, and coordinates so large that a sum overflows, make every later fit fail as
//    unstable.
//  - A fit never changes the sums; a fitter whose fit failed takes more points.
//  - Sums around a far origin lose digits: n squares are summed about their mean with an error of up to 3 * n * 2^-53
//    of their sum about the origin, however little the points are spread. A fit whose denominator is not larger than
//    that error, or than 1e-14 of the product that it was subtracted from, fails as unstable, instead of returning what
//    rounding made of points on one spot or, for the affine fits, on one line.
//  - Lost digits stay lost: neither removing far points nor moving a fitter to the origin brings them back, and the
//    test above no longer sees that they are missing.
//  - Different fitters may be used from different threads; one fitter may be read, but not changed, by several.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

/// Sums over points: of both coordinates, of their squares and of their product.
struct qc_PointSums {
  double x = 0, y = 0, xx = 0, yy = 0, xy = 0;

  void add(double px, double py) noexcept {
    x += px;
    y += py;
    xx += px * px;
    yy += py * py;
    xy += px * py;
  }
  void subtract(double px, double py) noexcept {
    x -= px;
    y -= py;
    xx -= px * px;
    yy -= py * py;
    xy -= px * py;
  }
  qc_PointSums& operator+=(const qc_PointSums& other) noexcept {
    x += other.x;
    y += other.y;
    xx += other.xx;
    yy += other.yy;
    xy += other.xy;
    return *this;
  }
};

/// Raises a fitter's count, or throws the fitter's own error when 32 bits cannot hold it.
template <class Overflow>
inline void qf_CountPoints(std::int32_t& n, std::size_t more) {
  if (more > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max() - n)) throw Overflow();
  n += static_cast<std::int32_t>(more);
}
