// Arranging, filtering and colour conversion beside OpenCV, single thread, images of 2048 x 2048 pels unless said.
// --baseline and --avx2 force a lower instruction-set level on this library's side.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "compare.h"
#include "pelimages.h"
#include "vnxstd/pelbuf.h"

namespace {

using pelimages::Image;
using pelimages::kSide;
using pelimages::sessionAtLevel;
#if defined(VNXSTD_BENCH_OPENCV)
using pelimages::asMat;
#endif

template <class T>
Image<T> noise(long width = kSide, long height = kSide) {
  Image<T> image(width, height);
  std::mt19937 random(1);
  for (long y = 0; y < height; ++y) {
    auto* const row = image.pointToRow(y);
    for (long x = 0; x < width; ++x) {
      const auto value = static_cast<std::uint32_t>(random());
      if constexpr (std::is_arithmetic_v<T>) {
        row[x] = static_cast<qcStoredPel<T>>(value % 65536);
      } else {
        row[x] = qcStoredPel<T>::fromWord(static_cast<typename qcPelTraits<T>::Element>(value));
      }
    }
  }
  return image;
}

#if defined(VNXSTD_BENCH_OPENCV)

/// Ours into a destination of its own, theirs into another of the same kind.
template <class S, class D>
void against(compare::Session& session, const std::string& name, double goal, const Image<S>& src, int srcType,
             Image<D> dst, int dstType, const auto& ours, const auto& theirs) {
  qfPelClear(dst);
  const Image<D> other = qfPelCopy(dst);
  const cv::Mat from = asMat(src, srcType);
  cv::Mat to = asMat(other, dstType);
  session.run(
      name, goal, [&] { ours(src, dst); }, [&] { theirs(from, to); });
}

template <class T>
void arrange(compare::Session& session, const std::string& type, int cvType, const double (&goals)[3]) {
  const Image<T> src = noise<T>();
  const Image<T> dst(kSide, kSide);
  const auto flip = [](int axis) { return [axis](const cv::Mat& from, cv::Mat& to) { cv::flip(from, to, axis); }; };
  against(
      session, "flip horizontal, " + type + " / OpenCV flip", goals[0], src, cvType, dst, cvType,
      [](const auto& s, auto& d) { qfPelFlipH(s, d); }, flip(1));
  against(
      session, "flip vertical, " + type + " / OpenCV flip", goals[1], src, cvType, dst, cvType,
      [](const auto& s, auto& d) { qfPelFlipV(s, d); }, flip(0));
  against(
      session, "transpose, " + type + " / OpenCV transpose", goals[2], src, cvType, dst, cvType,
      [](const auto& s, auto& d) { qfPelTranspose(s, d); },
      [](const cv::Mat& from, cv::Mat& to) { cv::transpose(from, to); });
}

template <class T>
void scale(compare::Session& session, const std::string& type, int cvType, double sampleGoal, double expandGoal) {
  const Image<T> src = noise<T>(), quarter = noise<T>(kSide / 2, kSide / 2);
  const auto resize = [](const cv::Mat& from, cv::Mat& to) {
    cv::resize(from, to, to.size(), 0, 0, cv::INTER_NEAREST);
  };
  against(
      session, "subsample by 2, " + type + " / OpenCV resize nearest", sampleGoal, src, cvType,
      Image<T>(kSide / 2, kSide / 2), cvType, [](const auto& s, auto& d) { qfPelSample(s, d, 2, 2); }, resize);
  against(
      session, "expand by 2, " + type + " / OpenCV resize nearest", expandGoal, quarter, cvType, Image<T>(kSide, kSide),
      cvType, [](const auto& s, auto& d) { qfPelExpand(s, d, 2, 2); }, resize);
}

/// OpenCV's result is as large as its source: ours leaves the border out.
template <class T>
void filters(compare::Session& session, const std::string& type, int cvType, const Image<T>& src,
             const double (&goals)[4]) {
  const Image<T> dst(src.width(), src.height());
  const auto box = [&](long side, long shift, double goal) {
    const auto text = std::to_string(side);
    against(
        session, "box of " + text + " x " + text + ", " + type + " / OpenCV blur", goal, src, cvType, dst, cvType,
        [=](const auto& s, auto& d) { qfPelSpatialAvg(s, d, side, side, shift); },
        [=](const cv::Mat& from, cv::Mat& to) {
          cv::blur(from, to, cv::Size(static_cast<int>(side), static_cast<int>(side)));
        });
  };
  box(3, 3, goals[0]);
  box(15, 8, goals[1]);
  box(101, 13, 0);
  const auto smooth = [&](int half, double goal) {
    const int side = 2 * half + 1;
    const auto text = std::to_string(side);
    against(
        session, "binomial of " + text + " x " + text + ", " + type + " / OpenCV GaussianBlur", goal, src, cvType, dst,
        cvType, [=](const auto& s, auto& d) { qfPelSmooth(s, d, half, half); },
        [=](const cv::Mat& from, cv::Mat& to) { cv::GaussianBlur(from, to, cv::Size(side, side), 0); });
  };
  smooth(1, goals[2]);
  smooth(3, 0);
  against(
      session, "median of 3 x 3, " + type + " / OpenCV medianBlur", goals[3], src, cvType, dst, cvType,
      [](const auto& s, auto& d) { qfPelMedian3x3(s, d); },
      [](const cv::Mat& from, cv::Mat& to) { cv::medianBlur(from, to, 3); });
}

void colours(compare::Session& session) {
  const Image<unsigned char> greys(kSide, kSide);
  const auto convert = [](const auto& s, auto& d) { qfConvertColorPelBuffer(s, d); };
  const auto code = [](int what) { return [what](const cv::Mat& from, cv::Mat& to) { cv::cvtColor(from, to, what); }; };
  against(session, "packed 32 bit to grey / OpenCV cvtColor", 0.35, noise<qcPackedRGB32Pel>(), CV_8UC4, greys, CV_8U,
          convert, code(cv::COLOR_BGRA2GRAY));
  against(session, "packed 16 bit to grey / OpenCV cvtColor", 0, noise<qcPackedRGB16Pel>(), CV_8UC2, greys, CV_8U,
          convert, code(cv::COLOR_BGR5652GRAY));
  against(session, "grey to packed 32 bit / OpenCV cvtColor", 0, noise<unsigned char>(), CV_8U,
          Image<qcPackedRGB32Pel>(kSide, kSide), CV_8UC4, convert, code(cv::COLOR_GRAY2BGRA));
}

#endif

}  // namespace

