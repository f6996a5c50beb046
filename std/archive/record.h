// The heads of records, as bytes; docs/archive-format.md gives their fields.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ios>
#include <limits>

#include "std/archive/byteswap.h"
#include "std/archive/format.h"
#include "vnxstd/archive/archive.h"

namespace qc_format {

// Where the fields of a wide head lie.
constexpr std::streamoff kIdField = 5, kKindField = 9, kSizeField = 10, kPositionField = 18, kPreviousField = 26,
                         kLastField = 34;

}  // namespace qc_format

struct qc_Record {
  std::streamoff at = 0;  // where the head lies; not written
  std::int32_t id = 0;    // identifier of an object, or number of a mark
  unsigned char kind = 0;
  bool wide = false;      // the fields below take 8 bytes each
  qcUInt64 size = 0;      // of what follows the head; of the anchor: where the last record was begun; of a pointer: its
                          // second number
  qcUInt64 position = 0;  // of the record that a reference refers to; of a linked record: of the next one

  // Linked records only.
  qcUInt64 previous = 0;  // position of the record before it
  qcUInt64 last = 0;      // of a mark: its second number; of a pointer: where the record of its first number is; of
                          // objects and the anchor: the largest identifier given out so far

  /// The kind without the flags that may change.
  unsigned char plainKind() const noexcept {
    return kind & static_cast<unsigned char>(~(qc_format::kRemoved | qc_format::kSecondNumber));
  }
  bool is(unsigned char what) const noexcept {
    return plainKind() == what || (what == qc_format::kPointer && plainKind() == (what | qc_format::kInline));
  }
  bool isLinked() const noexcept {
    using namespace qc_format;
    return wide && (is(kAnchor) || is(kMark) || is(kPointer) || is(kObject));
  }
  bool isRemoved() const noexcept { return isLinked() && (kind & qc_format::kRemoved) != 0; }
  bool isFollowed() const noexcept { return (kind & qc_format::kInline) != 0; }
  /// The number that counts; negative for one that no record can have.
  std::int32_t number() const noexcept {
    if (!isLinked() || (kind & qc_format::kSecondNumber) == 0) return id;
    const qcUInt64 second = is(qc_format::kPointer) ? size : last;
    return second <= std::numeric_limits<std::int32_t>::max() ? static_cast<std::int32_t>(second) : -1;
  }

  std::size_t headSize() const noexcept { return qc_format::kRecordHead + (isLinked() ? 32 : wide ? 16 : 8); }
  std::streamoff bodyAt() const noexcept { return at + static_cast<std::streamoff>(headSize()); }
  /// Where it ends, together with what follows the head; an object that follows a pointer is a record of its own.
  std::streamoff end() const noexcept {
    return bodyAt() + (is(qc_format::kObject) ? static_cast<std::streamoff>(size) : 0);
  }
  /// What those who look at the archive from outside are told.
  qcArchiveRecord told() const noexcept {
    using namespace qc_format;
    using Kind = qcArchiveRecord::Kind;
    const Kind what = !isLinked()   ? kind == kInline ? Kind::inlined : Kind::reference
                      : is(kAnchor) ? Kind::anchor
                      : is(kMark)   ? Kind::mark
                      : is(kObject) ? Kind::object
                                    : Kind::pointer;
    constexpr qcUInt64 kMost = std::numeric_limits<qcInt64>::max();
    const qcUInt64 body = what == Kind::inlined || what == Kind::object ? std::min(size, kMost) : 0;
    return {what, number(), at, static_cast<qcInt64>(headSize()), static_cast<qcInt64>(body), isRemoved()};
  }
  bool isValid() const noexcept {
    using namespace qc_format;
    if (!isLinked()) return id >= 0 && (id != 0 || kind != kInline);
    if (is(kAnchor)) return kind == kAnchor && id == 0 && previous == 0;
    return id > 0 && number() > 0 && !(is(kObject) && (kind & kSecondNumber) != 0);
  }
};

/// Whether the first kRecordHead bytes of a head are those of a record.
inline bool qf_IsRecord(const unsigned char* head) noexcept {
  using namespace qc_format;
  return std::memcmp(head, kRecordTag.data(), kRecordTag.size()) == 0 &&
         (head[3] == kNarrowRecord || head[3] == kWideRecord);
}

/// What these bytes say; the fields behind them are read by qf_ParseFields.
inline qc_Record qf_ParseHead(const unsigned char* head, bool swap) noexcept {
  qc_Record record;
  std::uint32_t id;
  std::memcpy(&id, head + qc_format::kIdField, sizeof id);
  if (swap) qf_Reverse(id);
  record.wide = head[3] == qc_format::kWideRecord;
  record.id = static_cast<std::int32_t>(id);
  record.kind = head[qc_format::kKindField];
  return record;
}

/// Reads the fields of the rest of the head, of headSize() - kRecordHead bytes.
inline void qf_ParseFields(qc_Record& record, const unsigned char* rest, bool swap) noexcept {
  const auto next = [&rest, swap]<class Word>(Word word) {
    std::memcpy(&word, rest, sizeof word);
    rest += sizeof word;
    if (swap) qf_Reverse(word);
    return word;
  };
  if (!record.wide) {
    record.size = next(std::uint32_t());
    record.position = next(std::uint32_t());
    return;
  }
  record.size = next(std::uint64_t());
  record.position = next(std::uint64_t());
  if (!record.isLinked()) return;
  record.previous = next(std::uint64_t());
  record.last = next(std::uint64_t());
}

/// Bytes put together before they are written, numbers in archive order.
template <std::size_t N>
class qc_Composer {
 public:
  explicit qc_Composer(bool swap) noexcept : swap_(swap) {}
  void byte(unsigned char b) noexcept { bytes_[size_++] = b; }
  void bytes(const void* data, std::size_t count) noexcept {
    std::memcpy(bytes_.data() + size_, data, count);
    size_ += count;
  }
  template <class Word>
  void word(Word w) noexcept {
    if (swap_) qf_Reverse(w);
    bytes(&w, sizeof w);
  }
  const unsigned char* data() const noexcept { return bytes_.data(); }
  std::size_t size() const noexcept { return size_; }

 private:
  std::array<unsigned char, N> bytes_;
  std::size_t size_ = 0;
  bool swap_;
};

/// Appends the whole head; the fields of a narrow one must fit.
template <std::size_t N>
void qf_ComposeRecord(qc_Composer<N>& out, const qc_Record& record) noexcept {
  using namespace qc_format;
  out.bytes(kRecordTag.data(), kRecordTag.size());
  out.byte(record.wide ? kWideRecord : kNarrowRecord);
  out.byte(kRecordVersion);
  out.word(static_cast<std::uint32_t>(record.id));
  out.byte(record.kind);
  if (!record.wide) {
    out.word(static_cast<std::uint32_t>(record.size));
    out.word(static_cast<std::uint32_t>(record.position));
    return;
  }
  out.word(static_cast<std::uint64_t>(record.size));
  out.word(static_cast<std::uint64_t>(record.position));
  if (!record.isLinked()) return;
  out.word(static_cast<std::uint64_t>(record.previous));
  out.word(static_cast<std::uint64_t>(record.last));
}
