#include "salvage.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <ostream>
#include <set>
#include <vector>

#include <vnxstd/archive/file.h>
#include <vnxstd/vdb/vdbr_com.h>

#include "chainmender.h"
#include "extract.h"
#include "files.h"
#include "format.h"
#include "inspect.h"
#include "objects.h"
#include "recordhead.h"
#include "wholefile.h"

namespace {

using Records = std::vector<qcArchiveRecord>;
using Kind = qcArchiveRecord::Kind;

// A copy of a damaged file that is mended record by record.
class Mending {
 public:
  Mending(const std::string& path, std::ostream& report) : path_(path), report_(report), chain_(path, report) {}

  bool run() {
    if (const qcInt64 from = linkAll(); from != 0) reportGaps(from);
    if (unfinished_ != 0 && archive_->unfinished() != qcArchive::Position(0)) {
      if (isBegun(endOfData())) lose(unfinished_, "a record that its writer has not finished");
      archive_->append();
    }
    without_ = recordsWithoutObject(archive_->records());
    while (dropUnreadable()) {
    }
    archive_->mode(qcArchive::loading);
    archive_->sync();
    const Records records = archive_->records();
    archive_->close();
    const long objects = reportRest();
    held_ = isDatabase_ ? counted(std::count_if(records.begin(), records.end(), isResult), "record")
                        : counted(objects, "object");
    return !lost_;
  }
  /// What the file holds then.
  const std::string& held() const { return held_; }

 private:
  // Makes one chain of all records that can be found, and leaves the archive open; where the first damage lay, or 0.
  qcInt64 linkAll() {
    constexpr int kMostRounds = 64;
    qcInt64 from = 0;
    long found = 1;
    // What was linked again may show what else is missing: each round finds records, or is the last one.
    for (int round = 0; found != 0 && round < kMostRounds; ++round) {
      archive_.reset();
      for (int i = 0; i < kMostRounds && chain_.mendLinks(); ++i) {
      }
      archive_ =
          std::make_unique<qcFileArchive>(qf_Widen(path_), qcArchive::loading, qcArchive::littleEndian, true, false);
      const qcInt64 damaged = static_cast<std::streamoff>(archive_->damaged());
      unfinished_ = static_cast<std::streamoff>(archive_->unfinished());
      const Records linked = archive_->records();
      found = archive_->salvage();
      isDatabase_ = isDatabase(*archive_);  // what says so may have been found just now
      if (damaged == 0 && found == 0) break;
      report_ << "the chain of records was broken at byte " << (damaged != 0 ? damaged : 2) << "; "
              << counted(found, "record head") << " found behind it\n";
      const qcInt64 gap = std::max<qcInt64>(gapFrom(damaged, linked), 2);
      from = from == 0 ? gap : std::min(from, gap);
      if (archive_->records().empty() && damaged == qc_format::kAnchorAt) {
        archive_.reset();
        chain_.writeAnchor();
        found = 1;
      } else {
        archive_->relink();
      }
    }
    return from;
  }

  // From where on something may be missing. What the last link led to tells, unless the link itself is damaged; and
  // where all records that were found name each other, nothing is.
  qcInt64 gapFrom(qcInt64 damaged, const Records& linked) {
    const Records records = archive_->records();
    std::ifstream file = openedOnce(path_);
    bool isWhole = records.size() > linked.size();
    const qcInt64 next = isWhole ? records[linked.size()].at : endOfData() - 1;
    for (std::size_t i = linked.size(); i < records.size(); ++i) {
      const qc_Record record = headAt(file, records[i].at, isSwapped(*archive_)).record;
      const bool isNamed = record.previous == static_cast<qcUInt64>(i == 0 ? qc_format::kAnchorAt : records[i - 1].at);
      const bool isEnd = i + 1 < records.size() || record.position == 0;
      const bool isObject = record.is(qc_format::kObject), isPart = isObject || record.is(qc_format::kPointer);
      const bool isStray = i > 0 && isPart && records[i - 1].kind != (isObject ? Kind::pointer : Kind::mark);
      if (isDatabase_ && isStray && !isNamed && !record.isRemoved())
        lose(record.at, "object " + std::to_string(record.id) + ": the record that it belongs to was not found");
      isWhole = isWhole && isNamed && isEnd;
    }
    if (isDatabase_) return linked.empty() ? 44 : linked.back().at;  // its own bytes are not missing
    const qcInt64 behind = linked.empty() ? 44 : linked.back().at + linked.back().size + linked.back().body;
    return isWhole || (damaged >= behind && damaged <= next) ? damaged : behind;
  }

  // Whether something of what is unfinished lies there, or was cut away: a link leads to the end, or from before it to
  // behind it. Nothing does where it was only announced, nor where the link of the last record is damaged.
  bool isBegun(qcInt64 end) const {
    const Records records = archive_->records();
    std::ifstream file = openedOnce(path_);
    const qcInt64 at = records.empty() ? qc_format::kAnchorAt : records.back().at;
    const qc_Record last = headAt(file, at, isSwapped(*archive_)).record;
    return unfinished_ < end || last.position == static_cast<qcUInt64>(end) || (last.position != 0 && last.end() < end);
  }

