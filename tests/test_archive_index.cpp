// The index of seekable archives: marks, objects and pointers, and what interrupted writes and damage leave of them.

#include "support/archivable.h"
#include "support/bytes.h"
#include "support/faulty.h"
#include "support/folder.h"
#include "vnxstd/archive.h"

namespace {

using Dir = qcArchive::Direction;

/// A number, a text, and a handle on another one.
struct Item : Archivable<Item>, qcRepBase {
  explicit Item(int n = 0) : number(n) {}
  void fields(qcArchive& archive) { archive || number || other; }
  int number;
  qcPtrHandle<Item> other;
};
using ItemHandle = qcPtrHandle<Item>;

/// Bytes, as of a file that is kept in an archive.
struct Kept : Archivable<Kept>, qcRepBase {
  void fields(qcArchive& archive) { archive || bytes; }
  std::vector<unsigned char> bytes;
};

int numberAt(qcArchive& archive, long id) {
  archive.mode(qcArchive::loading);
  archive.seek(archive.findObject(id));
  const std::unique_ptr<qcPersistent> object(archive.loadObject());
  return dynamic_cast<Item&>(*object).number;
}

std::vector<long> marksOf(const qcArchive& archive) {
  std::vector<long> forwards, backwards;
  for (long mark = archive.firstMarkNum(); mark != 0; mark = archive.nextMarkNum(mark)) forwards.push_back(mark);
  for (long mark = archive.lastMarkNum(); mark != 0; mark = archive.prevMarkNum(mark)) backwards.push_back(mark);
  EXPECT_TRUE(std::equal(forwards.begin(), forwards.end(), backwards.rbegin(), backwards.rend()));
  return forwards;
}

TEST(Index, IsNotTakenForMissingWhereItsAnchorIsCut) {
  const std::string head = headOf(kLittle, true);
  for (std::size_t n = 2; n < head.size(); ++n)
    EXPECT_THROW(BytesArchive(head.substr(0, n), true), qcArchive::Eof) << n;
}

TEST(Index, NumbersMarksLikeAMap) {
  std::mt19937 random(5);
  for (const qcArchive::Ordering ordering : kOrderings) {
    std::string bytes = headOf(ordering, true);
    std::map<long, int> model;  // number of a mark, and the value behind it
    for (int session = 0; session < 30; ++session) {
      BytesArchive archive(bytes, true);
      archive->append();
      const long starting = 1 + static_cast<long>(random() % 20);
      archive->setStartingNum(starting);
      for (int step = 0; step < 20; ++step) {
        const long number = 1 + static_cast<long>(random() % 40);
        const bool taken = model.count(number) != 0;
        const bool turned = random() % 2 != 0;
        if (random() % 2 != 0) {
          archive->append();
          long wanted = random() % 2 != 0 ? number : 0;
          if (wanted != 0 && taken) {
            EXPECT_THROW(archive->writeNewMark(wanted), qcArchive::Duplicate);
            continue;
          }
          const long given = archive->writeNewMark(wanted);
          if (wanted == 0)
            for (wanted = starting; model.count(wanted) != 0;) ++wanted;
          EXPECT_EQ(given, wanted);
          model[given] = static_cast<int>(random());
          *archive << model[given];
          continue;
        }
        archive->mode(turned ? Dir::storing : Dir::loading);
        if (!taken) {
          EXPECT_EQ(archive->findMark(number), qcArchive::Position(0));
          continue;
        }
        const auto place = archive->findMark(number);
        archive->seek(place);
        const long other = 1 + static_cast<long>(random() % 40);
        if (random() % 3 == 0) {
          archive->removeMark();
          EXPECT_THROW(archive->skipMark(), qcArchive::NotFound);
          model.erase(number);
        } else if (other != number && model.count(other) != 0) {
          EXPECT_THROW(archive->renumberMark(other), qcArchive::Duplicate);
        } else {
          archive->renumberMark(other);
          std::swap(model[other], model[number]);
          if (other != number) model.erase(number);
        }
        EXPECT_TRUE(archive->tell() == place && archive->isStoring() == turned);
      }
      bytes = bytesOf(static_cast<qcMemoryArchive&>(*archive));
      BytesArchive again(bytes, true);
      std::vector<long> numbers;
      for (const auto& [number, value] : model) {
        numbers.push_back(number);
        again->seek(again->findMark(number));
        long read = 0;
        int behind = 0;
        again->readMark(read);
        *again || behind;
        EXPECT_TRUE(read == number && behind == value) << number;
      }
      EXPECT_EQ(marksOf(*again), numbers);
      EXPECT_EQ(marksOf(*archive), numbers);
    }
  }
}

TEST(Index, FindsLoadsAndRemovesObjectsAndPointers) {
  qcMemoryArchive out(kLittle, true);
  const ItemHandle first(new Item(1)), second(new Item(2)), third(new Item(3));
  second->other = first;
  out.setStartingID(7);
  EXPECT_EQ(out.storeObject(first.rep()), 7);
  out << 0xDEAD << second << second << ItemHandle();
  EXPECT_EQ(out.storeObject(third.rep()), 9);
  EXPECT_EQ(out.storeObject(first.rep()), 10) << "in full each time";
  EXPECT_THROW(out.storeObject(nullptr), qcBadPointer);

  BytesArchive in(bytesOf(out), true);
  std::vector<long> ids;
  for (long id = in->firstObjectID(); id != 0; id = in->nextObjectID(id)) ids.push_back(id);
  EXPECT_EQ(ids, (std::vector<long>{7, 8, 9, 10}));
  for (const auto& [id, number] : {std::pair{9, 3}, {7, 1}, {10, 1}, {8, 2}}) {
    EXPECT_EQ(numberAt(*in, id), number);
    in->seek(in->findObject(id));
    const auto place = in->tell();
    long read = 0;
    unsigned long size = 0;
    qcArchive::Position body;
    in->readObjectHeader(read, size, body);
    EXPECT_TRUE(read == id && size == 24 && in->tell() == place && in->objectTypeName().ends_with("Item"));
    in->seek(body);
    in->reserve16();  // the versions
    int behind = 0;
    *in || behind;
    EXPECT_EQ(behind, number);
  }
  std::vector<qcArchive::Position> pointers;
  in->seek(2, 0);
  for (auto p = in->firstPointerPos(); p != qcArchive::Position(0); p = in->nextPointerPos()) {
    pointers.push_back(p);
    in->seek(p);
    EXPECT_EQ(in->pointerObjectID(), 8);
  }
  ASSERT_EQ(pointers.size(), 2U);

  // The pointer that brought its object along refers to another one, twice; the one behind it to none.
  in->seek(pointers[0]);
  EXPECT_THROW(in->pointerObjectID(11), qcArchive::NotFound);
  for (const long id : {7, 9}) in->pointerObjectID(id);
  in->seek(pointers[1]);
  in->removePointer();
  in->seek(in->findObject(7));
  in->removeObject();
  EXPECT_THROW(in->loadObject(), qcArchive::NotFound);
  BytesArchive again(bytesOf(static_cast<qcMemoryArchive&>(*in)), true);
  EXPECT_EQ(again->firstPointerPos(), pointers[0]);
  EXPECT_EQ(again->findObject(7), qcArchive::Position(0));
  again->seek(pointers[0]);
  ItemHandle a, b, c;
  *again || a || b || c;
  EXPECT_TRUE(a->number == 3 && !b && !c);
  again->seek(again->findObject(8));
  EXPECT_THROW(again->loadObject(), qcArchive::NotFound) << "what it refers to is removed";
  EXPECT_EQ(again->tell(), again->findObject(8));
  EXPECT_EQ(numberAt(*again, 10), 1);
  again->append();
  EXPECT_EQ(again->storeObject(second.rep()), 11) << "behind what is removed, too";
}

TEST(Index, BelongsToSeekableArchivesThatMayBeWrittenAtTheirEnd) {
  qcMemoryArchive plain(kLittle, false);
  long number = 0;
  const std::function<void()> calls[] = {[&] { static_cast<void>(plain.firstMarkNum()); },
                                         [&] { plain.readMark(number); },
                                         [&] { plain.writeNewMark(); },
                                         [&] { static_cast<void>(plain.loadObject()); },
                                         [&] { static_cast<void>(plain.secondary()); },
                                         [&] { plain.salvage(); }};
  for (const auto& call : calls) EXPECT_THROW(call(), qcArchive::NotSeekable);
  qcMemoryArchive archive(kLittle, true);
  archive.writeNewMark();
  archive << 1;
  archive.seek(-4, 1);
  EXPECT_THROW(archive.writeNewMark(), qcArchive::BadBuffer);
  EXPECT_THROW(archive.writeNewMark(-1), qcArchive::BadContent);
  const long most = std::numeric_limits<std::int32_t>::max();
  archive.seek(0, 2);
  archive.writeNewMark(most);
  if constexpr (sizeof(long) > 4) {
    const auto beyond = static_cast<long>(most + 1LL);
    EXPECT_THROW(archive.writeNewMark(beyond), qcArchive::BadContent);
    EXPECT_TRUE(archive.findMark(beyond) == qcArchive::Position(0) && archive.prevMarkNum(beyond) == most);
  }
  archive.seek(-4, 1);
  archive << ItemHandle(new Item(9));  // over the number: no part of the index
  EXPECT_EQ(archive.firstPointerPos(), qcArchive::Position(0));
  archive.mode(Dir::loading);
  EXPECT_THROW(archive.writeNewMark(), qcArchive::BadBuffer);
  BytesArchive bare(fromHex("03 01 00 00"), true);
  bare->append();
  EXPECT_THROW(bare->writeNewMark(), qcArchive::BadContent);
}

TEST(Index, AnInterruptionAtAnyByteLosesNothingThatWasStored) {
  for (const qcArchive::Ordering ordering : kOrderings) {
    LoggedBuffer medium;
    StreamArchive out(medium, Dir::storing, ordering, true);
    // After each of these many writes: how many records there are, and the mark whose number is about to change.
    std::map<std::size_t, long> acknowledged{{0, 0}};
    const ItemHandle shared(new Item(100));
    for (int i = 1; i <= 8; ++i) {
      out.writeNewMark(i * 10);
      out << i;
      const ItemHandle item(new Item(i));
      item->other = shared;
      out << item;
      acknowledged[medium.log.size()] = i;
    }
    std::string before;
    for (std::size_t w = 0; w < medium.log.size(); ++w) {
      const long there = std::prev(acknowledged.upper_bound(w))->second;
      for (std::size_t cut = 0; cut < medium.log[w].bytes.size(); ++cut) {
        std::string bytes = before;
        apply(bytes, medium.log[w], cut);
        if (bytes.size() < headOf(ordering, true).size()) continue;  // interrupted before there was an archive
        BytesArchive archive(bytes, true);
        EXPECT_EQ(archive->damaged(), qcArchive::Position(0));
        const auto check = [&](long count) {
          archive->mode(Dir::loading);
          for (long i = 1; i <= count; ++i) {
            int value = 0;
            ItemHandle item;
            archive->seek(archive->findMark(i * 10));
            archive->skipMark();
            *archive || value || item;
            ASSERT_TRUE(value == i && item->number == i && item->other->number == 100) << w << ' ' << cut << ' ' << i;
          }
        };
        check(there);
        // What was begun is known, and gives way to the next record.
        const qcArchive::Position begun = archive->unfinished();
        archive->append();
        EXPECT_TRUE(begun == qcArchive::Position(0) || archive->tell() == begun);
        EXPECT_EQ(archive->unfinished(), qcArchive::Position(0));
        if (archive->lastMarkNum() == there * 10 + 10) continue;  // that mark is whole, only its record is not
        archive->writeNewMark((there + 1) * 10);
        *archive << static_cast<int>(there + 1);
        const ItemHandle item(new Item(static_cast<int>(there + 1)));
        item->other = shared;
        *archive << item;
        check(there + 1);
      }
      apply(before, medium.log[w], medium.log[w].bytes.size());
    }
  }
}

TEST(Index, AnInterruptedChangeHasHappenedOrNot) {
  LoggedBuffer medium;
  StreamArchive out(medium, Dir::storing, kLittle, true);
  for (const long number : {1, 2, 3}) out.writeNewMark(number);
  out.append();
  std::string before = medium.data();
  const std::size_t start = medium.log.size();
  out.seek(out.findMark(2));
  const std::vector<std::vector<long>> states{{1, 2, 3}, {1, 3, 0x01020304}, {1, 3, 0x02030405}, {1, 3}};
  std::vector<std::size_t> ends{start};
  for (const long number : {0x01020304, 0x02030405, 0}) {
    number != 0 ? out.renumberMark(number) : out.removeMark();
    ends.push_back(medium.log.size());
  }
  std::size_t state = 0;
  for (std::size_t w = start; w < medium.log.size(); ++w) {
    for (std::size_t cut = 0; cut <= medium.log[w].bytes.size(); ++cut) {
      std::string bytes = before;
      apply(bytes, medium.log[w], cut);
      const std::vector<long> marks = marksOf(*BytesArchive(bytes, true));
      if (marks != states[state]) ++state;
      ASSERT_LT(state, states.size());
      ASSERT_EQ(marks, states[state]) << w - start << ' ' << cut;
    }
    apply(before, medium.log[w], medium.log[w].bytes.size());
  }
  EXPECT_EQ(state, 3U);
}

TEST(Index, KeepsNothingOfATransactionThatIsNotCommitted) {
  qcMemoryArchive out(kLittle, true);
  const ItemHandle item(new Item(5));
  out.writeNewMark(1);
  {
    qcArchive::Transaction transaction(out);
    out << item;
    out.replaceMark(1);
    out.seek(out.findMark(1));
    EXPECT_THROW(out.renumberMark(2), qcArchive::BadBuffer);
    EXPECT_THROW(out.removeMark(), qcArchive::BadBuffer);
  }
  {
    qcArchive::Transaction transaction(out);
    for (int i = 0; i < 2; ++i) transaction.commit();
    out.writeNewMark(2);  // by itself again
  }
  // What was cut off or removed is stored once more.
  for (int i = 0; i < 2; ++i) {
    const auto place = out.tell();
    out << item;
    BytesArchive in(bytesOf(out), true);
    EXPECT_EQ(marksOf(*in), (std::vector<long>{1, 2}));
    in->seek(place);
    ItemHandle read;
    *in || read;
    EXPECT_EQ(read->number, 5);
    out.seek(out.findObject(out.firstObjectID()));
    out.removeObject();
    out.append();
  }
}

TEST(Index, LoadsCirclesBackToTheirBeginning) {
  qcMemoryArchive out(kLittle, true);
  const ItemHandle first(new Item(1)), second(new Item(2));
  first->other = second;
  second->other = first;
  out.setStartingID(5);
  const long id = out.storeObject(first.rep());
  out << first;
  second->other.release();
  std::string moved = bytesOf(out);  // as of a copy: the way back tells an older place
  moved[moved.find(fromHex("4F E5 70 54 01 05 00 00 00 00")) + 14] = 1;
  BytesArchive in(moved, true);
  ItemHandle known, same;
  for (ItemHandle* handle : {&known, &same}) {
    in->seek(in->firstPointerPos());
    *in || *handle;
    in->seek(in->findObject(id));
    const ItemHandle anew(dynamic_cast<Item*>(in->loadObject()));
    EXPECT_TRUE(anew != known && anew->other->number == 2);
    EXPECT_TRUE(anew->other->other == anew || anew->other == known->other);
    if (handle == &known) known->other->other.release();
  }
  EXPECT_EQ(known, same);
  in->forgetObjects();
  in->seek(in->findObject(id));
  const ItemHandle alone(dynamic_cast<Item*>(in->loadObject()));
  EXPECT_EQ(alone->other->other, alone);
  alone->other->other.release();
}

/// Marks 1 and 2, whose link is not written, and what is between and behind them.
std::string withUnlinkedMark(long number, const std::string& between = {}) {
  qcMemoryArchive out(kLittle, true);
  out.writeNewMark(1);
  qcArchive::Transaction transaction(out);
  out.raw(const_cast<char*>(between.data()), static_cast<long>(between.size()));
  out.writeNewMark(number);
  transaction.commit();
  return bytesOf(out).replace(44 + 18, 8, 8, '\0');
}

TEST(Index, WhatIsStoredBehindSomethingUnfinishedStays) {
  BytesArchive archive(withUnlinkedMark(2), true);
  EXPECT_EQ(archive->unfinished(), qcArchive::Position(86));
  archive->mode(Dir::storing);
  archive->seek(0, 2);
  archive->writeNewMark(5);
  archive->append();
  BytesArchive again(bytesOf(static_cast<qcMemoryArchive&>(*archive)), true);
  EXPECT_EQ(marksOf(*again), (std::vector<long>{1, 5}));

  // So does data of other kinds, whether the link was written or what it leads to.
  for (const bool linked : {false, true}) {
    std::string bytes = withUnlinkedMark(2);
    if (linked) bytes.replace(44 + 18, 8, std::string{86, 0, 0, 0, 0, 0, 0, 0}).resize(86);
    BytesArchive cut(bytes, true);
    EXPECT_EQ(cut->unfinished(), qcArchive::Position(86));
    cut->append();
    *cut << 0x12345678;
    BytesArchive later(bytesOf(static_cast<qcMemoryArchive&>(*cut)), true);
    EXPECT_TRUE(later->unfinished() == qcArchive::Position(0) && later->damaged() == qcArchive::Position(0)) << linked;
  }

  // Nor is other data taken for a record that was begun: what a transaction without records stored, or what lies where
  // an announcement that was cut short leads.
  qcMemoryArchive out(kLittle, true);
  {
    qcArchive::Transaction transaction(out);
    out << 0x12345678;
    transaction.commit();
  }
  std::string plain = bytesOf(out), torn = withUnlinkedMark(2, std::string(256, 'x'));
  torn.resize(torn.size() - 42);
  torn[13] = '\0';  // the announcement says 86, not 342
  std::vector<std::string> images{plain, torn};
  // Nor does a link stay that was cut short, or that leads to the end of the data.
  std::string half = withUnlinkedMark(2, std::string(300, 'x')).replace(44 + 18, 1, 1, '\x82');
  std::string missing = withUnlinkedMark(2).replace(44 + 18, 1, 1, '\x56').substr(0, 86);
  for (const std::string& bytes : {withUnlinkedMark(2), half, missing}) {
    BytesArchive behind(bytes, true);
    EXPECT_EQ(behind->unfinished(), qcArchive::Position(bytes == half ? 386 : 86));
    behind->mode(Dir::storing);
    behind->seek(0, 2);
    *behind << 7;
    images.push_back(bytesOf(static_cast<qcMemoryArchive&>(*behind)));
  }
  for (const std::string& bytes : images) {
    BytesArchive in(bytes, true);
    in->append();
    EXPECT_EQ(in->tell(), qcArchive::Position(static_cast<std::streamoff>(bytes.size())));
    EXPECT_EQ(in->writeNewMark(9), 9);
  }

  // A head of which only zeros lie in the next part of the medium is damaged, though, if a byte before them is.
  qcMemoryArchive marks(kLittle, true);
  marks.writeNewMark(1);
  marks.raw(std::string(390, 'x').data(), 390);
  marks.writeNewMark(2);
  for (const std::size_t byte : {0U, 4U, 8U, 27U}) {
    std::string flipped = bytesOf(marks);
    flipped[476 + byte] ^= '\x80';
    EXPECT_EQ(BytesArchive(flipped, true)->damaged(), qcArchive::Position(476)) << byte;
  }
}

TEST(Index, GrowsAgainWhenNothingOfWhatWasLinkedHasReachedTheMedium) {
  qcMemoryArchive out(kLittle, true);
  out.writeNewMark(1);
  const std::size_t synced = bytesOf(out).size();
  out << ItemHandle(new Item(2));
  for (long mark = 3; mark < 5; ++mark) out.writeNewMark(mark);
  const std::string whole = bytesOf(out);
  for (std::size_t size = synced; size < whole.size(); ++size) {
    for (const bool zeros : {false, true}) {  // the file was made longer, and nothing written
      std::string bytes = whole.substr(0, size);
      if (zeros && size == synced) bytes.resize(whole.size());
      BytesArchive archive(bytes, true);
      ASSERT_EQ(archive->damaged(), qcArchive::Position(0)) << size;
      {
        BytesArchive behind(bytes, true);
        behind->mode(Dir::storing);
        behind->seek(0, 2);
        behind->raw(std::string(whole.size(), 'x').data(), static_cast<long>(whole.size()));
        BytesArchive reopened(bytesOf(static_cast<qcMemoryArchive&>(*behind)), true);
        EXPECT_EQ(reopened->damaged(), qcArchive::Position(0)) << size;
      }
      archive->append();
      EXPECT_EQ(archive->firstMarkNum(), 1);
      Item item(9);
      const long id = archive->storeObject(&item);
      BytesArchive again(bytesOf(static_cast<qcMemoryArchive&>(*archive)), true);
      EXPECT_EQ(numberAt(*again, id), 9);
      // A pointer whose object is missing does not get another one.
      if (again->firstPointerPos() == qcArchive::Position(0)) continue;
      ItemHandle read;
      again->seek(again->firstPointerPos());
      try {
        *again || read;
      } catch (const qcArchive::Errors&) {
      }
      EXPECT_TRUE(!read || read->number == 2) << size;
      again->seek(again->firstPointerPos());
      again->pointerObjectID(id);
      *again || read;
      EXPECT_EQ(read->number, 9) << size;
    }
  }
}

TEST(Index, KnowsAnObjectWithoutItsHead) {
  // The mark that is stored where one was may have its number.
  qcMemoryArchive pointer(kLittle, true);
  pointer << ItemHandle(new Item(1));
  BytesArchive cut(bytesOf(pointer).substr(0, 100), true);
  cut->append();
  cut->writeNewMark(1);
  EXPECT_EQ(BytesArchive(bytesOf(static_cast<qcMemoryArchive&>(*cut)).replace(44 + 18, 8, 8, '\0'), true)->damaged(),
            qcArchive::Position(0));

  // The size may be all that the head has lost.
  qcMemoryArchive objects(kLittle, true);
  std::vector<std::size_t> places;
  for (int number = 1; number < 4; ++number) {
    places.push_back(bytesOf(objects).size());
    objects.storeObject(&*ItemHandle(new Item(number)));
  }
  for (const std::size_t place : places) {
    BytesArchive archive(bytesOf(objects).replace(place + 10, 8, 8, '\0'), true);
    EXPECT_EQ(archive->damaged() != qcArchive::Position(0), place != places.back());
    archive->salvage();
    archive->relink();
    archive->append();
    archive->storeObject(&*ItemHandle(new Item(4)));
    BytesArchive again(bytesOf(static_cast<qcMemoryArchive&>(*archive)), true);
    for (int number = 1; number < 5; ++number) EXPECT_EQ(numberAt(*again, number), number) << place;
  }
}

TEST(Index, ReadsNothingWrongBehindPointers) {
  qcMemoryArchive out(kLittle, true);
  const ItemHandle first(new Item(1)), second(new Item(2));
  out << first << 11 << first << 12 << second << 13;
  const auto expectRead = [](qcArchive& in) {
    for (const int number : {11, 12, 13}) {
      ItemHandle read;
      int behind = 0;
      in || read || behind;
      EXPECT_EQ(behind, number);
      EXPECT_TRUE(!read || read->number == (number == 13 ? 2 : 1));
    }
  };
  for (const qcArchiveRecord& record : out.records()) {
    for (std::size_t bit = 0; bit < 42 * 8; ++bit) {
      std::string bytes = bytesOf(out);
      bytes[static_cast<std::size_t>(record.at) + bit / 8] ^= static_cast<char>(1 << bit % 8);
      BytesArchive in(bytes, true);
      if (in->damaged() != qcArchive::Position(0) || in->unfinished() != qcArchive::Position(0)) continue;
      SCOPED_TRACE(std::to_string(record.at) + ' ' + std::to_string(bit));
      try {
        expectRead(*in);
      } catch (const qcArchive::Errors&) {
      }
    }
  }
  BytesArchive redirected(bytesOf(out), true);
  for (const long id : {2, 1, 2, 1}) {
    redirected->seek(redirected->firstPointerPos());
    redirected->pointerObjectID(id);
    redirected->seek(redirected->firstPointerPos());
    if (id == 1) expectRead(*redirected);
  }
}

TEST(Index, TakesNoArchiveWithinAnObjectForItsOwn) {
  qcMemoryArchive out(kLittle, true);
  for (long mark = 1; mark <= 3; ++mark) out.writeNewMark(mark);
  Kept kept;
  const std::string inner = bytesOf(out);
  kept.bytes.assign(inner.begin(), inner.end());
  qcMemoryArchive outer(kLittle, true);
  outer.writeNewMark(1);
  outer.storeObject(&kept);
  const std::string cut = bytesOf(outer);
  EXPECT_EQ(BytesArchive(cut.substr(0, cut.size() - 1), true)->unfinished(), qcArchive::Position(86));
  outer.writeNewMark(2);
  BytesArchive struck(bytesOf(outer).replace(86, 1, "x"), true);
  EXPECT_TRUE(struck->salvage() == 1 && marksOf(*struck) == (std::vector<long>{1, 2}));
}

TEST(Index, GivesNoIdentifierTwice) {
  BytesArchive late(withUnlinkedMark(2147483645), true);  // the number of a mark is none
  late->append();
  Item item(1);
  for (const long id : {1, 2, 3}) EXPECT_EQ(late->storeObject(&item), id);
  qcMemoryArchive other(kLittle, true);
  other.storeObject(&item);
  BytesArchive struck(bytesOf(other).replace(44 + 5, 1, "\2") + std::string(1000, 'x'), true);
  struck->limits({.bytes = 10});  // of loading
  struck->append();
  EXPECT_EQ(struck->storeObject(&item), 3);
  // Over older data no link tells of them.
  for (const bool byValue : {false, true}) {
    qcMemoryArchive out(kLittle, true);
    const auto at = out.tell();
    std::string room(400, '\0');
    out.raw(room.data(), 400);
    out.writeNewMark(1);
    out.storeObject(&item);
    out.seek(at);
    Item holder(10);
    const ItemHandle inner(new Item(11));
    holder.other = inner;
    byValue ? static_cast<void>(out << holder) : static_cast<void>(out << inner);
    BytesArchive in(bytesOf(out), true);
    in->append();
    EXPECT_EQ(in->storeObject(&item), 3);
  }
  qcMemoryArchive together(kLittle, true);
  {
    qcArchive::Transaction transaction(together);
    Item holder(10);
    holder.other = ItemHandle(new Item(11));
    together << holder;
    together.writeNewMark(1);
    transaction.commit();
  }
  BytesArchive in(bytesOf(together), true);
  in->append();
  EXPECT_EQ(in->storeObject(&item), 2);
}

TEST(Index, LetsNoPointerLeadToAnObjectOfAnotherPlace) {
  qcMemoryArchive out(kLittle, true);
  const ItemHandle item(new Item(1));
  item->other = ItemHandle(new Item(2));
  out.setStartingID(16);
  out << item;
  for (const bool isKnown : {false, true}) {
    BytesArchive in(bytesOf(out).replace(44 + 5, 1, 1, '\x11'), true);  // the number of what lies within the object
    std::unique_ptr<qcPersistent> known;
    in->seek(in->findObject(16));
    if (isKnown) known.reset(in->loadObject());
    in->seek(in->firstPointerPos());
    ItemHandle read;
    EXPECT_THROW(*in || read, qcArchive::NotFound);
  }
}

TEST(Index, NoSeekFailsUnnoticed) {
  Item item(5);
  const std::pair<Dir, std::function<void(qcArchive&)>> calls[] = {
      {Dir::storing, [](qcArchive& archive) { archive.writeNewMark(5); }},
      {Dir::storing, [&](qcArchive& archive) { archive.storeObject(&item); }},
      {Dir::storing, [](qcArchive& archive) { archive << ItemHandle(new Item(9)); }},
      {Dir::storing,
       [](qcArchive& archive) {
         archive.seek(archive.findObject(1));
         archive << (archive.objectTypeName().size() > 4 ? 0x4F : 0);
       }},
      {Dir::loading, [](qcArchive& archive) {
         archive.seek(archive.findObject(1));
         archive.removeObject();
       }}};
  for (const auto& [direction, change] : calls) {
    std::string whole;
    for (std::size_t n = Faults::kNone;; ++n) {  // of one call nothing fails, of the next ones the first seek and so on
      FaultyBuffer medium;
      StreamArchive archive(medium, Dir::storing, kLittle, true);
      archive.storeObject(&item);
      archive.mode(direction);
      const std::string before = medium.data();
      medium.seeksLeft = n;
      bool isWhole = true;
      try {
        change(archive);
      } catch (const qcArchive::BadBuffer&) {
        isWhole = false;
      }
      EXPECT_EQ(archive.isLoading(), direction == Dir::loading) << n;
      if (n == Faults::kNone) whole = medium.data();
      const bool isChangedAtOnce = direction == Dir::loading;
      EXPECT_TRUE(medium.data() == (isWhole ? whole : before) || !(isWhole || isChangedAtOnce)) << n;
      if (std::exchange(medium.seeksLeft, Faults::kNone) != Faults::kNone) break;
    }
  }
}

TEST(Index, KeepsWhatAPointerRefersToUntilItsRedirectionIsWhole) {
  qcMemoryArchive out(kLittle, true);
  const ItemHandle within(new Item(2)), item(new Item(1));
  item->other = within;
  out << item << within;  // the second pointer refers to what lies within the first one's object
  Item another(9);
  const long id = out.storeObject(&another);
  out.seek(out.firstPointerPos());
  const auto place = out.nextPointerPos();
  out.seek(place);
  const std::size_t kind = static_cast<std::size_t>(static_cast<std::streamoff>(place)) + 9;
  const char before = bytesOf(out)[kind];
  out.pointerObjectID(id);
  for (const auto& [byte, number] : {std::pair{before, 2}, {bytesOf(out)[kind], 9}}) {
    BytesArchive in(bytesOf(out).replace(kind, 1, 1, byte), true);
    in->seek(place);
    ItemHandle read;
    *in || read;
    EXPECT_EQ(read->number, number);
  }
}

TEST(Index, SalvageFindsWhatLiesBetweenDamage) {
  for (const std::size_t byte : {0U, 3U, 9U, 26U}) {
    qcMemoryArchive out(kLittle, true);
    for (int i = 1; i <= 5; ++i) out.writeNewMark(i);
    std::string bytes = bytesOf(out);
    for (const std::size_t mark : {2U, 4U}) bytes[2 + mark * 42 + byte] = 0x7F;
    BytesArchive archive(bytes, true);
    archive->salvage();
    // Both neighbours name one that has only lost the place of the one before.
    EXPECT_EQ(marksOf(*archive), byte == 26 ? (std::vector<long>{1, 2, 3, 4, 5}) : (std::vector<long>{1, 3, 5}))
        << byte;
  }
}

using Files = InFolder;

TEST_F(Files, HaveOneWriter) {
  const auto tryOpen = [this](Dir direction, bool readOnly) {
    try {
      qcFileArchive(path(), direction, kLittle, true, readOnly);
      return true;
    } catch (const qcArchive::BadFile& error) {
      EXPECT_EQ(error.message(false), L"File is in use: " + path());
      return false;
    }
  };
  {
    qcFileArchive writer(path(), Dir::storing, kLittle, true);
    writer.writeNewMark();
    writer.sync();
    EXPECT_TRUE(!tryOpen(Dir::storing, false) && !tryOpen(Dir::loading, false) && tryOpen(Dir::loading, true));
  }
  qcFileArchive reader(path(), Dir::loading, kLittle, true, true);
  EXPECT_EQ(reader.firstMarkNum(), 1) << "nothing was truncated";
  EXPECT_THROW(reader.append(), qcArchive::BadBuffer);
  EXPECT_NO_THROW(reader.sync());
  reader.seek(reader.findMark(1));
  EXPECT_THROW(reader.removeMark(), qcArchive::BadBuffer);
  EXPECT_EQ(reader.firstMarkNum(), 1);
  EXPECT_TRUE(tryOpen(Dir::loading, false));
}

TEST_F(Files, GrowBeyond4GiB) {
  Item early(1), late(2);
  {
    qcFileArchive archive(path(), Dir::storing, kBig, true);
    archive.writeNewMark(1);
    archive.storeObject(&early);
    archive.sync();
    std::error_code refused;
    std::filesystem::resize_file(path(), (std::uintmax_t{4} << 30) + 12345, refused);  // a hole
#ifdef _WIN32
    if (refused) GTEST_SKIP() << "files that are written are kept from others";
#endif
    ASSERT_FALSE(refused) << refused.message();
    archive.append();
    late.other = ItemHandle(new Item(3));
    archive.writeNewMark(2);
    archive.storeObject(&late);
    EXPECT_EQ(numberAt(archive, 2), 2);
  }
  qcFileArchive archive(path(), Dir::loading, kBig, true, true);
  EXPECT_GT(static_cast<std::streamoff>(archive.findMark(2)), std::streamoff{1} << 32);
  EXPECT_TRUE(numberAt(archive, 1) == 1 && numberAt(archive, 2) == 2);
}

TEST_F(Files, LoseWhatAnInterruptedProgramHasBegunAndNoMore) {
  { qcFileArchive(path(), Dir::storing, kLittle, true).writeNewMark(1); }
  const auto whole = std::filesystem::file_size(path());
  write("file", withUnlinkedMark(2));
  qcFileArchive archive(path(), Dir::loading, kLittle, true);
  EXPECT_EQ(static_cast<std::uintmax_t>(static_cast<std::streamoff>(archive.unfinished())), whole);
  archive.append();
  archive.sync();
  EXPECT_EQ(std::filesystem::file_size(path()), whole);
}

}  // namespace
