// Objects that refer to each other in long chains: destroyed, stored and loaded on a small stack.

#include <unordered_map>

#include "support/archivable.h"
#include "support/smallstack.h"
#include "support/test.h"
#include "vnxstd/archive.h"

namespace {

constexpr std::size_t kStack = (kInstrumented ? 8U : 1U) << 20U;
constexpr int kMany = kInstrumented ? 100000 : 1000000;

std::atomic<long> alive{0};

// Lies in blocks of a pool, and refers to others in three ways.
struct Station : Archivable<Station>, virtual qcRepBase {
  explicit Station(int n = 0) : number(n) { ++alive; }
  ~Station() override {
    --alive;
    if (last) last();
  }
  Station(const Station&) = delete;
  static void* operator new(std::size_t size) { return pool(size).alloc(); }
  static void operator delete(void* block, std::size_t size) { pool(size).free(block); }
  int number;
  std::unique_ptr<Station> own;
  std::vector<qcPtrHandle<Station>> next;
  qcPersistent* seen = nullptr;  // not owned
  void (*last)() = nullptr;
  static inline long loads = 0;
  static inline bool swallows = false;  // what is no exception of the library or the standard

  void fields(qcArchive& archive) {
    ++loads;
    try {
      archive || own || next;
    } catch (const qcException&) {
      throw;
    } catch (...) {
      if (!swallows) throw;
    }
    qcPersistent::serializePointer(archive, seen, seen);
    for (const auto& station : next) {  // what was loaded is there in full
      const bool isDone = station && archive.isLoading() && !archive.isStillLoading(station.rep());
      EXPECT_TRUE(!isDone || station->number > 0);
    }
    archive || number;
  }

