// What comes over a connection, from arbitrary bytes: frames of messages, which are loaded, and calls, which are
// answered. The other side has been lent one image and may make small ones.

#include "fuzz/fuzz.h"
#include "vnxstd/comm/communicator.h"
#include "vnxstd/comm/transfer.h"
#include "vnxstd/except/catalogue.h"
#include "vnxstd/pelbuf/buffer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto ends = qcCommunicator::loopback();
  qcCommunicator &here = *ends.first, &there = *ends.second;
  const qcDeadline soon(5.0);
  there.send(reinterpret_cast<const char*>(data), size, soon);
  there.finishSending();
  here.peerStorage(10000);
  here.timeOut(0.001);
  succeeds([&] {
    qcPelBuffer<unsigned char> image(4, 3);
    const auto lending = here.archive(qcArchive::storing, 1);
    *lending << image;
    lending->flush();
  });
  succeeds([&] { demand(here.serve(5)); });  // until the end is reached
  succeeds([&] {
    const auto archive = here.archive(qcArchive::loading, 1);
    for (;;) {
      qcPelBuffer<unsigned char> image;
      std::unique_ptr<qcPersistent> object;
      *archive || image || object;
      archive->nextMessage();
    }
  });
  return 0;
}
