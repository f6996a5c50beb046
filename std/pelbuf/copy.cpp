#include "vnxstd/pelbuf/copy.h"

#include <cstdint>

#include "vnxstd/except/failure.h"
#include "zrtsys/memory.h"

void qf_PelCopy(const qc_PelRows<const unsigned char>& src, const qc_PelRows<unsigned char>& dst) {
  if (src.isEmpty()) return;
  qfThrowExceptionOnFailure(zrtsys::copyRect(dst.pels, dst.pitch, src.pels, src.pitch,
                                             static_cast<std::uint64_t>(src.width),
                                             static_cast<std::uint64_t>(src.height)));
}