int main(int argc, char** argv) {
  compare::Session session = sessionAtLevel(argc, argv);
#if defined(VNXSTD_BENCH_OPENCV)
  cv::setNumThreads(1);
  session.peer("OpenCV", CV_VERSION);
  arrange<unsigned char>(session, "8 bit", CV_8U, {0.08, 0.95, 0.3});
  arrange<unsigned short>(session, "16 bit", CV_16U, {0.85, 0.95, 0.3});
  arrange<long>(session, "32 bit", CV_32S, {0, 0, 0.55});
  scale<unsigned char>(session, "8 bit", CV_8U, 0.1, 0.1);
  scale<unsigned short>(session, "16 bit", CV_16U, 0, 0);
  filters(session, "8 bit", CV_8U, noise<unsigned char>(), {0.2, 0.25, 0.5, 0.5});
  filters(session, "8 bit, 640 x 480", CV_8U, noise<unsigned char>(640, 480), {0, 0, 0, 0.25});
  filters(session, "8 bit, 16 x 16", CV_8U, noise<unsigned char>(16, 16), {0, 0, 0, 0});
  filters(session, "16 bit", CV_16U, noise<unsigned short>(), {0.6, 0.6, 0.6, 0.6});
  filters(session, "float", CV_32F, noise<float>(), {0.6, 0.6, 0.6, 0.6});
  colours(session);
#else
  session.absent("OpenCV");
#endif
  return session.finish();
}
