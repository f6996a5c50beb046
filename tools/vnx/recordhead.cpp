#include "recordhead.h"

#include <bit>

#include "files.h"

bool isSwapped(const qcArchive& archive) {
  return (archive.ordering() == qcArchive::littleEndian) != (std::endian::native == std::endian::little);
}

std::optional<qc_Record> RawHead::linked() const {
  const bool isEndless = record.is(qc_format::kObject) && record.size >> 62 != 0;  // beyond what places can say
  return record.isLinked() && record.isValid() && !isEndless ? std::optional(record) : std::nullopt;
}

RawHead headAt(std::istream& from, qcInt64 at, bool swap) {
  RawHead head{std::vector<unsigned char>(qc_format::kLinkedHead), {}};
  const std::size_t got = readAt(from, at, head.bytes.data(), head.bytes.size());
  if (got == head.bytes.size() && qf_IsRecord(head.bytes.data())) {
    head.record = qf_ParseHead(head.bytes.data(), swap);
    qf_ParseFields(head.record, head.bytes.data() + qc_format::kRecordHead, swap);
    head.record.at = at;
  }
  head.bytes.resize(got);
  return head;
}

std::string headBytes(const qc_Record& record, bool swap) {
  qc_Composer<qc_format::kLinkedHead> head(swap);
  qf_ComposeRecord(head, record);
  return {reinterpret_cast<const char*>(head.data()), head.size()};
}
