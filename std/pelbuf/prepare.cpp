#include "vnxstd/pelbuf/prepare.h"

#include <cstddef>
#include <initializer_list>
#include <optional>

namespace {

using Buffers = std::initializer_list<qc_PelBuffer*>;

/// The pels that the windows of all bound buffers have in common, in image coordinates; nothing when there are none.
std::optional<qcPelRect> commonWindow(Buffers buffers) {
  std::optional<qcPelRect> common;
  for (const qc_PelBuffer* buffer : buffers) {
    if (!buffer->isBound()) continue;
    const qcPelRect window = buffer->window();
    if (common && !common->overlaps(window)) return std::nullopt;
    common = common ? qcPelRect(*common & window) : window;
  }
  return common && !common->isNull() ? common : std::nullopt;
}

/// Whether the pels at image coordinates `window` of both buffers are partly, but not exactly, the same pels.
bool collide(const qc_PelBuffer& a, const qc_PelBuffer& b, const qcPelRect& window) {
  if (!a.sharesPels(b)) return false;
  const auto distance = [&](long rootA, long imageA, long rootB, long imageB) {
    const qcInt64 d = (qcInt64{rootA} - imageA) - (qcInt64{rootB} - imageB);
    return d < 0 ? -d : d;
  };
  const qcInt64 dx = distance(a.offsetRoot().x(), a.offset().x(), b.offsetRoot().x(), b.offset().x());
  const qcInt64 dy = distance(a.offsetRoot().y(), a.offset().y(), b.offsetRoot().y(), b.offset().y());
  return (dx != 0 || dy != 0) && dx < window.width() && dy < window.height();
}

/// Checks everything first, so that a buffer is changed only when all of them are.
void prepare(Buffers sources, Buffers destinations, Buffers all) {
  for (const qc_PelBuffer* source : sources) {
    if (!source->isBound()) throw qcPel::UnboundWindow();
  }
  const std::optional<qcPelRect> common = commonWindow(all);
  if (common) {
    for (const qc_PelBuffer* destination : destinations) {
      for (const qc_PelBuffer* other : all) {
        if (collide(*destination, *other, *common)) throw qcPelFunc::Overlap();
      }
    }
  }
  for (qc_PelBuffer* buffer : all) {
    if (!buffer->isBound()) continue;
    if (common) {
      buffer->window(*common, false);
    } else {
      buffer->subWindow(0, 0, 0, 0);
    }
  }
}

}  // namespace

void qfPelPrepare_1s1d(qc_PelBuffer& src, qc_PelBuffer& dst) { prepare({&src}, {&dst}, {&src, &dst}); }

void qfPelPrepare_2s1d(qc_PelBuffer& src1, qc_PelBuffer& src2, qc_PelBuffer& dst) {
  prepare({&src1, &src2}, {&dst}, {&src1, &src2, &dst});
}

void qfPelPrepare_2s2d(qc_PelBuffer& src1, qc_PelBuffer& src2, qc_PelBuffer& dst1, qc_PelBuffer& dst2) {
  prepare({&src1, &src2}, {&dst1, &dst2}, {&src1, &src2, &dst1, &dst2});
}

void qfPelPrepare_3s1d(qc_PelBuffer& src1, qc_PelBuffer& src2, qc_PelBuffer& src3, qc_PelBuffer& dst) {
  prepare({&src1, &src2, &src3}, {&dst}, {&src1, &src2, &src3, &dst});
}

void qf_PelPrepareMove(qc_PelBuffer& src, qc_PelBuffer& dst) { prepare({&src}, {}, {&src, &dst}); }
