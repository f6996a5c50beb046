#include "std/archive/index.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <mutex>
#include <optional>
#include <utility>

#include "std/archive/areas.h"
#include "std/archive/byteswap.h"
#include "std/archive/format.h"
#include "std/archive/gate.h"
#include "std/archive/indexguards.h"
#include "std/archive/observed.h"
#include "vnxstd/except/typename.h"

using namespace qc_format;

namespace {

constexpr std::int32_t kLastId = std::numeric_limits<std::int32_t>::max();
constexpr std::streamoff kWideFrom = std::streamoff{1} << 31;
constexpr std::size_t kShortName = 100;  // type names up to this length go out with their record in one piece

}  // namespace

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
  TypeEntry& known = types_[cachePlace(&type)];
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
  unsigned char room[kLinkedHead];
  const std::streamoff at = seekableOffset();
  const unsigned char* head = qc_Areas::take(archive_, room, kRecordHead, kReadRawLine);
  if (!qf_IsRecord(head)) {
    throw archive_.located(qcArchive::BadContent(kIndexSource, kRecordTagLine), "a pointer (4F E5 70 54 or 55)",
                           qf_Hex({head, 4}));
  }
  qcArchive::checkVersion(archive_, head[4], kRecordVersion, kIndexSource, kRecordVersionLine);
  qc_Record record = qf_ParseHead(head, archive_.swapBytes_);
  record.at = at;
  if (!isSeekable() && record.kind != kInline) record.kind = kReference;  // nothing is linked there
  const unsigned char* rest = qc_Areas::take(archive_, room, record.headSize() - kRecordHead, kReadWordLine);
  qf_ParseFields(record, rest, archive_.swapBytes_);
  if (!record.isValid()) {
    throw archive_.located(qcArchive::BadContent(kIndexSource, kRecordIdentifierLine), "a valid identifier",
                           std::to_string(record.id));
  }
  return record;
}

// Reads the name of a type and looks it up.
const qc_RegistryEntry* qc_ArchiveIndex::readName() {
  if (const auto ready = qc_Areas::takeText(archive_)) {
    std::size_t hash = ready->size();  // instances of one template differ near the end
    for (const char c : ready->substr(ready->size() < 8 ? 0 : ready->size() - 8))
      hash = hash * 7 + static_cast<unsigned char>(c);
    const qc_RegistryEntry*& known = names_[hash % kCache];
    if (!known || known->name != *ready) known = makerOf(*ready);
    return known;
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
    stored_.push_back({place, held_[place].stored, held_[place].height});
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
