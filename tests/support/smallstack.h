// Runs what must get by on little stack.
#pragma once

#include <pthread.h>
#include "support/test.h"

/// Calls `run` in a thread whose stack has that many bytes, and waits for it.
inline void onStackOf(std::size_t bytes, std::function<void()> run) {
  pthread_attr_t attributes;
  pthread_t thread;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, bytes), 0);
  const auto start = [](void* what) -> void* { return (*static_cast<std::function<void()>*>(what))(), nullptr; };
  ASSERT_EQ(pthread_create(&thread, &attributes, start, &run), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
}
