#include "std/archive/index.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "std/archive/areas.h"
#include "std/archive/byteswap.h"
#include "std/archive/format.h"
#include "std/archive/gate.h"
#include "std/archive/observed.h"
#include "std/archive/visited.h"
#include "vnxstd/except/typename.h"

using namespace qc_format;

namespace {

constexpr std::int32_t kLastId = std::numeric_limits<std::int32_t>::max();
constexpr std::streamoff kWideFrom = std::streamoff{1} << 31;
constexpr std::streamoff kWaste = 16;    // times the length of the archive that may be read in vain
constexpr std::size_t kShortName = 100;  // type names up to this length go out with their record in one piece

// A place in a cache for what is known by its address.
template <std::size_t N>
std::size_t cachePlace(const void* address) noexcept {
  const auto bits = reinterpret_cast<std::uintptr_t>(address);
  return ((bits >> 4) ^ (bits >> 9)) % N;
}

}  // namespace

// Every operation runs inside one of these; the outermost of an archive takes the persistence lock.
class qc_ArchiveIndex::Entry {
 public:
  explicit Entry(qc_ArchiveIndex& index) : index_(index) {
    if (index_.entered_ == 0) {
      // Waiting for another process, or thread, to begin a message must not keep all others from archiving.
      if (index_.archive_.isLoading() && !index_.isSeekable() && qc_Areas::readable(index_.buffer()) == 0) {
        index_.buffer().sgetc();
      }
      qc_Visited::lock().lock();
    }
    ++index_.entered_;
  }
  ~Entry() {
    if (--index_.entered_ == 0) qc_Visited::lock().unlock();
  }
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;

 private:
  qc_ArchiveIndex& index_;
};

// Counts something while it lives.
class qc_ArchiveIndex::Deeper {
 public:
  explicit Deeper(long& count) noexcept : count_(count) { ++count_; }
  ~Deeper() { --count_; }
  Deeper(const Deeper&) = delete;
  Deeper& operator=(const Deeper&) = delete;

 private:
  long& count_;
};

// One object that is stored or loaded. What it refers to counts like what lies within it: destructors, and whatever
// else goes from object to object, go as deep.
class qc_ArchiveIndex::Level {
 public:
  Level(qc_ArchiveIndex& index, const qcPersistent& object) noexcept
      : type(typeid(object)),
        around(std::exchange(index.innermost_, this)),
        index_(index),
        deeper_(index.depth_),
        outer_(std::exchange(index.height_, 0)),
        outerLow_(std::exchange(index.low_, qc_HeldTable::kSettled)) {}
  ~Level() {
    index_.innermost_ = around;
    index_.lastHeight_ = index_.height_;
    index_.height_ = std::max(outer_, index_.height_ + 1);
    index_.lastLow_ = index_.low_;
    index_.low_ = std::min(outerLow_, index_.low_);
  }
  Level(const Level&) = delete;
  Level& operator=(const Level&) = delete;

  const std::type_info& type;
  const Level* const around;

 private:
  qc_ArchiveIndex& index_;
  Deeper deeper_;
  std::int32_t outer_;
  long outerLow_;
};

// One object that a reference has led to.
class qc_ArchiveIndex::Elsewhere {
 public:
  Elsewhere(qc_ArchiveIndex& index, const Root& object)
      : root(object), depth(index.depth_), outer(std::exchange(index.elsewhere_, this)), index_(index) {
    if (!outer) index.base_ = depth;
  }
  ~Elsewhere() { index_.elsewhere_ = outer; }
  Elsewhere(const Elsewhere&) = delete;
  Elsewhere& operator=(const Elsewhere&) = delete;

  const Root root;
  const long depth;
  const Elsewhere* const outer;

 private:
  qc_ArchiveIndex& index_;
};

// Forgets what a failed store has entered: nobody could read references to it.
class qc_ArchiveIndex::StoreGuard {
 public:
  explicit StoreGuard(qc_ArchiveIndex& index) noexcept
      : index_(index), from_(index.stored_.size()), firstId_(index.nextId_) {}
  ~StoreGuard() {
    if (succeeded_) {
      if (index_.entered_ == 1) index_.stored_.clear();
      return;
    }
    const std::lock_guard guard(qc_HeldTable::lock());
    for (std::size_t i = from_; i < index_.stored_.size(); ++i) {
      qc_HeldTable::Entry& entry = index_.held_[index_.stored_[i]];
      if (entry.stored >= firstId_) entry.stored = 0;
    }
    index_.stored_.resize(from_);
  }
  StoreGuard(const StoreGuard&) = delete;
  StoreGuard& operator=(const StoreGuard&) = delete;
  void succeed() noexcept { succeeded_ = true; }

 private:
  qc_ArchiveIndex& index_;
  std::size_t from_;
  std::int32_t firstId_;
  bool succeeded_ = false;
};

// Destroys what a failed load has made.
class qc_ArchiveIndex::LoadGuard {
 public:
  explicit LoadGuard(qc_ArchiveIndex& index) noexcept
      : index_(index), from_(index.made_.size()), settledFrom_(index.settled_.size()) {}
  ~LoadGuard() {
    // What is being unwound to be begun anew keeps what is complete.
    if (!succeeded_ && index_.wanted_.id == 0) index_.undo(from_, settledFrom_);
  }
  LoadGuard(const LoadGuard&) = delete;
  LoadGuard& operator=(const LoadGuard&) = delete;
  void succeed() noexcept { succeeded_ = true; }

 private:
  qc_ArchiveIndex& index_;
  std::size_t from_, settledFrom_;
  bool succeeded_ = false;
};

// Gives back a count that was taken of a known object, unless a handle gets it.
class qc_ArchiveIndex::CountGuard {
 public:
  explicit CountGuard(const Given& given) noexcept : given_(given) {}
  ~CountGuard() {
    if (given_.rep && qcRepBase::refDec(given_.rep) == 0 && given_.shared) qcRepBase::dispose(given_.rep);
  }
  CountGuard(const CountGuard&) = delete;
  CountGuard& operator=(const CountGuard&) = delete;
  void keep() noexcept { given_.rep = nullptr; }
  /// The object is handed out as a plain pointer: whoever gets it destroys it.
  void lend() noexcept { given_.shared = false; }

