#include "vnxstd/archive/text.h"

#include <cstdint>

#include "vnxstd/except/exception.h"

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kLargest = 0x10FFFF;

bool isSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }
bool isScalar(char32_t c) { return c <= kLargest && !isSurrogate(c); }

// What to do with text that is malformed.
char32_t refuse() { throw qcBadUnicodeChar(); }
char32_t replace() { return kReplacement; }

// Decoders: each takes one code point off the front of `text`, at least one unit and, of a malformed sequence, its
// longest prefix that a valid one could begin with.

template <char32_t (*malformed)()>
char32_t next(std::string_view& text) {
  const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) {
    text.remove_prefix(1);
    return lead;
  }
  // Length, and the range of the second byte, which excludes overlong forms, surrogates and what lies beyond U+10FFFF.
  std::size_t length = 0;
  unsigned char low = 0x80, high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  }
  char32_t value = lead & (0xFFU >> (length + 1));
  std::size_t used = 1;
  for (; used < length && used < text.size() && byte(used) >= low && byte(used) <= high; ++used) {
    value = (value << 6) | (byte(used) & 0x3FU);
    low = 0x80;
    high = 0xBF;
  }
  text.remove_prefix(used);
  return length != 0 && used == length ? value : malformed();
}

template <char32_t (*malformed)()>
char32_t next(std::u16string_view& text) {
  const char32_t unit = text[0];
  text.remove_prefix(1);
  if (!isSurrogate(unit)) return unit;
  if (unit >= 0xDC00 || text.empty() || text[0] < 0xDC00 || text[0] > 0xDFFF) return malformed();
  const char32_t low = text[0];
  text.remove_prefix(1);
  return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
}

template <char32_t (*malformed)()>
char32_t next(std::u32string_view& text) {
  const char32_t value = text[0];
  text.remove_prefix(1);
  return isScalar(value) ? value : malformed();
}

// Wide characters are UTF-32 on some platforms and UTF-16 on others.
template <char32_t (*malformed)()>
char32_t next(std::wstring_view& text) {
  if constexpr (sizeof(wchar_t) == sizeof(char32_t)) {
    const auto value = static_cast<char32_t>(text[0]);
    text.remove_prefix(1);
    return isScalar(value) ? value : malformed();
  } else {
    const char16_t units[2] = {static_cast<char16_t>(text[0]), static_cast<char16_t>(text.size() > 1 ? text[1] : 0)};
    std::u16string_view pair(units, text.size() > 1 ? 2 : 1);
    const std::size_t before = pair.size();
    const char32_t value = next<malformed>(pair);
    text.remove_prefix(before - pair.size());
    return value;
  }
}

// Encoders: each appends one valid code point.

void append(std::string& text, char32_t c) {
  const auto tail = [&](int shift) { text.push_back(static_cast<char>(0x80 | ((c >> shift) & 0x3F))); };
  if (c < 0x80) {
    text.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    text.push_back(static_cast<char>(0xC0 | (c >> 6)));
    tail(0);
  } else if (c < 0x10000) {
    text.push_back(static_cast<char>(0xE0 | (c >> 12)));
    tail(6);
    tail(0);
  } else {
    text.push_back(static_cast<char>(0xF0 | (c >> 18)));
    tail(12);
    tail(6);
    tail(0);
  }
}

template <class Text>
void appendUtf16(Text& text, char32_t c) {
  using Unit = typename Text::value_type;
  if (c < 0x10000) {
    text.push_back(static_cast<Unit>(c));
  } else {
    text.push_back(static_cast<Unit>(0xD800 + ((c - 0x10000) >> 10)));
    text.push_back(static_cast<Unit>(0xDC00 + ((c - 0x10000) & 0x3FF)));
  }
}

void append(std::u16string& text, char32_t c) { appendUtf16(text, c); }
void append(std::u32string& text, char32_t c) { text.push_back(c); }
void append(std::wstring& text, char32_t c) {
  if constexpr (sizeof(wchar_t) == sizeof(char32_t)) {
    text.push_back(static_cast<wchar_t>(c));
  } else {
    appendUtf16(text, c);
  }
}

template <class To, char32_t (*malformed)(), class View>
To convert(View text) {
  To result;
  result.reserve(text.size());
  while (!text.empty()) append(result, next<malformed>(text));
  return result;
}

}  // namespace

std::wstring qf_Widen(std::string_view narrow) { return convert<std::wstring, refuse>(narrow); }
std::wstring qf_WidenLossy(std::string_view narrow) { return convert<std::wstring, replace>(narrow); }
std::string qf_Narrow(std::wstring_view wide) { return convert<std::string, refuse>(wide); }
std::string qf_NarrowLossy(std::wstring_view wide) { return convert<std::string, replace>(wide); }

std::u16string qf_Utf16FromWide(std::wstring_view wide) { return convert<std::u16string, refuse>(wide); }
std::wstring qf_WideFromUtf16(std::u16string_view text) { return convert<std::wstring, refuse>(text); }
std::u16string qf_Utf16FromUtf32(std::u32string_view text) { return convert<std::u16string, refuse>(text); }
std::u32string qf_Utf32FromUtf16(std::u16string_view text) { return convert<std::u32string, refuse>(text); }
std::string qf_NarrowFromUtf16(std::u16string_view text) { return convert<std::string, refuse>(text); }
std::u32string qf_Utf32FromNarrow(std::string_view narrow) { return convert<std::u32string, refuse>(narrow); }
