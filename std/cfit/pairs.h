// Two doubles side by side, for the loops over points.
#pragma once

#include <cstring>

#include "vnxstd/math/vector.h"

namespace cfit {

using Pair [[gnu::vector_size(16)]] = double;

inline Pair load(const qcVector<2>& v) {
  Pair pair;
  static_assert(sizeof pair == sizeof v);
  std::memcpy(&pair, &v, sizeof pair);
  return pair;
}

}  // namespace cfit
