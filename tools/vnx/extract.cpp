#include "extract.h"

#include <algorithm>

#include <vnxstd/archive/file.h>

#include "files.h"
#include "objects.h"
#include "recordhead.h"
#include "wholefile.h"

using Kind = qcArchiveRecord::Kind;

namespace {

// Copies `size` bytes from a place in the file of that name.
void copyBytes(const std::string& path, std::ifstream& from, qcInt64 at, qcInt64 size, qcArchive& to) {
  std::vector<char> bytes(65536);
  from.seekg(at);
  for (qcInt64 left = size; left > 0;) {
    const qcInt64 step = std::min(left, static_cast<qcInt64>(bytes.size()));
    if (!from.read(bytes.data(), step)) throw unreadable(path);
    to.raw(bytes.data(), static_cast<long>(step));
    left -= step;
  }
}

// The largest identifier that was in use behind an object, from the end of its head.
qcUInt64 lastIdentifier(std::ifstream& from, const qcArchiveRecord& object, bool swap) {
  const auto head = headAt(from, object.at, swap).linked();
  if (!head) throw qcArchive::BadFile(L"the file cannot be read", 0);
  return head->last;
}

void writeHead(qcArchive& to, const qc_Record& record, bool swap) {
  std::string bytes = headBytes(record, swap);
  to.raw(bytes.data(), static_cast<long>(bytes.size()));
}

// `last` is the largest identifier that was in use.
void writeRecord(const RecordParts& parts, qcUInt64 last, const std::string& path, std::ifstream& from, qcArchive& to) {
  using namespace qc_format;
  const bool swap = isSwapped(to);
  constexpr qcUInt64 kHead = kLinkedHead;
  const qcInt64 headerAt = parts.mark.at + parts.mark.size, headerSize = parts.pointer.at - headerAt;
  qc_Record mark, pointer, object, anchor;
  mark.at = kAnchorAt + static_cast<std::streamoff>(kHead);
  pointer.at = mark.at + static_cast<std::streamoff>(kHead) + headerSize;
  object.at = pointer.at + static_cast<std::streamoff>(kHead);
  mark.kind = kMark;
  mark.id = static_cast<std::int32_t>(parts.mark.number);
  pointer.kind = kPointer | kInline;
  object.kind = kObject;
  pointer.id = object.id = static_cast<std::int32_t>(parts.object.number);
  object.size = static_cast<qcUInt64>(parts.object.body);
  anchor.at = kAnchorAt;
  anchor.kind = kAnchor;
  qc_Record* const chain[] = {&anchor, &mark, &pointer, &object};
  for (std::size_t i = 0; i < 4; ++i) {
    chain[i]->wide = true;
    if (i != 0) chain[i]->previous = static_cast<qcUInt64>(chain[i - 1]->at);
    if (i != 3) chain[i]->position = static_cast<qcUInt64>(chain[i + 1]->at);
  }
  pointer.last = static_cast<qcUInt64>(object.at);
  object.last = anchor.last = last;
  writeHead(to, mark, swap);
  copyBytes(path, from, headerAt, headerSize, to);
  writeHead(to, pointer, swap);
  writeHead(to, object, swap);
  copyBytes(path, from, parts.object.at + parts.object.size, parts.object.body, to);
  to.seek(qcArchive::Position(kAnchorAt));
  writeHead(to, anchor, swap);
}

}  // namespace

std::vector<RecordParts> databaseRecords(const std::vector<qcArchiveRecord>& records) {
  std::map<long, qcArchiveRecord> objects;
  for (const auto& record : records)
    if (record.kind == Kind::object && !record.removed) objects.emplace(record.number, record);
  std::vector<RecordParts> found;
  for (std::size_t i = 0; i + 1 < records.size(); ++i) {
    if (records[i].kind != Kind::mark || records[i].removed) continue;
    if (records[i + 1].kind != Kind::pointer || records[i + 1].removed) continue;
    const auto object = objects.find(records[i + 1].number);
    found.push_back({records[i], records[i + 1], object == objects.end() ? qcArchiveRecord() : object->second});
  }
  return found;
}

std::set<long> recordsWithoutObject(const std::vector<qcArchiveRecord>& records) {
  std::set<long> removed, found;
  for (const auto& record : records)
    if (record.kind == Kind::object && record.removed) removed.insert(record.number);
  for (std::size_t i = 0; i < records.size(); ++i) {
    if (!isResult(records[i]) || !hasPointer(records, i)) continue;
    if (records[i + 1].removed || removed.contains(records[i + 1].number)) found.insert(records[i].number);
  }
  return found;
}

RecordExtractor::RecordExtractor(const qcArchive& from, const std::string& path)
    : from_(from), path_(path), bytes_(path, std::ios::binary) {
  for (const RecordParts& parts : databaseRecords(from.records())) records_.emplace(parts.mark.number, parts);
}

bool RecordExtractor::extract(long number, const std::string& to) {
  const auto wanted = records_.find(number);
  if (wanted == records_.end() || wanted->second.object.at == 0) {
    if (from_.findMark(number) == qcArchive::Position(0)) return false;
    throw FileError(path_, "record " + std::to_string(number) + " has no object");
  }
  requireDistinct("what is read and what is written", {path_, to});
  const qcUInt64 last = lastIdentifier(bytes_, wanted->second.object, isSwapped(from_));
  writeWhole(to, Existing::refused, [&](const std::string& part) {
    qcFileArchive archive(qf_Widen(part), qcArchive::storing, from_.ordering(), true);
    writeRecord(wanted->second, last, path_, bytes_, archive);
    archive.close();
  });
  return true;
}
