// Tool databases from arbitrary bytes, new ones where they are none: walked in both directions and loaded; then
// changed, as far as that is possible, after which the same records are there when it is opened anew.

#include "fuzz/fuzz.h"
#include "tests/support/archivable.h"
#include "vnxstd/shapes/circle.h"
#include "vnxstd/vdb.h"

/// What the databases among the golden files hold.
struct GoldenRecord : Archivable<GoldenRecord, qcVDBRecordBase> {
  void fields(qcArchive& archive) { archive || found || expected; }
  qcPtrHandle<qcShape> found{new qcCircle({1, 2}, 3)}, expected = found;
};

namespace {

std::vector<long> numbersOf(qcVDBArchive& database) {
  std::vector<long> numbers;
  for (long number = database.firstRecord(); number != 0; number = database.nextRecord()) numbers.push_back(number);
  std::vector<long> backwards;
  for (long number = database.lastRecord(); number != 0; number = database.prevRecord()) backwards.push_back(number);
  demand(std::equal(numbers.rbegin(), numbers.rend(), backwards.begin(), backwards.end()));
  return numbers;
}

void readAll(qcVDBArchive& database) {
  succeeds([&] { static_cast<void>(database.identification()); });
  for (const long number : numbersOf(database)) {
    succeeds([&] { demand(database.gotoRecord(number) == number); });
    succeeds([&] { demand(database.loadHeader().repInvariant()); });
    succeeds([&] { static_cast<void>(database.recordTypeName()); });
    succeeds([&] {
      const std::unique_ptr<qcVDBRecordBase> record(database.loadRecord());
      demand(record->header().recordNum() == number && record->database() == &database);
    });
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Input input(data, size);
  succeeds([&] {
    auto* archive = input.isSeekable() ? new qcMemoryArchive(input.bytes.data(), static_cast<long>(size), true)
                                       : new qcMemoryArchive(qcArchive::littleEndian, true);
    qcVDBArchive database(archive);
    if (input.isLimited) archive->limits({.bytes = 2000, .nesting = 9, .objects = 50, .elements = 900});
    if ((input.choice & 4) == 0) readAll(database);
    bool isWhole = archive->salvage() == 0;
    if (!isWhole) readAll(database);
    archive->limits({});
    if ((input.choice & 1) != 0) isWhole = succeeds([&] { archive->relink(); });
    GoldenRecord record;
    record.header().recordNum(input.choice >> 1);
    succeeds([&] { database.gotoRecord(input.choice); });
    succeeds([&] { demand(database.storeNewRecord(&record) != 0 && database.isPositioned()); });
    succeeds([&] { database.firstRecord(), database.replaceRecord(&record); });
    succeeds([&] { database.nextRecord(), database.renumberRecord(input.choice + 1); });
    succeeds([&] { database.replaceGrade(&record); });
    succeeds([&] { database.nextRecord(), database.removeRecord(); });
    readAll(database);
    if (!isWhole || archive->damaged() != qcArchive::Position(0)) return;
    const std::string bytes = bytesOf(*archive);
    qcVDBArchive again(new qcMemoryArchive(bytes.data(), static_cast<long>(bytes.size()), true));
    demand(numbersOf(again) == numbersOf(database));
  });
  return 0;
}
