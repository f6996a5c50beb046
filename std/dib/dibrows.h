// From rows as bitmaps store them to rows of pels.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "std/dib/dibbytes.h"
#include "vnxstd/dib/dib.h"

/// Converts the rows of one bitmap. Made once per image, so that everything that depends on the format alone is
/// decided before the first row.
class qc_DIBRows {
 public:
  explicit qc_DIBRows(const qcDIB::Format& format) : format_(format) {
    for (std::size_t c = 0; c < 4; ++c) {
      const std::uint32_t mask = format.masks[c];
      if (mask == 0) continue;
      shifts_[c] = std::countr_zero(mask);
      const int bits = std::popcount(mask);
      narrow_[c] = bits > 8 ? bits - 8 : 0;
      widen_[c] = bits < 8 ? 8 - bits : 0;
    }
  }

  /// The stored type of a buffer's pel from its components.
  template <class T>
  static qcStoredPel<T> pel(unsigned red, unsigned green, unsigned blue, unsigned alpha) {
    if constexpr (std::is_same_v<T, unsigned char>) {
      return static_cast<unsigned char>((299 * red + 587 * green + 114 * blue + 500) / 1000);
    } else if constexpr (std::is_same_v<T, qcPackedRGB16Pel>) {
      return qcPackedRGB16Pel(static_cast<unsigned char>(red), static_cast<unsigned char>(green),
                              static_cast<unsigned char>(blue));
    } else {
      return qcPackedRGB32Pel(static_cast<unsigned char>(red), static_cast<unsigned char>(green),
                              static_cast<unsigned char>(blue), static_cast<unsigned char>(alpha));
    }
  }

  /// Calls `convert(row, pels)` with a converter for this format; the choice is made once per image.
  template <class T, class Use>
  void with(Use use) const {
    using Pel = qcStoredPel<T>;
    const std::ptrdiff_t width = format_.width;
    if (format_.bitCount <= 8) {
      const std::array<Pel, 256> table = colours<T>();
      const unsigned bits = format_.bitCount;
      if constexpr (std::is_same_v<T, unsigned char>) {
        if (bits == 8 && isRamp(table)) {
          use([width](const unsigned char* row, Pel* pels) {
            std::memcpy(pels, row, static_cast<std::size_t>(width));
          });
          return;
        }
      }
      if (bits == 8) {
        use([&table, width](const unsigned char* row, Pel* pels) {
          for (std::ptrdiff_t x = 0; x < width; ++x) pels[x] = table[row[x]];
        });
        return;
      }
      // Pixels fill each byte from its high bits down.
      const int perByte = static_cast<int>(8 / bits);
      const unsigned mask = (1U << bits) - 1;
      use([&table, width, bits, perByte, mask](const unsigned char* row, Pel* pels) {
        for (std::ptrdiff_t x = 0; x < width; ++x)
          pels[x] = table[row[x / perByte] >> (8 - bits * static_cast<unsigned>(x % perByte + 1)) & mask];
      });
      return;
    }
    if (format_.bitCount == 24) {
      if constexpr (std::is_same_v<T, qcPackedRGB32Pel> && std::endian::native == std::endian::little) {
        use([width](const unsigned char* row, Pel* pels) { widen24(row, pels, width); });
        return;
      }
      use([width](const unsigned char* row, Pel* pels) {
        for (std::ptrdiff_t x = 0; x < width; ++x) pels[x] = pel<T>(row[3 * x + 2], row[3 * x + 1], row[3 * x], 255);
      });
      return;
    }
    if (format_.bitCount == 16) {
      use([this, width](const unsigned char* row, Pel* pels) {
        for (std::ptrdiff_t x = 0; x < width; ++x) pels[x] = fields<T>(dib::get16(row + 2 * x));
      });
      return;
    }
    if (isPlain32()) {
      use([width](const unsigned char* row, Pel* pels) {
        for (std::ptrdiff_t x = 0; x < width; ++x)
          pels[x] = pel<T>(row[4 * x + 2], row[4 * x + 1], row[4 * x], row[4 * x + 3]);
      });
      return;
    }
    use([this, width](const unsigned char* row, Pel* pels) {
      for (std::ptrdiff_t x = 0; x < width; ++x) pels[x] = fields<T>(dib::get32(row + 4 * x));
    });
  }

 private:
  template <class T>
  std::array<qcStoredPel<T>, 256> colours() const {
    std::array<qcStoredPel<T>, 256> table;
    table.fill(pel<T>(0, 0, 0, 255));
    for (std::size_t i = 0; i < format_.colours.size(); ++i)
      table[i] = pel<T>(format_.colours[i].red, format_.colours[i].green, format_.colours[i].blue, 255);
    return table;
  }

  static bool isRamp(const std::array<unsigned char, 256>& table) {
    for (unsigned i = 0; i < 256; ++i)
      if (table[i] != i) return false;
    return true;
  }

  // Four pels at a time as three words of the file; one by one takes three times as long.
  static void widen24(const unsigned char* row, qcPackedRGB32Pel* pels, std::ptrdiff_t width) {
    constexpr std::uint32_t kAlpha = 0xFF000000;
    std::ptrdiff_t x = 0;
    for (; x + 4 <= width; x += 4) {
      std::uint32_t w[3];
      std::memcpy(w, row + 3 * x, sizeof w);
      const std::uint32_t four[4] = {w[0] | kAlpha, w[0] >> 24 | w[1] << 8 | kAlpha, w[1] >> 16 | w[2] << 16 | kAlpha,
                                     w[2] >> 8 | kAlpha};
      std::memcpy(pels + x, four, sizeof four);
    }
    for (; x < width; ++x) pels[x] = pel<qcPackedRGB32Pel>(row[3 * x + 2], row[3 * x + 1], row[3 * x], 255);
  }

  bool isPlain32() const { return format_.masks == std::array<std::uint32_t, 4>{0xFF0000, 0xFF00, 0xFF, 0xFF000000}; }

  unsigned component(std::uint32_t word, std::size_t c) const {
    return (word & format_.masks[c]) >> shifts_[c] >> narrow_[c] << widen_[c];
  }
  template <class T>
  qcStoredPel<T> fields(std::uint32_t word) const {
    const unsigned alpha = format_.masks[3] == 0 ? 255 : component(word, 3);
    return pel<T>(component(word, 0), component(word, 1), component(word, 2), alpha);
  }

  const qcDIB::Format& format_;
  std::array<int, 4> shifts_{}, narrow_{}, widen_{};
};
