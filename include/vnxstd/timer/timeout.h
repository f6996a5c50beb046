// Time limits on the waits of a thread.
#pragma once

#include <memory>

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// A time limit on what a thread does while this object lives. It interrupts nothing that runs; a wait of the thread
/// that outlasts it, for a semaphore, an image from a pool, a message or a span of time, throws Expired. Of several
/// limits the earliest counts. An object belongs to the thread that made it.
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

  /// Throws Expired when a limit on the calling thread has passed; for long computations.
  static void check();

 private:
  struct Holder;
  std::unique_ptr<Holder> holder_;
};
