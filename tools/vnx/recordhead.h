// The heads of records as they lie in a file.
#pragma once

#include <istream>
#include <optional>
#include <string>
#include <vector>

#include "std/archive/record.h"

/// Whether the numbers in an archive lie in another byte order than this machine's.
bool isSwapped(const qcArchive& archive);

/// What lies at a place where a record may begin.
struct RawHead {
  std::vector<unsigned char> bytes;  // those of the longest head, or fewer at the end of the file
  qc_Record record;                  // what they say; of no kind when they are none

  /// The record, if it is one that links lead to.
  std::optional<qc_Record> linked() const;
};
/// Throws as readAt does.
RawHead headAt(std::istream& from, qcInt64 at, bool swap);

/// The bytes of the head of a linked record.
std::string headBytes(const qc_Record& record, bool swap);
