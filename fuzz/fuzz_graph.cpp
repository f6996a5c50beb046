// Graphs of objects from arbitrary bytes, with sharing, circles and owned objects: an error, or objects that are stored
// again alike. Either way nothing of them is left once the circles are taken apart.

#include "fuzz/fuzz.h"
#include "tests/support/nodes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Input input(data, size);
  std::vector<NodeHandle> roots;
  input.read([&](qcArchive& archive) {
    // From the last object of the index on, which leads to those before it, or from the start.
    long last = 0;
    while ((input.choice & 2) != 0 && archive.nextObjectID(last) != 0) last = archive.nextObjectID(last);
    if (last != 0) archive.seek(archive.findObject(last));
    while (archive.remaining() > 0) archive || roots.emplace_back();
  });
  for (NodeHandle& root : roots) {
    const std::string bytes = stored(root, input.isSeekable());
    qcMemoryArchive archive(bytes.data(), static_cast<long>(bytes.size()), input.isSeekable());
    archive.limits({.nesting = 100000});
    NodeHandle back;
    archive || back;
    demand(stored(back, input.isSeekable()) == bytes);
    dissolve(back);
  }
  for (const NodeHandle& root : roots) dissolve(root);
  roots.clear();
  demand(alive == 0);
  return 0;
}
