// Run-length images from arbitrary bytes: an error, or an image that is stored again alike and whose runs are its pels.

#include "fuzz/fuzz.h"
#include "vnxstd/rlebuf/rlebuf.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Input input(data, size);
  input.read([&](qcArchive& archive) {
    std::unique_ptr<qcRLEBuffer> image;
    archive || image;
    if (!image) return;
    demandSame(image, input.isSeekable());
    if (image->isDegenerate() || image->width() > 500 || image->height() > 500) return;
    qcRLEBuffer encoded;
    encoded.encode(image->image());
    demand(encoded == *image && encoded.isBinary() == image->isBinary());
  });
  return 0;
}
