#if !defined(_WIN32)
#define _FILE_OFFSET_BITS 64  // where files beyond 2 GiB need asking for; NOLINT(bugprone-reserved-identifier)
#endif

#include "vnxstd/archive/file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <streambuf>
#include <vector>

#include "std/archive/areas.h"
#include "std/archive/format.h"
#include "std/archive/nativepath.h"

#if defined(_WIN32)
#include <io.h>
#include <share.h>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

struct Opened {
  std::FILE* file = nullptr;
  bool inUse = false;
};

#if defined(_WIN32)

Opened openFile(const std::filesystem::path& path, bool truncate, bool readOnly) {
  const wchar_t* mode = truncate ? L"w+b" : readOnly ? L"rb" : L"r+b";
  std::FILE* file = _wfsopen(path.c_str(), mode, readOnly ? _SH_DENYNO : _SH_DENYWR);
  return {file, !file && errno == EACCES && std::filesystem::exists(path)};
}

bool syncFile(std::FILE* file) { return _commit(_fileno(file)) == 0; }
bool truncateFile(std::FILE* file, long long size) { return _chsize_s(_fileno(file), size) == 0; }

#else

Opened openFile(const std::filesystem::path& path, bool truncate, bool readOnly) {
  const int access = readOnly ? O_RDONLY : truncate ? O_RDWR | O_CREAT : O_RDWR;
  const int descriptor = ::open(path.c_str(), access | O_CLOEXEC, 0666);
  if (descriptor < 0) return {};
  struct stat status {};
  const bool regular = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
  // The lock belongs to the open file: it goes with it, and holds against this process, too.
  const bool inUse = regular && !readOnly && ::flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  if (!inUse && (!truncate || !regular || ::ftruncate(descriptor, 0) == 0)) {
    if (std::FILE* file = ::fdopen(descriptor, readOnly ? "rb" : "r+b")) return {file, false};
  }
  ::close(descriptor);
  return {nullptr, inUse};
}

bool syncFile(std::FILE* file) { return ::fsync(::fileno(file)) == 0 || errno == EINVAL; }
bool truncateFile(std::FILE* file, long long size) { return ::ftruncate(::fileno(file), size) == 0; }

#endif

bool seekFile(std::FILE* file, long long offset, int origin) {
#if defined(_WIN32)
  return _fseeki64(file, offset, origin) == 0;
#else
  static_assert(sizeof(off_t) == sizeof(long long), "files beyond 2 GiB need 64-bit offsets");
  return fseeko(file, offset, origin) == 0;
#endif
}

long long tellFile(std::FILE* file) {
#if defined(_WIN32)
  return _ftelli64(file);
#else
  return ftello(file);
#endif
}

}  // namespace

