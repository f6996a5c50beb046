// What lasts as long as an operation of an index, and puts right what it leaves.
#pragma once

#include <algorithm>
#include <cstddef>
#include <mutex>
#include <utility>

#include "std/archive/areas.h"
#include "std/archive/index.h"
#include "std/archive/visited.h"

// Every operation runs inside one of these; the outermost of an archive takes the persistence lock.
class qc_ArchiveIndex::Entry {
 public:
  explicit Entry(qc_ArchiveIndex& index) : index_(index) {
    if (index_.entered_ == 0) {
      // Waiting for another process, or thread, to begin a message must not keep all others from archiving.
      if (index_.archive_.isStoring()) {
        index_.archive_.beforeObject();
      } else if (!index_.isSeekable() && qc_Areas::readable(index_.buffer()) == 0) {
        index_.buffer().sgetc();
      }
      qc_Visited::lock().lock();
    }
    ++index_.entered_;
  }
  ~Entry() {
    if (--index_.entered_ == 0) qc_Visited::lock().unlock();
  }
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;

 private:
  qc_ArchiveIndex& index_;
};

// Counts something while it lives.
class qc_ArchiveIndex::Deeper {
 public:
  explicit Deeper(long& count) noexcept : count_(count) { ++count_; }
  ~Deeper() { --count_; }
  Deeper(const Deeper&) = delete;
  Deeper& operator=(const Deeper&) = delete;

 private:
  long& count_;
};

// One object that is stored or loaded. What it refers to counts like what lies within it: destructors, and whatever
// else goes from object to object, go as deep.
class qc_ArchiveIndex::Level {
 public:
  Level(qc_ArchiveIndex& index, const qcPersistent& object) noexcept
      : type(typeid(object)),
        around(std::exchange(index.innermost_, this)),
        index_(index),
        deeper_(index.depth_),
        outer_(std::exchange(index.height_, 0)),
        outerLow_(std::exchange(index.low_, qc_HeldTable::kSettled)) {}
  ~Level() {
    index_.innermost_ = around;
    index_.lastHeight_ = index_.height_;
    index_.height_ = std::max(outer_, index_.height_ + 1);
    index_.lastLow_ = index_.low_;
    index_.low_ = std::min(outerLow_, index_.low_);
  }
  Level(const Level&) = delete;
  Level& operator=(const Level&) = delete;

  const std::type_info& type;
  const Level* const around;

 private:
  qc_ArchiveIndex& index_;
  Deeper deeper_;
  std::int32_t outer_;
  long outerLow_;
};

// One object that a reference has led to.
class qc_ArchiveIndex::Elsewhere {
 public:
  Elsewhere(qc_ArchiveIndex& index, const Root& object)
      : root(object), depth(index.depth_), outer(std::exchange(index.elsewhere_, this)), index_(index) {
    if (!outer) index.base_ = depth;
  }
  ~Elsewhere() { index_.elsewhere_ = outer; }
  Elsewhere(const Elsewhere&) = delete;
  Elsewhere& operator=(const Elsewhere&) = delete;

  const Root root;
  const long depth;
  const Elsewhere* const outer;

 private:
  qc_ArchiveIndex& index_;
};

// Forgets what a failed store has entered: nobody could read references to it.
class qc_ArchiveIndex::StoreGuard {
 public:
  explicit StoreGuard(qc_ArchiveIndex& index) noexcept
      : index_(index), from_(index.stored_.size()), firstId_(index.nextId_) {}
  ~StoreGuard() {
    if (succeeded_) {
      if (index_.entered_ == 1) index_.stored_.clear();
      return;
    }
    const std::lock_guard guard(qc_HeldTable::lock());
    for (; index_.stored_.size() > from_; index_.stored_.pop_back()) {
      const Stored& stored = index_.stored_.back();
      qc_HeldTable::Entry& entry = index_.held_[stored.place];
      if (entry.stored < firstId_) continue;
      entry.stored = stored.before;
      entry.height = stored.height;
    }
  }
  StoreGuard(const StoreGuard&) = delete;
  StoreGuard& operator=(const StoreGuard&) = delete;
  void succeed() noexcept { succeeded_ = true; }

 private:
  qc_ArchiveIndex& index_;
  std::size_t from_;
  std::int32_t firstId_;
  bool succeeded_ = false;
};

// Destroys what a failed load has made.
class qc_ArchiveIndex::LoadGuard {
 public:
  explicit LoadGuard(qc_ArchiveIndex& index) noexcept
      : index_(index), from_(index.made_.size()), settledFrom_(index.settled_.size()) {}
  ~LoadGuard() {
    // What is being unwound to be begun anew keeps what is complete.
    if (!succeeded_ && index_.wanted_.id == 0) index_.undo(from_, settledFrom_);
  }
  LoadGuard(const LoadGuard&) = delete;
  LoadGuard& operator=(const LoadGuard&) = delete;
  void succeed() noexcept { succeeded_ = true; }

 private:
  qc_ArchiveIndex& index_;
  std::size_t from_, settledFrom_;
  bool succeeded_ = false;
};

// Gives back a count that was taken of a known object, unless a handle gets it.
class qc_ArchiveIndex::CountGuard {
 public:
  explicit CountGuard(const Given& given) noexcept : given_(given) {}
  ~CountGuard() {
    if (given_.rep && qcRepBase::refDec(given_.rep) == 0 && given_.shared) qcRepBase::dispose(given_.rep);
  }
  CountGuard(const CountGuard&) = delete;
  CountGuard& operator=(const CountGuard&) = delete;
  void keep() noexcept { given_.rep = nullptr; }
  /// The object is handed out as a plain pointer: whoever gets it destroys it.
  void lend() noexcept { given_.shared = false; }

 private:
  Given given_;
};
