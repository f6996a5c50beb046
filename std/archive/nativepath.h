// File names for the platform's functions.
#pragma once

#include <filesystem>
#include <string>

#include "vnxstd/archive/text.h"
#include "vnxstd/except/exception.h"

/// The file name that a wide path stands for, UTF-8 where names are bytes, whatever the locale: the conversion of
/// std::filesystem::path follows it. Empty, which no file is called, for a path that cannot be a name.
inline std::filesystem::path qf_NativePath(const std::wstring& path) {
  if (path.find(L'\0') != path.npos) return {};
#if defined(_WIN32)
  return path;
#else
  try {
    return qf_Narrow(path);
  } catch (const qcBadUnicodeChar&) {
    return {};
  }
#endif
}
