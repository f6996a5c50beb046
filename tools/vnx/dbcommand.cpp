#include "dbcommand.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include <vnxstd/archive/file.h>
#include <vnxstd/archive/text.h>
#include <vnxstd/vdb/vdbarch.h>

#include "extract.h"
#include "files.h"
#include "format.h"
#include "info.h"
#include "inspect.h"
#include "json.h"
#include "numberoption.h"
#include "objects.h"
#include "salvage.h"
#include "wrongcall.h"

namespace {

constexpr std::array<const char*, 4> kGrades{"unknown", "good", "bad", "review"};

std::string gradeText(qcVDB::Grade grade) {
  return grade >= 0 && grade < static_cast<long>(kGrades.size()) ? kGrades[static_cast<std::size_t>(grade)]
                                                                 : std::to_string(static_cast<long>(grade));
}

qcVDB::Grade gradeOf(const std::string& text) {
  for (std::size_t i = 0; i < kGrades.size(); ++i)
    if (text == kGrades[i]) return static_cast<qcVDB::Grade>(i);
  throw WrongCall("a grade is unknown, good, bad or review, not \"" + text + '"');
}

void requireChain(const qcArchive& archive, const std::string& path) {
  if (!archive.isSeekable()) throw FileError(path, "is a plain archive, and no tool database");
  if (!hasChain(archive, path)) throw FileError(path, "is no tool database: no chain of records begins at byte 2");
}

// What a command comes to on a database whose chain of records may be damaged: what lies behind was not seen.
Exit exitOf(const qcArchive& archive, const std::string& path, Exit exit) {
  const std::string damage = damageOf(archive);
  if (damage.empty()) return exit;
  std::cerr << "vnx db: " << path << ": " << damage << '\n';
  return kMalformed;
}

std::set<long> withoutObject(qcVDBArchive& database) { return recordsWithoutObject(database.archive().records()); }

// Throws for a record whose object is missing, unless it was taken away.
std::string classOf(qcVDBArchive& database, const std::set<long>& without) {
  if (without.contains(database.currentRecord())) return "none";
  try {
    return lineText(database.recordTypeName());
  } catch (const qcVDBRecordBase::NoResult&) {
    try {
      delete database.loadRecord();            // says what is wrong with it
    } catch (const qcArchive::UnknownType&) {  // which has nothing to do with it
    }
    throw;
  }
}

// False when a record could not be read.
bool list(qcVDBArchive& database, const std::string& path) {
  bool isSound = true;
  const std::set<long> without = withoutObject(database);
  std::printf("%10s %-8s %6s %12s  %-24s %s\n", "record", "grade", "type", "metric", "class", "comment");
  for (long number = database.firstRecord(); number != 0; number = database.nextRecord()) {
    try {
      const qcVDBHeader header = database.loadHeader();
      const std::string name = classOf(database, without);
      std::printf("%10ld %-8s %6ld %12g  %-24s %s\n", number, gradeText(header.currentGrade()).c_str(),
                  static_cast<long>(header.currentType()), double{header.distanceMetric()}, name.c_str(),
                  lineText(qf_NarrowLossy(header.comment())).c_str());
    } catch (const qcException& error) {
      if (faultOf(error) != Fault::content) throw;
      isSound = false;
      std::cerr << "vnx db: " << path << ": record " << number << ": " << textOf(error) << '\n';
    }
  }
  return isSound;
}

void show(qcVDBArchive& database) {
  const qcVDBHeader header = database.loadHeader();
  const std::set<long> without = withoutObject(database);
  std::cout << "  record        " << database.currentRecord() << "\n  grade         "
            << gradeText(header.currentGrade()) << ", saved as " << gradeText(header.savedGrade())
            << "\n  type          " << header.currentType() << ", saved as " << header.savedType()
            << "\n  metric        " << header.distanceMetric() << "\n  comment       "
            << lineText(qf_NarrowLossy(header.comment())) << '\n';
  const std::string name = classOf(database, without);
  std::cout << "  class         " << name << '\n';
  if (without.contains(database.currentRecord())) return;
  try {
    const std::unique_ptr<qcVDBRecordBase> record(database.loadRecord());
    describeObject(*record, std::cout);
  } catch (const qcArchive::UnknownType&) {  // the class is that of another program; its name is said
  }
}

// Reads every record whose class is known, and every header.
bool check(qcVDBArchive& database, const std::string& path) {
  const std::set<long> without = withoutObject(database);
  long sound = 0, unknown = 0, bare = 0, bad = 0;
  for (long number = database.firstRecord(); number != 0; number = database.nextRecord()) {
    try {
      if (without.contains(number)) {
        static_cast<void>(database.loadHeader());
        ++bare;
        continue;
      }
      try {
        const std::unique_ptr<qcVDBRecordBase> record(database.loadRecord());
        ++sound;
      } catch (const qcArchive::UnknownType&) {
        static_cast<void>(database.recordTypeName());
        ++unknown;
      }
    } catch (const qcException& error) {
      if (faultOf(error) != Fault::content) throw;
      ++bad;
      std::cout << "  " << path << ": record " << number << ": " << textOf(error) << '\n';
    }
  }
  std::cout << "  " << counted(sound + unknown + bare + bad, "record") << ", " << bad << " of them bad; " << unknown
            << " of classes that this tool does not know, " << bare << " without an object: their headers were read\n";
  const auto at = [](qcArchive::Position position) { return static_cast<std::streamoff>(position); };
  const std::streamoff unfinished = at(database.archive().unfinished()), damaged = at(database.archive().damaged());
  if (unfinished != 0)
    std::cout << "  an unfinished record from byte " << unfinished << " on: the next one stored takes its place\n";
  if (damaged != 0) std::cout << "  " << damageOf(database.archive()) << '\n';
  const long unlinked = database.archive().salvage();
  if (unlinked != 0)
    std::cout << "  " << counted(unlinked, "record head") << " that no link leads to: vnx db salvage links them\n";
  if (bad == 0 && damaged == 0 && unlinked == 0) return true;
  std::cerr << "vnx db: " << path << ": is damaged; the faults are shown\n";
  return false;
}

}  // namespace

