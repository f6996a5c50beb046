#include "zrtnlxf/handle.h"

#include <new>

struct qmath_xformPtrhConst {
  qmath_xformPerspective* perspective = nullptr;
};

using zrtnlxf::Status;

Status qmath_xformPtrhConst_construct(qmath_xformPtrhConst** handle) noexcept {
  if (!handle) return zrtnlxf::badArgument;
  auto* const made = new (std::nothrow) qmath_xformPtrhConst;
  if (!made) return zrtnlxf::outOfMemory;
  *handle = made;
  return zrtnlxf::ok;
}

Status qmath_xformPtrhConst_constructPerspective(const qmath_xformPerspective* perspective,
                                                 qmath_xformPtrhConst** handle) noexcept {
  qmath_xformPtrhConst* made = nullptr;
  if (!handle) return zrtnlxf::badArgument;
  Status status = qmath_xformPtrhConst_construct(&made);
  if (status < 0) return status;
  status = qmath_xformPerspective_constructCopy(perspective, &made->perspective);
  if (status < 0) {
    delete made;
    return status;
  }
  *handle = made;
  return zrtnlxf::ok;
}

void qmath_xformPtrhConst_destruct(qmath_xformPtrhConst* handle) noexcept {
  if (handle) qmath_xformPerspective_destruct(handle->perspective);
  delete handle;
}

Status qmath_xformPtrhConst_getIsPerspective(const qmath_xformPtrhConst* handle) noexcept {
  if (!handle) return zrtnlxf::badArgument;
  return handle->perspective ? 1 : 0;
}

Status qmath_xformPtrhConst_getPerspective(const qmath_xformPtrhConst* handle,
                                           const qmath_xformPerspective** perspective) noexcept {
  if (!handle || !perspective || !handle->perspective) return zrtnlxf::badArgument;
  *perspective = handle->perspective;
  return zrtnlxf::ok;
}
