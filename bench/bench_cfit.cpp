// Fits from 1,000 points, from the raw points to the result, against OpenCV and Eigen.
#include <cmath>
#include <vector>

#include "compare.h"
#include "vnxstd/cfit.h"
#include "vnxstd/math/random.h"

#ifdef VNXSTD_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif
#ifdef VNXSTD_BENCH_EIGEN
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wstringop-overread"  // g++ 12 misreads the vector loads of umeyama
#endif
#include <Eigen/Dense>
#endif

namespace {

constexpr int kPoints = 1000;

struct Data {
  std::vector<qcVector<2>> first, second, line, circle, ellipse;

  Data() {
    qcRandomUniform random(1);
    const qcXform<2> map(qcMatrix<2>(0.9, -0.2, 0.2, 0.9), qcVector<2>(12, -7));
    const auto noise = [&random] { return qcVector<2>(random.next(-0.1, 0.1), random.next(-0.1, 0.1)); };
    for (int i = 0; i < kPoints; ++i) {
      const qcVector<2> q(random.next(0, 640), random.next(0, 480));
      const double angle = random.next(0, 6.28);
      second.push_back(q);
      first.push_back(map * q + noise());
      line.push_back(qcVector<2>(100 + 0.4 * i, 300 - 0.1 * i) + noise());
      circle.push_back(qcVector<2>(320 + 100 * std::cos(angle), 240 + 100 * std::sin(angle)) + noise());
      ellipse.push_back(qcXform<2>(qcMatrix<2>(1.2, 0.3, -0.2, 0.7), qcVector<2>()) * circle.back());
    }
  }
};

template <class Fitter, class... Points>
Fitter filled(const Points&... points) {
  Fitter fitter;
  fitter.update(points.data()..., kPoints);
  return fitter;
}

#ifdef VNXSTD_BENCH_EIGEN

// Rows (x, y, 1) and their solution in the least-squares sense.
template <class Right>
auto solved(const std::vector<qcVector<2>>& points, const Right& right) {
  Eigen::Matrix<double, Eigen::Dynamic, 3> rows(kPoints, 3);
  for (int i = 0; i < kPoints; ++i) {
    const qcVector<2>& p = points[static_cast<std::size_t>(i)];
    rows.row(i) << p.x(), p.y(), 1;
  }
  return Eigen::Matrix<double, 3, Right::ColsAtCompileTime>(rows.householderQr().solve(right));
}

void againstEigen(compare::Session& session, const Data& data) {
  using Columns = Eigen::Map<const Eigen::Matrix<double, 2, Eigen::Dynamic>>;
  const Columns first(&data.first[0][0], 2, kPoints), second(&data.second[0][0], 2, kPoints);
  const auto pairs = [&data] { return filled<qcLSPointToPointFitter>(data.first, data.second); };
  session.run(
      "similarity, Eigen umeyama", 0.4, [&] { compare::keep(pairs().fit(4)); },
      [&] { compare::keep(Eigen::umeyama(second, first, true)); });
  session.run(
      "affine, Eigen QR", 0.2, [&] { compare::keep(pairs().fit(6)); },
      [&] {
        Eigen::Matrix<double, Eigen::Dynamic, 2> right = first.transpose();
        compare::keep(solved(data.second, right));
      });
  session.run(
      "circle, Eigen QR", 0.2, [&] { compare::keep(filled<qcLSCircleFitter>(data.circle).fit()); },
      [&] {
        Eigen::Matrix<double, Eigen::Dynamic, 1> right(kPoints);
        for (int i = 0; i < kPoints; ++i) {
          const qcVector<2>& p = data.circle[static_cast<std::size_t>(i)];
          right[i] = -(p * p);
        }
        compare::keep(solved(data.circle, right));
      });
}

#endif

#ifdef VNXSTD_BENCH_OPENCV

void againstOpenCv(compare::Session& session, const Data& data) {
  std::vector<cv::Point2f> points;
  for (const qcVector<2>& p : data.line) points.emplace_back(static_cast<float>(p.x()), static_cast<float>(p.y()));
  cv::setNumThreads(1);
  cv::Vec4f line;
  session.run(
      "line, OpenCV fitLine", 0.6, [&] { compare::keep(filled<qcLSLineFitter>(data.line).fit()); },
      [&] {
        cv::fitLine(points, line, cv::DIST_L2, 0, 0.01, 0.01);
        compare::keep(line);
      });
  std::vector<cv::Point2f> oval;
  for (const qcVector<2>& p : data.ellipse) oval.emplace_back(static_cast<float>(p.x()), static_cast<float>(p.y()));
  session.run(
      "ellipse, OpenCV fitEllipseDirect", 0.6, [&] { compare::keep(qfFitEllipseDirect(data.ellipse)); },
      [&] { compare::keep(cv::fitEllipseDirect(oval)); });
}

#endif

}  // namespace

int main(int argc, char** argv) {
  compare::Session session(argc, argv);
  const Data data;
#ifdef VNXSTD_BENCH_OPENCV
  session.peer("OpenCV", CV_VERSION);
  againstOpenCv(session, data);
#else
  session.absent("OpenCV");
#endif
#ifdef VNXSTD_BENCH_EIGEN
  const std::string eigen = std::to_string(EIGEN_WORLD_VERSION) + '.' + std::to_string(EIGEN_MAJOR_VERSION) + '.' +
                            std::to_string(EIGEN_MINOR_VERSION);
  session.peer("Eigen", eigen.c_str());
  againstEigen(session, data);
#else
  session.absent("Eigen");
#endif
  const qcLSPointToPointFitter pairs = filled<qcLSPointToPointFitter>(data.first, data.second);
  const qcLSCircleFitter circle = filled<qcLSCircleFitter>(data.circle);
  session.run("rigid fit from the sums", [&] { compare::keep(pairs.fit(3)); });
  session.run("perpendicular-axes fit from the sums", [&] { compare::keep(pairs.fit(5)); });
  session.run("affine fit from the sums", [&] { compare::keep(pairs.fit(6)); });
  session.run("circle fit from the sums", [&] { compare::keep(circle.fit()); });
  session.run("ellipse by distances", [&] { compare::keep(qfFitEllipse(data.ellipse)); });
  return session.finish();
}
