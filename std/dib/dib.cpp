#include "vnxstd/dib/dib.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <fstream>
#include <limits>
#include <utility>

#include "std/archive/nativepath.h"
#include "std/dib/dibbytes.h"
#include "std/dib/dibreader.h"
#include "std/dib/dibrows.h"
#include "vnxstd/except/failure.h"
#include "vnxstd/pelbuf/rootpool.h"
#include "zrtsys/memory.h"

namespace {

const qc_ErrorRegistration<qcDIB::Errors, qcDIB::BadFormat, qcDIB::ReadError, qcDIB::WriteError, qcDIB::NoDibData>
    registered;

// Rows are read and written in pieces that stay in the second-level cache between conversion and file.
constexpr std::ptrdiff_t kPieceBytes = std::ptrdiff_t{256} * 1024;

/// A stream over bytes in memory.
class MemoryBuffer : public std::streambuf {
 public:
  MemoryBuffer(const unsigned char* data, std::size_t size) {
    auto* start = const_cast<char*>(reinterpret_cast<const char*>(data));
    setg(start, start, start + size);
  }

 protected:
  pos_type seekpos(pos_type position, std::ios_base::openmode) override {
    const off_type offset = position;
    if (offset < 0 || offset > egptr() - eback()) return off_type(-1);
    setg(eback(), eback() + offset, egptr());
    return position;
  }
};

template <class Stream>
bool openFile(Stream& stream, const std::wstring& path, std::ios_base::openmode mode) {
  stream.open(qf_NativePath(path), mode | std::ios_base::binary);
  return stream.is_open();
}

std::ifstream openedForReading(const std::wstring& path) {
  std::ifstream stream;
  if (!openFile(stream, path, std::ios_base::in)) throw qcDIB::ReadError(L"Open file failed");
  return stream;
}

std::int32_t as32(long value) {
  const auto narrow = static_cast<std::int32_t>(value);
  if (narrow != value) throw qcDIB::BadFormat(L"Value does not fit 32 bits");
  return narrow;
}

// Memory for rows, not cleared. The system module gives large images large pages: their first touch costs a fifth.
std::shared_ptr<unsigned char[]> newRows(std::size_t bytes) {
  void *block = nullptr, *start = nullptr;
  qfThrowExceptionOnFailure(zrtsys::allocate(bytes, 1, &block, &start));
  return {static_cast<unsigned char*>(start), [block](unsigned char*) { zrtsys::free(block); }};
}

// The stored form of rows that buffers hold.
void storeRow(const unsigned char* pels, unsigned char* row, std::ptrdiff_t width) {
  std::memcpy(row, pels, static_cast<std::size_t>(width));
}
void storeRow(const qcPackedRGB16Pel* pels, unsigned char* row, std::ptrdiff_t width) {
  for (std::ptrdiff_t x = 0; x < width; ++x) {
    row[3 * x] = pels[x].b();
    row[3 * x + 1] = pels[x].g();
    row[3 * x + 2] = pels[x].r();
  }
}
void storeRow(const qcPackedRGB32Pel* pels, unsigned char* row, std::ptrdiff_t width) {
  static_assert(sizeof(qcPackedRGB32Pel) == 4);
  if constexpr (std::endian::native == std::endian::little) {  // a word's bytes lie as the file has them
    std::memcpy(row, pels, static_cast<std::size_t>(width) * 4);
    return;
  }
  for (std::ptrdiff_t x = 0; x < width; ++x) {
    row[4 * x] = pels[x].b();
    row[4 * x + 1] = pels[x].g();
    row[4 * x + 2] = pels[x].r();
    row[4 * x + 3] = pels[x].a();
  }
}

template <class T>
constexpr std::uint16_t kBits = std::is_same_v<T, unsigned char>      ? 8
                                : std::is_same_v<T, qcPackedRGB16Pel> ? 24
                                                                      : 32;

/// The stored form of a window's rows from row `last` - 1 upwards, as many as `last` or `most` allow; returns their
/// number.
template <class T>
std::ptrdiff_t storeRows(const qcPelBuffer_const<T>& buffer, std::ptrdiff_t rowBytes, std::ptrdiff_t last,
                         unsigned char* to, std::ptrdiff_t most = std::numeric_limits<std::ptrdiff_t>::max()) {
  const std::ptrdiff_t width = buffer.width(), pelBytes = width * (kBits<T> / 8), pitch = buffer.rowUpdate();
  const std::ptrdiff_t count = std::min(last, most);
  const qcStoredPel<T>* const pels = buffer.pointToOffset();
  for (std::ptrdiff_t i = 1; i <= count; ++i, to += rowBytes) {
    storeRow(pels + (last - i) * pitch, to, width);
    std::fill(to + pelBytes, to + rowBytes, static_cast<unsigned char>(0));
  }
  return count;
}

}  // namespace

