// Says what a file holds.
#pragma once

#include <iosfwd>
#include <string>

/// Recognises bitmaps and archives by their first bytes and writes what is in them. Throws FileError for a
/// file that can't be read, is damaged or of another kind; what was understood before the damage is written.
void describeFile(const std::string& path, std::ostream& out);
