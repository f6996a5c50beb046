// Clipping, against Clipper, Boost.Geometry and GEOS.
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "compare.h"
#include "polygons.h"
#include "vnxstd/shapes.h"

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"  // Boost.Geometry, once inlined here
#endif
#if __has_include(<boost/geometry.hpp>)
#define VNXSTD_BENCH_GEOMETRY
#include <boost/geometry.hpp>
#include <boost/geometry/geometries/box.hpp>
#include <boost/geometry/geometries/linestring.hpp>
#include <boost/geometry/geometries/multi_linestring.hpp>
#include <boost/geometry/geometries/multi_polygon.hpp>
#include <boost/geometry/geometries/point_xy.hpp>
#include <boost/geometry/geometries/polygon.hpp>
#include <boost/version.hpp>
#endif
#ifdef VNXSTD_BENCH_GEOS
#define USE_UNSTABLE_GEOS_CPP_API
#include <geos/geom/CoordinateArraySequence.h>
#include <geos/geom/GeometryFactory.h>
#include <geos/geom/LinearRing.h>
#include <geos/geom/Polygon.h>
#include <geos/operation/intersection/Rectangle.h>
#include <geos/operation/intersection/RectangleIntersection.h>
#include <geos/version.h>
#endif
#ifdef VNXSTD_BENCH_CLIPPER
#include <polyclipping/clipper.hpp>
#endif

