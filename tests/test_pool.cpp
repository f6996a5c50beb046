// Pools of pixel roots.

#include "support/bytes.h"
#include "support/test.h"
#include "vnxstd/pelbuf.h"
#include "vnxstd/timer/timeout.h"

namespace {

using Grey = qcPelBuffer<unsigned char>;
using Rgb32 = qcPelBuffer<qcPackedRGB32Pel>;

// Let go of when all other objects of the process are gone, the default pool among them.
Grey lastOfAll;

std::uintptr_t address(const void* pels) { return reinterpret_cast<std::uintptr_t>(pels); }

// --- memory against a model -----------------------------------------------------------------------------------------

struct Request {
  long width, height;
  unsigned pelSize;
  friend bool operator==(const Request&, const Request&) = default;
};

/// A pool as a plain list of intervals of slots, which are out or idle.
class Model {
 public:
  Model(std::uintptr_t base, unsigned slotSize, unsigned slots) : base_(base), slotSize_(slotSize), slots_(slots) {}

  /// The address of the pels, or nothing.
  std::optional<std::uintptr_t> get(const Request& request) {
    const std::uint64_t needed = slotsFor(request);
    if (needed > slots_) return {};
    const auto lane = static_cast<std::size_t>(std::find(lanes_.begin(), lanes_.end(), request) - lanes_.begin());
    if (lane == lanes_.size()) lanes_.push_back(request);
    const auto latest = idle(lane, [](long a, long b) { return a > b; });
    if (latest != all_.end()) {
      latest->released = -1;
      return pels(*latest);
    }
    for (;;) {
      std::uint64_t start = 0;  // all_ is in order of addresses
      auto at = all_.begin();
      while (at != all_.end() && at->start - start < needed) start = at->start + (at->count), ++at;
      if (slots_ - start >= needed) return pels(*all_.insert(at, {start, needed, lane, -1}));
      auto victim = all_.end();
      for (std::size_t i = 1; i < lanes_.size() && victim == all_.end(); ++i)
        victim = idle((lane + i) % lanes_.size(), std::less<>());
      if (victim == all_.end()) return {};
      all_.erase(victim);
    }
  }
  void release(std::uintptr_t address) {
    for (auto& i : all_)
      if (pels(i) == address) i.released = clock_++;
  }
  void flush() {
    std::erase_if(all_, [](const Interval& i) { return i.released >= 0; });
  }
  bool isEmpty() const { return all_.empty(); }

 private:
  struct Interval {
    std::uint64_t start, count;
    std::size_t lane;
    long released;  // when, or -1
  };

  std::uint64_t slotsFor(const Request& r) const {
    const std::uint64_t slack = slotSize_ % r.pelSize == 0 ? 0 : r.pelSize - 1;
    return (static_cast<std::uint64_t>(r.width * r.height) * r.pelSize + slack + slotSize_ - 1) / slotSize_;
  }
  std::uintptr_t pels(const Interval& i) const {
    const std::uintptr_t start = base_ + i.start * slotSize_, size = lanes_[i.lane].pelSize;
    return (start + size - 1) / size * size;
  }
  std::vector<Interval>::iterator idle(std::size_t lane, const auto& before) {
    auto best = all_.end();
    for (auto i = all_.begin(); i != all_.end(); ++i) {
      if (i->lane != lane || i->released < 0) continue;
      if (best == all_.end() || before(i->released, best->released)) best = i;
    }
    return best;
  }

