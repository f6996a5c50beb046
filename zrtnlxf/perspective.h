// Projective maps of the plane: (x, y) -> (u / w, v / w) with (u, v, w) = H (x, y, 1).
//
// Plain functions over a state that holds H. They report failure by a negative status, throw nothing, and leave what
// they would have written as it was when they fail, except arrays of points. States may be read by several threads.
// Arrays of points are arrays of x and y in turn.
#pragma once

#include <cstddef>

#include "vnxstd/export.h"
#include "vnxstd/math/plain.h"
#include "zrtnlxf/status.h"

/// Owns a matrix of 3 x 3 doubles.
struct qmath_xformPerspective;

/// A new state that holds the identity. outOfMemory.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPerspective_construct(qmath_xformPerspective** state) noexcept;

/// A new state that holds the one projective map through four pairs of points. It is scaled so that its last element is
/// 1 or, where that one vanishes beside the others, so that the largest is. badArgument for numbers that are not
/// finite, degenerate when three of the sources or of the destinations are collinear, or so nearly that the map misses
/// destinations by 1e-6 of their extent.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPerspective_construct4Points(const double* from, const double* to,
                                                                      qmath_xformPerspective** state) noexcept;

/// The same for four or more pairs of points, by least squares: the direct linear transformation in the coordinates of
/// Hartley ("In defence of the eight-point algorithm", 1997), which makes small the sum of squares of an algebraic
/// error that is w times the distance between a destination and the image of its source. badArgument for fewer than
/// four pairs; degenerate when the points leave more than one map, or when the best one is singular. Costs in
/// proportion to the number of points.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPerspective_constructPoints(const double* from, const double* to,
                                                                     std::size_t count,
                                                                     qmath_xformPerspective** state) noexcept;

VNXSTD_EXPORT zrtnlxf::Status qmath_xformPerspective_constructCopy(const qmath_xformPerspective* from,
                                                                   qmath_xformPerspective** state) noexcept;
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPerspective_assign(qmath_xformPerspective* to,
                                                            const qmath_xformPerspective* from) noexcept;
/// Null is ignored.
VNXSTD_EXPORT void qmath_xformPerspective_destruct(qmath_xformPerspective* state) noexcept;

/// The nine elements, row by row. Any numbers are taken; what cannot be mapped shows when it is tried.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPerspective_setMatrix(qmath_xformPerspective* state,
                                                               const double* elements) noexcept;
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPerspective_getMatrix(const qmath_xformPerspective* state,
                                                               double* elements) noexcept;

/// atInfinity when the image is not finite.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPerspective_mapPoint(const qmath_xformPerspective* state,
                                                              const qmath_vect* point, qmath_vect* image) noexcept;
/// The same bits for each of `count` points; atInfinity, after all are mapped, when one of the images is not finite.
/// `out` is `in` itself or does not overlap it.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPerspective_mapPoints(const qmath_xformPerspective* state, const double* in,
                                                               double* out, std::size_t count) noexcept;

/// 1 when the last row is (0, 0, w), w not 0, else 0.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPerspective_getIsLinear(const qmath_xformPerspective* state) noexcept;
/// 1 when the determinant is 0 within the rounding of its computation or no number, else 0.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPerspective_getIsSingular(const qmath_xformPerspective* state) noexcept;

/// The first-order expansion at a point; of a linear map that map, whatever the point. atInfinity.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPerspective_getLinearXform(const qmath_xformPerspective* state,
                                                                    const qmath_vect* point,
                                                                    qmath_xformLinear* linear) noexcept;
/// An upper bound for the norm of the difference between the derivatives at `center` and at points not further from it
/// than `radius`; infinite when one of these may have no finite image. atInfinity.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPerspective_getBend(const qmath_xformPerspective* state,
                                                             const qmath_vect* center, double radius,
                                                             double* bend) noexcept;
/// Upper bounds for the differences between the derivatives along `reach`, and across it, at `center` and at points not
/// further from it than `reach` is long, nor further than `width` from the line through it along `reach`; infinite when
/// one of these may have no finite image. atInfinity.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPerspective_getBendAlong(const qmath_xformPerspective* state,
                                                                  const qmath_vect* center, const qmath_vect* reach,
                                                                  double width, double* along, double* across) noexcept;
/// A new state that holds the inverse matrix. singular; outOfMemory.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPerspective_getInverse(const qmath_xformPerspective* state,
                                                                qmath_xformPerspective** inverse) noexcept;
