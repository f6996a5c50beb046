// Numbers and texts put together as printf does.
#pragma once

#include <cstdio>
#include <string>

/// The text, cut after 255 characters.
template <class... Args>
std::string formatted(const char* format, Args... args) {
  char text[256];
  std::snprintf(text, sizeof text, format, args...);
  return text;
}
