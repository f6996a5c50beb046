// Bytes to and from any stream buffer, with direct access to its get and put areas, so that small values cost no
// virtual call.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <optional>
#include <span>
#include <streambuf>
#include <string>
#include <string_view>

#include "std/archive/format.h"
#include "vnxstd/archive/archive.h"

/// The areas are protected members of the stream buffer; a pointer to member that is formed here reaches them.
class qc_Areas : private std::streambuf {
 public:
  static const char* getNext(const std::streambuf& b) { return (b.*&qc_Areas::gptr)(); }
  static char* putNext(const std::streambuf& b) { return (b.*&qc_Areas::pptr)(); }
  static std::size_t readable(const std::streambuf& b) {
    return static_cast<std::size_t>((b.*&qc_Areas::egptr)() - (b.*&qc_Areas::gptr)());
  }
  static std::size_t writable(const std::streambuf& b) {
    return static_cast<std::size_t>((b.*&qc_Areas::epptr)() - (b.*&qc_Areas::pptr)());
  }
  /// Moves on by `count` bytes, which the area must have. The standard moves by an int.
  static void skipRead(std::streambuf& b, std::size_t count) {
    for (; count > kMost; count -= kMost) (b.*&qc_Areas::gbump)(kMost);
    (b.*&qc_Areas::gbump)(static_cast<int>(count));
  }
  static void skipWritten(std::streambuf& b, std::size_t count) {
    for (; count > kMost; count -= kMost) (b.*&qc_Areas::pbump)(kMost);
    (b.*&qc_Areas::pbump)(static_cast<int>(count));
  }

  /// Reads up to `count` bytes; returns how many there were.
  static std::size_t read(std::streambuf& b, void* to, std::size_t count) {
    if (count == 0) return 0;  // an area without bytes may have no address
    if (count <= readable(b)) {
      std::memcpy(to, getNext(b), count);
      skipRead(b, count);
      return count;
    }
    return static_cast<std::size_t>(
        std::max<std::streamsize>(0, b.sgetn(static_cast<char*>(to), static_cast<std::streamsize>(count))));
  }

  /// Writes up to `count` bytes; returns how many were taken.
  static std::size_t write(std::streambuf& b, const void* from, std::size_t count) {
    if (count == 0) return 0;
    if (count <= writable(b)) {
      std::memcpy(putNext(b), from, count);
      skipWritten(b, count);
      return count;
    }
    return static_cast<std::size_t>(
        std::max<std::streamsize>(0, b.sputn(static_cast<const char*>(from), static_cast<std::streamsize>(count))));
  }

  /// Reads `count` bytes of an archive. Throws Eof from that line when there are fewer.
  static void readAll(qcArchive& archive, void* to, std::size_t count, int line) {
    if (count == 0) return;
    if (count > readable(*archive.buffer_)) return archive.readBeyondArea(to, count, line);
    std::memcpy(to, getNext(*archive.buffer_), count);
    skipRead(*archive.buffer_, count);
  }

  /// The next `count` bytes of an archive: where they lie, until it is read on, or else copied to `room`. Throws as
  /// readAll does.
  static const unsigned char* take(qcArchive& archive, unsigned char* room, std::size_t count, int line) {
    if (count > readable(*archive.buffer_)) {
      archive.readBeyondArea(room, count, line);
      return room;
    }
    const char* const next = getNext(*archive.buffer_);
    skipRead(*archive.buffer_, count);
    return reinterpret_cast<const unsigned char*>(next);
  }

  /// A short narrow text that the area holds in full, as almost all are, where it lies, until the archive is read on.
  static std::optional<std::string_view> takeText(qcArchive& archive) {
    const std::size_t ready = readable(*archive.buffer_);
    if (ready < 3) return std::nullopt;
    const char* const next = getNext(*archive.buffer_);
    const auto length = static_cast<std::size_t>(static_cast<unsigned char>(next[0]));
    const auto isQuote = [next](std::size_t i) { return static_cast<unsigned char>(next[i]) == qc_format::kQuote; };
    if (length >= qc_format::kLongPrefix || length + 3 > ready || !isQuote(1) || !isQuote(length + 2))
      return std::nullopt;
    skipRead(*archive.buffer_, 1);
    archive.countElements(length);
    skipRead(*archive.buffer_, length + 2);
    return std::string_view(next + 2, length);
  }

 private:
  static constexpr int kMost = std::numeric_limits<int>::max();
};

inline void qf_WriteBytes(std::streambuf& buffer, const void* data, std::size_t count, int line) {
  if (qc_Areas::write(buffer, data, count) != count) throw qcArchive::BadBuffer(qc_format::kArchiveSource, line);
}

/// Runs a part of a load, whose errors get their places.
template <class Load>
decltype(auto) qcArchive::explained(Load load) const {
  try {
    return load();
  } catch (qcException& error) {
    explain(error);
    throw;
  }
}

/// Bytes as errors show them: "4F E5 70".
inline std::string qf_Hex(std::span<const unsigned char> bytes) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string text;
  for (const unsigned char byte : bytes) {
    if (!text.empty()) text += ' ';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}