DbCommand::DbCommand(CLI::App& app)
    : command_(app.add_subcommand("db", "List, show and change the records of a tool database")) {
  command_->require_subcommand(0, 1);
  const auto add = [this](const char* name, const char* what) {
    CLI::App* sub = command_->add_subcommand(name, what);
    sub->add_option("file", file_,
                    name == std::string("salvage") ? "A tool database or any other archive" : "A tool database");
    return sub;
  };
  list_ = add("list", "A line for each record");
  show_ = add("show", "The header of a record, and what the tool knows of its object");
  check_ = add("check", "Read every record; say what is unfinished or damaged");
  remove_ = add("remove", "Take a record out");
  renumber_ = add("renumber", "Give a record another number");
  grade_ = add("grade", "Give a record another grade");
  extract_ = add("extract", "Write a record, or each of them, to a database of its own, byte for byte");
  salvage_ = add("salvage", "Write what can be read of a damaged archive or database, and say what is lost");
  extract_->add_option("-o,--output", output_,
                       "The file to write, which must not exist; without a number a folder, for record-NUMBER.vdb");
  salvage_->add_option("-o,--output", output_, "The file to write, which must not exist");
  salvage_->add_flag("--in-place", inPlace_, "Take the file's place; the file as it was is kept as FILE.damaged");
  for (CLI::App* sub : {show_, remove_, renumber_, grade_, extract_})
    addNumber(*sub, "number", number_, "Number of the record", 1L, qcVDBArchive::kLastNumber)
        ->default_str(sub == extract_ ? "all" : "");
  addNumber(*renumber_, "new", other_, "Its new number", 1L, qcVDBArchive::kLastNumber);
  grade_->add_option("grade", wanted_, "unknown, good, bad or review");
  constexpr float kMost = std::numeric_limits<float>::max();
  typeGiven_ = addNumber(*grade_, "--type", type_, "Another type, -128 to 127, too", -128L, 127L);
  metricGiven_ = addNumber(*grade_, "--metric", metric_, "Another distance metric, too", -kMost, kMost);
}

