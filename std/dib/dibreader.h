// Reads the parts of a bitmap from a stream.
#pragma once

#include <cstdint>
#include <istream>
#include <memory>

#include "vnxstd/dib/dib.h"

/// Goes over one bitmap in a stream whose position 0 is the bitmap's first byte. Every failure of the stream is
/// qcDIB::ReadError, every unusable header qcDIB::BadFormat.
class qc_DIBReader {
 public:
  /// `available` bytes are there; a negative number means all up to the end of the stream.
  qc_DIBReader(std::istream& stream, bool fileHeader, std::int64_t available);

  const qcDIB::Format& format() const noexcept { return format_; }

  /// Reads the headers and the colour table, makes sure that all rows are there, and goes to the first one.
  void headers();
  /// The next `count` bytes of the rows.
  void pixels(unsigned char* to, std::size_t count);
  /// Reads what follows the rows; values keep their defaults when it is no trailer.
  qcDIB::Placement trailer();

 private:
  void read(unsigned char* to, std::size_t count);
  void seek(std::int64_t position);
  void infoHeader();
  void masks(const unsigned char* info, std::uint32_t infoBytes);
  void colourTable(std::uint32_t used);

  std::streambuf* buffer_;
  bool fileHeader_;
  std::int64_t end_;
  std::int64_t position_ = 0;
  qcDIB::Format format_;
};
