#include "chainmender.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <set>
#include <vector>

#include "files.h"
#include "inspect.h"
#include "objects.h"
#include "recordhead.h"

namespace {

const auto kNone = qcArchive::Position(0);

// Whether another archive, which is there as a value, begins in a part of a file.
bool holdsAnchor(std::istream& file, qcInt64 from, qcInt64 to) {
  constexpr std::streamsize kStep = 65536;
  const auto& tag = qc_format::kRecordTag;
  std::vector<char> bytes(kStep + qc_format::kRecordHead);
  for (qcInt64 at = from; at < to; at += kStep) {
    file.clear();
    file.seekg(at).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    const char* const end = bytes.data() + file.gcount();
    for (const char* head = bytes.data(); end - head >= static_cast<std::ptrdiff_t>(qc_format::kRecordHead); ++head) {
      const auto byte = [head](std::size_t i) { return static_cast<unsigned char>(head[i]); };
      if (byte(0) == tag[0] && byte(1) == tag[1] && byte(2) == tag[2] &&
          byte(qc_format::kKindField) == qc_format::kAnchor)
        return at + (head - bytes.data()) < to;
    }
  }
  return false;
}

}  // namespace

bool ChainMender::mendLinks() {
  const auto archive = openArchive(path_);
  const std::vector<qcArchiveRecord> records = archive->records();
  if (archive->damaged() == qcArchive::Position(qc_format::kAnchorAt) || !hasChain(*archive, path_)) return false;
  std::ifstream file = openedOnce(path_);
  const qcInt64 at = records.empty() ? qc_format::kAnchorAt : records.back().at;
  auto last = headAt(file, at, isSwapped(*archive)).linked();
  std::vector<Link> links;
  while (const auto next = last ? lostRecord(*archive, file, *last, links.empty()) : std::nullopt) {
    link(last->at, next->at, isSwapped(*archive));
    links.push_back({last->at, *next});
    last = next;
  }
  if (!links.empty()) return keepWhole(links);
  // Of a chain without records nothing tells but what is found without its anchor.
  if (last && last->position == 0 && records.empty() && archive->damaged() == kNone) {
    const qcInt64 unfinished = static_cast<std::streamoff>(archive->unfinished());
    const qcInt64 left = static_cast<qcInt64>(std::filesystem::file_size(path_)) - unfinished;
    const bool isCut = unfinished > last->end() && left < static_cast<qcInt64>(qc_format::kLinkedHead);
    if (unfinished == 0 || isCut) dropAnchor(*archive, *last);
  }
  return false;
}

// What follows the last record although no link leads there: what the archive says was lost, or else what lies right
// behind. Farther on it is looked for where nothing is announced there; once a record was given up, what a program that
// was killed within a transaction has left may be taken for it, since what was committed must not be lost.
std::optional<qc_Record> ChainMender::lostRecord(qcArchive& archive, std::istream& file, const qc_Record& last,
                                                 bool isFirst) {
  const bool swap = isSwapped(archive), isMark = last.is(qc_format::kMark);
  const auto recordAt = [&](qcInt64 at) {
    const auto next = headAt(file, at, swap).linked();
    const bool isInside = next && next->end() <= static_cast<qcInt64>(std::filesystem::file_size(path_));
    return isInside && follows(archive, *next, last) ? next : std::nullopt;
  };
  if (last.position != 0) return std::nullopt;
  if (isFirst && archive.damaged() != kNone) return recordAt(static_cast<std::streamoff>(archive.damaged()));
  const qc_Record anchor = headAt(file, qc_format::kAnchorAt, swap).record;
  const auto announced = headAt(file, static_cast<qcInt64>(anchor.size), swap).linked();
  // What is unfinished names the last record, so nothing is missing before it, unless that can no longer be read.
  if (last.is(qc_format::kAnchor) || (announced && announced->previous == static_cast<qcUInt64>(last.at)))
    return std::nullopt;
  const qcInt64 end = std::max<qcInt64>(last.end(), isMark ? headerEnd(archive, last.told()) : 0);
  if (archive.unfinished() == qcArchive::Position(end)) return std::nullopt;
  const auto next = recordAt(end);
  const bool isAhead = anchor.size > static_cast<qcUInt64>(last.at);
  if (next || !isFirst || isAhead) return next;
  const qcInt64 place = foundBehind(last, swap);
  return place != 0 && !holdsAnchor(file, last.end(), place) ? recordAt(place) : std::nullopt;
}

