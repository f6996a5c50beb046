// What an archive may cost whoever reads it.
#pragma once

#include <functional>
#include <limits>
#include <optional>
#include <set>
#include <string>

#include "vnxstd/archive/widths.h"

/// Limits for one archive; qcArchive::limits sets them, and begins to count anew. What would go beyond one throws
/// qcArchive::BadContent (UnknownType for a class), whose context names the limit.
///
/// As they stand they refuse no archive for its size: memory grows with what arrives, so that a small archive cannot
/// take much, and a large one costs what it brings. Whoever reads what strangers wrote sets `bytes` or `objects` to
/// what is still worth its time, and `classes` to what is expected.
struct qcArchiveLimits {
  static constexpr qcInt64 kUnlimited = std::numeric_limits<qcInt64>::max();
  using Names = std::set<std::string, std::less<>>;

  /// Bytes that are read in all, those that are read twice and those skipped within objects included. Numbers take a
  /// little longer to read where there is such a limit.
  qcInt64 bytes = kUnlimited;
  /// How deep objects may nest within each other; below 1 counts as 1. Each level takes up to 2 KiB of stack, 3 KiB on
  /// s390x; what it cannot hold ends the program. Chains of references to objects elsewhere in a seekable archive,
  /// or that came before, may be longer: where there is no room, those further down are loaded first and those above
  /// begun anew, most of them two or three times (which the other limits count). Circles of objects elsewhere have no
  /// more room than what is nested. Some classes have to limit the length of chains, too (qcArchive::checkDepth).
  long nesting = 512;
  /// Objects that are loaded or skipped, by pointer or by value.
  qcInt64 objects = kUnlimited;
  /// The counts of vectors, texts, images and all else that comes with a count, taken together.
  qcInt64 elements = kUnlimited;
  /// The names of the classes that pointers may make; without a list, all that are registered. Members that are loaded
  /// by value belong to the class that has them.
  std::optional<Names> classes = std::nullopt;
};
