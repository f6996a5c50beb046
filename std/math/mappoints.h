// The versions of qfMapPoints.
#pragma once

#include <cstddef>
#include <span>

#include "vnxstd/export.h"
#include "vnxstd/math/xform.h"

namespace vnxstd {

using PointMapper = void (*)(const qcXform<2>& xform, const qcVector<2>* in, qcVector<2>* out, std::size_t count);

/// One for each instruction-set level that this processor has, the fastest last. All give the same bits.
VNXSTD_EXPORT std::span<const PointMapper> pointMappers() noexcept;

}  // namespace vnxstd
