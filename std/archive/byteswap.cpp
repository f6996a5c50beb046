#include "std/archive/byteswap.h"

#include <cstring>

namespace {

template <class Word>
[[gnu::always_inline]] inline void copySwapped(char* to, const char* from, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    Word word;
    std::memcpy(&word, from + i * sizeof(Word), sizeof(Word));
    qf_Reverse(word);
    std::memcpy(to + i * sizeof(Word), &word, sizeof(Word));
  }
}

[[gnu::always_inline]] inline void copySwapped(void* to, const void* from, std::size_t count, unsigned size) {
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

// The same loop for each instruction set: byte shuffles of 16 or 32 bytes where there are any.

void copyPlain(void* to, const void* from, std::size_t count, unsigned size) { copySwapped(to, from, count, size); }

#if defined(__x86_64__) || defined(__i386__)

[[gnu::target("ssse3")]] void copySsse3(void* to, const void* from, std::size_t count, unsigned size) {
  copySwapped(to, from, count, size);
}

[[gnu::target("avx2")]] void copyAvx2(void* to, const void* from, std::size_t count, unsigned size) {
  copySwapped(to, from, count, size);
}

auto chosen() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") ? copyAvx2 : __builtin_cpu_supports("ssse3") ? copySsse3 : copyPlain;
}

#else

auto chosen() { return copyPlain; }

#endif

}  // namespace

void qf_CopySwapped(void* to, const void* from, std::size_t count, unsigned size) noexcept {
  static const auto copy = chosen();
  copy(to, from, count, size);
}
