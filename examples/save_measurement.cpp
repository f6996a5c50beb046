// Saves a measurement as one archive and reads it back. The operator states the layout once, for both directions.
#include <vnxstd/archive.h>
#include <vnxstd/cfit.h>
#include <vnxstd/math.h>
#include <vnxstd/pelbuf.h>

#include <cstdio>
#include <iostream>
#include <vector>

struct Measurement {
  qcPelBuffer<unsigned char> image;
  std::vector<qcVector<2>> points;
  qcFLine line;
  qcXform<2> millimetresFromPixels;
};

qcArchive& operator||(qcArchive& archive, Measurement& m) {
  return archive || m.image || m.points || m.line || m.millimetresFromPixels;
}

int main() try {
  Measurement measured;
  measured.image = qcPelBuffer<unsigned char>(64, 48);
  qfPelClear(measured.image);
  measured.points = {{10, 20.1}, {20, 24.9}, {30, 30.0}, {40, 35.1}, {50, 39.9}};
  measured.line = qcLSLineFitter(measured.points).fit();
  measured.millimetresFromPixels = qcXform<2>(qcMatrix<2>(0.05, 0, 0, 0.05), qcVector<2>(0, 0));

  qcFileArchive out(L"measurement.arc", qcArchive::storing);
  out || measured;
  out.close();  // throws when the disk is full; the destructor could not

  Measurement read;
  qcFileArchive in(L"measurement.arc");
  in || read;
  std::printf(
      "measurement.arc: an image of %ld x %ld, %zu points, a line at %.2f degrees, %.2f pixels from the origin\n",
      read.image.width(), read.image.height(), read.points.size(), read.line.angle().plain(), read.line.distance());
  return read.line == measured.line && read.points == measured.points && qfPelEqual(read.image, measured.image) ? 0 : 1;
} catch (const qcException& error) {
  std::cerr << qf_Narrow(error.message(true)) << '\n';
  return 1;
}