void qcDIB::depth(long value) { placement_.depth = as32(value); }
void qcDIB::xOffset(long value) { placement_.xOffset = as32(value); }
void qcDIB::yOffset(long value) { placement_.yOffset = as32(value); }

void qcDIB::checkData() const {
  if (!pixels_) throw NoDibData();
}

// ---- reading

void qcDIB::init_(std::istream& stream, bool fileHeader, std::int64_t available) {
  qc_DIBReader reader(stream, fileHeader, available);
  reader.headers();
  const std::size_t bytes = reader.format().imageBytes();
  std::shared_ptr<unsigned char[]> pixels = newRows(bytes);
  reader.pixels(pixels.get(), bytes);
  qcDIB read;
  read.placement_ = reader.trailer();
  read.format_ = reader.format();
  read.pixels_ = std::move(pixels);
  swap(read);
}

void qcDIB::init(std::istream& stream) { init_(stream, true, -1); }

void qcDIB::init(const std::wstring& path) {
  std::ifstream stream = openedForReading(path);
  init_(stream, true, -1);
}

void qcDIB::init(const unsigned char* data, std::size_t size, bool fileHeader) {
  MemoryBuffer buffer(data, size);
  std::istream stream(&buffer);
  init_(stream, fileHeader, static_cast<std::int64_t>(size));
}

// ---- to pixel buffers

void qcDIB::Placement::check(const Format& format) const {
  const auto fits = [](std::int32_t offset, std::int32_t size) {
    return std::int64_t{offset} + size <= std::numeric_limits<std::int32_t>::max();
  };
  if (!fits(xOffset, format.width) || !fits(yOffset, format.height)) throw BadFormat(L"Bad image offset");
}

template <class T>
qcPelBuffer<T> qcDIB::converted() const {
  checkData();
  placement_.check(format_);
  qcPelBuffer<T> buffer(format_.width, format_.height);
  buffer.offset(placement_.xOffset, placement_.yOffset);
  qcStoredPel<T>* const pels = buffer.pointToOffset();
  const std::ptrdiff_t pitch = buffer.rowUpdate();
  qc_DIBRows(format_).with<T>([&](auto convert) {
    for (std::ptrdiff_t y = 0; y < format_.height; ++y) {
      const std::ptrdiff_t row = format_.topDown ? y : format_.height - 1 - y;
      convert(pixels_.get() + row * format_.rowBytes, pels + y * pitch);
    }
  });
  return buffer;
}

qcPelBuffer<unsigned char> qcDIB::pelBuffer() const { return converted<unsigned char>(); }
void qcDIB::pelBuffer(qcPelBuffer<qcPackedRGB16Pel>& buffer) const { buffer = converted<qcPackedRGB16Pel>(); }
void qcDIB::pelBuffer(qcPelBuffer<qcPackedRGB32Pel>& buffer) const { buffer = converted<qcPackedRGB32Pel>(); }

qcPelBuffer<unsigned char> qcDIB::readPelBuffer(const std::wstring& path) { return read(path, nullptr); }
qcPelBuffer<unsigned char> qcDIB::readPelBuffer(const std::wstring& path, qcPelRootPool& pool) {
  return read(path, &pool);
}