namespace {

const Points kJagged = star({500, 500}, 200, 0.5, 3), kOtherJagged = star({520, 490}, 200, 0.5, 5);
const Points kSmooth = star({500, 500}, 200, 0, 3), kOtherSmooth = star({620, 490}, 200, 0, 5);
const Points kRectangle{{300, 250}, {800, 250}, {800, 700}, {300, 700}};

qcPolyline polygonOf(const Points& points) { return {points, true}; }

#ifdef VNXSTD_BENCH_CLIPPER

void againstClipper(compare::Session& session) {
  const auto pathOf = [](const Points& points) {
    ClipperLib::Path path;
    for (const auto& p : points) path.emplace_back(std::llround(p.x() * 1e6), std::llround(p.y() * 1e6));
    return path;
  };
  const auto compareOn = [&](const char* name, double goal, const Points& a, const Points& b) {
    const qcPolyline shape = polygonOf(a), polygon = polygonOf(b);
    const ClipperLib::Path subject = pathOf(a), clip = pathOf(b);
    ClipperLib::Paths result;
    session.run(
        name, goal, [&] { compare::keep(shape.clip(polygon, true)); },
        [&] {
          ClipperLib::Clipper clipper;
          clipper.AddPath(subject, ClipperLib::ptSubject, true);
          clipper.AddPath(clip, ClipperLib::ptClip, true);
          clipper.Execute(ClipperLib::ctIntersection, result, ClipperLib::pftNonZero, ClipperLib::pftNonZero);
          compare::keep(result);
        });
  };
  compareOn("jagged by jagged, 200 vertices, Clipper", 0.8, kJagged, kOtherJagged);
  compareOn("smooth by smooth, 200 vertices, Clipper", 0, kSmooth, kOtherSmooth);
  compareOn("jagged by jagged, 5,000 vertices, Clipper", 0, star({500, 500}, 5000, 0.02, 3),
            star({520, 490}, 5000, 0.02, 5));
}

#endif

#ifdef VNXSTD_BENCH_GEOMETRY

namespace geometry = boost::geometry;
using Point = geometry::model::d2::point_xy<double>;
using Polygon = geometry::model::polygon<Point, false, true>;

void againstGeometry(compare::Session& session) {
  const auto theirs = [](const Points& points) {
    Polygon polygon;
    for (const auto& p : points) polygon.outer().emplace_back(p.x(), p.y());
    polygon.outer().push_back(polygon.outer().front());
    return polygon;
  };
  const auto compareOn = [&](const char* name, double goal, const Points& a, const Points& b) {
    const qcPolyline shape = polygonOf(a), polygon = polygonOf(b);
    const Polygon subject = theirs(a), clip = theirs(b);
    session.run(
        name, goal, [&] { compare::keep(shape.clip(polygon, true)); },
        [&] {
          geometry::model::multi_polygon<Polygon> result;
          geometry::intersection(subject, clip, result);
          compare::keep(result);
        });
  };
  compareOn("smooth by smooth, 200 vertices, Boost", 0.7, kSmooth, kOtherSmooth);
  compareOn("jagged by jagged, 200 vertices, Boost", 0, kJagged, kOtherJagged);

  const qcPolyline rectangle = polygonOf(kRectangle);
  const geometry::model::box<Point> box(Point(300, 250), Point(800, 700));
  qcRandomUniform random(7);
  std::vector<qcLineSeg> segments;
  std::vector<geometry::model::linestring<Point>> others;
  for (int i = 0; i < 1000; ++i) {
    const qcVector<2> p(random.next(0, 1000), random.next(0, 1000)), q(random.next(0, 1000), random.next(0, 1000));
    segments.emplace_back(p, q);
    others.push_back({Point(p.x(), p.y()), Point(q.x(), q.y())});
  }
  using Line = geometry::model::linestring<Point>;
  const auto each = [&](const auto& clip) {
    for (const Line& line : others) {
      geometry::model::multi_linestring<Line> result;
      geometry::intersection(line, clip, result);
      compare::keep(result);
    }
  };
  const auto ours = [&] {
    for (const qcLineSeg& segment : segments) compare::keep(segment.clip(rectangle, false));
  };
  const Polygon sides = theirs(kRectangle);
  session.run("1,000 segments by a rectangle, Boost polygon", 0.5, ours, [&] { each(sides); });
  session.run("1,000 segments by a rectangle, Boost box", 0.5, ours, [&] { each(box); });
}

#endif

#ifdef VNXSTD_BENCH_GEOS

void againstGeos(compare::Session& session) {
  const auto factory = geos::geom::GeometryFactory::create();
  const auto theirs = [&](const Points& points) {
    std::vector<geos::geom::Coordinate> ring;
    for (const auto& p : points) ring.emplace_back(p.x(), p.y());
    ring.push_back(ring.front());
    auto sequence = std::make_unique<geos::geom::CoordinateArraySequence>(std::move(ring));
    return factory->createPolygon(factory->createLinearRing(std::move(sequence)));
  };
  const qcPolyline shape = polygonOf(kJagged), rectangle = polygonOf(kRectangle);
  const auto subject = theirs(kJagged), clip = theirs(kRectangle);
  const geos::operation::intersection::Rectangle box(300, 250, 800, 700);
  const auto ours = [&] { compare::keep(shape.clip(rectangle, true)); };
  session.run("jagged by a rectangle, 200 vertices, GEOS", 0.5, ours,
              [&] { compare::keep(subject->intersection(clip.get())); });
  session.run("jagged by a rectangle, GEOS clip by rect", 0.5, ours,
              [&] { compare::keep(geos::operation::intersection::RectangleIntersection::clip(*subject, box)); });
}

#endif

}  // namespace

int main(int argc, char** argv) {
  compare::Session session(argc, argv);
#ifdef VNXSTD_BENCH_CLIPPER
  session.peer("Clipper", CLIPPER_VERSION);
  againstClipper(session);
#else
  session.absent("Clipper");
#endif
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
  const qcPolyline polygon = polygonOf(kJagged);
  const qcCircle circle({500, 500}, 300);
  session.run("a circle by a jagged polygon, 200 vertices", [&] { compare::keep(circle.clip(polygon, true)); });
  session.run("a line by a jagged polygon, 200 vertices", [&] {
    compare::keep(qcLine(qcRadian(1), {500, 500}).clip(polygon, true));
  });
  return session.finish();
}