Exit DbCommand::run() const {
  if (command_->get_subcommands().empty())
    throw WrongCall("what? list, show, check, extract, salvage, remove, renumber or grade");
  if (file_.empty()) throw WrongCall("which file?");
  if (extract_->parsed()) return extract();
  if (salvage_->parsed()) return salvage();
  const bool isOne = !list_->parsed() && !check_->parsed();
  if (isOne && number_ == 0) throw WrongCall("which record? Its number is needed");
  if (renumber_->parsed() && other_ == 0) throw WrongCall("which new number?");
  const qcVDB::Grade grade = grade_->parsed() ? gradeOf(wanted_) : qcVDB::unknown;
  requireKind(file_, FileKind::archive);
  const bool changes = remove_->parsed() || renumber_->parsed() || grade_->parsed();
  return onFile(file_, [&](const std::wstring& path) {
    checkHead(file_);
    qcVDBArchive database(path, false, !changes);
    const qcArchive& archive = database.archive();
    requireChain(archive, file_);
    if (changes && archive.firstMarkNum() != 0 && !isDatabase(database.archive()))
      throw FileError(file_, "is no tool database; nothing was changed");
    if (list_->parsed()) return exitOf(archive, file_, list(database, file_) ? kGood : kMalformed);
    if (check_->parsed()) return check(database, file_) ? kGood : kMalformed;
    if (changes && archive.damaged() != qcArchive::Position(0))
      throw FileError(file_, damageOf(archive) + "; nothing was changed");
    try {
      database.gotoRecord(number_);
    } catch (const qcArchive::NotFound&) {
      std::cerr << "vnx db: nothing found: no record " << number_ << " in " << file_ << '\n';
      return exitOf(archive, file_, kNotFound);
    }
    if (show_->parsed()) return show(database), exitOf(archive, file_, kGood);
    if (remove_->parsed()) database.removeRecord();
    try {
      if (renumber_->parsed()) database.renumberRecord(other_);
    } catch (const qcArchive::Duplicate&) {
      throw WrongCall("number " + std::to_string(other_) + " is taken");
    }
    if (grade_->parsed()) {
      qcVDBHeader header = database.loadHeader();
      header.currentGrade(grade);
      if (typeGiven_->count() != 0) header.currentType(static_cast<qcVDB::ResultType>(type_));
      if (metricGiven_->count() != 0) header.distanceMetric(metric_);
      database.replaceGrade(header);
    }
    database.sync();
    return kGood;
  });
}

Exit DbCommand::extract() const {
  if (output_.empty()) throw WrongCall("-o is missing");
  requireKind(file_, FileKind::archive);
  return onFile(file_, [&](const std::wstring&) {
    const auto archive = openArchive(file_);
    requireChain(*archive, file_);
    RecordExtractor records(*archive, file_);
    if (number_ != 0) {
      if (records.extract(number_, output_)) return exitOf(*archive, file_, kGood);
      std::cerr << "vnx db: nothing found: no record " << number_ << " in " << file_ << '\n';
      return exitOf(*archive, file_, kNotFound);
    }
    std::error_code failed;
    if (std::filesystem::exists(output_) && !std::filesystem::is_directory(output_))
      throw WrongCall(output_ + " exists already, and is no folder");
    std::filesystem::create_directories(output_, failed);
    if (failed) throw FileError(output_, failed.message(), Fault::medium);
    std::map<long, std::string> files;
    for (long mark = archive->firstMarkNum(); mark != 0; mark = archive->nextMarkNum(mark)) {
      const auto& file = files[mark] = output_ + "/record-" + std::to_string(mark) + ".vdb";
      if (std::filesystem::exists(std::filesystem::symlink_status(file))) throw WrongCall(file + " exists already");
    }
    Exit exit = kGood;
    for (const auto& [mark, file] : files) {
      try {
        records.extract(mark, file);
      } catch (const FileError& error) {
        if (error.fault() != Fault::content) throw;
        std::cerr << "vnx db: " << error.what() << '\n';
        exit = kMalformed;
      }
    }
    return exitOf(*archive, file_, exit);
  });
}

Exit DbCommand::salvage() const {
  if (output_.empty() == !inPlace_) throw WrongCall("where to? -o NEW or --in-place");
  requireReadable(file_);
  const bool isWhole = salvageArchive(file_, inPlace_ ? file_ : output_, std::cout, inPlace_ ? file_ + ".damaged" : "");
  return isWhole ? kGood : kMalformed;
}
