// Mapping points by nonlinear transforms, and fitting them, beside OpenCV and plain loops.
#include <cmath>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "bench/compare.h"
#include "vnxstd/math/xfdeform.h"
#include "vnxstd/math/xfpersp.h"
#include "vnxstd/math/xfpoly.h"

#if defined(VNXSTD_BENCH_OPENCV)
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

using Points = std::vector<qcVector<2>>;

Points points(std::size_t count) {  // over an image of 1000 x 1000 pixels
  std::mt19937_64 engine(1);
  std::uniform_real_distribution<double> coordinate(0, 1000);
  Points result(count);
  for (qcVector<2>& p : result) p = qcVector<2>(coordinate(engine), coordinate(engine));
  return result;
}

const qcMatrix<3> kMatrix(1.1, 0.1, 3, -0.2, 0.9, 4, 1e-4, -2e-4, 1);

void perspective(compare::Session& session) {
  const qc2XformPerspective xform(kMatrix);
  for (const std::size_t count : {std::size_t{1000}, std::size_t{1000000}}) {
    const Points in = points(count);
    Points out = in;
    const std::string what = "perspective, " + std::to_string(count) + " points";
    const auto ours = [&] { xform.mapPoints(in.data(), out.data(), count); };
#if defined(VNXSTD_BENCH_OPENCV)
    Points peerIn = in, peerOut = in;
    const cv::Mat h = (cv::Mat_<double>(3, 3) << 1.1, 0.1, 3, -0.2, 0.9, 4, 1e-4, -2e-4, 1);
    const cv::Mat from(1, static_cast<int>(count), CV_64FC2, peerIn.data());
    cv::Mat to(1, static_cast<int>(count), CV_64FC2, peerOut.data());
    session.run(what, 0.5, ours, [&] { cv::perspectiveTransform(from, to, h); });
#else
    session.run(what, ours);
#endif
  }
}

// What one writes who has the coefficients and any order.
qcVector<2> horner(int order, const double* x, const double* y, const qcVector<2>& p) {
  double sumX = 0, sumY = 0;
  for (int j = order; j >= 0; --j) {
    double innerX = 0, innerY = 0;
    for (int i = order - j; i >= 0; --i) {
      const int k = (i + j) * (i + j + 1) / 2 + j;
      innerX = innerX * p.x() + x[k];
      innerY = innerY * p.x() + y[k];
    }
    sumX = sumX * p.y() + innerX;
    sumY = sumY * p.y() + innerY;
  }
  return {sumX, sumY};
}

void polynomial(compare::Session& session, int order, double goal) {
  const std::size_t size = qc2XformPoly::size(order);
  std::vector<double> x(size, 1e-6), y(size, -1e-6);
  x[1] = y[2] = 1;
  const qc2XformPoly xform(order, x, y);
  const std::size_t count = 1000000;
  const Points in = points(count);
  Points out = in, peerOut = in;
  compare::keep(order);
  session.run(
      "polynomial of order " + std::to_string(order) + ", 1000000 points", goal,
      [&] { xform.mapPoints(in.data(), out.data(), count); },
      [&] {
        for (std::size_t i = 0; i < count; ++i) peerOut[i] = horner(order, x.data(), y.data(), in[i]);
        compare::keep(peerOut);
      });
}

void deformation(compare::Session& session) {
  const Points from = points(100), in = points(10000);
  Points to = from, out = in, peerOut = in;
  for (std::size_t i = 0; i < to.size(); ++i) to[i] += qcVector<2>(std::sin(static_cast<double>(i)), 0);
  const qc2XformDeform spline(from, to);
  session.run(
      "deformation by 100 points, 10000 points", 0, [&] { spline.mapPoints(in.data(), out.data(), in.size()); },
      [&] {
        for (std::size_t i = 0; i < in.size(); ++i) {
          qcVector<2> sum;
          for (std::size_t k = 0; k < from.size(); ++k) {
            const qcVector<2> d = in[i] - from[k];
            const double square = d * d;
            if (square > 0) sum += to[k] * (0.5 * square * std::log(square));
          }
          peerOut[i] = sum;
        }
        compare::keep(peerOut);
      });
  const Points inverse(in.begin(), in.begin() + 100);
  Points found = inverse;
  const qcPtrHandle<qc2XformBase> undo = spline.inverseBase();
  session.run("its inverse, 100 points", [&] { undo->mapPoints(inverse.data(), found.data(), inverse.size()); });
  const Points many = points(1000);
  session.run("deformation determined by 1000 points", [&] { compare::keep(qc2XformDeform(many, many)); });
}

void homography(compare::Session& session) {
  const qcVector<2> from[4] = {{10, 20}, {600, 30}, {620, 460}, {20, 440}}, to[4] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
  const auto ours = [&] { compare::keep(qc2XformPerspective(from, to)); };
#if defined(VNXSTD_BENCH_OPENCV)
  cv::Point2f peerFrom[4], peerTo[4];
  for (int i = 0; i < 4; ++i) {
    peerFrom[i] = cv::Point2f(static_cast<float>(from[i].x()), static_cast<float>(from[i].y()));
    peerTo[i] = cv::Point2f(static_cast<float>(to[i].x()), static_cast<float>(to[i].y()));
  }
  session.run("homography from 4 points", 0.3, ours,
              [&] { compare::keep(cv::getPerspectiveTransform(peerFrom, peerTo)); });
#else
  session.run("homography from 4 points", ours);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  compare::Session session(argc, argv);
#if defined(VNXSTD_BENCH_OPENCV)
  session.peer("OpenCV", CV_VERSION);
  cv::setNumThreads(1);
#else
  session.absent("OpenCV");
#endif
  perspective(session);
  polynomial(session, 3, 0.4);
  polynomial(session, 5, 0);
  homography(session);
  deformation(session);
  return session.finish();
}