  std::uintptr_t base_;
  std::uint64_t slotSize_, slots_;
  std::vector<Interval> all_;
  std::vector<Request> lanes_;
  long clock_ = 0;
};

qc_PelBuffer tryGet(qcPelRootPool& pool, const Request& r, const void*& pels) {
  const auto get = [&]<class T>(T) -> qc_PelBuffer {
    const qcPelBuffer<T> image = pool.tryGet<T>(r.width, r.height);
    pels = image.pointToOffset();
    return image;
  };
  return r.pelSize == 1   ? get(static_cast<unsigned char>(0))
         : r.pelSize == 2 ? get(qcPackedRGB16Pel())
                          : get(qcPackedRGB32Pel());
}

void compareWithModel(unsigned seed, unsigned slotSize, unsigned slots) {
  std::mt19937 random(seed);
  const auto below = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
  const unsigned bytes = slotSize * slots;
  qcBasicPelRootPool pool(bytes, slotSize);
  const std::uintptr_t base = address(pool.tryGet<unsigned char>(1, 1).pointToOffset());
  ASSERT_EQ(base % slotSize, 0u);
  pool.flush();
  Model model(base, slotSize, slots);
  ASSERT_EQ(model.get({1, 1, 1}), base);  // the lane is there from now on
  model.release(base), model.flush();
  std::vector<std::pair<qc_PelBuffer, std::uintptr_t>> out;  // and where their pels are
  for (int step = 0; step < 3000; ++step) {
    const unsigned what = below(200);
    if (what == 0) {
      pool.flush(), model.flush();
    } else if (what == 1) {
      model.flush();
      if (model.isEmpty()) {
        pool.size(bytes);  // the same memory need not come back
        return;
      }
      ASSERT_THROW(pool.size(bytes), qcPelRootPool::Outstanding);
    } else if (what < 110) {
      const long height = 1 + below(3) * static_cast<long>(bytes / 20);
      const Request request{1 + static_cast<long>(below(5)), height, 1u << below(3)};
      const void* pels = nullptr;
      const qc_PelBuffer image = tryGet(pool, request, pels);
      const auto expected = model.get(request);
      ASSERT_EQ(image.isBound(), expected.has_value()) << step;
      if (!expected) continue;
      ASSERT_EQ(address(pels), *expected) << step;
      ASSERT_TRUE(image.width() == request.width && image.height() == request.height && image.isContiguous());
      out.emplace_back(image, *expected);
    } else if (!out.empty()) {
      std::swap(out[below(static_cast<unsigned>(out.size()))], out.back());
      model.release(out.back().second);
      out.pop_back();
    }
  }
}

TEST(BasicPool, GetsAndReleasesAsAListOfIntervals) {
  for (const unsigned slotSize : {8u, 9u, 12u, 64u, 4096u})
    for (unsigned seed = 1; seed <= 20; ++seed) compareWithModel(seed, slotSize, 20 + seed * 7);
}

TEST(BasicPool, RoundsAndRefusesSizes) {
  qcBasicPelRootPool pool(1000, 4);  // 125 slots of 8 bytes
  EXPECT_EQ(pool.size(), 1000u);
  std::vector<Grey> all;
  for (Grey next; (next = pool.tryGet<unsigned char>(100, 1)).isBound();) all.push_back(next);
  EXPECT_EQ(all.size(), 9u);  // 13 slots each
  EXPECT_TRUE(pool.tryGet<unsigned char>(64, 1).isBound());
  EXPECT_THROW(pool.size(2000), qcPelRootPool::Outstanding);
  all.clear();
  pool.size(1001);
  EXPECT_EQ(pool.size(), 1008u);
  pool.size(0);
  EXPECT_FALSE(pool.tryGet<unsigned char>(1, 1).isBound());
  EXPECT_TRUE(pool.tryGet<unsigned char>(0, 7).isBound());
  EXPECT_THROW(pool.size(UINT_MAX), std::bad_alloc);  // rounded up it leaves 32 bits
  EXPECT_EQ(pool.size(), 0u);
}

TEST(BasicPool, KeepsIdleRootsWhenARequestCanNeverFit) {
  qcBasicPelRootPool pool(1 << 16, 4096);
  Grey image = pool.tryGet<unsigned char>(200, 300);
  qfPelSet(image, static_cast<unsigned char>(77));
  const auto* const pels = image.pointToOffset();
  image.setUnbound();
  EXPECT_FALSE(pool.tryGet<unsigned char>(65536, 65536).isBound());
  EXPECT_FALSE(pool.tryGet<qcPackedRGB32Pel>(INT_MAX, INT_MAX).isBound());
  EXPECT_FALSE(pool.get<unsigned char>(LONG_MAX, LONG_MAX).isBound());  // does not wait
  EXPECT_FALSE(pool.get<float>(1, 1).isBound());
  EXPECT_THROW(pool.tryGet<unsigned char>(-1, 1), qcRectErrors::NegativeSize);
  const Grey again = pool.get<unsigned char>(200, 300);
  EXPECT_TRUE(again.pointToOffset() == pels && again.get(199, 299) == 77);
}

TEST(DiscretePool, HandsOutWholeArrays) {
  alignas(8) static std::array<unsigned char, 2008> memory;
  qcDiscretePelRootPool pool(1000, {memory.data(), memory.data() + 1003}, 64, 32);
  EXPECT_EQ(pool.size(), 2000u);
  EXPECT_THROW(pool.size(10), qcPelRootPool::NotSupported);
  EXPECT_FALSE(pool.tryGet<unsigned char>(10, 20).isBound());
  EXPECT_FALSE(pool.tryGet<float>(1, 1).isBound());
  EXPECT_FALSE(pool.tryGet<qcPackedRGB32Pel>(INT_MAX, INT_MAX).isBound());
  {
    const Grey first = pool.tryGet<unsigned char>(10, 10);
    const Rgb32 second = pool.tryGet<qcPackedRGB32Pel>(17, 10);  // 68 bytes, 96 with the granularity
    EXPECT_TRUE(first.pointToOffset() == memory.data() && first.rowUpdate() == 64);
    ASSERT_TRUE(second.isBound());
    EXPECT_EQ(address(second.pointToOffset()), address(memory.data() + 1004));  // a multiple of 4
    EXPECT_EQ(second.rowUpdate(), 24);
    EXPECT_FALSE(pool.tryGet<unsigned char>(1, 1).isBound());
  }
  EXPECT_EQ(pool.tryGet<unsigned char>(1, 1).pointToOffset(), memory.data());  // from the lane that follows
  EXPECT_THROW(qcDiscretePelRootPool(10, {nullptr}, 1, 0), qcPelFunc::BadParams);
  EXPECT_THROW(qcDiscretePelRootPool(10, nullptr, 1, 0, 1), qcPelFunc::BadParams);
  EXPECT_THROW(qcDiscretePelRootPool(10, {memory.data()}, 0, 0), qcPelFunc::BadParams);
}

// --- memory of a subclass -------------------------------------------------------------------------------------------

class SuppliedPool : public qcBasicPelRootPool {
 public:
  explicit SuppliedPool(unsigned slotSize) : qcBasicPelRootPool(0, slotSize) { size(50000); }
  ~SuppliedPool() override {
    abandon();
    size(0);
  }
  static inline int blocks = 0, failAfter = 1000;

