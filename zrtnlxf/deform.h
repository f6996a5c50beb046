// Thin-plate splines: the smoothest maps of the plane through given correspondences, or near them.
//
// The map is an affine one plus a weighted sum of r^2 ln r over the sources, r the distance to each (Duchon, 1977;
// Bookstein, "Principal warps: thin-plate splines and the decomposition of deformations", 1989). The smoothness is the
// weight of the bending energy: 0 interpolates, more lets the images leave the destinations, and a very large one
// leaves the affine map of least squares (Wahba, "Spline Models for Observational Data", 1990, section 2.4).
//
// Plain functions over a state that holds all this. They report failure by a negative status, throw nothing, and leave
// what they would have written as it was when they fail, except arrays of points. States may be read by several
// threads. Arrays of points are arrays of x and y in turn.
#pragma once

#include <cstddef>

#include "vnxstd/export.h"
#include "vnxstd/math/plain.h"
#include "zrtnlxf/status.h"

/// Owns the correspondences and what they determine.
struct qmath_xformDeform;

/// All that a state holds. In u = (x - origin.x) / unit and v = (y - origin.y) / unit the map is
/// affine[0] + affine[1] u + affine[2] v for x, the same of the next three for y, plus weights[i] r^2 ln r for each
/// source i, r in units.
struct qmath_xformDeformParts {
  double smoothness;
  qmath_vect origin;
  double unit;
  double affine[6];
  const double* from;  // `count` points each
  const double* to;
  const double* weights;
  std::size_t count;
};

/// A new state that holds the identity, without correspondences. outOfMemory.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformDeform_construct(qmath_xformDeform** state) noexcept;

/// A new state from correspondences. Pairs that are repeated count once. badDeformArgument for fewer than three
/// distinct sources, for sources that are collinear within the rounding errors of their coordinates, for one source
/// with several destinations, for a smoothness below 0, and for numbers that are not finite; degenerate when sources
/// lie so close to each other that they are mapped to their destinations to no better than 1e-6 of the extent of these.
/// Costs in proportion to the third power of the number of sources, and memory in proportion to the second: 1000 take
/// 8 MB.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformDeform_constructPoints(const double* from, const double* to, std::size_t count,
                                                                double smoothness, qmath_xformDeform** state) noexcept;
/// A new state of the parts that another one gave; badDeformArgument for numbers that are not finite, a unit that is
/// not positive and a negative smoothness. Whether they belong together is not checked.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformDeform_constructParts(const qmath_xformDeformParts* parts,
                                                               qmath_xformDeform** state) noexcept;
VNXSTD_EXPORT zrtnlxf::Status qmath_xformDeform_constructCopy(const qmath_xformDeform* from,
                                                              qmath_xformDeform** state) noexcept;
/// Null is ignored.
VNXSTD_EXPORT void qmath_xformDeform_destruct(qmath_xformDeform* state) noexcept;

/// Adds correspondences and determines the map anew from all of them; the errors are those of constructPoints.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformDeform_update(qmath_xformDeform* state, const double* from, const double* to,
                                                       std::size_t count) noexcept;

VNXSTD_EXPORT zrtnlxf::Status qmath_xformDeform_getSmoothness(const qmath_xformDeform* state,
                                                              double* smoothness) noexcept;
/// The arrays belong to the state.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformDeform_getParts(const qmath_xformDeform* state,
                                                         qmath_xformDeformParts* parts) noexcept;

/// atInfinity when the image is not finite. Costs in proportion to the number of sources, as do those below.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformDeform_mapPoint(const qmath_xformDeform* state, const qmath_vect* point,
                                                         qmath_vect* image) noexcept;
/// The same bits for each of `count` points; atInfinity, after all are mapped, when one of the images is not finite.
/// `out` is `in` itself or does not overlap it.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformDeform_mapPoints(const qmath_xformDeform* state, const double* in, double* out,
                                                          std::size_t count) noexcept;

/// 1 when all weights are 0, else 0.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformDeform_getIsLinear(const qmath_xformDeform* state) noexcept;
/// The first-order expansion at a point; of a linear map that map, whatever the point. atInfinity.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformDeform_getLinearXform(const qmath_xformDeform* state, const qmath_vect* point,
                                                               qmath_xformLinear* linear) noexcept;
/// An upper bound for the norm of the difference between the derivatives at `center` and at points not further from it
/// than `radius`; infinite when it is no finite number.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformDeform_getBend(const qmath_xformDeform* state, const qmath_vect* center,
                                                        double radius, double* bend) noexcept;
/// The point that is mapped to `image`, found from the affine approximation at the origin as local.h says;
/// notConverged.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformDeform_getInverse(const qmath_xformDeform* state, const qmath_vect* image,
                                                           qmath_vect* point) noexcept;
