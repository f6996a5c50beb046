#include "chainmender.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <vector>

#include "files.h"
#include "inspect.h"
#include "objects.h"
#include "recordhead.h"

namespace {

constexpr qcInt64 kLinkAt = 18;  // of the head of a record

const auto kNone = qcArchive::Position(0);

}  // namespace

bool ChainMender::mendLink() {
  const auto archive = openArchive(path_);
  if (archive->damaged() != kNone || !hasChain(*archive, path_)) return false;
  const std::vector<qcArchiveRecord> records = archive->records();
  const qcInt64 unfinished = static_cast<std::streamoff>(archive->unfinished());
  const auto size = static_cast<qcInt64>(std::filesystem::file_size(path_));
  const bool swap = isSwapped(*archive);
  std::ifstream file(path_, std::ios::binary);
  const qcInt64 at = records.empty() ? qc_format::kAnchorAt : records.back().at;
  const auto last = headAt(file, at, swap).linked();
  // What is unfinished names the last record, so nothing is missing before it, unless that can no longer be read.
  const auto head = static_cast<qcInt64>(qc_format::kLinkedHead);
  if (!last || last->position != 0 || (unfinished != 0 && size - unfinished >= head)) return false;
  const qc_Record anchor = headAt(file, qc_format::kAnchorAt, swap).record;
  const bool isMark = last->is(qc_format::kMark), isAhead = anchor.size > static_cast<qcUInt64>(at);
  qcInt64 end = last->end();
  if (isMark) end = std::max(end, headerEnd(*archive, records.back()));
  if (unfinished == end) return false;
  if (records.empty()) {
    dropAnchor(*archive, anchor);
    return false;
  }
  if (!isAhead && !(isMark && isResult(records.back()) && isDatabase(*archive))) return false;
  const auto next = headAt(file, end, swap).linked();
  if (!next || next->end() > size || !follows(*archive, *next, *last)) return false;
  link(at, end, swap);
  if (!isWhole(*next)) {
    link(at, 0, swap);
    return false;
  }
  report_ << "the link at byte " << at + kLinkAt << " was gone: it leads to byte " << end << " again\n";
  return true;
}

void ChainMender::writeAnchor() {
  qc_Record anchor;
  anchor.kind = qc_format::kAnchor;
  anchor.wide = true;
  overwrite(qc_format::kAnchorAt, headBytes(anchor, isSwapped(*openArchive(path_))));
}

void ChainMender::overwrite(qcInt64 at, const std::string& bytes) {
  std::fstream file(path_, std::ios::in | std::ios::out | std::ios::binary);
  if (!file.seekp(at).write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush())
    throw qcArchive::BadFile(L"the file cannot be written", 0);
}

// Lets the record at `at` lead to `to`.
void ChainMender::link(qcInt64 at, qcInt64 to, bool swap) {
  qc_Composer<sizeof(std::uint64_t)> bytes(swap);
  bytes.word(static_cast<std::uint64_t>(to));
  overwrite(at + kLinkAt, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

// Takes the anchor away where records are found without it that it led to. What was linked to it lies before what it
// announces, and was finished; a record that names it and is none of both was never linked. Where it announces nothing,
// one record may be other data that looks like it; two do not name each other by chance.
void ChainMender::dropAnchor(qcArchive& archive, const qc_Record& anchor) {
  std::ifstream file(path_, std::ios::binary);
  std::string bytes(qc_format::kLinkedHead, '\0');
  file.seekg(anchor.at).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  overwrite(anchor.at, std::string(bytes.size(), '\0'));
  const auto without = openArchive(path_);
  const long found = without->salvage();
  const bool isAhead = anchor.size >= static_cast<qcUInt64>(anchor.end());
  if (found >= (isAhead ? 1 : 2)) {
    const qc_Record first = headAt(file, without->records().front().at, isSwapped(archive)).record;
    if (!isAhead || first.previous != static_cast<qcUInt64>(anchor.at)) return;
    if (first.at < static_cast<std::streamoff>(anchor.size) && follows(archive, first, anchor)) return;
  }
  overwrite(anchor.at, bytes);
}

// Whether the record behind the last one was linked to it. What was given up stays where it is: an object that is cut,
// another one than the pointer's, or one that is there.
bool ChainMender::follows(qcArchive& archive, const qc_Record& next, const qc_Record& last) {
  if (next.previous != static_cast<qcUInt64>(last.at)) return false;
  if (last.is(qc_format::kPointer) && next.id != last.id) return false;
  if (next.is(qc_format::kObject) && (next.size == 0 || archive.findObject(next.id) != kNone)) return false;
  if (!next.is(qc_format::kPointer) || !next.isFollowed()) return true;
  std::ifstream file(path_, std::ios::binary);
  const auto object = headAt(file, next.end(), isSwapped(archive)).linked();
  return !object || !object->is(qc_format::kObject) || object->size != 0;
}

// Whether a record that was linked is taken in, and an object ends where its head says.
bool ChainMender::isWhole(const qc_Record& record) {
  const auto archive = openArchive(path_);
  const std::vector<qcArchiveRecord> records = archive->records();
  if (std::none_of(records.begin(), records.end(), [&](const auto& other) { return other.at == record.at; }))
    return false;
  if (!record.is(qc_format::kObject) || record.isRemoved()) return true;
  try {
    long id = 0;
    qcUInt64 size = 0;
    qcArchive::Position body;
    archive->seek(qcArchive::Position(record.at));
    archive->readObjectHeader64(id, size, body);
    return static_cast<std::streamoff>(body) + static_cast<qcInt64>(size) == record.end();
  } catch (const qcException& error) {
    if (faultOf(error) == Fault::medium) throw;
    return false;
  }
}
