// The class levels that the object serializations under way have been through.
#pragma once

#include <cstddef>
#include <mutex>
#include <typeinfo>
#include <vector>

/// One process-wide stack of marks, cut into one frame per object. It belongs to the thread that holds the persistence
/// lock.
class qc_Visited {
 public:
  /// A fresh set of marks, while the thread holds the persistence lock. Frames nest.
  class Frame {
   public:
    Frame() : outer_(stack().base) {
      Stack& s = stack();
      s.base = s.marks.size();
      ++s.frames;
    }
    ~Frame() {
      Stack& s = stack();
      s.marks.resize(s.base);
      s.base = outer_;
      --s.frames;
    }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

   private:
    std::size_t outer_;
  };

  static bool contains(const void* address, unsigned size, const std::type_info* level);
  static void add(const void* address, unsigned size, const std::type_info* level);

  static std::recursive_mutex& lock();

 private:
  struct Mark {
    const void* address;
    const std::type_info* level;
    unsigned size;
  };
  struct Stack {
    std::vector<Mark> marks;
    std::size_t base = 0;
    std::size_t frames = 0;
  };
  static Stack& stack();
};
