// Values in archives against bytes worked out by hand.
#pragma once

#include "support/bytes.h"
#include "support/test.h"

/// The bytes of a big-endian archive, from words: hexadecimal digits, or a name for those of a double.
inline std::string wire(const std::string& words) {
  static const std::map<std::string, std::string> doubles = {
      {"zero", "0000000000000000"},  {"one", "3FF0000000000000"}, {"two", "4000000000000000"},
      {"three", "4008000000000000"}, {"six", "4018000000000000"}, {"minushalf", "BFE0000000000000"},
      {"max", "7FEFFFFFFFFFFFFF"},   {"min", "FFEFFFFFFFFFFFFF"}, {"nan", "7FF8000000000000"},
      {"eight", "4020000000000000"}};
  std::string bytes = headOf(kBig);
  std::istringstream in(words);
  for (std::string word; in >> word;) bytes += fromHex(doubles.contains(word) ? doubles.at(word) : word);
  return bytes;
}
