#include "std/archive/byteswap.h"

#include <cstdint>
#include <cstring>

namespace {

template <class Word>
void copySwapped(char* to, const char* from, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    Word word;
    std::memcpy(&word, from + i * sizeof(Word), sizeof(Word));
    qf_Reverse(word);
    std::memcpy(to + i * sizeof(Word), &word, sizeof(Word));
  }
}

}  // namespace

void qf_CopySwapped(void* to, const void* from, std::size_t count, unsigned size) noexcept {
  auto* out = static_cast<char*>(to);
  const auto* in = static_cast<const char*>(from);
  switch (size) {
    case 2:
      return copySwapped<std::uint16_t>(out, in, count);
    case 4:
      return copySwapped<std::uint32_t>(out, in, count);
    default:
      return copySwapped<std::uint64_t>(out, in, count);
  }
}