qcPelBuffer<unsigned char> qcDIB::read(const std::wstring& path, qcPelRootPool* pool) {
  std::ifstream stream = openedForReading(path);
  qc_DIBReader reader(stream, true, -1);
  reader.headers();
  const Format& format = reader.format();
  qcPelBuffer<unsigned char> buffer;
  if (pool) buffer = pool->tryGet<unsigned char>(format.width, format.height);
  if (!buffer.isBound()) buffer = qcPelBuffer<unsigned char>(format.width, format.height);
  unsigned char* const pels = buffer.pointToOffset();
  const std::ptrdiff_t pitch = buffer.rowUpdate();
  const auto rowBytes = static_cast<std::size_t>(format.rowBytes);
  const std::ptrdiff_t rowsPerPiece = std::max<std::ptrdiff_t>(kPieceBytes / format.rowBytes, 1);
  const auto piece = std::make_unique_for_overwrite<unsigned char[]>(
      rowBytes * static_cast<std::size_t>(std::min<std::ptrdiff_t>(rowsPerPiece, format.height)));
  qc_DIBRows(format).with<unsigned char>([&](auto convert) {
    for (std::ptrdiff_t done = 0; done < format.height;) {
      const std::ptrdiff_t rows = std::min<std::ptrdiff_t>(rowsPerPiece, format.height - done);
      reader.pixels(piece.get(), rowBytes * static_cast<std::size_t>(rows));
      for (std::ptrdiff_t i = 0; i < rows; ++i, ++done) {
        const std::ptrdiff_t y = format.topDown ? done : format.height - 1 - done;
        convert(piece.get() + static_cast<std::size_t>(i) * rowBytes, pels + y * pitch);
      }
    }
  });
  const Placement placement = reader.usableTrailer();
  buffer.offset(placement.xOffset, placement.yOffset);
  return buffer;
}

// ---- from pixel buffers

template <class T>
void qcDIB::describe(const qcPelBuffer_const<T>& buffer) {
  if (!buffer.isBound()) throw qcPel::UnboundWindow();
  if (buffer.width() == 0 || buffer.height() == 0) throw NoDibData();
  Format format;
  format.width = static_cast<std::int32_t>(buffer.width());
  format.height = static_cast<std::int32_t>(buffer.height());
  format.bitCount = kBits<T>;
  format.layOutRows();
  if (format.bitCount == 32) format.masks = {0xFF0000, 0xFF00, 0xFF, 0xFF000000};
  if (format.bitCount == 8) {
    for (unsigned i = 0; i < 256; ++i) {
      const auto grey = static_cast<unsigned char>(i);
      format.colours.push_back({grey, grey, grey});
    }
  }
  const auto offset = buffer.offset();
  placement_.xOffset = static_cast<std::int32_t>(offset.x());
  placement_.yOffset = static_cast<std::int32_t>(offset.y());
  format_ = std::move(format);
}

template <class T>
void qcDIB::initFrom(const qcPelBuffer_const<T>& buffer) {
  qcDIB made;
  made.placement_ = placement_;
  made.describe(buffer);
  std::shared_ptr<unsigned char[]> pixels = newRows(made.format_.imageBytes());
  storeRows(buffer, made.format_.rowBytes, buffer.height(), pixels.get());
  made.pixels_ = std::move(pixels);
  swap(made);
}

void qcDIB::init(const qcPelBuffer_const<unsigned char>& buffer) { initFrom(buffer); }
void qcDIB::init(const qcPelBuffer_const<qcPackedRGB16Pel>& buffer) { initFrom(buffer); }
void qcDIB::init(const qcPelBuffer_const<qcPackedRGB32Pel>& buffer) { initFrom(buffer); }

// ---- writing

std::vector<unsigned char> qcDIB::headers(bool fileHeader) const {
  const auto tableBytes = static_cast<std::uint32_t>(format_.colours.size() * 4);
  const std::uint32_t offset = dib::kFileHeaderBytes + dib::kInfoHeaderBytes + tableBytes;
  const auto imageBytes = static_cast<std::uint32_t>(format_.imageBytes());
  std::vector<unsigned char> bytes;
  if (fileHeader) {
    bytes = {'B', 'M'};
    dib::put32(bytes, imageBytes + offset + dib::kTrailerBytes);
    dib::put32(bytes, 0);
    dib::put32(bytes, offset);
  }
  dib::put32(bytes, dib::kInfoHeaderBytes);
  dib::putSigned32(bytes, format_.width);
  dib::putSigned32(bytes, format_.height);
  dib::put16(bytes, 1);  // planes
  dib::put16(bytes, format_.bitCount);
  dib::put32(bytes, dib::kUncompressed);
  dib::put32(bytes, imageBytes);
  dib::putSigned32(bytes, format_.xResolution);
  dib::putSigned32(bytes, format_.yResolution);
  dib::put32(bytes, 0);  // colours used: all
  dib::put32(bytes, 0);  // colours important: all
  for (const Colour& colour : format_.colours) bytes.insert(bytes.end(), {colour.blue, colour.green, colour.red, 0});
  return bytes;
}

