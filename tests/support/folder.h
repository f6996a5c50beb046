// A place for the files of a test.
#pragma once

#include "support/test.h"
#include "vnxstd/archive/text.h"

/// A folder of its own, which goes with the test.
class InFolder : public testing::Test {
 protected:
  InFolder() { std::filesystem::create_directory(folder_); }
  ~InFolder() override { std::filesystem::remove_all(folder_); }

  std::string file(const std::string& name) const { return (folder_ / name).string(); }
  std::wstring path(const std::string& name = "file") const { return qf_Widen(file(name)); }
  std::string text(const std::string& name) const {
    std::ifstream stream(folder_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(folder_ / name, std::ios::binary) << bytes;
  }

  const std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("vnxstd-" + std::to_string(std::random_device()()));
};
