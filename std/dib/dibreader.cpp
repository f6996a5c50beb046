#include "std/dib/dibreader.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <streambuf>

namespace {

constexpr const wchar_t* kReadFailed = L"Read pixel data failed";
constexpr const wchar_t* kBadSize = L"Bad image size";
constexpr const wchar_t* kBadCompression = L"Unsupported compression format";

constexpr std::uint32_t kLargestInfoHeader = 124;
constexpr std::uint16_t kBitCounts[] = {1, 4, 8, 16, 24, 32};

bool isKnownInfoHeader(std::uint32_t bytes) {
  return bytes == dib::kInfoHeaderBytes || bytes == 52 || bytes == 56 || bytes == 108 || bytes == kLargestInfoHeader;
}

std::string bytesText(std::int64_t count) { return std::to_string(count) + (count == 1 ? " byte" : " bytes"); }

bool isContiguous(std::uint32_t mask) {
  return mask == 0 || (std::countl_zero(mask) + std::popcount(mask) + std::countr_zero(mask) == 32);
}

}  // namespace

void qc_DIBReader::locate(qcException& error, std::int64_t position, const std::string& expected,
                          const std::string& found) {
  qcLoadContext context;
  context.position = position;
  context.expected = expected;
  context.found = found;
  error.loadContext_ = std::make_shared<const qcLoadContext>(std::move(context));
}

template <class E>
void qc_DIBReader::refuse(const wchar_t* text, std::int64_t position, const std::string& expected,
                          const std::string& found) {
  E error(text);
  locate(error, position, expected, found);
  throw error;
}

template <class E>
void qc_DIBReader::refuse(const wchar_t* text, std::int64_t position, const std::string& expected, std::int64_t found) {
  refuse<E>(text, position, expected, std::to_string(found));
}

void qcDIB::Format::layOutRows() {
  const auto pels = static_cast<std::uint64_t>(width);
  std::uint64_t bytes = pels * (bitCount / 8U);
  if (bitCount == 1) bytes = (pels + 7) / 8;
  if (bitCount == 4) bytes = (pels + 7) / 8 * 4;
  bytes = (bytes + 3) / 4 * 4;
  // The size of the whole file has a field of 32 bits.
  constexpr std::uint64_t kLargestHeaders = 2048, kLargestFile = std::numeric_limits<std::uint32_t>::max();
  if (bytes > (kLargestFile - kLargestHeaders) / static_cast<std::uint64_t>(height)) throw BadFormat(kBadSize);
  if (bytes > static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max())) throw BadFormat(kBadSize);
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

void qc_DIBReader::requireBytes(std::int64_t count) const {
  const std::int64_t left = end_ - position_;
  if (left < count) refuse<qcDIB::ReadError>(kReadFailed, position_, bytesText(count), left);
}

void qc_DIBReader::read(unsigned char* to, std::size_t count) {
  requireBytes(static_cast<std::int64_t>(count));
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

void qc_DIBReader::skipTo(std::int64_t position) {
  requireBytes(position - position_);
  seek(position);
}

void qc_DIBReader::headers() {
  std::uint32_t pixelOffset = 0;
  if (fileHeader_) {
    unsigned char header[dib::kFileHeaderBytes];
    read(header, 2);
    if (header[0] != 'B' || header[1] != 'M') {
      refuse<qcDIB::BadFormat>(L"Bad File Type", 2, "the bytes 66 and 77",
                               std::to_string(header[0]) + " and " + std::to_string(header[1]));
    }
    read(header + 2, dib::kFileHeaderBytes - 2);
    pixelOffset = dib::get32(header + 10);
  }
  infoHeader();
  if (fileHeader_) skipTo(pixelOffset);
  // Nothing is taken on trust: the rows are there before memory is taken for them.
  requireBytes(static_cast<std::int64_t>(format_.imageBytes()));
}

void qc_DIBReader::infoHeader() {
  unsigned char info[kLargestInfoHeader];
  read(info, 4);
  const std::uint32_t infoBytes = dib::get32(info);
  if (!isKnownInfoHeader(infoBytes)) {
    refuse<qcDIB::BadFormat>(
        infoBytes == 12 ? L"OS/2 Presentation Manager format unsupported" : L"Unsupported header size", position_,
        "a header of 40, 52, 56, 108 or 124 bytes", infoBytes);
  }
  read(info + 4, infoBytes - 4);

  format_.width = dib::getSigned32(info + 4);
  format_.height = dib::getSigned32(info + 8);
  if (format_.width < 1) refuse<qcDIB::BadFormat>(kBadSize, infoStart() + 8, "a width from 1 on", format_.width);
  if (format_.height == 0 || format_.height == std::numeric_limits<std::int32_t>::min())
    refuse<qcDIB::BadFormat>(kBadSize, infoStart() + 12, "a height other than 0 and -2^31", format_.height);
  format_.topDown = format_.height < 0;
  if (format_.topDown) format_.height = -format_.height;
  format_.bitCount = dib::get16(info + 14);
  format_.compression = dib::getSigned32(info + 16);
  if (format_.compression != dib::kUncompressed && format_.compression != dib::kBitFields)
    refuse<qcDIB::BadFormat>(kBadCompression, infoStart() + 20, "0 or 3", format_.compression);
  format_.xResolution = dib::getSigned32(info + 24);
  format_.yResolution = dib::getSigned32(info + 28);
  if (std::ranges::count(kBitCounts, format_.bitCount) == 0)
    refuse<qcDIB::BadFormat>(L"Unsupported bit count", infoStart() + 16, "1, 4, 8, 16, 24 or 32 bits",
                             format_.bitCount);
  try {
    format_.layOutRows();
  } catch (qcDIB::BadFormat& error) {
    locate(error, infoStart() + 16, "rows below 2 GiB in a file below 4 GiB",
           std::to_string(format_.width) + " x " + std::to_string(format_.height) + " pels");
    throw;
  }
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
  if (format_.bitCount != 16 && format_.bitCount != 32)
    refuse<qcDIB::BadFormat>(kBadCompression, infoStart() + 20, "0 for such pels", format_.compression);
  unsigned char behind[12];
  const unsigned char* fields = info + dib::kInfoHeaderBytes;
  if (infoBytes == dib::kInfoHeaderBytes) {
    read(behind, sizeof behind);
    fields = behind;
  }
  for (std::size_t c = 0; c < 3; ++c) masks[c] = dib::get32(fields + 4 * c);
  masks[3] = infoBytes >= 56 ? dib::get32(info + 52) : 0;
  std::uint32_t taken = format_.bitCount == 16 ? 0xFFFF0000U : 0;
  for (std::size_t c = 0; c < masks.size(); ++c) {
    if (!isContiguous(masks[c]) || (masks[c] & taken) != 0) {
      refuse<qcDIB::BadFormat>(L"Bad colour masks", infoStart() + dib::kInfoHeaderBytes + 4 * (std::int64_t(c) + 1),
                               "a mask of adjacent bits of the pel that no other has", masks[c]);
    }
    taken |= masks[c];
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
  if (!fileHeader_ && used > present) skipTo(position_ + std::int64_t{used - present} * 4);
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

qcDIB::Placement qc_DIBReader::usableTrailer() {
  const qcDIB::Placement placement = trailer();
  try {
    placement.check(format_);
  } catch (qcDIB::BadFormat& error) {
    locate(error, position_, "offsets that leave room for the image below 2^31",
           std::to_string(placement.xOffset) + " and " + std::to_string(placement.yOffset));
    throw;
  }
  return placement;
}
