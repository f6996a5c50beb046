// Archives in memory and in files, and the storage pool.

#include "support/bytes.h"
#include "support/folder.h"
#include "vnxstd/archive.h"

namespace {

using Dir = qcArchive::Direction;

using Files = InFolder;

// Random reading, writing and moving about give what the same steps on a vector of bytes give.
void walk(qcArchive& archive, std::string expected, const std::function<std::string()>& bytes, unsigned seed) {
  std::mt19937 random(seed);
  std::size_t at = expected.size();
  archive.append();
  std::string buffer(300000, '\0');
  for (int step = 0; step < 400; ++step) {
    const std::size_t length = random() % 2 != 0 ? random() % 20 : random() % buffer.size();
    switch (random() % 6) {
      case 0:
        archive.mode(random() % 2 != 0 ? Dir::storing : Dir::loading);
        break;
      case 1:
        at = random() % (expected.size() + 1);
        archive.seek(qcArchive::Position(static_cast<std::streamoff>(at)));
        break;
      case 2:
        EXPECT_THROW(archive.seek(static_cast<long>(expected.size()) + 1, 0), qcArchive::BadBuffer);
        EXPECT_EQ(archive.remaining(), archive.isLoading() ? static_cast<qcInt64>(expected.size() - at) : -1);
        break;
      case 3:  // from now on through a gate, which must not show
        archive.limits({.bytes = 1 << 30});
        break;
      default:
        if (archive.isStoring()) {
          for (std::size_t i = 0; i < length; ++i) buffer[i] = static_cast<char>(random());
          archive.raw(buffer.data(), static_cast<long>(length));
          expected.resize(std::max(expected.size(), at + length));
          expected.replace(at, length, buffer, 0, length);
        } else {
          const std::size_t there = std::min(length, expected.size() - at);
          archive.raw(buffer.data(), static_cast<long>(there));
          ASSERT_TRUE(buffer.compare(0, there, expected, at, there) == 0) << step;
          at += there;
          break;
        }
        at += length;
    }
    ASSERT_EQ(static_cast<std::size_t>(static_cast<std::streamoff>(archive.tell())), at) << step;
  }
  archive.sync();
  EXPECT_TRUE(bytes() == expected);
}

TEST(MemoryArchive, ReadsWritesAndMovesLikeAVector) {
  for (unsigned seed = 1; seed <= 4; ++seed) {
    qcMemoryArchive archive(kLittle, true);
    walk(archive, headOf(kLittle, true), std::bind_front(bytesOf, std::ref(archive)), seed);
  }
}

TEST(MemoryArchive, CopiesTheCallersBytesBeforeItWrites) {
  const std::string original = fromHex("03 01 0A 0B 0C");
  std::string mine = original;
  qcMemoryArchive archive(mine.data(), static_cast<long>(mine.size()), true);
  EXPECT_EQ(archive.storage(), mine.data());
  archive.mode(Dir::storing);
  archive << static_cast<unsigned char>(0xFF);
  EXPECT_EQ(mine, original);
  EXPECT_EQ(toHex(bytesOf(archive)), "0301FF0B0C");
  archive.mode(Dir::loading);
  unsigned char byte = 0;
  archive || byte;
  EXPECT_EQ(byte, 0x0B);
}

TEST(MemoryArchive, FreesBytesThatItOwnsAlsoWhenTheHeaderIsBad) {  // the address sanitizer's leak check looks on
  const auto bytes = [](const char* hex) {
    const std::string text = fromHex(hex);
    return std::copy(text.begin(), text.end(), new char[text.size()]) - text.size();
  };
  const qcMemoryArchive good(bytes("02 01"), 2, false, true);
  EXPECT_THROW(qcMemoryArchive(bytes("02 07"), 2, false, true), qcArchive::BadBuffer);
  EXPECT_THROW(qcMemoryArchive(bytes("02 01"), 1, false, true), qcArchive::Eof);
  EXPECT_THROW(qcMemoryArchive(bytes("02 01"), -5, false, true), qcArchive::Eof);
  EXPECT_THROW(qcMemoryArchive(nullptr, 100, false), qcArchive::Eof);
}

TEST_F(Files, ReadWriteAndMoveLikeAVector) {
  for (unsigned seed = 1; seed <= 4; ++seed) {
    qcFileArchive archive(path("walk"), Dir::storing, kLittle, true);
    walk(
        archive, headOf(kLittle, true), [this] { return text("walk"); }, seed);
  }
}

TEST_F(Files, HoldTheSameBytesAsMemory) {
  const std::vector<double> values(50000, 0.125);
  for (const auto ordering : kOrderings) {
    qcFileArchive archive(path("\xC3\xA9t\xC3\xA9"), Dir::storing, ordering);
    for (int i = 0; i < 20; ++i) archive << i << values;
    for (int twice = 0; twice < 2; ++twice) archive.close();
    EXPECT_THROW(archive << 1, qcArchive::BadBuffer);
    qcMemoryArchive memory(ordering, false);
    for (int i = 0; i < 20; ++i) memory << i << values;
    EXPECT_TRUE(text("\xC3\xA9t\xC3\xA9") == bytesOf(memory));
    qcFileArchive in(path("\xC3\xA9t\xC3\xA9"), Dir::loading, kLittle, false, true);
    std::vector<double> loaded;
    for (int i = 0, n = 0; i < 20; ++i) EXPECT_TRUE((in || n || loaded, n == i && loaded == values));
    EXPECT_THROW(in >> *std::make_unique<int>(), qcArchive::Eof);
  }
}

TEST_F(Files, StoringTruncatesAndLoadingCanAppend) {
  write("f", fromHex("03 01") + std::string(100, 'x'));
  {
    qcFileArchive archive(path("f"), Dir::storing, kLittle, true, true);  // read-only is for loading
    archive << static_cast<unsigned char>(1);
  }
  {
    qcFileArchive archive(path("f"), Dir::loading, kLittle, true);
    archive.append();
    archive << static_cast<unsigned char>(2);
  }
  EXPECT_EQ(toHex(text("f")), toHex(headOf(kLittle, true)) + "0102");
  qcFileArchive archive(path("f"), Dir::loading, kLittle, true, true);
  EXPECT_THROW(archive.append(), qcArchive::BadBuffer);
  EXPECT_TRUE(archive.isLoading());
}

TEST_F(Files, ThatCannotBeOpenedAreNamed) {
  const std::wstring missing = path("missing") + L"/\u00E9";
  for (const std::wstring& name :
       {missing, path(""), path("nul") + std::wstring(1, L'\0') + L"x", std::wstring{wchar_t(0xD800)}}) {
    for (const auto direction : {Dir::loading, Dir::storing})
      for (const bool readOnly : {false, true})
        EXPECT_EQ(errorOf([&] { qcFileArchive(name, direction, kLittle, false, readOnly); }),
                  L"qcArchive::BadFile: Could not open file: " + std::wstring(name.c_str()));
  }
  write("short", "\x02");
  EXPECT_THROW(qcFileArchive(path("short"), Dir::loading), qcArchive::Eof);
}

TEST_F(Files, AFullDiskIsReportedAndNeverByADestructor) {
  if (!std::filesystem::exists("/dev/full")) return;
  const std::wstring full = L"/dev/full";
  {
    qcFileArchive archive(full, Dir::storing);
    EXPECT_THROW(archive.sync(), qcArchive::BadBuffer);
    EXPECT_THROW(archive.sync(), qcArchive::BadBuffer) << "the loss stays known";
    EXPECT_THROW(archive.close(), qcArchive::BadBuffer);
    EXPECT_NO_THROW(archive.close());
  }
  qcFileArchive small(full, Dir::storing);
  EXPECT_THROW(small.close(), qcArchive::BadBuffer);
  qcFileArchive large(full, Dir::storing);
  EXPECT_THROW(large << std::vector<double>(100000), qcArchive::BadBuffer);
  qcFileArchive swapped(full, Dir::storing, qcArchive::bigEndian);
  EXPECT_THROW(swapped << std::vector<double>(100000), qcArchive::BadBuffer);
  char byte = 0;
  qcFileArchive readable(full, Dir::storing, kLittle, true);
  EXPECT_THROW(readable.mode(Dir::loading), qcArchive::BadBuffer);
  readable.mode(Dir::loading);
  readable.seek(0, 0);
  EXPECT_NO_THROW(readable.raw(&byte, 1)) << "what is there can be read";
  EXPECT_THROW(readable.writeNewMark(), qcArchive::BadBuffer);
  readable.append();
  EXPECT_THROW(readable.writeNewMark(), qcArchive::BadBuffer);
  qcFileArchive unnoticed(full, Dir::storing);
}

TEST_F(Files, AReadErrorIsNotTheEndOfTheData) {
  // The memory of this process as a file: reading at 0 fails with an input/output error.
  if (!std::filesystem::exists("/proc/self/mem")) return;
  EXPECT_THROW(qcFileArchive(L"/proc/self/mem", Dir::loading, kLittle, false, true), qcArchive::BadFile);
}

TEST(StoragePool, RoundsBlocksAndDoublesChunks) {
  for (const auto& [asked, given] : {std::pair{0U, 8U}, {1U, 8U}, {8U, 8U}, {9U, 16U}, {12U, 16U}, {100U, 104U}}) {
    qcStoragePool pool(asked, 10);
    EXPECT_EQ(pool.blockSize(), given);
    // Blocks of a chunk come in order of address; a chunk ends where the next block does not follow.
    std::vector<std::size_t> chunks{0};
    char* last = nullptr;
    std::vector<void*> blocks;
    for (int i = 0; i < 400000; ++i) {
      auto* block = static_cast<char*>(pool.alloc());
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(block) % 8, 0U);
      if (last && block != last + given) chunks.push_back(0);
      ++chunks.back();
      last = block;
      blocks.push_back(block);
    }
    EXPECT_EQ(pool.outstanding(), 400000);
    std::size_t expected = 10;
    for (std::size_t i = 0; i + 1 < chunks.size(); ++i) {
      EXPECT_EQ(chunks[i], expected);
      expected = std::min<std::size_t>(expected * 2, 1048576 / given);
    }
    for (void* block : blocks) pool.free(block);
    EXPECT_EQ(pool.outstanding(), 0);
  }
}

TEST(StoragePool, SizesThatOverflowAreRefused) {
  constexpr auto kMax = std::numeric_limits<long>::max();
  EXPECT_THROW(qcStoragePool(std::numeric_limits<unsigned>::max(), kMax), std::bad_alloc);
  if (sizeof(long) == sizeof(std::size_t)) {
    EXPECT_THROW(qcStoragePool(8, kMax), std::bad_alloc);
    EXPECT_THROW(qcStoragePool(24, kMax / 24), std::bad_alloc);
  }
  for (const long count : {0L, -1L, std::numeric_limits<long>::min()}) {
    qcStoragePool pool(8, count);
    pool.free(pool.alloc());
    pool.free(nullptr);
    EXPECT_EQ(pool.outstanding(), 0);
  }
}

TEST(StoragePool, DeletesItselfOnlyWhenAskedAndEmpty) {
  auto* pool = new qcStoragePool(8, 1);
  void* block = pool->alloc();
  pool->maybeDelete();
  pool->autoDelete(true);
  pool->maybeDelete();
  pool->free(block);
  EXPECT_EQ(pool->outstanding(), 0);
  pool->maybeDelete();  // gone: a leak, or a second deletion, would be seen by the address sanitizer
}

}  // namespace
