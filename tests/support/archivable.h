// Classes that tests make up for archives.
#pragma once

#include "vnxstd/archive.h"

/// The level of T above its base: what T::fields(archive) stores and loads, under version 0. T is registered.
template <class T, class Base = qcPersistent>
class Archivable : public virtual Base {
 public:
  Archivable() { static_cast<void>(&registered_); }
  static qcPersistent* make() { return new T; }

 protected:
  void dispatchSerialize(qcArchive& archive) override { Base::serializeLevel(archive, this, 0, &Archivable::level); }

 private:
  void level(qcArchive& archive, unsigned char version) {
    qcArchive::checkVersion(version, 0, "test", 1);
    Base::dispatchSerialize(archive);
    static_cast<T*>(this)->fields(archive);
  }
  static inline const qc_Instantiator registered_{typeid(T), make};
};