/// A file behind one buffer that holds either bytes read ahead or bytes not yet written. It works on unbuffered C
/// streams, so that every failure of the system is seen here, at once. Reading reports a failure by throwing BadFile,
/// writing by taking fewer bytes.
class qcFileArchive::Stream : public std::streambuf {
 public:
  explicit Stream(const std::wstring& path) : path_(path), buffer_(kBuffer) {}
  ~Stream() override {
    if (file_) {
      flush();
      std::fclose(file_);
    }
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  void open(Direction direction, bool readOnly) {
    const std::filesystem::path native = qf_NativePath(path_);
    std::error_code ignored;
    const bool isFolder = std::filesystem::is_directory(native, ignored);  // opens, but yields nothing
    const Opened opened = isFolder ? Opened() : openFile(native, direction == storing, readOnly);
    if (opened.inUse) throw BadFile((L"File is in use: " + path_).c_str(), 0);
    if (!opened.file) throw BadFile((L"Could not open file: " + path_).c_str(), 0);
    file_ = opened.file;
    readOnly_ = readOnly;
    std::setvbuf(file_, nullptr, _IONBF, 0);
  }

  bool syncToMedium() {
    if (!flush()) return false;
    if (file_ && !readOnly_ && !syncFile(file_)) fail();
    return !failed_;
  }

  /// Whether the file could be cut.
  bool truncate(off_type end) {
    if (!file_ || !flush() || failed_) return false;
    drop();
    at_ = end;
    moved_ = true;
    return truncateFile(file_, end);
  }

  /// Whether all went well.
  bool close() {
    if (!file_) return true;
    const bool flushed = flush() && !failed_;
    std::FILE* file = std::exchange(file_, nullptr);
    drop();
    return std::fclose(file) == 0 && flushed;
  }

 protected:
  int_type underflow() override {
    const bool isFar = gone_;
    if (!startReading()) return traits_type::eof();
    const std::size_t count = readFile(buffer_.data(), isFar ? kFirst : buffer_.size());
    setg(buffer_.data(), buffer_.data(), buffer_.data() + count);
    return count == 0 ? traits_type::eof() : traits_type::to_int_type(buffer_[0]);
  }

  std::streamsize xsgetn(char* bytes, std::streamsize count) override {
    std::streamsize done = 0;
    while (done < count) {
      const auto wanted = static_cast<std::size_t>(count - done);
      if (const std::size_t ready = std::min(qc_Areas::readable(*this), wanted); ready != 0) {
        std::memcpy(bytes + done, gptr(), ready);
        qc_Areas::skipRead(*this, ready);
        done += static_cast<std::streamsize>(ready);
      } else if (wanted >= buffer_.size()) {  // what fills the buffer goes past it
        if (!startReading()) break;
        const std::size_t got = readFile(bytes + done, wanted);
        done += static_cast<std::streamsize>(got);
        if (got == 0) break;
      } else if (traits_type::eq_int_type(underflow(), traits_type::eof())) {
        break;
      }
    }
    return done;
  }

  int_type overflow(int_type c) override {
    if (!startWriting() || !flush() || failed_) return traits_type::eof();
    setp(buffer_.data(), buffer_.data() + buffer_.size());
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
      *pptr() = traits_type::to_char_type(c);
      pbump(1);
    }
    return traits_type::not_eof(c);
  }

  std::streamsize xsputn(const char* bytes, std::streamsize count) override {
    const auto n = static_cast<std::size_t>(std::max<std::streamsize>(count, 0));
    if (n > qc_Areas::writable(*this)) {
      if (traits_type::eq_int_type(overflow(traits_type::eof()), traits_type::eof())) return 0;
      if (n >= buffer_.size()) return static_cast<std::streamsize>(writeFile(bytes, n));
    }
    std::memcpy(pptr(), bytes, n);
    qc_Areas::skipWritten(*this, n);
    return count;
  }

  int sync() override { return flush() ? 0 : -1; }

  pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override {
    if (!file_) return pos_type(off_type(-1));
    off_type base = 0;
    if (from != std::ios_base::beg) base = here();
    if (base < 0) return pos_type(off_type(-1));
    if (from == std::ios_base::cur && offset == 0) return pos_type(base);
    if (from == std::ios_base::end) {
      // What is read ahead stays; what is not written yet may make the file longer.
      const off_type end = fileEnd();
      if (end < 0) return pos_type(off_type(-1));
      base = pptr() ? std::max(end, base) : end;
    }
    if (offset > 0 && base > std::numeric_limits<off_type>::max() - offset) return pos_type(off_type(-1));
    return seekpos(pos_type(base + offset), which);
  }

  pos_type seekpos(pos_type position, std::ios_base::openmode) override {
    const auto target = static_cast<off_type>(position);
    if (!file_ || target < 0) return pos_type(off_type(-1));
    const bool isReading = gptr() != nullptr;
    const std::ptrdiff_t size = isReading ? egptr() - eback() : kept_;
    const off_type end = isReading ? at_ : keptEnd_;
    if (size != 0 && target >= end - size && target <= end) {  // within what is read ahead
      setg(buffer_.data(), buffer_.data() + (target - (end - size)), buffer_.data() + size);
      moved_ = moved_ || !isReading;
      gone_ = false;
      at_ = end;
      return position;
    }
    if (target == here()) return position;
    if (!flush()) return pos_type(off_type(-1));
    gone_ = size == 0 || target < end - size || target > end + static_cast<off_type>(kFirst);
    leave();
    at_ = target;
    moved_ = true;
    return position;
  }

 private:
  static constexpr std::size_t kBuffer = 65536;
  static constexpr std::size_t kFirst = 4096;  // read where the position has gone far: perhaps no more than a head
  enum class Access { none, reading, writing };

  // The position of the archive: at_ is that of the file, behind what is read ahead and before what is not yet written.
  off_type here() const { return at_ - (egptr() - gptr()) + (pptr() - pbase()); }

