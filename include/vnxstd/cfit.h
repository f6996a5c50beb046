// Least-squares fits: lines, circles and ellipses through points, transforms that carry points onto points or lines.
#pragma once

#include "vnxstd/cfit/circlefit.h"
#include "vnxstd/cfit/ellipsefit.h"
#include "vnxstd/cfit/linefit.h"
#include "vnxstd/cfit/pointfit.h"
#include "vnxstd/cfit/pointlinefit.h"
#include "vnxstd/cfit/sums.h"
