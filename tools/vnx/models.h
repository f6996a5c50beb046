// What sets the features apart that can be gauged: how many points define one, its least-squares fits, a point's
// distance, and where to look for it again once it is roughly known.
#pragma once

#include <cmath>
#include <cstddef>
#include <numbers>
#include <optional>
#include <string>
#include <vector>

#include <vnxstd/cfit/circlefit.h>
#include <vnxstd/cfit/ellipsefit.h>
#include <vnxstd/cfit/linefit.h>
#include <vnxstd/math/rigid.h>
#include <vnxstd/math/xflinear.h>
#include <vnxstd/shapes/circle.h>
#include <vnxstd/shapes/ellipse.h>
#include <vnxstd/shapes/line.h>

/// A ray that meets a feature at a right angle: from a point well inside through one on it.
struct Ray {
  qcVector<2> from, through;
};

/// Rays from the larger axis of an ellipse at right angles through it, evenly spaced along it; those of a circle come
/// from its centre.
std::vector<Ray> raysThrough(const qcEllipse2& ellipse, int count);

// Each model offers
//   kMinimal, kDraws      the points that define a feature, and how many random choices of them are tried
//   rough, fit            the feature through few points, and that of least squares; nothing when there is none
//   distance              of a point from the feature, never negative
//   placed                the feature scaled about the origin and then moved
//   frame                 the transform that carries the feature's own frame to its place
// and those of round features
//   rays                  as raysThrough
//   whyNot                why points carry a fit although they are near it; empty when they do

struct LineModel {
  using Shape = qcFLine;
  static constexpr std::size_t kMinimal = 2;
  static constexpr int kDraws = 300;
  static std::optional<Shape> rough(const std::vector<qcVector<2>>& points) { return fit(points); }
  static std::optional<Shape> fit(const std::vector<qcVector<2>>& points);
  static double distance(const Shape& line, const qcVector<2>& p) { return std::abs(line.distanceFrom(p)); }
  static Shape placed(const Shape& line, double scale, const qcVector<2>& by);
  static qc2XformLinear frame(const Shape& line) { return line.rigid_().linear(); }
};

struct CircleModel {
  using Shape = qcCircle;
  static constexpr std::size_t kMinimal = 3;
  static constexpr int kDraws = 300;
  static std::optional<Shape> rough(const std::vector<qcVector<2>>& points) { return fit(points); }
  static std::optional<Shape> fit(const std::vector<qcVector<2>>& points);
  static double distance(const Shape& circle, const qcVector<2>& p) {
    return std::abs((p - circle.center()).len() - circle.radius());
  }
  static Shape placed(const Shape& circle, double scale, const qcVector<2>& by) {
    return {circle.center() * scale + by, circle.radius() * scale};
  }
  static qc2XformLinear frame(const Shape& circle);
  static std::vector<Ray> rays(const Shape& circle, int count);
  static std::string whyNot(const Shape&, const std::vector<qcVector<2>>&) { return {}; }
};

struct EllipseModel {
  using Shape = qcEllipse2;
  static constexpr std::size_t kMinimal = 5;
  static constexpr int kDraws = 600;  // five points of which none is an outlier are rarer than three
  static std::optional<Shape> rough(const std::vector<qcVector<2>>& points);
  static std::optional<Shape> fit(const std::vector<qcVector<2>>& points);
  static double distance(const Shape& ellipse, const qcVector<2>& p) { return ellipse.nearestPoint(p).distance(p); }
  static Shape placed(const Shape& ellipse, double scale, const qcVector<2>& by) {
    return {ellipse.center() * scale + by, ellipse.angle(), ellipse.radii() * scale, true, qcRadian(0)};
  }
  static qc2XformLinear frame(const Shape& ellipse) { return ellipse.unitCircleMap(); }
  static std::vector<Ray> rays(const Shape& ellipse, int count) { return raysThrough(ellipse, count); }
  /// One straight edge carries half of a flat ellipse: points must lie all around.
  static std::string whyNot(const Shape& ellipse, const std::vector<qcVector<2>>& points);
};
