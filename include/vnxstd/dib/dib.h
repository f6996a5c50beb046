// Bitmap files.
//
// A qcDIB holds one image as a Windows bitmap holds it: its header fields, its colour table and its pixel rows exactly
// as they lie in the file. It is read from and written to streams, files, memory and the clipboard form (a bitmap
// without file header), and converted from and to pixel buffers.
//
// Read are depths of 1, 4, 8, 16, 24 and 32 bits, uncompressed or with bit-field masks, with info headers of 40, 52,
// 56, 108 and 124 bytes, bottom-up and top-down. A colour table shorter than its depth allows is filled up with black.
// Reading trusts no size: pixel memory is taken only for bytes that are there, so that a corrupt file gets an error and
// never more memory than its own size calls for.
//
// After the pixels stands a trailer of 20 bytes, which other programs pass over: the signature F2 73 AD 11 00 00 00 00,
// then depth, xOffset and yOffset as 32-bit integers, lowest byte first. xOffset and yOffset are the image coordinates
// of the upper-left pel and travel to and from the offset of pixel buffers; depth belongs to the application. Any three
// values are read and written.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"
#include "vnxstd/pelbuf/buffer.h"

class qcPelRootPool;

/// A bitmap. A value; copies share their pixel rows, which never change once made. Not for two threads at once while
/// one of them changes it.
class VNXSTD_EXPORT qcDIB {
 public:
  /// The base of the bitmap errors, which carry a text.
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors, qcExceptionWithString> {
   protected:
    using qc_ErrorGroup::qc_ErrorGroup;
  };
  /// The data are no bitmap of a kind that is read here.
  class VNXSTD_EXPORT BadFormat : public qc_ErrorLeaf<BadFormat, Errors, 0x10001401> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  /// The data ended early or the stream failed.
  class VNXSTD_EXPORT ReadError : public qc_ErrorLeaf<ReadError, Errors, 0x10001402> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  /// The stream or file did not take the bytes.
  class VNXSTD_EXPORT WriteError : public qc_ErrorLeaf<WriteError, Errors, 0x10001403> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  /// The bitmap holds no pixels.
  class VNXSTD_EXPORT NoDibData : public qc_ErrorLeaf<NoDibData, Errors, 0x10001404> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };

  /// A colour table entry.
  struct Colour {
    unsigned char blue = 0, green = 0, red = 0;
    friend bool operator==(const Colour&, const Colour&) = default;
  };

  qcDIB() = default;
  qcDIB(const qcDIB&) = default;
  /// Leaves the other bitmap without data.
  qcDIB(qcDIB&& other) noexcept { swap(other); }
  qcDIB& operator=(qcDIB other) noexcept {
    swap(other);
    return *this;
  }
  ~qcDIB() = default;

  // Reading. Each throws BadFormat or ReadError, and then leaves the bitmap as it was. The error's loadContext() says
  // where in the bitmap something is wrong, what was expected and what was found; it is null when the stream failed.

  /// Reads a bitmap file from a stream that can seek and in which the bitmap starts at position 0.
  void init(std::istream& stream);
  /// Reads a bitmap file. Throws ReadError "Open file failed" when the file cannot be opened.
  void init(const std::wstring& path);
  /// Reads from `size` bytes of memory: with `fileHeader` a whole bitmap file, without it the clipboard form.
  void init(const unsigned char* data, std::size_t size, bool fileHeader);

  // Making a bitmap of a pixel buffer's window. The rows are copied. Offsets become xOffset and yOffset; depth stays as
  // it was. Throws qcPel::UnboundWindow for an unbound buffer, NoDibData for an empty window and BadFormat for one
  // whose file would pass 4 GiB; the bitmap is then as it was.

  /// 8 bits with a grey ramp as colour table.
  void init(const qcPelBuffer_const<unsigned char>& buffer);
  /// 24 bits: the format has no portable place for six bits of green, and nothing is lost this way.
  void init(const qcPelBuffer_const<qcPackedRGB16Pel>& buffer);
  /// 32 bits, alpha in the fourth byte.
  void init(const qcPelBuffer_const<qcPackedRGB32Pel>& buffer);

  // Conversion to pixel buffers, the right way up whatever the order of the rows in the file. Components of fewer than
  // eight bits are shifted up with zeros below, as the packed pels read them. The buffer lies at (xOffset, yOffset)
  // with the identity transform. Throws NoDibData, and BadFormat where that would put pels beyond the 32-bit range of
  // image coordinates.

  /// Grey: colours become 0.299 red + 0.587 green + 0.114 blue, rounded.
  qcPelBuffer<unsigned char> pelBuffer() const;
  /// Binds `buffer` to a new image; on an error it is unchanged.
  void pelBuffer(qcPelBuffer<qcPackedRGB16Pel>& buffer) const;
  /// Alpha is 255 where the bitmap has none.
  void pelBuffer(qcPelBuffer<qcPackedRGB32Pel>& buffer) const;

  /// The same as init(path) and pelBuffer() in one pass over the file, without a second copy of the pixels.
  static qcPelBuffer<unsigned char> readPelBuffer(const std::wstring& path);
  /// The same into an image of the pool if it has one now.
  static qcPelBuffer<unsigned char> readPelBuffer(const std::wstring& path, qcPelRootPool& pool);

  // Writing. Always an uncompressed bottom-up header before the rows as they are stored: a bitmap that was read
  // top-down, or with bit-field masks, is made portable by going through pelBuffer and init. Each throws NoDibData
  // without pixels, before anything is opened or written.

  /// Throws WriteError "Write failed".
  void write(std::ostream& stream) const;
  /// Throws WriteError "Open file failed" or "Write failed".
  void write(const std::wstring& path) const;

  /// The same as init(buffer) and write(path) in pieces, without a second copy of the pels; depth is 0. Throws what
  /// both throw, before the file is opened where the buffer is at fault.
  static void writePelBuffer(const std::wstring& path, const qcPelBuffer_const<unsigned char>& buffer);
  static void writePelBuffer(const std::wstring& path, const qcPelBuffer_const<qcPackedRGB16Pel>& buffer);
  static void writePelBuffer(const std::wstring& path, const qcPelBuffer_const<qcPackedRGB32Pel>& buffer);

  /// The number of bytes of the clipboard form, trailer included.
  std::size_t clipboardDibSize() const;
  /// Writes the clipboard form, clipboardDibSize() bytes.
  void renderClipboardDib(unsigned char* destination) const;

  /// The bytes that `bits` bits take: (bits + 7) / 8, for any number of bits.
  static unsigned long pixels2Bytes(unsigned long bits) noexcept { return bits / 8 + (bits % 8 != 0 ? 1 : 0); }

  bool hasData() const noexcept { return pixels_ != nullptr; }
  long width() const noexcept { return format_.width; }
  /// Always positive.
  long height() const noexcept { return format_.height; }
  /// 1, 4, 8, 16, 24 or 32; 0 without data.
  int bitCount() const noexcept { return format_.bitCount; }
  /// Bytes per stored row, a multiple of 4.
  long rowBytes() const noexcept { return format_.rowBytes; }
  bool isTopDown() const noexcept { return format_.topDown; }
  /// 0 uncompressed, 3 bit fields.
  long compression() const noexcept { return format_.compression; }
  /// Pels per metre.
  long xResolution() const noexcept { return format_.xResolution; }
  long yResolution() const noexcept { return format_.yResolution; }
  const std::vector<Colour>& colourTable() const noexcept { return format_.colours; }
  /// The rows as stored: rowBytes() x height() bytes; null without data.
  const unsigned char* pixels() const noexcept { return pixels_.get(); }

  // Carried by the trailer; 0 unless a trailer or a buffer sets them.
  long depth() const noexcept { return placement_.depth; }
  long xOffset() const noexcept { return placement_.xOffset; }
  long yOffset() const noexcept { return placement_.yOffset; }
  // The setters keep 32 bits; a value that does not fit throws BadFormat.
  void depth(long value);
  void xOffset(long value);
  void yOffset(long value);

 private:
  friend class qc_DIBReader;
  friend class qc_DIBRows;

  /// What the headers say about the rows.
  struct Format {
    std::int32_t width = 0, height = 0, rowBytes = 0;
    std::int32_t xResolution = 0, yResolution = 0;
    std::int32_t compression = 0;
    std::uint16_t bitCount = 0;
    bool topDown = false;
    /// Where red, green, blue and alpha lie in pixels of 16 and 32 bits.
    std::array<std::uint32_t, 4> masks{};
    std::vector<Colour> colours;

    std::size_t imageBytes() const noexcept {
      return static_cast<std::size_t>(rowBytes) * static_cast<std::size_t>(height);
    }
    /// Sets rowBytes from width and depth; throws BadFormat for an image whose file would pass 4 GiB.
    void layOutRows();
  };
  /// What the trailer carries.
  struct Placement {
    std::int32_t depth = 0, xOffset = 0, yOffset = 0;

    /// Throws BadFormat for an offset at which pixel buffers have no room for the image.
    void check(const Format& format) const;
  };

  static qcPelBuffer<unsigned char> read(const std::wstring& path, qcPelRootPool* pool);
  void init_(std::istream& stream, bool fileHeader, std::int64_t available);
  std::vector<unsigned char> headers(bool fileHeader) const;
  std::vector<unsigned char> trailer() const;
  void write(unsigned char* destination, int fileHeader) const;
  void checkData() const;
  void swap(qcDIB& other) noexcept {
    std::swap(pixels_, other.pixels_);
    std::swap(format_, other.format_);
    std::swap(placement_, other.placement_);
  }
  template <class T>
  qcPelBuffer<T> converted() const;
  /// Sets everything but the pixels.
  template <class T>
  void describe(const qcPelBuffer_const<T>& buffer);
  template <class T>
  void initFrom(const qcPelBuffer_const<T>& buffer);
  template <class T>
  static void writeWindow(const std::wstring& path, const qcPelBuffer_const<T>& buffer);

  std::shared_ptr<const unsigned char[]> pixels_;
  Format format_;
  Placement placement_;
};
