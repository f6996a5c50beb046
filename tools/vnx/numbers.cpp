#include "numbers.h"

#include <cmath>

namespace {

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace

std::optional<std::vector<double>> readNumbers(std::string_view text, char separator) {
  std::vector<double> numbers;
  for (;;) {
    const std::size_t end = text.find(separator);
    const auto value = readNumber<double>(trimmed(text.substr(0, end)));
    if (!value || !std::isfinite(*value)) return std::nullopt;
    numbers.push_back(*value);
    if (end == std::string_view::npos) return numbers;
    text.remove_prefix(end + 1);
  }
}
