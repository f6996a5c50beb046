// Shapes: the common interface, lines, circles, ellipses, arcs, rectangles and what is built from them.
#pragma once

#include "vnxstd/shapes/affrect.h"
#include "vnxstd/shapes/circle.h"
#include "vnxstd/shapes/clipinfo.h"
#include "vnxstd/shapes/ellipse.h"
#include "vnxstd/shapes/ellipsearc.h"
#include "vnxstd/shapes/ellipseshape.h"
#include "vnxstd/shapes/errors.h"
#include "vnxstd/shapes/genrect.h"
#include "vnxstd/shapes/line.h"
#include "vnxstd/shapes/lineseg.h"
#include "vnxstd/shapes/parallelogram.h"
#include "vnxstd/shapes/polyline.h"
#include "vnxstd/shapes/rect.h"
#include "vnxstd/shapes/sampling.h"
#include "vnxstd/shapes/shape.h"
#include "vnxstd/shapes/shapeinfo.h"
