#include "vnxstd/vdb/vdbarch.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <typeinfo>

#include "std/archive/format.h"
#include "std/vdb/identification.h"
#include "vnxstd/archive/file.h"
#include "vnxstd/archive/registry.h"
#include "vnxstd/except/catalogue.h"
#include "vnxstd/except/typename.h"

namespace {

const qc_Instantiator registered(typeid(qc_VDBIdentification), qc_VDBIdentification::make);

constexpr const char* kSource = "std/vdb/vdbarch";
constexpr int kNoCurrentLine = 146;
constexpr int kBadHeaderLine = 180;
constexpr int kNotFoundLine = 230;
constexpr int kNoRecordLine = 310;

std::atomic<qcVDBArchive*> theArchive{nullptr};
std::atomic<bool> enabled{true};

std::string identificationOfToday() {
  constexpr int kMajor = 1, kMinor = 0;
  const std::chrono::year_month_day day(std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now()));
  char text[80];
  std::snprintf(text, sizeof text, "Vantix Tool Database %d.%d gen %d-%d-%d", kMajor, kMinor,
                static_cast<int>(day.year()), static_cast<int>(static_cast<unsigned>(day.month())),
                static_cast<int>(static_cast<unsigned>(day.day())));
  return text;
}

// An object that has a count may be held by its own parts, too, which it is asked to let go of.
void discard(qcPersistent* loaded) {
  const auto* counted = dynamic_cast<const qcRepBase*>(loaded);
  if (!counted) return delete loaded;
  const qcPtrHandle_const<qcRepBase> held(counted);
  loaded->preLoad();
}

// A record belongs to whoever has it: what the archive knows of the objects of one must not reach into another.
class Alone {
 public:
  explicit Alone(qcArchive& archive) noexcept : archive_(archive) { archive_.forgetObjects(); }
  ~Alone() { archive_.forgetObjects(); }
  Alone(const Alone&) = delete;
  Alone& operator=(const Alone&) = delete;

 private:
  qcArchive& archive_;
};

void check(const qcVDBHeader& header) {
  if (!header.repInvariant()) throw qcArchive::BadContent(kSource, kBadHeaderLine);
}

}  // namespace

qcVDBArchive::qcVDBArchive(const std::wstring& path, bool create, bool readOnly)
    : archive_(std::make_unique<qcFileArchive>(path, create ? qcArchive::storing : qcArchive::loading,
                                               qcArchive::littleEndian, true, readOnly && !create)) {
  if (create) identify();
}

qcVDBArchive::qcVDBArchive(qcArchive* archive) : archive_(archive) {
  if (!archive) throw qcBadPointer();
  static_cast<void>(archive->firstMarkNum());  // throws for one that is not seekable
  if (archive->isStoring() && archive->firstMarkNum() == 0 && archive->firstObjectID() == 0) identify();
}

qcVDBArchive::~qcVDBArchive() {
  qcVDBArchive* mine = this;
  theArchive.compare_exchange_strong(mine, nullptr);
}

void qcVDBArchive::identify() {
  qc_VDBIdentification text;
  text.text = identificationOfToday();
  archive_->append();
  static_cast<void>(archive_->storeObject(&text));
  archive_->sync();
}

std::string qcVDBArchive::identification() {
  const long id = archive_->firstObjectID();
  if (id == 0) return {};
  archive_->mode(qcArchive::loading);
  archive_->seek(archive_->findObject(id));
  if (archive_->objectTypeName() != "qc_VDBIdentification") return {};
  // Loaded by value, as a part of the database: classes that may not be made are those of records.
  archive_->seek(qc_format::kLinkedHead, 1);
  std::string name;
  qc_VDBIdentification object;
  *archive_ || name || object;
  return object.text;
}

// Positions.

long qcVDBArchive::firstRecord() { return moveTo(archive_->firstMarkNum()); }
long qcVDBArchive::lastRecord() { return moveTo(largest()); }
long qcVDBArchive::nextRecord() { return moveTo(archive_->nextMarkNum(current_)); }
long qcVDBArchive::prevRecord() { return moveTo(archive_->prevMarkNum(current_)); }

long qcVDBArchive::gotoRecord(long number) {
  current_ = number;
  positionArchive();
  return current_;
}

// Goes to the mark of the current record.
void qcVDBArchive::positionArchive() {
  if (!isPositioned()) {
    current_ = 0;
    throw qcArchive::NotFound(kSource, kNoCurrentLine);
  }
  const qcArchive::Position place = archive_->findMark(current_);
  if (place == qcArchive::Position(0)) {
    current_ = 0;
    throw archive_->located(qcArchive::NotFound(kSource, kNotFoundLine), "the mark of the current record", "none");
  }
  archive_->seek(place);
}

