#include "files.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include <vnxstd/archive/archive.h>
#include <vnxstd/dib/dib.h>
#include <vnxstd/pelbuf/rootpool.h>

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
  const std::string text = qf_NarrowLossy(error.message(true));
  if (const qcLoadContext* context = error.loadContext()) return text + "; " + context->text();
  if (faultOf(error) != Fault::medium) return text;
  const bool isSaid = cause == 0 || cause == EWOULDBLOCK;  // that a file is in use
  const bool isBuffer = dynamic_cast<const qcArchive::BadBuffer*>(&error);
  return text + (isBuffer ? "; writing failed" : "") + (isSaid ? "" : ": " + causeText(cause));
}

namespace {

FileError unreadable(const std::string& path) { return {path, "cannot be read: " + causeText(errno), Fault::medium}; }

}  // namespace

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

FileKind kindOf(const std::string& path) {
  std::array<char, 2 + kPointerTag.size()> head{};
  std::ifstream file(path, std::ios::binary);
  file.read(head.data(), head.size());
  if (file.bad()) throw unreadable(path);
  const char first = head[0], second = head[1];
  if (first == 'B' && second == 'M') return FileKind::bitmap;
  // A block that was lost often reads as zeros: a plain archive of version 0 must begin with a pointer.
  const auto size = file.gcount();
  const bool isLost = first == 0 && size > 2 && !std::equal(kPointerTag.begin(), kPointerTag.end(), head.begin() + 2);
  if (size >= 2 && (first & ~3) == 0 && (second & ~1) == 0 && !isLost) return FileKind::archive;
  return FileKind::other;
}

qcPelBuffer<unsigned char> readBitmap(const std::string& path) {
  requireReadable(path);
  if (kindOf(path) != FileKind::bitmap) throw FileError(path, "is not a bitmap (BMP)");
  return onFile(path, [](const std::wstring& name) { return qcDIB::readPelBuffer(name, *qfDefaultPelRootPool()); });
}

bool isSameFile(const std::string& a, const std::string& b) {
  std::error_code missing, ignored;
  if (std::filesystem::equivalent(a, b, missing)) return true;
  const auto whole = [&](const std::string& path) {
    return std::filesystem::weakly_canonical(std::filesystem::absolute(path, ignored), ignored);
  };
  return whole(a) == whole(b);
}
