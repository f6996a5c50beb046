// Writes the samples of tests/support into a directory, a file each.

#include <filesystem>
#include <fstream>

#include "support/nodes.h"
#include "support/samples.h"

namespace {

[[maybe_unused]] const std::pair unused(&randomGraph, &dissolve);

// Objects that refer to those in front of them; they are read from the last one on.
Sample chain() {
  qcMemoryArchive archive(kLittle, true);
  std::vector<NodeHandle> nodes;
  for (int i = 0; i < 30; ++i) {
    nodes.emplace_back(new Node);
    if (i > 0) nodes.back()->edges = {nodes[static_cast<std::size_t>(i) - 1], nodes[static_cast<std::size_t>(i) / 2]};
    archive.storeObject(nodes.back().rep());
  }
  std::string bytes = bytesOf(archive);
  bytes[1] = static_cast<char>(bytes[1] | 0x24);  // from the last one on, and under limits
  return {"chain", bytes, false, false, {}};
}

}  // namespace

int main(int, char** arguments) {
  const std::filesystem::path directory = arguments[1];
  std::vector<Sample> all = samples();
  all.push_back(chain());
  for (const Sample& sample : all) {
    std::ofstream file(directory / (sample.name + std::to_string(sample.bytes.size())), std::ios::binary);
    file << sample.bytes;
    if (!file.flush()) return 1;
  }
  return 0;
}