 private:
  Given given_;
};

qc_ArchiveIndex::qc_ArchiveIndex(qcArchive& archive)
    : archive_(archive), numbered_(archive.isStoring()), chain_(archive) {}

// Whether sizes and positions written here take 8 bytes: a little early, so that 4 are enough for what follows.
bool qc_ArchiveIndex::isWideHere() { return wideSizes_ || seekableOffset() >= kWideFrom; }

bool qc_ArchiveIndex::isStillLoading(const qcPersistent* object) noexcept {
  if (!object || made_.empty()) return false;
  const std::lock_guard guard(qc_HeldTable::lock());
  const qc_HeldTable::Entry* entry = held_.find(object);
  return entry && entry->making && !entry->complete;
}

const qc_RegistryEntry& qc_ArchiveIndex::entryOf(const qcPersistent& object) {
  const std::type_info& type = typeid(object);
  TypeEntry& known = types_[cachePlace<kCache>(&type)];
  if (known.type != &type) {
    const qc_RegistryEntry* entry = qf_FindRegistered(type);
    if (!entry) {
      throw qcArchive::UnknownType(qcDevEnv::canonicalTypeName(type.name()).c_str(), kArchiveSource, kUnknownTypeLine);
    }
    known = {&type, entry};
  }
  return *known.entry;
}

// Records.

void qc_ArchiveIndex::writeSize(qcUInt64 size, bool wide) {
  if (wide) {
    archive_ || size;
  } else {
    auto narrow = static_cast<std::uint32_t>(size);
    archive_ || narrow;
  }
}

qcUInt64 qc_ArchiveIndex::readSize(bool wide) {
  qcUInt64 size = 0;
  std::uint32_t narrow = 0;
  if (wide) {
    archive_ || size;
    return size;
  }
  archive_ || narrow;
  return narrow;
}

// Writes a record, the name of the type behind it if there is one, and the object marker if it is wanted.
void qc_ArchiveIndex::writeRecord(const qc_Record& record, const std::string* name, bool marked) {
  if (!record.wide && record.position > std::numeric_limits<std::uint32_t>::max()) {
    throw qcArchive::BadContent(kIndexSource, kRecordSizeLine);
  }
  // With 8-byte fields, a short name with its length and quotes, and the object marker.
  qc_Composer<kRecordHead + 16 + 3 + kShortName + kObjectMarker.size()> out(archive_.swapBytes_);
  qf_ComposeRecord(out, record);
  const bool inOnePiece = name && name->size() <= kShortName;
  if (inOnePiece) {
    out.byte(static_cast<unsigned char>(name->size()));
    out.byte(kQuote);
    out.bytes(name->data(), name->size());
    out.byte(kQuote);
    if (marked) out.bytes(kObjectMarker.data(), kObjectMarker.size());
  }
  qf_WriteBytes(buffer(), out.data(), out.size(), kWriteRawLine);
  if (name && !inOnePiece) {
    archive_ << *name;
    if (marked) qf_WriteBytes(buffer(), kObjectMarker.data(), kObjectMarker.size(), kWriteRawLine);
  }
}

qc_Record qc_ArchiveIndex::readRecord() {
  unsigned char head[kLinkedHead];
  const std::streamoff at = seekableOffset();
  qc_Areas::readAll(archive_, head, kRecordHead, kReadRawLine);
  if (!qf_IsRecord(head)) {
    throw archive_.located(qcArchive::BadContent(kIndexSource, kRecordTagLine), "a pointer (4F E5 70 54 or 55)",
                           qf_Hex({head, 4}));
  }
  qcArchive::checkVersion(archive_, head[4], kRecordVersion, kIndexSource, kRecordVersionLine);
  qc_Record record = qf_ParseHead(head, archive_.swapBytes_);
  record.at = at;
  if (!isSeekable() && record.kind != kInline) record.kind = kReference;  // nothing is linked there
  qc_Areas::readAll(archive_, head, record.headSize() - kRecordHead, kReadWordLine);
  qf_ParseFields(record, head, archive_.swapBytes_);
  if (!record.isValid()) {
    throw archive_.located(qcArchive::BadContent(kIndexSource, kRecordIdentifierLine), "a valid identifier",
                           std::to_string(record.id));
  }
  return record;
}

// Reads the name of a type and looks it up.
const qc_RegistryEntry* qc_ArchiveIndex::readName() {
  // A short narrow name that the buffer holds in full, as almost all are, is compared where it is.
  if (const std::size_t ready = qc_Areas::readable(buffer()); ready > 2) {
    const char* next = qc_Areas::getNext(buffer());
    const auto length = static_cast<std::size_t>(static_cast<unsigned char>(next[0]));
    if (length < kLongPrefix && length + 3 <= ready && next[1] == kQuote && next[length + 2] == kQuote) {
      const std::string_view name(next + 2, length);
      archive_.countElements(length);
      qc_Areas::skipRead(buffer(), length + 3);
      std::size_t hash = length;  // instances of one template differ near the end
      for (std::size_t i = length < 8 ? 0 : length - 8; i < length; ++i)
        hash = hash * 7 + static_cast<unsigned char>(name[i]);
      const qc_RegistryEntry*& known = names_[hash % kCache];
      if (!known || known->name != name) {
        known = makerOf(name);
      }
      return known;
    }
  }
  std::string name;
  const qcArchive::Hush hush(archive_);
  archive_ || name;
  return makerOf(name);
}

const qc_RegistryEntry* qc_ArchiveIndex::makerOf(std::string_view name) const {
  const qc_RegistryEntry* entry = qf_FindRegistered(name);
  const bool isKnown = entry && entry->make;
  const auto& allowed = archive_.limits_.classes;
  if (isKnown && (!allowed || allowed->contains(name))) return entry;
  qcArchive::UnknownType error(std::string(name).c_str(), kIndexSource, kUnknownNameLine);
  archive_.explain(error, isKnown ? "one of the classes that are allowed" : "a class that can be made", name,
                   isKnown ? qcLoadContext::Limit::classes : qcLoadContext::Limit::none);
  throw error;
}

