#include "std/archive/visited.h"

#include <algorithm>

std::recursive_mutex& qc_Visited::lock() {
  static std::recursive_mutex& mutex = *new std::recursive_mutex;
  return mutex;
}

void qc_Visited::grow() {
  const std::size_t larger = capacity_ * 2 + 64;
  Mark* marks = new Mark[larger];
  std::copy_n(marks_, size_, marks);
  delete[] marks_;
  marks_ = marks;
  capacity_ = larger;
}
