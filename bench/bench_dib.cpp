// Bitmap files against OpenCV's reader and writer, on a memory file system where there is one.

#include <cstdio>
#include <filesystem>
#include <string>

#include "compare.h"
#include "vnxstd/archive/text.h"
#include "vnxstd/dib/dib.h"

#ifdef VNXSTD_BENCH_OPENCV
#include <opencv2/core/version.hpp>
#include <opencv2/imgcodecs.hpp>
#endif

namespace {

constexpr long kSide = 2048;

std::string place(const char* name) {
  const std::filesystem::path memory = "/dev/shm";
  return ((std::filesystem::exists(memory) ? memory : std::filesystem::temp_directory_path()) / name).string();
}

template <class Fill>
void fill(Fill put) {
  unsigned state = 1;
  for (long y = 0; y < kSide; ++y)
    for (long x = 0; x < kSide; ++x)
      put(x, y, static_cast<unsigned char>((state = state * 1664525 + 1013904223) >> 24));
}

}  // namespace

int main(int argc, char** argv) {
  compare::Session session(argc, argv);
#ifdef VNXSTD_BENCH_OPENCV
  session.peer("OpenCV", CV_VERSION);
  const std::string greyFile = place("vnxstd_bench_8.bmp"), colourFile = place("vnxstd_bench_24.bmp"),
                    theirFile = place("vnxstd_bench_peer.bmp");
  const std::wstring greyPath = qf_Widen(greyFile), colourPath = qf_Widen(colourFile);

  qcPelBuffer<unsigned char> grey(kSide, kSide);
  fill([&](long x, long y, unsigned char v) { grey.put(x, y, v); });
  qcPelBuffer<qcPackedRGB16Pel> colour(kSide, kSide);
  fill([&](long x, long y, unsigned char v) { colour.put(x, y, qcPackedRGB16Pel(v, v, v)); });
  qcDIB dib;
  dib.init(colour);
  dib.write(colourPath);
  dib.init(grey);
  dib.write(greyPath);

  session.run(
      "read 8 bit into a pel buffer", 0.2, [&] { compare::keep(qcDIB::readPelBuffer(greyPath)); },
      [&] { compare::keep(cv::imread(greyFile, cv::IMREAD_GRAYSCALE)); });
  session.run(
      "read 24 bit into a colour bitmap", 0.5,
      [&] {
        qcDIB read;
        read.init(colourPath);
        compare::keep(read);
      },
      [&] { compare::keep(cv::imread(colourFile, cv::IMREAD_COLOR)); });
  session.run(
      "read 24 bit into 32-bit pels", 0,
      [&] {
        qcDIB read;
        read.init(colourPath);
        qcPelBuffer<qcPackedRGB32Pel> pels;
        read.pelBuffer(pels);
        compare::keep(pels);
      },
      [&] { compare::keep(cv::imread(colourFile, cv::IMREAD_COLOR)); });
  const cv::Mat image = cv::imread(greyFile, cv::IMREAD_GRAYSCALE);
  session.run(
      "write 8 bit from a pel buffer", 0.85, [&] { qcDIB::writePelBuffer(greyPath, grey); },
      [&] { cv::imwrite(theirFile, image); });
  for (const std::string& file : {greyFile, colourFile, theirFile}) std::remove(file.c_str());
#else
  session.absent("OpenCV");
#endif
  return session.finish();
}
