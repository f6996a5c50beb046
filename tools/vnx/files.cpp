#include "files.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <vnxstd/archive/archive.h>
#include <vnxstd/dib/dib.h>
#include <vnxstd/pelbuf/rootpool.h>

#include "json.h"
#include "std/archive/areas.h"

Fault faultOf(const qcException& error) {
  const qcLoadContext* context = error.loadContext();
  if (context && context->limit != qcLoadContext::Limit::none) return Fault::limit;
  const bool isMedium = dynamic_cast<const qcArchive::BadFile*>(&error) ||
                        dynamic_cast<const qcDIB::WriteError*>(&error) ||
                        (!context && dynamic_cast<const qcArchive::BadBuffer*>(&error));
  return isMedium ? Fault::medium : Fault::content;
}

std::string causeText(int cause) { return std::generic_category().message(cause); }

FileError outputError() {
  return {"standard output", "writing failed" + (errno == 0 ? "" : ": " + causeText(errno)), Fault::medium};
}

std::string textOf(const qcException& error) {
  const int cause = errno;  // of what was refused
  const std::string text = lineText(qf_NarrowLossy(error.message(true)));
  if (const qcLoadContext* context = error.loadContext()) return text + "; " + lineText(context->text());
  if (faultOf(error) != Fault::medium) return text;
  const bool isSaid = cause == 0 || cause == EWOULDBLOCK;  // that a file is in use
  const bool isBuffer = dynamic_cast<const qcArchive::BadBuffer*>(&error);
  return text + (isBuffer ? "; writing failed" : "") + (isSaid ? "" : ": " + causeText(cause));
}

FileError unreadable(const std::string& path) { return {path, "cannot be read: " + causeText(errno), Fault::medium}; }

std::size_t readAt(std::istream& from, qcInt64 at, void* bytes, std::size_t size) {
  from.clear();
  from.seekg(at).read(static_cast<char*>(bytes), static_cast<std::streamsize>(size));
  if (from.bad()) throw qcArchive::BadFile(L"the file cannot be read", 0);
  return static_cast<std::size_t>(from.gcount());
}

std::ifstream openedOnce(const std::string& path) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) throw FileError(path, "is a directory", Fault::medium);
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) throw unreadable(path);
  return file;
}

void requireReadable(const std::string& path) {
  std::error_code ignored;
  const auto status = std::filesystem::status(path, ignored);
  if (std::filesystem::is_other(status)) throw FileError(path, "is a device or a pipe, not a file", Fault::medium);
  openedOnce(path);
}

FileError errorOf(const std::string& path, const qcException& error) {
  // Not what the bitmap's bytes say, then.
  if (!error.loadContext() && dynamic_cast<const qcDIB::ReadError*>(&error)) return unreadable(path);
  return {path, textOf(error), faultOf(error)};
}

namespace {

// The first bytes of a file, fewer where it is shorter.
std::string headOf(const std::string& path) {
  requireReadable(path);
  std::string head(2 + kPointerTag.size(), '\0');
  std::ifstream file(path, std::ios::binary);
  file.read(head.data(), static_cast<std::streamsize>(head.size()));
  if (file.bad()) throw unreadable(path);
  head.resize(static_cast<std::size_t>(file.gcount()));
  return head;
}

std::optional<FileKind> kindBy(const std::string& head) {
  if (head.starts_with("BM")) return FileKind::bitmap;
  if (head.find(std::string(kPointerTag.begin(), kPointerTag.end())) == 2) return FileKind::archive;
  // A block that was lost often reads as zeros: a plain archive of version 0 must begin with a pointer.
  const bool isHead =
      head.size() >= 2 && (head[0] & ~3) == 0 && (head[1] & ~1) == 0 && (head[0] != 0 || head.size() == 2);
  return isHead ? std::optional(FileKind::archive) : std::nullopt;
}

FileError unexpected(const std::string& path, const std::string& expected, const std::string& found) {
  return {path, "is of another kind", qcLoadContext{0, {}, qcLoadContext::Limit::none, expected, found}};
}

std::string bytesText(const std::string& head) {
  return head.empty() ? "the end" : qf_Hex({reinterpret_cast<const unsigned char*>(head.data()), head.size()});
}

}  // namespace

FileKind kindOf(const std::string& path) {
  const std::string head = headOf(path);
  if (const auto kind = kindBy(head)) return *kind;
  throw unexpected(path, "a bitmap or an archive", bytesText(head));
}

void requireKind(const std::string& path, FileKind wanted) {
  const std::string head = headOf(path);
  const auto kind = kindBy(head);
  const auto nameOf = [](FileKind a) { return a == FileKind::bitmap ? "a bitmap" : "an archive"; };
  if (kind != wanted) throw unexpected(path, nameOf(wanted), kind ? nameOf(*kind) : bytesText(head));
}

qcPelBuffer<unsigned char> readBitmap(const std::string& path) {
  requireKind(path, FileKind::bitmap);
  return onFile(path, [](const std::wstring& name) { return qcDIB::readPelBuffer(name, *qfDefaultPelRootPool()); });
}

std::filesystem::path ledTo(const std::string& path) {
  namespace fs = std::filesystem;
  constexpr int kMostLinks = 40;  // as many as systems follow
  std::error_code ignored;
  fs::path end = fs::absolute(path, ignored);
  // What is canonical stops at a link that leads to nothing.
  for (int i = 0; i < kMostLinks && fs::is_symlink(end, ignored); ++i)
    end = end.parent_path() / fs::read_symlink(end, ignored);
  std::error_code failed;
  const fs::path whole = fs::weakly_canonical(end, failed);
  return failed ? end : whole;
}

bool isSameFile(const std::string& a, const std::string& b) {
  std::error_code missing;
  return std::filesystem::equivalent(a, b, missing) || ledTo(a) == ledTo(b);
}
