// Sends an image to the other end of a connection. The pels stay here; the other end copies those it wants.
#include <vnxstd/archive.h>
#include <vnxstd/comm.h>
#include <vnxstd/pelbuf.h>

#include <cstdio>
#include <functional>
#include <iostream>
#include <thread>

// What another process would do, with a qcCommunicator on its connected socket.
void inspect(qcCommunicator& connection) try {
  const auto in = connection.archive(qcArchive::loading);
  qcPelBuffer<unsigned char> image;
  *in || image;  // a proxy: pels are got and put through the connection
  const qcPelBuffer<unsigned char> mine = qfPelCopy(image, nullptr);  // what is to be measured is copied here
  unsigned char darkest, brightest;
  qfPelMinmax(mine, darkest, brightest);
  image.put(0, 0, brightest);
  std::printf("there: %ld x %ld pels, %d to %d\n", image.width(), image.height(), darkest, brightest);
  connection.finishSending();
} catch (const qcException& error) {
  std::cerr << "there: " << qf_Narrow(error.message(true)) << '\n';
  connection.finishSending();
}

int main() try {
  const auto ends = qcCommunicator::loopback();
  std::jthread there(inspect, std::ref(*ends.second));
  qcPelBuffer<unsigned char> image(640, 480);
  qfPelSet(image, 40);
  image.put(320, 240, 200);
  const auto out = ends.first->archive(qcArchive::storing);
  *out || image;
  out->flush();
  while (!ends.first->serve(1)) {  // answers for the pels until the other end has gone
  }
  there.join();
  std::printf("here: the pel at (0, 0) is %d now\n", image.get(0, 0));
  return image.get(0, 0) == 200 ? 0 : 1;
} catch (const qcException& error) {
  std::cerr << qf_Narrow(error.message(true)) << '\n';
  return 1;
}
