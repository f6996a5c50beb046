// Timers, time limits and what waits.

#include <future>

#include "support/test.h"
#include "vnxstd/sync/sync.h"
#include "vnxstd/timer.h"

namespace {

template <class T>
class Timer : public testing::Test {};
using Timers = testing::Types<qcTimer, qcPTimer>;
TYPED_TEST_SUITE(Timer, Timers);

TYPED_TEST(Timer, AddsUpIntervals) {
  TypeParam timer(false);
  EXPECT_EQ(timer.rawTicks64(), 0);
  timer.stop();
  EXPECT_EQ(timer.rawTicks64(), 0);
  qcInt64 least = 0;
  for (int i = 0; i < 3; ++i) {
    timer.start();
    const qcInt64 from = TypeParam::readSystemTime64();
    TypeParam::sleep(0.001);
    timer.start();  // goes on
    least += TypeParam::readSystemTime64() - from;
    timer.stop();
    const qcInt64 stopped = timer.rawTicks64();
    TypeParam::sleep(0.001);
    timer.stop();
    ASSERT_EQ(timer.rawTicks64(), stopped);
    ASSERT_GE(stopped, least);
  }
}

TYPED_TEST(Timer, RunsOnAfterReset) {
  TypeParam timer(true);
  TypeParam::sleep(0.002);
  const qcInt64 before = timer.rawTicks64(), from = TypeParam::readSystemTime64();
  timer.reset();
  const qcInt64 after = timer.rawTicks64(), passed = TypeParam::readSystemTime64() - from;
  EXPECT_LE(after, passed);  // not from the first start on
  EXPECT_GT(before, 0);
  TypeParam::sleep(0.002);
  EXPECT_GT(timer.rawTicks64(), after);
}

TYPED_TEST(Timer, LeavesOutWhatReadingCosts) {
  EXPECT_EQ(TypeParam::computeOverhead(false), 0);
  TypeParam timer(true);
  TypeParam::sleep(0.001);
  timer.stop();
  const double all = timer.ticks();
  EXPECT_EQ(all, timer.rawTicks());
  const qcInt64 overhead = TypeParam::computeOverhead(true);
  EXPECT_TRUE(overhead >= 0 && overhead < 999999);
  EXPECT_EQ(timer.ticks(), all - static_cast<double>(overhead));
  EXPECT_EQ(TypeParam(false).ticks(), 0);  // not below
  const double rate = static_cast<double>(TypeParam::ticksPerSecond());
  for (int i = 0; i < 1000; ++i) {
    TypeParam none(true);
    none.stop();
    ASSERT_EQ(none.ticks(), std::max(0.0, none.rawTicks() - static_cast<double>(overhead)));
  }
  EXPECT_DOUBLE_EQ(timer.sec() * rate, timer.ticks());
  EXPECT_DOUBLE_EQ(timer.usec(), timer.msec() * 1e3);
  EXPECT_DOUBLE_EQ(TypeParam::resolution() * rate, 1e6);
}

TYPED_TEST(Timer, SleepsWholeMilliseconds) {
  TypeParam::sleep(-1);
  TypeParam::sleep(std::nan(""));
  TypeParam::sleep(0.0004);
  qcTimer timer(true);
  TypeParam::sleep(0.0006);
  EXPECT_GE(timer.usec(), 999);
}

// An interval within another one is not longer, give or take what a slewed clock may be wrong, and both counters agree
// on what a second is.
TEST(Timers, AgreeOnSeconds) {
  qcTimer outer(true);
  qcPTimer middle(true);
  qcTimer inner(true);
  qcTimer::sleep(0.05);
  inner.stop(), middle.stop(), outer.stop();
  EXPECT_LE(inner.sec(), middle.sec() * 1.1);
  EXPECT_LE(middle.sec(), outer.sec() * 1.1);
  EXPECT_GE(inner.sec(), 0.0499);
}

// --- waiting --------------------------------------------------------------------------------------------------------

TEST(Semaphore, HoldsItsUnitsAndPassesAnyDeadline) {
  qcSemaphore semaphore(0);
  for (const double seconds : {0.001, 0.0, -1.0, -1e300, std::nan("")})
    EXPECT_FALSE(semaphore.acquire(qcDeadline(seconds)));
  for (int i = 0; i < 3; ++i) semaphore.release();
  for (int i = 0; i < 4; ++i) EXPECT_EQ(semaphore.acquire(qcDeadline(-1)), i < 3);
  qcSemaphore full(LONG_MAX);
  full.release();
  EXPECT_TRUE(full.acquire(qcDeadline(0.0)));
}

TEST(Mutex, IsForOneThread) {
  qcMutex mutex;
  long count = 0;
  const auto work = [&] {
    for (int i = 0; i < 100; ++i) {
      const qcLock guard(mutex, qcDeadline(i % 2 ? 1000.0 : 1e300));
      ++count;
    }
  };
  {
    const std::jthread other(work);
    work();
  }
  EXPECT_EQ(count, 200);
  const qcLock guard(qcMutex::global());
  std::jthread([] {
    for (const double seconds : {0.0, 0.001})
      EXPECT_THROW(qcLock(qcMutex::global(), qcDeadline(seconds)), qc_Resource::Timeout);
  });
}

TEST(Timeout, OtherThreadsCancelWaitsAndNothingElse) {
  qcSemaphore none, one(1);
  qcMutex taken;
  const qcLock guard(taken);
  const std::function<void()> waits[] = {
      [&] { none.acquire(qcDeadline()); },
      [&] { none.acquire(qcDeadline(1000)); },
      [&] { taken.acquire(qcDeadline(1000)); },
      [] { qcTimer::sleep(1000); },
      [] {
        for (;;) qcTimeout::check();
      },
  };
  for (const auto& wait : waits) {
    std::promise<qcTimeout*> made;
    std::jthread waiting([&] {
      qcTimeout outer(1e300), inner(1000);
      made.set_value(&outer);
      EXPECT_THROW(wait(), qcTimeout::Cancel);
      EXPECT_THROW(wait(), qcTimeout::Cancel) << "at once";
      EXPECT_TRUE(one.acquire(qcDeadline())) << "no wait";
      one.release();
      outer.detach();
      outer.cancel();
      qcTimeout::check();
    });
    qcTimeout* const limit = made.get_future().get();
    qcTimer::sleep(0.002);
    limit->cancel();
  }
}

TEST(Timeout, TheEarliestLimitOfTheThreadCounts) {
  qcSemaphore none;
  auto first = std::make_unique<qcTimeout>(1000), second = std::make_unique<qcTimeout>(-1),
       third = std::make_unique<qcTimeout>(1e300);
  EXPECT_THROW(none.acquire(qcDeadline()), qcTimeout::Expired);
  std::jthread([&] { EXPECT_FALSE(none.acquire(qcDeadline(0.001))); }).join();
  first.reset();  // in any order
  EXPECT_THROW(none.acquire(qcDeadline()), qcTimeout::Expired);
  second->detach();
  second->detach();
  EXPECT_FALSE(none.acquire(qcDeadline(0.001)));
  third.reset();
  second.reset();
  EXPECT_FALSE(none.acquire(qcDeadline(0.001)));
  qcTimeout::check();
  const qcTimeout last(0.01);
  const qcTimer watch(true);
  EXPECT_THROW(qcTimer::sleep(1000), qcTimeout::Expired);
  EXPECT_GE(watch.sec(), 0.0099);
  for (const double seconds : {0.0, 1.0}) EXPECT_THROW(qcTimer::sleep(seconds), qcTimeout::Expired);
  for (const double seconds : {-1.0, std::nan("")}) EXPECT_NO_THROW(qcTimer::sleep(seconds));
  EXPECT_THROW(qcTimeout::check(), qcTimeout::Expired);
}

}  // namespace
