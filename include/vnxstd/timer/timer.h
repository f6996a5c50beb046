// Stopwatches.
//
// qcTimer counts on the steady clock of the system, qcPTimer on the processor's time-stamp counter, which costs less to
// read; where there is none the two are the same. A timer adds up the intervals between its starts and stops, in ticks
// of its counter. What starting and stopping costs at least is measured once and subtracted, so that a timer that is
// stopped at once reads 0 or a few nanoseconds.
//
// A timer is for one thread at a time; the static functions are safe from all.
#pragma once

#include <atomic>

#include "vnxstd/archive/widths.h"
#include "vnxstd/export.h"

/// The steady clock of the system: never goes back, whatever happens to the date.
struct VNXSTD_EXPORT qc_SystemCounter {
  static qcInt64 read() noexcept;
  static qcInt64 ticksPerSecond() noexcept;
};

/// The time-stamp counter of the processor.
struct VNXSTD_EXPORT qc_ProcessorCounter {
  static qcInt64 read() noexcept;
  static qcInt64 ticksPerSecond();
};

/// Ticks per second of the processor's time-stamp counter, to some millionths. The first call compares it with the
/// steady clock for 20 ms.
VNXSTD_EXPORT qcInt64 qfPTimerGetTicksPerSecond();

/// A stopwatch on a counter.
template <class Counter>
class VNXSTD_EXPORT qc_Timer {
 public:
  /// Stopped at 0, or running if `startNow`.
  explicit qc_Timer(bool startNow = false);

  /// Starts the next interval; has no effect while running.
  void start();
  /// Ends the interval; has no effect while stopped.
  void stop();
  /// Back to 0. A running timer goes on from there.
  void reset();

  /// The ticks of all intervals, the running one up to now.
  qcInt64 rawTicks64() const;
  double rawTicks() const { return static_cast<double>(rawTicks64()); }
  /// The same without the cost of starting and stopping; never below 0.
  double ticks() const;
  double sec() const { return ticks() / static_cast<double>(ticksPerSecond64()); }
  double msec() const { return ticks() * 1e3 / static_cast<double>(ticksPerSecond64()); }
  double usec() const { return ticks() * 1e6 / static_cast<double>(ticksPerSecond64()); }

  /// The first call also measures the cost of starting and stopping.
  static qcInt64 ticksPerSecond64();
  static unsigned long ticksPerSecond() { return static_cast<unsigned long>(ticksPerSecond64()); }
  /// Microseconds per tick.
  static double resolution() { return 1e6 / static_cast<double>(ticksPerSecond64()); }
  static qcInt64 readSystemTime64() { return Counter::read(); }
  static double readSystemTime() { return static_cast<double>(readSystemTime64()); }

  /// Suspends the thread for this time, rounded to whole milliseconds. Returns at once when it is negative or not a
  /// number; more than ten years are ten years. Throws qcTimeout::Expired when a time limit on this thread passes
  /// first, at once when it has passed already, and qcTimeout::Cancel when another thread cancels this one.
  static void sleep(double seconds);
  /// Sets the cost of starting and stopping, in ticks, to the least of 200 measurements, or to 0 without `measure`, and
  /// returns it.
  static qcInt64 computeOverhead(bool measure);

 private:
  struct Bare {};
  explicit qc_Timer(Bare) noexcept {}  // asks for no rate: its first use needs timers

  qcInt64 elapsed_ = 0;
  bool isRunning_ = false;
  qcInt64 startTicks_ = 0;

  static std::atomic<qcInt64> overhead_;
};

extern template class qc_Timer<qc_SystemCounter>;
extern template class qc_Timer<qc_ProcessorCounter>;

/// On the steady clock of the system.
using qcTimer = qc_Timer<qc_SystemCounter>;
/// On the time-stamp counter of the processor.
using qcPTimer = qc_Timer<qc_ProcessorCounter>;
