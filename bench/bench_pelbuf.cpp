// Pixel functions beside the C library and OpenCV, single thread, images of 2048 x 2048 pels unless said.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "compare.h"
#include "pelimages.h"
#include "vnxstd/pelbuf.h"

namespace {

using namespace pelimages;

template <class T>
std::size_t bytesOf(const Image<T>& image) {
  return static_cast<std::size_t>(image.width() * image.height()) * sizeof(qcStoredPel<T>);
}

/// Reads memory once and does as little as possible with it.
std::uint64_t readOnce(const void* memory, std::size_t bytes) {
  typedef std::uint64_t Vector __attribute__((vector_size(16)));
  Vector all[4] = {};
  const auto* const from = static_cast<const unsigned char*>(memory);
  for (std::size_t i = 0; i + sizeof all <= bytes; i += sizeof all) {
    for (std::size_t k = 0; k < 4; ++k) {
      Vector words;
      std::memcpy(&words, from + i + k * sizeof words, sizeof words);
      all[k] ^= words;
    }
  }
  all[0] ^= all[1] ^ all[2] ^ all[3];
  return all[0][0] ^ all[0][1];
}

template <class T>
void againstMemory(compare::Session& session, const std::string& type) {
  const Image<T> src = noise<T>();
  Image<T> dst = touched<T>(), other = touched<T>();
  const std::size_t bytes = bytesOf(src);
  const auto value = static_cast<T>(3);
  session.run(
      "copy, " + type + " / memcpy", 1.05, [&] { qfPelCopy(src, dst); },
      [&] {
        std::memcpy(other.pointToOffset(), src.pointToOffset(), bytes);
        compare::keep(other);
      });
  session.run(
      "set, " + type + " / memset", 1.05, [&] { qfPelSet(dst, value); },
      [&] {
        std::memset(other.pointToOffset(), 3, bytes);
        compare::keep(other);
      });
  session.run(
      "clear, " + type + " / memset", 1.05, [&] { qfPelClear(dst); },
      [&] {
        std::memset(other.pointToOffset(), 0, bytes);
        compare::keep(other);
      });
}

/// A window whose rows are padded, against one copy of as many bytes.
void windows(compare::Session& session) {
  Image<unsigned char> src = noise<unsigned char>(), dst = touched<unsigned char>();
  src.subWindow(3, 5, 1777, 1500);
  dst.subWindow(8, 5, 1777, 1500);
  dst.offset(src.offset());
  const std::size_t bytes = bytesOf(src);
  std::vector<unsigned char> from(bytes), to(bytes);
  session.run(
      "copy, 8 bit, window of 1777 x 1500 / memcpy", 0, [&] { qfPelCopy(src, dst); },
      [&] {
        std::memcpy(to.data(), from.data(), bytes);
        compare::keep(to);
      });
}

template <class T>
void extremes(compare::Session& session, const std::string& type, double goal) {
  const Image<T> image = noise<T>();
  session.run(
      "min and max, " + type + " / reading once", goal,
      [&] {
        T lo, hi;
        qfPelMinmax(image, lo, hi);
        compare::keep(hi);
      },
      [&] {
        const std::uint64_t sum = readOnce(image.pointToOffset(), bytesOf(image));
        compare::keep(sum);
      });
}

#if defined(VNXSTD_BENCH_OPENCV)

void extremesAgainstOpenCv(compare::Session& session) {
  const auto run = [&]<class T>(const Image<T>& image, int type, const char* name, double goal) {
    const cv::Mat mat = asMat(image, type);
    session.run(
        std::string("min and max, ") + name + " / OpenCV minMaxLoc", goal,
        [&] {
          T lo, hi;
          qfPelMinmax(image, lo, hi);
          compare::keep(hi);
        },
        [&] {
          double lo, hi;
          cv::minMaxLoc(mat, &lo, &hi);
          compare::keep(hi);
        });
  };
  run(noise<unsigned char>(), CV_8U, "8 bit", 0.2);
  run(noise<unsigned char>(512), CV_8U, "8 bit, 512 x 512", 0.2);
  run(noise<unsigned char>(16), CV_8U, "8 bit, 16 x 16", 0.4);
  run(noise<short>(), CV_16S, "16 bit signed", 0.2);
  run(noise<short>(512), CV_16S, "16 bit signed, 512 x 512", 0.2);
  run(noise<float>(), CV_32F, "float", 0.2);
  run(noise<float>(256), CV_32F, "float, 256 x 256", 0.2);
}

void copyAgainstOpenCv(compare::Session& session) {
  const Image<unsigned char> src = noise<unsigned char>(16);
  Image<unsigned char> dst = touched<unsigned char>(16), other = touched<unsigned char>(16);
  const cv::Mat from = asMat(src, CV_8U);
  cv::Mat to = asMat(other, CV_8U);
  session.run(
      "copy, 8 bit, 16 x 16 / OpenCV copyTo", 0.4, [&] { qfPelCopy(src, dst); }, [&] { from.copyTo(to); });
}

template <class T>
void histogramAgainstOpenCv(compare::Session& session, const Image<T>& image, int type, int bins,
                            const std::string& name, double goal) {
  const cv::Mat mat = asMat(image, type);
  std::vector<unsigned long> counts(static_cast<std::size_t>(bins));
  session.run(
      "histogram, " + name + " / OpenCV calcHist", goal,
      [&] {
        std::fill(counts.begin(), counts.end(), 0);
        qfPelHistogram(image, counts);
        compare::keep(counts);
      },
      [&] {
        cv::Mat result;
        const int channel = 0;
        const float range[] = {0, static_cast<float>(bins)};
        const float* ranges = range;
        cv::calcHist(&mat, 1, &channel, cv::Mat(), result, 1, &bins, &ranges);
        compare::keep(result);
      });
}

#endif

}  // namespace

int main(int argc, char** argv) {
  compare::Session session = sessionAtLevel(argc, argv);
#if defined(VNXSTD_BENCH_OPENCV)
  cv::setNumThreads(1);
  session.peer("OpenCV", CV_VERSION);
#else
  session.absent("OpenCV");
#endif
  againstMemory<unsigned char>(session, "8 bit");
  againstMemory<unsigned short>(session, "16 bit");
  againstMemory<long>(session, "32 bit");
  againstMemory<double>(session, "double");
  windows(session);
  extremes<unsigned char>(session, "8 bit", 1.1);
  extremes<float>(session, "float", 0);
#if defined(VNXSTD_BENCH_OPENCV)
  extremesAgainstOpenCv(session);
  copyAgainstOpenCv(session);
  histogramAgainstOpenCv(session, noise<unsigned char>(), CV_8U, 256, "8 bit, noise", 0.96);
  histogramAgainstOpenCv(session, smooth<unsigned char>(), CV_8U, 256, "8 bit, smooth", 0.75);
  histogramAgainstOpenCv(session, noise<unsigned short>(), CV_16U, 4096, "16 bit, noise of 12 bits", 0.35);
  histogramAgainstOpenCv(session, noise<unsigned char>(16), CV_8U, 256, "8 bit, 16 x 16", 0.4);
#endif
  return session.finish();
}
