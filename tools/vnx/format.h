// Numbers and texts put together as printf does.
#pragma once

#include <cstdio>
#include <string>

/// A number of things, "1 byte" or "2 bytes"; their name takes an s.
inline std::string counted(long long count, const std::string& name) {
  return std::to_string(count) + ' ' + name + (count == 1 ? "" : "s");
}

/// The text, cut after 255 characters.
template <class... Args>
std::string formatted(const char* format, Args... args) {
  char text[256];
  std::snprintf(text, sizeof text, format, args...);
  return text;
}
