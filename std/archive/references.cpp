// Loading what pointers and handles refer to.

#include <algorithm>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "std/archive/index.h"
#include "std/archive/indexguards.h"
#include "std/archive/observed.h"
#include "vnxstd/except/typename.h"

using namespace qc_format;

namespace {

constexpr std::streamoff kWaste = 16;  // times the length of the archive that may be read in vain

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
  Cast& known = casts_[cachePlace(&type)];
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