std::vector<unsigned char> qcDIB::trailer() const {
  std::vector<unsigned char> bytes(dib::kTrailerSignature.begin(), dib::kTrailerSignature.end());
  for (const std::int32_t field : {placement_.depth, placement_.xOffset, placement_.yOffset})
    dib::putSigned32(bytes, field);
  return bytes;
}

void qcDIB::write(unsigned char* destination, int fileHeader) const {
  checkData();
  const std::vector<unsigned char> head = headers(fileHeader != 0), tail = trailer();
  destination = std::copy(head.begin(), head.end(), destination);
  destination = std::copy_n(pixels_.get(), format_.imageBytes(), destination);
  std::copy(tail.begin(), tail.end(), destination);
}

namespace {

/// Writes bytes to a stream and reports what goes wrong as the bitmap's error.
class Writer {
 public:
  explicit Writer(std::ostream& stream) : stream_(stream) {}

  void put(const unsigned char* bytes, std::size_t count) {
    checked([&] { stream_.write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(count)); });
  }
  void flush() {
    checked([&] { stream_.flush(); });
  }

 private:
  template <class Work>
  void checked(Work work) {
    try {
      work();
    } catch (const std::ios_base::failure&) {
      throw qcDIB::WriteError(L"Write failed");
    }
    if (!stream_) throw qcDIB::WriteError(L"Write failed");
  }

  std::ostream& stream_;
};

template <class Write>
void writeFile(const std::wstring& path, Write write) {
  std::ofstream stream;
  if (!openFile(stream, path, std::ios_base::out | std::ios_base::trunc)) throw qcDIB::WriteError(L"Open file failed");
  write(stream);
  stream.close();
  if (!stream) throw qcDIB::WriteError(L"Write failed");
}

}  // namespace

void qcDIB::write(std::ostream& stream) const {
  checkData();
  Writer to(stream);
  const std::vector<unsigned char> head = headers(true), tail = trailer();
  to.put(head.data(), head.size());
  to.put(pixels_.get(), format_.imageBytes());
  to.put(tail.data(), tail.size());
  to.flush();
}

void qcDIB::write(const std::wstring& path) const {
  checkData();
  writeFile(path, [this](std::ostream& stream) { write(stream); });
}

template <class T>
void qcDIB::writeWindow(const std::wstring& path, const qcPelBuffer_const<T>& buffer) {
  qcDIB bitmap;
  bitmap.describe(buffer);
  const std::ptrdiff_t rowBytes = bitmap.format_.rowBytes;
  const std::ptrdiff_t most = std::clamp<std::ptrdiff_t>(kPieceBytes / rowBytes, 1, buffer.height());
  const auto piece = std::make_unique_for_overwrite<unsigned char[]>(static_cast<std::size_t>(most * rowBytes));
  const std::vector<unsigned char> head = bitmap.headers(true), tail = bitmap.trailer();
  writeFile(path, [&](std::ostream& stream) {
    Writer to(stream);
    to.put(head.data(), head.size());
    for (std::ptrdiff_t left = buffer.height(); left > 0;) {
      const std::ptrdiff_t rows = storeRows(buffer, rowBytes, left, piece.get(), most);
      to.put(piece.get(), static_cast<std::size_t>(rows * rowBytes));
      left -= rows;
    }
    to.put(tail.data(), tail.size());
    to.flush();
  });
}

void qcDIB::writePelBuffer(const std::wstring& path, const qcPelBuffer_const<unsigned char>& buffer) {
  writeWindow(path, buffer);
}
void qcDIB::writePelBuffer(const std::wstring& path, const qcPelBuffer_const<qcPackedRGB16Pel>& buffer) {
  writeWindow(path, buffer);
}
void qcDIB::writePelBuffer(const std::wstring& path, const qcPelBuffer_const<qcPackedRGB32Pel>& buffer) {
  writeWindow(path, buffer);
}

std::size_t qcDIB::clipboardDibSize() const {
  checkData();
  return format_.imageBytes() + dib::kInfoHeaderBytes + dib::kTrailerBytes + 4 * format_.colours.size();
}

void qcDIB::renderClipboardDib(unsigned char* destination) const { write(destination, 0); }
