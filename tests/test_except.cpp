// The errors: their numbers, names and bases against the published table, their texts, their bytes, and the way from
// status codes to exceptions.

#include <cxxabi.h>

#include <locale>
#include <regex>

#include "support/bytes.h"
#include "support/test.h"
#include "vnxstd/archive.h"
#include "vnxstd/except.h"

namespace {

// Registered by static initialisers of this program, before or after those of the library's own converters.
std::vector<std::pair<int, long>> calls;
constexpr long kFacility = 0x155;
constexpr std::int32_t codeOf(long facility, std::uint32_t rest) {
  return static_cast<std::int32_t>(0x80000000U | static_cast<std::uint32_t>(facility << 5) | rest);
}
void passOn(long code) { calls.emplace_back(1, code); }
void translate(long code) {
  calls.emplace_back(2, code);
  if ((code & 0x1F) == 3) throw qcBadPointer();
}
void neverReached(long code) { calls.emplace_back(3, code); }
struct Registers {
  explicit Registers(qcExceptionConverter converter) { qfRegisterExceptionConverter(kFacility, converter); }
} first(passOn), second(translate), nothing(nullptr), third(neverReached);

struct Row {
  long number;
  std::string name, base;
};

std::vector<Row> publishedTable() {
  std::ifstream page(VNXSTD_SOURCE_DIR "/docs/errors.md");
  const std::regex row(R"(\| (0x[0-9A-F]{8}) \| `([^`]+)` \| `([^`]+)` \|)");
  std::vector<Row> rows;
  std::smatch match;
  for (std::string line; std::getline(page, line);)
    if (std::regex_match(line, match, row)) rows.push_back({std::stol(match[1], nullptr, 16), match[2], match[3]});
  return rows;
}

// The first base that is no template of the error machinery.
std::string namedBase(const std::type_info& type) {
  const auto* node = dynamic_cast<const abi::__si_class_type_info*>(&type);
  while (node) {
    const std::string name = qcDevEnv::canonicalTypeName(node->__base_type->name());
    if (name.find('<') == std::string::npos) return name;
    node = dynamic_cast<const abi::__si_class_type_info*>(node->__base_type);
  }
  return {};
}

std::unique_ptr<qcException> makeError(const std::string& name) {
  const qc_RegistryEntry* entry = qf_FindRegistered(name);
  if (!entry || !entry->make) return nullptr;
  std::unique_ptr<qcPersistent> object(entry->make());
  auto* error = dynamic_cast<qcException*>(object.get());
  if (error) object.release();
  return std::unique_ptr<qcException>(error);
}

TEST(Errors, AreThoseOfThePublishedTableAlsoWhenThrownAgain) {
  const std::vector<Row> rows = publishedTable();
  ASSERT_EQ(rows.size(), 190U);
  std::map<std::string, const Row*> byName;
  for (const Row& row : rows) {
    byName[row.name] = &row;
    const auto error = makeError(row.name);
    ASSERT_TRUE(error) << row.name;
    EXPECT_EQ(error->errorNumber(), row.number) << row.name;
    const qcException& made = *error;
    EXPECT_EQ(qcDevEnv::canonicalTypeName(typeid(made).name()), row.name);
    EXPECT_EQ(namedBase(typeid(made)), row.base) << row.name;
    const bool hasText = dynamic_cast<qcExceptionWithString*>(error.get()) != nullptr;
    const bool textExpected = row.name == "qcUnknownError" || row.base == "qcRangeDefs::Errors" ||
                              row.base == "qcDIB::Errors" || row.base == "qc2XformPerspectiveDefs::Errors";
    EXPECT_EQ(hasText, textExpected) << row.name;
    try {
      makeError(row.name).release()->suicideAndRethrow();
      ADD_FAILURE() << row.name;
    } catch (const qcException& caught) {
      EXPECT_EQ(typeid(caught), typeid(made)) << row.name;
      EXPECT_EQ(caught.message(true), made.message(true));
    }
    // The group is known by name and cannot be made.
    const qc_RegistryEntry* group = qf_FindRegistered(row.base);
    ASSERT_TRUE(group) << row.base;
    EXPECT_EQ(group->make, nullptr) << row.base;
  }
  EXPECT_EQ(byName.size(), rows.size());
  // Nothing is registered that the table leaves out.
  qf_VisitRegistered(
      [](const qc_RegistryEntry& entry, void* context) {
        if (!entry.make || !makeError(entry.name)) return;
        EXPECT_TRUE(static_cast<decltype(byName)*>(context)->contains(entry.name)) << entry.name;
      },
      &byName);
}

TEST(Errors, Messages) {
  const std::wstring noInfo = L"no further information provided";
  const struct {
    std::wstring message, expected;
  } cases[] = {
      {qcArchive::Eof().message(false), noInfo},
      {qcArchive::Eof().message(true), L"qcArchive::Eof: " + noInfo},
      {qcArchive::Eof("archive", 65).message(true), L"qcArchive::Eof: thrown from file: archive, line: 65"},
      {qcArchive::BadFile(L"Could not open file: ä", 0).message(false), L"Could not open file: ä"},
      {qcArchive::BadFile("M\xC3\xBCll", 0).message(false), L"Müll"},
      {qcArchive::BadFile("M\xFCll", 0).message(false), L"M\xFFFDll"},
      {qcArchive::BadFile(static_cast<const char*>(nullptr), 7).message(false), noInfo},
      {qcArchive::UnknownType("qcGone", "archutil", 0).message(true),
       L"qcArchive::UnknownType: qcGone; thrown from file: archutil, line: 0"},
      {qcArchive::UnknownType("qcGone", static_cast<const char*>(nullptr), 9).message(false), L"qcGone"},
      {qcArchive::UnknownType("\xC3(", static_cast<const char*>(nullptr), 0).message(false), L"\xFFFD("},
      {qcUnknownError(0).message(true), L"qcUnknownError: " + noInfo},
      {qcUnknownError(-2147483357L).message(false), L"Internal error code: 0x80000123"},
      {qcUnknownError(1).message(false), L"Internal error code: 0x00000001"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.message, c.expected);
  struct Grouping : std::numpunct<wchar_t> {
    std::string do_grouping() const override { return "\3"; }
  };
  const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));
  EXPECT_EQ(qcArchive::Eof("archive", 1229).message(false), L"thrown from file: archive, line: 1229");
  std::locale::global(before);
  std::wostringstream out;
  qcBadPointer().message(out);
  EXPECT_EQ(out.str(), L"qcBadPointer: " + noInfo);
}

