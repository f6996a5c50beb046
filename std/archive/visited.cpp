#include "std/archive/visited.h"

// Made on first use and never destroyed, because code that runs at exit may still archive.
std::recursive_mutex& qc_Visited::lock() {
  static std::recursive_mutex& mutex = *new std::recursive_mutex;
  return mutex;
}

qc_Visited::Stack& qc_Visited::stack() {
  static Stack& s = *new Stack;
  return s;
}

bool qc_Visited::contains(const void* address, unsigned size, const std::type_info* level) {
  const Stack& s = stack();
  for (std::size_t i = s.marks.size(); i-- > s.base;) {
    const Mark& mark = s.marks[i];
    if (mark.address != address || mark.size != size) continue;
    if (mark.level == level || (mark.level && level && *mark.level == *level)) return true;
  }
  return false;
}

void qc_Visited::add(const void* address, unsigned size, const std::type_info* level) {
  // Outside an object there is no set to add to.
  if (Stack& s = stack(); s.frames != 0) s.marks.push_back({address, level, size});
}
