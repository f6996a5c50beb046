// Texts in archives.
#include <array>
#include <bit>

#include "std/archive/areas.h"
#include "std/archive/byteswap.h"
#include "std/archive/format.h"
#include "std/archive/observed.h"
#include "vnxstd/archive/archive.h"
#include "vnxstd/archive/text.h"

using namespace qc_format;

namespace {

void assign(std::string& text, std::string&& narrow) { text = std::move(narrow); }
void assign(std::string& text, std::string_view narrow) { text = narrow; }
void assign(std::wstring& text, std::string_view narrow) { text = qf_Widen(narrow); }
void assign(std::u32string& text, std::string_view narrow) { text = qf_Utf32FromNarrow(narrow); }
void assign(std::string& text, std::u16string_view wide) { text = qf_NarrowFromUtf16(wide); }
void assign(std::wstring& text, std::u16string_view wide) { text = qf_WideFromUtf16(wide); }
void assign(std::u32string& text, std::u16string_view wide) { text = qf_Utf32FromUtf16(wide); }

const std::string& narrowOf(const std::string& text) { return text; }
std::string narrowOf(const std::wstring& text) { return qf_NarrowLossy(text); }
std::string narrowOf(const std::u32string& text) { return qf_NarrowFromUtf16(qf_Utf16FromUtf32(text)); }

}  // namespace

std::size_t qcArchive::readPrefix() {
  unsigned char first = 0, second = 0;
  *this || first;
  if (first < kLongPrefix) return first;
  *this || second;
  return (static_cast<std::size_t>(first & ~kLongPrefix) << 8) | second;
}

void qcArchive::writePrefix(std::size_t length) {
  if (length > kLongestText) throw BadContent(kArchiveSource, kTextTooLongLine);
  unsigned char bytes[2] = {static_cast<unsigned char>(length), 0};
  std::size_t count = 1;
  if (length >= kLongPrefix) {
    bytes[0] = static_cast<unsigned char>((length >> 8) | kLongPrefix);
    bytes[1] = static_cast<unsigned char>(length);
    count = 2;
  }
  qf_WriteBytes(*buffer_, bytes, count, kWriteTextLine);
}

template <class Text>
void qcArchive::readText(Text& text) try {
  if (observed([&] { readText(text); }, [&](auto& observer, auto span) { observer.text(span, narrowOf(text)); }))
    return;
  if (const auto ready = qc_Areas::takeText(*this)) return assign(text, *ready);
  // The length has 15 bits, so that a text that never arrives costs no more than 64 KiB, and next to nothing where the
  // medium can tell.
  const std::size_t length = readPrefix();
  countElements(length);
  const auto refuse = [this](std::size_t size, std::size_t got, std::size_t readSince) {
    BadBuffer error(kArchiveSource, kTextPayloadLine);
    explain(error, std::to_string(size) + " bytes of text", std::to_string(got), qcLoadContext::Limit::none,
            static_cast<std::streamoff>(readSince));
    throw error;
  };
  const auto expectPayload = [&](std::size_t size) {
    constexpr std::size_t kBelieved = 1024;
    const qcInt64 left = size > kBelieved ? remaining() : -1;
    if (left >= 0 && left < static_cast<qcInt64>(size)) refuse(size, static_cast<std::size_t>(left), 0);
  };
  const auto readPayload = [&](void* data, std::size_t size) {
    const std::size_t got = qc_Areas::read(*buffer_, data, size);
    if (got < size) refuse(size, got, got);
  };
  std::array<unsigned char, 2> mark{}, closing{};
  *this || mark[0];
  if (mark[0] == kQuote) {
    expectPayload(length);
    std::string narrow(length, '\0');
    readPayload(narrow.data(), length);
    *this || closing[0];
    if (closing[0] != kQuote)
      throw located(BadType(kArchiveSource, kTextCloseLine), "a closing quote", qf_Hex({closing.data(), 1}));
    return assign(text, std::move(narrow));
  }
  *this || mark[1];
  if (mark != kLittleMark && mark != kBigMark) {
    throw located(BadType(kArchiveSource, kTextMarkLine), "a quote or byte order mark", qf_Hex(mark));
  }
  expectPayload(length * sizeof(char16_t));
  std::u16string wide(length, u'\0');
  readPayload(wide.data(), length * sizeof(char16_t));
  if ((mark == kLittleMark) != (std::endian::native == std::endian::little)) {
    for (char16_t& unit : wide) unit = static_cast<char16_t>((unit << 8) | (unit >> 8));
  }
  readPayload(closing.data(), closing.size());
  if (closing != mark) {
    throw located(BadType(kArchiveSource, kTextCloseLine), "the byte order mark " + qf_Hex(mark), qf_Hex(closing));
  }
  assign(text, wide);
} catch (qcException& error) {  // those of conversions, and of the medium
  explain(error);
  throw;
}

void qcArchive::writeWideText(std::u16string_view text) {
  writePrefix(text.size());
  qf_WriteBytes(*buffer_, kLittleMark.data(), kLittleMark.size(), kWriteTextLine);
  if constexpr (std::endian::native == std::endian::little) {
    qf_WriteBytes(*buffer_, text.data(), text.size() * sizeof(char16_t), kWriteTextLine);
  } else {
    std::u16string swapped(text.size(), u'\0');
    qf_CopySwapped(swapped.data(), text.data(), text.size(), sizeof(char16_t));
    qf_WriteBytes(*buffer_, swapped.data(), swapped.size() * sizeof(char16_t), kWriteTextLine);
  }
  qf_WriteBytes(*buffer_, kLittleMark.data(), kLittleMark.size(), kWriteTextLine);
}

qcArchive& qcArchive::operator||(std::string& value) {
  if (isLoading()) {
    readText(value);
  } else {
    writePrefix(value.size());
    qf_WriteBytes(*buffer_, &kQuote, 1, kWriteTextLine);
    qf_WriteBytes(*buffer_, value.data(), value.size(), kWriteTextLine);
    qf_WriteBytes(*buffer_, &kQuote, 1, kWriteTextLine);
  }
  return *this;
}

qcArchive& qcArchive::operator||(std::wstring& value) {
  if (isLoading()) {
    readText(value);
  } else {
    writeWideText(qf_Utf16FromWide(value));
  }
  return *this;
}

qcArchive& qcArchive::operator||(std::u32string& value) {
  if (isLoading()) {
    readText(value);
  } else {
    writeWideText(qf_Utf16FromUtf32(value));
  }
  return *this;
}
