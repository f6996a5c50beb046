// Reading while an observer is set.
#pragma once

#include <utility>

#include "vnxstd/archive/archive.h"
#include "vnxstd/archive/observer.h"

/// The observer is not told while one of these lives.
class qcArchive::Hush {
 public:
  explicit Hush(qcArchive& archive) noexcept
      : archive_(archive), observer_(std::exchange(archive.observer_, nullptr)) {}
  ~Hush() { archive_.observer_ = observer_; }
  Hush(const Hush&) = delete;
  Hush& operator=(const Hush&) = delete;

 private:
  qcArchive& archive_;
  qcArchiveObserver* observer_;
};

/// Runs `read`, without telling of its parts, and tells the observer of the whole by `tell(observer, span)`. Returns
/// false, and runs nothing, when there is none, and when storing.
template <class Read, class Tell>
bool qcArchive::observed(Read read, Tell tell) {
  if (!observer_ || !isLoading()) return false;
  const std::streamoff at = offset();
  {
    const Hush hush(*this);
    read();
  }
  tell(*observer_, qcArchiveObserver::Span{at, offset() - at});
  return true;
}
