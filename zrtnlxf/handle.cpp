#include "zrtnlxf/handle.h"

#include "zrtnlxf/points.h"

struct qmath_xformPtrhConst {
  qmath_xformPerspective* perspective;  // null for none
};

using zrtnlxf::Status;

namespace {

Status make(qmath_xformPerspective* perspective, qmath_xformPtrhConst** handle) {
  return zrtnlxf::guarded([&] {
    *handle = new qmath_xformPtrhConst{perspective};
    return zrtnlxf::ok;
  });
}

}  // namespace

Status qmath_xformPtrhConst_construct(qmath_xformPtrhConst** handle) noexcept {
  return handle ? make(nullptr, handle) : zrtnlxf::badArgument;
}

Status qmath_xformPtrhConst_constructPerspective(const qmath_xformPerspective* perspective,
                                                 qmath_xformPtrhConst** handle) noexcept {
  if (!handle) return zrtnlxf::badArgument;
  qmath_xformPerspective* copy = nullptr;
  Status status = qmath_xformPerspective_constructCopy(perspective, &copy);
  if (status >= 0) status = make(copy, handle);
  if (status < 0) qmath_xformPerspective_destruct(copy);
  return status;
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
