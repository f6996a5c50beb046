// Taking records out of tool databases, and what can be read out of damaged files.
#pragma once

#include <iosfwd>
#include <string>

#include <vnxstd/archive/archive.h>

/// Whether an archive has a chain of records, be it damaged; `path` is the file that it reads.
bool hasChain(const qcArchive& archive, const std::string& path);

/// Writes a database that holds one record of another one, under its number, byte for byte as it is there; its class
/// need not be known. `path` is the file that `from` reads, and `bytes` too. Returns false, and writes nothing, when
/// there is no such record. Throws WrongCall when `to` exists, and FileError, also for a record without an object.
bool extractRecord(const qcArchive& from, std::ifstream& bytes, const std::string& path, long number,
                   const std::string& to);

/// Writes what can be read of a damaged archive or database to a new file, and says what had to be given up, and where.
/// Records of a seekable archive stay where they are, so that what they refer to does, too; those that cannot be loaded
/// are marked as removed, but for those of classes that are not known here. Of a plain archive the objects before the
/// damage are kept. Where `kept` is given, the new file replaces `to`, which gets that name. Returns whether nothing
/// was lost. Throws WrongCall when a name is taken, and FileError; then there is no new file.
bool salvageArchive(const std::string& path, const std::string& to, std::ostream& report, const std::string& kept = {});
