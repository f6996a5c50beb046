#include "part.h"

#include <cmath>

#include <vnxstd/math/angle.h>
#include <vnxstd/math/rigid.h>

qcVector<2> Part::inImage(const qcVector<2>& p) const { return qc2Rigid(qcDegree(turnDegrees), centre) * p; }

bool Part::contains(const qcVector<2>& imagePoint) const {
  const qcVector<2> p = qc2Rigid(qcDegree(turnDegrees), centre).invMapPoint(imagePoint);
  return std::abs(p.x()) <= halfLength && std::abs(p.y()) <= halfWidth && p.distance(hole) >= holeRadius;
}

qcPelBuffer<unsigned char> drawPart(const Part& part, long width, long height) {
  return drawPicture([&](const qcVector<2>& p) { return part.contains(p); }, part.optics, width, height);
}
