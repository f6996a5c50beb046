// Where a load went wrong.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "vnxstd/archive/widths.h"
#include "vnxstd/export.h"

/// What an error that leaves a load of an archive or a bitmap knows beside its fixed text; qcException::loadContext
/// gives it. It is not archived.
struct VNXSTD_EXPORT qcLoadContext {
  /// A limit that the load would have exceeded, of those in qcArchiveLimits.
  enum class Limit : std::int32_t { none = 0, bytes = 1, nesting = 2, objects = 3, elements = 4, classes = 5 };

  /// Where reading stood, in bytes from the start of the archive's header or of the bitmap: at what is not there in
  /// full, where the data ended too early, and else behind what was found wrong. -1 where the medium has no positions.
  qcInt64 position = -1;
  /// The classes of the objects that were being loaded, from the outermost to the innermost; empty outside objects. Of
  /// more than 32, those in the middle are one element "...".
  std::vector<std::string> path;
  Limit limit = Limit::none;
  /// What was expected there, and what was found, as far as it is known.
  std::string expected;
  std::string found;

  /// The class of the innermost object.
  std::string_view className() const noexcept { return path.empty() ? std::string_view() : path.back(); }
  /// All of it on one line, such as "at byte 120, in qcPelBuffer<unsigned char> > qcPelRoot<unsigned char>: expected 4
  /// bytes, found 2".
  std::string text() const;
};

/// "bytes" and so on; empty for none.
VNXSTD_EXPORT std::string_view qf_LimitName(qcLoadContext::Limit limit) noexcept;
