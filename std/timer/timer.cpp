#include "vnxstd/timer/timer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <thread>

#include "vnxstd/except/failure.h"
#include "zrtsys/attention.h"
#include "zrtsys/clock.h"

namespace {

constexpr qcInt64 kNanosecondsPerSecond = 1000000000;

qcInt64 steadyClock() noexcept {
  std::int64_t nanoseconds = 0;
  zrtsys::readSteadyClock(&nanoseconds);
  return nanoseconds;
}

struct Reading {
  qcInt64 processor, steady, spread;
};

/// Both counters at one moment: of several tries the one that was interrupted least.
Reading readBoth() {
  Reading best{0, 0, INT64_MAX};
  for (int i = 0; i < 16; ++i) {
    const qcInt64 before = steadyClock(), processor = qc_ProcessorCounter::read(), after = steadyClock();
    if (after - before < best.spread) best = {processor, before + (after - before) / 2, after - before};
  }
  return best;
}

}  // namespace

qcInt64 qc_SystemCounter::read() noexcept { return steadyClock(); }

qcInt64 qc_SystemCounter::ticksPerSecond() noexcept { return kNanosecondsPerSecond; }

qcInt64 qc_ProcessorCounter::read() noexcept { return zrtsys::readProcessorCounter(); }

qcInt64 qc_ProcessorCounter::ticksPerSecond() { return qfPTimerGetTicksPerSecond(); }

qcInt64 qfPTimerGetTicksPerSecond() {
  static const qcInt64 rate = [] {
    constexpr qcInt64 kLength = 20000000;  // nanoseconds; the readings are good to some tens of them
    const Reading first = readBoth();
    Reading last = first;
    while (last.steady - first.steady < kLength) last = readBoth();
    return std::llround(static_cast<double>(last.processor - first.processor) /
                        static_cast<double>(last.steady - first.steady) * kNanosecondsPerSecond);
  }();
  return rate;
}

template <class Counter>
std::atomic<qcInt64> qc_Timer<Counter>::overhead_{0};

template <class Counter>
qc_Timer<Counter>::qc_Timer(bool startNow) {
  ticksPerSecond64();
  if (startNow) start();
}

template <class Counter>
void qc_Timer<Counter>::start() {
  if (isRunning_) return;
  isRunning_ = true;
  startTicks_ = Counter::read();
}

template <class Counter>
void qc_Timer<Counter>::stop() {
  const qcInt64 now = Counter::read();  // first, so that the rest does not count
  if (!isRunning_) return;
  elapsed_ += now - startTicks_;
  isRunning_ = false;
}

template <class Counter>
void qc_Timer<Counter>::reset() {
  elapsed_ = 0;
  if (isRunning_) startTicks_ = Counter::read();
}

template <class Counter>
qcInt64 qc_Timer<Counter>::rawTicks64() const {
  return isRunning_ ? elapsed_ + (Counter::read() - startTicks_) : elapsed_;
}

template <class Counter>
double qc_Timer<Counter>::ticks() const {
  return static_cast<double>(std::max<qcInt64>(rawTicks64() - overhead_.load(std::memory_order_relaxed), 0));
}

template <class Counter>
qcInt64 qc_Timer<Counter>::ticksPerSecond64() {
  static const qcInt64 rate = [] {
    computeOverhead(true);
    return Counter::ticksPerSecond();
  }();
  return rate;
}

template <class Counter>
void qc_Timer<Counter>::sleep(double seconds) {
  constexpr double kLongest = 10 * 365.25 * 86400 * 1e3;  // milliseconds
  if (!(seconds >= 0)) return;
  const double milliseconds = std::round(std::min(seconds * 1e3, kLongest));
  const std::chrono::milliseconds wait(static_cast<std::int64_t>(milliseconds));
  const auto end = std::chrono::steady_clock::now() + wait;
  for (;;) {
    qfThrowExceptionOnFailure(zrtsys::checkAttention());
    if (std::chrono::steady_clock::now() >= end) return;
    const std::chrono::steady_clock::time_point look{std::chrono::nanoseconds(zrtsys::nextAttention())};
    std::this_thread::sleep_until(std::min(end, look));
  }
}

// Through a timer, and by calls as a user's are: bare or inlined readings follow each other closer than a start and a
// stop ever do.
template <class Counter>
qcInt64 qc_Timer<Counter>::computeOverhead(bool measure) {
  void (qc_Timer::*volatile starting)() = &qc_Timer::start;
  void (qc_Timer::*volatile stopping)() = &qc_Timer::stop;
  qcInt64 least = measure ? 999999 : 0;
  for (int i = 0; i < 200 && measure; ++i) {
    qc_Timer timer{Bare()};
    (timer.*starting)();
    (timer.*stopping)();
    least = std::min(least, timer.elapsed_);
  }
  overhead_.store(least, std::memory_order_relaxed);
  return least;
}

template class qc_Timer<qc_SystemCounter>;
template class qc_Timer<qc_ProcessorCounter>;
