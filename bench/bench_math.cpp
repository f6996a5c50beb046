// Mapping points, and composing and inverting transforms, beside OpenCV.
#include <cstddef>
#include <string>
#include <vector>

#include "bench/compare.h"
#include "vnxstd/math/xflinear.h"

#if defined(VNXSTD_BENCH_OPENCV)
#include <opencv2/core.hpp>
#endif

namespace {

const qcXform<2> kXform(qcMatrix<2>(1.1, 0.1, -0.2, 0.9), qcVector<2>(3, 4));
const qcXform<2> kTurn(qcMatrix<2>(0, -1, 1, 0), qcVector<2>());  // in place, the points stay finite

std::vector<qcVector<2>> points(std::size_t count) {
  std::vector<qcVector<2>> result(count);
  for (std::size_t i = 0; i < count; ++i) {
    const auto value = static_cast<double>(i);
    result[i] = qcVector<2>(value, -0.5 * value);
  }
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  compare::Session session(argc, argv);
#if defined(VNXSTD_BENCH_OPENCV)
  session.peer("OpenCV", CV_VERSION);
  cv::setNumThreads(1);
  const cv::Mat affine = (cv::Mat_<double>(2, 3) << 1.1, 0.1, 3, -0.2, 0.9, 4);
  const cv::Mat turn = (cv::Mat_<double>(2, 3) << 0, -1, 0, 1, 0, 0);
  for (const std::size_t count : {std::size_t{1000}, std::size_t{1000000}}) {
    std::vector<qcVector<2>> in = points(count), out = in, peerIn = in, peerOut = in;
    const cv::Mat from(1, static_cast<int>(count), CV_64FC2, peerIn.data());
    cv::Mat to(1, static_cast<int>(count), CV_64FC2, peerOut.data());
    const std::string what = "map " + std::to_string(count) + " points, ";
    session.run(
        what + "other array", 0.7, [&] { qfMapPoints(kXform, in.data(), out.data(), count); },
        [&] { cv::transform(from, to, affine); });
    std::vector<qcVector<2>> own = in, theirs = in;
    cv::Mat inPlace(1, static_cast<int>(count), CV_64FC2, theirs.data());
    session.run(
        what + "in place", 0.7, [&] { qfMapPoints(kTurn, own.data(), own.data(), count); },
        [&] { cv::transform(inPlace, inPlace, turn); });
  }

  const qcXform<2> other(qcMatrix<2>(0.9, 0.2, 0.1, 1.2), qcVector<2>(-1, 2));
  const cv::Matx33d peer(1.1, 0.1, 3, -0.2, 0.9, 4, 0, 0, 1), peerOther(0.9, 0.2, -1, 0.1, 1.2, 2, 0, 0, 1);
  qcXform<2> a = kXform, b = other;
  cv::Matx33d peerA = peer, peerB = peerOther;
  session.run(
      "compose", 1,
      [&] {
        compare::keep(a);
        compare::keep(b);
        compare::keep(a * b);
      },
      [&] {
        compare::keep(peerA);
        compare::keep(peerB);
        compare::keep(peerA * peerB);
      });
  session.run(
      "invert", 1,
      [&] {
        compare::keep(a);
        compare::keep(a.inverse());
      },
      [&] {
        compare::keep(peerA);
        compare::keep(peerA.inv());
      });
#else
  session.absent("OpenCV");
  std::vector<qcVector<2>> in = points(1000000), out = in;
  session.run("map 1000000 points, other array", [&] { qfMapPoints(kXform, in.data(), out.data(), in.size()); });
#endif
  const qc2XformLinear first(kXform), second(kXform.inverse());
  session.run("compose through handles", [&] { compare::keep(first * static_cast<const qc2XformBase&>(second)); });
  return session.finish();
}
