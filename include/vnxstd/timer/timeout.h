// Time limits on the waits of a thread.
#pragma once

#include <atomic>
#include <memory>

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// A time limit on what a thread does while this object lives. It interrupts nothing that runs; a wait of the thread
/// that outlasts it, for a semaphore, an image from a pool, a message or a span of time, throws Expired, and Cancel
/// within 10 ms after another thread has called cancel. A wait that begins later throws at once. What is there without
/// waiting is taken all the same, and a mutex without a deadline is waited for to the end. Of several limits the
/// earliest counts. An object belongs to the thread that made it; cancel alone is for all threads.
///
///     const qcTimeout limit(0.5);
///     const auto image = qfDefaultPelRootPool()->get<unsigned char>(640, 480);  // throws after half a second
class VNXSTD_EXPORT qcTimeout {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT Expired : public qc_ErrorLeaf<Expired, Errors, 0x10001500> {};
  class VNXSTD_EXPORT InternalExpired : public qc_ErrorLeaf<InternalExpired, Errors, 0x10001501> {};
  class VNXSTD_EXPORT Cancel : public qc_ErrorLeaf<Cancel, Errors, 0x10001502> {};

  /// The limit is `seconds` from now on. What is not above 0, or not a number, has passed already; more than ten years
  /// is no limit.
  explicit qcTimeout(double seconds);
  /// Lifts the limit.
  ~qcTimeout();
  qcTimeout(const qcTimeout&) = delete;
  qcTimeout& operator=(const qcTimeout&) = delete;

  /// Lifts the limit; has no effect the second time.
  void detach();

  /// Ends the waits of the thread that made this, from now until the limit is lifted; may be called by any thread while
  /// this lives, several times too, and has no effect once the limit is lifted.
  void cancel() noexcept { isCancelled_.store(true, std::memory_order_release); }

  /// Throws Cancel when the calling thread was cancelled, Expired when a limit on it has passed; for long computations.
  static void check();

 private:
  struct Holder;
  std::atomic<bool> isCancelled_{false};  // not in the holder, which goes while other threads may cancel
  std::unique_ptr<Holder> holder_;
};
