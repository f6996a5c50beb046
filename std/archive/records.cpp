// The index operations of seekable archives.
#include <limits>
#include <utility>

#include "std/archive/areas.h"
#include "std/archive/chain.h"
#include "std/archive/format.h"
#include "std/archive/index.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/except/catalogue.h"

using namespace qc_format;

namespace {

constexpr long kMost = std::numeric_limits<std::int32_t>::max();

std::int32_t clamped(long number) {
  return static_cast<std::int32_t>(number < 0 ? 0 : number > kMost ? kMost : number);
}

// Numbers outside the range are those of no record.
std::int32_t recordNumber(long number) { return number > kMost ? 0 : clamped(number); }

std::int32_t checkedNumber(long number) {
  if (number < 1 || number > kMost) {
    throw qcArchive::BadContent(kIndexSource, kNumberLine);
  }
  return static_cast<std::int32_t>(number);
}

long firstOf(const qc_RecordChain::Numbers& numbers) { return numbers.empty() ? 0 : numbers.begin()->first; }

long nextIn(const qc_RecordChain::Numbers& numbers, long number) {
  const auto next = numbers.upper_bound(clamped(number));
  return next == numbers.end() ? 0 : next->first;
}

qcArchive::Position placeOf(const qc_Record* record) { return record ? record->at : 0; }

const qc_Record& recordAt(const qcArchive& archive, const qc_RecordChain& chain, std::streamoff place,
                          unsigned char kind) {
  const qc_Record* record = chain.at(place);
  if (!record || !record->is(kind) || record->isRemoved()) {
    const char* expected = kind == kMark ? "a mark" : kind == kPointer ? "a pointer" : "an object";
    const char* found = !record ? "no record" : record->is(kind) ? "one that was removed" : "another record";
    throw archive.located(qcArchive::NotFound(kIndexSource, kNoRecordLine), expected, found);
  }
  return *record;
}

// Turns an archive to loading, and back to where it was unless it is to stay where it has gone.
class Reading {
 public:
  explicit Reading(qcArchive& archive)
      : archive_(archive),
        direction_(archive.isStoring() ? qcArchive::storing : qcArchive::loading),
        place_(archive.tell()) {
    archive_.mode(qcArchive::loading);
  }
  ~Reading() {
    try {
      if (!finished_) finish();
    } catch (...) {
    }
  }
  Reading(const Reading&) = delete;
  Reading& operator=(const Reading&) = delete;
  void finish() {
    if (goesBack_) archive_.seek(place_);
    archive_.mode(direction_);
    finished_ = true;
  }
  void stay() noexcept { goesBack_ = false; }

 private:
  qcArchive& archive_;
  qcArchive::Direction direction_;
  qcArchive::Position place_;
  bool finished_ = false, goesBack_ = true;
};

}  // namespace

qc_RecordChain& qcArchive::chain() const {
  if (!seekable_) throw NotSeekable(kArchiveSource, kIndexLine);
  return index_->chain();
}

// Marks.

long qcArchive::firstMarkNum() const { return firstOf(chain().marks()); }
long qcArchive::lastMarkNum() const { return chain().marks().empty() ? 0 : chain().marks().rbegin()->first; }
long qcArchive::nextMarkNum(long number) const { return nextIn(chain().marks(), number); }

long qcArchive::prevMarkNum(long number) const {
  const auto& marks = chain().marks();
  const auto next = number > kMost ? marks.end() : marks.lower_bound(clamped(number));
  return next == marks.begin() ? 0 : std::prev(next)->first;
}

qcArchive::Position qcArchive::findMark(long number) const { return placeOf(chain().mark(recordNumber(number))); }

void qcArchive::skipMark() {
  long ignored;
  readMark(ignored);
}

void qcArchive::readMark(long& number) {
  const qc_Record& mark = recordAt(*this, chain(), offset(), kMark);
  seekTo(mark.end());
  number = mark.number();
}

long qcArchive::writeNewMark(long number) {
  qc_RecordChain& records = chain();
  const std::int32_t wanted = number == 0 ? records.freeMark() : checkedNumber(number);
  if (records.mark(wanted)) throw Duplicate(kIndexSource, kTakenLine);
  qc_RecordAddition addition(records, index_->lastID());
  addition.begin(kMark, wanted);
  addition.link();
  return wanted;
}

void qcArchive::replaceMark(long number) {
  qc_RecordAddition addition(chain(), index_->lastID());
  addition.begin(kMark, checkedNumber(number));
  addition.link();
}

qcArchive::Transaction::Transaction(qcArchive& archive)
    : archive_(archive),
      lastID_(archive.index_->lastID()),
      records_(std::make_unique<qc_RecordAddition>(archive.chain(), lastID_)) {
  if (!records_->isOuter()) throw BadBuffer(kIndexSource, kNotAtEndLine);
}

qcArchive::Transaction::~Transaction() {
  if (records_->isOuter()) archive_.index_->forgetBehind(lastID_);
}

void qcArchive::Transaction::commit() { records_->link(archive_.index_->lastID()); }

