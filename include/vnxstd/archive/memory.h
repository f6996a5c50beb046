// Archives in memory.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "vnxstd/archive/archive.h"
#include "vnxstd/export.h"

/// A growable narrow memory buffer as a stream buffer; private to memory archives.
class qcStrstreambuf;

/// An archive in memory.
class VNXSTD_EXPORT qcMemoryArchive : public qcArchive {
 public:
  /// A storing archive on an empty buffer that grows; the header is written at once. Throws std::bad_alloc, here and
  /// while storing, when memory is exhausted.
  qcMemoryArchive(Ordering ordering, bool seekable);
  /// A loading archive over the caller's bytes; the order comes from the header. With `takeOwnership` the archive frees
  /// `data` with delete[] when it is destroyed, also when this constructor throws; otherwise the caller keeps the bytes
  /// alive and unchanged. The bytes are never written to: a seekable archive that turns to storing copies them first.
  /// Throws BadType, UnknownArchiveVersion, BadBuffer or Eof for a bad header.
  qcMemoryArchive(const char* data, long size, bool seekable, bool takeOwnership = false);
  ~qcMemoryArchive() override;

  /// The start of the bytes, header included; valid until the next write. `tell()` gives their number after storing.
  const char* storage() const;
  /// All bytes of the archive; valid until the next write.
  std::span<const char> bytes() const;
  std::vector<char> toVector() const;

 protected:
  bool truncate(std::streamoff end) override;

 private:
  // What must exist before the base, and outlive it when a constructor throws.
  struct Parts {
    Parts();
    Parts(const char* data, long size, bool takeOwnership);
    Parts(Parts&&) noexcept = default;
    ~Parts();
    std::unique_ptr<const char[]> ownedData;
    std::unique_ptr<qcStrstreambuf> stream;
  };
  qcMemoryArchive(Parts&& parts, Direction direction, Ordering ordering, bool seekable);

  Parts parts_;
};
