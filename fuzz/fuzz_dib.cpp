// Bitmaps from arbitrary bytes: a bitmap error, or a bitmap that can be written again and, wherever its place has room
// for pels, converted.

#include <cstddef>
#include <cstdint>
#include <sstream>

#include "vnxstd/dib/dib.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  qcDIB dib;
  try {
    dib.init(data + 1, size - 1, (data[0] & 1) != 0);
  } catch (const qcDIB::Errors&) {
    return 0;
  }
  try {
    qcPelBuffer<qcPackedRGB16Pel> packed16;
    qcPelBuffer<qcPackedRGB32Pel> packed32;
    dib.pelBuffer(packed16);
    dib.pelBuffer(packed32);
    static_cast<void>(dib.pelBuffer());
  } catch (const qcDIB::Errors&) {
    // The trailer's offsets may leave pixel buffers no room; the bitmap itself is good.
  }
  std::ostringstream written;
  dib.write(written);
  return 0;
}
