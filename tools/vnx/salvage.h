// Taking records out of tool databases, and what can be read out of damaged files.
#pragma once

#include <fstream>
#include <iosfwd>
#include <map>
#include <string>

#include <vnxstd/archive/archive.h>

/// Whether an archive has a chain of records, be it damaged; `path` is the file that it reads.
bool hasChain(const qcArchive& archive, const std::string& path);

/// What a record of a database is made of. The object is at 0 where there is none.
struct RecordParts {
  qcArchiveRecord mark, pointer, object;
  bool bringsObject() const { return object.at == pointer.at + pointer.size; }
};

/// The records of an open database, to be taken out one by one.
class RecordExtractor {
 public:
  /// `path` is the file that `from` reads.
  RecordExtractor(const qcArchive& from, const std::string& path);

  /// Writes a database that holds one record, under its number, byte for byte as it is here; its class need not be
  /// known. Returns false, and writes nothing, when there is no such record. Throws WrongCall when `to` exists, and
  /// FileError, also for a record without an object.
  bool extract(long number, const std::string& to);

 private:
  const qcArchive& from_;
  std::string path_;
  std::ifstream bytes_;
  std::map<long, RecordParts> records_;
};

/// Writes what can be read of a damaged archive or database to a new file, and says what had to be given up, and where.
/// Records of a seekable archive stay where they are, so that what they refer to does, too; those that cannot be loaded
/// are marked as removed, but for those of classes that are not known here. Of a plain archive the objects before the
/// damage are kept. What cannot be read between records is said and stays. Where `kept` is given, the new file replaces
/// `to`, which gets that name. Returns whether nothing was lost. Throws WrongCall when a name is taken, and FileError;
/// then there is no new file.
bool salvageArchive(const std::string& path, const std::string& to, std::ostream& report, const std::string& kept = {});
