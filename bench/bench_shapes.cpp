// Polygons, against Boost.Geometry, GEOS, Clipper and OpenCV.
#include <cmath>
#include <string>
#include <vector>

#include "compare.h"
#include "polygons.h"
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
#ifdef VNXSTD_BENCH_GEOS
#define USE_UNSTABLE_GEOS_CPP_API
#include <geos/algorithm/locate/IndexedPointInAreaLocator.h>
#include <geos/geom/CoordinateArraySequence.h>
#include <geos/geom/GeometryFactory.h>
#include <geos/geom/LinearRing.h>
#include <geos/geom/Location.h>
#include <geos/geom/Point.h>
#include <geos/geom/Polygon.h>
#include <geos/geom/prep/PreparedGeometry.h>
#include <geos/geom/prep/PreparedGeometryFactory.h>
#include <geos/version.h>
#endif
#ifdef VNXSTD_BENCH_CLIPPER
#include <polyclipping/clipper.hpp>
#endif

namespace {

Points centredStar(int count, double depth) { return star({500, 500}, count, depth, 3); }

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
  const Points vertices = centredStar(200, 0.5), queries = scattered(1000);
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
  // Along an open line. line_interpolate leaves the vertices out.
  using Line = geometry::model::linestring<Point>;
  Line line;
  for (const auto& p : vertices) line.emplace_back(p.x(), p.y());
  const qcPolyline open(vertices, false);
  for (const double spacing : {0.5, 20.0}) {
    qcShape::qcSampleParams params(0, spacing, 1000000, false, false);
    qcShape::qcSampleResult result;
    const auto sample = [&] {
      result.reset();
      open.sample(params, result);
      compare::keep(result);
    };
    const std::string name = "sampling, spacing " + std::string(spacing < 1 ? "0.5" : "20");
    Line dense;
    geometry::model::multi_point<Point> many;
    session.run(name + ", densify", 0.5, sample, [&] {
      dense.clear();
      geometry::densify(line, dense, spacing);
      compare::keep(dense);
    });
    session.run(name + ", line_interpolate", 0.5, sample, [&] {
      many.clear();
      geometry::line_interpolate(line, spacing, many);
      compare::keep(many);
    });
  }
}

#endif

#ifdef VNXSTD_BENCH_GEOS

void againstGeos(compare::Session& session) {
  const Points vertices = centredStar(200, 0.5), queries = scattered(1000);
  const qcPolyline ours(vertices, true);
  const auto factory = geos::geom::GeometryFactory::create();
  std::vector<geos::geom::Coordinate> ring;
  for (const auto& p : vertices) ring.emplace_back(p.x(), p.y());
  ring.push_back(ring.front());
  const auto theirs = factory->createPolygon(
      factory->createLinearRing(std::make_unique<geos::geom::CoordinateArraySequence>(std::move(ring))));
  const auto theirPrepared = geos::geom::prep::PreparedGeometryFactory::prepare(theirs.get());
  geos::algorithm::locate::IndexedPointInAreaLocator locator(*theirs);
  std::vector<std::unique_ptr<geos::geom::Point>> points;
  std::vector<geos::geom::Coordinate> coordinates;
  for (const auto& p : queries) {
    coordinates.emplace_back(p.x(), p.y());
    points.push_back(std::unique_ptr<geos::geom::Point>(factory->createPoint(coordinates.back())));
  }
  const qcPreparedPolygon prepared(ours);
  const auto within = [&] {
    long inside = 0;
    for (const auto& p : queries) inside += prepared.within(p) ? 1 : 0;
    compare::keep(inside);
  };
  session.run("1,000 points in a prepared polygon, covers", 0.25, within, [&] {
    long inside = 0;
    for (const auto& p : points) inside += theirPrepared->covers(p.get()) ? 1 : 0;
    compare::keep(inside);
  });
  session.run("1,000 points in a prepared polygon, locate", 0.25, within, [&] {
    long inside = 0;
    for (const auto& p : coordinates) inside += locator.locate(&p) != geos::geom::Location::EXTERIOR ? 1 : 0;
    compare::keep(inside);
  });
  session.run("preparing a polygon of 200 vertices", [&] { compare::keep(qcPreparedPolygon(ours)); });
}

#endif

#ifdef VNXSTD_BENCH_CLIPPER

void againstClipper(compare::Session& session) {
  const auto path = [](const Points& points) {
    ClipperLib::Path whole;
    for (const auto& p : points) whole.emplace_back(std::lround(1000 * p.x()), std::lround(1000 * p.y()));
    return whole;
  };
  const Points vertices = centredStar(200, 0.5), queries = scattered(1000);
  const qcPolyline ours(vertices, true);
  const ClipperLib::Path theirs = path(vertices), points = path(queries);
  session.run(
      "1,000 points in a polygon, Clipper", 0.25,
      [&] {
        long inside = 0;
        for (const auto& p : queries) inside += ours.within(p) ? 1 : 0;
        compare::keep(inside);
      },
      [&] {
        long inside = 0;
        for (const auto& p : points) inside += ClipperLib::PointInPolygon(p, theirs) != 0 ? 1 : 0;
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
  hull("hull, 10,000 points on a circle, OpenCV", 0.9, centredStar(10000, 0));
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
#ifdef VNXSTD_BENCH_GEOS
  session.peer("GEOS", GEOS_VERSION);
  againstGeos(session);
#else
  session.absent("GEOS");
#endif
#ifdef VNXSTD_BENCH_CLIPPER
  session.peer("Clipper", CLIPPER_VERSION);
  againstClipper(session);
#else
  session.absent("Clipper");
#endif
#ifdef VNXSTD_BENCH_OPENCV
  session.peer("OpenCV", CV_VERSION);
  againstOpenCv(session);
#else
  session.absent("OpenCV");
#endif
  const qcPolyline polygon(centredStar(200, 0.5), true);
  session.run("second moments of area, 200 vertices", [&] {
    double m[6];
    polygon.areaMoment2(m[0], m[1], m[2], m[3], m[4], m[5]);
    compare::keep(m);
  });
  return session.finish();
}
