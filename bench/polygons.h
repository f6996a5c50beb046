// Polygons that benchmarks measure on.
#pragma once

#include <vector>

#include "vnxstd/math/angle.h"
#include "vnxstd/math/random.h"
#include "vnxstd/math/vector.h"

using Points = std::vector<qcVector<2>>;

/// Vertices around a centre, in steps of the angle, near to a circle of radius 400 or far inside by chance.
inline Points star(const qcVector<2>& center, int count, double depth, unsigned seed) {
  qcRandomUniform random(static_cast<int>(seed));
  Points points;
  for (int i = 0; i < count; ++i) {
    const double radius = 400 * (1 - random.next(0, depth));
    points.push_back(center + qcVector<2>(radius, qcRadian(i * qcRadian::turn / count)));
  }
  return points;
}
