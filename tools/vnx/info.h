// Says what a file holds.
#pragma once

#include <iosfwd>
#include <string>

class qcPersistent;

/// Recognises bitmaps and archives by their first bytes and writes what is in them. Throws FileError for a
/// file that can't be read, is damaged or of another kind; what was understood before the damage is written.
void describeFile(const std::string& path, std::ostream& out);

/// Writes the class of an object and what the tool knows of it, a line each.
void describeObject(qcPersistent& object, std::ostream& out);
