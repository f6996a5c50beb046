#include "vnxstd/pelbuf/filter.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "vnxstd/archive/widths.h"

qcPelRect qf_PelBox(long width, long height) {
  constexpr qcInt64 most = std::numeric_limits<std::int32_t>::max();
  if (width < 1 || height < 1 || width > most || height > most || qcInt64{width} * height > most) {
    throw qcPelFunc::BadParams();
  }
  return qcPelRect(-((width - 1) / 2), -((height - 1) / 2), width, height);
}

qcPelRect qf_PelInside(const qcPelRect& window, const qcPelRect& neighbourhood) {
  // Without pels, the middle of a neighbourhood could lie beyond all coordinates.
  const bool fits =
      !window.isNull() && neighbourhood.width() <= window.width() && neighbourhood.height() <= window.height();
  return fits ? window - neighbourhood : qcPelRect(window.ul(), {0, 0});
}

bool qf_PelPrepareFilter(qc_PelBuffer& src, qc_PelBuffer& dst, const qcPelRect& neighbourhood) {
  const qcPelRect inside = qf_PelInside(src.window(), neighbourhood);
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

qcPelBuffer<qcPackedRGB32Pel> qf_PelUnpackFields(const qcPelBuffer_const<qcPackedRGB16Pel>& packed) {
  qcPelBuffer<qcPackedRGB32Pel> fields(packed.window());
  const auto unpack = [](const qcPackedRGB16Pel* from, qcPackedRGB32Pel* to, std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      const unsigned word = from[i].word();
      // Both windows have one size. NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage)
      to[i] = qcPackedRGB32Pel::fromWord((word >> 11 & 31u) << 16 | (word >> 5 & 63u) << 8 | (word & 31u));
    }
  };
  qf_PelForRows(unpack, qf_PelRows(packed), qf_PelRows(fields));
  return fields;
}

void qf_PelPackFields(const qcPelBuffer_const<qcPackedRGB32Pel>& fields, const qcPelBuffer<qcPackedRGB16Pel>& packed) {
  const auto pack = [](const qcPackedRGB32Pel* from, qcPackedRGB16Pel* to, std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      const std::uint32_t word = from[i].word();
      const std::uint32_t r = std::min(word >> 16 & 255u, 31u), g = std::min(word >> 8 & 255u, 63u);
      to[i] = qcPackedRGB16Pel::fromWord(static_cast<std::uint16_t>(r << 11 | g << 5 | std::min(word & 255u, 31u)));
    }
  };
  qf_PelForRows(pack, qf_PelRows(fields), qf_PelRows(packed));
}