  void drop() {
    setg(nullptr, nullptr, nullptr);
    setp(nullptr, nullptr);
    kept_ = 0;
  }

  // Keeps what is read ahead for when the position comes back, as from the end that was asked for.
  void leave() {
    const std::ptrdiff_t kept = gptr() ? egptr() - eback() : kept_;
    if (gptr()) keptEnd_ = at_;
    drop();
    kept_ = kept;
  }

  bool startReading() {
    if (!file_ || !flush()) return false;
    drop();
    gone_ = false;
    return place(Access::reading);
  }

  bool startWriting() {
    if (!file_) return false;
    if (gptr()) {
      const off_type position = here();
      moved_ = moved_ || position != at_;
      at_ = position;
      drop();
    }
    kept_ = 0;
    return true;
  }

  // Puts the file where at_ says. The C library wants a change of position between reading and writing, too.
  bool place(Access access) {
    const bool turned = last_ != Access::none && last_ != access;
    if ((moved_ || turned) && !seekFile(file_, at_, SEEK_SET)) return false;
    moved_ = false;
    last_ = access;
    return true;
  }

  off_type fileEnd() {
    if (!seekFile(file_, 0, SEEK_END)) return -1;
    moved_ = true;
    return tellFile(file_);
  }

  std::size_t readFile(char* bytes, std::size_t count) {
    std::size_t got = std::fread(bytes, 1, count, file_);
    while (got < count && std::ferror(file_) && errno == EINTR) {  // a signal, and nothing more
      std::clearerr(file_);
      got += std::fread(bytes + got, 1, count - got, file_);
    }
    at_ += static_cast<off_type>(got);
    if (got < count && std::ferror(file_)) throw BadFile((L"Could not read file: " + path_).c_str(), 0);
    if (got < count) std::clearerr(file_);
    return got;
  }

  std::size_t writeFile(const char* bytes, std::size_t count) {
    std::size_t put = 0;
    if (place(Access::writing)) {
      put = std::fwrite(bytes, 1, count, file_);
      while (put < count && std::ferror(file_) && errno == EINTR) {
        std::clearerr(file_);
        put += std::fwrite(bytes + put, 1, count - put, file_);
      }
    }
    at_ += static_cast<off_type>(put);
    if (put < count) fail();
    return put;
  }

  // Nothing is taken any more, nor tried again. What is there can be read.
  void fail() {
    failed_ = true;
    setp(nullptr, nullptr);
    std::clearerr(file_);
  }

  // Writes what is buffered, and tells of its loss once.
  bool flush() {
    const auto count = static_cast<std::size_t>(pptr() - pbase());
    if (count == 0) return true;
    const std::size_t put = writeFile(pbase(), count);
    setp(nullptr, nullptr);
    return put == count;
  }

  std::wstring path_;
  std::FILE* file_ = nullptr;
  bool readOnly_ = false;
  std::vector<char> buffer_;
  off_type at_ = 0;
  bool moved_ = false;  // the file is not where at_ says
  bool gone_ = false;   // the position has, far from what was read before
  // What was read ahead before the position went elsewhere, at the start of the buffer, and where it ends in the file.
  std::ptrdiff_t kept_ = 0;
  off_type keptEnd_ = 0;
  Access last_ = Access::none;
  bool failed_ = false;  // a write was refused
};

qcFileArchive::qcFileArchive(std::unique_ptr<Stream> stream, Direction direction, Ordering ordering, bool seekable,
                             bool readOnly)
    : qcArchive(stream.get(), direction, ordering, seekable, readOnly), stream_(std::move(stream)) {}

qcFileArchive::qcFileArchive(const std::wstring& path, Direction direction, Ordering ordering, bool seekable,
                             bool readOnly)
    : qcFileArchive(std::make_unique<Stream>(path), direction, ordering, seekable, readOnly) {
  stream_->open(direction, readOnly && direction == loading);
  ctorFinished();
}

qcFileArchive::~qcFileArchive() { dtorStarting(); }

void qcFileArchive::close() {
  settle();
  if (!stream_->close()) throw BadBuffer(qc_format::kArchiveSource, qc_format::kSyncLine);
}

void qcFileArchive::sync() {
  if (!stream_->syncToMedium()) throw BadBuffer(qc_format::kArchiveSource, qc_format::kSyncLine);
}

bool qcFileArchive::truncate(std::streamoff end) {
  settle();
  return stream_->truncate(end);
}
