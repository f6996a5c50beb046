#include "vnxstd/pelbuf/fill.h"

#include <cstdint>

#include "vnxstd/except/failure.h"
#include "zrtsys/memory.h"

void qf_PelSet(void* pels, long rowUpdate, long width, long height, unsigned int pelSize, const void* value) {
  if (width <= 0 || height <= 0) return;
  qfThrowExceptionOnFailure(zrtsys::fillRect(pels, std::int64_t{rowUpdate} * pelSize, static_cast<std::uint64_t>(width),
                                             static_cast<std::uint64_t>(height), value, pelSize));
}

void qf_PelClear(void* pels, long rowUpdate, long width, long height, unsigned int pelSize, bool isContiguous) {
  if (width <= 0 || height <= 0) return;
  constexpr unsigned char zero = 0;
  const std::uint64_t rowBytes = static_cast<std::uint64_t>(width) * pelSize;
  const auto rows = static_cast<std::uint64_t>(height);
  qfThrowExceptionOnFailure(isContiguous
                                ? zrtsys::fillBlock(pels, rowBytes * rows, &zero, 1)
                                : zrtsys::fillRect(pels, std::int64_t{rowUpdate} * pelSize, rowBytes, rows, &zero, 1));
}
