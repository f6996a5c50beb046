// Bytes as hexadecimal text, and what archives make of values.
#pragma once

#include <cctype>
#include <fstream>
#include <functional>
#include <string>

#include "vnxstd/archive/memory.h"

inline constexpr auto kBig = qcArchive::bigEndian, kLittle = qcArchive::littleEndian;
inline constexpr qcArchive::Ordering kOrderings[] = {kBig, kLittle};

/// The bytes that the hexadecimal digits of `text` stand for; all else is skipped.
inline std::string fromHex(std::string_view text) {
  std::string digits, bytes;
  for (const char c : text)
    if (std::isxdigit(static_cast<unsigned char>(c))) digits.push_back(c);
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    bytes.push_back(static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  return bytes;
}

/// The bytes of the worked example of a page in docs: the block marked hex, without what follows a # on its lines.
/// Empty when there is none.
inline std::string documentedBytes(const std::string& page) {
  std::ifstream file(VNXSTD_SOURCE_DIR "/docs/" + page);
  std::string line, hex;
  while (std::getline(file, line) && line != "```hex") {
  }
  while (std::getline(file, line) && line != "```") hex += line.substr(0, line.find('#'));
  return fromHex(hex);
}

inline std::string toHex(std::string_view bytes) {
  std::string text;
  for (const char c : bytes)
    for (const int shift : {4, 0}) text.push_back("0123456789ABCDEF"[(static_cast<unsigned char>(c) >> shift) & 15]);
  return text;
}

inline std::string reversed(std::string text) { return {text.rbegin(), text.rend()}; }

inline std::string bytesOf(const qcMemoryArchive& archive) { return {archive.storage(), archive.bytes().size()}; }

/// What storing the values writes.
template <class... T>
std::string archived(qcArchive::Ordering ordering, bool seekable, const T&... values) {
  qcMemoryArchive archive(ordering, seekable);
  static_cast<void>((archive << ... << values));
  return bytesOf(archive);
}

/// The header, with the anchor of a chain without records behind it in a seekable archive.
inline std::string headOf(qcArchive::Ordering ordering, bool seekable = false) { return archived(ordering, seekable); }

/// What storing the values writes behind that.
template <class... T>
std::string stored(qcArchive::Ordering ordering, bool seekable, const T&... values) {
  return archived(ordering, seekable, values...).substr(headOf(ordering, seekable).size());
}

/// A loading archive over these bytes; the header comes first when there is one.
class BytesArchive {
 public:
  explicit BytesArchive(std::string bytes, bool seekable = false)
      : bytes_(std::move(bytes)), archive_(bytes_.data(), static_cast<long>(bytes_.size()), seekable) {}
  qcArchive& operator*() { return archive_; }
  qcArchive* operator->() { return &archive_; }

 private:
  std::string bytes_;
  qcMemoryArchive archive_;
};

/// Stores an object by a pointer.
inline void storePointer(qcArchive& archive, qcPersistent& object) {
  qcPersistent* ignored = nullptr;
  qcPersistent::serializePointer(archive, &object, ignored);
}
inline qcPersistent* loadPointer(qcArchive& archive) {
  qcPersistent* loaded = nullptr;
  qcPersistent::serializePointer(archive, nullptr, loaded);
  return loaded;
}

/// Loads the values from bytes that begin with a header.
template <class T, class... More>
T& load(const std::string& bytes, T& first, More&... more) {
  BytesArchive archive(bytes);
  ((*archive || first) || ... || more);
  return first;
}

/// The class and the text of what `act` throws; nothing when it throws nothing.
inline std::wstring errorOf(const std::function<void()>& act) {
  try {
    act();
    return {};
  } catch (const qcException& error) {
    return error.message(true);
  }
}
