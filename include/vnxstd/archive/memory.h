// Archives in memory.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "vnxstd/archive/archive.h"
#include "vnxstd/export.h"

/// A growable narrow memory buffer as a stream buffer: writing appends or overwrites, reading starts at the front.
class VNXSTD_EXPORT qcStrstreambuf;

/// An archive in memory.
class VNXSTD_EXPORT qcMemoryArchive : public qcArchive {
 public:
  /// A storing archive on an empty buffer that grows; the header is written at once.
  qcMemoryArchive(Ordering ordering, bool seekable);
  /// A loading archive over the caller's bytes; the order comes from the header. With `takeOwnership` the archive frees
  /// `data` with delete[] when it is destroyed, also when this constructor throws; otherwise the caller keeps the bytes
  /// alive and unchanged. Throws BadType, UnknownArchiveVersion, BadBuffer or Eof for a bad header.
  qcMemoryArchive(const char* data, long size, bool seekable, bool takeOwnership = false);
  ~qcMemoryArchive() override;

  /// The start of the bytes, header included; valid until the next write. `tell()` gives their number after storing.
  const char* storage() const;
  /// All bytes of the archive; valid until the next write.
  std::span<const char> bytes() const;
  std::vector<char> toVector() const;

 private:
  std::unique_ptr<qcStrstreambuf> stream_;
  std::unique_ptr<const char[]> ownedData_;
};
