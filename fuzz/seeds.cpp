// Writes the samples of tests/support into a directory, a file for each of them and each way to read it (fuzz.h).

#include <filesystem>
#include <fstream>

#include "support/nodes.h"
#include "support/samples.h"
#include "vnxstd/shapes/circle.h"
#include "vnxstd/vdb.h"

namespace {

// Objects that refer to those in front of them; they are read from the last one on, and nest deeper than limits allow.
Sample chain() {
  qcMemoryArchive archive(kLittle, true);
  std::vector<NodeHandle> nodes;
  for (int i = 0; i < 5; ++i) {
    nodes.emplace_back(new Node);
    if (i > 0) nodes.back()->edges = {nodes[static_cast<std::size_t>(i) - 1], nodes[static_cast<std::size_t>(i) / 2]};
    archive.storeObject(nodes.back().rep());
  }
  return {"chain", bytesOf(archive), false, false, {}};
}

// The others with an index are longer than inputs are.
Sample index(const std::string& orders) {
  qcMemoryArchive archive(kLittle, true);
  const qcPtrHandle<qcShape> circle(new qcCircle({1, 2}, 3)), other(new qcCircle({3, 4}, 5));
  archive.writeNewMark();
  archive.storeObject(circle.rep());
  archive << circle << other;
  archive.writeNewMark();
  return {"index", bytesOf(archive) + orders, false, false, {}};
}

Sample records() {
  auto* archive = new qcMemoryArchive(kLittle, true);
  qcVDBArchive database(archive);
  const std::unique_ptr<qcPersistent> record(qf_FindRegistered("GoldenRecord")->make());
  for (int i = 0; i < 3; ++i) database.storeNewRecord(dynamic_cast<qcVDBRecordBase*>(record.get()));
  return {"records", bytesOf(*archive), false, false, {}};
}

}  // namespace

int main(int, char** arguments) {
  const std::filesystem::path directory = arguments[1];
  std::vector<Sample> all = samples();
  all.insert(all.end(), {chain(), records()});
  std::string orders;
  for (std::mt19937 random(1); orders.size() < 16; orders.push_back(static_cast<char>(random() % 8)))
    all.push_back(index(orders + static_cast<char>(orders.size())));
  all.push_back(
      archivedSample(value("planes", std::string("\xE0\xA4\x85\xED\x9F\xBF\xF4\x8F\xBF\xBF")), kLittle, false));
  all.push_back(archivedSample(value("plane", std::wstring(L"\u0905\uFFFD")), kLittle, false));
  for (std::size_t i = 0; i < all.size(); ++i) {
    const bool isBitmap = all[i].name.starts_with("bitmap");
    for (std::size_t choice = 0; choice < (isBitmap ? 1 : 8); ++choice) {
      std::string bytes = all[i].bytes;
      if (!isBitmap) bytes[1] = static_cast<char>(bytes[1] + static_cast<char>(choice * 2 + (i + choice) % 4 * 16));
      if (!(std::ofstream(directory / std::to_string(i * 8 + choice), std::ios::binary) << bytes).flush()) return 1;
    }
  }
  return 0;
}
