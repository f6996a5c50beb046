#include "files.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

void requireReadable(const std::string& path) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) throw FileError(path, "is a directory");
  errno = 0;
  if (const std::ifstream file(path, std::ios::binary); !file)
    throw FileError(path, "cannot be read: " + std::generic_category().message(errno));
}

bool isSameFile(const std::string& a, const std::string& b) {
  std::error_code missing, ignored;
  if (std::filesystem::equivalent(a, b, missing)) return true;
  const auto whole = [&](const std::string& path) {
    return std::filesystem::weakly_canonical(std::filesystem::absolute(path, ignored), ignored);
  };
  return whole(a) == whole(b);
}
