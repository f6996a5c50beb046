// Reference-counted handles.
//
// An object that is shared derives from qcRepBase and is reached through qcPtrHandle<T>, or qcPtrHandle_const<T> where
// it may only be read. A copy of a handle counts the object once more, a release once less, and the object is deleted
// when its count reaches zero. Counts change by atomic operations, so handles onto one object may be copied and dropped
// on any thread; one handle object itself is not for two threads at once. While the process has a single thread, plain
// accesses do.
//
// A chain of objects, each the last owner of the next, may be of any length: when the destruction of one object leads
// to that of another, and so on for 64 levels, those further down wait until the ones above them are destroyed. The
// call that lets go of the first returns after the last.
#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "vnxstd/archive/alone.h"
#include "vnxstd/export.h"

/// The reference count that handles change. A copy of an object is a new object: its count starts at zero, and
/// assignment leaves both counts alone.
class VNXSTD_EXPORT qcRepBase {
 public:
  virtual ~qcRepBase();

  /// The number of owners at this moment.
  long refc() const noexcept { return static_cast<long>(count_.load(std::memory_order_acquire)); }

  /// Counts one owner more; returns the new count.
  static long refInc(const qcRepBase* rep) noexcept {
    if (qf_IsAlone()) return count(rep, 1);
    return static_cast<long>(rep->count_.fetch_add(1, std::memory_order_relaxed) + 1);
  }

  /// Counts one owner less; returns the new count. The caller disposes of the object, or deletes it, when it is 0.
  static long refDec(const qcRepBase* rep) noexcept {
    if (qf_IsAlone()) return count(rep, -1);
    return static_cast<long>(rep->count_.fetch_sub(1, std::memory_order_acq_rel) - 1);
  }

  /// Deletes an object without owners, in constant stack space however many others go with it: from 64 levels within
  /// such deletions on, it is deleted on this thread once the outermost of them has come back so far. Takes no memory.
  static void dispose(const qcRepBase* rep) noexcept;

  /// Counts one owner more unless there is none left, which is to say that the object is being destroyed.
  static bool refIncIfOwned(const qcRepBase* rep) noexcept;

  /// True when `rep`, whose address alone is looked at, was already destroyed by the load that is being undone on this
  /// thread. Objects of a failed load may refer to each other in circles; they are destroyed one by one, and a handle
  /// must not touch one that went before it.
  static bool isGone(const qcRepBase* rep) noexcept {
    return undoing_.load(std::memory_order_relaxed) != 0 && isGoneSlow(rep);
  }

 protected:
  qcRepBase() noexcept = default;
  qcRepBase(const qcRepBase&) noexcept {}
  qcRepBase& operator=(const qcRepBase&) noexcept { return *this; }

 private:
  friend class qc_LoadUndo;
  static bool isGoneSlow(const qcRepBase* rep) noexcept;

  static long count(const qcRepBase* rep, int owners) noexcept {
    const std::intptr_t now = rep->count_.load(std::memory_order_relaxed) + owners;
    rep->count_.store(now, std::memory_order_relaxed);
    return static_cast<long>(now);
  }

  static std::atomic<int> undoing_;  // how many threads are undoing a failed load
  // The number of owners. While an object without any waits to be deleted, the next one that waits, as a number that is
  // not above 0.
  mutable std::atomic<std::intptr_t> count_{0};
};

/// Throws qcBadPointer; kept out of line so that the check of a handle stays a compare and a jump.
[[noreturn]] VNXSTD_EXPORT void qf_ThrowBadPointer();

/// Says that a handle takes over a count that was taken for it already.
struct qc_AdoptCount {};

/// The common part of both handles: owns one count of the object, or nothing. It keeps the address of the count beside
/// that of the object, because the count may be a virtual base, which only a live object can tell.
template <class T>
class qc_HandleBase {
 public:
  bool isNull() const noexcept { return rep_ == nullptr; }
  explicit operator bool() const noexcept { return rep_ != nullptr; }

  /// Lets go of the object; the handle is null afterwards.
  void release() noexcept { qc_HandleBase().swap(*this); }

