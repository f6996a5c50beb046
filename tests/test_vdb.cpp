// The tool database: numbers, records, grades, and what interrupted programs leave.

#include "support/archivable.h"
#include "support/bytes.h"
#include "support/faulty.h"
#include "support/folder.h"
#include "vnxstd/archive/registry.h"
#include "vnxstd/except/catalogue.h"
#include "vnxstd/vdb.h"

namespace {

/// A part that records share.
struct Shared : Archivable<Shared>, qcRepBase {
  void fields(qcArchive&) {}
};

struct Result : Archivable<Result, qcVDBRecordBase> {
  explicit Result(int v = 0) : value(v) {}
  void fields(qcArchive& archive) { archive || value || part || again; }
  int value;
  qcPtrHandle<Shared> part, again;
};
class Stranger : public virtual qcVDBRecordBase {};
/// No record, and a circle.
struct Circle : Archivable<Circle>, qcRepBase {
  void fields(qcArchive& archive) { archive || next; }
  void preLoad() override { next.release(); }
  qcPtrHandle<Circle> next;
};

std::unique_ptr<Result> load(qcVDBArchive& database) {
  std::unique_ptr<qcVDBRecordBase> record(database.loadRecord());
  auto* result = dynamic_cast<Result*>(record.get());
  if (result) static_cast<void>(record.release());
  return std::unique_ptr<Result>(result);
}

Result numbered(int value, long number = 0) {
  Result result(value);
  result.header().recordNum(number);
  return result;
}

/// A database in memory, which the tests look at and open again.
struct Memory {
  explicit Memory(const std::string& from = {}) : bytes(from) {
    archive = bytes.empty() ? new qcMemoryArchive(kLittle, true)
                            : new qcMemoryArchive(bytes.data(), static_cast<long>(bytes.size()), true);
    database = std::make_unique<qcVDBArchive>(archive);
  }
  std::string bytes;
  qcMemoryArchive* archive;
  std::unique_ptr<qcVDBArchive> database;
};

/// Expects an error from what cannot work; whether it can.
template <class Error>
bool works(bool can, const auto& act) {
  if (can) {
    act();
  } else {
    EXPECT_THROW(act(), Error);
  }
  return can;
}

TEST(Database, NumbersKeepsReplacesAndRemovesRecordsLikeAMap) {
  using NotFound = qcArchive::NotFound;
  using Duplicate = qcArchive::Duplicate;
  std::mt19937 random(11);
  std::string bytes;
  std::map<long, std::pair<int, qcVDBHeader>> model;
  for (int session = 0; session < 12; ++session) {
    Memory memory(bytes);
    qcVDBArchive& database = *memory.database;
    EXPECT_FALSE(database.isPositioned());
    EXPECT_THROW(static_cast<void>(database.loadHeader()), qcArchive::NotFound);
    for (int step = 0; step < 40; ++step) {
      const long wanted = random() % 3 == 0 ? 0 : 1 + static_cast<long>(random() % 30);
      Result result = numbered(static_cast<int>(random()), wanted);
      result.header().comment(std::wstring(random() % 5, L'\u00C4'));
      result.header().currentGrade(static_cast<qcVDB::Grade>(static_cast<int>(random() % 256) - 128));
      result.header().distanceMetric(static_cast<float>(step) / 4);
      if (random() % 2 != 0) result.part = result.again = qcPtrHandle<Shared>(new Shared);
      const bool there = model.count(wanted) != 0;
      const long other = 1 + static_cast<long>(random() % 30);
      works<NotFound>(there, [&] { EXPECT_EQ(database.gotoRecord(wanted), wanted); });
      const auto what = random() % 5;
      if (what == 0 && works<NotFound>(there, [&] { database.removeRecord(); })) model.erase(wanted);
      if (what == 1 && there) {
        const bool isFree = other == wanted || model.count(other) == 0;
        works<Duplicate>(isFree, [&] {
          database.renumberRecord(other);
          auto node = model.extract(wanted);
          node.key() = other;
          model.insert(std::move(node));
        });
      }
      if (what == 2 && there) {
        database.replaceRecord(&result);
        model[wanted] = {result.value, result.header()};
      }
      if (what == 3 && there) {
        database.replaceGrade(result.header());
        result.header().comment(model[wanted].second.comment());
        model[wanted].second = result.header();
      }
      if (what == 4) {
        works<Duplicate>(!there, [&] {
          const long number = database.storeNewRecord(&result);
          EXPECT_TRUE(wanted == 0 ? model.count(number) == 0 : number == wanted);
          EXPECT_EQ(database.currentRecord(), number);
          model[number] = {result.value, result.header()};
        });
      }
    }
    bytes = bytesOf(*memory.archive);
    Memory again(bytes);
    long number = again.database->firstRecord();
    for (auto& [expected, record] : model) {
      ASSERT_EQ(number, expected);
      const auto loaded = load(*again.database);
      record.second.recordNum(expected);
      EXPECT_TRUE(loaded->value == record.first && loaded->header() == record.second && loaded->part == loaded->again);
      EXPECT_EQ(again.database->loadHeader(), record.second);
      EXPECT_TRUE(again.database->recordTypeName().ends_with("Result") && loaded->database() == again.database.get());
      EXPECT_EQ(again.database->isLastRecord(), number == model.rbegin()->first);
      number = again.database->nextRecord();
    }
    EXPECT_EQ(number, 0);
    for (auto entry = model.rbegin(); entry != model.rend(); ++entry) {
      number = entry == model.rbegin() ? again.database->lastRecord() : again.database->prevRecord();
      EXPECT_EQ(number, entry->first);
    }
    EXPECT_EQ(again.database->isFirstRecord(), !model.empty());
  }
}

TEST(Database, GivesNumbersInOrderAndRecordsToTheirOwners) {
  Memory memory;
  qcVDBArchive& database = *memory.database;
  const std::string text = database.identification(), class_ = stored(kBig, false, std::string("qc_VDBIdentification"));
  EXPECT_TRUE(text.starts_with("Vantix Tool Database 1.0 gen 20"));
  memory.archive->limits({.classes = qcArchiveLimits::Names()});
  EXPECT_EQ(database.identification(), text);
  memory.archive->limits({});
  const std::string body = class_ + fromHex("0000") + stored(kBig, false, text);
  EXPECT_NE(bytesOf(*memory.archive).find(body), std::string::npos);
  Result result(7);
  const std::pair<long, long> cases[] = {{0, 1}, {0, 2}, {0, 3}, {10, 10}, {0, 4}};
  for (const auto& [asked, given] : cases) {
    result.header().recordNum(asked);
    EXPECT_EQ(database.storeNewRecord(&result), given);
  }
  // Each load gives an object of its own, and each store stores it in full.
  database.gotoRecord(3);
  const auto first = load(database), second = load(database);
  EXPECT_NE(first.get(), second.get());
  first->value = 8;
  first->header().recordNum(qcVDBArchive::kLastNumber);
  database.storeNewRecord(first.get());
  EXPECT_EQ(load(database)->value, 8);
  EXPECT_EQ(load(database)->header().recordNum(), qcVDBArchive::kLastNumber);
  memory.archive->seek(qcArchive::Position(memory.archive->records().end()[-2].at));
  memory.archive->removePointer();
  EXPECT_THROW(static_cast<void>(load(database)), qcVDBRecordBase::NoResult);
  EXPECT_THROW(static_cast<void>(database.recordTypeName()), qcVDBRecordBase::NoResult);
}

TEST(Database, RefusesWhatItCannotKeepAndStaysAsItWas) {
  Memory memory;
  qcVDBArchive& database = *memory.database;
  Result good(1);
  database.storeNewRecord(&good);
  const std::string before = bytesOf(*memory.archive);
  Result loud(2), wide(3), far(4), lone(5);
  loud.header().currentGrade(static_cast<qcVDB::Grade>(200));
  wide.header().comment(std::wstring(32768, L'x'));
  far.header().recordNum(qcVDBArchive::kLastNumber + 1);
  lone.header().comment(L"\xD800");
  for (const Result* bad : {&loud, &wide, &far, &lone}) {
    EXPECT_THROW(database.storeNewRecord(bad), qcArchive::BadContent);
    EXPECT_THROW(database.replaceRecord(bad), qcArchive::BadContent);
    EXPECT_THROW(database.replaceGrade(bad), qcArchive::BadContent);
  }
  EXPECT_THROW(database.storeNewRecord(nullptr), qcBadPointer);
  const Stranger stranger;
  EXPECT_THROW(database.storeNewRecord(&stranger), qcArchive::UnknownType);
  EXPECT_THROW(database.replaceRecord(&stranger), qcArchive::UnknownType);
  EXPECT_THROW(database.renumberRecord(qcVDBArchive::kLastNumber + 1), qcArchive::BadContent);
  EXPECT_TRUE(database.currentRecord() == 1 && load(database)->value == 1);
  EXPECT_EQ(bytesOf(*memory.archive).size(), before.size());
  EXPECT_THROW(qcVDBArchive(nullptr), qcBadPointer);
  EXPECT_THROW(qcVDBArchive(new qcMemoryArchive(kLittle, false)), qcArchive::NotSeekable);
}

TEST(Database, DropsWhatIsNoRecord) {
  Memory memory;
  memory.archive->append();
  memory.archive->writeNewMark(1);
  qcVDBHeader header;
  *memory.archive || header;
  const qcPtrHandle<Circle> circle(new Circle);
  circle->next = circle;
  *memory.archive << circle;
  circle->next.release();
  memory.database->gotoRecord(1);
  memory.archive->forgetObjects();
  EXPECT_THROW(memory.database->loadRecord(), qcArchive::BadType);
}

TEST(Database, MarksBeyondTheNumbersOfRecordsAreNone) {
  Memory memory;
  memory.archive->append();
  memory.archive->writeNewMark(qcVDBArchive::kLastNumber + 1);
  EXPECT_TRUE(memory.database->empty() && memory.database->firstRecord() == 0);
  memory.database->storeNewRecord(std::make_unique<Result>(5).get());
  EXPECT_TRUE(memory.database->lastRecord() == 1 && memory.database->isLastRecord());
  EXPECT_EQ(memory.database->nextRecord(), 0);
}

TEST(Database, LosesNothingSyncedWhateverElseReachesTheMedium) {
  std::mt19937 random(7);
  int images = 0;
  for (int trial = 0; trial < 40; ++trial) {
    LoggedBuffer medium;
    std::map<long, int> model, synced;  // number and value
    std::set<long> touched;             // removed or renumbered since
    std::size_t from = 0;               // writes before the sync
    const auto replay = [&] {
      for (int image = 0; image < 80; ++image, ++images) {
        // Everything before the last barrier, and any part of what came behind it.
        const std::size_t stop = from + random() % (medium.log.size() - from + 1);
        const auto later = std::upper_bound(medium.syncs.begin(), medium.syncs.end(), stop);
        const std::size_t sure = later == medium.syncs.begin() ? 0 : *std::prev(later);
        std::string bytes;
        for (std::size_t w = 0; w < stop; ++w) {
          const std::size_t size = medium.log[w].bytes.size();
          apply(bytes, medium.log[w], w < sure || random() % 3 != 0 ? size : random() % (size + 1));
        }
        Memory again(bytes);
        for (const auto& [number, value] : synced) {
          if (touched.count(number) != 0) continue;
          again.database->gotoRecord(number);
          const int read = load(*again.database)->value;
          EXPECT_TRUE(read == value || model[number] != value) << trial << ' ' << number;
        }
      }
    };
    {
      qcVDBArchive database(new StreamArchive(medium, qcArchive::storing, kLittle, true));
      for (int step = 0; step < 20; ++step) {
        Result result = numbered(step + 1);
        const long any = model.empty() ? 0 : std::next(model.begin(), static_cast<int>(random() % model.size()))->first;
        const long other = 1 + static_cast<long>(random() % 3000);
        const auto what = any == 0 ? 3 : random() % 5;
        if (what < 3) database.gotoRecord(any);
        if (what == 0) database.replaceRecord(&result), model[any] = result.value;
        if (what == 1 && model.count(other) == 0) database.renumberRecord(other), model[other] = model[any];
        if (what == 2) database.removeRecord();
        if (what == 2 || (what == 1 && database.currentRecord() == other)) model.erase(any), touched.insert(any);
        if (what > 2) model[database.storeNewRecord(&result)] = result.value;
        if (random() % 3 != 0) continue;
        if (from != 0) replay();
        database.sync();
        from = medium.log.size();
        synced = model;
        touched.clear();
      }
    }
  }
  std::printf("%d images\n", images);
}

// One bit of the header, of the anchor, or of the head of a record is wrong, or all of the anchor is gone.
TEST(Database, HidesNoRecordBehindABitThatIsWrong) {
  constexpr int kRecords = 4;
  Memory memory;
  for (int value = 1; value <= kRecords; ++value) {
    memory.archive->append();
    // A link in which one bit is set leads nowhere without it. The last record lies right behind the one before.
    std::string room(value == kRecords ? 0 : (256U << value) - memory.archive->bytes().size(), 'x');
    memory.archive->raw(room.data(), static_cast<long>(room.size()));
    memory.database->storeNewRecord(std::make_unique<Result>(value).get());
  }
  int found = 0, changes = 0;
  const auto isTold = [&](qcVDBArchive& database) {
    bool told = database.archive().damaged() != qcArchive::Position(0);
    found = 0;
    for (int value = 1; value <= kRecords; ++value) {
      if (database.archive().findMark(value) == qcArchive::Position(0)) continue;
      try {
        database.gotoRecord(value);
        found += load(database)->value == value ? 1 : 0;
      } catch (const qcException&) {
        told = true;
      }
    }
    return told || found == kRecords;
  };
  const auto flip = [&](std::streamoff head, std::size_t bit) {
    ++changes;
    std::string bytes = bytesOf(*memory.archive);
    const auto at = static_cast<std::size_t>(head);
    char& struck = bytes[at + bit / 8];
    if (bit < 42 * 8)
      struck = static_cast<char>(struck ^ (1 << bit % 8));
    else if (head == 2)
      bytes.replace(at, 42, 42, '\0');
    else
      bytes.replace(at + 18, 8, 8, '\0');  // the link
    try {
      Memory again(bytes);
      const bool isBegun = bit == 42 * 8 && again.archive->unfinished() != qcArchive::Position(0);
      EXPECT_TRUE(isTold(*again.database) || isBegun) << head << ' ' << bit / 8 << ' ' << bit % 8;
      const bool isDamaged = again.archive->damaged() != qcArchive::Position(0);
      if (head > 2 && isDamaged) {
        again.archive->salvage();
        again.archive->relink();
        Memory mended(bytesOf(*again.archive));
        isTold(*mended.database);
        EXPECT_TRUE(found >= kRecords - 1 && mended.archive->damaged() == qcArchive::Position(0)) << head << ' ' << bit;
      }
      if (head != 2) return;
      if (isDamaged) {
        EXPECT_THROW(again.database->storeNewRecord(std::make_unique<Result>().get()), qcArchive::BadContent);
      }
      again.archive->salvage();
      again.archive->relink();
      EXPECT_EQ(again.database->storeNewRecord(std::make_unique<Result>().get()), kRecords + 1) << bit;
      EXPECT_TRUE(isTold(*Memory(bytesOf(*again.archive)).database)) << bit;
    } catch (const qcArchive::Errors&) {
      EXPECT_EQ(head, 0);
    }
  };
  for (std::size_t bit = 0; bit < 16; ++bit) flip(0, bit);
  for (std::size_t bit = 0; bit <= 42 * 8; ++bit) flip(2, bit);
  for (const auto& record : memory.archive->records()) {
    const bool isMark = record.kind == qcArchiveRecord::mark;
    for (std::size_t bit = 0; bit <= 42 * 8; ++bit) {
      if (isMark && ((bit >= 40 && bit < 72) || bit == 79)) continue;  // another number; removed
      flip(record.at, bit);
    }
  }
  // Nor does one that was begun, and never linked.
  Memory killed(bytesOf(*memory.archive));
  killed.archive->append();
  killed.database->storeNewRecord(std::make_unique<Result>(0).get());
  auto records = memory.archive->records();
  std::string begun = bytesOf(*killed.archive);
  begun.replace(static_cast<std::size_t>(records.back().at) + 18, 8, 8, '\0');
  records.pop_back();  // whose link could be damaged by one that was written
  for (const auto& record : records) {
    for (std::size_t bit = 0; bit < 16; ++bit, ++changes) {
      std::string bytes = begun;
      bytes[static_cast<std::size_t>(record.at) + 18 + bit / 8] ^= static_cast<char>(1 << bit % 8);
      Memory again(bytes);
      again.archive->salvage();
      if (again.archive->damaged() != qcArchive::Position(0)) again.archive->relink();
      isTold(*again.database);
      EXPECT_TRUE(found == kRecords && again.database->lastRecord() == kRecords) << record.at << ' ' << bit;
    }
  }
  std::printf("%d changes\n", changes);
}

using DatabaseFiles = InFolder;

TEST_F(DatabaseFiles, ChangeNothingWhenReadOnly) {
  const Result first(5);
  qcVDBArchive(path(), true, false).storeNewRecord(&first);
  qcVDBArchive reader(path(), false, true);
  EXPECT_TRUE(reader.isReadOnly());
  const Result result(1);
  EXPECT_THROW(reader.storeNewRecord(&result), qcArchive::BadBuffer);
  reader.firstRecord();
  EXPECT_THROW(reader.replaceGrade(qcVDBHeader()), qcArchive::BadBuffer);
  EXPECT_THROW(reader.removeRecord(), qcArchive::BadBuffer);
  EXPECT_EQ(reader.loadHeader().recordNum(), reader.currentRecord());
}

// What an application has put behind a mark may be shorter than a header.
TEST(Grades, AreNotWrittenOverTheNextRecord) {
  for (int length = 0; length <= 9; ++length) {
    Memory memory;
    memory.archive->append();
    memory.archive->writeNewMark(10);
    for (int i = 0; i < length; ++i) *memory.archive << false;
    memory.archive->writeNewMark(11);
    const std::string before = bytesOf(*memory.archive);
    memory.database->gotoRecord(10);
    EXPECT_THROW(memory.database->replaceGrade(qcVDBHeader()), qcArchive::Errors) << length;
    EXPECT_EQ(bytesOf(*memory.archive), before) << length;
  }
}

TEST(DefaultDatabase, CanBeAskedForFromThreads) {
  Memory memory;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 1000; ++i) {
        if (t % 2 != 0) qcVDBArchive::globalArchive(memory.database.get());
        qcVDBArchive* found = qcVDBArchive::globalArchive();
        ASSERT_TRUE(!found || found == memory.database.get());
      }
    });
  }
  for (auto& thread : threads) thread.join();
  memory.database.reset();
  EXPECT_EQ(qcVDBArchive::globalArchive(), nullptr);
}

}  // namespace