// One more object is loaded or skipped.
void qc_ArchiveIndex::countObject() {
  if (archive_.objectsLeft_ == 0) archive_.refuse(qcLoadContext::Limit::objects, archive_.limits_.objects);
  --archive_.objectsLeft_;
}

// Fills in the size of what was written from `bodyStart` on, and returns to the end of it.
void qc_ArchiveIndex::patchSize(std::streamoff field, std::streamoff bodyStart, bool wide, int line) {
  const std::streamoff end = archive_.offset();
  const auto size = static_cast<qcUInt64>(end - bodyStart);
  if (!wide && size > std::numeric_limits<std::uint32_t>::max()) throw qcArchive::BadContent(kIndexSource, line);
  archive_.seekTo(field);
  writeSize(size, wide);
  archive_.seekTo(end);
}

// Goes to the end of what was said to be `size` bytes long, behind fields that are not known here. A body that took
// more than its size lies.
void qc_ArchiveIndex::skipTo(std::streamoff bodyStart, qcUInt64 size, int line) {
  const std::streamoff here = archive_.offset();
  const auto taken = static_cast<qcUInt64>(here - bodyStart);
  if (size < taken) {
    throw archive_.located(qcArchive::BadContent(kIndexSource, line), "a body of " + std::to_string(taken) + " bytes",
                           "a size of " + std::to_string(size));
  }
  if (size == taken) return;
  const std::streamoff end = archive_.endOffset();
  if (size - taken > static_cast<qcUInt64>(std::max<std::streamoff>(end - here, 0))) {
    throw archive_.located(qcArchive::Eof(kIndexSource, line),
                           std::to_string(size - taken) + " more bytes in this body", std::to_string(end - here));
  }
  if (archive_.gate_) archive_.gate_->skip(size - taken);
  archive_.seekTo(bodyStart + static_cast<std::streamoff>(size));
  chargedFrom_ += static_cast<std::streamoff>(size - taken);  // what is skipped costs nothing
}

void qc_ArchiveIndex::numberBehindData() {
  if (numbered_) return;
  nextId_ = std::max(nextId_, chain_.largestIdentifier() + 1);
  numbered_ = true;
}

// Objects.

// Throws when there is no room for an object within the one under way.
void qc_ArchiveIndex::checkNesting() const {
  const long limit = archive_.limits_.nesting;
  if (depth_ >= limit) archive_.refuse(qcLoadContext::Limit::nesting, limit);
}

void qc_ArchiveIndex::checkDepth() const {
  const long limit = archive_.limits_.nesting;
  if (height_ >= limit) archive_.refuse(qcLoadContext::Limit::nesting, limit);
}

namespace {

// Leaves a load whose outermost object elsewhere is to be begun anew. No error: nobody is to handle it.
struct Unwinding {};

}  // namespace

// Makes room for an object within the one under way. References can lead deeper than there is room; then an object
// that one of them has led to is loaded before all others, and those that wait for it are begun anew. It is one in the
// last quarter, so that each time a good many levels are done with.
void qc_ArchiveIndex::checkRoom() {
  if (wanted_.id != 0) throw Unwinding();  // somebody took it for an error
  const long limit = archive_.limits_.nesting;
  if (depth_ < limit) return;
  const Elsewhere* chosen = elsewhere_;
  const long lastQuarter = base_ + (limit - base_) / 4 * 3;
  for (const Elsewhere* object = elsewhere_; object && object->outer; object = object->outer) {
    if (waiting_.contains(object->root.id)) return checkNesting();  // it waits for what has led to it: a circle
    if (object->depth >= lastQuarter) chosen = object;
  }
  if (!chosen || !chosen->outer) return checkNesting();
  wanted_ = chosen->root;
  throw Unwinding();
}

// The object under way refers to a known one of that height. A reference to an object that is itself under way closes a
// circle and goes no deeper; the height that it had when it was stored before would grow with each round.
void qc_ArchiveIndex::addLevels(std::int32_t height) { height_ = std::max(height_, height + 1); }

void qc_ArchiveIndex::serializeObject(qcPersistent& object) {
  archive_.explained([&] {
    const Entry entry(*this);
    if (archive_.isLoading()) return static_cast<void>(loadObject(object));
    StoreGuard undo(*this);
    const std::streamoff start = seekableOffset();
    storeObject(object, false);
    if (entered_ == 1 && isSeekable()) chain_.countIdentifiers(start, nextId_ - 1);
    undo.succeed();
  });
}

// The classes of the objects under way.
std::vector<std::string> qc_ArchiveIndex::path() const {
  constexpr std::size_t kEachEnd = 16;
  std::vector<std::string> names;
  std::size_t depth = 0;
  for (const Level* level = innermost_; level; level = level->around) ++depth;
  std::size_t i = depth;
  for (const Level* level = innermost_; level; level = level->around) {
    --i;
    if (depth > 2 * kEachEnd && i == depth - kEachEnd - 1) names.emplace_back("...");
    if (depth > 2 * kEachEnd && i >= kEachEnd && i < depth - kEachEnd) continue;
    names.push_back(qcDevEnv::canonicalTypeName(level->type.name()));
  }
  std::reverse(names.begin(), names.end());
  return names;
}

// `marked` says that the marker is written already.
void qc_ArchiveIndex::storeObject(qcPersistent& object, bool marked) {
  if (archive_.version_ == 0) throw qcArchive::CannotWriteToOldArchive(kArchiveSource, kOldArchiveLine);
  checkNesting();
  const Level level(*this, object);
  const qc_RegistryEntry& entry = entryOf(object);
  if (!marked) qf_WriteBytes(buffer(), kObjectMarker.data(), kObjectMarker.size(), kWriteRawLine);
  if (!isSeekable()) return object.serialize(archive_, 1);

  const bool wide = isWideHere();
  unsigned char variant = wide ? kWideSize : kNarrowSize;
  qf_WriteBytes(buffer(), kEntryTag.data(), kEntryTag.size(), kWriteRawLine);
  archive_ || variant;
  const std::streamoff field = archive_.offset();
  writeSize(0, wide);
  archive_ << entry.name;
  const std::streamoff bodyStart = archive_.offset();
  object.serialize(archive_, 1);
  patchSize(field, bodyStart, wide, kEntrySizeLine);
}

