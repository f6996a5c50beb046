// Reads the parts of a bitmap from a stream.
#pragma once

#include <cstdint>
#include <istream>
#include <memory>

#include "std/dib/dibbytes.h"
#include "vnxstd/dib/dib.h"

/// Goes over one bitmap in a stream whose position 0 is the bitmap's first byte. Every failure of the stream is
/// qcDIB::ReadError, every unusable header qcDIB::BadFormat. What is wrong with the bytes has a qcLoadContext; a stream
/// that fails has none.
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
  /// The same for pixel buffers: BadFormat where these have no room at the offsets.
  qcDIB::Placement usableTrailer();

 private:
  /// Says in an error where reading stood, and what was expected and found there.
  static void locate(qcException& error, std::int64_t position, const std::string& expected, const std::string& found);
  template <class E>
  [[noreturn]] static void refuse(const wchar_t* text, std::int64_t position, const std::string& expected,
                                  const std::string& found);
  template <class E>
  [[noreturn]] static void refuse(const wchar_t* text, std::int64_t position, const std::string& expected,
                                  std::int64_t found);

  std::int64_t infoStart() const noexcept { return fileHeader_ ? dib::kFileHeaderBytes : 0; }
  void requireBytes(std::int64_t count) const;
  /// Onwards or back.
  void skipTo(std::int64_t position);
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
