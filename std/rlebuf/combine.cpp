// New images from the values of one or two: parts, masks, combinations, maps.
#include <array>
#include <vector>

#include "std/rlebuf/rep.h"

namespace {

namespace rle = vnxstd::rle;

/// The value of a stretch where there is no image.
constexpr std::uint32_t kNone = 256;

/// The stretches of a row of an image that lies `shift` columns to the right, within `width` columns; kNone where it
/// has no pels.
void expandShifted(const qc_RLERep& rep, std::size_t row, qcInt64 shift, std::int32_t width, rle::StretchRow& scratch,
                   rle::StretchRow& out) {
  rle::expandRow(rep, row, scratch);
  rle::Collector collector(out, scratch.count() + 2);
  if (shift > 0) collector.add(static_cast<std::int32_t>(std::min<qcInt64>(shift, width)), kNone);
  for (const rle::Stretch& stretch : scratch) {
    const qcInt64 end = stretch.end + shift;
    if (end > 0 && end < width) collector.add(static_cast<std::int32_t>(end), stretch.value);
    if (end < width) continue;
    collector.add(width, shift < width ? stretch.value : kNone);
    break;
  }
  if (rep.width + shift < width) collector.add(width, kNone);
  collector.finish();
}

/// A new image of `image` and what lies of `other`, moved by `offset`, upon it: op(value, other's value or kNone).
template <class Op>
std::unique_ptr<qc_RLERep> combined(const qc_RLERep& image, const qc_RLERep& other, const qcPair<long>& offset, Op op) {
  std::unique_ptr<qc_RLERep> made = image.like();
  rle::RowWriter writer(*made, image.height());
  const qcInt64 shiftX = rle::moved(other.offsetX, offset.x()) - image.offsetX;
  const qcInt64 shiftY = rle::moved(other.offsetY, offset.y()) - image.offsetY;
  const bool isAligned = shiftX == 0 && other.width == image.width;
  rle::StretchRow others, scratch, none;
  rle::Collector whole(none, 1);
  whole.add(image.width, kNone);
  whole.finish();
  for (std::size_t y = 0; y < image.height(); ++y) {
    const qcInt64 otherY = static_cast<qcInt64>(y) - shiftY;
    const bool hasRow = otherY >= 0 && otherY < static_cast<qcInt64>(other.height());
    const auto otherRow = static_cast<std::size_t>(hasRow ? otherY : 0);
    const rle::RunCursor own(image, y);
    if (!hasRow) {
      rle::RunSink sink(writer, image.counts[y]);
      rle::merge(own, rle::StretchCursor(none), image.width, op, sink);
      sink.finish();
    } else if (isAligned) {
      rle::RunSink sink(writer, std::size_t{image.counts[y]} + other.counts[otherRow]);
      rle::merge(own, rle::RunCursor(other, otherRow), image.width, op, sink);
      sink.finish();
    } else {
      expandShifted(other, otherRow, shiftX, image.width, scratch, others);
      rle::RunSink sink(writer, image.counts[y] + others.count());
      rle::merge(own, rle::StretchCursor(others), image.width, op, sink);
      sink.finish();
    }
  }
  writer.finish();
  return made;
}

}  // namespace

qc_TmpRLEBuffer qcRLEBuffer::subWindow(const qcPelRect& window) const {
  const qc_RLERep& image = rep();
  if (!this->window().contains(window)) throw qcPel::BadWindow();
  if (window.isNull()) throw Degenerate();
  std::unique_ptr<qc_RLERep> made = image.like();
  made->width = static_cast<std::int32_t>(window.width());
  made->offsetX = static_cast<std::int32_t>(window.x0());
  made->offsetY = static_cast<std::int32_t>(window.y0());
  const auto rows = static_cast<std::size_t>(window.height());
  const auto first = static_cast<std::size_t>(window.y0() - image.offsetY);
  rle::RowWriter writer(*made, rows);
  rle::StretchRow scratch, row;
  for (std::size_t y = 0; y < rows; ++y) {
    expandShifted(image, first + y, qcInt64{image.offsetX} - window.x0(), made->width, scratch, row);
    writer.row(row);
  }
  writer.finish();
  return qc_TmpRLEBuffer(std::move(made));
}

qc_TmpRLEBuffer qcRLEBuffer::mask(const qcRLEBuffer& other, unsigned char inside, unsigned char outside,
                                  bool invert) const {
  // What the pel is combined with by "and", then by "or", for every value of the other image.
  struct Effect {
    unsigned char keep, set;
  };
  std::array<Effect, kNone + 1> effects;
  const Effect in{static_cast<unsigned char>(inside == 255 ? 255 : 0),
                  static_cast<unsigned char>(inside == 255 ? 0 : inside)};
  effects.fill(invert ? Effect{0, outside} : in);
  effects[0] = invert ? in : Effect{0, outside};
  effects[kNone] = {0, outside};
  return qc_TmpRLEBuffer(combined(rep(), other.rep(), {}, [&effects](std::uint32_t value, std::uint32_t others) {
    const Effect effect = effects[others];
    return (value & effect.keep) | effect.set;
  }));
}

qc_TmpRLEBuffer qcRLEBuffer::combine(const qcPair<long>& offset, const qcRLEBuffer& other,
                                     const std::vector<unsigned char>& table) const {
  if (table.size() != 65536) throw qcPelFunc::BadParams();
  const unsigned char* const results = table.data();
  return qc_TmpRLEBuffer(combined(rep(), other.rep(), offset, [results](std::uint32_t value, std::uint32_t others) {
    const std::uint32_t result = results[256 * value + (others & 255)];
    return others == kNone ? value : result;
  }));
}

qc_TmpRLEBuffer qcRLEBuffer::map(const std::vector<unsigned char>& table) const {
  const qc_RLERep& image = rep();
  std::array<std::uint32_t, 256> whole;
  whole.fill(kNone);  // spoils the bits of all values when it occurs
  std::copy_n(table.begin(), std::min(table.size(), whole.size()), whole.begin());
  std::unique_ptr<qc_RLERep> made = image.like();
  rle::RowWriter writer(*made, image.height());
  rle::StretchRow row;
  for (std::size_t y = 0; y < image.height(); ++y) {
    std::uint32_t values = 0;
    rle::expand(image.rows[y], image.counts[y], row, [&](unsigned char value) {
      values |= whole[value];
      return whole[value];
    });
    if (values >= kNone) throw qcPelFunc::Range();
    writer.row(row);
  }
  writer.finish();
  return qc_TmpRLEBuffer(std::move(made));
}
