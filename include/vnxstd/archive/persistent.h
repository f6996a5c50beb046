// The root of every archivable class, and the contract that such a class follows.
//
// A class D : B : qcPersistent is stored as the version byte of D, that of B, that of qcPersistent, then the fields of
// B, then those of D. D writes this routine once, for both directions:
//
//     void D::dispatchSerialize(qcArchive& archive) { serializeLevel(archive, this, 0, &D::serialize_); }
//
//     void D::serialize_(qcArchive& archive, unsigned char version) {
//       qcArchive::checkVersion(version, 0, "std/module/unit", 120);
//       B::dispatchSerialize(archive);
//       archive || first_ || second_;
//     }
//
// and registers `static qcPersistent* make()` through a static qc_Instantiator, so that a pointer to a D can be loaded.
#pragma once

#include <atomic>
#include <typeinfo>

#include "vnxstd/archive/handle.h"
#include "vnxstd/archive/registry.h"
#include "vnxstd/export.h"

class qcArchive;

/// An object that archives can store and load. Copies are values: a copy is never considered held by an archive.
class VNXSTD_EXPORT qcPersistent {
 public:
  qcPersistent() noexcept = default;
  qcPersistent(const qcPersistent&) noexcept {}
  /// A change of state: archives that have stored the object forget it.
  qcPersistent& operator=(const qcPersistent&) noexcept {
    mutating();
    return *this;
  }
  /// Takes the object out of the archives that hold it.
  virtual ~qcPersistent();

 protected:
  /// Writes or reads the chain of class levels, from the most derived one down.
  virtual void dispatchSerialize(qcArchive& archive);

 public:
  /// Called before the object is loaded in place. A class whose handles can close a circle of objects lets go of them
  /// here; this is also how the objects of a failed load are taken apart.
  virtual void preLoad();

  /// Reads data written before objects carried a marker; returns false when the class never had such a layout.
  virtual bool loadLegacy(qcArchive& archive);

  /// Stores or loads an object by value: the object marker, then its body.
  static void serializeObject(qcArchive& archive, qcPersistent& object);

  /// Stores `in` or loads into `out` as a polymorphic pointer. Null, sharing and circles are kept: an object is stored
  /// once, however many pointers to it are. The object loaded belongs to the caller, to whom it can also have been
  /// given before: data from outside may share where none is expected. An object with a count (qcRepBase) is shared
  /// with handles: take one onto it before anything else is loaded. A class that owns what it points to archives a
  /// std::unique_ptr or a handle instead. Loading throws qcArchive::UnknownType for a class that is not registered.
  static void serializePointer(qcArchive& archive, qcPersistent* in, qcPersistent*& out);

  /// To be called before any change of state: archives that have stored the object forget it, so that it is stored
  /// anew under a new identifier. What an archive has loaded keeps its identity. Assignment calls it.
  void mutating() {
    if ((held_.load(std::memory_order_relaxed) & kStored) != 0) mutating_();
  }

 protected:
  /// Whether this class level of this object already went through the object serialization that is under way; a base
  /// reached twice is stored once. Levels are told apart by `level`, the type of the class, because a class without
  /// fields has the address and the size of its base.
  static bool haveVisited(const void* address, unsigned size, const std::type_info* level = nullptr);
  static void setVisited(const void* address, unsigned size, const std::type_info* level = nullptr);

  /// Runs one class level: the guard, the version byte (`version` is what this library writes), then `fields`, which
  /// tests the version, calls its base and stores or loads its own fields.
  template <class D>
  static void serializeLevel(qcArchive& archive, D* object, unsigned char version,
                             void (D::*fields)(qcArchive&, unsigned char)) {
    if (!enterLevel(archive, object, sizeof(D), &typeid(D), version)) return;
    (object->*fields)(archive, version);
    leaveLevel(archive, object, sizeof(D), &typeid(D));
  }

  void mutating_();

 private:
  friend class qc_ArchiveIndex;
  friend class qc_HeldTable;
  static bool enterLevel(qcArchive& archive, const void* address, unsigned size, const std::type_info* level,
                         unsigned char& version);
  static void leaveLevel(qcArchive& archive, const void* address, unsigned size, const std::type_info* level);
  void serialize(qcArchive& archive, int flag);

  // Why archives hold the object: they have stored it as it is, or they know its address.
  static constexpr unsigned char kStored = 1, kKnown = 2;
  std::atomic<unsigned char> held_{0};
  unsigned place_ = 0;  // in the table of the archive that held it first
};

/// The same as qcPersistent::serializeObject.
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcPersistent& object);
VNXSTD_EXPORT qcArchive& operator>>(qcArchive& archive, qcPersistent& object);
VNXSTD_EXPORT qcArchive& operator<<(qcArchive& archive, const qcPersistent& object);
