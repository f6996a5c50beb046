// What the fuzzers share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <string>

#include "vnxstd/archive/memory.h"
#include "vnxstd/archive/observer.h"

inline void demand(bool holds) {
  if (!holds) __builtin_trap();
}

/// Whether it comes to its end. Errors of the library are answers, like memory that is refused; all else is a fault.
template <class Act>
bool succeeds(Act act) {
  try {
    act();
    return true;
  } catch (const qcException&) {
  } catch (const std::bad_alloc&) {
  }
  return false;
}

/// An input that is an archive. Bits that the header leaves unused say how it is read: bits 1 to 3 of the ordering's
/// byte are for the fuzzer, with bit 4 somebody watches, with bit 5 there are limits.
struct Input {
  Input(const std::uint8_t* data, std::size_t size) : bytes(data, data + size) {
    if (size < 2) return;
    bytes[0] = static_cast<char>(data[0] & 7);  // seekable or not, versions 0 to 3
    bytes[1] = static_cast<char>(data[1] & 0x81);
    choice = data[1] >> 1 & 7;
    isWatched = (data[1] & 0x10) != 0;
    isLimited = (data[1] & 0x20) != 0;
  }
  bool isSeekable() const { return !bytes.empty() && (bytes[0] & 1) != 0; }

  /// Calls load(archive) with an archive over the bytes.
  template <class Load>
  bool read(Load load) const {
    return succeeds([&] {
      qcMemoryArchive archive(bytes.data(), static_cast<long>(bytes.size()), isSeekable());
      qcArchiveObserver observer;
      if (isWatched) archive.observer(&observer);
      if (isLimited) archive.limits({.bytes = 5000, .nesting = 9, .objects = 50, .elements = 900, .classes = {}});
      load(archive);
    });
  }

  std::string bytes;
  unsigned choice = 0;
  bool isWatched = false, isLimited = false;
};

inline std::string bytesOf(const qcMemoryArchive& archive) { return {archive.storage(), archive.bytes().size()}; }

/// What storing the value writes, however deep it nests.
template <class T>
std::string stored(T& value, bool seekable) {
  qcMemoryArchive archive(qcArchive::bigEndian, seekable);
  archive.limits({.nesting = 100000});
  archive || value;
  return bytesOf(archive);
}

/// What was loaded can be stored, and what was stored can be loaded, and stored again byte for byte.
template <class T>
void demandSame(T& value, bool seekable) {
  const std::string bytes = stored(value, seekable);
  qcMemoryArchive archive(bytes.data(), static_cast<long>(bytes.size()), seekable);
  archive.limits({.nesting = 100000});
  T back{};
  archive || back;
  demand(archive.remaining() == 0 && stored(back, seekable) == bytes);
}
