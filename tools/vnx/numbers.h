// Numbers in texts that people wrote.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

/// The number that a text is, in decimal digits, leading zeros or not, with a sign or none; nothing when it is anything
/// else, or no T has that value. Floating point takes an exponent, and rounds.
template <class T>
std::optional<T> readNumber(std::string_view text) {
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  T value{};
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, value);
  if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
  return value;
}

/// The numbers of a text, with a separator between each two and blanks around any; nothing when something else is in
/// it, or a number is not finite.
std::optional<std::vector<double>> readNumbers(std::string_view text, char separator = ',');
