#include "std/archive/index.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>

#include "std/archive/areas.h"
#include "std/archive/byteswap.h"
#include "std/archive/format.h"
#include "std/archive/visited.h"
#include "vnxstd/archive/registry.h"
#include "vnxstd/archive/spinlock.h"
#include "vnxstd/except/typename.h"

using namespace qc_format;

namespace {

qc_SpinLock tableLock;               // guards the tables of all archives and the list of them
qc_ArchiveIndex* holders = nullptr;  // the archives that hold objects

constexpr std::int32_t kLastId = std::numeric_limits<std::int32_t>::max();
constexpr std::size_t kScanBytes = 65536;

}  // namespace

// Every operation runs inside one of these; the outermost of an archive takes the persistence lock.
class qc_ArchiveIndex::Entry {
 public:
  explicit Entry(qc_ArchiveIndex& index) : index_(index) {
    if (index_.entered_ == 0) qc_Visited::lock().lock();
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

// Forgets what a failed store has entered: nobody could read references to it.
class qc_ArchiveIndex::StoreGuard {
 public:
  explicit StoreGuard(qc_ArchiveIndex& index) noexcept : index_(index), from_(index.stored_.size()) {}
  ~StoreGuard() {
    if (succeeded_) {
      if (from_ == 0) index_.stored_.clear();
      return;
    }
    const std::lock_guard guard(tableLock);
    for (std::size_t i = from_; i < index_.stored_.size(); ++i) {
      qc_AddressTable::Slot* slot = index_.addresses_.find(index_.stored_[i]);
      if (slot) slot->stored = 0;
    }
    index_.stored_.resize(from_);
  }
  StoreGuard(const StoreGuard&) = delete;
  StoreGuard& operator=(const StoreGuard&) = delete;
  void succeed() noexcept { succeeded_ = true; }

 private:
  qc_ArchiveIndex& index_;
  std::size_t from_;
  bool succeeded_ = false;
};

// Destroys what a failed load has made.
class qc_ArchiveIndex::LoadGuard {
 public:
  explicit LoadGuard(qc_ArchiveIndex& index) noexcept : index_(index), from_(index.made_.size()) {}
  ~LoadGuard() {
    if (!succeeded_) index_.undo(from_);
  }
  LoadGuard(const LoadGuard&) = delete;
  LoadGuard& operator=(const LoadGuard&) = delete;
  void succeed() noexcept { succeeded_ = true; }

 private:
  qc_ArchiveIndex& index_;
  std::size_t from_;
  bool succeeded_ = false;
};

// Gives back a count that was taken for a handle, unless the handle gets it.
class qc_ArchiveIndex::CountGuard {
 public:
  explicit CountGuard(const Given& given) noexcept : given_(given) {}
  ~CountGuard() {
    if (given_.rep && qcRepBase::refDec(given_.rep) == 0) delete given_.object;
  }
  CountGuard(const CountGuard&) = delete;
  CountGuard& operator=(const CountGuard&) = delete;
  void keep() noexcept { given_.rep = nullptr; }

 private:
  Given given_;
};

qc_ArchiveIndex::qc_ArchiveIndex(qcArchive& archive) : archive_(archive), numbered_(archive.isStoring()) {}

qc_ArchiveIndex::~qc_ArchiveIndex() { letGo(); }

// The objects that archives hold.

void qc_ArchiveIndex::link() noexcept {
  if (linked_) return;
  linked_ = true;
  previous_ = nullptr;
  next_ = holders;
  if (holders) holders->previous_ = this;
  holders = this;
}

void qc_ArchiveIndex::letGo() noexcept {
  const std::lock_guard guard(tableLock);
  if (!linked_) return;
  (previous_ ? previous_->next_ : holders) = next_;
  if (next_) next_->previous_ = previous_;
  linked_ = false;
  addresses_.forEach([](const qc_AddressTable::Slot& mine) {
    unsigned char held = 0;
    for (qc_ArchiveIndex* other = holders; other; other = other->next_) {
      if (const qc_AddressTable::Slot* slot = other->addresses_.find(mine.object)) {
        held |= qcPersistent::kKnown | (slot->stored != 0 ? qcPersistent::kStored : 0);
      }
    }
    mine.object->held_.store(held, std::memory_order_relaxed);
  });
  addresses_.clear();
  dense_.clear();
  sparse_.clear();
}

void qc_ArchiveIndex::forgetStored(qcPersistent* object) noexcept {
  const std::lock_guard guard(tableLock);
  for (qc_ArchiveIndex* index = holders; index; index = index->next_) {
    if (qc_AddressTable::Slot* slot = index->addresses_.find(object)) slot->stored = 0;
  }
  object->held_.fetch_and(static_cast<unsigned char>(~qcPersistent::kStored), std::memory_order_relaxed);
}

void qc_ArchiveIndex::forget(const qcPersistent* object) noexcept {
  const std::lock_guard guard(tableLock);
  for (qc_ArchiveIndex* index = holders; index; index = index->next_) {
    qc_AddressTable::Slot* slot = index->addresses_.find(object);
    if (!slot) continue;
    if (qc_LoadedObject* made = index->findMade(*slot)) made->object = nullptr;
    if (const Loaded* loaded = index->findLoaded(slot->loaded); loaded && loaded->object == object) {
      index->removeLoaded(slot->loaded);
    }
    index->addresses_.remove(slot);
  }
}

// Null when the load under way has not made the object: a place from an earlier load is another object's by now.
qc_LoadedObject* qc_ArchiveIndex::findMade(const qc_AddressTable::Slot& slot) noexcept {
  return slot.made < made_.size() && made_[slot.made].object == slot.object ? &made_[slot.made] : nullptr;
}

qc_ArchiveIndex::Loaded* qc_ArchiveIndex::findLoaded(std::int32_t id) noexcept {
  if (id == 0) return nullptr;
  const auto place = static_cast<std::size_t>(id) - 1;
  if (place < dense_.size() && dense_[place].object) return &dense_[place];
  if (sparse_.empty()) return nullptr;
  const auto found = sparse_.find(id);
  return found == sparse_.end() ? nullptr : &found->second;
}

void qc_ArchiveIndex::enterLoaded(std::int32_t id, const Loaded& loaded) {
  const auto place = static_cast<std::size_t>(id) - 1;
  if (place < dense_.size()) {
    dense_[place] = loaded;
  } else if (place == dense_.size()) {
    dense_.push_back(loaded);
  } else {
    sparse_.emplace(id, loaded);
  }
}

void qc_ArchiveIndex::removeLoaded(std::int32_t id) noexcept {
  if (Loaded* loaded = findLoaded(id)) {
    const auto place = static_cast<std::size_t>(id) - 1;
    if (place < dense_.size() && loaded == &dense_[place]) {
      *loaded = Loaded{};
    } else {
      sparse_.erase(id);
    }
  }
}

bool qc_ArchiveIndex::isStillLoading(const qcPersistent* object) noexcept {
  if (!object || made_.empty()) return false;
  const std::lock_guard guard(tableLock);
  const qc_AddressTable::Slot* slot = addresses_.find(object);
  const qc_LoadedObject* made = slot ? findMade(*slot) : nullptr;
  return made && !made->complete;
}

const qc_RegistryEntry& qc_ArchiveIndex::entryOf(const qcPersistent& object) {
  const std::type_info& type = typeid(object);
  if (&type != lastType_) {
    const qc_RegistryEntry* entry = qf_FindRegistered(type);
    if (!entry) {
      throw qcArchive::UnknownType(qcDevEnv::canonicalTypeName(type.name()).c_str(), kArchiveSource, kUnknownTypeLine);
    }
    lastType_ = &type;
    lastEntry_ = entry;
  }
  return *lastEntry_;
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

void qc_ArchiveIndex::writeRecord(const Record& record) {
  if (!wideSizes_ && record.position > std::numeric_limits<std::uint32_t>::max()) {
    throw qcArchive::BadContent(kIndexSource, kRecordSizeLine);
  }
  unsigned char tag[5] = {kRecordTag[0], kRecordTag[1], kRecordTag[2], wideSizes_ ? kWideRecord : kNarrowRecord,
                          kRecordVersion};
  archive_.writeBytes(tag, sizeof tag, kWriteRawLine);
  std::int32_t id = record.id;
  unsigned char kind = record.kind;
  archive_ || id || kind;
  writeSize(record.size, wideSizes_);
  writeSize(record.position, wideSizes_);
}

qc_ArchiveIndex::Record qc_ArchiveIndex::readRecord() {
  unsigned char tag[5];
  archive_.readBytes(tag, sizeof tag, kReadRawLine);
  const bool wide = tag[3] == kWideRecord;
  if (!std::equal(kRecordTag.begin(), kRecordTag.end(), tag) || (!wide && tag[3] != kNarrowRecord)) {
    throw qcArchive::BadContent(kIndexSource, kRecordTagLine);
  }
  qcArchive::checkVersion(tag[4], kRecordVersion, kIndexSource, kRecordVersionLine);
  Record record;
  record.wide = wide;
  archive_ || record.id || record.kind;
  record.size = readSize(wide);
  record.position = readSize(wide);
  if (record.id < 0 || (record.id == 0 && record.kind == kInline)) {
    throw qcArchive::BadContent(kIndexSource, kRecordIdentifierLine);
  }
  return record;
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
  if (size < taken) throw qcArchive::BadContent(kIndexSource, line);
  if (size == taken) return;
  const std::streamoff end = archive_.endOffset();
  if (size - taken > static_cast<qcUInt64>(std::max<std::streamoff>(end - here, 0))) {
    throw qcArchive::Eof(kIndexSource, line);
  }
  archive_.seekTo(bodyStart + static_cast<std::streamoff>(size));
}

void qc_ArchiveIndex::numberBehindData() {
  if (numbered_) return;
  // Looks for what can be the head of a record. Other data may look the same: a number is then left out.
  constexpr std::size_t kHead = 9;  // up to the end of the identifier
  const std::streamoff here = archive_.offset();
  archive_.seekTo(0);
  std::vector<unsigned char> window(kScanBytes + kHead);
  std::size_t kept = 0;
  for (;;) {
    const std::size_t read = qc_Areas::read(*archive_.buffer_, window.data() + kept, kScanBytes);
    const std::size_t size = kept + read;
    for (std::size_t i = 0; i + kHead <= size; ++i) {
      if (!std::equal(kRecordTag.begin(), kRecordTag.end(), &window[i])) continue;
      std::uint32_t id;
      std::memcpy(&id, &window[i + 5], sizeof id);
      if (archive_.swapBytes_) qf_Reverse(id);
      if (id < static_cast<std::uint32_t>(kLastId)) nextId_ = std::max(nextId_, static_cast<std::int32_t>(id) + 1);
    }
    if (read == 0) break;
    kept = std::min(size, kHead - 1);
    std::memmove(window.data(), window.data() + size - kept, kept);
  }
  archive_.seekTo(here);
  numbered_ = true;
}

// Objects.

void qc_ArchiveIndex::serializeObject(qcPersistent& object) {
  const Entry entry(*this);
  if (depth_ >= archive_.nestingLimit_) throw qcArchive::BadContent(kArchiveSource, kNestingLine);
  const Deeper deeper(depth_);
  if (archive_.isStoring()) {
    storeObject(object);
  } else {
    loadObject(object);
  }
}

void qc_ArchiveIndex::storeObject(qcPersistent& object) {
  if (archive_.version_ == 0) throw qcArchive::CannotWriteToOldArchive(kArchiveSource, kOldArchiveLine);
  const qc_RegistryEntry& entry = entryOf(object);
  archive_.writeBytes(kObjectMarker.data(), kObjectMarker.size(), kWriteRawLine);
  if (!archive_.seekable_) return object.serialize(archive_, 1);

  const bool wide = wideSizes_;
  unsigned char variant = wide ? kWideSize : kNarrowSize;
  archive_.writeBytes(kEntryTag.data(), kEntryTag.size(), kWriteRawLine);
  archive_ || variant;
  const std::streamoff field = archive_.offset();
  writeSize(0, wide);
  std::string name = entry.name;
  archive_ || name;
  const std::streamoff bodyStart = archive_.offset();
  object.serialize(archive_, 1);
  patchSize(field, bodyStart, wide, kEntrySizeLine);
}

void qc_ArchiveIndex::loadObject(qcPersistent& object) {
  object.mutating();
  bool marked = false;
  if (archive_.version_ != 0) {
    const std::streamoff start = archive_.seekable_ ? archive_.offset() : 0;
    std::array<unsigned char, kObjectMarker.size()> marker;
    archive_.readBytes(marker.data(), marker.size(), kReadRawLine);
    marked = marker == kObjectMarker;
    if (!marked) {
      if (!archive_.seekable_) throw qcArchive::NotSeekable(kArchiveSource, kRewindLine);
      archive_.seekTo(start);
    }
  }
  if (!marked && object.loadLegacy(archive_)) return;
  if (!archive_.seekable_) return object.serialize(archive_, 1);

  std::array<unsigned char, kEntryTag.size()> tag;
  unsigned char variant = 0;
  archive_.readBytes(tag.data(), tag.size(), kReadRawLine);
  if (tag != kEntryTag) throw qcArchive::BadContent(kIndexSource, kEntryTagLine);
  archive_ || variant;
  qcArchive::checkVersion(variant, kWideSize, kIndexSource, kEntrySizeVariantLine);
  const qcUInt64 size = readSize(variant == kWideSize);
  std::string name;
  archive_ || name;
  if (name != entryOf(object).name) throw qcArchive::BadType(kIndexSource, kEntryTypeLine);
  const std::streamoff bodyStart = archive_.offset();
  object.serialize(archive_, 1);
  skipTo(bodyStart, size, kEntrySizeLine);
}

// Pointers.

void qc_ArchiveIndex::storePointer(qcPersistent* object, bool owned) {
  const Entry inside(*this);
  if (archive_.version_ == 0) throw qcArchive::CannotWriteToOldArchive(kArchiveSource, kOldArchiveLine);
  if (!object) return writeRecord({});
  Record record;
  if (!owned) {
    const std::lock_guard guard(tableLock);
    if (const qc_AddressTable::Slot* slot = addresses_.find(object)) record.id = slot->stored;
  }
  if (record.id != 0) {
    if (const auto found = positions_.find(record.id); found != positions_.end()) {
      record.position = static_cast<qcUInt64>(found->second);
    }
    return writeRecord(record);
  }

  // Whatever can be refused is refused before a byte of the record is written.
  const qc_RegistryEntry& entry = entryOf(*object);
  if (depth_ >= archive_.nestingLimit_) throw qcArchive::BadContent(kArchiveSource, kNestingLine);
  if (nextId_ == kLastId) throw qcArchive::BadContent(kIndexSource, kIdentifiersUsedUpLine);
  record.id = nextId_;
  record.kind = kInline;
  const std::streamoff start = archive_.seekable_ ? archive_.offset() : 0;
  StoreGuard undo(*this);
  if (!owned) {
    stored_.push_back(object);
    if (archive_.seekable_) positions_[record.id] = start;
    const std::lock_guard guard(tableLock);
    addresses_.enter(object).stored = record.id;
    object->held_.store(qcPersistent::kStored | qcPersistent::kKnown, std::memory_order_relaxed);
    link();
  }
  ++nextId_;
  const bool wide = wideSizes_;
  writeRecord(record);
  std::string name = entry.name;
  const std::streamoff bodyStart = archive_.seekable_ ? archive_.offset() : 0;
  archive_ || name;
  serializeObject(*object);
  if (archive_.seekable_) patchSize(start + static_cast<std::streamoff>(kRecordHead), bodyStart, wide, kRecordSizeLine);
  undo.succeed();
}

qc_ArchiveIndex::Given qc_ArchiveIndex::loadPointer(qc_PointerCast cast, bool owned) {
  const Entry inside(*this);
  const Record record = readRecord();
  if (record.id == 0) return {};
  const Deeper deeper(pointers_);
  if (pointers_ == 1) {
    charged_ = 0;
    chargedFrom_ = archive_.seekable_ ? archive_.offset() : 0;
  }
  LoadGuard undo(*this);
  Given given;
  if (!owned && giveKnown(record.id, cast, given)) {
    CountGuard count(given);
    if (record.kind == kInline) readScratch(record);
    count.keep();
  } else {
    given = record.kind == kInline ? loadInline(record, cast, owned) : loadElsewhere(record, cast, owned);
    if (cast && !owned) qcRepBase::refInc(given.rep);
  }
  undo.succeed();
  if (pointers_ == 1) commit();
  return given;
}

// Looks for an object that is loaded already.
bool qc_ArchiveIndex::giveKnown(std::int32_t id, qc_PointerCast cast, Given& given) {
  {
    const std::lock_guard guard(tableLock);
    const Loaded* loaded = findLoaded(id);
    if (!loaded) return false;
    given = {loaded->object, loaded->object, nullptr};
    if (!cast) return true;
    // The last handle may be let go of on another thread at this moment.
    if (loaded->given && !qcRepBase::refIncIfOwned(loaded->rep)) return false;
    if (!loaded->given && loaded->rep) qcRepBase::refInc(loaded->rep);
    given.rep = loaded->rep;
  }
  CountGuard count(given);
  given.typed = cast(given.object, given.rep);
  if (!given.typed) throw qcArchive::BadType(kIndexSource, kHandleClassLine);
  const std::lock_guard guard(tableLock);
  if (Loaded* loaded = findLoaded(id)) loaded->given = true;
  count.keep();
  return true;
}

// Makes an object of the class whose name comes next. From here on the load under way owns it.
qc_ArchiveIndex::Given qc_ArchiveIndex::makeObject(std::int32_t id, qc_PointerCast cast) {
  std::string name;
  archive_ || name;
  const qc_RegistryEntry* entry = qf_FindRegistered(name);
  std::unique_ptr<qcPersistent> fresh(entry && entry->make ? entry->make() : nullptr);
  if (!fresh) throw qcArchive::UnknownType(name.c_str(), kIndexSource, kUnknownNameLine);
  Given given{fresh.get(), fresh.get(), nullptr};
  if (cast) {
    given.typed = cast(given.object, given.rep);
    if (!given.typed) throw qcArchive::BadType(kIndexSource, kHandleClassLine);
  } else {
    given.rep = dynamic_cast<const qcRepBase*>(given.object);
  }
  const std::lock_guard guard(tableLock);
  if (made_.size() == made_.capacity()) {
    const std::size_t larger = made_.size() * 2 + 16;
    counts_.reserve(larger);
    made_.reserve(larger);
  }
  qc_AddressTable::Slot& slot = addresses_.enter(given.object);
  slot.loaded = id;
  slot.made = made_.size();
  if (id != 0) enterLoaded(id, {given.object, given.rep, cast != nullptr});
  given.object->held_.store(qcPersistent::kKnown, std::memory_order_relaxed);
  link();
  made_.push_back({given.object, given.rep, id});
  counts_.push_back({given.rep, false});
  if (given.rep) qcRepBase::refInc(given.rep);
  fresh.release();
  return given;
}

qc_ArchiveIndex::Given qc_ArchiveIndex::loadInline(const Record& record, qc_PointerCast cast, bool owned) {
  const std::streamoff bodyStart = archive_.seekable_ ? archive_.offset() : 0;
  const std::size_t place = made_.size();
  const Given given = makeObject(owned ? 0 : record.id, cast);
  serializeObject(*given.object);
  made_[place].complete = true;
  if (archive_.seekable_) {
    if (record.size != 0) skipTo(bodyStart, record.size, kRecordSizeLine);
    if (owned) return given;
    positions_[record.id] = bodyStart - static_cast<std::streamoff>(kRecordHead + 2 * (record.wide ? 8 : 4));
    const std::lock_guard guard(tableLock);
    if (qc_AddressTable::Slot* slot = addresses_.find(given.object)) {
      slot->stored = record.id;
      given.object->held_.fetch_or(qcPersistent::kStored, std::memory_order_relaxed);
    }
  }
  return given;
}

qc_ArchiveIndex::Given qc_ArchiveIndex::loadElsewhere(const Record& record, qc_PointerCast cast, bool owned) {
  if (!archive_.seekable_) throw qcArchive::NotFound(kIndexSource, kNotInArchiveLine);
  auto position = static_cast<std::streamoff>(record.position);
  if (const auto found = positions_.find(record.id); found != positions_.end()) position = found->second;
  const std::streamoff here = archive_.offset();
  if (position <= 0 || position >= archive_.endOffset()) throw qcArchive::NotFound(kIndexSource, kNotInIndexLine);
  charge(here, position);
  archive_.seekTo(position);
  const Record target = readRecord();
  if (target.id != record.id || target.kind != kInline) throw qcArchive::NotFound(kIndexSource, kNotInIndexLine);
  const Given given = loadInline(target, cast, owned);
  charge(archive_.offset(), here);
  archive_.seekTo(here);
  return given;
}

// Counts what was read up to `position`; reading goes on at `next`. Records of one archive do not overlap, so that
// reading all of them where they stand and once more by reference takes twice its length at most.
void qc_ArchiveIndex::charge(std::streamoff position, std::streamoff next) {
  charged_ += std::max<std::streamoff>(position - chargedFrom_, 0);
  chargedFrom_ = next;
  if (charged_ / 2 > archive_.endOffset()) throw qcArchive::BadContent(kIndexSource, kRecordOverlapLine);
}

// Reads an inline copy of an object that is known already into an object that nobody sees.
void qc_ArchiveIndex::readScratch(const Record& record) {
  if (archive_.seekable_ && record.size != 0) return skipTo(archive_.offset(), record.size, kRecordSizeLine);
  const LoadGuard discard(*this);
  serializeObject(*makeObject(0, nullptr).object);
}

// Destroys everything made from `from` on, each object once, whoever refers to it.
void qc_ArchiveIndex::undo(std::size_t from) noexcept {
  if (made_.size() == from) return;
  {
    qc_LoadUndo undoing(std::span<qc_LoadedObject::Count>(counts_).subspan(from));
    for (std::size_t i = from; i < made_.size(); ++i) {
      if (!made_[i].object) continue;
      try {
        made_[i].object->preLoad();
      } catch (...) {  // the object goes anyway
      }
    }
    // In the order of making: an object that owns another by a bare pointer was made before it, and takes it along.
    for (std::size_t i = from; i < made_.size(); ++i) {
      qcPersistent* object = std::exchange(made_[i].object, nullptr);
      if (!object) continue;
      if (made_[i].rep) undoing.markGone(made_[i].rep);
      delete object;
    }
  }
  made_.resize(from);
  counts_.resize(from);
}

// The load has succeeded: its objects belong to those who refer to them. An object that handles were given, and that
// all of them let go of while the load lasted, goes now.
void qc_ArchiveIndex::commit() noexcept {
  {
    const std::lock_guard guard(tableLock);
    for (qc_LoadedObject& made : made_) {
      if (!made.object || !made.rep || qcRepBase::refDec(made.rep) != 0) continue;
      const Loaded* loaded = findLoaded(made.id);
      made.dropped = loaded && loaded->given;
    }
  }
  for (std::size_t i = 0; i < made_.size(); ++i) {
    if (made_[i].dropped && made_[i].object) delete made_[i].object;
  }
  made_.clear();
  counts_.clear();
}
