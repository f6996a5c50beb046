// Values of several parts in archives.
#pragma once

#include "vnxstd/export.h"

class qcArchive;

/// Lives while a value of several parts is stored or loaded, from behind its first part on. A message of a transfer
/// archive that ends meanwhile was cut short by a store that failed: loading throws Eof there, and does not go on in
/// the next message. For operators of values; objects, vectors, pairs and images do so themselves.
class VNXSTD_EXPORT qcArchiveCompound {
 public:
  explicit qcArchiveCompound(qcArchive& archive) noexcept;
  ~qcArchiveCompound();
  qcArchiveCompound(const qcArchiveCompound&) = delete;
  qcArchiveCompound& operator=(const qcArchiveCompound&) = delete;

 private:
  qcArchive& archive_;
};
