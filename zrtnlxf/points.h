// What the fits to point correspondences have in common.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <exception>
#include <limits>

#include "vnxstd/math/plain.h"
#include "zrtnlxf/status.h"

namespace zrtnlxf {

/// Points lie so that they determine nothing when a number that would be 0 then, and is about 1 for points that lie
/// well, is below this. `rounding` is the relative error of their coordinates; the sums over `count` points add theirs,
/// which grow like the square root of the count.
inline double degenerateBelow(double rounding, std::size_t count) noexcept {
  return rounding * (64 + 4 * std::sqrt(static_cast<double>(count)));
}

/// A map that rounding errors alone take away from what it was fitted to, by more than this part of the extent of the
/// destinations, is not determined by the points either.
inline constexpr double kWorstError = 1e-6;

/// Whether `count` numbers are all finite.
inline bool areFinite(const double* numbers, std::size_t count) noexcept {
  return std::all_of(numbers, numbers + count, [](double number) { return std::isfinite(number); });
}

/// By how much a matrix lengthens vectors at most: the larger singular value.
inline double norm(const qmath_matrix& m) noexcept {
  return (std::hypot(m.a00 + m.a11, m.a10 - m.a01) + std::hypot(m.a00 - m.a11, m.a10 + m.a01)) / 2;
}

/// A frame around points that makes their coordinates small numbers: q = (p - centre) * scale.
struct Frame {
  /// The centroid, and a mean distance from it of 2, of `count` points (x, y); distances are |x| + |y|. About what
  /// Hartley chooses ("In defence of the eight-point algorithm", 1997), without roots and overflow. The scale is not
  /// finite when all points coincide.
  Frame(const double* points, std::size_t count) noexcept {
    const double share = 1 / static_cast<double>(count);
    for (std::size_t i = 0; i < count; ++i) {
      x += points[2 * i] * share;
      y += points[2 * i + 1] * share;
    }
    double distance = 0, largest = 0;
    for (std::size_t i = 0; i < count; ++i) {
      distance += (std::fabs(points[2 * i] - x) + std::fabs(points[2 * i + 1] - y)) * share;
      largest = std::max({largest, std::fabs(points[2 * i]), std::fabs(points[2 * i + 1])});
    }
    scale = 2 / distance;
    rounding = std::numeric_limits<double>::epsilon() * std::max(1.0, largest * scale);
  }

  bool isUsable() const noexcept { return std::isfinite(scale) && scale > 0 && std::isfinite(x) && std::isfinite(y); }

  /// What errors of points are compared with: the mean distance from the centroid, or as much more as their coordinates
  /// lose to rounding far from the origin.
  double extent() const noexcept { return 2 / scale + 1e-6 * (std::fabs(x) + std::fabs(y)); }

  double x = 0, y = 0, scale = 1;
  double rounding = 0;  // what the coordinates within the frame owe to the rounding of those outside
};

/// Runs a body that may lack memory.
template <class Body>
Status guarded(const Body& body) noexcept {
  try {
    return body();
  } catch (const std::exception&) {  // std::bad_alloc, or std::length_error for more than there can be
    return outOfMemory;
  }
}

}  // namespace zrtnlxf
