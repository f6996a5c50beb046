// Shapes drawn into images, against OpenCV.
#include <vector>

#include "compare.h"
#include "vnxstd/math/random.h"
#include "vnxstd/pelbuf.h"
#include "vnxstd/shapes.h"

#ifdef VNXSTD_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace {

using Points = std::vector<qcVector<2>>;

/// Vertices around a centre, in steps of the angle, near to a circle or far inside by chance.
Points star(int count) {
  qcRandomUniform random(3);
  Points points;
  for (int i = 0; i < count; ++i) {
    const double radius = 400 * random.next(0.5, 1);
    points.push_back(qcVector<2>(500, 500) + qcVector<2>(radius, qcRadian(i * qcRadian::turn / count)));
  }
  return points;
}

#ifdef VNXSTD_BENCH_OPENCV

cv::Point2d peer(const qcVector<2>& p) { return {p.x(), p.y()}; }

void againstOpenCv(compare::Session& session) {
  cv::setNumThreads(1);
  const cv::Scalar white(255);
  qcPelBuffer<unsigned char> ours(1024, 1024);
  cv::Mat theirs(1024, 1024, CV_8UC1, white);
  qfPelClear(ours);

  const Points vertices = star(200);
  std::vector<cv::Point> rounded;
  for (const auto& p : vertices) rounded.emplace_back(peer(p));
  const std::vector<std::vector<cv::Point>> polygons{rounded};
  const qcPolyline polygon(vertices, true);
  const qcRegionTree region(polygon);
  session.run(
      "star of 200 vertices, filled", 0.75, [&] { qfRasterize(region, ours, 255); },
      [&] { cv::fillPoly(theirs, polygons, white); });
  session.run(
      "star of 200 vertices, contour of width 5", 0, [&] { qfRasterizeContour(polygon, ours, 255, 5); },
      [&] { cv::polylines(theirs, polygons, true, white, 5); });
  session.run(
      "star of 200 vertices, thin contour", 0, [&] { qfRasterizeContour(polygon, ours, 255, 0); },
      [&] { cv::polylines(theirs, polygons, true, white, 1); });

  const qcVector<2> center(512.5, 512.5), radii(450, 250);
  const qcRegionTree circle(qcCircle(center, 500));
  session.run(
      "circle of radius 500, filled", 1, [&] { qfRasterize(circle, ours, 255); },
      [&] {
        cv::circle(theirs, {512, 512}, 500, white, cv::FILLED);
      });
  const qcRegionTree ellipse(qcEllipse2(center, qcDegree(30), radii, true, qcRadian(0)));
  session.run(
      "ellipse of radii 450 and 250, filled", 1, [&] { qfRasterize(ellipse, ours, 255); },
      [&] {
        cv::ellipse(theirs, {512, 512}, {450, 250}, 30, 0, 360, white, cv::FILLED);
      });
}

#endif

}  // namespace

int main(int argc, char** argv) {
  compare::Session session(argc, argv);
#ifdef VNXSTD_BENCH_OPENCV
  session.peer("OpenCV", CV_VERSION);
  againstOpenCv(session);
#else
  session.absent("OpenCV");
#endif
  return session.finish();
}