void qcArchive::renumberMark(long number) {
  const qc_Record& mark = recordAt(*this, chain(), offset(), kMark);
  const std::int32_t wanted = checkedNumber(number);
  if (wanted == mark.number()) return;
  if (chain().mark(wanted)) throw Duplicate(kIndexSource, kTakenLine);
  chain().renumber(mark, wanted);
}

void qcArchive::removeMark() { chain().remove(recordAt(*this, chain(), offset(), kMark)); }
void qcArchive::setStartingNum(long number) { chain().numberMarksFrom(checkedNumber(number)); }

// Objects.

long qcArchive::firstObjectID() const { return firstOf(chain().objects()); }
long qcArchive::nextObjectID(long id) const { return nextIn(chain().objects(), id); }
qcArchive::Position qcArchive::findObject(long id) const { return placeOf(chain().object(recordNumber(id))); }

void qcArchive::readObjectHeader(long& id, unsigned long& size, Position& body) {
  long read = 0;
  qcUInt64 wide = 0;
  Position place;
  readObjectHeader64(read, wide, place);
  if (wide > std::numeric_limits<unsigned long>::max()) throw BadContent(kIndexSource, kRecordSizeLine);
  id = read;
  size = static_cast<unsigned long>(wide);
  body = place;
}

void qcArchive::readObjectHeader64(long& id, qcUInt64& size, Position& body) {
  const qc_Record& object = recordAt(*this, chain(), offset(), kObject);
  Reading reading(*this);
  const qc_ArchiveIndex::Body read = index_->readBodyOf(object);
  reading.finish();
  id = object.number();
  size = read.size;
  body = Position(read.at);
}

std::string qcArchive::objectTypeName() {
  const qc_Record& object = recordAt(*this, chain(), offset(), kObject);
  Reading reading(*this);
  const qc_ArchiveIndex::Body body = index_->readBodyOf(object);
  const auto taken = static_cast<qcUInt64>(body.at - object.bodyAt());
  if (object.size < taken || object.size - taken < body.size)
    throw located(BadContent(kIndexSource, kRecordSizeLine), "a body of " + std::to_string(body.size) + " bytes",
                  "a size of " + std::to_string(object.size));
  reading.finish();
  return body.name;
}

qcPersistent* qcArchive::loadObject() {
  const std::int32_t id = recordAt(*this, chain(), offset(), kObject).id;
  Reading reading(*this);
  qcPersistent* object = index_->loadAnew(id);
  reading.stay();
  try {
    reading.finish();
  } catch (const Errors&) {  // the object is there; what has failed once is tried again
  }
  return object;
}

long qcArchive::storeObject(qcPersistent* object) {
  if (!object) throw qcBadPointer();
  if (chain(), version_ == 0) throw CannotWriteToOldArchive(kArchiveSource, kOldArchiveLine);
  chain().checkGrowth();
  return index_->storeIndexed(*object);
}

void qcArchive::removeObject() {
  const qc_Record& object = recordAt(*this, chain(), offset(), kObject);
  chain().remove(object);
  index_->forgetObject(object.id);
}

void qcArchive::setStartingID(long id) { static_cast<void>(chain()), index_->numberFrom(clamped(id)); }
void qcArchive::forgetObjects() noexcept { index_->letGo(); }
void qcArchive::beginAnew() noexcept { index_->beginAnew(); }

// Pointers.

qcArchive::Position qcArchive::firstPointerPos() const { return placeOf(chain().pointerFrom(0)); }
qcArchive::Position qcArchive::nextPointerPos() { return placeOf(chain().pointerFrom(offset() + 1)); }
long qcArchive::pointerObjectID() { return recordAt(*this, chain(), offset(), kPointer).number(); }

void qcArchive::pointerObjectID(long id) {
  const qc_Record& pointer = recordAt(*this, chain(), offset(), kPointer);
  const qc_Record* object = chain().object(recordNumber(id));
  if (!object) throw NotFound(kIndexSource, kNotInIndexLine);
  if (object->number() != pointer.number()) chain().renumber(pointer, object->number());
}

void qcArchive::removePointer() { chain().remove(recordAt(*this, chain(), offset(), kPointer)); }

// The chain as a whole.

qcArchive::Position qcArchive::unfinished() const { return Position(chain().unfinished()); }
qcArchive::Position qcArchive::damaged() const { return Position(chain().damaged()); }

long qcArchive::salvage() {
  static_cast<void>(chain());
  Reading reading(*this);
  const long found = explained([this] { return chain().salvage(); });
  reading.finish();
  return found;
}

void qcArchive::relink() {
  static_cast<void>(chain());
  if (readOnly_) throw BadBuffer(kArchiveSource, kReadOnlyLine);
  Reading reading(*this);
  chain().relink();
  reading.finish();
}

std::vector<qcArchiveRecord> qcArchive::records() const {
  std::vector<qcArchiveRecord> heads;
  for (const qc_Record& record : chain().all()) heads.push_back(record.told());
  return heads;
}

qcArchive* qcArchive::secondary() const { return static_cast<void>(chain()), secondary_; }
void qcArchive::secondary(qcArchive* archive) { static_cast<void>(chain()), secondary_ = archive; }
