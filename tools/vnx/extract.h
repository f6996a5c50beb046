// The records of tool databases, and taking them out one by one.
#pragma once

#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <vnxstd/archive/archive.h>

/// What a record of a database is made of. The object is at 0 where there is none.
struct RecordParts {
  qcArchiveRecord mark, pointer, object;
  bool bringsObject() const { return object.at == pointer.at + pointer.size; }
};

/// The records of a database: those of its marks that a pointer follows.
std::vector<RecordParts> databaseRecords(const std::vector<qcArchiveRecord>& records);

/// The numbers of those whose object was taken away: it was removed, or their pointer was.
std::set<long> recordsWithoutObject(const std::vector<qcArchiveRecord>& records);

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