// Whether it had an entry, which says where it ends.
bool qc_ArchiveIndex::loadObject(qcPersistent& object) {
  checkRoom();
  countObject();
  const Level level(*this, object);
  try {
    object.mutating();
    bool marked = false;
    if (archive_.version_ != 0) {
      const std::streamoff start = seekableOffset();
      std::array<unsigned char, kObjectMarker.size()> marker;
      qc_Areas::readAll(archive_, marker.data(), marker.size(), kReadRawLine);
      marked = marker == kObjectMarker;
      if (!marked) {
        if (!isSeekable()) {
          throw archive_.located(qcArchive::NotSeekable(kArchiveSource, kRewindLine),
                                 "an object " + qf_Hex(kObjectMarker), qf_Hex(marker));
        }
        archive_.seekTo(start);
      }
    }
    qcArchiveObserver* const observer = archive_.observer_;
    const std::streamoff at =
        observer ? archive_.offset() - (marked ? static_cast<std::streamoff>(kObjectMarker.size()) : 0) : 0;
    if (!marked && observer) observer->beginObject({at, 0}, typeid(object));
    if (!marked && object.loadLegacy(archive_)) {
      if (observer) observer->endObject();
      return false;
    }
    Body body;
    if (isSeekable()) {
      body = readEntry();
      if (body.name != entryOf(object).name) {
        throw archive_.located(qcArchive::BadType(kIndexSource, kEntryTypeLine), entryOf(object).name, body.name);
      }
    }
    if (marked && observer) {
      const auto left = static_cast<qcUInt64>(std::numeric_limits<qcInt64>::max() - body.at);
      const qcInt64 size = isSeekable() ? body.at - at + static_cast<qcInt64>(std::min(body.size, left)) : 0;
      observer->beginObject({at, size}, typeid(object));
    }
    object.serialize(archive_, 1);
    if (isSeekable()) skipTo(body.at, body.size, kEntrySizeLine);
    if (observer) observer->endObject();
    return isSeekable();
  } catch (qcException& error) {  // while it is known what is being loaded
    archive_.explain(error);
    throw;
  }
}

qc_ArchiveIndex::Body qc_ArchiveIndex::readEntry() {
  const qcArchive::Hush hush(archive_);
  std::array<unsigned char, kEntryTag.size()> tag;
  unsigned char variant = 0;
  qc_Areas::readAll(archive_, tag.data(), tag.size(), kReadRawLine);
  if (tag != kEntryTag) {
    throw archive_.located(qcArchive::BadContent(kIndexSource, kEntryTagLine), "an index entry " + qf_Hex(kEntryTag),
                           qf_Hex(tag));
  }
  archive_ || variant;
  qcArchive::checkVersion(archive_, variant, kWideSize, kIndexSource, kEntrySizeVariantLine);
  Body body;
  body.size = readSize(variant == kWideSize);
  archive_ || body.name;
  body.at = archive_.offset();
  return body;
}

qc_ArchiveIndex::Body qc_ArchiveIndex::readBodyOf(const qc_Record& object) {
  return archive_.explained([&] {
    const qcArchive::Hush hush(archive_);
    archive_.seekTo(object.bodyAt());
    std::string name;
    std::array<unsigned char, kObjectMarker.size()> marker;
    archive_ || name;
    qc_Areas::readAll(archive_, marker.data(), marker.size(), kReadRawLine);
    if (marker != kObjectMarker) {
      throw archive_.located(qcArchive::BadContent(kIndexSource, kEntryTagLine), "an object " + qf_Hex(kObjectMarker),
                             qf_Hex(marker));
    }
    Body body = readEntry();
    if (body.name != name) throw archive_.located(qcArchive::BadType(kIndexSource, kEntryTypeLine), name, body.name);
    return body;
  });
}

// Pointers.

void qc_ArchiveIndex::storePointer(qcPersistent* object, bool owned) {
  const Entry inside(*this);
  if (archive_.version_ == 0) throw qcArchive::CannotWriteToOldArchive(kArchiveSource, kOldArchiveLine);
  if (!object) return writeRecord(qc_Record(), nullptr, false);
  // What lies within an object, or over older data, can be found from there only.
  const bool linked = !owned && depth_ == 0 && isSeekable() && chain_.canGrow();
  std::int32_t id = 0, height = 0;
  if (!owned && qc_HeldTable::isHeld(object)) {
    const std::lock_guard guard(qc_HeldTable::lock());
    if (const qc_HeldTable::Entry* entry = held_.find(object)) {
      id = entry->stored;
      height = entry->height;
    }
  }
  std::streamoff position = 0;
  if (id != 0 && isSeekable()) {
    const auto found = positions_.find(id);
    if (found == positions_.end()) {
      id = 0;  // its record was removed since
    } else {
      position = found->second;
    }
  }
  if (id == 0) {
    static_cast<void>(storeNew(*object, owned, linked ? kPointer : kReference));
    return;
  }
  addLevels(height);
  if (linked) {
    qc_RecordAddition addition(chain_, nextId_ - 1);
    addition.begin(kPointer, id, static_cast<qcUInt64>(position));
    return addition.link();
  }
  qc_Record record;
  record.id = id;
  record.wide = isWideHere();
  record.position = static_cast<qcUInt64>(position);
  writeRecord(record, nullptr, false);
}

void qc_ArchiveIndex::forgetBehind(std::int32_t id) noexcept {
  std::erase_if(positions_, [id](const auto& entry) { return entry.first > id; });
  const std::lock_guard guard(qc_HeldTable::lock());
  held_.forgetStoredBehind(id);
}

void qc_ArchiveIndex::forgetObject(std::int32_t id) noexcept {
  positions_.erase(id);
  const std::lock_guard guard(qc_HeldTable::lock());
  if (qc_HeldTable::Entry* entry = held_.findLoaded(id)) entry->loaded = 0;
}

std::int32_t qc_ArchiveIndex::storeIndexed(qcPersistent& object) {
  const Entry inside(*this);
  return storeNew(object, false, kObject);
}

