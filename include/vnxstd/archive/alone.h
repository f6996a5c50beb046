// Whether atomic operations can be spared.
#pragma once

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

/// True while the process has a single thread, as far as the platform tells.
inline bool qf_IsAlone() noexcept {
#if __has_include(<sys/single_threaded.h>)
  return __libc_single_threaded;
#else
  return false;
#endif
}
