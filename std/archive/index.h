// Objects and pointers in one archive.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <ios>
#include <string>
#include <typeinfo>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "std/archive/chain.h"
#include "std/archive/held.h"
#include "std/archive/record.h"
#include "std/archive/undo.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/archive/registry.h"

class qc_ArchiveIndex {
 public:
  explicit qc_ArchiveIndex(qcArchive& archive);
  qc_ArchiveIndex(const qc_ArchiveIndex&) = delete;
  qc_ArchiveIndex& operator=(const qc_ArchiveIndex&) = delete;

  void serializeObject(qcPersistent& object);

  /// An owned object is stored in full and is not remembered.
  void storePointer(qcPersistent* object, bool owned = false);

  /// Stores an object as one of the index, and returns its identifier.
  std::int32_t storeIndexed(qcPersistent& object);

  /// An object that a pointer or handle is given; a handle is given a count of it, too.
  struct Given {
    qcPersistent* object = nullptr;
    void* typed = nullptr;  // as the class that the handle wants
    const qcRepBase* rep = nullptr;
    bool shared = false;      // only handles had it before: the last one to let go destroys it
    std::int32_t height = 0;  // of an object that was known before
    long low = qc_HeldTable::kSettled;
  };
  /// A null `cast` accepts every class. Only what is not owned can be referred to, and then a `cast` takes a count.
  Given loadPointer(qc_PointerCast cast, bool owned = false, bool anew = false);
  /// Loads the object of the index that lies here, which has the identifier `id`, as a new one, to which what it refers
  /// to can refer back. What is loaded later does not share it.
  qcPersistent* loadAnew(std::int32_t id);

  bool isStillLoading(const qcPersistent* object) noexcept;

  /// Throws when the object under way has too many levels of objects below it.
  void checkDepth() const;

  /// Makes the identifiers go on behind those that are in the data; for archives that turn from loading to storing.
  void numberBehindData();
  /// The classes that may be made have changed.
  void forgetNames() noexcept { names_.fill(nullptr); }
  void wideSizes(bool wide) noexcept { wideSizes_ = wide; }

  /// The body of an object of the index.
  struct Body {
    std::streamoff at = 0;
    qcUInt64 size = 0;
    std::string name;  // of its class
  };
  Body readBodyOf(const qc_Record& object);

  /// The largest identifier given out so far.
  std::int32_t lastID() const noexcept { return nextId_ - 1; }
  /// Identifiers go on at `id`, or behind those in use when it is smaller.
  void numberFrom(std::int32_t id) noexcept { nextId_ = std::max(nextId_, id); }

  /// Whether an object, or a value of several parts, is being stored to `archive` or loaded from it.
  static bool isWithin(const qcArchive& archive) noexcept {
    return archive.index_->entered_ != 0 || archive.compounds_ != 0;
  }

  static bool isInObject(const qcArchive& archive) noexcept { return archive.index_->entered_ != 0; }

  /// Does nothing while an object is stored or loaded.
  void letGo() noexcept {
    if (entered_ != 0) return;
    held_.letGo();
    positions_ = {};
  }
  /// Also begins the identifiers anew, as if nothing had been stored or loaded; for plain archives.
  void beginAnew() noexcept {
    letGo();
    if (entered_ == 0) nextId_ = 1, lastLoaded_ = 0;
  }
  /// What was stored under identifiers behind `id` is not in the archive any more.
  void forgetBehind(std::int32_t id) noexcept;
  /// The object of that identifier is not in the archive any more.
  void forgetObject(std::int32_t id) noexcept;

  /// The classes of the objects that are being loaded or stored, from the outermost to the innermost.
  std::vector<std::string> path() const;

  qc_RecordChain& chain() noexcept { return chain_; }

 private:
  class Entry;
  class Deeper;
  class Level;
  class StoreGuard;
  class LoadGuard;
  class CountGuard;
  class Elsewhere;

  /// An object that is stored elsewhere.
  struct Root {
    std::int32_t id = 0;
    std::streamoff position = 0;
  };

  /// How objects of a class are cast to what a kind of handle wants; the same for all of them.
  struct Cast {
    const std::type_info* type = nullptr;
    qc_PointerCast cast = nullptr;
    std::ptrdiff_t typed = 0, rep = 0;  // from the object's qcPersistent
    bool counted = false;
  };

  std::streambuf& buffer() const noexcept { return *archive_.buffer_; }
  bool isSeekable() const noexcept { return archive_.seekable_; }
  std::streamoff seekableOffset() { return isSeekable() ? archive_.offset() : 0; }

  void writeRecord(const qc_Record& record, const std::string* name, bool marked);
  qc_Record readRecord();
  Body readEntry();
  const qc_RegistryEntry* readName();
  const qc_RegistryEntry* makerOf(std::string_view name) const;
  void countObject();
  void writeSize(qcUInt64 size, bool wide);
  qcUInt64 readSize(bool wide);
  bool isWideHere();
  void patchSize(std::streamoff field, std::streamoff bodyStart, bool wide, int line);
  void skipTo(std::streamoff bodyStart, qcUInt64 size, int line);

