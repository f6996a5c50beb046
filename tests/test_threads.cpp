// Many threads on what they share: nothing is lost, nothing is handed out twice, and no wait ends early.

#include <barrier>

#include "support/test.h"
#include "vnxstd/archive.h"
#include "vnxstd/math/xflinear.h"
#include "vnxstd/pelbuf.h"
#include "vnxstd/sync/sync.h"
#include "vnxstd/timer/timeout.h"

namespace {

using Clock = qcDeadline::Clock;
using Grey = qcPelBuffer<unsigned char>;

constexpr int kRounds = 20000;

class Threads : public testing::TestWithParam<int> {
 protected:
  /// Calls round(thread, random numbers) in every thread, `rounds` times in each.
  template <class Round>
  void each(int rounds, Round round) {
    std::barrier start(GetParam());
    std::vector<std::jthread> threads;
    for (int id = 0; id < GetParam(); ++id) {
      threads.emplace_back([&, id] {
        std::mt19937 random(static_cast<unsigned>(id));
        start.arrive_and_wait();
        for (int i = 0; i < rounds; ++i) round(id, random);
      });
    }
  }
};
INSTANTIATE_TEST_SUITE_P(OfAProcess, Threads, testing::Values(2, 8, 32));

/// What threads leave for each other: one's goes to another, which lets go of it.
template <class T>
class Mailbox {
 public:
  explicit Mailbox(std::size_t size) : places_(size) {}
  T exchange(T mine, std::size_t place) {
    Place& chosen = places_[place % places_.size()];
    const std::lock_guard guard(chosen.mutex);
    std::swap(mine, chosen.content);
    return mine;
  }
  template <class Take>
  void empty(Take take) {
    for (Place& place : places_) take(std::exchange(place.content, T()));
  }

