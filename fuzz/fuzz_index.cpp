// The index of a seekable archive from arbitrary bytes: walked, loaded and salvaged; then changed and added to, as far
// as it can be, after which it reads the same when it is opened anew.

#include "fuzz/fuzz.h"
#include "vnxstd/shapes/circle.h"

namespace {

template <class Visit>
void visitAll(qcArchive& archive, Visit visit) {
  for (const qcArchiveRecord& record : archive.records()) {
    if (record.removed) continue;
    archive.seek(qcArchive::Position(record.at));
    succeeds([&] { visit(record); });
  }
}

void readAll(qcArchive& archive) {
  std::vector<std::unique_ptr<qcPersistent>> objects;
  demand((archive.firstMarkNum() == 0) == (archive.lastMarkNum() == 0));
  for (long id = archive.firstObjectID(), next = 0; id != 0; id = next) demand((next = archive.nextObjectID(id)) != id);
  archive.mode(qcArchive::loading);
  visitAll(archive, [&](const qcArchiveRecord& record) {
    long number = 0;
    unsigned long size = 0;
    qcArchive::Position body;
    if (record.kind == qcArchiveRecord::mark) {
      archive.readMark(number);
      demand(number == record.number && archive.findMark(number) == qcArchive::Position(record.at));
      demand(archive.nextMarkNum(archive.prevMarkNum(number)) == number);
    } else if (record.kind == qcArchiveRecord::object) {
      archive.readObjectHeader(number, size, body);
      static_cast<void>(archive.objectTypeName());
      archive.forgetObjects();
      objects.emplace_back(archive.loadObject());
    } else {
      demand(archive.pointerObjectID() == record.number);
      std::unique_ptr<qcPersistent> object;
      archive || object;
    }
  });
}

// One change after the other, as the bytes say.
void change(qcArchive& archive, const std::string& orders) {
  std::size_t next = 0;
  const auto order = [&] { return next < orders.size() ? static_cast<unsigned char>(orders[next++]) : 0U; };
  while (next < orders.size()) {
    const unsigned what = order();
    const auto number = static_cast<long>(order());
    succeeds([&] {
      if (what % 8 < 4) archive.append();
      switch (what % 8) {
        case 0:
          archive.writeNewMark(number);
          return;
        case 1: {
          archive.setStartingID(number);
          archive.wideSizes(number % 2 != 0);
          const std::unique_ptr<qcCircle> object(new qcCircle({1, 2}, 3));
          archive.storeObject(object.get());
          return;
        }
        case 2: {
          const qcPtrHandle<qcShape> shape(new qcCircle({3, 4}, 5));
          archive << shape << shape;
          return;
        }
        case 3: {
          qcArchive::Transaction transaction(archive);
          archive.replaceMark(number);
          archive << std::string("body");
          if (number % 4 != 0) transaction.commit();
          return;
        }
        case 4:
          archive.seek(archive.findMark(number));
          return archive.renumberMark(static_cast<long>(order()));
        case 5:
          archive.seek(archive.findMark(number));
          return archive.removeMark();
        case 6:
          archive.seek(archive.findObject(number));
          return archive.removeObject();
        default:
          archive.seek(archive.firstPointerPos());
          for (long i = number % 4; i > 0; --i) archive.seek(archive.nextPointerPos());
          return number < 128 ? archive.pointerObjectID(static_cast<long>(order())) : archive.removePointer();
      }
    });
  }
}

std::string numbersOf(const qcArchive& archive) {
  std::string text;
  for (const qcArchiveRecord& record : archive.records()) {
    if (record.removed) continue;
    for (const qcInt64 number : {qcInt64{record.kind}, qcInt64{record.number}, record.at, record.body}) {
      text += std::to_string(number) + ' ';
    }
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The last bytes are orders: the number of them is the last one.
  const std::size_t count = size == 0 ? 0 : std::min<std::size_t>(data[size - 1] % 16, size - 1);
  const Input input(data, size);
  if (!input.isSeekable()) return 0;
  input.read([&](qcArchive& archive) {
    demand(archive.unfinished() == qcArchive::Position(0) || archive.damaged() == qcArchive::Position(0));
    if ((input.choice & 2) == 0) readAll(archive);
    const bool isWhole = archive.salvage() == 0, isMended = (input.choice & 1) != 0;
    if (!isWhole) readAll(archive);
    if (isMended) archive.relink();
    if (count == 0 && !isMended) return;  // nothing is changed
    change(archive, std::string(data + size - 1 - count, data + size - 1));
    readAll(archive);
    if ((!isWhole && !isMended) || archive.damaged() != qcArchive::Position(0)) return;
    archive.sync();
    const std::string bytes = bytesOf(dynamic_cast<qcMemoryArchive&>(archive));
    const qcMemoryArchive again(bytes.data(), static_cast<long>(bytes.size()), true);
    demand(numbersOf(again) == numbersOf(archive));
  });
  return 0;
}