// Stores an object in full. With `kind` kPointer or kObject it becomes part of the chain, as what a pointer has brought
// along or by itself.
std::int32_t qc_ArchiveIndex::storeNew(qcPersistent& object, bool owned, unsigned char kind) {
  // Whatever can be refused is refused before a byte of the record is written.
  const qc_RegistryEntry& entry = entryOf(object);
  checkNesting();
  if (nextId_ == kLastId) throw qcArchive::BadContent(kIndexSource, kIdentifiersUsedUpLine);
  std::optional<qc_RecordAddition> addition;
  if (kind != kReference) addition.emplace(chain_, nextId_ - 1);
  StoreGuard undo(*this);
  qc_Record record;
  record.id = nextId_;
  record.kind = kInline;
  record.wide = isWideHere();
  record.at = seekableOffset();
  if (kind == kPointer) record.at += static_cast<std::streamoff>(kLinkedHead);
  qc_HeldTable::Place place = qc_HeldTable::kNone;
  if (!owned) {
    if (stored_.size() == stored_.capacity()) stored_.reserve(stored_.size() * 2 + 16);
    if (isSeekable()) positions_[record.id] = record.at;
    const std::lock_guard guard(qc_HeldTable::lock());
    place = held_.enter(&object);
    stored_.push_back(place);
    held_.markStored(held_[place], record.id);
    held_[place].height = -1;
  }
  ++nextId_;
  if (addition) {
    if (kind == kPointer) addition->begin(kPointer | kInline, record.id, static_cast<qcUInt64>(record.at));
    addition->begin(kObject, record.id);
    archive_ << entry.name;
  } else {
    writeRecord(record, &entry.name, true);
  }
  storeObject(object, !addition);
  if (addition) {
    addition->finish(nextId_ - 1);
    addition->link();
  } else if (isSeekable()) {
    patchSize(record.at + static_cast<std::streamoff>(kRecordHead), record.bodyAt(), record.wide, kRecordSizeLine);
    if (entered_ == 1) chain_.countIdentifiers(record.at, nextId_ - 1);
  }
  if (!owned) {
    const std::lock_guard guard(qc_HeldTable::lock());
    held_[place].height = lastHeight_;
  }
  undo.succeed();
  return record.id;
}

qc_ArchiveIndex::Given qc_ArchiveIndex::loadPointer(qc_PointerCast cast, bool owned, bool anew) try {
  const Entry inside(*this);
  if (wanted_.id != 0) throw Unwinding();
  qc_Record record = readRecord();
  if (archive_.observer_) {
    qcArchiveRecord told = record.told();
    told.at = archive_.offset() - told.size;
    archive_.observer_->record(told);
  }
  std::streamoff behind = -1;
  qc_Record brought;
  if (record.isLinked()) {
    record = unlinked(record, behind, brought);
    checkPlace(record);  // within a body, which may have been copied, the identifier alone counts
  }
  if (record.id == 0) {
    if (behind >= 0) archive_.seekTo(behind);
    return {};
  }
  const Deeper deeper(pointers_);
  if (pointers_ == 1 && isSeekable()) {
    chargedFrom_ = archive_.offset();
    attributed_ = 0;
    const std::lock_guard guard(qc_HeldTable::lock());
    charged_ = held_.charged();
  }
  LoadGuard undo(*this);
  Given given;
  if (!owned && !anew && record.id <= lastLoaded_ && giveKnown(record.id, cast, given)) {
    CountGuard count(given);
    addLevels(given.height);
    if (elsewhere_ && given.low > base_) low_ = std::min(low_, given.low);
    if (record.kind == kInline) readScratch(record);
    if (record.kind == kInline && behind >= 0) behind = endOf(brought);
    const std::lock_guard guard(qc_HeldTable::lock());
    qc_HeldTable::Entry* entry = held_.findLoaded(record.id);
    if (entry && elsewhere_ && !cast && entry->low == qc_HeldTable::kSettled) lent_.push_back(entry->place);
    if (entry) (cast ? entry->given : entry->lent) = true;
    cast ? count.keep() : count.lend();
  } else {
    given = record.kind == kInline ? loadInline(record, cast, owned) : loadElsewhere(record, cast, owned);
    if (record.kind == kInline && behind >= 0) behind = archive_.offset();
    if (cast && !owned) qcRepBase::refInc(given.rep);
  }
  if (behind >= 0) archive_.seekTo(behind);
  undo.succeed();
  if (pointers_ == 1) commit();
  return given;
} catch (qcException& error) {
  archive_.explain(error);
  throw;
}

qcPersistent* qc_ArchiveIndex::loadAnew(std::int32_t id) {
  std::unique_lock guard(qc_HeldTable::lock());
  const qc_HeldTable::Place before = held_.placeOf(id);
  guard.unlock();
  qcPersistent* object = nullptr;
  const auto forget = [&] {
    guard.lock();
    if (qc_HeldTable::Entry* entry = object ? held_.find(object) : nullptr) entry->loaded = entry->stored = 0;
    held_.lookAt(id, before);
  };
  try {
    object = loadPointer(nullptr, false, true).object;
  } catch (...) {
    forget();
    throw;
  }
  forget();
  return object;
}

// What a linked record that stands for a pointer says: a reference, or the object that comes next. A pointer and the
// object that it `brought` along end at `behind`, whatever it refers to by now.
qc_Record qc_ArchiveIndex::unlinked(const qc_Record& record, std::streamoff& behind, qc_Record& brought) {
  if (record.is(kObject)) return inlineOf(record);
  if (!record.is(kPointer)) {
    throw archive_.located(qcArchive::BadContent(kIndexSource, kRecordIdentifierLine), "a pointer or an object",
                           "a mark");
  }
  const qc_Record reference = referenceOf(record);
  if (!hasBrought(record)) return reference;
  const bool isOwn = reference.id == record.id && record.size == 0;
  if (!isOwn && isGone(record)) {  // nobody needs it
    behind = endOfRest(record);
    return reference;
  }
  brought = readBrought();
  behind = brought.end();
  if (brought.id == reference.id && !brought.isRemoved()) return inlineOf(brought);
  behind = endOf(brought);
  return reference;
}

