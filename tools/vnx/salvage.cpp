#include "salvage.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <vector>

#include <vnxstd/archive/file.h>
#include <vnxstd/vdb/vdbr_com.h>

#include "files.h"
#include "inspect.h"
#include "objects.h"
#include "std/archive/record.h"
#include "wholefile.h"
#include "wrongcall.h"

namespace {

using Records = std::vector<qcArchiveRecord>;
using Kind = qcArchiveRecord::Kind;

constexpr qcInt64 kLinkAt = 18;  // of the head of a record

// The records of a database: those of its marks that a pointer follows.
std::vector<RecordParts> databaseRecords(const Records& records) {
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

void requireDistinct(const std::string& from, const std::string& to) {
  if (isSameFile(from, to)) throw WrongCall("what is read and what is written must be different files; both are " + to);
}

// Copies `size` bytes from a place in a file.
void copyBytes(std::ifstream& from, qcInt64 at, qcInt64 size, qcArchive& to) {
  std::vector<char> bytes(65536);
  from.seekg(at);
  for (qcInt64 left = size; left > 0;) {
    const qcInt64 step = std::min(left, static_cast<qcInt64>(bytes.size()));
    if (!from.read(bytes.data(), step)) throw qcArchive::BadFile(L"the file cannot be read", 0);
    to.raw(bytes.data(), static_cast<long>(step));
    left -= step;
  }
}

bool isSwapped(const qcArchive& archive) {
  return (archive.ordering() == qcArchive::littleEndian) != (std::endian::native == std::endian::little);
}

// The head of a linked record; nothing where there is none.
std::optional<qc_Record> headAt(std::istream& from, qcInt64 at, bool swap) {
  std::array<unsigned char, qc_format::kLinkedHead> head{};
  from.clear();
  from.seekg(at);
  if (!from.read(reinterpret_cast<char*>(head.data()), head.size()) || !qf_IsRecord(head.data())) return std::nullopt;
  qc_Record record = qf_ParseHead(head.data(), swap);
  qf_ParseFields(record, head.data() + qc_format::kRecordHead, swap);
  record.at = at;
  return record.isLinked() && record.isValid() ? std::optional(record) : std::nullopt;
}

// The largest identifier that was in use behind an object, from the end of its head.
qcUInt64 lastIdentifier(std::ifstream& from, const qcArchiveRecord& object, bool swap) {
  const auto head = headAt(from, object.at, swap);
  if (!head) throw qcArchive::BadFile(L"the file cannot be read", 0);
  return head->last;
}

void writeHead(qcArchive& to, const qc_Record& record, bool swap) {
  qc_Composer<qc_format::kLinkedHead> head(swap);
  qf_ComposeRecord(head, record);
  std::string bytes(reinterpret_cast<const char*>(head.data()), head.size());
  to.raw(bytes.data(), static_cast<long>(bytes.size()));
}

void writeRecord(const RecordParts& parts, std::ifstream& from, qcArchive& to) {
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
  object.last = anchor.last = lastIdentifier(from, parts.object, swap);
  writeHead(to, mark, swap);
  copyBytes(from, headerAt, headerSize, to);
  writeHead(to, pointer, swap);
  writeHead(to, object, swap);
  copyBytes(from, parts.object.at + parts.object.size, parts.object.body, to);
  to.seek(qcArchive::Position(kAnchorAt));
  writeHead(to, anchor, swap);
}

// A copy of a damaged file that is mended record by record.
class Mending {
 public:
  Mending(const std::string& path, std::ostream& report) : path_(path), report_(report) {}

  bool run() {
    constexpr int kMostRounds = 64;
    std::unique_ptr<qcFileArchive> archive;
    qcInt64 from = 0, unfinished = 0;  // where the first damage lay
    long found = 1;
    // What was linked again may show what else is missing: each round finds records, or is the last one.
    for (int round = 0; found != 0 && round < kMostRounds; ++round) {
      archive.reset();
      while (mendLink()) {
      }
      archive =
          std::make_unique<qcFileArchive>(qf_Widen(path_), qcArchive::loading, qcArchive::littleEndian, true, false);
      archive_ = archive.get();
      const qcInt64 damaged = static_cast<std::streamoff>(archive->damaged());
      unfinished = static_cast<std::streamoff>(archive->unfinished());
      const Records linked = archive->records();
      found = archive->salvage();
      isDatabase_ = isDatabase(*archive);  // what says so may have been found just now
      if (damaged == 0 && found == 0) break;
      report_ << "the chain of records was broken at byte " << (damaged != 0 ? damaged : 2) << "; " << found
              << " records were found behind it\n";
      const qcInt64 behind = linked.empty() ? 44 : linked.back().at + linked.back().size + linked.back().body;
      const qcInt64 gap = std::max<qcInt64>(isDatabase_ ? std::min(damaged, behind) : damaged, 2);
      from = from == 0 ? gap : std::min(from, gap);
      if (archive->records().empty() && damaged == qc_format::kAnchorAt) {
        archive.reset();
        writeAnchor();
        found = 1;
      } else {
        archive->relink();
      }
    }
    if (from != 0) reportGaps(from);
    if (unfinished != 0 && archive->unfinished() != qcArchive::Position(0)) {
      lose(unfinished, "a record that its writer has not finished");
      archive->append();
    }
    while (dropUnreadable()) {
    }
    archive->mode(qcArchive::loading);
    archive->sync();
    archive->close();
    reportRest();
    return !lost_;
  }

 private:
  void lose(qcInt64 at, const std::string& what) {
    lost_ = true;
    report_ << "lost: at byte " << at << ": " << what << '\n';
  }

  void overwrite(qcInt64 at, const std::string& bytes) {
    std::fstream file(path_, std::ios::in | std::ios::out | std::ios::binary);
    if (!file.seekp(at).write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush())
      throw qcArchive::BadFile(L"the file cannot be written", 0);
  }

  // The head of a chain without records.
  void writeAnchor() {
    qc_Record anchor;
    anchor.kind = qc_format::kAnchor;
    anchor.wide = true;
    qc_Composer<qc_format::kLinkedHead> head(isSwapped(*openArchive(path_)));
    qf_ComposeRecord(head, anchor);
    overwrite(qc_format::kAnchorAt, {reinterpret_cast<const char*>(head.data()), head.size()});
  }

  // Where the chain ends although a whole record right behind it names its last one, the link to that one is gone, and
  // is written again. What was never linked looks the same: what tells is that the anchor announces records farther
  // on, or that a mark lacks what belongs to it. An anchor that leads nowhere although there are records is worth none.
  bool mendLink() {
    const auto none = qcArchive::Position(0);
    const auto archive = openArchive(path_);
    if (archive->damaged() != none || !hasChain(*archive, path_)) return false;
    const Records records = archive->records();
    const qcInt64 unfinished = static_cast<std::streamoff>(archive->unfinished());
    const auto size = static_cast<qcInt64>(std::filesystem::file_size(path_));
    const bool swap = isSwapped(*archive);
    std::ifstream file(path_, std::ios::binary);
    const qcInt64 at = records.empty() ? qc_format::kAnchorAt : records.back().at;
    const auto last = headAt(file, at, swap), anchor = headAt(file, qc_format::kAnchorAt, swap);
    // What is unfinished names the last record, so nothing is missing before it, unless that can no longer be read.
    const auto head = static_cast<qcInt64>(qc_format::kLinkedHead);
    if (!last || last->position != 0 || (unfinished != 0 && size - unfinished >= head)) return false;
    const bool isMark = last->is(qc_format::kMark), isAhead = anchor->size > static_cast<qcUInt64>(at);
    qcInt64 end = last->end();
    if (isMark) end = std::max(end, headerEnd(*archive, records.back()));
    if (unfinished == end) return false;
    if (records.empty()) {  // one record may be other data that looks like it, two do not name each other by chance
      std::string bytes(qc_format::kLinkedHead, '\0');
      file.seekg(at).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
      overwrite(at, std::string(bytes.size(), '\0'));
      if (openArchive(path_)->salvage() < (isAhead ? 1 : 2)) overwrite(at, bytes);
      return false;
    }
    const auto next = headAt(file, end, swap);
    if (!isAhead && !(isMark && isResult(records.back()) && isDatabase(*archive))) return false;
    if (!next || next->previous != static_cast<qcUInt64>(at) || next->end() > size) return false;
    // What was given up stays where it is: an object that is cut, another one than the pointer's, or one that is there.
    if (last->is(qc_format::kPointer) && next->id != last->id) return false;
    if (next->is(qc_format::kObject) && (next->size == 0 || archive->findObject(next->id) != none)) return false;
    if (next->is(qc_format::kPointer) && next->isFollowed()) {
      const auto object = headAt(file, next->end(), swap);
      if (object && object->is(qc_format::kObject) && object->size == 0) return false;
    }
    const auto lead = [&](qcInt64 to) {
      qc_Composer<sizeof(std::uint64_t)> link(swap);
      link.word(static_cast<std::uint64_t>(to));
      overwrite(at + kLinkAt, {reinterpret_cast<const char*>(link.data()), link.size()});
    };
    lead(end);
    if (!isWhole(*next)) return lead(0), false;
    report_ << "the link at byte " << at + kLinkAt << " was gone: it leads to byte " << end << " again\n";
    return true;
  }

  // Whether a record that was linked is taken in, and an object ends where its head says.
  bool isWhole(const qc_Record& record) {
    const auto archive = openArchive(path_);
    const Records records = archive->records();
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

  // Of a database, all bytes from the damage on belong to records and to the headers behind their marks.
  void reportGaps(qcInt64 from) {
    archive_->mode(qcArchive::loading);
    const qcInt64 all = static_cast<std::streamoff>(archive_->tell()) + archive_->remaining();
    qcInt64 end = std::max<qcInt64>(from, 44);
    const auto gap = [&](qcInt64 to) {
      if (to > end) lose(end, std::to_string(to - end) + " bytes in which no record was found");
    };
    const Records records = archive_->records();
    for (std::size_t i = 0; i < records.size(); ++i) {
      const qcArchiveRecord& record = records[i];
      const qcInt64 next = i + 1 < records.size() ? records[i + 1].at : all;
      if (next <= from) continue;
      if (record.at >= from) {
        gap(record.at);
        end = record.at + record.size + record.body;
      }
      if (record.kind != Kind::mark) continue;
      if (const qcInt64 behind = headerEnd(*archive_, record); behind <= next) end = std::max(end, behind);
    }
    gap(all);
  }

  // What still cannot be read, as objects between records, stays as it is.
  void reportRest() {
    const auto mended = openArchive(path_);
    if (mended->version() != 0 && !hasChain(*mended, path_))
      lose(2, "no chain of records begins here; what follows stays as it is");
    inspect(*mended, path_, [this](const Entry& entry) {
      const bool isFault = entry.kind == "fault" && std::strcmp(entry.facts.back().name, "limit") != 0;
      if (isFault) lose(entry.at, "what lies there stays damaged: " + entry.facts.front().value);
    });
  }

  // Marks as removed what cannot be loaded; true when there was something, since others may have referred to it.
  bool dropUnreadable() {
    const Records records = archive_->records();
    std::set<qcInt64> owned;
    bool dropped = false;
    for (std::size_t i = 0; isDatabase_ && i < records.size(); ++i) {
      if (!isResult(records[i]) || hasPointer(records, i)) continue;
      dropped = true;
      lose(records[i].at, "record " + std::to_string(records[i].number) + ": no object belongs to its mark");
      at(records[i]).removeMark();
    }
    for (const RecordParts& parts : databaseRecords(records)) {
      if (parts.bringsObject()) owned.insert(parts.object.at);
      const std::string why =
          parts.object.at != 0 || isDatabase_ ? whyNot(parts.pointer, parts.object, &parts.mark) : "";
      if (why.empty()) continue;
      dropped = true;
      lose(parts.bringsObject() ? parts.object.at : parts.pointer.at,
           "record " + std::to_string(parts.mark.number) + ": " + why);
      at(parts.pointer).removePointer();
      at(parts.mark).removeMark();
      if (parts.bringsObject()) at(parts.object).removeObject();
    }
    for (const qcArchiveRecord& record : records) {
      if (record.kind != Kind::object || record.removed || owned.contains(record.at)) continue;
      const std::string why = whyNot(record, record, nullptr);
      if (why.empty()) continue;
      dropped = true;
      lose(record.at, "object " + std::to_string(record.number) + ": " + why);
      at(record).removeObject();
    }
    return dropped;
  }

  qcArchive& at(const qcArchiveRecord& record) {
    archive_->seek(qcArchive::Position(record.at));
    return *archive_;
  }

  // Why an object cannot be read from its own record, or from the pointer behind this mark; empty when it can.
  std::string whyNot(const qcArchiveRecord& record, const qcArchiveRecord& object, const qcArchiveRecord* mark) {
    try {
      archive_->mode(qcArchive::loading);
      archive_->forgetObjects();
      if (mark && isDatabase_) {
        at(*mark).skipMark();
        qcVDBHeader header;
        *archive_ || header;
        if (archive_->tell() != qcArchive::Position(record.at))
          return "its header does not end where its pointer begins";
      }
      at(record);
      qcPersistent* loaded = nullptr;
      try {
        qcPersistent::serializePointer(*archive_, nullptr, loaded);
      } catch (const qcArchive::UnknownType&) {
        if (object.at == 0) return "its object is not among the records";
        at(object).objectTypeName();
      }
      const std::unique_ptr<qcPersistent> mine(loaded);
      return {};
    } catch (const qcException& error) {
      switch (faultOf(error)) {
        case Fault::limit:
          return {};  // nests deeper than is loaded here, and is no worse for it
        case Fault::medium:
          throw;
        default:
          return textOf(error);
      }
    }
  }

  std::string path_;
  std::ostream& report_;
  qcArchive* archive_ = nullptr;
  bool isDatabase_ = false, lost_ = false;
};

// How much of a plain archive lies before its first fault.
qcInt64 soundPrefix(const std::string& path, std::ostream& report) {
  const auto archive = openArchive(path);
  const qcInt64 all = static_cast<std::streamoff>(archive->tell()) + archive->remaining();
  qcInt64 item = static_cast<std::streamoff>(archive->tell());
  qcInt64 sound = all;
  const Fault worst = inspect(*archive, path, [&](const Entry& entry) {
    if (entry.kind == "fault" && sound == all) {
      sound = item;
      report << "lost: from byte " << sound << " on: at byte " << entry.at << ": " << entry.facts.front().value << '\n';
    }
    if (std::count(entry.path.begin(), entry.path.end(), '/') == 1 && entry.kind != "object") item = entry.at;
  });
  if (worst > Fault::content) throw FileError(path, "cannot be read whole, and what is damaged cannot be told", worst);
  return sound;
}

}  // namespace

bool hasChain(const qcArchive& archive, const std::string& path) {
  if (archive.damaged() != qcArchive::Position(0)) return true;
  std::ifstream file(path, std::ios::binary);
  const auto anchor = headAt(file, qc_format::kAnchorAt, isSwapped(archive));
  return anchor && anchor->is(qc_format::kAnchor);
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
  requireDistinct(path_, to);
  bytes_.clear();
  writeWhole(to, Existing::refused, [&](const std::string& part) {
    qcFileArchive archive(qf_Widen(part), qcArchive::storing, from_.ordering(), true);
    writeRecord(wanted->second, bytes_, archive);
    archive.close();
  });
  return true;
}

bool salvageArchive(const std::string& path, const std::string& to, std::ostream& report, const std::string& kept) {
  bool isWhole = true;
  if (kept.empty()) requireDistinct(path, to);
  const auto mend = [&](const std::string& part) {
    const bool isSeekable = onFile(path, [&](const std::wstring&) {
      if (kindOf(path) != FileKind::archive) throw FileError(path, "does not begin like an archive");
      return openArchive(path)->isSeekable();
    });
    copyFile(path, part);
    onFile(path, [&](const std::wstring&) {
      if (isSeekable) {
        isWhole = Mending(part, report).run();
      } else {
        const qcInt64 sound = soundPrefix(path, report);
        isWhole = sound == static_cast<qcInt64>(std::filesystem::file_size(part));
        std::filesystem::resize_file(part, static_cast<std::uintmax_t>(sound));
      }
    });
  };
  writeWhole(to, kept.empty() ? Existing::refused : Existing::replaced, mend, kept);
  return isWhole;
}
