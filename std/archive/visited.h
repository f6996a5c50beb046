// The class levels that the object serializations under way have been through.
#pragma once

#include <cstddef>
#include <mutex>
#include <typeinfo>

/// One process-wide stack of marks, cut into one frame per object. It belongs to the thread that holds the persistence
/// lock. Nothing here is ever destroyed, because code that runs at exit may still archive.
class qc_Visited {
 public:
  /// A fresh set of marks, while the thread holds the persistence lock. Frames nest.
  class Frame {
   public:
    Frame() noexcept : outer_(base_) {
      base_ = size_;
      ++frames_;
    }
    ~Frame() {
      size_ = base_;
      base_ = outer_;
      --frames_;
    }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

   private:
    std::size_t outer_;
  };

  static bool contains(const void* address, unsigned size, const std::type_info* level) noexcept {
    for (std::size_t i = size_; i-- > base_;) {
      const Mark& mark = marks_[i];
      if (mark.address == address && mark.size == size && isSame(mark.level, level)) return true;
    }
    return false;
  }

  static void add(const void* address, unsigned size, const std::type_info* level) {
    if (frames_ == 0) return;  // outside an object there is no set to add to
    if (size_ == capacity_) grow();
    marks_[size_++] = {address, level, size};
  }

  static std::recursive_mutex& lock();

 private:
  struct Mark {
    const void* address;
    const std::type_info* level;
    unsigned size;
  };
  static bool isSame(const std::type_info* a, const std::type_info* b) noexcept {
    return a == b || (a && b && *a == *b);
  }
  static void grow();

  static inline Mark* marks_ = nullptr;
  static inline std::size_t size_ = 0, capacity_ = 0;
  static inline std::size_t base_ = 0;  // where the innermost frame begins
  static inline std::size_t frames_ = 0;
};