 private:
  struct Place {
    std::mutex mutex;
    T content{};
  };
  std::vector<Place> places_;
};

struct Counted : qcRepBase {
  explicit Counted(std::atomic<long>& lives) : alive(lives) { ++alive; }
  ~Counted() override { --alive; }
  std::atomic<long>& alive;
  std::atomic<int> mark{1};
};

TEST_P(Threads, CountHandlesToTheLast) {
  std::atomic<long> alive{0}, wrong{0};
  {
    Mailbox<qcPtrHandle<Counted>> mail(7);
    const qcPtrHandle<Counted> shared(new Counted(alive));
    each(kRounds, [&](int, auto& random) {
      qcPtrHandle<Counted> mine = random() % 4 ? shared : qcPtrHandle<Counted>(new Counted(alive));
      const qcPtrHandle<Counted> got = mail.exchange(mine, random()), copy = got;
      if (copy && copy->mark != 1) ++wrong;
      if (copy && qcRepBase::refIncIfOwned(copy.rep())) mine = qcPtrHandle<Counted>(copy.rep(), qc_AdoptCount());
    });
    mail.empty([](const auto&) {});
    EXPECT_EQ(shared->refc(), 1);
    EXPECT_EQ(alive, 1);
  }
  EXPECT_TRUE(alive == 0 && wrong == 0);
}

TEST_P(Threads, ShareAStoragePool) {
  qcStoragePool pool(16, 2);
  Mailbox<std::uintptr_t*> mail(20);
  std::atomic<long> wrong{0};
  const auto release = [&](std::uintptr_t* block) {
    if (!block) return;
    wrong += block[1] != reinterpret_cast<std::uintptr_t>(block);
    block[1] = 0;
    pool.free(block);
  };
  each(kRounds, [&](int, auto& random) {
    auto* const block = static_cast<std::uintptr_t*>(pool.alloc());
    block[1] = reinterpret_cast<std::uintptr_t>(block);
    release(mail.exchange(block, random()));
    if (random() % 1000 == 0) pool.relinquish();
  });
  mail.empty(release);
  EXPECT_TRUE(pool.outstanding() == 0 && wrong == 0);
}

TEST_P(Threads, ShareAPoolOfImages) {
  qcBasicPelRootPool pool(64 * 100, 64);
  Mailbox<Grey> mail(4);  // roots come back on other threads than they left on
  std::atomic<long> wrong{0}, served{0};
  each(kRounds, [&](int id, auto& random) {
    const long width = 1 + static_cast<long>(random() % 3) * 200;
    const Grey image =
        random() % 2 ? pool.get<unsigned char>(width, 2, qcDeadline(0.00002)) : pool.tryGet<unsigned char>(width, 2);
    if (!image.isBound()) {
      mail.exchange(Grey(), random());
      return;
    }
    ++served;
    const auto mark = static_cast<unsigned char>(id);
    qfPelSet(image, mark);
    std::this_thread::yield();
    wrong += image.get(0, 0) != mark || image.get(width - 1, 1) != mark;
    if (random() % 64 == 0) pool.flush();
    mail.exchange(image, random());
  });
  mail.empty([](const Grey&) {});
  EXPECT_TRUE(wrong == 0 && served > 0 && pool.waiters() == 0);
  pool.size(64);  // everything is at home, in one piece
}

TEST_P(Threads, StoreAndLoadAtOnce) {
  const int rounds = std::getenv("VNXSTD_ALL_ROUNDS") ? kRounds : kRounds / GetParam();  // else minutes
  const qcPtrHandle_const<qc2XformBase> shared(new qc2XformLinear(qcXform<2>(qcMatrix<2>(2, 0, 0, 3), {4, 5})));
  Mailbox<qcPtrHandle_const<qc2XformBase>> mail(5);  // objects end on other threads, and while archives hold them
  std::atomic<long> wrong{0};
  each(rounds, [&](int, auto& random) {
    qcMemoryArchive archive(qcArchive::littleEndian, random() % 2);
    archive << shared << mail.exchange(nullptr, random()) << shared;
    qcMemoryArchive in(archive.storage(), static_cast<long>(archive.bytes().size()), archive.isSeekable());
    qcPtrHandle_const<qc2XformBase> first, other, again;
    in >> first >> other;
    const auto kept = random() % 2 ? first : nullptr;  // or the last handle is another thread's
    mail.exchange(std::move(first), random());
    try {
      in >> again;
      wrong += (kept && kept != again) ||
               dynamic_cast<const qc2XformLinear&>(*again) != dynamic_cast<const qc2XformLinear&>(*shared);
    } catch (const qcArchive::NotFound&) {
      wrong += kept || in.isSeekable();
    }
    mail.exchange(again, random());
  });
  mail.empty([](const auto&) {});
  EXPECT_TRUE(wrong == 0 && shared->refc() == 1);
}

// --- release, cancel and deadline, which meet within 100 microseconds ------------------------------------------------

std::chrono::microseconds upTo100(auto& random) { return std::chrono::microseconds(random() % 101); }

TEST_P(Threads, GetImagesUntilTheirDeadlineOrTheirCancel) {
  qcBasicPelRootPool pool(8, 8);  // of one image
  std::array<bool, 32> cancel{};
  std::atomic<long> early{0}, served{0}, late{0};
  each(kRounds, [&](int id, auto& random) {
    const std::atomic_ref mine(cancel[static_cast<std::size_t>(id)]);
    mine = false;
    const qcDeadline deadline(Clock::now() + upTo100(random));
    Grey image = pool.get<unsigned char>(8, 1, deadline, cancel[static_cast<std::size_t>(id)]);
    if (image.isBound()) {
      ++served;
      while (!deadline.hasPassed() && random() % 8 != 0) std::this_thread::yield();
    } else {
      ++late;
      early += !mine && !deadline.hasPassed();
    }
    if (random() % 4 == 0) std::atomic_ref<bool>{cancel[random() % static_cast<unsigned>(GetParam())]} = true;
  });
  EXPECT_TRUE(early == 0 && served > 0 && late > 0 && pool.waiters() == 0);
  EXPECT_TRUE(pool.tryGet<unsigned char>(8, 1).isBound());
}

TEST_P(Threads, WaitForUnitsUntilTheirLimitTheirDeadlineOrTheirCancel) {
  qcSemaphore units(1);
  struct Limit {
    std::mutex mutex;
    qcTimeout* now = nullptr;
    bool isCancelled = false;
  };
  std::array<Limit, 32> limits;
  std::atomic<long> early{0}, held{0}, wrong{0};
  each(kRounds, [&](int id, auto& random) {
    Limit& mine = limits[static_cast<std::size_t>(id)];
    const auto expiry = Clock::now() + upTo100(random);
    qcTimeout limit(std::chrono::duration<double>(expiry - Clock::now()).count() + 1e-6);
    const auto publish = [&](qcTimeout* now) {
      const std::lock_guard guard(mine.mutex);
      mine.now = now;
      if (now) mine.isCancelled = false;
    };
    publish(&limit);
    const qcDeadline deadline(Clock::now() + upTo100(random));
    try {
      if (units.acquire(deadline)) {
        wrong += ++held != 1;
        std::this_thread::yield();
        --held;
        units.release();
      } else {
        early += !deadline.hasPassed();
      }
    } catch (const qcTimeout::Expired&) {
      early += Clock::now() < expiry;
    } catch (const qcTimeout::Cancel&) {
      const std::lock_guard guard(mine.mutex);
      wrong += !mine.isCancelled;
    }
    publish(nullptr);
    if (random() % 4 != 0) return;
    Limit& other = limits[random() % static_cast<unsigned>(GetParam())];
    const std::lock_guard guard(other.mutex);
    other.isCancelled = true;
    if (other.now) other.now->cancel();
  });
  EXPECT_TRUE(early == 0 && wrong == 0);
  EXPECT_TRUE(units.acquire(qcDeadline(0.0)) && !units.acquire(qcDeadline(0.0))) << "the unit is there, and one only";
}

}  // namespace
