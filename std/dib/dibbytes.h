// The bytes of bitmap headers: little-endian fields, and the sizes and signatures that reading and writing share.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace dib {

constexpr std::uint32_t kFileHeaderBytes = 14;
constexpr std::uint32_t kInfoHeaderBytes = 40;
constexpr std::uint32_t kTrailerBytes = 20;
constexpr std::array<unsigned char, 8> kTrailerSignature = {0xF2, 0x73, 0xAD, 0x11, 0, 0, 0, 0};

constexpr std::int32_t kUncompressed = 0, kBitFields = 3;

inline std::uint16_t get16(const unsigned char* p) { return static_cast<std::uint16_t>(p[0] | p[1] << 8); }
inline std::uint32_t get32(const unsigned char* p) {
  return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
         static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}
inline std::int32_t getSigned32(const unsigned char* p) { return static_cast<std::int32_t>(get32(p)); }

inline void put16(std::vector<unsigned char>& bytes, std::uint32_t value) {
  bytes.push_back(static_cast<unsigned char>(value & 255));
  bytes.push_back(static_cast<unsigned char>(value >> 8 & 255));
}
inline void put32(std::vector<unsigned char>& bytes, std::uint32_t value) {
  put16(bytes, value & 0xFFFF);
  put16(bytes, value >> 16);
}
inline void putSigned32(std::vector<unsigned char>& bytes, std::int32_t value) {
  put32(bytes, static_cast<std::uint32_t>(value));
}

}  // namespace dib
