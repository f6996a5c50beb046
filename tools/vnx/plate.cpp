#include "plate.h"

#include <algorithm>
#include <cmath>

#include <vnxstd/math/xfpersp.h>

namespace {

// Millimetres from units of the focal length: a slant and a slight turn.
const qc2XformPerspective& slant() {
  static const qc2XformPerspective xform(qcMatrix<3>(48.0, -3.1, 0.4, 2.9, 50.5, -0.7, 0.05, 0.14, 1.0));
  return xform;
}

}  // namespace

qcVector<2> Camera::toWorld(const qcVector<2>& image) const {
  const qcVector<2> v = (image - middle) / focal;
  return slant() * (v * (1 + bend * (v * v)));
}

qcVector<2> Camera::toImage(const qcVector<2>& world) const {
  qcVector<2> p = middle;
  for (int i = 0; i < 30; ++i) {
    constexpr double kStep = 1e-3;
    const qcVector<2> there = toWorld(p);
    const qcVector<2> dx = (toWorld(p + qcVector<2>(kStep, 0)) - there) / kStep;
    const qcVector<2> dy = (toWorld(p + qcVector<2>(0, kStep)) - there) / kStep;
    p += qcXform<2>(qcMatrix<2>(dx.x(), dy.x(), dx.y(), dy.y()), there).invMapPoint(world);
  }
  return p;
}

qcVector<2> Board::dot(int column, int row) const {
  return {(column - (columns - 1) / 2.0) * pitch, (row - (rows - 1) / 2.0) * pitch};
}

bool Board::contains(const qcVector<2>& world) const {
  const auto nearest = [this](double at, int count) {
    return std::clamp(static_cast<int>(std::lround(at / pitch + (count - 1) / 2.0)), 0, count - 1);
  };
  return dot(nearest(world.x(), columns), nearest(world.y(), rows)).distance(world) <= radius;
}

bool Plate::contains(const qcVector<2>& world) const {
  return low.x() <= world.x() && world.x() <= high.x() && low.y() <= world.y() && world.y() <= high.y() &&
         !hole.within(world) && !oval.within(world);
}