// Storing.

long qcVDBArchive::storeNewRecord(const qcVDBRecordBase* record) { return store(record, 0); }

void qcVDBArchive::replaceRecord(const qcVDBRecordBase* record) {
  positionArchive();
  static_cast<void>(store(record, current_));
}

// As a new record, or in place of the one with the number `replaced`.
long qcVDBArchive::store(const qcVDBRecordBase* record, long replaced) {
  if (!record) throw qcBadPointer();
  qcVDBHeader header = record->header();
  check(header);
  archive_->append();
  const Alone alone(*archive_);
  qcArchive::Transaction transaction(*archive_);
  long number = replaced != 0 ? replaced : header.recordNum();
  if (replaced != 0) {
    archive_->replaceMark(number);
  } else if (number != 0) {
    archive_->writeNewMark(number);
  } else {
    archive_->setStartingNum(nextNumber_);
    number = archive_->writeNewMark();
    if (number > kLastNumber) throw qcArchive::BadContent(kSource, kNoRecordLine);
  }
  *archive_ || header;
  // The hooks of archiving serve both directions; storing changes nothing.
  auto* object = const_cast<qcPersistent*>(static_cast<const qcPersistent*>(record));
  qcPersistent::serializePointer(*archive_, object, object);
  transaction.commit();
  if (replaced == 0 && header.recordNum() == 0) nextNumber_ = number;
  return current_ = number;
}

void qcVDBArchive::replaceGrade(const qcVDBHeader& header) {
  positionArchive();
  check(header);
  archive_->mode(qcArchive::storing);  // refused before anything is read
  archive_->mode(qcArchive::loading);
  archive_->skipMark();
  header.writeGrades(*archive_);
}

void qcVDBArchive::replaceGrade(const qcVDBRecordBase* record) {
  if (!record) throw qcBadPointer();
  replaceGrade(record->header());
}

void qcVDBArchive::removeRecord() {
  positionArchive();
  archive_->removeMark();
  current_ = 0;
}

void qcVDBArchive::renumberRecord(long number) {
  positionArchive();
  if (number > kLastNumber) throw qcArchive::BadContent(kSource, kBadHeaderLine);
  archive_->renumberMark(number);
  current_ = number;
}

// Loading.

qcVDBHeader qcVDBArchive::loadHeader() {
  archive_->mode(qcArchive::loading);
  positionArchive();
  archive_->skipMark();
  qcVDBHeader header;
  header.recordNum(current_);
  *archive_ || header;
  return header;
}

qcVDBRecordBase* qcVDBArchive::loadRecord() {
  const qcVDBHeader header = loadHeader();
  const Alone alone(*archive_);
  qcPersistent* loaded = nullptr;
  qcPersistent::serializePointer(*archive_, nullptr, loaded);
  std::unique_ptr<qcPersistent, decltype(&discard)> object(loaded, &discard);
  if (!object) throw archive_->located(qcVDBRecordBase::NoResult(), "an object behind the header", "a null pointer");
  auto* record = dynamic_cast<qcVDBRecordBase*>(loaded);
  if (!record) {
    throw archive_->located(qcArchive::BadType(kSource, kNoRecordLine), "a record",
                            qcDevEnv::canonicalTypeName(typeid(*loaded).name()));
  }
  record->header_ = header;
  record->database_ = this;
  static_cast<void>(object.release());
  return record;
}

std::string qcVDBArchive::recordTypeName() {
  static_cast<void>(loadHeader());
  long id = 0;
  try {
    id = archive_->pointerObjectID();
  } catch (const qcArchive::NotFound&) {  // it was removed
  }
  const qcArchive::Position place = archive_->findObject(id);
  if (place == qcArchive::Position(0)) {
    throw archive_->located(qcVDBRecordBase::NoResult(), "an object of the index", std::to_string(id));
  }
  archive_->seek(place);
  return archive_->objectTypeName();
}

// The default database.

qcVDBArchive* qcVDBArchive::globalArchive() noexcept { return theArchive.load(); }
void qcVDBArchive::globalArchive(qcVDBArchive* database) noexcept { theArchive.store(database); }
bool qcVDBArchive::isGlobalEnabled() noexcept { return enabled.load(); }
void qcVDBArchive::isGlobalEnabled(bool on) noexcept { enabled.store(on); }