// Where the first record lies that is found behind the last one if that leads to somewhere; 0 for none.
qcInt64 ChainMender::foundBehind(const qc_Record& last, bool swap) {
  link(last.at, qc_format::kAnchorAt, swap);
  const auto archive = openArchive(path_);
  const std::size_t before = archive->records().size();
  const qcInt64 place = archive->salvage() > 0 ? archive->records()[before].at : 0;
  link(last.at, 0, swap);
  return place;
}

// Takes back the first link that leads to what is not whole, with those behind it; whether any are left.
bool ChainMender::keepWhole(const std::vector<Link>& links) {
  const auto archive = openArchive(path_);
  std::set<qcInt64> taken;
  for (const qcArchiveRecord& record : archive->records()) taken.insert(record.at);
  std::size_t whole = 0;
  while (whole < links.size() && taken.contains(links[whole].to.at) && isWhole(*archive, links[whole].to)) {
    const Link& mended = links[whole++];
    report_ << "the link at byte " << mended.at + qc_format::kPositionField << " was gone: it leads to byte "
            << mended.to.at << " again\n";
  }
  for (std::size_t i = whole; i < links.size(); ++i) link(links[i].at, 0, isSwapped(*archive));
  return whole > 0;
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
  overwrite(at + qc_format::kPositionField, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

// Takes the anchor away where records are found without it that it led to. What was linked to it lies before what it
// announces, and was finished; a record that names it and is none of both was never linked. Where it announces nothing,
// one record that does not lie right behind may be other data that looks like it; two do not name each other by chance.
void ChainMender::dropAnchor(qcArchive& archive, const qc_Record& anchor) {
  std::ifstream file = openedOnce(path_);
  std::string bytes(qc_format::kLinkedHead, '\0');
  file.seekg(anchor.at).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  overwrite(anchor.at, std::string(bytes.size(), '\0'));
  const auto without = openArchive(path_);
  const long found = without->salvage();
  if (found > 0) {
    const qc_Record first = headAt(file, without->records().front().at, isSwapped(archive)).record;
    const auto announced = static_cast<std::streamoff>(anchor.size);
    const bool isLinked =
        first.previous != static_cast<qcUInt64>(anchor.at) || (first.at < announced && follows(archive, first, anchor));
    if (announced >= anchor.end() ? isLinked : found > 1 || first.at == anchor.end()) return;
  }
  overwrite(anchor.at, bytes);
}

// Whether the record behind the last one was linked to it. What was given up stays where it is: an object that is cut,
// another one than the pointer's, or one that is there.
bool ChainMender::follows(qcArchive& archive, const qc_Record& next, const qc_Record& last) {
  if (next.previous != static_cast<qcUInt64>(last.at)) return false;
  const bool isPristine = last.is(qc_format::kPointer) && last.isFollowed() && last.size == 0;
  if (isPristine && next.id != last.id) return false;
  if (next.is(qc_format::kObject) && (next.size == 0 || archive.findObject(next.id) != kNone)) return false;
  if (!next.is(qc_format::kPointer) || !next.isFollowed()) return true;
  std::ifstream file = openedOnce(path_);
  const auto object = headAt(file, next.end(), isSwapped(archive)).linked();
  return !object || !object->is(qc_format::kObject) || object->size != 0;
}

// Whether an object ends where its head says.
bool ChainMender::isWhole(qcArchive& archive, const qc_Record& record) {
  if (!record.is(qc_format::kObject) || record.isRemoved()) return true;
  try {
    long id = 0;
    qcUInt64 size = 0;
    qcArchive::Position body;
    archive.seek(qcArchive::Position(record.at));
    archive.readObjectHeader64(id, size, body);
    return static_cast<std::streamoff>(body) + static_cast<qcInt64>(size) == record.end();
  } catch (const qcException& error) {
    if (faultOf(error) == Fault::medium) throw;
    return false;
  }
}
