// Reading while an observer is set.
#pragma once

#include <streambuf>
#include <utility>

#include "vnxstd/archive/archive.h"
#include "vnxstd/archive/observer.h"

/// Hands everything on to a medium and shows none of its areas, so that what is read never takes the short way that
/// tells nobody.
class qc_Unbuffered : public std::streambuf {
 public:
  explicit qc_Unbuffered(std::streambuf& medium) noexcept : medium_(medium) {}
  std::streambuf& medium() const noexcept { return medium_; }

 protected:
  int_type underflow() override { return medium_.sgetc(); }
  int_type uflow() override { return medium_.sbumpc(); }
  int_type overflow(int_type c) override {
    return traits_type::eq_int_type(c, traits_type::eof()) ? c : medium_.sputc(traits_type::to_char_type(c));
  }
  std::streamsize xsgetn(char* to, std::streamsize count) override { return medium_.sgetn(to, count); }
  std::streamsize xsputn(const char* from, std::streamsize count) override { return medium_.sputn(from, count); }
  int sync() override { return medium_.pubsync(); }
  pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override {
    return medium_.pubseekoff(offset, from, which);
  }
  pos_type seekpos(pos_type position, std::ios_base::openmode which) override {
    return medium_.pubseekpos(position, which);
  }

 private:
  std::streambuf& medium_;
};

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
