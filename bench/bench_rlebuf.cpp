// Run-length images beside the C library and OpenCV on the decoded pels, single thread, masks of 2048 x 2048 pels with
// 40 round blobs, and noise.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "compare.h"
#include "pelimages.h"
#include "std/pelbuf/dispatch.h"
#include "vnxstd/rlebuf.h"

namespace {

using pelimages::kSide;
using Image = pelimages::Image<unsigned char>;

/// Ellipses of 255 on 0.
Image blobs(unsigned seed) {
  Image image(kSide, kSide);
  qfPelClear(image);
  std::mt19937 random(seed);
  const auto between = [&](int lo, int hi) { return lo + static_cast<int>(random() % static_cast<unsigned>(hi - lo)); };
  for (int i = 0; i < 40; ++i) {
    const int rx = between(30, 115), ry = between(30, 115), cx = between(0, kSide), cy = between(0, kSide);
    for (int y = std::max(0, cy - ry); y < std::min<int>(kSide, cy + ry); ++y) {
      const int half = static_cast<int>(rx * std::sqrt(1 - std::pow(static_cast<double>(y - cy) / ry, 2)));
      const int first = std::max(0, cx - half), last = std::min<int>(kSide, cx + half);
      if (first < last) std::fill(image.pointToRow(y) + first, image.pointToRow(y) + last, 255);
    }
  }
  return image;
}

qcRLEBuffer encoded(const Image& image) {
  qcRLEBuffer runs;
  runs.encode(image);
  return runs;
}

/// What one would write first: a run ends where the next pel differs.
std::size_t encodePlainly(const Image& image, std::vector<qcRLEBufferRun>& runs) {
  runs.clear();
  for (long y = 0; y < kSide; ++y) {
    const unsigned char* const row = image.pointToRow(y);
    for (long x = 0; x < kSide;) {
      const long start = x;
      while (x < kSide && x - start < 255 && row[x] == row[start]) ++x;
      runs.emplace_back(row[start], static_cast<unsigned char>(x - start));
    }
    runs.emplace_back(0, 0);
  }
  return runs.size();
}

void againstMemory(compare::Session& session) {
  const Image image = blobs(1), dense = pelimages::noise<unsigned char>();
  Image decoded = blobs(2), other = blobs(3);
  qcRLEBuffer runs;
  std::vector<qcRLEBufferRun> plain;
  const auto copy = [&] {
    std::memcpy(other.pointToOffset(), image.pointToOffset(), kSide * kSide);
    compare::keep(other);
  };
  const auto encode = [&] { runs.encode(image); };
  session.run("encode / memcpy", 2.5, encode, copy);
  session.run("encode / plain loop", 0.1, encode, [&] { compare::keep(encodePlainly(image, plain)); });
  const auto threshold = [&] { runs.encode(image, 128); };
  session.run("encode with a threshold / memcpy", 0, threshold, copy);
  vnxstd::simd::setLevel(vnxstd::simd::Level::Baseline);
  session.run("encode with a threshold, baseline / memcpy", 0, threshold, copy);
  vnxstd::simd::setLevel(vnxstd::simd::highest());
  session.run(
      "encode through a table / memcpy", 0, [&] { runs.encode(image, 10, 200, 5); }, copy);
  session.run(
      "encode noise / plain loop", 0, [&] { runs.encode(dense); }, [&] { compare::keep(encodePlainly(dense, plain)); });
  runs.encode(image);
  session.run(
      "decode / memcpy", 1.1, [&] { runs.image(decoded); }, copy);
  const qcRLEBuffer noisy = encoded(dense);
  session.run(
      "decode noise / memcpy", 0, [&] { noisy.image(decoded); }, copy);
}

#if defined(VNXSTD_BENCH_OPENCV)

void againstOpenCv(compare::Session& session) {
  const Image image = blobs(1), otherImage = blobs(2);
  Image target = blobs(3);
  const cv::Mat mat = pelimages::asMat(image, CV_8U), otherMat = pelimages::asMat(otherImage, CV_8U);
  cv::Mat to = pelimages::asMat(target, CV_8U);
  const qcRLEBuffer runs = encoded(image), others = encoded(otherImage);
  std::printf("the mask has %llu runs, the other one %llu\n", runs.numRuns(), others.numRuns());

  const cv::Mat kernel = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3));
  session.run(
      "erode 3x3 / OpenCV erode", 0.4, [&] { compare::keep(qcRLEBuffer(runs.gmorphMin(qcRLEBuffer::square))); },
      [&] { cv::erode(mat, to, kernel); });
  session.run(
      "dilate 3x3 / OpenCV dilate", 0.4, [&] { compare::keep(qcRLEBuffer(runs.gmorphMax(qcRLEBuffer::square))); },
      [&] { cv::dilate(mat, to, kernel); });

  std::vector<unsigned char> table(65536);
  for (std::size_t i = 0; i < table.size(); ++i) table[i] = static_cast<unsigned char>(std::min(i / 256, i % 256));
  session.run(
      "combine / OpenCV min", 0.4,
      [&] {
        compare::keep(qcRLEBuffer(runs.combine({0, 0}, others, table)));
      },
      [&] { cv::min(mat, otherMat, to); });
  session.run(
      "mask / OpenCV bitwise_and", 0.4, [&] { compare::keep(qcRLEBuffer(runs.mask(others, 255, 0))); },
      [&] { cv::bitwise_and(mat, otherMat, to); });

  std::vector<unsigned long> counts(256), sums;
  session.run(
      "histogram / OpenCV calcHist", 0.02,
      [&] {
        std::fill(counts.begin(), counts.end(), 0);
        runs.histo(counts);
        compare::keep(counts);
      },
      [&] {
        cv::Mat result;
        const int channel = 0, bins = 256;
        const float range[] = {0, 256};
        const float* ranges = range;
        cv::calcHist(&mat, 1, &channel, cv::Mat(), result, 1, &bins, &ranges);
        compare::keep(result);
      });
  const auto project = [&](const char* name, double goal, auto ours, int dimension) {
    session.run(
        name, goal,
        [&] {
          ours();
          compare::keep(sums);
        },
        [&] {
          cv::Mat result;
          cv::reduce(mat, result, dimension, cv::REDUCE_SUM, CV_32S);
          compare::keep(result);
        });
  };
  project(
      "project onto rows / OpenCV reduce", 0.02, [&] { runs.projectHoriz(sums); }, 1);
  project(
      "project onto columns / OpenCV reduce", 0, [&] { runs.projectVert(sums); }, 0);

  cv::Mat labels, statistics, centres;
  session.run(
      "regions / OpenCV connectedComponentsWithStats", 0, [&] { compare::keep(qcRLERegions(runs)); },
      [&] { cv::connectedComponentsWithStats(mat, labels, statistics, centres); });
}

#endif

}  // namespace

int main(int argc, char** argv) {
  compare::Session session(argc, argv);
#if defined(VNXSTD_BENCH_OPENCV)
  cv::setNumThreads(1);
  session.peer("OpenCV", CV_VERSION);
#else
  session.absent("OpenCV");
#endif
  againstMemory(session);
#if defined(VNXSTD_BENCH_OPENCV)
  againstOpenCv(session);
#endif
  return session.finish();
}
