// Calls into the module of plain functions from the classes of nonlinear transforms.
#pragma once

#include <cstddef>
#include <vector>

#include "vnxstd/except/failure.h"
#include "vnxstd/math/vector.h"

namespace vnxstd {

/// The coordinates of points that lie one after the other, x and y in turn.
inline const double* coordinates(const qcVector<2>* points) {
  static_assert(sizeof(qcVector<2>) == 2 * sizeof(double));
  return reinterpret_cast<const double*>(points);
}
inline double* coordinates(qcVector<2>* points) { return reinterpret_cast<double*>(points); }

/// Runs a constructor of the module, which stores a new state through its last argument, and returns the state.
template <class State, class... Parameters, class... Arguments>
State* newState(std::int32_t (*construct)(Parameters...) noexcept, const Arguments&... arguments) {
  State* state = nullptr;
  qfThrowExceptionOnFailure(construct(arguments..., &state));
  return state;
}

}  // namespace vnxstd
