// Numbers in texts that people wrote.
#pragma once

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <vector>

/// The number that a text is, in decimal digits, leading zeros or not, with a sign or none; nothing when it is anything
/// else, or no T has that value. Floating point takes an exponent, and rounds, what is too small to 0.
template <class T>
std::optional<T> readNumber(std::string_view text) {
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  T value{};
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, value);
  if (read.ptr != end) return std::nullopt;
  if (read.ec == std::errc()) return value;
  if constexpr (std::is_floating_point_v<T>)
    if (read.ec == std::errc::result_out_of_range) {
      const double rounded = std::strtod(std::string(text).c_str(), nullptr);
      if (std::abs(rounded) < 1) return static_cast<T>(rounded);
    }
  return std::nullopt;
}

/// The numbers of a text, with a separator between each two and blanks around any; nothing when something else is in
/// it, or a number is not finite.
std::optional<std::vector<double>> readNumbers(std::string_view text, char separator = ',');
