// Says what a file holds.
#pragma once

#include <iosfwd>
#include <string>

/// Thrown for a file that is no bitmap and no archive.
struct UnknownFile {};

/// Recognises bitmaps and archives by their first bytes and writes what is in them. Throws the library's errors for a
/// file that can't be read or is damaged, UnknownFile for one of another kind.
void describeFile(const std::string& path, std::ostream& out);