// What a pointer refers to; nothing once it was removed.
qc_Record qc_ArchiveIndex::referenceOf(const qc_Record& pointer) const {
  qc_Record reference;
  if (!pointer.isRemoved()) reference.id = pointer.number();
  // One that was redirected, and back, may refer to another object than the one whose place it tells.
  const bool isFirst = (pointer.kind & kSecondNumber) == 0;
  if (isFirst && (pointer.size == 0 || !chain_.object(reference.id))) reference.position = pointer.last;
  return reference;
}

// Whether a pointer brought an object along, its flag says and, as long as it was never redirected, the place that it
// tells. One of them may be wrong.
bool qc_ArchiveIndex::hasBrought(const qc_Record& pointer) {
  const bool isPristine = (pointer.kind & kSecondNumber) == 0 && pointer.size == 0 && !pointer.isRemoved();
  const bool isNext = pointer.last == static_cast<qcUInt64>(pointer.end());
  return isPristine && pointer.isFollowed() != isNext ? isBrought(pointer) : pointer.isFollowed();
}

// Whether the object is no more there that a pointer brought along, and this is not where the data was cut.
bool qc_ArchiveIndex::isGone(const qc_Record& pointer) {
  return chain_.unfinished() != pointer.end() && !isBrought(pointer);
}

// The head of the object that a pointer brought along.
qc_Record qc_ArchiveIndex::readBrought() {
  qc_Record object = readRecord();
  if (!object.is(kObject)) {
    throw archive_.located(qcArchive::BadContent(kIndexSource, kRecordIdentifierLine), "the object of the pointer",
                           "another record");
  }
  const std::streamoff end = archive_.endOffset();
  if (object.size == 0) object.size = chain_.ownSize(object, end);  // which its head has lost
  if (static_cast<qcUInt64>(end - object.bodyAt()) < object.size) {
    throw archive_.located(qcArchive::Eof(kIndexSource, kRecordSizeLine),
                           "an object of " + std::to_string(object.size) + " bytes",
                           std::to_string(end - object.bodyAt()));
  }
  return object;
}

// Whether the object lies behind a pointer that it brought along.
bool qc_ArchiveIndex::isBrought(const qc_Record& pointer) {
  const auto next = chain_.headAt(pointer.end());
  if (!next || !next->is(kObject)) return false;
  // The chain knows more than a head that is damaged, but not what others have stored since it was read.
  const bool isBehind = next->previous == static_cast<qcUInt64>(pointer.at) || chain_.at(pointer.end());
  return isBehind && (next->id == pointer.id || pointer.size != 0);  // redirecting changes the pointer's number
}

// Where what is left of an object ends that a pointer brought along: behind its entry, or with the pointer.
std::streamoff qc_ArchiveIndex::endOfRest(const qc_Record& pointer) {
  const auto next = chain_.headAt(pointer.end());
  if (next && next->is(kObject)) return pointer.end();
  qc_Record object = pointer;  // all heads of linked records are as long
  object.at = pointer.end();
  object.kind = kObject;
  object.size = 0;
  const std::streamoff end = endOf(object);
  return end == object.bodyAt() ? pointer.end() : end;
}

// Where a linked object ends, by its own entry if that tells.
std::streamoff qc_ArchiveIndex::endOf(const qc_Record& object) {
  const qcUInt64 size = chain_.ownSize(object, archive_.endOffset());
  return size != 0 ? object.bodyAt() + static_cast<std::streamoff>(size) : object.end();
}

// A pointer tells the place of its object, too: another one there means that it is damaged. Of an object outside of the
// index, a copy may be known instead.
void qc_ArchiveIndex::checkPlace(const qc_Record& reference) {
  if (reference.kind == kInline || reference.position == 0) return;
  const auto place = static_cast<std::streamoff>(reference.position);
  const qc_Record* object = chain_.object(reference.id);
  const auto known = positions_.find(reference.id);
  bool isThere = object ? object->at == place : known == positions_.end() || known->second == place;
  if (!object && !isThere && place > 0 && place < archive_.endOffset()) {
    const std::streamoff here = archive_.offset();
    archive_.seekTo(place);
    const qc_Record record = readRecord();
    isThere = record.id == reference.id && record.kind == kInline;
    archive_.seekTo(here);
  }
  if (!isThere)
    throw missing(reference.id, kNotInIndexLine, "its place given as byte " + std::to_string(reference.position));
}

qc_Record qc_ArchiveIndex::inlineOf(const qc_Record& object) const {
  if (object.isRemoved()) throw missing(object.id, kNotInIndexLine, "an object that was removed");
  qc_Record record = object;
  record.kind = kInline;
  return record;
}

qcArchive::BadType qc_ArchiveIndex::wrongClass(const qcPersistent& object) {
  return archive_.located(qcArchive::BadType(kIndexSource, kHandleClassLine), "an object of the handle's class",
                          qcDevEnv::canonicalTypeName(typeid(object).name()));
}

// What `cast` makes of an object that was just made; no typed object when it is of another class.
qc_ArchiveIndex::Given qc_ArchiveIndex::castObject(qcPersistent* object, qc_PointerCast cast) {
  Given given{object, object, nullptr};
  if (!cast) {
    given.rep = dynamic_cast<const qcRepBase*>(object);
    return given;
  }
  const std::type_info& type = typeid(*object);
  const auto at = [object](std::ptrdiff_t offset) { return reinterpret_cast<char*>(object) + offset; };
  Cast& known = casts_[cachePlace<kCache>(&type)];
  if (known.type != &type || known.cast != cast) {
    given.typed = cast(object, given.rep);
    if (!given.typed) return given;
    known = {&type, cast, static_cast<char*>(given.typed) - at(0), 0, given.rep != nullptr};
    if (given.rep) known.rep = reinterpret_cast<const char*>(given.rep) - at(0);
  } else {
    given.typed = at(known.typed);
    if (known.counted) given.rep = reinterpret_cast<const qcRepBase*>(at(known.rep));
  }
  return given;
}

// Looks for an object that is loaded already, and takes a count of it.
bool qc_ArchiveIndex::giveKnown(std::int32_t id, qc_PointerCast cast, Given& given) {
  {
    const std::lock_guard guard(qc_HeldTable::lock());
    const qc_HeldTable::Entry* entry = held_.findLoaded(id);
    if (!entry) return false;
    const bool shared = entry->given && !entry->lent;
    given = {entry->object, entry->object, entry->rep, shared, entry->height, entry->low};
    // The last handle may be let go of on another thread at this moment.
    if (shared && given.rep && !qcRepBase::refIncIfOwned(given.rep)) return false;
    if (!shared && given.rep) qcRepBase::refInc(given.rep);
  }
  if (!cast) return true;
  CountGuard count(given);
  given.typed = cast(given.object, given.rep);
  if (!given.typed) throw wrongClass(*given.object);
  count.keep();
  return true;
}

