#include "wholefile.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <system_error>
#include <utility>
#include <vector>

#if defined(_WIN32)
#include <io.h>
#include <share.h>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#include "wrongcall.h"

namespace fs = std::filesystem;

namespace {

constexpr int kMostParts = 100;            // of one file, as calls that were killed leave them
constexpr std::size_t kLongestName = 200;  // bytes of a file's name to which .part can be added everywhere

#if defined(_WIN32)

std::FILE* openHeld(const char* path) { return _fsopen(path, "r+b", _SH_DENYWR); }
bool syncFile(std::FILE* file) { return _commit(_fileno(file)) == 0; }
void passOwner(std::FILE*, const std::string&) {}

#else

std::FILE* openHeld(const char* path) {
  std::FILE* file = std::fopen(path, "r+b");
  if (!file || ::flock(::fileno(file), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return file;
  std::fclose(file);
  errno = EWOULDBLOCK;
  return nullptr;
}

bool syncFile(std::FILE* file) { return ::fsync(::fileno(file)) == 0 || errno == EINVAL; }

// Gives a file, but none that a link leads to, the owner and the group of another, or the group alone, as far as the
// system allows it. With the owner go setuid and setgid, which end when it changes.
void passOwner(std::FILE* from, const std::string& to) {
  struct stat status {};
  if (::fstat(::fileno(from), &status) != 0) return;
  const mode_t mode = (status.st_mode & 07777) | S_IRUSR | S_IWUSR;
  if (::lchown(to.c_str(), status.st_uid, status.st_gid) == 0)
    static_cast<void>(::fchmodat(AT_FDCWD, to.c_str(), mode, AT_SYMLINK_NOFOLLOW) == 0);
  else
    static_cast<void>(::lchown(to.c_str(), static_cast<uid_t>(-1), status.st_gid) == 0);
}

#endif

[[noreturn]] void fail(const std::string& path, int cause) {
  throw FileError(path, "cannot be written: " + causeText(cause), Fault::medium);
}

void requireUnused(const std::string& path, const char* advice = "") {
  if (fs::exists(fs::symlink_status(path))) throw WrongCall(path + " exists already" + advice);
}

// Gives a file a further name, which nothing has; false when the medium knows no such names.
bool nameAlso(const std::string& path, const std::string& other) {
  std::error_code failed;
  fs::create_hard_link(path, other, failed);
  if (failed) requireUnused(other);
  return !failed;
}

bool isSameContent(const std::string& a, const std::string& b) {
  if (fs::file_size(a) != fs::file_size(b)) return false;
  std::ifstream first(a, std::ios::binary), second(b, std::ios::binary);
  std::vector<char> bytes(65536), others(bytes.size());
  const auto size = static_cast<std::streamsize>(bytes.size());
  while (first && second) {
    first.read(bytes.data(), size);
    second.read(others.data(), size);
    if (first.gcount() != second.gcount()) return false;
    if (!std::equal(bytes.begin(), bytes.begin() + first.gcount(), others.begin())) return false;
  }
  return first.eof() && second.eof();
}

// What is being written belongs to its maker, as whom nobody is to act.
fs::perms withoutSetuid(const fs::file_status& status) { return status.permissions() & fs::perms::all; }

void syncByName(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "r+b");
  const bool isSynced = file && syncFile(file);
  const int cause = errno;
  if (file) std::fclose(file);
  if (!isSynced) fail(path, cause);
}

}  // namespace

void requireDistinct(const char* what, std::initializer_list<std::string> files) {
  for (auto a = files.begin(); a != files.end(); ++a)
    for (auto b = a + 1; b != files.end(); ++b)
      if (!a->empty() && !b->empty() && isSameFile(*a, *b))
        throw WrongCall(std::string(what) + " must be different files; " +
                        (files.size() == 2 ? "both" : "two of them") + " are " + *b);
}

WholeFile::WholeFile(const std::string& path, Existing existing, std::string kept)
    : path_(path), kept_(std::move(kept)), existing_(existing), held_(nullptr, &std::fclose) {
  if (existing == Existing::refused) requireUnused(path);
  if (!kept_.empty()) requireUnused(kept_, "; move it away first");
  const fs::file_status status = fs::status(path_);
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    part_ = path_;
    return;
  }
  if (fs::is_symlink(path)) path_ = ledTo(path).string();
  if (fs::exists(status)) {
    held_.reset(openHeld(path_.c_str()));
    if (!held_ && errno == EWOULDBLOCK) throw FileError(path, "is in use", Fault::medium);
    if (!held_) fail(path, errno);
  }
  create();
  if (!held_) return;
  std::error_code ignored;
  fs::permissions(part_, withoutSetuid(status) | fs::perms::owner_read | fs::perms::owner_write, ignored);
}

WholeFile::~WholeFile() {
  std::error_code ignored;
  if (isMade_) fs::remove(part_, ignored);
}

// Nothing that exists is opened, be it a link that leads nowhere.
void WholeFile::create() {
  const fs::path wanted(path_);
  std::string name = wanted.filename().string();
  if (name.size() > kLongestName) {
    std::size_t end = kLongestName;
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;  // within a character of UTF-8
    name.resize(end);
  }
  for (int i = 1; i <= kMostParts; ++i) {
    part_ = (wanted.parent_path() / (name + (i == 1 ? "" : '.' + std::to_string(i)) + ".part")).string();
    if (std::FILE* file = std::fopen(part_.c_str(), "wbx")) {
      isMade_ = true;
      std::fclose(file);
      return;
    }
    if (errno != EEXIST) break;
  }
  fail(path_, errno);
}

bool WholeFile::finish() {
  if (!isMade_) return true;
  if (!kept_.empty() && isSameContent(part_, path_)) return false;
  syncByName(part_);
  if (held_) passOwner(held_.get(), part_);  // until now its maker opens and changes it
  if (!kept_.empty() && !nameAlso(path_, kept_)) {
    writeWhole(kept_, Existing::refused, [this](const std::string& part) { copyFile(path_, part, kept_); });
    passOwner(held_.get(), kept_);
  }
  if (existing_ == Existing::refused && nameAlso(part_, path_)) return true;  // the other name goes with this object
#if defined(_WIN32)
  held_.reset();  // what is open keeps its name there
#endif
  std::error_code failed, ignored;
  fs::rename(part_, path_, failed);
  isMade_ = static_cast<bool>(failed);
  if (failed && !kept_.empty()) fs::remove(kept_, ignored);
  if (failed) fail(path_, failed.value());
  return true;
}

// The standard library's way says neither why it fails nor which file does.
void copyFile(const std::string& from, const std::string& part, const std::string& to) {
  std::ifstream in(from, std::ios::binary);
  std::ofstream out(part, std::ios::binary);
  std::vector<char> bytes(65536);
  while (out && (in.read(bytes.data(), static_cast<std::streamsize>(bytes.size())), in.gcount() > 0))
    out.write(bytes.data(), in.gcount());
  if (out && !in.eof()) throw unreadable(from);
  if (!out.flush()) fail(to, errno);
  fs::permissions(part, withoutSetuid(fs::status(from)) | fs::perms::owner_write);
}

void writeText(const std::string& path, const std::string& text) {
  writeWhole(path, Existing::replaced, [&](const std::string& part) {
    std::ofstream file(part, std::ios::binary);
    if (!file.write(text.data(), static_cast<std::streamsize>(text.size())).flush()) fail(path, errno);
  });
}
