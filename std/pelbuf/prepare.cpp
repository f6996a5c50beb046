#include "vnxstd/pelbuf/prepare.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>

namespace {

using Buffers = std::initializer_list<const qc_PelBuffer*>;

/// Pels from a corner to another one, which may lie above or left of it: then there are none.
struct Corners {
  explicit Corners(const qc_PelBuffer& window)
      : x0(window.offset().x()), y0(window.offset().y()), x1(x0 + window.width()), y1(y0 + window.height()) {}

  void limit(const Corners& other) {
    x0 = std::max(x0, other.x0);
    y0 = std::max(y0, other.y0);
    x1 = std::min(x1, other.x1);
    y1 = std::min(y1, other.y1);
  }

  qcInt64 x0, y0, x1, y1;
};

/// Whether the pels of a part of both buffers are partly, but not exactly, the same pels.
bool collide(const qc_PelBuffer& a, const qc_PelBuffer& b, const qc_PelPart& part) {
  if (&a == &b || !a.sharesPels(b)) return false;
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
  Corners corners(**sources.begin());
  for (const qc_PelBuffer* source : sources) {
    if (!source->isBound()) throw qcPel::UnboundWindow();
    corners.limit(Corners(*source));
  }
  for (const qc_PelBuffer* destination : destinations) {
    if (destination->isBound()) corners.limit(Corners(*destination));
  }
  if (corners.x0 >= corners.x1 || corners.y0 >= corners.y1) {
    const qcPair<long> place = (*sources.begin())->offset();
    return {place.x(), place.y(), 0, 0};
  }
  const qc_PelPart part{static_cast<long>(corners.x0), static_cast<long>(corners.y0),
                        static_cast<long>(corners.x1 - corners.x0), static_cast<long>(corners.y1 - corners.y0)};
  const auto refuseOverlap = [&](Buffers others) {
    for (const qc_PelBuffer* destination : destinations) {
      for (const qc_PelBuffer* other : others) {
        if (collide(*destination, *other, part)) throw qcPelFunc::Overlap();
      }
    }
  };
  refuseOverlap(sources);
  refuseOverlap(destinations);
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
