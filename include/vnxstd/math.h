// Geometry: vectors, matrices, angles, ranges, statistics, random numbers and transforms. The values among them may be
// read from several threads at once; an object that is being changed, a random generator included, is for one thread.
#pragma once

#include "vnxstd/math/angle.h"
#include "vnxstd/math/error.h"
#include "vnxstd/math/matrix.h"
#include "vnxstd/math/pair.h"
#include "vnxstd/math/plain.h"
#include "vnxstd/math/random.h"
#include "vnxstd/math/range.h"
#include "vnxstd/math/rigid.h"
#include "vnxstd/math/scalar.h"
#include "vnxstd/math/solve.h"
#include "vnxstd/math/stats.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/math/xfbase.h"
#include "vnxstd/math/xfcache.h"
#include "vnxstd/math/xfcomp.h"
#include "vnxstd/math/xfdeform.h"
#include "vnxstd/math/xflinear.h"
#include "vnxstd/math/xform.h"
#include "vnxstd/math/xfpersp.h"
#include "vnxstd/math/xfpoly.h"
