#include "recordhead.h"

#include <bit>

bool isSwapped(const qcArchive& archive) {
  return (archive.ordering() == qcArchive::littleEndian) != (std::endian::native == std::endian::little);
}

std::optional<qc_Record> RawHead::linked() const {
  const bool isEndless = record.is(qc_format::kObject) && record.size >> 62 != 0;  // beyond what places can say
  return record.isLinked() && record.isValid() && !isEndless ? std::optional(record) : std::nullopt;
}

RawHead headAt(std::istream& from, qcInt64 at, bool swap) {
  RawHead head{std::vector<unsigned char>(qc_format::kLinkedHead), {}};
  const auto size = static_cast<std::streamsize>(head.bytes.size());
  from.clear();
  const auto got = from.seekg(at).read(reinterpret_cast<char*>(head.bytes.data()), size).gcount();
  if (got == size && qf_IsRecord(head.bytes.data())) {
    head.record = qf_ParseHead(head.bytes.data(), swap);
    qf_ParseFields(head.record, head.bytes.data() + qc_format::kRecordHead, swap);
    head.record.at = at;
  }
  head.bytes.resize(static_cast<std::size_t>(got));
  return head;
}

std::string headBytes(const qc_Record& record, bool swap) {
  qc_Composer<qc_format::kLinkedHead> head(swap);
  qf_ComposeRecord(head, record);
  return {reinterpret_cast<const char*>(head.data()), head.size()};
}