// Makes an object of the class whose name comes next. From here on the load under way owns it.
qc_ArchiveIndex::Given qc_ArchiveIndex::makeObject(std::int32_t id, qc_PointerCast cast) {
  std::unique_ptr<qcPersistent> fresh(readName()->make());
  if (!fresh) throw std::bad_alloc();
  const Given given = castObject(fresh.get(), cast);
  if (!given.typed) throw wrongClass(*fresh);
  if (const std::size_t size = made_.size() + settled_.size(); size >= made_.capacity()) {
    const std::size_t larger = size * 2 + 16;
    counts_.reserve(larger);
    settled_.reserve(larger);
    made_.reserve(larger);
  }
  const std::lock_guard guard(qc_HeldTable::lock());
  made_.push_back(held_.enterMade(given.object, given.rep, id, cast != nullptr));
  if (elsewhere_) held_[made_.back()].low = depth_ + 1;
  counts_.push_back({given.rep, false});
  if (given.rep) qcRepBase::refInc(given.rep);
  lastLoaded_ = std::max(lastLoaded_, id);
  static_cast<void>(fresh.release());  // the table of held objects has it now
  return given;
}

qc_ArchiveIndex::Given qc_ArchiveIndex::loadInline(const qc_Record& record, qc_PointerCast cast, bool owned) {
  const std::streamoff bodyStart = seekableOffset();
  const std::size_t place = made_.size();
  const Given given = makeObject(owned ? 0 : record.id, cast);
  const bool hasEntry = loadObject(*given.object);
  // Where a linked object ends, its own entry says as well.
  const bool isLonger =
      hasEntry && record.previous != 0 && record.size > static_cast<qcUInt64>(seekableOffset() - bodyStart);
  if (isSeekable() && record.size != 0 && !isLonger) skipTo(bodyStart, record.size, kRecordSizeLine);
  const std::lock_guard guard(qc_HeldTable::lock());
  qc_HeldTable::Entry& entry = held_[made_[place]];
  entry.complete = true;
  entry.height = lastHeight_;
  if (isSeekable() && !owned) {
    positions_[record.id] = record.at;
    if (entry.object) held_.markStored(entry, record.id);
  }
  lastMade_ = made_[place];
  if (!elsewhere_ || wanted_.id != 0) return given;
  // A plain pointer or an owner may take the object along when it goes; so it goes with the one around it.
  const long low = owned || !cast ? std::min(lastLow_, depth_) : lastLow_;
  if (low > depth_ || low <= base_) {
    settle(place);
  } else {
    entry.low = low;
    low_ = std::min(low_, low);
  }
  return given;
}

qcArchive::NotFound qc_ArchiveIndex::missing(std::int32_t id, int line, std::string_view found) const {
  return archive_.located(qcArchive::NotFound(kIndexSource, line), "object " + std::to_string(id), found);
}

qc_ArchiveIndex::Given qc_ArchiveIndex::loadElsewhere(const qc_Record& record, qc_PointerCast cast, bool owned) {
  if (!archive_.seekable_) throw missing(record.id, kNotInArchiveLine, "none before it");
  auto position = static_cast<std::streamoff>(record.position);
  if (const qc_Record* object = chain_.object(record.id)) {
    position = object->at;
  } else if (const auto found = positions_.find(record.id); found != positions_.end()) {
    position = found->second;
  }
  const std::streamoff here = archive_.offset();
  if (position <= 0 || position >= archive_.endOffset()) throw missing(record.id, kNotInIndexLine, "none");
  const qcArchive::Hush hush(archive_);  // it is told of where it lies
  const Root root{record.id, position};
  const Given given = elsewhere_ ? loadAt(root, cast, owned) : loadFrom(root, cast, owned);
  archive_.seekTo(here);
  chargedFrom_ = here;
  return given;
}

// Loads the object that a record is about.
qc_ArchiveIndex::Given qc_ArchiveIndex::loadAt(const Root& root, qc_PointerCast cast, bool owned) {
  charge(archive_.offset(), root.position);
  const std::streamoff chargedBefore = charged_, attributedBefore = attributed_;
  archive_.seekTo(root.position);
  qc_Record target = readRecord();
  if (target.is(kObject)) target = inlineOf(target);
  if (target.id != root.id || target.kind != kInline) throw missing(root.id, kNotInIndexLine, "another record");
  std::optional<Elsewhere> here;
  if (!owned || !elsewhere_) here.emplace(*this, root);  // nobody else could be given one that has an owner
  const Given given = loadInline(target, cast, owned);
  const qc_HeldTable::Place place = lastMade_;
  charge(archive_.offset(), archive_.offset());
  const std::streamoff own = (charged_ - chargedBefore) - (attributed_ - attributedBefore);
  attributed_ += own;
  const std::lock_guard guard(qc_HeldTable::lock());
  if (qc_HeldTable::Entry& entry = held_[place]; entry.object) held_.charge(entry, own);
  return given;
}

