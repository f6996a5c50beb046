// Finds where a part lies from edge points that were measured on it: its pose from points on the four straight sides,
// the hole from points around it, and one side alone, an outlier taken out again.
#include <vnxstd/archive.h>
#include <vnxstd/cfit.h>
#include <vnxstd/math.h>

#include <cmath>
#include <cstdio>
#include <iostream>
#include <vector>

// The drawing: 80 x 40 mm around the origin, with a hole of radius 8 at (20, 5). Each side is an infinite line.
static const qcFLine kSides[] = {{qcVector<2>(-40, -20), qcVector<2>(40, -20)},
                                 {qcVector<2>(40, -20), qcVector<2>(40, 20)},
                                 {qcVector<2>(40, 20), qcVector<2>(-40, 20)},
                                 {qcVector<2>(-40, 20), qcVector<2>(-40, -20)}};
static const qcVector<2> kHole(20, 5);
static constexpr double kRadius = 8;

int main() try {
  // What a camera would report: the part turned by 12 degrees and moved, with noise of a few hundredths of a pixel.
  const qc2Rigid truth(qcDegree(12), qcVector<2>(310, 225));
  qcRandomGaussian random(7);
  const auto measured = [&](const qcVector<2>& p) {
    return truth * p + qcVector<2>(random.next(0.03, 0), random.next(0.03, 0));
  };

  // Which point of a side an edge point is, nobody knows; that it lies on the side is enough.
  qcLSPointToLineFitter pose;
  std::vector<qcVector<2>> top;
  for (double along = -15; along <= 15; along += 0.5) {
    for (const qcFLine& side : kSides) pose.update(side, measured(side.foot() + along * side.dir()));
    top.push_back(measured(qcVector<2>(along, 20)));
  }
  const qcXform<2> partFromImage = pose.fit(3);
  const qcXform<2> imageFromPart = partFromImage.inverse();
  std::printf("pose: turned by %.3f degrees, at (%.3f, %.3f), %.4f pixels rms\n",
              qcDegree(imageFromPart.rotation()).plain(), imageFromPart.trans().x(), imageFromPart.trans().y(),
              std::sqrt(pose.error(partFromImage) / static_cast<double>(pose.count())));

  qcLSCircleFitter around;
  for (int i = 0; i < 90; ++i) around.update(measured(kHole + qcVector<2>(kRadius, qcDegree(4 * i))));
  const qcCircle hole = around.fit();
  const qcVector<2> centre = partFromImage * hole.center();
  std::printf("hole: centre (%.3f, %.3f) of the drawing, radius %.3f\n", centre.x(), centre.y(), hole.radius());

  qcLSLineFitter side(top);
  const qcVector<2> speck(300, 300);
  side.update(speck);
  const double with = side.error(side.fit());
  side.remove(speck);
  std::printf("side: %.2f degrees; squared residuals %.3f with a speck of dust, %.3f without\n",
              side.fit().angle().plain(), with, side.error(side.fit()));
} catch (const qcException& error) {
  std::cerr << qf_Narrow(error.message(true)) << '\n';
  return 1;
}
