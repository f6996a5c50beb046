// Pools of pixel storage beside images on fresh memory, of 2048 x 2048 8-bit pels, 4 MiB, single thread.
#include <cstddef>
#include <cstring>

#include "compare.h"
#include "vnxstd/pelbuf/buffer.h"
#include "vnxstd/pelbuf/fill.h"
#include "vnxstd/pelbuf/rootpool.h"

#if defined(__linux__)
#include <malloc.h>
#include <sys/mman.h>
#endif

namespace {

constexpr long kSide = 2048;
constexpr std::size_t kBytes = std::size_t{kSide} * kSide;

using Image = qcPelBuffer<unsigned char>;

void fill(Image image) {
  qfPelSet(image, static_cast<unsigned char>(3));
  compare::keep(image);
}

#if defined(__linux__)
/// What a buffer costs whose memory the system hands out page by page at the first touch.
void fillSmallPages() {
  void* const block = mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  madvise(block, kBytes, MADV_NOHUGEPAGE);
  fill(Image(qcPtrHandle<qcPelRoot<unsigned char>>(
      new qcPelRoot<unsigned char>(kSide, kSide, static_cast<unsigned char*>(block), 64))));
  munmap(block, kBytes);
}
#endif

}  // namespace

int main(int argc, char** argv) {
  compare::Session session(argc, argv);
#if defined(__linux__)
  mallopt(M_MMAP_THRESHOLD, 1 << 20);  // large blocks go back to the system, so that the next one is fresh
#endif
  const auto pool = qfDefaultPelRootPool();
  const auto pooled = [&] { return pool->get<unsigned char>(kSide, kSide); };
  fill(pooled());
  session.run("get and release an idle root", [&] { compare::keep(pooled()); });
  session.run(
      "get and release an idle root / make and free", 0, [&] { compare::keep(pooled()); },
      [&] { compare::keep(Image(kSide, kSide)); });
  session.run(
      "get, fill, release / make, fill, free", 0.1, [&] { fill(pooled()); }, [&] { fill(Image(kSide, kSide)); });
#if defined(__linux__)
  session.run(
      "get, fill, release / the same on 4 KiB pages", 0.1, [&] { fill(pooled()); }, [&] { fillSmallPages(); });
#endif
  Image kept = pooled();
  session.run(
      "get, fill, release / fill the same buffer", 0, [&] { fill(pooled()); }, [&] { fill(kept); });
  return session.finish();
}
