// Polynomial maps of the plane.
//
// A map of order n takes (x, y) to two polynomials of total degree n in u = (x - origin.x) * scale.x and
// v = (y - origin.y) * scale.y. Coefficients ascend by degree, within a degree by the power of v: 1, u, v, u^2, u v,
// v^2, u^3 and so on.
//
// Plain functions over arrays of the caller's. They report failure by a negative status, throw nothing, and leave what
// they would have written as it was when they fail, except arrays of points. Arrays of points are arrays of x and y in
// turn.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vnxstd/export.h"
#include "vnxstd/math/plain.h"
#include "zrtnlxf/status.h"

namespace zrtnlxf {

inline constexpr std::int32_t kMaxPolyOrder = 9;
inline constexpr std::size_t kMaxPolySize = 55;

}  // namespace zrtnlxf

/// A polynomial map, whose coefficients belong to somebody else: those of x, and then those of y.
struct qmath_xformPoly {
  std::int32_t order;
  qmath_vect origin, scale;
  const double* coefs;
};

/// The number of coefficients per coordinate, (n + 1)(n + 2) / 2; badArgument unless the order is from 1 to 9.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPolySize(std::int32_t order) noexcept;

/// The coefficients of the identity, for the origin (0, 0) and the scale (1, 1).
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPolyInitIdentityArray_(std::int32_t order, double* coefs) noexcept;

/// The smallest, and the largest, order whose coefficients so many correspondences can determine, going by the number
/// of distinct points: that of coefficients is not larger. badArgument for fewer than three, which determine none.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPolyMinOrder_(const double* points, std::size_t count) noexcept;
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPolyMaxOrder_(const double* points, std::size_t count) noexcept;

/// Fits the coefficients of an order by least squares of the distances between images and destinations, by the QR
/// factorisation in coordinates that are scaled to [-1, 1], and gives origin and scale of these. badArgument for an
/// unknown order, fewer distinct points than coefficients, or a number that is not finite; degenerate when the points
/// lie so that coefficients stay open, all on a curve of that order, or so nearly that images have rounding errors of
/// 1e-6 of the extent of the destinations. Costs in proportion to the number of points and the square of that of
/// coefficients; memory for the distinct points.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPolyFit_(const double* from, const double* to, std::size_t count,
                                                  std::int32_t order, qmath_vect* origin, qmath_vect* scale,
                                                  double* coefs) noexcept;

/// atInfinity when the image is not finite.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPolyMapPoint_(const qmath_xformPoly* poly, const qmath_vect* point,
                                                       qmath_vect* image) noexcept;
/// The same bits for each of `count` points; atInfinity, after all are mapped, when one of the images is not finite.
/// `out` is `in` itself or does not overlap it.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPolyMapPoints_(const qmath_xformPoly* poly, const double* in, double* out,
                                                        std::size_t count) noexcept;

/// 1 when all coefficients of higher degree than the first are 0, else 0.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPolyIsLinear_(const qmath_xformPoly* poly) noexcept;
/// The image and its derivatives by x and y. atInfinity.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPolyDerivs_(const qmath_xformPoly* poly, const qmath_vect* point,
                                                     qmath_vect* image, qmath_matrix* derivatives) noexcept;
/// The first-order expansion at a point; of a linear map that map, whatever the point. atInfinity.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPolyLinearXform_(const qmath_xformPoly* poly, const qmath_vect* point,
                                                          qmath_xformLinear* linear) noexcept;

/// An upper bound for the norm of the difference between the derivatives at `center` and at points not further from it
/// than `radius`; infinite when it is no finite number.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPolyBend_(const qmath_xformPoly* poly, const qmath_vect* center, double radius,
                                                   double* bend) noexcept;

/// The same for the derivative along `reach`, at the points of the line that leads as far as `reach` both ways.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPolyBendAlong_(const qmath_xformPoly* poly, const qmath_vect* center,
                                                        const qmath_vect* reach, double* bend) noexcept;

/// The point that is mapped to `image`, found from the affine approximation at the origin as local.h says;
/// notConverged.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPolyInvMapPoint_(const qmath_xformPoly* poly, const qmath_vect* image,
                                                          qmath_vect* point) noexcept;
