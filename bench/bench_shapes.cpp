// Polygons, against Boost.Geometry and OpenCV.
#include <cmath>
#include <string>
#include <vector>

#include "compare.h"
#include "vnxstd/math/random.h"
#include "vnxstd/shapes.h"

#ifdef VNXSTD_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif
#if __has_include(<boost/geometry.hpp>)
#define VNXSTD_BENCH_GEOMETRY
#include <boost/geometry.hpp>
#include <boost/geometry/geometries/point_xy.hpp>
#include <boost/geometry/geometries/polygon.hpp>
#include <boost/version.hpp>
#endif

namespace {

using Points = std::vector<qcVector<2>>;

/// Vertices around a centre, in steps of the angle, near to a circle or far inside by chance.
Points star(int count, double depth) {
  qcRandomUniform random(3);
  Points points;
  for (int i = 0; i < count; ++i) {
    const double radius = 400 * (1 - random.next(0, depth));
    points.push_back(qcVector<2>(500, 500) + qcVector<2>(radius, qcRadian(i * qcRadian::turn / count)));
  }
  return points;
}

Points scattered(int count) {
  qcRandomUniform random(5);
  Points points;
  for (int i = 0; i < count; ++i) points.push_back({random.next(0, 1000), random.next(0, 1000)});
  return points;
}

#ifdef VNXSTD_BENCH_GEOMETRY

namespace geometry = boost::geometry;
using Point = geometry::model::d2::point_xy<double>;
using Polygon = geometry::model::polygon<Point, false, true>;

Polygon polygonOf(const Points& points) {
  Polygon polygon;
  for (const auto& p : points) polygon.outer().emplace_back(p.x(), p.y());
  polygon.outer().push_back(polygon.outer().front());
  return polygon;
}

void againstGeometry(compare::Session& session) {
  const Points vertices = star(200, 0.5), queries = scattered(1000);
  const qcPolyline ours(vertices, true);
  const Polygon theirs = polygonOf(vertices);
  session.run(
      "area, 200 vertices, Boost.Geometry", 0.6, [&] { compare::keep(ours.areaMoment0()); },
      [&] { compare::keep(geometry::area(theirs)); });
  session.run(
      "centre of area, 200 vertices, Boost.Geometry", 0, [&] { compare::keep(ours.centerArea()); },
      [&] {
        Point center;
        geometry::centroid(theirs, center);
        compare::keep(center);
      });
  session.run(
      "1,000 points in a jagged polygon, Boost", 0,
      [&] {
        long inside = 0;
        for (const auto& p : queries) inside += ours.within(p) ? 1 : 0;
        compare::keep(inside);
      },
      [&] {
        long inside = 0;
        for (const auto& p : queries) inside += geometry::covered_by(Point(p.x(), p.y()), theirs) ? 1 : 0;
        compare::keep(inside);
      });
}

#endif

#ifdef VNXSTD_BENCH_OPENCV

void againstOpenCv(compare::Session& session) {
  cv::setNumThreads(1);
  const auto hull = [&session](const char* name, double goal, const Points& points) {
    const qcPolyline ours(points, false);
    std::vector<cv::Point2f> theirs, found;
    for (const auto& p : points) theirs.emplace_back(static_cast<float>(p.x()), static_cast<float>(p.y()));
    session.run(
        name, goal, [&] { compare::keep(ours.convexHull()); },
        [&] {
          cv::convexHull(theirs, found);
          compare::keep(found);
        });
  };
  hull("hull, 10,000 points in a square, OpenCV", 0.15, scattered(10000));
  hull("hull, 10,000 points on a circle, OpenCV", 0.9, star(10000, 0));
}

#endif

}  // namespace

int main(int argc, char** argv) {
  compare::Session session(argc, argv);
#ifdef VNXSTD_BENCH_GEOMETRY
  session.peer("Boost.Geometry", BOOST_LIB_VERSION);
  againstGeometry(session);
#else
  session.absent("Boost.Geometry");
#endif
#ifdef VNXSTD_BENCH_OPENCV
  session.peer("OpenCV", CV_VERSION);
  againstOpenCv(session);
#else
  session.absent("OpenCV");
#endif
  const qcPolyline polygon(star(200, 0.5), true);
  session.run("second moments of area, 200 vertices", [&] {
    double m[6];
    polygon.areaMoment2(m[0], m[1], m[2], m[3], m[4], m[5]);
    compare::keep(m);
  });
  return session.finish();
}