 private:
  static qcStoragePool& pool(std::size_t size) {
    static auto& pool = *new qcStoragePool(static_cast<unsigned>(size), 1000);
    return pool;
  }
};
using StationHandle = qcPtrHandle<Station>;
using Stations = std::vector<StationHandle>;

Stations line(int length) {
  Stations all;
  for (int i = 0; i < length; ++i) {
    all.push_back(StationHandle(new Station(i + 1)));
    if (i > 0) all.back()->next.push_back(all[all.size() - 2]);
  }
  return all;
}

// Stores each by itself in order, and a pointer to the last.
std::vector<char> storedOf(const Stations& all) {
  qcMemoryArchive archive(qcArchive::littleEndian, true);
  for (const StationHandle& station : all) archive.storeObject(station.rep());
  archive << all.back();
  return archive.toVector();
}

struct Data {
  std::vector<char> data;
};
struct Stored : Data, qcMemoryArchive {
  explicit Stored(std::vector<char> bytes)
      : Data{std::move(bytes)}, qcMemoryArchive(data.data(), static_cast<long>(data.size()), true) {}
  StationHandle load() {
    StationHandle top;
    seek(firstPointerPos());
    *this || top;
    return top;
  }
};

void expectSame(const Station* a, const Station* b) {
  std::unordered_map<const Station*, const Station*> seen;
  std::vector<std::pair<const Station*, const Station*>> waiting{{a, b}};
  while (!waiting.empty()) {
    const auto [x, y] = waiting.back();
    waiting.pop_back();
    const auto [known, isNew] = seen.emplace(x, y);
    ASSERT_EQ(known->second, y);
    if (!isNew || !x) continue;
    ASSERT_TRUE(y && x->number == y->number && x->next.size() == y->next.size());
    for (std::size_t i = 0; i < x->next.size(); ++i) waiting.emplace_back(x->next[i].rep(), y->next[i].rep());
    waiting.emplace_back(x->own.get(), y->own.get());
    waiting.emplace_back(dynamic_cast<const Station*>(x->seen), dynamic_cast<const Station*>(y->seen));
  }
}

TEST(Chains, OfAMillionAreStoredLoadedAndDestroyedOnASmallStack) {
  onStackOf(kStack, [] {
    Stations all = line(kMany);
    Stored archive(storedOf(all));
    archive.seek(archive.findObject(kMany));
    Station::loads = 0;
    const StationHandle top = dynamic_cast<Station*>(archive.loadObject());
    EXPECT_LT(Station::loads, 3 * kMany);
    expectSame(all.back().rep(), top.rep());
    all.erase(all.begin(), all.end() - 1);
  });
  EXPECT_EQ(alive, 0);
}

// Whoever lets go outermost finds all gone, also when destructors make chains and let go of them, and two threads.
TEST(Chains, AreGoneWhenTheLastThreadReturns) {
  for (int round = 0; round < 3; ++round) {
    StationHandle top = line(3000).back(), shared = line(5000).back();
    top->next.push_back(shared);
    for (Station* station = top->next[0].rep(); !station->next.empty(); station = station->next[0].rep())
      station->last = [] { line(90).back()->last = [] { line(70); }; };
    std::thread other([held = std::move(shared)]() mutable { held.release(); });
    top.release();
    other.join();
    EXPECT_EQ(alive, 0);
  }
}

// Whatever the room, what comes back is what was stored: side chains, objects within others that are shared or owned,
// plain pointers, small circles.
TEST(Chains, AndAllThatHangsOnThemComeBackTheSame) {
  for (unsigned seed = 0; seed < 100; ++seed) {
    std::mt19937 random(seed);
    {
      Stations all = line(300);
      StationHandle inner;
      const auto lower = [&](std::size_t i) { return all[i - std::min<std::size_t>(i, 1 + random() % 60)]; };
      for (std::size_t i = 1; i < all.size(); ++i) {
        Station& station = *all[i];
        if (random() % 3 == 0) station.next.insert(station.next.begin(), lower(i));
        if (random() % 9 == 0) station.seen = lower(i).rep();
        if (inner && random() % 2 == 0) station.next.insert(station.next.begin(), std::exchange(inner, nullptr));
        if (random() % 4 != 0) continue;
        inner = new Station(2000);
        inner->next.push_back(lower(i));
        inner->seen = &station;
        station.own = std::make_unique<Station>(1000);
        station.own->next = {lower(i), inner};
      }
      Stored archive(storedOf(all));
      archive.limits({.nesting = 8 + static_cast<long>(seed / 2)});
      Station::swallows = seed % 2 == 0;
      expectSame(all.back().rep(), archive.load().rep());
    }
    EXPECT_EQ(alive, 0) << seed;
  }
}

// The one that was stored first refers to the last.
TEST(Chains, CirclesOfObjectsElsewhereHaveALimit) {
  for (const int length : {511, 520, 5000}) {
    const Stations all = line(length);
    all[0]->next = {StationHandle()};
    std::vector<char> bytes = storedOf(all);
    const char null[] = {'\x4F', '\xE5', '\x70', '\x54', 1, 0, 0, 0, 0, 0};
    const auto find = [&](auto from) {
      return std::search(from, bytes.end(), null, std::end(null), [](char a, char b) { return a == b; });
    };
    const auto at = find(find(bytes.begin()) + 1);  // behind what the first owns
    at[5] = static_cast<char>(length & 255);
    at[6] = static_cast<char>(length >> 8);
    Stored archive(bytes);
    if (length > 512) {
      EXPECT_THROW(archive.load(), qcArchive::BadContent) << length;
      EXPECT_EQ(alive, length);
      archive.limits({.nesting = length});
    }
    if (length > 1000) continue;  // takes a large stack
    const StationHandle top = archive.load();
    EXPECT_EQ(alive, 2 * length);
    Station* bottom = top.rep();
    while (bottom->number != 1) bottom = bottom->next[0].rep();
    EXPECT_EQ(bottom->next[0], top);
    bottom->next.clear();
  }
  EXPECT_EQ(alive, 0);
}

}  // namespace
