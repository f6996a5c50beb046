#include "vnxstd/archive/memory.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <streambuf>
#include <utility>

#include "std/archive/areas.h"

/// Bytes that are the caller's until the first write, and this buffer's own afterwards. Reading and writing have
/// positions of their own; the bytes end where the furthest write has ended.
class qcStrstreambuf : public std::streambuf {
 public:
  qcStrstreambuf() = default;
  qcStrstreambuf(const char* data, std::size_t size) : data_(const_cast<char*>(data)), size_(size) { readFrom(0); }
  ~qcStrstreambuf() override { std::free(own_); }
  qcStrstreambuf(const qcStrstreambuf&) = delete;
  qcStrstreambuf& operator=(const qcStrstreambuf&) = delete;

  std::span<const char> bytes() const { return {data_, size()}; }

  /// Drops what lies behind `end`, and writes from there on.
  void truncate(std::size_t end) {
    if (end > size()) return;
    size_ = writeAt_ = end;
    if (own_) writeFrom(end);
    readFrom(std::min(readOffset(), end));
  }

 protected:
  int_type underflow() override {
    // What was written since the get area was set up can be read as well.
    readFrom(readOffset());
    return gptr() == egptr() ? traits_type::eof() : traits_type::to_int_type(*gptr());
  }

  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    makeRoom(1);
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
    return c;
  }

  std::streamsize xsputn(const char* bytes, std::streamsize count) override {
    if (count <= 0) return 0;
    const auto n = static_cast<std::size_t>(count);
    makeRoom(n);
    std::memcpy(pptr(), bytes, n);
    qc_Areas::skipWritten(*this, n);
    return count;
  }

  pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override {
    const bool writing = (which & std::ios_base::out) != 0;
    off_type base = 0;
    if (from == std::ios_base::cur) base = static_cast<off_type>(writing ? writeOffset() : readOffset());
    if (from == std::ios_base::end) base = static_cast<off_type>(size());
    if (offset > 0 && base > std::numeric_limits<off_type>::max() - offset) return pos_type(off_type(-1));
    return seekpos(pos_type(base + offset), which);
  }

  pos_type seekpos(pos_type position, std::ios_base::openmode which) override {
    const auto target = static_cast<off_type>(position);
    const std::size_t end = size();
    if (target < 0 || static_cast<std::size_t>(target) > end) return pos_type(off_type(-1));
    const auto place = static_cast<std::size_t>(target);
    if ((which & std::ios_base::out) != 0 && place != writeOffset()) {
      size_ = end;
      writeAt_ = place;
      if (own_) writeFrom(place);
    }
    if ((which & std::ios_base::in) != 0) readFrom(place);
    return position;
  }

 private:
  static constexpr std::size_t kFirst = 1024;

  std::size_t readOffset() const { return gptr() ? static_cast<std::size_t>(gptr() - data_) : readAt_; }
  std::size_t writeOffset() const { return own_ ? static_cast<std::size_t>(pptr() - own_) : writeAt_; }
  std::size_t size() const { return std::max(size_, writeOffset()); }

  void readFrom(std::size_t place) {
    readAt_ = place;
    setg(data_, data_ ? data_ + place : nullptr, data_ ? data_ + size() : nullptr);
  }
  void writeFrom(std::size_t place) {
    setp(own_, own_ + capacity_);
    qc_Areas::skipWritten(*this, place);
  }

  // Makes the bytes this buffer's own and the put area large enough for `count` more.
  void makeRoom(std::size_t count) {
    const std::size_t place = writeOffset(), end = size();
    if (count > static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max()) - place) throw std::bad_alloc();
    if (own_ && count <= capacity_ - place) return;
    const std::size_t reading = readOffset();
    const std::size_t wanted = std::max({place + count, end, capacity_ * 2, kFirst});
    auto* larger = static_cast<char*>(std::realloc(own_, wanted));
    if (!larger) throw std::bad_alloc();
    if (!own_ && end != 0) std::memcpy(larger, data_, end);
    data_ = own_ = larger;
    capacity_ = wanted;
    size_ = end;
    writeFrom(place);
    readFrom(reading);  // up to where writing has come
  }

  char* data_ = nullptr;
  char* own_ = nullptr;
  std::size_t size_ = 0;  // as of the last change of position; writing may have gone further
  std::size_t capacity_ = 0;
  std::size_t readAt_ = 0;
  std::size_t writeAt_ = 0;
};

qcMemoryArchive::Parts::~Parts() = default;

namespace {

std::size_t sizeOf(const char* data, long size) { return data && size > 0 ? static_cast<std::size_t>(size) : 0; }

}  // namespace

qcMemoryArchive::Parts::Parts() : stream(std::make_unique<qcStrstreambuf>()) {}

qcMemoryArchive::Parts::Parts(const char* data, long size, bool takeOwnership)
    : ownedData(takeOwnership ? data : nullptr), stream(std::make_unique<qcStrstreambuf>(data, sizeOf(data, size))) {}

qcMemoryArchive::qcMemoryArchive(Parts&& parts, Direction direction, Ordering ordering, bool seekable)
    : qcArchive(parts.stream.get(), direction, ordering, seekable, false), parts_(std::move(parts)) {}

qcMemoryArchive::qcMemoryArchive(Ordering ordering, bool seekable)
    : qcMemoryArchive(Parts(), storing, ordering, seekable) {
  ctorFinished();
}

qcMemoryArchive::qcMemoryArchive(const char* data, long size, bool seekable, bool takeOwnership)
    : qcMemoryArchive(Parts(data, size, takeOwnership), loading, littleEndian, seekable) {
  ctorFinished();
}

qcMemoryArchive::~qcMemoryArchive() { dtorStarting(); }

const char* qcMemoryArchive::storage() const { return bytes().data(); }

std::span<const char> qcMemoryArchive::bytes() const { return parts_.stream->bytes(); }

bool qcMemoryArchive::truncate(std::streamoff end) {
  parts_.stream->truncate(static_cast<std::size_t>(end));
  return true;
}

std::vector<char> qcMemoryArchive::toVector() const { return {bytes().begin(), bytes().end()}; }
