// Handles of the module's own, for code that shares its transforms without the classes.
#pragma once

#include "vnxstd/export.h"
#include "zrtnlxf/perspective.h"
#include "zrtnlxf/status.h"

/// Refers to a transform that is only read, or to none.
struct qmath_xformPtrhConst;

/// A new handle to none. outOfMemory.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPtrhConst_construct(qmath_xformPtrhConst** handle) noexcept;
/// A new handle to a perspective transform, of which it keeps a copy of its own. outOfMemory.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPtrhConst_constructPerspective(const qmath_xformPerspective* perspective,
                                                                        qmath_xformPtrhConst** handle) noexcept;
/// Null is ignored.
VNXSTD_EXPORT void qmath_xformPtrhConst_destruct(qmath_xformPtrhConst* handle) noexcept;

/// 1 when the handle refers to a perspective transform, else 0.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPtrhConst_getIsPerspective(const qmath_xformPtrhConst* handle) noexcept;
/// The perspective transform, which lives as long as the handle; badArgument when it refers to none.
VNXSTD_EXPORT zrtnlxf::Status qmath_xformPtrhConst_getPerspective(const qmath_xformPtrhConst* handle,
                                                                  const qmath_xformPerspective** perspective) noexcept;
