// What an archive knows of the objects in it: their identifiers, and those that a load under way has made.
#pragma once

#include <cstdint>
#include <ios>
#include <string>
#include <typeinfo>
#include <unordered_map>
#include <vector>

#include "std/archive/addresses.h"
#include "std/archive/undo.h"
#include "vnxstd/archive/archive.h"

/// The tables of one archive. Objects leave them when they are destroyed, on whatever thread; a process-wide lock, held
/// for one look or change at a time, guards the tables of all archives.
class qc_ArchiveIndex {
 public:
  explicit qc_ArchiveIndex(qcArchive& archive);
  ~qc_ArchiveIndex();
  qc_ArchiveIndex(const qc_ArchiveIndex&) = delete;
  qc_ArchiveIndex& operator=(const qc_ArchiveIndex&) = delete;

  void serializeObject(qcPersistent& object);
  /// An owned object is stored in full and is not remembered.
  void storePointer(qcPersistent* object, bool owned = false);
  /// An object that a pointer or handle is given; a handle is given a count of it, too.
  struct Given {
    qcPersistent* object = nullptr;
    void* typed = nullptr;  // as the class that the handle wants
    const qcRepBase* rep = nullptr;
  };
  /// A null `cast` accepts every class. Only what is not owned can be referred to, and then a `cast` takes a count.
  Given loadPointer(qc_PointerCast cast, bool owned = false);

  bool isStillLoading(const qcPersistent* object) noexcept;

  /// Makes the identifiers go on behind those that are in the data; for archives that turn from loading to storing.
  void numberBehindData();
  void wideSizes(bool wide) noexcept { wideSizes_ = wide; }

  /// Forgets all objects.
  void letGo() noexcept;

  /// An object that archives hold is about to change, or is being destroyed.
  static void forgetStored(qcPersistent* object) noexcept;
  static void forget(const qcPersistent* object) noexcept;

 private:
  class Entry;
  class Deeper;
  class StoreGuard;
  class LoadGuard;
  class CountGuard;

  struct Record {
    std::int32_t id = 0;
    unsigned char kind = 0;
    qcUInt64 size = 0;      // of what follows inline
    qcUInt64 position = 0;  // of the record that a reference refers to
    bool wide = false;      // the two fields take 8 bytes each
  };
  /// An object by identifier.
  struct Loaded {
    qcPersistent* object = nullptr;
    const qcRepBase* rep = nullptr;
    bool given = false;  // a handle was given it
  };

  void writeRecord(const Record& record);
  Record readRecord();
  void writeSize(qcUInt64 size, bool wide);
  qcUInt64 readSize(bool wide);
  void patchSize(std::streamoff field, std::streamoff bodyStart, bool wide, int line);
  void skipTo(std::streamoff bodyStart, qcUInt64 size, int line);

  void storeObject(qcPersistent& object);
  void loadObject(qcPersistent& object);

  Given loadInline(const Record& record, qc_PointerCast cast, bool owned);
  Given loadElsewhere(const Record& record, qc_PointerCast cast, bool owned);
  bool giveKnown(std::int32_t id, qc_PointerCast cast, Given& given);
  void readScratch(const Record& record);
  Given makeObject(std::int32_t id, qc_PointerCast cast);
  void charge(std::streamoff position, std::streamoff next);

  // The following run under the table lock.
  qc_LoadedObject* findMade(const qc_AddressTable::Slot& slot) noexcept;
  Loaded* findLoaded(std::int32_t id) noexcept;
  void enterLoaded(std::int32_t id, const Loaded& loaded);
  void removeLoaded(std::int32_t id) noexcept;
  void link() noexcept;

  void undo(std::size_t from) noexcept;
  void commit() noexcept;
  const qc_RegistryEntry& entryOf(const qcPersistent& object);

  qcArchive& archive_;
  bool wideSizes_ = false;
  std::int32_t nextId_ = 1;
  bool numbered_;      // nextId_ lies behind all identifiers in the data
  long entered_ = 0;   // operations of this archive under way
  long depth_ = 0;     // objects among them
  long pointers_ = 0;  // pointers being loaded among them

  qc_AddressTable addresses_;
  std::vector<Loaded> dense_;  // identifiers 1 to n, as archives are written
  std::unordered_map<std::int32_t, Loaded> sparse_;
  std::unordered_map<std::int32_t, std::streamoff> positions_;  // of inline records, in seekable archives

  // What the store under way has entered, and what the load under way has made, in order; counts_ has room for the
  // count of each, so that undoing a load needs no memory.
  std::vector<const qcPersistent*> stored_;
  std::vector<qc_LoadedObject> made_;
  std::vector<qc_LoadedObject::Count> counts_;

  // How much the load under way has read, and from where on it reads; bounds what objects that overlap can cost.
  std::streamoff charged_ = 0;
  std::streamoff chargedFrom_ = 0;

  const std::type_info* lastType_ = nullptr;
  const qc_RegistryEntry* lastEntry_ = nullptr;

  // The list of the archives that hold objects.
  bool linked_ = false;
  qc_ArchiveIndex* previous_ = nullptr;
  qc_ArchiveIndex* next_ = nullptr;
};
