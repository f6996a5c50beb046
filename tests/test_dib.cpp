// Bitmaps: every depth, header and order of rows against a pel-by-pel reference, the bytes that are written, and what
// corrupt files do.

#include "support/bytes.h"
#include "support/test.h"
#include "vnxstd/dib/dib.h"
#include "vnxstd/pelbuf.h"

namespace {

using Bytes = std::vector<unsigned char>;

void put(Bytes& bytes, std::uint64_t value, int count) {
  for (int i = 0; i < count; ++i, value >>= 8) bytes.push_back(static_cast<unsigned char>(value & 0xFF));
}

struct Layout {
  unsigned header, bits;
  bool topDown, fields;
  unsigned used;  // colours used
  int width, height;
};

struct Reference {
  Bytes file;
  unsigned rowBytes;
  std::vector<std::array<unsigned, 4>> pels;  // red, green, blue, alpha; the right way up
};

// A bitmap of random content, built byte by byte, with its pels decoded by the definition of the format.
Reference randomBitmap(const Layout& l, std::mt19937& random) {
  Reference made;
  const unsigned full = l.bits <= 8 ? 1U << l.bits : 0, present = l.used == 0 ? full : l.used;
  const unsigned rowBytes = made.rowBytes = (static_cast<unsigned>(l.width) * l.bits + 31) / 32 * 4;
  const std::uint32_t masks16[4] = {0xF800, 0x07E0, 0x001F, 0}, masks32[4] = {0x3FF00000, 0x000FFC00, 0x3F0, 0xF};
  const std::uint32_t* masks = l.bits == 16 ? masks16 : masks32;
  const unsigned behind = l.fields && l.header == 40 ? 12 : 0;
  Bytes& f = made.file;
  f = {'B', 'M'};
  const unsigned offset = 14 + l.header + behind + 4 * present + 6;  // a gap before the rows
  const auto width = static_cast<unsigned>(l.width), height = static_cast<unsigned>(l.topDown ? -l.height : l.height);
  for (const unsigned word :
       {0U, 0U, offset, l.header, width, height, 1 | l.bits << 16, l.fields ? 3U : 0U, 0U, 2835U, 1417U, l.used, 0U})
    put(f, word, 4);
  if (l.header > 40 || behind)
    for (int c = 0; c < (l.header >= 56 ? 4 : 3); ++c) put(f, l.fields ? masks[c] : 0, 4);
  f.resize(14 + l.header + behind, 0xEE);
  std::vector<std::array<unsigned, 4>> table(256, {0, 0, 0, 255});
  for (unsigned i = 0; i < present; ++i) {
    const std::uint32_t entry = static_cast<std::uint32_t>(random());
    put(f, entry, 4);
    if (i < full) table[i] = {entry >> 16 & 255, entry >> 8 & 255, entry & 255, 255};
  }
  f.resize(offset, 0xDD);
  std::vector<std::vector<std::array<unsigned, 4>>> rows;
  for (int y = 0; y < l.height; ++y) {
    Bytes row(rowBytes);
    for (auto& byte : row) byte = static_cast<unsigned char>(random());
    f.insert(f.end(), row.begin(), row.end());
    auto& pels = rows.emplace_back();
    for (unsigned x = 0; x < static_cast<unsigned>(l.width); ++x) {
      std::uint32_t v = 0;
      for (unsigned bit = 0; bit < l.bits && l.bits <= 8; ++bit)
        v = v << 1 | (row[(x * l.bits + bit) / 8] >> (7 - (x * l.bits + bit) % 8) & 1);
      for (unsigned i = 0; i < l.bits / 8 && l.bits > 8; ++i)
        v |= static_cast<std::uint32_t>(row[x * l.bits / 8 + i]) << (8 * i);
      if (l.bits <= 8)
        pels.push_back(table[v]);
      else if (l.bits == 16 && l.fields)
        pels.push_back({v >> 11 << 3, (v >> 5 & 63) << 2, (v & 31) << 3, 255});
      else if (l.bits == 16)
        pels.push_back({(v >> 10 & 31) << 3, (v >> 5 & 31) << 3, (v & 31) << 3, 255});
      else if (l.bits == 32 && l.fields)
        pels.push_back({v >> 22 & 255, v >> 12 & 255, (v >> 4 & 63) << 2, l.header >= 56 ? (v & 15) << 4 : 255});
      else
        pels.push_back({v >> 16 & 255, v >> 8 & 255, v & 255, l.bits == 32 ? v >> 24 : 255});
    }
  }
  if (!l.topDown) std::reverse(rows.begin(), rows.end());
  for (const auto& row : rows) made.pels.insert(made.pels.end(), row.begin(), row.end());
  return made;
}

void expectPels(const qcDIB& dib, const Reference& expected) {
  const qcPelBuffer<unsigned char> grey = dib.pelBuffer();
  qcPelBuffer<qcPackedRGB16Pel> packed16;
  qcPelBuffer<qcPackedRGB32Pel> packed32;
  dib.pelBuffer(packed16);
  dib.pelBuffer(packed32);
  ASSERT_EQ(static_cast<std::size_t>(grey.width() * grey.height()), expected.pels.size());
  for (std::size_t i = 0; i < expected.pels.size(); ++i) {
    const auto [r, g, b, a] = expected.pels[i];
    const long x = static_cast<long>(i) % grey.width() + dib.xOffset(),
               y = static_cast<long>(i) / grey.width() + dib.yOffset();
    ASSERT_EQ(grey.get(x, y), std::lround((299.0 * r + 587.0 * g + 114.0 * b) / 1000)) << i;
    ASSERT_EQ(packed16.get(x, y).word(), (r >> 3) << 11 | (g >> 2) << 5 | b >> 3) << i;
    ASSERT_EQ(packed32.get(x, y).word(), a << 24 | r << 16 | g << 8 | b) << i;
  }
}

std::vector<Layout> layouts() {
  std::vector<Layout> all;
  for (const unsigned header : {40U, 52U, 56U, 108U, 124U})
    for (const unsigned bits : {1U, 4U, 8U, 16U, 24U, 32U})
      for (const bool topDown : {false, true})
        for (const bool fields : {false, true})
          if (!fields || bits == 16 || bits == 32)
            for (const unsigned used : {0U, bits == 1 ? 2U : 5U, 300U})
              all.push_back({header, bits, topDown, fields, used, bits == 1 ? 33 : 9, 3});
  return all;
}

TEST(Bitmaps, EveryLayoutAgainstTheReference) {
  std::mt19937 random(7);
  const std::filesystem::path path = std::filesystem::temp_directory_path() / "vnxstd_test_layout.bmp";
  qcBasicPelRootPool pool(100, 8);  // for the smaller ones
  for (const Layout& l : layouts()) {
    SCOPED_TRACE(testing::Message() << "header " << l.header << " bits " << l.bits << " topDown " << l.topDown
                                    << " fields " << l.fields << " used " << l.used);
    Reference bitmap = randomBitmap(l, random);
    put(bitmap.file, 0x1234567812345678, 8);  // no trailer
    put(bitmap.file, 99, 20);
    qcDIB dib;
    dib.init(bitmap.file.data(), bitmap.file.size(), true);
    EXPECT_TRUE(dib.isTopDown() == l.topDown && dib.rowBytes() == static_cast<long>(bitmap.rowBytes));
    EXPECT_EQ(dib.depth() | dib.xOffset() | dib.yOffset(), 0);
    expectPels(dib, bitmap);
    std::ofstream(path, std::ios::binary) << std::string(bitmap.file.begin(), bitmap.file.end());
    const qcPelBuffer<unsigned char> direct = qcDIB::readPelBuffer(path.wstring()), viaDib = dib.pelBuffer(),
                                     pooled = qcDIB::readPelBuffer(path.wstring(), pool);
    ASSERT_TRUE(qfPelEqual(direct, viaDib) && qfPelEqual(pooled, viaDib));
  }
  std::filesystem::remove(path);
}

// Sizes of a few pels, of one piece and of several.
template <class T>
void roundTrip(int bits) {
  const std::filesystem::path path = std::filesystem::temp_directory_path() / "vnxstd_test_pieces.bmp";
  std::mt19937 random(11);
  for (const long width : {1L, 2L, 3L, 4L, 5L, 6L, 7L, 8L, 301L, 1001L}) {
    const long height = width < 9 ? 3 : 2 * width / 3;
    SCOPED_TRACE(testing::Message() << width << " x " << height);
    qcPelBuffer<T> buffer(qcPelRect(-7, 1000, width + 2, height + 2));
    std::generate_n(reinterpret_cast<unsigned char*>(buffer.rep()->pels()),
                    static_cast<std::size_t>((height + 2) * buffer.rep()->rowUpdate()) * sizeof(qcStoredPel<T>),
                    std::ref(random));
    buffer.window(-6, 1001, width, height, false);
    qcDIB dib, again;
    dib.init(buffer);
    EXPECT_EQ(dib.bitCount(), bits);
    std::stringstream whole, stream, pieces;
    dib.write(whole);
    qcDIB::writePelBuffer(path.wstring(), buffer);
    pieces << std::ifstream(path, std::ios::binary).rdbuf();
    EXPECT_TRUE(pieces.str() == whole.str());
    dib.depth(-3);
    dib.write(stream);
    again.init(stream);
    EXPECT_TRUE(again.depth() == -3 && again.xOffset() == -6 && again.yOffset() == 1001);
    Bytes clipboard(dib.clipboardDibSize());
    again.renderClipboardDib(clipboard.data());
    EXPECT_EQ(stream.str().substr(14), std::string(clipboard.begin(), clipboard.end()));
    again.init(clipboard.data(), clipboard.size(), false);
    qcPelBuffer<T> result;
    if constexpr (std::is_same_v<T, unsigned char>)
      result = again.pelBuffer();
    else
      again.pelBuffer(result);
    EXPECT_TRUE(qfPelEqual(result, buffer) && result.window() == buffer.window());
    buffer.subWindow(0, 0, 0, 1);
    EXPECT_THROW(qcDIB::writePelBuffer(path.wstring(), buffer), qcDIB::NoDibData);
    EXPECT_THROW(qcDIB::writePelBuffer(path.wstring(), qcPelBuffer<T>()), qcPel::UnboundWindow);
    EXPECT_EQ(std::filesystem::file_size(path), whole.str().size());
  }
  std::filesystem::remove(path);
}

TEST(Bitmaps, BuffersComeBackFromFileAndClipboard) {
  roundTrip<unsigned char>(8);
  roundTrip<qcPackedRGB16Pel>(24);
  roundTrip<qcPackedRGB32Pel>(32);
}

TEST(Bitmaps, WrittenBytes) {
  qcPelBuffer<qcPackedRGB32Pel> buffer(1, 2);
  buffer.put(0, 0, qcPackedRGB32Pel(1, 2, 3, 4));
  buffer.put(0, 1, qcPackedRGB32Pel(5, 6, 7, 8));
  qcDIB dib;
  dib.init(buffer);
  dib.xOffset(-2);
  std::ostringstream stream;
  dib.write(stream);
  const std::string expected = documentedBytes("bitmap-format.md");
  EXPECT_EQ(toHex(stream.str()), toHex(expected));
  // Read top-down, written as stored: the rows keep their order and the height turns positive.
  Bytes topDown(expected.begin(), expected.end());
  topDown[22] = 0xFE;
  std::fill_n(topDown.begin() + 23, 3, 0xFF);
  dib.init(topDown.data(), topDown.size(), true);
  EXPECT_EQ(dib.pelBuffer().get(-2, 0), 6);
  EXPECT_EQ(dib.pelBuffer().get(-2, 1), 2);
  std::ostringstream again;
  dib.write(again);
  EXPECT_EQ(again.str(), stream.str());
}

TEST(Bitmaps, AnyTrailerIsReadAndPelsNeedRoom) {
  constexpr long kMost = std::numeric_limits<std::int32_t>::max(), kLeast = -kMost - 1;
  const std::tuple<long, long, bool> cases[] = {
      {kLeast, kLeast, true}, {kMost - 3, kMost - 2, true}, {kMost - 2, 0, false}, {0, kMost, false}};
  const std::wstring path = std::filesystem::temp_directory_path().wstring() + L"/vnxstd_\u00E4\u4E2D\U0001F600.bmp";
  for (const auto& [x, y, room] : cases) {
    qcDIB dib, again;
    dib.init(qcPelBuffer<unsigned char>(3, 2));
    dib.depth(y);
    dib.xOffset(x);
    dib.yOffset(y);
    dib.write(path);
    again.init(path);
    EXPECT_EQ(qcPair<long>(again.xOffset(), again.yOffset()), qcPair<long>(x, y));
    EXPECT_EQ(again.depth(), y);
    qcPelBuffer<qcPackedRGB32Pel> packed;
    if (room) {
      again.pelBuffer(packed);
      EXPECT_EQ(qcDIB::readPelBuffer(path).offset(), packed.offset());
    } else {
      EXPECT_THROW(again.pelBuffer(packed), qcDIB::BadFormat);
      EXPECT_THROW(qcDIB::readPelBuffer(path), qcDIB::BadFormat);
    }
    EXPECT_EQ(packed.isBound(), room);
  }
  EXPECT_TRUE(std::filesystem::remove(std::filesystem::temp_directory_path() / u8"vnxstd_\u00E4\u4E2D\U0001F600.bmp"));
}

// One field of a bitmap of 1 x 2 pels of 32 bits is changed, or the end of the file.
TEST(Bitmaps, ErrorsSayWhereAndWhy) {
  const std::string whole = documentedBytes("bitmap-format.md");
  const std::tuple<std::size_t, std::uint32_t, const char*> cases[] = {
      {0, 0x4142, "at byte 2: expected the bytes 66 and 77, found 66 and 65"},
      {10, 99999, "at byte 54: expected 99945 bytes, found 28"},
      {14, 41, "at byte 18: expected a header of 40, 52, 56, 108 or 124 bytes, found 41"},
      {14, 124, "at byte 18: expected 120 bytes, found 64"},
      {18, 0, "at byte 22: expected a width from 1 on, found 0"},
      {18, 9, "at byte 54: expected 72 bytes, found 28"},
      {22, 0x80000000, "at byte 26: expected a height other than 0 and -2^31, found -2147483648"},
      {22, 0x7FFFFFFF, "at byte 30: expected rows below 2 GiB in a file below 4 GiB, found 1 x 2147483647 pels"},
      {26, 1 | 7 << 16, "at byte 30: expected 1, 4, 8, 16, 24 or 32 bits, found 7"},
      {30, 1, "at byte 34: expected 0 or 3, found 1"},
      {30, 3, "at byte 58: expected a mask of adjacent bits of the pel that no other has, found 134546951"},
      {74, 0x7FFFFFFF,
       "at byte 82: expected offsets that leave room for the image below 2^31, found 2147483647 and 0"}};
  const std::filesystem::path path = std::filesystem::temp_directory_path() / "vnxstd_test_damaged.bmp";
  for (const auto& [at, value, text] : cases) {
    std::string bytes = whole;
    for (std::size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(value >> 8 * i);
    std::ofstream(path, std::ios::binary) << bytes;
    try {
      qcDIB::readPelBuffer(path.wstring());
      ADD_FAILURE() << text;
    } catch (const qcDIB::Errors& error) {
      ASSERT_TRUE(error.loadContext()) << text;
      EXPECT_EQ(error.loadContext()->text(), text);
    }
  }
  std::filesystem::remove(path);
}

TEST(Bitmaps, FailingMedia) {
  qcDIB dib;
  std::ostringstream stream;
  EXPECT_THROW(dib.write(stream), qcDIB::NoDibData);
  EXPECT_THROW(static_cast<void>(dib.clipboardDibSize()), qcDIB::NoDibData);
  EXPECT_THROW(dib.pelBuffer(), qcDIB::NoDibData);
  EXPECT_THROW(dib.init(qcPelBuffer<unsigned char>()), qcPel::UnboundWindow);
  const std::filesystem::path path = std::filesystem::temp_directory_path() / "vnxstd_test_keep.bmp";
  std::ofstream(path) << "keep";
  EXPECT_THROW(dib.write(path.wstring()), qcDIB::NoDibData);
  EXPECT_EQ(std::filesystem::file_size(path), 4U);
  EXPECT_THROW(dib.init(path.wstring()), qcDIB::BadFormat);
  std::filesystem::remove(path);
  EXPECT_THROW(dib.init(path.wstring()), qcDIB::ReadError);
  EXPECT_THROW(dib.init(std::filesystem::temp_directory_path().wstring()), qcDIB::ReadError);
  EXPECT_TRUE(qcDIB::pixels2Bytes(9) == 2U && qcDIB::pixels2Bytes(~0UL) == ~0UL / 8 + 1);
  dib.init(qcPelBuffer<unsigned char>(3000, 30));
  EXPECT_THROW(dib.init(reinterpret_cast<const unsigned char*>("BMxxxxxxxxxx"), 12, true), qcDIB::Errors);
  EXPECT_EQ(dib.width(), 3000);
  for (const std::wstring& bad :
       {std::wstring(L"/nowhere/at/all.bmp"), std::wstring(L"a\0b", 3), std::wstring(1, 0xD800)})
    EXPECT_THROW(dib.write(bad), qcDIB::WriteError);
  if (std::filesystem::exists("/dev/full")) {
    EXPECT_THROW(dib.write(L"/dev/full"), qcDIB::WriteError);
  }
  stream.setstate(std::ios::badbit);
  EXPECT_THROW(dib.write(stream), qcDIB::WriteError);
}

}  // namespace