 private:
  void* allocMem(unsigned bytes) override {
    if (failAfter-- == 0 || bytes > 90000) return nullptr;
    ++blocks;
    return memory_.data() + 3;
  }
  void freeMem(void*) noexcept override { --blocks; }

  std::vector<unsigned char> memory_ = std::vector<unsigned char>(100000);
};

TEST(BasicPool, TakesMemoryFromASubclass) {
  for (const unsigned slotSize : {8u, 9u, 4096u}) {
    SuppliedPool pool(slotSize);
    EXPECT_EQ(address(pool.tryGet<unsigned char>(10, 10).pointToOffset()) % slotSize, 0u);
    EXPECT_EQ(SuppliedPool::blocks, 1);
    SuppliedPool::failAfter = slotSize == 9 ? 0 : 1;  // not to be had, or not with what alignment takes
    EXPECT_THROW(pool.size(60000), std::bad_alloc);
    EXPECT_EQ(pool.size(), 0u);
    SuppliedPool::failAfter = 1000;
    pool.size(40000);
  }
  EXPECT_EQ(SuppliedPool::blocks, 0);
}

// --- lives that end in any order ------------------------------------------------------------------------------------

TEST(Pool, RootsComeBackFromThreadsWhileThePoolGoes) {
  auto pool = std::make_unique<qcDefaultPelRootPool>(0);
  std::vector<Grey> images(1000);
  for (Grey& image : images) image = pool->tryGet<unsigned char>(0, 1);
  std::atomic<bool> hasStarted{false};
  const std::jthread other([&] {
    for (Grey& image : images) {
      image.setUnbound();
      hasStarted = true;
    }
  });
  while (!hasStarted) std::this_thread::yield();
  pool.reset();
}

TEST(DefaultPool, IsOneForTheProcessAndItsRootsOutliveIt) {
  const auto& pool = qfDefaultPelRootPool();
  EXPECT_EQ(&qfDefaultPelRootPool(12345), &pool);
  EXPECT_EQ(pool->size(), qfDefaultPelRootPoolSize());
  EXPECT_THROW(qcDefaultPelRootPool(4096), std::bad_alloc);
  lastOfAll = pool->tryGet<unsigned char>(4096, 1024);
  ASSERT_TRUE(lastOfAll.isBound());
  EXPECT_EQ(address(lastOfAll.pointToOffset()) % 4096, 0u);
}

TEST(Pool, ImagesAreArchivedLikeOthers) {
  qcBasicPelRootPool pool(1 << 16, 8);
  qcMemoryArchive archive(qcArchive::littleEndian, true);
  const auto start = archive.tell();
  for (const int value : {1, 2}) {  // the same root twice
    Grey image = pool.tryGet<unsigned char>(3, 2);
    qfPelSet(image, static_cast<unsigned char>(value));
    archive << image;
  }
  Grey first, second;
  archive.seek(start);
  archive.mode(qcArchive::loading);
  archive >> first >> second;
  EXPECT_TRUE(first.get(2, 1) == 1 && second.get(2, 1) == 2);
  // A root with an image loaded into it does not lie in the pool any more.
  Grey image = pool.tryGet<unsigned char>(3, 2);
  const auto* const pels = image.pointToOffset();
  BytesArchive another(headOf(qcArchive::littleEndian) + stored(qcArchive::littleEndian, false, *first.rep()));
  *another >> *image.rep();
  EXPECT_NE(image.pointToOffset(), pels);
  image.setUnbound();
  EXPECT_EQ(pool.tryGet<unsigned char>(3, 2).pointToOffset(), pels);
}

void untilWaiting(const qcPelRootPool& pool, long count) {
  while (pool.waiters() != count) std::this_thread::yield();
}

TEST(WaitingThreads, FirstComeFirstServed) {
  qcBasicPelRootPool pool(80, 8);
  Grey large = pool.tryGet<unsigned char>(40, 1), other = pool.tryGet<unsigned char>(32, 1);
  std::mutex mutex;
  std::vector<long> served;
  std::vector<std::jthread> threads;
  const std::array<long, 5> widths{80, 8, 40, 8, 80};  // there is room for 8
  for (std::size_t i = 0; i < widths.size(); ++i) {
    threads.emplace_back([&, i] {
      const Grey image = pool.get<unsigned char>(widths[i], 1);
      const std::lock_guard guard(mutex);
      served.push_back(image.isBound() ? widths[i] : 0);
    });
    untilWaiting(pool, static_cast<long>(i) + 1);
  }
  EXPECT_FALSE(pool.tryGet<unsigned char>(8, 1).isBound());
  other.setUnbound();
  large.setUnbound();
  threads.clear();
  // Those who are served at the same time report in any order.
  EXPECT_EQ(served.front(), 80);
  EXPECT_EQ(served.back(), 80);
  EXPECT_EQ(std::count(served.begin(), served.end(), 8), 2);
}

// The first in the line leaves without a root; the second wants what is there all the time.
void expectPassedOn(qcBasicPelRootPool& pool, const std::function<void()>& first, const std::function<void()>& end) {
  const Grey out = pool.tryGet<unsigned char>(40, 1);
  std::jthread leaves(first);
  untilWaiting(pool, 1);
  bool served = false;
  std::jthread stays([&] { served = pool.get<unsigned char>(8, 1).isBound(); });
  if (end) {
    untilWaiting(pool, 2);
    end();
  }
  leaves.join();
  stays.join();
  EXPECT_TRUE(served);
}

TEST(WaitingThreads, WhoeverLeavesPassesTheTurnOn) {
  qcBasicPelRootPool pool(80, 8);
  bool cancel = false;
  const auto cancelled = [&] { EXPECT_FALSE(pool.get<unsigned char>(80, 1, qcDeadline(), cancel).isBound()); };
  expectPassedOn(pool, cancelled, [&] { std::atomic_ref(cancel).store(true); });
  expectPassedOn(pool, [&] { EXPECT_FALSE(pool.get<unsigned char>(80, 1, qcDeadline(0.05)).isBound()); }, {});
  EXPECT_FALSE(pool.get<unsigned char>(8, 1, qcDeadline(), cancel).isBound());
  EXPECT_FALSE(pool.get<unsigned char>(8, 1, qcDeadline(0)).isBound());
  EXPECT_TRUE(pool.get<unsigned char>(8, 1, qcDeadline(1e300)).isBound());
  const auto limited = [&] {
    const qcTimeout longer(1000), limit(0.05), none(1e300);
    EXPECT_THROW(pool.get<unsigned char>(80, 1), qcTimeout::Expired);
  };
  expectPassedOn(pool, limited, {});
}

TEST(WaitingThreads, EndsWhenThePoolGoesWhichItsRootsOutlive) {
  auto pool = std::make_unique<qcBasicPelRootPool>(80, 8);
  Grey out = pool->tryGet<unsigned char>(40, 1);
  pool->tryGet<unsigned char>(8, 1);  // idle when the pool goes
  std::vector<std::jthread> threads;
  for (int i = 0; i < 3; ++i)
    threads.emplace_back([&pool = *pool] { EXPECT_FALSE(pool.get<unsigned char>(80, 1).isBound()); });
  untilWaiting(*pool, 3);
  pool.reset();
  qfPelSet(out, static_cast<unsigned char>(5));
  EXPECT_EQ(out.get(39, 0), 5);
}

}  // namespace
