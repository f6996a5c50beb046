// What clipping tells about itself.
#pragma once

#include "vnxstd/export.h"
#include "vnxstd/shapes/shape.h"

/// What became of a shape that was clipped; see qcShape::clip. A fresh one says that nothing was inside.
class VNXSTD_EXPORT qcClipInfo {
 public:
  qcShape::ClipResult result() const { return result_; }
  void result(qcShape::ClipResult result) { result_ = result; }

 private:
  qcShape::ClipResult result_ = qcShape::ClipResult::outside;
};
