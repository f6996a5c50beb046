// What errors say was found.
#pragma once

#include <array>
#include <charconv>
#include <string>

/// Numbers, one after the other; the shortest texts that are read as the same again.
template <class... Number>
std::string qf_Found(Number... numbers) {
  std::string text;
  const auto add = [&text](auto number) {
    std::array<char, 32> digits;
    if (!text.empty()) text += ", ";
    text.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
  };
  (add(numbers), ...);
  return text;
}
