// The objects in an archive, one after another.
#pragma once

#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <vnxstd/archive/file.h>
#include <vnxstd/archive/handle.h>

/// Throws FileError where the first two bytes of an archive cannot be those of what follows: its version is not that of
/// its objects, or the order not that of its numbers.
void checkHead(const std::string& path);

/// Opens an archive, seekable or not as its first byte says, for reading alone. Throws the archive's errors, and
/// FileError where its first two bytes cannot be those of what follows.
std::unique_ptr<qcFileArchive> openArchive(const std::string& path);

/// Whether an archive has a chain of records, be it damaged; `path` is the file that it reads.
bool hasChain(const qcArchive& archive, const std::string& path);

/// What is said of an archive whose chain of records is damaged; empty for any other.
std::string damageOf(const qcArchive& archive);

/// Whether a record of a tool database begins with this mark; others are of applications.
bool isResult(const qcArchiveRecord& mark);
/// Whether what such a mark begins has the pointer to its object, which may be null.
bool hasPointer(const std::vector<qcArchiveRecord>& records, std::size_t mark);

/// Objects that were loaded by pointer, and that live as long as this.
class KeptObjects {
 public:
  /// Takes an object, also once more; null is none.
  void add(qcPersistent* object);

 private:
  std::vector<qcPtrHandle<qcRepBase>> shared_;
  std::map<const qcPersistent*, std::unique_ptr<qcPersistent>> owned_;  // once each: two pointers may name one object
};

/// Reads an archive of any program, object by object; all of them live as long as the reader. Objects that stand by
/// themselves carry their type; anything else only its writer can name, and so what begins with an object whose class
/// is not known. Of a seekable archive with an index the objects of the index are read whose classes are known. Damage
/// throws the archive's errors.
class ObjectReader {
 public:
  explicit ObjectReader(const std::string& path);

  qcFileArchive& archive() { return *archive_; }
  bool isSeekable() const { return archive_->isSeekable(); }
  /// The next object, null where the archive holds a null pointer; nothing at the end, and before values that are no
  /// objects.
  std::optional<qcPersistent*> next();
  /// Where values begin that only their writer can name; nothing when there are none.
  std::optional<std::streamoff> unnamed() const { return unnamed_; }
  /// How many objects of the index were passed over, since their classes are not known.
  int unknown() const { return unknown_; }

 private:
  std::optional<qcPersistent*> nextOfIndex();
  qcPersistent* load();

  bool isIndexed_ = false;
  long id_ = 0;  // of the object of the index that was read last
  int unknown_ = 0;
  std::ifstream bytes_;
  std::unique_ptr<qcFileArchive> archive_;
  KeptObjects kept_;
  std::optional<std::streamoff> unnamed_;
};
