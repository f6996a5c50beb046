#include "vnxstd/pelbuf/filter.h"

#include <limits>
#include <optional>

#include "vnxstd/archive/widths.h"

qcPelRect qf_PelBox(long width, long height) {
  constexpr qcInt64 most = std::numeric_limits<std::int32_t>::max();
  if (width < 1 || height < 1 || width > most || height > most || qcInt64{width} * height > most) {
    throw qcPelFunc::BadParams();
  }
  return qcPelRect(-((width - 1) / 2), -((height - 1) / 2), width, height);
}

bool qf_PelPrepareFilter(qc_PelBuffer& src, qc_PelBuffer& dst, const qcPelRect& neighbourhood) {
  const qcPelRect inside = src.window() - neighbourhood;
  if (!inside.overlaps(dst.window())) {
    src.subWindow(0, 0, 0, 0);
    dst.subWindow(0, 0, 0, 0);
    return false;
  }
  const qcPelRect common = inside & dst.window();
  src.window(common + neighbourhood, false);
  dst.window(common, false);
  if (!src.sharesPels(dst)) return false;
  if (src.offsetRoot() - src.offset() != dst.offsetRoot() - dst.offset()) throw qcPelFunc::Overlap();
  return true;
}
