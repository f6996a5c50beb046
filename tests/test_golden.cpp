// Archives of every class in both byte orders, kept as files, beside a seekable archive with its index and a tool
// database: what was written once is read for ever and on every platform, and written again byte for byte.
// VNXSTD_WRITE_GOLDEN=1 in the environment writes the archives that are missing; those that exist never change. It
// writes anew what damage of them comes to, for which the differences are to be read.

#include <regex>

#include "support/samples.h"
#include "support/test.h"
#include "vnxstd/archive.h"
#include "vnxstd/math/range.h"
#include "vnxstd/pelbuf/buffer.h"
#include "vnxstd/shapes/circle.h"

namespace {

const std::filesystem::path kFolder = VNXSTD_SOURCE_DIR "/tests/golden";

qcArchive::Ordering orderingOf(const std::string& bytes) { return bytes.at(1) == 0 ? kBig : kLittle; }

std::string contents(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// What is made here is stored as these bytes; they are read, and written again.
void expectBytes(const Case& c, const std::string& expected) {
  EXPECT_TRUE(c.make(orderingOf(expected)) == expected);
  EXPECT_TRUE(c.rewrite(expected) == expected);
}

TEST(Golden, EveryClassReadsAndRewritesItsFiles) {
  const bool writing = std::getenv("VNXSTD_WRITE_GOLDEN") != nullptr;
  for (const Case& c : cases()) {
    for (const auto ordering : kOrderings) {
      SCOPED_TRACE(c.name);
      const std::filesystem::path path = kFolder / (c.name + (ordering == kBig ? ".be.arc" : ".le.arc"));
      if (writing && !std::filesystem::exists(path)) std::ofstream(path, std::ios::binary) << c.make(ordering);
      const std::string golden = contents(path);
      ASSERT_FALSE(golden.empty());
      EXPECT_EQ(orderingOf(golden), ordering);
      expectBytes(c, golden);
    }
  }
}

/// What becomes of bytes: the error and its place, or whether they are stored again as they are.
std::string outcomeOf(const Sample& sample, const std::string& bytes) {
  static const std::wregex spared(L"qcArchive::|UnknownType: .*; (?=thrown)|thrown from file: |, line");
  try {
    return sample.load(bytes)() == bytes ? "kept" : "taken otherwise";
  } catch (const qcException& error) {
    return qf_Narrow(std::regex_replace(error.message(true), spared, L""));
  }
}

// Each byte with its lowest bit changed, with all its bits set, and as the end of what is no number: which versions and
// values every class refuses, and with which error. After each outcome come the changes from which on it is met, up to
// where another one is.
TEST(Golden, DamageIsAnsweredAsItWas) {
  std::string all;
  looksAtFailedLoads = true;
  for (const Sample& sample : samples()) {
    if (sample.name.starts_with("graph") || sample.name.ends_with("seekable") || sample.name == "database") continue;
    std::map<std::string, std::string> places;
    for (const char change : std::string(sample.bytes.size() < 5000 ? "^FN" : "^")) {
      std::string last;
      for (std::size_t at = 0; at < sample.bytes.size(); ++at) {
        std::string bytes = sample.bytes;
        if (change == '^') bytes[at] = static_cast<char>(bytes[at] ^ 1);
        if (change == 'F') bytes[at] = '\xFF';
        if (change == 'N') bytes.replace(at, 2, bytes[1] == 0 ? "\x7F\xF8" : "\xF8\x7F");
        const std::string outcome = outcomeOf(sample, bytes);
        if (outcome != last) places[outcome] += std::string({' ', change}) + std::to_string(at);
        last = outcome;
      }
    }
    all += sample.name + '\n';
    for (const auto& [outcome, where] : places) all += ' ' + outcome + ',' + where + '\n';
  }
  const std::filesystem::path path = kFolder / "damage.txt";
  if (std::getenv("VNXSTD_WRITE_GOLDEN")) std::ofstream(path, std::ios::binary) << all;
  std::istringstream now(all), then(contents(path));
  std::string block, expected, line;
  while (std::getline(then, expected)) {
    std::getline(now, line);
    if (line[0] != ' ') block = line;
    ASSERT_EQ(line, expected) << block;
  }
  EXPECT_FALSE(std::getline(now, line)) << block;
}

TEST(Golden, WorkedExamplesOfThePagesAreWhatIsWritten) {
  qcPelBuffer<unsigned short> buffer(qcPelRect(10, 20, 3, 2), 4);
  for (long i = 0; i < 6; ++i) buffer.put(10 + i % 3, 20 + i / 3, static_cast<unsigned short>(i + 1));
  buffer.window(11, 20, 2, 2, false);
  for (const Case& c : {plain(value("archive-math.md", qcRange(1, 2))),
                        plain(value("archive-shapes.md", qcCircle(qcVector<2>(2, -1), 2))),
                        plain(value("archive-pixels.md", buffer))}) {
    SCOPED_TRACE(c.name);
    const std::string page = documentedBytes(c.name);
    ASSERT_FALSE(page.empty());
    expectBytes(c, page);
  }
}

// Two threads may store one object at once: storing only reads it. For the thread sanitizer to see.
TEST(Golden, StoringFromTwoThreadsOnlyReads) {
  for (const Case& c : cases()) {
    std::string there;
    std::thread other([&] { there = c.make(kBig); });
    const std::string here = c.make(kBig);
    other.join();
    EXPECT_TRUE(here == there) << c.name;
  }
}

// A class that can be made by name, and that is not the library's own business, has its golden files.
TEST(Golden, NoClassIsLeftOut) {
  std::string stored;
  for (const Case& c : cases()) stored += c.make(kBig);
  qf_VisitRegistered(
      [](const qc_RegistryEntry& entry, void* context) {
        if (!entry.make || entry.name.starts_with("qc_") || entry.name.starts_with("(anonymous")) return;
        EXPECT_NE(static_cast<std::string*>(context)->find('"' + entry.name + '"'), std::string::npos) << entry.name;
      },
      &stored);
}

}  // namespace
