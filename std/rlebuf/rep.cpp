#include "std/rlebuf/rep.h"

std::unique_ptr<qc_RLERep> qc_RLERep::like() const {
  auto other = std::make_unique<qc_RLERep>();
  other->hint = hint;
  other->width = width;
  other->offsetX = offsetX;
  other->offsetY = offsetY;
  other->xforms = xforms;
  return other;
}

namespace vnxstd::rle {

namespace {

constexpr qcUInt64 kFirstBlock = 8192;  // runs, without a hint

}  // namespace

RowWriter::RowWriter(qc_RLERep& rep, std::size_t height, std::int32_t hint)
    : rep_(rep), width_(static_cast<std::size_t>(rep.width)), height_(height), hint_(hint) {
  rep.rows.reserve(height);
  rep.counts.reserve(height);
}

void RowWriter::newBlock(std::size_t least) {
  const qcUInt64 row = qcUInt64{width_} + 1 + kSlack, most = row * (height_ - rep_.height());
  const qcUInt64 hinted = hint_ > 0 ? static_cast<qcUInt64>(hint_) + height_ + row : kFirstBlock;
  const qcUInt64 size = std::clamp<qcUInt64>(std::max(hinted, taken_), least, most);
  rep_.blocks.emplace_back(static_cast<std::size_t>(size));
  at_ = rep_.blocks.back().runs.get();
  left_ = static_cast<std::size_t>(size);
  taken_ += size;
}

}  // namespace vnxstd::rle
