#include "std/dib/dibreader.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <streambuf>

#include "std/dib/dibbytes.h"

namespace {

constexpr const wchar_t* kReadFailed = L"Read pixel data failed";

constexpr std::uint32_t kLargestInfoHeader = 124;

bool isKnownInfoHeader(std::uint32_t bytes) {
  return bytes == dib::kInfoHeaderBytes || bytes == 52 || bytes == 56 || bytes == 108 || bytes == kLargestInfoHeader;
}

bool isContiguous(std::uint32_t mask) {
  return mask == 0 || (std::countl_zero(mask) + std::popcount(mask) + std::countr_zero(mask) == 32);
}

}  // namespace

void qcDIB::Format::layOutRows() {
  const auto pels = static_cast<std::uint64_t>(width);
  std::uint64_t bytes = 0;
  switch (bitCount) {
    case 1:
      bytes = (pels + 7) / 8;
      break;
    case 4:
      bytes = (pels + 7) / 8 * 4;
      break;
    case 8:
    case 16:
    case 24:
    case 32:
      bytes = pels * (bitCount / 8U);
      break;
    default:
      throw BadFormat(L"Unsupported bit count");
  }
  bytes = (bytes + 3) / 4 * 4;
  // The size of the whole file has a field of 32 bits.
  constexpr std::uint64_t kLargestHeaders = 2048, kLargestFile = std::numeric_limits<std::uint32_t>::max();
  if (bytes > (kLargestFile - kLargestHeaders) / static_cast<std::uint64_t>(height)) throw BadFormat(L"Bad image size");
  if (bytes > static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max())) throw BadFormat(L"Bad image size");
  rowBytes = static_cast<std::int32_t>(bytes);
}

qc_DIBReader::qc_DIBReader(std::istream& stream, bool fileHeader, std::int64_t available)
    : buffer_(stream.rdbuf()), fileHeader_(fileHeader), end_(available) {
  if (!buffer_ || stream.fail()) throw qcDIB::ReadError(kReadFailed);
  if (available >= 0) return;
  try {
    end_ = buffer_->pubseekoff(0, std::ios_base::end, std::ios_base::in);
  } catch (const std::ios_base::failure&) {
    end_ = -1;
  }
  if (end_ < 0) throw qcDIB::ReadError(kReadFailed);
  seek(0);
}

void qc_DIBReader::read(unsigned char* to, std::size_t count) {
  if (end_ - position_ < static_cast<std::int64_t>(count)) throw qcDIB::ReadError(kReadFailed);
  std::streamsize got = 0;
  try {
    got = buffer_->sgetn(reinterpret_cast<char*>(to), static_cast<std::streamsize>(count));
  } catch (const std::ios_base::failure&) {
    got = -1;
  }
  if (got != static_cast<std::streamsize>(count)) throw qcDIB::ReadError(kReadFailed);
  position_ += got;
}

void qc_DIBReader::seek(std::int64_t position) {
  std::streamoff reached = -1;
  try {
    reached = buffer_->pubseekpos(position, std::ios_base::in);
  } catch (const std::ios_base::failure&) {
    reached = -1;
  }
  if (reached != position) throw qcDIB::ReadError(kReadFailed);
  position_ = position;
}

void qc_DIBReader::headers() {
  std::uint32_t pixelOffset = 0;
  if (fileHeader_) {
    unsigned char header[dib::kFileHeaderBytes];
    read(header, 2);
    if (header[0] != 'B' || header[1] != 'M') throw qcDIB::BadFormat(L"Bad File Type");
    read(header + 2, dib::kFileHeaderBytes - 2);
    pixelOffset = dib::get32(header + 10);
  }
  infoHeader();
  if (fileHeader_) {
    if (pixelOffset > end_) throw qcDIB::ReadError(kReadFailed);
    seek(pixelOffset);
  }
  // Nothing is taken on trust: the rows are there before memory is taken for them.
  if (static_cast<std::uint64_t>(end_ - position_) / static_cast<std::uint64_t>(format_.rowBytes) <
      static_cast<std::uint64_t>(format_.height))
    throw qcDIB::ReadError(kReadFailed);
}

