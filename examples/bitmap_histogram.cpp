// Reads a bitmap and prints where its grey levels lie. usage: bitmap_histogram [FILE.bmp]
// Without a file it draws and writes one first: gradient.bmp.
#include <vnxstd/archive.h>
#include <vnxstd/dib.h>
#include <vnxstd/pelbuf.h>

#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

static void drawGradient(const std::wstring& path) {
  qcPelBuffer<unsigned char> image(256, 64);
  for (long y = 0; y < image.height(); ++y) {
    for (long x = 0; x < image.width(); ++x) image.put(x, y, static_cast<unsigned char>(x / 2 + 64));
  }
  qcDIB bitmap;
  bitmap.init(image);
  bitmap.write(path);
}

int main(int argc, char** argv) try {
  const std::wstring path = qf_Widen(argc > 1 ? argv[1] : "gradient.bmp");
  if (argc < 2) drawGradient(path);

  const qcPelBuffer<unsigned char> image = qcDIB::readPelBuffer(path);
  std::vector<unsigned long> counts;
  qfPelHistogram(image, counts);

  unsigned char darkest, brightest;
  qfPelMinmax(image, darkest, brightest);
  const unsigned long half = static_cast<unsigned long>(image.width() * image.height()) / 2;
  std::size_t median = 0;
  for (unsigned long below = counts[0]; below < half; below += counts[median]) ++median;
  std::printf("%ld x %ld pels, grey levels %d to %d, median %zu\n", image.width(), image.height(), darkest, brightest,
              median);
} catch (const qcException& error) {
  std::cerr << qf_Narrow(error.message(true)) << '\n';
  return 1;
}
