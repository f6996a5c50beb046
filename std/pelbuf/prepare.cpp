#include "vnxstd/pelbuf/prepare.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>

namespace {

using Buffers = std::initializer_list<const qc_PelBuffer*>;

/// Limits a part to a window.
void limit(qc_PelPart& part, const qc_PelBuffer& buffer) {
  const qcPair<long> ul = buffer.offset(), lr = ul + buffer.size();
  const long x1 = std::min(part.x + part.width, lr.x()), y1 = std::min(part.y + part.height, lr.y());
  part.x = std::max(part.x, ul.x());
  part.y = std::max(part.y, ul.y());
  part.width = static_cast<long>(std::max(qcInt64{x1} - part.x, qcInt64{0}));
  part.height = static_cast<long>(std::max(qcInt64{y1} - part.y, qcInt64{0}));
}

/// Whether the pels of a part of both buffers are partly, but not exactly, the same pels.
bool collide(const qc_PelBuffer& a, const qc_PelBuffer& b, const qc_PelPart& part) {
  if (!a.sharesPels(b)) return false;
  const auto distance = [&](long rootA, long imageA, long rootB, long imageB) {
    const qcInt64 d = (qcInt64{rootA} - imageA) - (qcInt64{rootB} - imageB);
    return d < 0 ? -d : d;
  };
  const qcInt64 dx = distance(a.offsetRoot().x(), a.offset().x(), b.offsetRoot().x(), b.offset().x());
  const qcInt64 dy = distance(a.offsetRoot().y(), a.offset().y(), b.offsetRoot().y(), b.offset().y());
  return (dx != 0 || dy != 0) && dx < part.width && dy < part.height;
}

/// The pels that the windows of all bound buffers have in common. Throws as the preparers.
qc_PelPart common(Buffers sources, Buffers destinations) {
  for (const qc_PelBuffer* source : sources) {
    if (!source->isBound()) throw qcPel::UnboundWindow();
  }
  const qc_PelBuffer& first = **sources.begin();
  const qc_PelPart nothing{first.offset().x(), first.offset().y(), 0, 0};
  qc_PelPart part{nothing.x, nothing.y, first.width(), first.height()};
  for (const Buffers& buffers : {sources, destinations}) {
    for (const qc_PelBuffer* buffer : buffers) {
      if (buffer->isBound()) limit(part, *buffer);
      if (part.isEmpty()) return nothing;
    }
  }
  for (const qc_PelBuffer* destination : destinations) {
    for (const Buffers& buffers : {sources, destinations}) {
      for (const qc_PelBuffer* other : buffers) {
        if (collide(*destination, *other, part)) throw qcPelFunc::Overlap();
      }
    }
  }
  return part;
}

/// Makes every bound window the part.
void prepare(std::initializer_list<qc_PelBuffer*> all, const qc_PelPart& part) {
  for (qc_PelBuffer* buffer : all) {
    if (!buffer->isBound()) continue;
    if (part.isEmpty()) {
      buffer->subWindow(0, 0, 0, 0);
    } else {
      buffer->window(part.x, part.y, part.width, part.height, false);
    }
  }
}

}  // namespace

qc_PelPart qf_PelCommon(Buffers sources, const qc_PelBuffer& destination) { return common(sources, {&destination}); }

void qfPelPrepare_1s1d(qc_PelBuffer& src, qc_PelBuffer& dst) {
  const qc_PelPart part = common({&src}, {&dst});
  if (dst.isBound()) prepare({&src, &dst}, part);  // nothing limits the source otherwise, not even without pels
}

void qfPelPrepare_2s1d(qc_PelBuffer& src1, qc_PelBuffer& src2, qc_PelBuffer& dst) {
  prepare({&src1, &src2, &dst}, common({&src1, &src2}, {&dst}));
}

void qfPelPrepare_2s2d(qc_PelBuffer& src1, qc_PelBuffer& src2, qc_PelBuffer& dst1, qc_PelBuffer& dst2) {
  prepare({&src1, &src2, &dst1, &dst2}, common({&src1, &src2}, {&dst1, &dst2}));
}

void qfPelPrepare_3s1d(qc_PelBuffer& src1, qc_PelBuffer& src2, qc_PelBuffer& src3, qc_PelBuffer& dst) {
  prepare({&src1, &src2, &src3, &dst}, common({&src1, &src2, &src3}, {&dst}));
}

void qf_PelPrepareMove(qc_PelBuffer& src, qc_PelBuffer& dst) {
  if (!src.isBound()) throw qcPel::UnboundWindow();
  if (dst.isBound()) prepare({&src, &dst}, common({&src, &dst}, {}));
}