void qc_DIBReader::infoHeader() {
  unsigned char info[kLargestInfoHeader];
  read(info, 4);
  const std::uint32_t infoBytes = dib::get32(info);
  if (infoBytes == 12) throw qcDIB::BadFormat(L"OS/2 Presentation Manager format unsupported");
  if (!isKnownInfoHeader(infoBytes)) throw qcDIB::BadFormat(L"Unsupported header size");
  read(info + 4, infoBytes - 4);

  format_.width = dib::getSigned32(info + 4);
  format_.height = dib::getSigned32(info + 8);
  if (format_.width < 1 || format_.height == 0 || format_.height == std::numeric_limits<std::int32_t>::min())
    throw qcDIB::BadFormat(L"Bad image size");
  format_.topDown = format_.height < 0;
  if (format_.topDown) format_.height = -format_.height;
  format_.bitCount = dib::get16(info + 14);
  format_.compression = dib::getSigned32(info + 16);
  if (format_.compression != dib::kUncompressed && format_.compression != dib::kBitFields)
    throw qcDIB::BadFormat(L"Unsupported compression format");
  format_.xResolution = dib::getSigned32(info + 24);
  format_.yResolution = dib::getSigned32(info + 28);
  format_.layOutRows();
  masks(info, infoBytes);
  colourTable(dib::get32(info + 32));
}

// Bit fields stand in the header where it has room for them, behind it where it has not.
void qc_DIBReader::masks(const unsigned char* info, std::uint32_t infoBytes) {
  auto& masks = format_.masks;
  if (format_.compression == dib::kUncompressed) {
    if (format_.bitCount == 16) masks = {0x7C00, 0x03E0, 0x001F, 0};
    if (format_.bitCount == 32) masks = {0xFF0000, 0xFF00, 0xFF, 0xFF000000};
    return;
  }
  if (format_.bitCount != 16 && format_.bitCount != 32) throw qcDIB::BadFormat(L"Unsupported compression format");
  unsigned char behind[12];
  const unsigned char* fields = info + dib::kInfoHeaderBytes;
  if (infoBytes == dib::kInfoHeaderBytes) {
    read(behind, sizeof behind);
    fields = behind;
  }
  for (std::size_t c = 0; c < 3; ++c) masks[c] = dib::get32(fields + 4 * c);
  masks[3] = infoBytes >= 56 ? dib::get32(info + 52) : 0;
  std::uint32_t taken = format_.bitCount == 16 ? 0xFFFF0000U : 0;
  for (const std::uint32_t mask : masks) {
    if (!isContiguous(mask) || (mask & taken) != 0) throw qcDIB::BadFormat(L"Bad colour masks");
    taken |= mask;
  }
}

void qc_DIBReader::colourTable(std::uint32_t used) {
  const std::uint32_t full = format_.bitCount <= 8 ? 1U << format_.bitCount : 0;
  const std::uint32_t present = used == 0 ? full : std::min(used, full);
  format_.colours.assign(full, {});
  for (std::uint32_t i = 0; i < present; ++i) {
    unsigned char entry[4];
    read(entry, 4);
    format_.colours[i] = {entry[0], entry[1], entry[2]};
  }
  // Without a file header the rows begin right behind the whole table.
  if (!fileHeader_ && used > present) {
    const std::int64_t rows = position_ + std::int64_t{used - present} * 4;
    if (rows > end_) throw qcDIB::ReadError(kReadFailed);
    seek(rows);
  }
}

void qc_DIBReader::pixels(unsigned char* to, std::size_t count) { read(to, count); }

qcDIB::Placement qc_DIBReader::trailer() {
  qcDIB::Placement placement;
  unsigned char bytes[dib::kTrailerBytes];
  if (end_ - position_ < static_cast<std::int64_t>(sizeof bytes)) return placement;
  read(bytes, sizeof bytes);
  if (!std::equal(dib::kTrailerSignature.begin(), dib::kTrailerSignature.end(), bytes)) return placement;
  placement.depth = dib::getSigned32(bytes + 8);
  placement.xOffset = dib::getSigned32(bytes + 12);
  placement.yOffset = dib::getSigned32(bytes + 16);
  return placement;
}
