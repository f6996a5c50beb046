// Bitmaps from arbitrary bytes, as files where they begin like one and as the clipboard has them otherwise: a bitmap
// error, or a bitmap that can be written again and, wherever its place has room for pels, converted.

#include <sstream>

#include "fuzz/fuzz.h"
#include "vnxstd/dib/dib.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  qcDIB dib;
  if (!succeeds([&] { dib.init(data, size, size > 1 && data[0] == 'B'); })) return 0;
  succeeds([&] {  // the trailer's offsets may leave pixel buffers no room; the bitmap itself is good
    qcPelBuffer<qcPackedRGB16Pel> packed16;
    qcPelBuffer<qcPackedRGB32Pel> packed32;
    dib.pelBuffer(packed16);
    dib.pelBuffer(packed32);
    static_cast<void>(dib.pelBuffer());
  });
  std::stringstream file;
  dib.write(file);
  qcDIB again;
  again.init(file);
  demand(again.width() == dib.width() && again.height() == dib.height() && again.bitCount() == dib.bitCount() &&
         again.colourTable() == dib.colourTable() && again.xOffset() == dib.xOffset());
  return 0;
}