TEST(Failure, ConvertersAreAskedInOrderUntilOneThrows) {
  EXPECT_NO_THROW(qfThrowExceptionOnFailure(0));
  EXPECT_NO_THROW(qfThrowExceptionOnFailure(2147483647L));
  calls.clear();
  EXPECT_THROW(qfThrowExceptionOnFailure(codeOf(kFacility, 3)), qcBadPointer);
  EXPECT_EQ(calls, (std::vector<std::pair<int, long>>{{1, codeOf(kFacility, 3)}, {2, codeOf(kFacility, 3)}}));
  calls.clear();
  EXPECT_THROW(qfThrowExceptionOnFailure(codeOf(kFacility, 4)), qcUnknownError);
  EXPECT_EQ(calls.size(), 3U);
  calls.clear();
  // The facility is bits 5 to 15 alone; the same status is the same code, whatever the width of long.
  EXPECT_THROW(qfThrowExceptionOnFailure(codeOf(kFacility, 3) ^ 0x00FF0000), qcBadPointer);
  EXPECT_THROW(qfThrowExceptionOnFailure(static_cast<long>(0x80000000LL + (kFacility << 5) + 3)), qcBadPointer);
  EXPECT_EQ(errorOf([] { qfThrowExceptionOnFailure(codeOf(0x7A0, 0)); }),
            L"qcUnknownError: Internal error code: 0x8000F400");
}

TEST(Failure, Hexadecimal) {
  EXPECT_EQ(qfHex(0, 0), L"0x0");
  EXPECT_EQ(qfHex(0xFEDCBA9876543210ULL, 8), L"0xFEDCBA9876543210");
  EXPECT_EQ(qfHex(0xABC, 5), L"0x00ABC");
  EXPECT_EQ(qfHex(0xABC, -5), L"0xABC");
  EXPECT_EQ(qfHex32(0x80000123U, 8), L"0x80000123");
  EXPECT_EQ(qfHex16(0xF, 4), L"0x000F");
}

template <class T>
struct Box {
  struct Inner {};
};

TEST(TypeNames, AreTheSameFromEveryCompiler) {
  const struct {
    std::string name, expected;
  } cases[] = {
      {typeid(qcArchive::Eof).name(), "qcArchive::Eof"},
      {typeid(Box<Box<unsigned long>>).name(), "(anonymous namespace)::Box<(anonymous namespace)::Box<unsigned long>>"},
      {"class qcPelRoot<class qcPair<long> >", "qcPelRoot<qcPair<long>>"},
      {"struct classy<enum unioned, unsigned char >", "classy<unioned,unsigned char>"},
      {"", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(qcDevEnv::canonicalTypeName(c.name.c_str()), c.expected);
  EXPECT_EQ(qcDevEnv::canonicalTypeName(nullptr), "");
}

}  // namespace
