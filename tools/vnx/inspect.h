// What lies in an archive, piece by piece, whoever wrote it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <vnxstd/archive/archive.h>

#include "files.h"

/// One piece of an archive.
///
/// The path says where it belongs. /0, /1 and so on are the items of the archive in the order in which they lie: the
/// records of a seekable archive and what lies between them, the objects of a plain one. Within an object, a step is
/// the name of a level of its class, and the next one the number of a field there, from 0; a class that occurs twice in
/// one object has #2 behind its name. An object that a pointer brings along has the pointer's path.
struct Entry {
  /// What is known of a piece; the value is written as in JSON.
  struct Fact {
    const char* name;
    std::string value;
  };

  std::string path;
  std::string kind;  // record, mark, pointer, null, object, level, header, u8 to f64 and bool, text, opaque or fault
  qcInt64 at = 0;
  qcInt64 size = 0;  // 0 where it is not known
  std::vector<Fact> facts;
};

/// Reads everything in an archive that begins at its first item, and calls `entry` with each piece in the order in
/// which it lies. Objects are made and loaded, within the limits of the archive; what only its writer can name is
/// opaque. A fault is an entry as well: reading goes on with the next record in a seekable archive, and ends in a plain
/// one. What `entry` throws comes through, if it is no qcException. `path` names the file. Returns the worst fault;
/// throws FileError when the file cannot be opened once more.
Fault inspect(qcArchive& archive, const std::string& path, const std::function<void(const Entry&)>& entry);

/// Whether an archive that is loading is a tool database: it says so, or the header of a result lies behind one of its
/// marks. Of a medium that fails it throws BadFile.
bool isDatabase(qcArchive& archive);
/// Where the header behind the mark of a result ends; 0 where there is none. Throws as isDatabase does.
qcInt64 headerEnd(qcArchive& archive, const qcArchiveRecord& mark);

/// A fault as an entry of that path, at the place that the error names, or else at `at`.
Entry faultEntry(const std::string& path, const qcException& error, qcInt64 at);
/// The same of what a file as a whole is refused for.
Entry faultEntry(const FileError& error);
