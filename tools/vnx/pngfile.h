// Images as PNG files in memory.
#pragma once

#include <string>
#include <vector>

#include <vnxstd/pelbuf/buffer.h>

/// What is said of an image that is not drawn for its size.
inline constexpr const char* kNotDrawable = "no pixels, or too many";
/// Whether an image of this size has pixels, and no more rows or columns than PNG files are made of.
bool hasPng(long width, long height);

/// The bytes of a PNG file of 8-bit grey, or of colour. Throws std::runtime_error for an image that has none, and when
/// it cannot be encoded.
std::string pngOf(const qcPelBuffer_const<unsigned char>& image);
std::string pngOf(const qcPelBuffer_const<qcPackedRGB32Pel>& image);

/// The same bytes in base 64, as a data URI takes them.
std::string base64(const std::string& bytes);