  qcInt64 endOfData() {
    archive_->mode(qcArchive::loading);
    return static_cast<std::streamoff>(archive_->tell()) + archive_->remaining();
  }

  void lose(qcInt64 at, const std::string& what) {
    lost_ = true;
    report_ << "lost: at byte " << at << ": " << what << '\n';
  }

  // Of a database, all bytes from the damage on belong to records and to the headers behind their marks.
  void reportGaps(qcInt64 from) {
    const qcInt64 all = endOfData();
    qcInt64 end = std::max<qcInt64>(from, 44);
    const auto gap = [&](qcInt64 to) {
      if (to > end) lose(end, counted(to - end, "byte") + " in which no record was found");
    };
    const Records records = archive_->records();
    for (std::size_t i = 0; i < records.size(); ++i) {
      const qcArchiveRecord& record = records[i];
      const qcInt64 next = i + 1 < records.size() ? records[i + 1].at : all;
      if (next <= from) continue;
      if (record.at >= from) gap(record.at);
      end = std::max(end, record.at + record.size + record.body);
      if (record.kind != Kind::mark) continue;
      if (const qcInt64 behind = headerEnd(*archive_, record); behind <= next) end = std::max(end, behind);
    }
    gap(all);
  }

  // What still cannot be read, as objects between records, stays as it is. How many objects there are.
  long reportRest() {
    const auto mended = openArchive(path_);
    long objects = 0;
    inspect(*mended, path_, [&](const Entry& entry) {
      if (entry.kind == "object") ++objects;
      const bool isFault = entry.kind == "fault" && std::strcmp(entry.facts.back().name, "limit") != 0;
      if (isFault) lose(entry.at, "what lies there stays damaged: " + entry.facts.front().value);
    });
    return objects;
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
        if (without_.contains(mark->number)) return {};
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
  ChainMender chain_;
  std::unique_ptr<qcFileArchive> archive_;
  qcInt64 unfinished_ = 0;  // where that lay
  std::string held_;
  std::set<long> without_;  // records whose object was taken away by those who used the file
  bool isDatabase_ = false, lost_ = false;
};

// What of a plain archive lies before its first fault.
struct Sound {
  qcInt64 bytes;
  long objects = 0;
};

Sound soundPrefix(const std::string& path, std::ostream& report) {
  const auto archive = openArchive(path);
  const qcInt64 all = static_cast<std::streamoff>(archive->tell()) + archive->remaining();
  qcInt64 item = static_cast<std::streamoff>(archive->tell());
  Sound sound{all};
  long objects = 0;
  const Fault worst = inspect(*archive, path, [&](const Entry& entry) {
    if (entry.kind == "fault" && sound.bytes == all) {
      sound.bytes = item;
      report << "lost: from byte " << item << " on: at byte " << entry.at << ": " << entry.facts.front().value << '\n';
    }
    if (entry.kind == "object") ++objects;
    if (std::count(entry.path.begin(), entry.path.end(), '/') != 1 || entry.kind == "object") return;
    item = entry.at;
    if (sound.bytes == all) sound.objects = objects;  // before the item
  });
  if (sound.bytes == all) sound.objects = objects;
  if (worst > Fault::content) throw FileError(path, "cannot be read whole, and what is damaged cannot be told", worst);
  return sound;
}

}  // namespace

bool salvageArchive(const std::string& path, const std::string& to, std::ostream& report, const std::string& kept) {
  bool isWhole = true;
  std::string held;
  if (kept.empty()) requireDistinct("what is read and what is written", {path, to});
  const auto mend = [&](const std::string& part) {
    const bool isSeekable = onFile(path, [&](const std::wstring&) {
      requireKind(path, FileKind::archive);
      return openArchive(path)->isSeekable();
    });
    copyFile(path, part, to);
    onFile(path, [&](const std::wstring&) {
      if (isSeekable) {
        Mending mending(part, report);
        isWhole = mending.run();
        held = mending.held();
      } else {
        const Sound sound = soundPrefix(path, report);
        isWhole = sound.bytes == static_cast<qcInt64>(std::filesystem::file_size(part));
        held = counted(sound.objects, "object");
        std::filesystem::resize_file(part, static_cast<std::uintmax_t>(sound.bytes));
      }
    });
  };
  const bool isNew = writeWhole(to, kept.empty() ? Existing::refused : Existing::replaced, mend, kept);
  if (isNew)
    report << (isWhole ? "nothing was lost; " : "all else was saved; ") << to << " holds " << held << '\n';
  else
    report << (isWhole ? "nothing to mend; " : "nothing else to mend; ") << to << " holds " << held
           << ", and is left as it is\n";
  return isWhole;
}
