// Locks and other resources that threads wait for.
#pragma once

#include <chrono>
#include <compare>
#include <condition_variable>
#include <mutex>

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

/// The time at which waiting ends, on the steady clock: nothing that happens to the date moves it. A value.
class VNXSTD_EXPORT qcDeadline {
 public:
  using Clock = std::chrono::steady_clock;

  /// Waiting never ends.
  qcDeadline() noexcept = default;
  explicit qcDeadline(Clock::time_point time) noexcept : time_(time) {}
  /// `seconds` from now on. What is not above 0, or not a number, has passed already; more than ten years is never.
  explicit qcDeadline(double seconds) noexcept;

  /// When the earliest qcTimeout on the calling thread passes.
  static qcDeadline ofThread() noexcept;
  /// When the calling thread, if it waits, has to see again whether a qcTimeout has ended its wait.
  static qcDeadline nextLook() noexcept;

  bool isNever() const noexcept { return time_ == Clock::time_point::max(); }
  bool hasPassed() const noexcept { return !isNever() && Clock::now() >= time_; }
  Clock::time_point time() const noexcept { return time_; }

  /// The earlier one is the smaller one.
  friend bool operator<(const qcDeadline& a, const qcDeadline& b) noexcept { return a.time_ < b.time_; }

 private:
  Clock::time_point time_ = Clock::time_point::max();
};

/// What a thread can wait for, have, and give back. All operations are safe from several threads.
class VNXSTD_EXPORT qc_Resource {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT Timeout : public qc_ErrorLeaf<Timeout, Errors, 0x10002100> {};
  class VNXSTD_EXPORT NamedObjectExists : public qc_ErrorLeaf<NamedObjectExists, Errors, 0x10002102> {};
  class VNXSTD_EXPORT NameConflict : public qc_ErrorLeaf<NameConflict, Errors, 0x10002104> {};
  class VNXSTD_EXPORT CreateFailed : public qc_ErrorLeaf<CreateFailed, Errors, 0x10002105> {};
  class VNXSTD_EXPORT BrokenLock : public qc_ErrorLeaf<BrokenLock, Errors, 0x10002106> {};

  qc_Resource() noexcept = default;
  qc_Resource(const qc_Resource&) = delete;
  qc_Resource& operator=(const qc_Resource&) = delete;
  virtual ~qc_Resource();

  /// Waits until the resource is there and takes it. False when the deadline passes first; a resource that is there is
  /// taken whatever the deadline.
  virtual bool acquire(const qcDeadline& deadline) = 0;
  virtual void release() = 0;
};

/// A resource that one thread at a time can have. It is given back by the thread that has it, which must not take it
/// again before.
class VNXSTD_EXPORT qcMutex final : public qc_Resource {
 public:
  /// With a deadline it tries every millisecond, so that threads that wait without one come first, and throws
  /// qcTimeout::Expired or Cancel when a time limit on this thread ends the wait. Without one it waits to the end.
  bool acquire(const qcDeadline& deadline) override;
  void release() override { mutex_.unlock(); }

  /// The mutex of the process, under which objects are made of which there is one only. Lives as long as the process.
  static qcMutex& global();

 private:
  std::mutex mutex_;
};

/// A number of units, each of which can be taken once. Any thread can add units, also such as were never taken.
class VNXSTD_EXPORT qcSemaphore final : public qc_Resource {
 public:
  explicit qcSemaphore(long units = 0) : units_(units) {}

  /// Takes a unit. Throws qcTimeout::Expired or Cancel when a time limit on this thread ends the wait first.
  bool acquire(const qcDeadline& deadline) override;
  /// Adds a unit, unless there are as many as a long can count, and wakes one of the threads that wait.
  void release() override;

 private:
  std::mutex mutex_;
  std::condition_variable added_;
  long units_;
};

/// Has a resource for as long as it lives.
class VNXSTD_EXPORT qcLock {
 public:
  explicit qcLock(qc_Resource& resource) : resource_(resource) { resource.acquire(qcDeadline()); }
  /// Throws qc_Resource::Timeout when the deadline passes first.
  qcLock(qc_Resource& resource, const qcDeadline& deadline) : resource_(resource) {
    if (!resource.acquire(deadline)) throw qc_Resource::Timeout();
  }
  ~qcLock() { resource_.release(); }
  qcLock(const qcLock&) = delete;
  qcLock& operator=(const qcLock&) = delete;

 private:
  qc_Resource& resource_;
};
