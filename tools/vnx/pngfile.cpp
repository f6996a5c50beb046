#include "pngfile.h"

#include <png.h>

#include <cstdint>
#include <stdexcept>

namespace {

// `pels` are rows without gaps.
std::string encoded(const std::vector<unsigned char>& pels, long width, long height, png_uint_32 format) {
  png_image header{};
  header.version = PNG_IMAGE_VERSION;
  header.width = static_cast<png_uint_32>(width);
  header.height = static_cast<png_uint_32>(height);
  header.format = format;
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(header);
  std::string bytes(size, '\0');
  if (pels.empty() || png_image_write_to_memory(&header, bytes.data(), &size, 0, pels.data(), 0, nullptr) == 0)
    throw std::runtime_error(std::string("an image cannot be encoded as PNG: ") +
                             (pels.empty() ? "it has no pixels" : header.message));
  bytes.resize(size);
  return bytes;
}

}  // namespace

bool hasPng(long width, long height) {
  constexpr long kMost = 1'000'000;  // of libpng, unless it is told otherwise
  return width > 0 && height > 0 && width <= kMost && height <= kMost;
}

std::string pngOf(const qcPelBuffer_const<unsigned char>& image) {
  std::vector<unsigned char> pels;
  const qcPelRect window = image.window();
  for (long y = window.y0(); image.width() > 0 && y < window.y1(); ++y) {
    const unsigned char* row = image.pointToRow(y);
    pels.insert(pels.end(), row, row + image.width());
  }
  return encoded(pels, image.width(), image.height(), PNG_FORMAT_GRAY);
}

std::string pngOf(const qcPelBuffer_const<qcPackedRGB32Pel>& image) {
  std::vector<unsigned char> pels;
  const qcPelRect window = image.window();
  for (long y = window.y0(); image.width() > 0 && y < window.y1(); ++y) {
    const qcPackedRGB32Pel* row = image.pointToRow(y);
    for (long x = 0; x < image.width(); ++x) pels.insert(pels.end(), {row[x].r(), row[x].g(), row[x].b()});
  }
  return encoded(pels, image.width(), image.height(), PNG_FORMAT_RGB);
}

std::string base64(const std::string& bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const auto byte = [&](std::size_t k) {
      return k < bytes.size() ? static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[k])) : 0U;
    };
    const std::uint32_t three = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
    for (const unsigned shift : {18U, 12U, 6U, 0U}) text += kDigits[three >> shift & 63];
  }
  for (std::size_t padding = (3 - bytes.size() % 3) % 3, i = 1; i <= padding; ++i) text[text.size() - i] = '=';
  return text;
}
