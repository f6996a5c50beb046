// Fits a circle to points measured on the rim of a hole.
#include <vnxstd/archive.h>
#include <vnxstd/cfit.h>

#include <cmath>
#include <cstdio>
#include <iostream>
#include <vector>

int main() try {
  const std::vector<qcVector<2>> rim = {{160.1, 80.0}, {148.2, 108.4}, {120.0, 119.8}, {91.6, 108.3},
                                        {80.1, 80.1},  {91.8, 51.6},   {119.9, 40.0},  {148.3, 51.8}};
  const qcCircle hole = qcLSCircleFitter(rim).fit();

  double squares = 0;
  for (const qcVector<2>& point : rim) squares += std::pow(hole.distToPoint(point), 2);
  std::printf("centre (%.3f, %.3f), radius %.3f, residual RMS %.3f pixels\n", hole.center().x(), hole.center().y(),
              hole.radius(), std::sqrt(squares / static_cast<double>(rim.size())));
} catch (const qcException& error) {
  std::cerr << qf_Narrow(error.message(true)) << '\n';
  return 1;
}
