// Makes an image, windows into it and measures there. Windows share the pels; coordinates stay those of the image.
#include <vnxstd/archive.h>
#include <vnxstd/math.h>
#include <vnxstd/pelbuf.h>

#include <cstdio>
#include <iostream>

int main() try {
  qcPelBuffer<unsigned char> image(640, 480);
  qfPelSet(image, 40);

  qcPelBuffer<unsigned char> part = image;  // the same pels
  part.window(200, 100, 150, 80, false);
  qfPelSet(part, 180);
  part.put(275, 140, 255);

  unsigned char darkest, brightest;
  qfPelMinmax(part, darkest, brightest);
  std::printf("part: %ld x %ld pels, %d to %d\n", part.width(), part.height(), darkest, brightest);
  qfPelMinmax(image, darkest, brightest);
  std::printf("image: %ld x %ld pels, %d to %d\n", image.width(), image.height(), darkest, brightest);

  // Client coordinates: 0.05 mm a pixel, with the origin in the image's centre.
  image.clientFromImageXform(qcXform<2>(qcMatrix<2>(0.05, 0, 0, 0.05), qcVector<2>(-16, -12)));
  const qcVector<2> corner = image.clientFromImageXform() * qcVector<2>(part.offset());
  std::printf("the part's corner lies at (%.2f, %.2f) mm\n", corner.x(), corner.y());
} catch (const qcException& error) {
  std::cerr << qf_Narrow(error.message(true)) << '\n';
  return 1;
}
