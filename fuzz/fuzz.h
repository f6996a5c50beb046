// What the fuzzers share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <string>

#include "vnxstd/archive/memory.h"
#include "vnxstd/archive/observer.h"

/// Where memory was allocated, findings say when they are run again with ASAN_OPTIONS=malloc_context_size=30.
extern "C" const char* __asan_default_options() { return "malloc_context_size=1:quarantine_size_mb=32"; }

inline void demand(bool holds) {
  if (!holds) __builtin_trap();
}

/// Whether it comes to its end. Errors of the library are answers, like memory that is refused; all else is a fault.
template <class Act>
bool succeeds(Act act, bool isTold = false) {
  try {
    act();
    return true;
  } catch (const qcException& error) {
    if (isTold) demand(!error.message(true).empty());
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
    const auto readAll = [&] {
      qcMemoryArchive archive(bytes.data(), static_cast<long>(bytes.size()), isSeekable());
      qcArchiveObserver observer;
      if (isWatched) archive.observer(&observer);
      if (isLimited) archive.limits({.bytes = 5000, .nesting = 3, .objects = 50, .elements = 900, .classes = {}});
      load(archive);
    };
    return succeeds(readAll, isWatched);
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
