// What stands between an archive and its medium while somebody watches what is read, or limits it.
#pragma once

#include <streambuf>

#include "vnxstd/archive/archive.h"

/// Hands everything on to the medium, and counts what is read. The bytes that the medium has read ahead are shown as
/// they lie there, so that small values take the short way here, too, as far as the limit reaches; but none of them
/// while somebody watches, who would not be told.
class qc_Gate : public std::streambuf {
 public:
  qc_Gate(const qcArchive& archive, std::streambuf& medium) noexcept : archive_(archive), medium_(medium) {}

  std::streambuf& medium() const noexcept { return medium_; }
  void watched(bool on) noexcept { settle(), watched_ = on; }
  void limit(qcUInt64 bytes) noexcept { settle(), left_ = bytes; }

  /// Counts bytes that are not read but gone over. Throws BadContent when they are too many.
  void skip(qcUInt64 bytes);
  /// Throws BadContent when so many more are too many.
  void check(qcUInt64 bytes) const;
  /// Throws BadContent for what would come to so much more than a limit allows in all.
  [[noreturn]] static void refuse(const qcArchive& archive, qcLoadContext::Limit limit, qcInt64 allowed,
                                  qcUInt64 beyond);
  /// Tells the medium how much was read of what it shows; to be called before it is used other than through this.
  void settle() noexcept;

 protected:
  int_type underflow() override;
  int_type uflow() override;
  std::streamsize xsgetn(char* to, std::streamsize count) override;
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* from, std::streamsize count) override;
  int sync() override;
  pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override;
  pos_type seekpos(pos_type position, std::ios_base::openmode which) override;

 private:
  void show() noexcept;

  const qcArchive& archive_;
  std::streambuf& medium_;
  qcUInt64 left_ = 0;
  bool watched_ = false;
};
