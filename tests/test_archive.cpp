// The byte format: numbers, texts, headers, vectors, objects by value, the page that documents it.

#include "support/archivable.h"
#include "support/bytes.h"
#include "support/faulty.h"
#include "support/test.h"
#include "vnxstd/archive/text.h"

namespace {

// Stores and loads one value in both orders and under every fault of the medium; `big` is written by hand.
template <class T>
void checkNumber(T value, const char* big) {
  const std::string wire = fromHex(big);
  SCOPED_TRACE(big);
  for (const auto ordering : kOrderings) {
    const std::string expected = ordering == kBig ? wire : reversed(wire);
    EXPECT_EQ(toHex(stored(ordering, false, value)), toHex(expected));
    T loaded{};
    *BytesArchive(headOf(ordering) + expected) || loaded;
    EXPECT_EQ(stored(kBig, false, loaded), wire);  // compares bits, NaN included
    for (std::size_t n = 0; n < wire.size(); ++n) {
      EXPECT_THROW(*BytesArchive(headOf(ordering) + expected.substr(0, n)) || loaded, qcArchive::Eof);
      FaultyBuffer full({}, {.writeLimit = 2 + n});
      StreamArchive archive(full, qcArchive::storing, ordering);
      EXPECT_THROW(archive << value, qcArchive::BadBuffer);
    }
    // Blocks are the same bytes, whatever the medium reads ahead.
    if constexpr (!std::is_same_v<T, long> && !std::is_same_v<T, unsigned long> && !std::is_same_v<T, bool>) {
      std::vector<T> many(3000, value), back(many.size());
      qcMemoryArchive block(ordering, false);
      block.block(many.data(), many.size());
      const std::string bytes = bytesOf(block);
      ASSERT_EQ(bytes.size(), 2 + many.size() * wire.size());
      EXPECT_EQ(bytes.substr(2, wire.size()), expected);
      EXPECT_EQ(bytes.substr(bytes.size() - wire.size()), expected);
      for (const std::size_t chunk : {1UL, 3UL, 1000UL, 100000UL}) {
        FaultyBuffer medium(bytes, {.chunk = chunk});
        StreamArchive archive(medium, qcArchive::loading);
        archive.block(back.data(), back.size());
        EXPECT_EQ(std::memcmp(back.data(), many.data(), many.size() * sizeof(T)), 0) << chunk;
      }
      FaultyBuffer medium;
      StreamArchive(medium, qcArchive::storing, ordering).block(many.data(), many.size());
      EXPECT_EQ(medium.data(), bytes);
    }
  }
}

TEST(Numbers, HaveTheBytesOfTheFormat) {
  checkNumber<unsigned char>(0xA5, "A5");
  checkNumber<signed char>(-2, "FE");
  checkNumber<char>('z', "7A");
  checkNumber<unsigned short>(0x1234, "12 34");
  checkNumber<short>(-2, "FF FE");
  checkNumber<unsigned int>(0x12345678, "12 34 56 78");
  checkNumber<int>(std::numeric_limits<int>::min(), "80 00 00 00");
  checkNumber<unsigned long>(0xFEDCBA98UL, "FE DC BA 98");
  checkNumber<long>(-2147483648L, "80 00 00 00");
  checkNumber<unsigned long long>(0x0123456789ABCDEFULL, "01 23 45 67 89 AB CD EF");
  checkNumber<long long>(-2, "FF FF FF FF FF FF FF FE");
  checkNumber<double>(1.0, "3F F0 00 00 00 00 00 00");
  checkNumber<double>(-std::numeric_limits<double>::infinity(), "FF F0 00 00 00 00 00 00");
  checkNumber<double>(std::numeric_limits<double>::quiet_NaN(), "7F F8 00 00 00 00 00 00");
  checkNumber<float>(-1.5F, "BF C0 00 00");
  checkNumber<bool>(true, "01");
  checkNumber<bool>(false, "00");
  bool flag = false;
  *BytesArchive(fromHex("02 00 80")) || flag;
  EXPECT_TRUE(flag);
}

TEST(Numbers, LongsThatDoNotFitAreRefusedBeforeAByteIsWritten) {
  if constexpr (sizeof(long) > 4) {
    for (const long long wide : {2147483648LL, -2147483649LL, std::numeric_limits<long long>::min()}) {
      const auto value = static_cast<long>(wide);
      qcMemoryArchive archive(kLittle, false);
      EXPECT_THROW(archive << value, qcArchive::BadContent);
      EXPECT_THROW(archive << static_cast<unsigned long>(wide | 0x100000000LL), qcArchive::BadContent);
      EXPECT_EQ(archive.bytes().size(), 2U);
    }
  }
}

// What a text is stored as is loaded again, whichever kind is asked for.
void checkText(const std::u32string& text, const std::string& prefix, const std::string& narrowWire,
               const std::string& wideWire) {
  const std::string narrow = prefix + '"' + narrowWire + '"';
  const std::string mark("\xFF\xFE", 2), bigMark("\xFE\xFF", 2);
  std::string swapped = wideWire;
  for (std::size_t i = 0; i < swapped.size(); i += 2) std::swap(swapped[i], swapped[i + 1]);
  const std::wstring wideText(text.begin(), text.end());
  for (const auto ordering : kOrderings) {  // which texts do not depend on
    EXPECT_EQ(stored(ordering, false, text), prefix + mark + wideWire + mark);
    EXPECT_EQ(stored(ordering, false, wideText), prefix + mark + wideWire + mark);
    EXPECT_EQ(stored(ordering, false, narrowWire), narrow);
    for (const std::string& wire : {narrow, prefix + mark + wideWire + mark, prefix + bigMark + swapped + bigMark}) {
      std::string n;
      std::wstring w;
      std::u32string u;
      *BytesArchive(headOf(ordering) + wire) || n;
      *BytesArchive(headOf(ordering) + wire) || w;
      *BytesArchive(headOf(ordering) + wire) || u;
      EXPECT_EQ(n, narrowWire);
      EXPECT_EQ(w, wideText);
      EXPECT_EQ(u, text);
    }
  }
}

TEST(Texts, HaveTheBytesOfTheFormat) {
  const std::pair<std::size_t, const char*> lengths[] = {{0, "00"},     {1, "01"},     {127, "7F"},
                                                         {128, "8080"}, {300, "812C"}, {32767, "FFFF"}};
  for (const auto& [length, prefix] : lengths) {
    SCOPED_TRACE(length);
    std::string narrow, wide;
    for (std::size_t i = 0; i < length; ++i) {
      narrow.push_back(static_cast<char>('!' + i % 90));
      wide += {narrow.back(), '\0'};
    }
    checkText(std::u32string(narrow.begin(), narrow.end()), fromHex(prefix), narrow, wide);
  }
  EXPECT_EQ(toHex(stored(kBig, false, std::string())), "002222");
  EXPECT_EQ(toHex(stored(kBig, false, std::wstring())), "00FFFEFFFE");
}

TEST(Texts, CountUtf16UnitsAndUtf8Bytes) {
  EXPECT_EQ(toHex(stored(kBig, false, std::wstring(L"h\U0001F600\u00E9"))), "04FFFE68003DD800DEE900FFFE");
  EXPECT_EQ(toHex(stored(kBig, false, std::string("h\xF0\x9F\x98\x80"))), "052268F09F988022");
  std::wstring wide;
  *BytesArchive(fromHex("02 00 05 22 68 F0 9F 98 80 22")) || wide;
  EXPECT_EQ(wide, L"h\U0001F600");
  std::string narrow;
  *BytesArchive(fromHex("02 00 03 FE FF D8 3D DE 00 00 41 FE FF")) || narrow;
  EXPECT_EQ(narrow, fromHex("F0 9F 98 80 41"));
  // Bytes that are no UTF-8 pass unchanged between narrow texts.
  EXPECT_EQ(toHex(stored(kBig, false, std::string("\xFF\x00\x80", 3))), "0322FF008022");
}

TEST(Texts, TooLongOrMalformedOnesAreRefusedBeforeAByteIsWritten) {
  qcMemoryArchive archive(kLittle, false);
  EXPECT_THROW(archive << std::string(32768, 'a'), qcArchive::BadContent);
  EXPECT_THROW(archive << std::wstring(32768, L'a'), qcArchive::BadContent);
  EXPECT_THROW(archive << std::u32string(16384, U'\U0001F600'), qcArchive::BadContent);
  EXPECT_THROW(archive << std::wstring{wchar_t(0xD800)}, qcBadUnicodeChar);
  EXPECT_THROW(archive << std::u32string{char32_t(0x110000)}, qcBadUnicodeChar);
  EXPECT_EQ(archive.bytes().size(), 2U);
}

template <class Error>
void expectTextErrors(const std::vector<const char*>& bytes, bool narrow = true) {
  const auto load = [&bytes](auto text) {
    for (const char* hex : bytes) {
      EXPECT_THROW(*BytesArchive(fromHex("02 01") + fromHex(hex)) || text, Error) << hex;
      EXPECT_EQ(text.size(), 1U) << "a failed load must not change the text";
    }
  };
  if (narrow) load(std::string(1, 'x'));
  load(std::wstring(1, L'x'));
  load(std::u32string(1, U'x'));
}

TEST(Texts, HaveAnErrorForEveryMismatch) {
  expectTextErrors<qcArchive::Eof>({"", "80", "01", "01 FF", "01 22 41"});
  expectTextErrors<qcArchive::BadBuffer>(
      {"02 22 41", "01 FF FE 41", "01 FF FE 41 00", "01 FF FE 41 00 FF", "FF FF 22 41 41"});
  expectTextErrors<qcArchive::BadType>({"01 23 41 22", "01 22 41 21", "01 22 41 FF", "01 FF FF 41 00 FF FF",
                                        "01 FE FE 00 41 FE FE", "01 FF FE 41 00 FE FF", "01 FE FF 00 41 FF FE",
                                        "00 FF FE FF FF"});
  expectTextErrors<qcBadUnicodeChar>({"01 FF FE 00 D8 FF FE", "01 FF FE 00 DC FF FE", "02 FF FE 00 D8 41 00 FF FE"});
  expectTextErrors<qcBadUnicodeChar>({"01 22 80 22", "02 22 C3 41 22"}, false);  // narrow texts may be any bytes
}

TEST(TextConversions, ReplaceOneCharacterPerBrokenPrefix) {
  // Broken sequences and what a lenient reader makes of them, as the Unicode standard recommends.
  const std::pair<const char*, const wchar_t*> cases[] = {
      {"41 C0 AF 42", L"A\uFFFD\uFFFDB"},            // overlong
      {"E0 80 AF", L"\uFFFD\uFFFD\uFFFD"},           // overlong
      {"F0 9F 98 41", L"\uFFFDA"},                   // cut short
      {"ED A0 80", L"\uFFFD\uFFFD\uFFFD"},           // a surrogate
      {"F4 90 80 80", L"\uFFFD\uFFFD\uFFFD\uFFFD"},  // beyond the last plane
      {"F5 FE 80", L"\uFFFD\uFFFD\uFFFD"},           // bytes that never occur, and a stray one
      {"E2 82", L"\uFFFD"},                          // cut short at the end
  };
  for (const auto& [hex, expected] : cases) {
    EXPECT_EQ(qf_WidenLossy(fromHex(hex)), expected) << hex;
    EXPECT_THROW(qf_Widen(fromHex(hex)), qcBadUnicodeChar) << hex;
  }
}

TEST(TextConversions, AreExactBothWays) {
  std::mt19937 random(7);
  for (int round = 0; round < 500; ++round) {
    std::u32string text;
    for (int i = 0; i < 40; ++i) {
      const char32_t limits[] = {0x80, 0x800, 0x10000, 0x110000};
      const auto c = static_cast<char32_t>(random() % limits[random() % 4]);
      if (c < 0xD800 || c > 0xDFFF) text.push_back(c);
    }
    std::string utf8;  // spelt out anew
    for (const char32_t c : text) {
      const int tails = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
      const unsigned lead[] = {0x00, 0xC0, 0xE0, 0xF0};
      utf8.push_back(static_cast<char>(lead[tails] + (c >> (6 * tails))));
      for (int i = tails; i-- > 0;) utf8.push_back(static_cast<char>(0x80 + (c >> (6 * i)) % 64));
    }
    const std::u16string utf16 = qf_Utf16FromUtf32(text);
    ASSERT_EQ(qf_NarrowFromUtf16(utf16), utf8);
    ASSERT_EQ(qf_Utf32FromNarrow(utf8), text);
    ASSERT_EQ(qf_Utf32FromUtf16(utf16), text);
    ASSERT_EQ(qf_WideFromUtf16(utf16), qf_Widen(utf8));
    ASSERT_EQ(qf_Utf16FromWide(qf_Widen(utf8)), utf16);
    ASSERT_EQ(qf_Narrow(qf_WidenLossy(utf8)), utf8);
  }
}

TEST(Header, IsCheckedInTheOrderOfItsFields) {
  const std::tuple<const char*, bool, const wchar_t*> cases[] = {{"", false, L"Eof 65"},
                                                                 {"02", false, L"Eof 65"},
                                                                 {"02 01", true, L"BadType 790"},
                                                                 {"03 01", false, L"BadType 790"},
                                                                 {"04 01", true, L"BadType 790"},
                                                                 {"05 01", true, L"UnknownArchiveVersion 794"},
                                                                 {"FE 01", false, L"UnknownArchiveVersion 794"},
                                                                 {"02 02", false, L"BadBuffer 807"},
                                                                 {"03 FF", true, L"BadBuffer 807"}};
  for (const auto& row : cases) {
    std::wstring expected = L"qcArchive::" + std::wstring(std::get<2>(row));
    expected.replace(expected.find(' '), 1, L": thrown from file: archive, line: ");
    EXPECT_EQ(errorOf([&] { BytesArchive(fromHex(std::get<0>(row)), std::get<1>(row)); }), expected)
        << std::get<0>(row);
  }
  unsigned char byte = 0;
  EXPECT_EQ(errorOf([&] { load(fromHex("02 01"), byte); }), L"qcArchive::Eof: thrown from file: archive, line: 65");
  EXPECT_EQ(BytesArchive(fromHex("01 00"), true)->version(), 0);
  EXPECT_EQ(BytesArchive(fromHex("02 00"))->ordering(), kBig);
  EXPECT_EQ(qcMemoryArchive(static_cast<qcArchive::Ordering>(7), false).storage()[1], 0);
}

struct Empty {};
qcArchive& operator||(qcArchive& archive, Empty&) { return archive; }

TEST(Vectors, HoldACountAndTheElements) {
  EXPECT_EQ(stored(kBig, false, std::vector<short>{1, -1}), fromHex("00000002 0001 FFFF"));
  EXPECT_EQ(stored(kLittle, false, std::vector<bool>{true, false}), fromHex("02000000 01 00"));
  EXPECT_EQ(stored(kBig, false, std::vector<std::string>{"a", ""}), fromHex("00000002 01226122 002222"));
  EXPECT_EQ(stored(kBig, false, std::vector<long>{-2}), fromHex("00000001 FFFFFFFE"));
  EXPECT_EQ(stored(kBig, false, std::pair<short, bool>{5, true}), fromHex("0005 01"));
  EXPECT_THROW(stored(kBig, false, std::vector<Empty>(1100)), qcArchive::BadContent);  // could not be loaded
}

TEST(Vectors, LoadOverWhateverTheyHeldBefore) {
  std::mt19937 random(11);
  for (const std::size_t size : {0U, 1U, 5U, 9000U, 70000U, 200001U}) {
    std::vector<double> values(size);
    std::vector<bool> flags(size);
    for (std::size_t i = 0; i < size; ++i) {
      values[i] = static_cast<double>(random());
      flags[i] = random() % 2 != 0;
    }
    for (const auto ordering : kOrderings) {
      for (const std::size_t before : {0U, 3U, 300000U}) {
        std::vector<double> back(before, -1);
        std::vector<bool> flagsBack(before, true);
        *BytesArchive(headOf(ordering) + stored(ordering, false, values, flags)) || back || flagsBack;
        EXPECT_TRUE(back == values && flagsBack == flags) << size << ' ' << before;
      }
    }
  }
}

}  // namespace

// The class of the page's worked example.
struct ExampleMark : Archivable<ExampleMark>, qcRepBase {
  void fields(qcArchive& archive) { archive || text || size; }
  std::wstring text;
  double size = 0;
};

namespace {

TEST(DocumentedExample, IsWhatTheLibraryReadsAndWrites) {
  const ExampleMark registered;
  const std::string page = documentedBytes("archive-format.md");
  ASSERT_GT(page.size(), 2U);
  BytesArchive archive(page);
  std::vector<qcPtrHandle<ExampleMark>> marks;
  std::string title;
  bool done = false;
  *archive || title || marks || done;
  EXPECT_EQ(archive->remaining(), 0);
  ASSERT_EQ(marks.size(), 3U);
  EXPECT_TRUE(marks[0]->text == L"\u00D8 8" && !marks[1] && marks[2] == marks[0]);
  EXPECT_EQ(toHex(headOf(kBig) + stored(kBig, false, title, marks, done)), toHex(page));
}

}  // namespace
