#include "files.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include <vnxstd/dib/dib.h>
#include <vnxstd/pelbuf/rootpool.h>

void requireReadable(const std::string& path) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) throw FileError(path, "is a directory");
  errno = 0;
  if (const std::ifstream file(path, std::ios::binary); !file)
    throw FileError(path, "cannot be read: " + std::generic_category().message(errno));
}

FileKind kindOf(const std::string& path) {
  std::array<char, 2> head{};
  std::ifstream(path, std::ios::binary).read(head.data(), head.size());
  const auto [first, second] = head;
  if (first == 'B' && second == 'M') return FileKind::bitmap;
  if ((first == 2 || first == 3) && (second == 0 || second == 1)) return FileKind::archive;
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
