// What objects compute about themselves when they are first asked.
#pragma once

#include <atomic>
#include <memory>

namespace qc_shapes {

/// A value that is made when it is first asked for, and kept. Any number of threads may ask at once, without a lock:
/// those that find nothing each make it, and all get what was made first. When making it throws, nothing is kept.
template <class T>
class Lazy {
 public:
  Lazy() = default;
  Lazy(const Lazy&) = delete;
  Lazy& operator=(const Lazy&) = delete;
  ~Lazy() { reset(); }

  template <class Make>
  const T& get(const Make& make) const {
    const T* kept = value_.load(std::memory_order_acquire);
    if (kept) return *kept;
    std::unique_ptr<const T> made(new T(make()));
    const bool isFirst = value_.compare_exchange_strong(kept, made.get(), std::memory_order_acq_rel);
    return isFirst ? *made.release() : *kept;
  }
  /// Lets go of the value; for one thread alone, while no other one asks.
  void reset() noexcept { delete value_.exchange(nullptr, std::memory_order_relaxed); }

 private:
  mutable std::atomic<const T*> value_{nullptr};
};

}  // namespace qc_shapes
