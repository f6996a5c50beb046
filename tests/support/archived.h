// Values in archives against bytes worked out by hand.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/bytes.h"

/// The bytes of an archive, from one word a number: its hexadecimal digits, or a name for those of a double.
inline std::string wire(const std::string& words, qcArchive::Ordering ordering = kBig) {
  static const std::map<std::string, std::string> doubles = {
      {"zero", "0000000000000000"},  {"one", "3FF0000000000000"},      {"two", "4000000000000000"},
      {"three", "4008000000000000"}, {"six", "4018000000000000"},      {"minushalf", "BFE0000000000000"},
      {"max", "7FEFFFFFFFFFFFFF"},   {"min", "FFEFFFFFFFFFFFFF"},      {"nan", "7FF8000000000000"},
      {"eight", "4020000000000000"}, {"minusone", "BFF0000000000000"}, {"minustwo", "C000000000000000"},
      {"inf", "7FF0000000000000"}};
  std::string bytes = headOf(ordering);
  std::istringstream in(words);
  for (std::string word; in >> word;) {
    const std::string number = fromHex(doubles.contains(word) ? doubles.at(word) : word);
    bytes += ordering == kBig ? number : reversed(number);
  }
  return bytes;
}

/// A value's bytes in both orders, what comes back from them, and that damage leaves a value alone. `versions` are the
/// places of the version bytes, with what their errors end in; `bad` are words that are refused.
template <class T>
void expectArchived(const T& value, const std::string& words, const std::map<std::size_t, std::wstring>& versions = {},
                    const std::vector<std::string>& bad = {}) {
  SCOPED_TRACE(words);
  for (const auto ordering : kOrderings) {
    const std::string bytes = wire(words, ordering);
    EXPECT_EQ(toHex(archived(ordering, false, value)), toHex(bytes));
    T loaded{}, victim{};
    BytesArchive archive(bytes);
    *archive || loaded;
    EXPECT_EQ(archive->remaining(), 0);
    EXPECT_TRUE(loaded == value);
    EXPECT_EQ(archived(ordering, false, loaded), bytes);
    for (std::size_t size = 2; size < bytes.size(); ++size) {
      EXPECT_THROW(load(bytes.substr(0, size), victim), qcArchive::Eof) << size;
    }
    for (const std::string& other : bad) EXPECT_THROW(load(wire(other, ordering), victim), qcArchive::BadContent);
    for (const auto& [at, unit] : versions) {
      std::string newer = bytes;
      newer[2 + at] = 1;
      const std::wstring error = errorOf([&] { load(newer, victim); });
      EXPECT_TRUE(error.starts_with(L"qcArchive::UnknownVersion") && error.ends_with(L'/' + unit)) << at;
    }
    EXPECT_TRUE(victim == T{});
  }
}
