// Objects in archives: framing, sharing, circles, failed and hostile loads, seekable archives.

#include "support/allocations.h"
#include "support/archivable.h"
#include "support/bytes.h"
#include "support/nodes.h"
#include "support/records.h"
#include "support/smallstack.h"
#include "support/test.h"

namespace {

class CountedPet : public Pet, public qcRepBase {};

void expectSame(const NodeHandle& a, const NodeHandle& b) {
  EXPECT_TRUE(stored(kBig, false, a) == stored(kBig, false, b));
}

const std::string kPetName = stored(kBig, false, std::string("(anonymous namespace)::Pet"));
const std::string kNodeName = stored(kBig, false, std::string("(anonymous namespace)::Node"));
std::string petObject(int number) { return kMarker + std::string{1, 0, static_cast<char>(number)}; }

struct Base : Archivable<Base> {
  static void fields(qcArchive& archive) { archive << static_cast<unsigned char>(0xBA); }
};
template <unsigned char N>
struct Side : Archivable<Side<N>, Base> {
  static void fields(qcArchive& archive) { archive << N; }
};
struct Sides : Side<1>, Side<2> {
  void dispatchSerialize(qcArchive& archive) override {
    Side<1>::dispatchSerialize(archive);
    Side<2>::dispatchSerialize(archive);
  }
};
struct Both : Archivable<Both, Sides> {
  static void fields(qcArchive&) {}
};

TEST(Objects, StoreABaseThatIsReachedTwiceOnce) {
  EXPECT_EQ(stored(kBig, false, Both()), kMarker + fromHex("00 00 00 00 BA 01 00 02"));
}

TEST(Objects, OldLayoutsAreReadWhereTheClassHasThem) {
  Pet pet;
  const auto load = [&pet](const char* hex, bool seekable) { *BytesArchive(fromHex(hex), seekable) >> pet; };
  load("00 00 01 00 2A", false);  // version 0: no marker
  EXPECT_EQ(pet.number, 0x2A);
  EXPECT_THROW(load("02 00 01 00 2B 2B", false), qcArchive::NotSeekable);
  EXPECT_THROW(load("03 00 01 00 2B 2B", true), qcArchive::BadContent);
  pet.legacy = true;
  load("03 00 2C 00 00 00", true);
  EXPECT_EQ(pet.number, 0x2C);
  load("00 00 2D", false);
  EXPECT_EQ(pet.number, 0x2D);
  BytesArchive old(fromHex("01 00"), true);
  old->mode(qcArchive::storing);
  EXPECT_THROW(*old << pet, qcArchive::CannotWriteToOldArchive);
  EXPECT_THROW(*old << NodeHandle(new Node), qcArchive::CannotWriteToOldArchive);
  EXPECT_THROW(old->storeObject(&pet), qcArchive::CannotWriteToOldArchive);
}

// What any one wrong byte comes to is kept as a file.
TEST(Pointers, BadRecordsHaveTheirErrors) {
  const auto load = [](const std::string& bytes) {
    NodeHandle handle;
    ::load(headOf(kBig) + bytes, handle);
  };
  load(fromHex("4FE5705400") + record(0, 0).substr(5));                         // record version 0
  load(fromHex("4FE5705501") + record(0, 0).substr(5) + std::string(8, '\0'));  // 64-bit fields
  EXPECT_THROW(load(record(-1, 0)), qcArchive::BadContent);
  for (const int kind : {0, 2, 255})
    EXPECT_EQ(errorOf([&] { load(record(1, kind)); }), L"qcArchive::NotFound: thrown from file: archutil, line: 1980");
  const std::string nobody = stored(kBig, false, std::string("Nob\xFFody"));
  EXPECT_EQ(errorOf([&] { load(record(1, 1, nobody)); }),
            L"qcArchive::UnknownType: Nob\uFFFDody; thrown from file: archutil, line: 1970");
  const std::string abstract = stored(kBig, false, std::string("qcArchive::Errors"));
  EXPECT_THROW(load(record(1, 1, abstract)), qcArchive::UnknownType);
  // An object of the wrong class is refused before its body is looked at.
  EXPECT_THROW(load(record(1, 1, kPetName)), qcArchive::BadType);
  EXPECT_EQ(alive, 0);
}

TEST(Pointers, AnUnregisteredClassIsRefusedBeforeAByteIsWritten) {
  class Stranger : public qcPersistent, public qcRepBase {};
  qcMemoryArchive archive(kBig, false);
  EXPECT_THROW(archive << qcPtrHandle<Stranger>(new Stranger), qcArchive::UnknownType);
  EXPECT_THROW(archive << Stranger(), qcArchive::UnknownType);
  EXPECT_EQ(archive.bytes().size(), 2U);
}

TEST(Pointers, ACopyOfAKnownObjectIsReadAndThrownAway) {
  // Node 1; then node 1 again, which now holds a node 2; then a reference to 1, and one to 2, which nobody knows.
  const std::string empty = stored(kBig, false, std::string(), 0, 0), noEdges = record(0, 0) + record(0, 0);
  const std::string plain = kMarker + fromHex("0000") + empty + noEdges;
  const std::string nested = kMarker + fromHex("0000") + stored(kBig, false, std::string("x"), 2) +
                             record(2, 1, kNodeName + plain) + record(2, 0) + stored(kBig, false, 0) + noEdges;
  BytesArchive archive(headOf(kBig) + record(1, 1, kNodeName + plain) + record(1, 1, kNodeName + nested) +
                       record(1, 0) + record(2, 0));
  NodeHandle first, second, third, fourth;
  *archive || first || second || third;
  EXPECT_TRUE(first == second && second == third && first->name.empty());
  EXPECT_EQ(alive, 1);
  EXPECT_THROW(*archive || fourth, qcArchive::NotFound);
}

TEST(Pointers, AnObjectGivenAsAPlainPointerStaysWithTheCaller) {
  const auto node = [](const std::string& edges, int count) {
    return kNodeName + kMarker + fromHex("0000") + stored(kBig, false, std::string(), count) + edges +
           stored(kBig, false, 0) + record(0, 0) + record(0, 0);
  };
  const std::string self = record(1, 1, node(record(1, 0), 1));  // a copy that holds the object, and is thrown away
  const std::string inside = record(2, 1, node("", 0)) + record(2, 1, node(record(1, 0), 1));
  for (const std::string& bytes : {record(1, 1, node("", 0)) + self, record(1, 1, node("", 0)) + record(1, 0),
                                   record(1, 1, node(inside, 2)) + record(1, 0)}) {
    BytesArchive archive(headOf(kBig) + bytes);
    const qcPersistent* const first = loadPointer(*archive);
    EXPECT_EQ(first, loadPointer(*archive));
    EXPECT_GT(alive, 0);
    delete first;
    ASSERT_EQ(alive, 0);
  }
  BytesArchive archive(headOf(kBig) + record(1, 1, node("", 0)) + record(1, 0));
  const std::unique_ptr<qcPersistent> first(loadPointer(*archive));
  qcPtrHandle<CountedPet> wrong;
  EXPECT_THROW(*archive || wrong, qcArchive::BadType);
  EXPECT_EQ(alive, 1);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kStack = 16 << 20;  // instrumented functions take much more
#elif defined(__s390x__)
constexpr std::size_t kStack = 3 << 19;  // each call sets 160 bytes aside for registers
#else
constexpr std::size_t kStack = 1 << 20;
#endif

class Graphs : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override { ASSERT_EQ(alive, 0); }
  void TearDown() override {
    Node::letsGo = false;
    EXPECT_EQ(alive, 0);
  }
  bool seekable() const { return GetParam(); }
  std::string archived(const NodeHandle& root, qcArchive::Ordering ordering) const {
    return headOf(ordering, seekable()) + stored(ordering, seekable(), root, 42);
  }
  // Loads the root and a number behind it; returns whether that went well.
  bool tryLoad(const std::string& bytes) const {
    NodeHandle root;
    int number = 0;
    const std::wstring error = errorOf([&] { *BytesArchive(bytes, seekable()) || root || number; });
    dissolve(root);
    return error.empty();
  }
};
INSTANTIATE_TEST_SUITE_P(PlainAndSeekable, Graphs, testing::Bool());

TEST_P(Graphs, ComeBackWithTheirSharingAndTheirCircles) {
  std::mt19937 random(3);
  for (int round = 0; round < 60; ++round) {
    const NodeHandle root = randomGraph(random, 1 + random() % 40);
    for (const auto ordering : {kBig, kLittle}) {
      const std::string bytes = archived(root, ordering);
      NodeHandle back;
      int number = 0;
      *BytesArchive(bytes, seekable()) || back || number;
      EXPECT_EQ(number, 42);
      EXPECT_TRUE(archived(back, ordering) == bytes);
      dissolve(back);
    }
    dissolve(root);
  }
}

TEST_P(Graphs, AFailedLoadDestroysWhatItMadeOnce) {
  Node::letsGo = true;
  std::mt19937 random(5);
  const NodeHandle root = randomGraph(random, 6);
  const std::string bytes = archived(root, kLittle);
  dissolve(root);
  const int before = alive.load();
  for (std::size_t n = 0; n < bytes.size(); ++n) {
    EXPECT_FALSE(tryLoad(bytes.substr(0, n))) << n;
    ASSERT_EQ(alive, before) << n;
  }
}

TEST_P(Graphs, NestingHasALimitBothWays) {
  const auto chain = [](int length) {
    NodeHandle top(new Node);
    for (int i = 1; i < length; ++i) {
      NodeHandle above(new Node);
      above->edges = {top};
      top = above;
    }
    return top;
  };
  std::string deepest;
  onStackOf(kStack, [&] { deepest = archived(chain(512), kLittle); });
  onStackOf(kStack, [&] { EXPECT_TRUE(tryLoad(deepest)); });
  const NodeHandle tooDeep = chain(513);
  qcMemoryArchive archive(kLittle, seekable());
  EXPECT_THROW(archive << tooDeep, qcArchive::BadContent);
  archive.limits({.nesting = 513});
  archive << tooDeep;  // in full: nothing of the failed attempt is referred to
  const std::string bytes = bytesOf(archive);
  const std::string again = headOf(kLittle, seekable()) + bytes.substr(bytes.size() - (deepest.size() - 6));
  EXPECT_FALSE(tryLoad(again));
  archive << tooDeep;
  EXPECT_EQ(archive.bytes().size() - bytes.size(), seekable() ? 42U : 18U);

  // From the end on, each object refers to one that is known, which takes no room.
  std::vector<NodeHandle> nodes{tooDeep};
  while (!nodes.back()->edges.empty()) nodes.push_back(nodes.back()->edges[0]);
  std::reverse(nodes.begin(), nodes.end());
  qcMemoryArchive list(kLittle, seekable());
  list << nodes;
  std::vector<NodeHandle> back;
  *BytesArchive(bytesOf(list), seekable()) || back;
  EXPECT_EQ(reachable(back.back()).size(), 513U);

  // What refers back to objects around it goes no deeper, also when it is changed and stored time and again.
  const NodeHandle circle = chain(512);
  for (Node* node : reachable(circle))
    for (const auto& edge : node->edges) edge->look = NodeHandle(node);
  qcMemoryArchive rounds(kLittle, seekable());
  for (int i = 0; i < 3; ++i) {
    for (Node* node : reachable(circle)) node->rename("round");
    EXPECT_NO_THROW(rounds << circle);
  }
  EXPECT_TRUE(tryLoad(archived(circle, kLittle)));
  dissolve(circle);
}

TEST(HostileArchives, RecordsThatOverlapDoNotMultiplyTheData) {
  // A vector of references to nodes, each with numbers that cover all nodes behind it.
  constexpr std::size_t kRecords = 300, kNumbers = 2000, kStride = 144;
  const std::string name = stored(kBig, false, std::string(kStride - 44 - 2 * kNodeName.size(), 'n'));
  std::string references, records;
  for (std::size_t i = 1; i <= kRecords; ++i) {
    std::string reference = record(static_cast<int>(i), 0);
    reference.replace(14, 4, stored(kBig, false, static_cast<int>(48 + kRecords * 18 + records.size())));
    references += reference;
    const std::size_t count = (kRecords - i) * kStride / 8 + kNumbers;
    records += record(static_cast<int>(i), 1, kNodeName + kMarker) + fromHex("6F8B6844 00") +
               stored(kBig, false, static_cast<int>(name.size() + 46 + count * 8)) + kNodeName + fromHex("0000") +
               name + stored(kBig, false, 0, static_cast<int>(count));
    ASSERT_EQ(records.size(), i * kStride);
  }
  BytesArchive archive(headOf(kBig, true) + stored(kBig, false, static_cast<int>(kRecords)) + references + records +
                           std::string(kNumbers * 8, '\0') + record(0, 0) + record(0, 0),
                       true);
  std::vector<NodeHandle> nodes;
  const PeakAllocation peak;
  EXPECT_THROW(*archive || nodes, qcArchive::BadContent);
  EXPECT_LT(peak.bytes(), 1000000U);
  // What is let go of makes room: the first one can be read as often as one likes.
  for (int round = 0; round < 100; ++round) {
    nodes.clear();
    archive->seek(48, 0);
    NodeHandle first;
    *archive || first;
    EXPECT_GT(first->data.size(), kNumbers);
  }
}

// Objects that archives hold.

struct Owner : Archivable<Owner> {
  void fields(qcArchive& archive) { archive || node || pet; }
  NodeHandle node{new Node};
  Pet pet;
};

TEST(HeldObjects, AreStoredInFullAfterAFailedStoreByValue) {  // which leaves no marks of what was stored
  Owner owner;
  qcMemoryArchive archive(kBig, true);
  owner.pet.throwing = true;
  EXPECT_THROW(archive << owner, std::runtime_error);
  owner.pet.throwing = false;
  archive.seek(2, 0);
  archive << Owner() << owner.node << owner;  // over what was written
  Owner back, again;
  NodeHandle node;
  BytesArchive in(bytesOf(archive), true);
  *in >> back;
  *in || node;
  *in >> again;
  EXPECT_TRUE(node && node != back.node && again.node == node && in->remaining() == 0);
}

TEST(HeldObjects, StayWhatTheyWereWhenTheyFailToBeStoredAgain) {
  const NodeHandle node(new Node);
  node->pet = std::make_unique<Pet>();
  qcMemoryArchive archive(kBig, true);
  archive << node;
  node->pet->throwing = true;
  EXPECT_THROW(archive.storeObject(node.rep()), std::runtime_error);
  archive << node << std::make_unique<Pet>(7);
  BytesArchive in(bytesOf(archive), true);
  NodeHandle first, second;
  std::unique_ptr<Pet> pet;
  *in || first || second || pet;
  EXPECT_TRUE(first == second && pet->number == 7);
}

TEST(HeldObjects, ANewObjectAtAFreedAddressIsANewObject) {
  alignas(Pet) unsigned char place[sizeof(Pet)];
  qcMemoryArchive archive(kBig, false);
  for (int i = 1; i <= 2; ++i) {
    qcPersistent* const pet = new (place) Pet(static_cast<unsigned char>(i));
    storePointer(archive, *pet);
    pet->~qcPersistent();
  }
  EXPECT_EQ(bytesOf(archive),
            headOf(kBig) + record(1, 1, kPetName + petObject(1)) + record(2, 1, kPetName + petObject(2)));
}

TEST(SeekableArchives, OnlyTheyCanTurnAndMove) {
  BytesArchive plain(fromHex("02 00 00"));
  EXPECT_EQ(errorOf([&] { plain->mode(qcArchive::storing); }),
            L"qcArchive::NotSeekable: thrown from file: archive, line: 870");
  EXPECT_EQ(errorOf([&] { plain->append(); }), L"qcArchive::NotSeekable: thrown from file: archive, line: 886");
  EXPECT_THROW(plain->seek(2, 0), qcArchive::NotSeekable);
  EXPECT_THROW(plain->seek(qcArchive::Position(2)), qcArchive::NotSeekable);
  BytesArchive archive(fromHex("03 00 11 22 33 44"), true);
  constexpr long kMost = std::numeric_limits<long>::max(), kLeast = std::numeric_limits<long>::min();
  const std::pair<long, int> wrong[] = {{-1, 0}, {7, 0}, {5, 1},  {-3, 1},    {1, 2},
                                        {-7, 2}, {0, 3}, {0, -1}, {kMost, 1}, {kLeast, 2}};
  for (const auto& [offset, origin] : wrong) {
    EXPECT_THROW(archive->seek(offset, origin), qcArchive::BadBuffer) << offset << ' ' << origin;
    EXPECT_EQ(static_cast<long>(archive->tell()), 2);
  }
  unsigned char byte = 0;
  archive->seek(-1, 2);
  *archive || byte;
  EXPECT_EQ(byte, 0x44);
  archive->seek(-3, 1);
  archive->reserve16();
  EXPECT_EQ(archive->remaining(), 1);
  EXPECT_THROW(archive->reserve64(), qcArchive::Eof);
}

TEST(SeekableArchives, ReservedRoomIsFilledInLater) {
  qcMemoryArchive archive(kBig, true);
  archive.reserve8();
  archive.reserve32();
  archive.reserve64();
  archive.reserve16();
  archive.seek(-14, 1);
  archive << 0x01020304;
  archive.seek(-3, 1);
  archive.reserve64();  // what is there stays
  archive.append();
  archive << true;
  EXPECT_EQ(bytesOf(archive), headOf(kBig, true) + fromHex("00 01020304 0000000000000000 0000 01"));
}

TEST(SeekableArchives, CanBeReadAtAnyObjectAndAppendedTo) {
  std::mt19937 random(23);
  for (const bool wide : {false, true}) {
    std::vector<NodeHandle> written;
    std::vector<qcArchive::Position> places;
    std::string bytes = headOf(kBig, true);
    for (int session = 0; session < 4; ++session) {  // each goes on where the last one ended
      BytesArchive archive(bytes, true);
      NodeHandle known;
      if (session == 1) {
        archive->seek(places[1]);
        *archive || known;
      }
      archive->append();
      archive->wideSizes(wide);
      for (int i = 0; i < 3; ++i) {
        written.push_back(randomGraph(random, 5));
        places.push_back(archive->tell());
        *archive << written.back();
      }
      if (known) {  // an object that was loaded is not stored again
        const auto before = static_cast<long>(archive->tell());
        *archive << known;
        EXPECT_LT(static_cast<long>(archive->tell()) - before, 43);
        dissolve(known);
      }
      bytes = bytesOf(static_cast<qcMemoryArchive&>(*archive));
    }
    BytesArchive archive(bytes, true);
    for (const int i : {11, 3, 0, 7, 4, 1, 10}) {
      NodeHandle back;
      archive->seek(places[static_cast<std::size_t>(i)]);
      *archive || back;
      expectSame(written[static_cast<std::size_t>(i)], back);
      dissolve(back);
    }
    for (const auto& root : written) dissolve(root);
  }
  EXPECT_EQ(alive, 0);
}

TEST(SeekableArchives, SkipWhatAClassDoesNotKnowAndCheckSizes) {
  const std::string body = "\x01" + std::string(1, '\0') + "\x07", tag = fromHex("6F8B6844");
  const auto load = [&](const std::string& entry, const std::string& content) {
    Pet pet;
    unsigned char behind = 0;
    BytesArchive archive(headOf(kBig, true) + kMarker + entry + content, true);
    *archive >> pet;
    *archive || behind;
    return behind;
  };
  EXPECT_EQ(load(tag + fromHex("00 00000005") + kPetName, body + "ab" + "Z"), 'Z');
  EXPECT_EQ(load(tag + fromHex("01 0000000000000005") + kPetName, body + "ab" + "Z"), 'Z');
  EXPECT_THROW(load(tag + fromHex("00 00000002") + kPetName, body + "Z"), qcArchive::BadContent);
  EXPECT_THROW(load(tag + fromHex("00 00000009") + kPetName, body + "Z"), qcArchive::Eof);
  EXPECT_THROW(load(fromHex("6F8B6845 00 00000003") + kPetName, body + "Z"), qcArchive::BadContent);
  EXPECT_THROW(load(tag + fromHex("00 00000003") + kNodeName, body + "Z"), qcArchive::BadType);
  EXPECT_EQ(errorOf([&] { load(tag + fromHex("02 00000003") + kPetName, body + "Z"); }),
            L"qcArchive::UnknownVersion: thrown from file: archutil, line: 663");
}

TEST(SeekableArchives, NeedNoMemoryForWhatWasForgotten) {
  const NodeHandle node(new Node);
  for (int i = 0; i < 500; ++i) node->edges.emplace_back(new Node);
  qcMemoryArchive written(kLittle, true);
  for (int i = 0; i < 20; ++i) {
    written << node;
    written.forgetObjects();
  }
  BytesArchive archive(bytesOf(written), true);
  const PeakAllocation peak;
  for (int i = 0; i < 20; ++i) {
    NodeHandle loaded;
    *archive || loaded;
    archive->forgetObjects();
  }
  EXPECT_LT(peak.bytes(), 300000U);
}

}  // namespace
