// Least-squares ellipses through points.
//
// Both fits return an ellipse that is right-handed, with phase 0, the larger radius first and an angle in [-pi/2,
// pi/2). Both throw qcShapesError::BadCoef when the points determine no ellipse: fewer than five of them, or five
// different ones, points on one line, a coordinate that is not finite, coordinates so far from the origin that nothing
// is left of their differences. Points are shifted to their mean and scaled first, so that neither the place nor the
// unit matters beyond rounding. Any number of threads may fit at a time.
#pragma once

#include <vector>

#include "vnxstd/export.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/shapes/ellipse.h"

/// The ellipse whose conic makes least the sum of squares of its values at the points, under the constraint
/// 4 * xx * yy - xy^2 = 1 on its coefficients (Halir and Flusser, "Numerically stable direct least squares fitting of
/// ellipses", 1998). Always an ellipse, whatever conic the points suggest. Exact for points on an ellipse; noise on a
/// short arc makes it too small and too flat. Costs some tens of nanoseconds per point, and a microsecond.
VNXSTD_EXPORT qcEllipse2 qfFitEllipseDirect(const std::vector<qcVector<2>>& points);

/// The ellipse that makes least the sum of squared distances to the points, measured at right angles to it, by the
/// Gauss-Newton method with Levenberg's damping from the direct fit on (Ahn, Rauh and Warnecke, "Least-squares
/// orthogonal distances fitting of circle, sphere, ellipse, hyperbola, and parabola", Pattern Recognition 34, 2001). It
/// varies the centre and a symmetric strain of the unit circle, which is well-posed for circles too. Unbiased to first
/// order in the noise. Of several local minima the one next to the direct fit; where noise drives a short arc's ellipse
/// towards a parabola, what fifty steps reach. Costs about a microsecond per point and step, of which there are a few.
VNXSTD_EXPORT qcEllipse2 qfFitEllipse(const std::vector<qcVector<2>>& points);