// Loads the outermost object that a reference leads to. When those that it leads to in turn go too deep, one of them is
// loaded first, by itself, and so on; then those that wait for it are begun anew. Of what the attempt before has
// loaded, all stays that is complete and refers to nothing incomplete.
qc_ArchiveIndex::Given qc_ArchiveIndex::loadFrom(Root root, qc_PointerCast cast, bool owned) {
  const qc_PointerCast anyClass = [](qcPersistent* object, const qcRepBase*& count) -> void* {
    count = dynamic_cast<const qcRepBase*>(object);
    return object;
  };
  std::vector<Root> waiting;
  waiting_.clear();
  charge(archive_.offset(), archive_.offset());
  const std::size_t made = made_.size();
  const std::int32_t height = height_;
  const long low = low_;
  const std::streamoff charged = charged_, attributed = attributed_;
  const auto chargedToObjects = [this] {
    const std::lock_guard guard(qc_HeldTable::lock());
    return held_.charged();
  };
  const std::streamoff chargedBefore = chargedToObjects();
  std::streamoff wasted = 0;
  for (;;) {
    const bool isFirst = waiting.empty();
    lent_.clear();
    Given given;
    try {
      // Loading another one may have brought it along.
      if ((isFirst && owned) || !giveKnown(root.id, isFirst ? cast : anyClass, given)) {
        given = loadAt(root, isFirst ? cast : anyClass, isFirst && owned);
      } else {
        if (given.rep) qcRepBase::refDec(given.rep);  // the load under way has a count, too
        addLevels(given.height);
        const std::lock_guard guard(qc_HeldTable::lock());
        if (qc_HeldTable::Entry* entry = held_.findLoaded(root.id); entry && !cast) entry->lent = isFirst;
      }
    } catch (...) {
      if (wanted_.id == 0) throw;
    }
    if (wanted_.id == 0) {
      if (isFirst) return given;
      root = waiting.back();
      waiting.pop_back();
      waiting_.erase(root.id);
      continue;
    }
    const Root wanted = std::exchange(wanted_, {});
    undo(made, settled_.size());
    height_ = height;
    low_ = low;
    // What complete objects took stays counted; what was in vain has a bound of its own, which only the most unlikely
    // graphs can reach: wide where they are deepest.
    const std::streamoff kept = chargedToObjects() - chargedBefore;
    wasted += charged_ - charged - kept;
    charged_ = charged + kept;
    attributed_ = attributed + kept;
    chargedFrom_ = archive_.offset();
    bool isLost = wasted / kWaste > archive_.endOffset();
    // An object that was lent may have gone with its owner, whoever else refers to it.
    for (const qc_HeldTable::Place place : lent_) {
      const std::lock_guard guard(qc_HeldTable::lock());
      isLost = isLost || !held_[place].object;
    }
    if (isLost) archive_.refuse(qcLoadContext::Limit::nesting, archive_.limits_.nesting);
    if (!isFirst || !owned) waiting_.insert(root.id);  // nobody else can refer to one that has an owner
    waiting.push_back(root);
    root = wanted;
  }
}

// Counts what was read up to `position`; reading goes on at `next`. Records of one archive do not overlap, so that what
// was read elsewhere for the objects that live, and what this load reads, are each at most the archive's length.
void qc_ArchiveIndex::charge(std::streamoff position, std::streamoff next) {
  charged_ += std::max<std::streamoff>(position - chargedFrom_, 0);
  chargedFrom_ = next;
  if (charged_ / 2 > archive_.endOffset()) {
    throw archive_.located(qcArchive::BadContent(kIndexSource, kRecordOverlapLine), "records that do not overlap",
                           "more bytes in them than in the archive");
  }
}

// Reads an inline copy of an object that is known already into an object that nobody sees.
void qc_ArchiveIndex::readScratch(const qc_Record& record) {
  if (isSeekable() && record.size != 0) {
    countObject();
    return skipTo(archive_.offset(), record.size, kRecordSizeLine);
  }
  const LoadGuard discard(*this);
  loadObject(*makeObject(0, nullptr).object);
}

qc_HeldTable::Entry qc_ArchiveIndex::madeEntry(std::size_t i) noexcept {
  const std::lock_guard guard(qc_HeldTable::lock());
  return held_[made_[i]];
}

// What was made from `from` on depends on nothing before it. Wants the lock taken.
void qc_ArchiveIndex::settle(std::size_t from) noexcept {
  for (std::size_t i = from; i < made_.size(); ++i) {
    held_[made_[i]].low = qc_HeldTable::kSettled;
    settled_.push_back(made_[i]);
  }
  made_.resize(from);
  counts_.resize(from);
}

// Destroys everything made from `from` on and settled from `settledFrom` on, each object once, whoever refers to it.
void qc_ArchiveIndex::undo(std::size_t from, std::size_t settledFrom) noexcept {
  for (std::size_t i = settledFrom; i < settled_.size(); ++i) {
    made_.push_back(settled_[i]);
    counts_.push_back({madeEntry(made_.size() - 1).rep, false});
  }
  settled_.resize(settledFrom);
  if (made_.size() == from) return;
  {
    qc_LoadUndo undoing(std::span<qc_LoadUndo::Count>(counts_).subspan(from));
    for (std::size_t i = from; i < made_.size(); ++i) {
      try {
        if (qcPersistent* object = madeEntry(i).object) object->preLoad();
      } catch (...) {  // the object goes anyway
      }
    }
    // In the order of making: an object that owns another was made before it, and takes it along.
    for (std::size_t i = from; i < made_.size(); ++i) {
      const qc_HeldTable::Entry entry = madeEntry(i);
      if (!entry.object) continue;
      if (entry.rep) undoing.markGone(entry.rep);
      delete entry.object;
    }
  }
  const std::lock_guard guard(qc_HeldTable::lock());
  for (std::size_t i = from; i < made_.size(); ++i) held_.release(made_[i]);
  made_.resize(from);
  counts_.resize(from);
}

// The load has succeeded: its objects belong to those who refer to them. An object that handles were given, and that
// all of them let go of while the load lasted, goes now.
void qc_ArchiveIndex::commit() noexcept {
  made_.insert(made_.end(), settled_.begin(), settled_.end());  // there is room
  settled_.clear();
  bool dropped = false;
  std::unique_lock guard(qc_HeldTable::lock());
  for (const qc_HeldTable::Place place : made_) {
    qc_HeldTable::Entry& entry = held_[place];
    if (!entry.object || (entry.rep && qcRepBase::refDec(entry.rep) != 0)) continue;
    entry.dropped = entry.given && !entry.lent && entry.loaded != 0;
    dropped = dropped || entry.dropped;
  }
  if (dropped) {
    guard.unlock();
    for (std::size_t i = 0; i < made_.size(); ++i) {
      if (const qc_HeldTable::Entry entry = madeEntry(i); entry.dropped) delete entry.object;
    }
    guard.lock();
  }
  for (const qc_HeldTable::Place place : made_) held_.release(place);
  made_.clear();
  counts_.clear();
}