  void checkNesting() const;
  void checkRoom();
  void addLevels(std::int32_t height);
  std::int32_t storeNew(qcPersistent& object, bool owned, unsigned char kind);
  void storeObject(qcPersistent& object, bool marked);
  bool loadObject(qcPersistent& object);

  qc_Record unlinked(const qc_Record& record, std::streamoff& behind, qc_Record& brought);
  qc_Record referenceOf(const qc_Record& pointer) const;
  bool hasBrought(const qc_Record& pointer);
  bool isGone(const qc_Record& pointer);
  qc_Record readBrought();
  bool isBrought(const qc_Record& pointer);
  std::streamoff endOfRest(const qc_Record& pointer);
  std::streamoff endOf(const qc_Record& object);
  qc_Record inlineOf(const qc_Record& object) const;
  void checkPlace(const qc_Record& reference);
  Given loadInline(const qc_Record& record, qc_PointerCast cast, bool owned);
  Given loadElsewhere(const qc_Record& record, qc_PointerCast cast, bool owned);
  Given loadFrom(Root root, qc_PointerCast cast, bool owned);
  Given loadAt(const Root& root, qc_PointerCast cast, bool owned);
  qcArchive::NotFound missing(std::int32_t id, int line, std::string_view found) const;
  bool giveKnown(std::int32_t id, qc_PointerCast cast, Given& given);
  void readScratch(const qc_Record& record);
  Given makeObject(std::int32_t id, qc_PointerCast cast);
  qcArchive::BadType wrongClass(const qcPersistent& object);
  Given castObject(qcPersistent* object, qc_PointerCast cast);
  void charge(std::streamoff position, std::streamoff next);

  qc_HeldTable::Entry madeEntry(std::size_t i) noexcept;
  void settle(std::size_t from) noexcept;
  void undo(std::size_t from, std::size_t settledFrom) noexcept;
  void commit() noexcept;
  const qc_RegistryEntry& entryOf(const qcPersistent& object);

  qcArchive& archive_;
  bool wideSizes_ = false;
  std::int32_t nextId_ = 1;
  bool numbered_;                          // nextId_ lies behind all identifiers in the data
  std::int32_t lastLoaded_ = 0;            // the largest identifier that was loaded
  long entered_ = 0;                       // operations of this archive under way
  long depth_ = 0;                         // objects among them
  long pointers_ = 0;                      // pointers being loaded among them
  const Level* innermost_ = nullptr;       // of these objects
  std::int32_t height_ = 0;                // levels of objects below the innermost of these objects, so far
  std::int32_t lastHeight_ = 0;            // and below the object that was finished last
  long low_ = qc_HeldTable::kSettled;      // level of the outermost object that the innermost depends on, so far
  long lastLow_ = qc_HeldTable::kSettled;  // and that the object that was finished last depends on

  qc_RecordChain chain_;  // of a seekable archive
  qc_HeldTable held_;
  std::unordered_map<std::int32_t, std::streamoff> positions_;  // of inline records, in seekable archives

  // What the store under way has entered, and what the load under way has made, in order; counts_ has room for the
  // count of each, so that undoing a load needs no memory.
  struct Stored {
    qc_HeldTable::Place place;
    std::int32_t before;  // the identifier under which the object was stored already, and its height then
    std::int32_t height;
  };
  std::vector<Stored> stored_;
  std::vector<qc_HeldTable::Place> made_;
  std::vector<qc_LoadUndo::Count> counts_;

  // Objects stored elsewhere that are being loaded, the innermost first. Those that nothing below the outermost of them
  // refers to and that is still under way move from made_ to settled_, and stay when it is begun anew.
  const Elsewhere* elsewhere_ = nullptr;
  long base_ = 0;  // level above the outermost of them
  std::vector<qc_HeldTable::Place> settled_;
  std::vector<qc_HeldTable::Place> lent_;     // of these, those that were given as plain pointers since it was begun
  qc_HeldTable::Place lastMade_ = 0;          // the place of the object that was finished last
  std::unordered_set<std::int32_t> waiting_;  // what is to be begun anew
  Root wanted_;                               // to be loaded before all that is being unwound

  // What was read for the objects that live and by the load under way, and from where on it reads; bounds what records
  // that overlap can cost. Of what the load has read, attributed_ counts for objects that references led to.
  std::streamoff charged_ = 0;
  std::streamoff chargedFrom_ = 0;
  std::streamoff attributed_ = 0;

  // Answers of the registry and of casts, by address; a clash costs no more than asking again.
  static constexpr std::size_t kCache = 16;
  static std::size_t cachePlace(const void* address) noexcept {
    const auto bits = reinterpret_cast<std::uintptr_t>(address);
    return ((bits >> 4) ^ (bits >> 9)) % kCache;
  }
  struct TypeEntry {
    const std::type_info* type = nullptr;
    const qc_RegistryEntry* entry = nullptr;
  };
  std::array<TypeEntry, kCache> types_;
  std::array<const qc_RegistryEntry*, kCache> names_{};
  std::array<Cast, kCache> casts_;
};
