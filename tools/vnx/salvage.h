// What can be read out of damaged files.
#pragma once

#include <iosfwd>
#include <string>

/// Writes what can be read of a damaged archive or database to a new file, and says what had to be given up, where, and
/// what the new file holds.
/// Records of a seekable archive stay where they are, so that what they refer to does, too; those that cannot be loaded
/// are marked as removed, but for those of classes that are not known here. Of a plain archive the objects before the
/// damage are kept. What cannot be read between records is said and stays. Where `kept` is given, the new file replaces
/// `to`, which gets that name, unless both are the same. Returns whether nothing was lost. Throws WrongCall when a name
/// is taken, and FileError; then there is no new file.
bool salvageArchive(const std::string& path, const std::string& to, std::ostream& report, const std::string& kept = {});