 protected:
  qc_HandleBase() noexcept = default;
  qc_HandleBase(T* rep, qc_AdoptCount) noexcept : rep_(rep), count_(rep) {}
  explicit qc_HandleBase(T* rep) noexcept : qc_HandleBase(rep, rep) {}
  qc_HandleBase(const qc_HandleBase& other) noexcept : qc_HandleBase(other.rep_, other.count_) {}
  template <class U>
  qc_HandleBase(const qc_HandleBase<U>& other, T* rep) noexcept : qc_HandleBase(rep, other.count_) {}
  qc_HandleBase(qc_HandleBase&& other) noexcept { swap(other); }
  qc_HandleBase& operator=(const qc_HandleBase& other) noexcept {  // NOLINT(bugprone-unhandled-self-assignment)
    qc_HandleBase(other).swap(*this);
    return *this;
  }
  qc_HandleBase& operator=(qc_HandleBase&& other) noexcept {
    qc_HandleBase(std::move(other)).swap(*this);
    return *this;
  }
  ~qc_HandleBase() {
    if (!count_ || qcRepBase::isGone(count_)) return;
    if (qcRepBase::refDec(count_) == 0) qcRepBase::dispose(count_);
  }

  void swap(qc_HandleBase& other) noexcept {
    std::swap(rep_, other.rep_);
    std::swap(count_, other.count_);
  }

  T* checked() const {
    if (!rep_) qf_ThrowBadPointer();
    return rep_;
  }

  T* rep_ = nullptr;

 private:
  template <class U>
  friend class qc_HandleBase;

  qc_HandleBase(T* rep, const qcRepBase* count) noexcept : rep_(rep), count_(count) {
    if (count_) qcRepBase::refInc(count_);
  }

  const qcRepBase* count_ = nullptr;
};

/// A handle through which the object may be changed. Dereferencing a null handle throws qcBadPointer.
template <class T>
class qcPtrHandle : public qc_HandleBase<T> {
 public:
  using element_type = T;

  qcPtrHandle() noexcept = default;
  qcPtrHandle(std::nullptr_t) noexcept {}
  /// Takes part in the ownership of `rep`, which may be null.
  qcPtrHandle(T* rep) noexcept : qc_HandleBase<T>(rep) {}
  qcPtrHandle(T* rep, qc_AdoptCount adopt) noexcept : qc_HandleBase<T>(rep, adopt) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> qcPtrHandle(const qcPtrHandle<U>& other)
  noexcept : qc_HandleBase<T>(other, other.rep()) {}

  /// The object, or null; the handle keeps its count.
  T* rep() const noexcept { return this->rep_; }
  T& operator*() const { return *this->checked(); }
  T* operator->() const { return this->checked(); }
};

/// A handle through which the object may only be read.
template <class T>
class qcPtrHandle_const : public qc_HandleBase<T> {
 public:
  using element_type = const T;

  qcPtrHandle_const() noexcept = default;
  qcPtrHandle_const(std::nullptr_t) noexcept {}
  qcPtrHandle_const(const T* rep) noexcept : qc_HandleBase<T>(const_cast<T*>(rep)) {}
  qcPtrHandle_const(const T* rep, qc_AdoptCount adopt) noexcept : qc_HandleBase<T>(const_cast<T*>(rep), adopt) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> qcPtrHandle_const(const qcPtrHandle<U>& other)
  noexcept : qc_HandleBase<T>(other, other.rep()) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> qcPtrHandle_const(const qcPtrHandle_const<U>& other)
  noexcept : qc_HandleBase<T>(other, const_cast<U*>(other.rep())) {}

  const T* rep() const noexcept { return this->rep_; }
  const T& operator*() const { return *this->checked(); }
  const T* operator->() const { return this->checked(); }
};

/// Handles are equal when they refer to the same object.
template <class A, class B>
requires requires(const A& a, const B& b) {
  typename A::element_type;
  typename B::element_type;
  a.rep() == b.rep();
}
bool operator==(const A& a, const B& b) noexcept { return a.rep() == b.rep(); }
template <class T>
bool operator==(const qcPtrHandle<T>& a, std::nullptr_t) noexcept {
  return a.isNull();
}
template <class T>
bool operator==(const qcPtrHandle_const<T>& a, std::nullptr_t) noexcept {
  return a.isNull();
}
