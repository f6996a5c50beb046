// The errors of pixel rectangles, pixel buffers and the functions that work on them.
//
// They stand below the pixel layer because transforms report qcPel::NonlinearXform too.
#pragma once

#include <cstdint>

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"

class qcArchive;

/// Errors of pixel roots and buffers.
class VNXSTD_EXPORT qcPel {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// Pels are needed of a buffer that has no root.
  class VNXSTD_EXPORT UnboundWindow : public qc_ErrorLeaf<UnboundWindow, Errors, 0x10000400> {};
  /// A window of negative size, outside its root, outside the window it is to be part of, or with image coordinates
  /// beyond 32 bits.
  class VNXSTD_EXPORT BadWindow : public qc_ErrorLeaf<BadWindow, Errors, 0x10000402> {};
  /// Two windows that must have a pel in common have none.
  class VNXSTD_EXPORT DisjointWindows : public qc_ErrorLeaf<DisjointWindows, Errors, 0x10000403> {};
  /// Pels of a type that the buffer cannot hold.
  class VNXSTD_EXPORT Unknown : public qc_ErrorLeaf<Unknown, Errors, 0x10000406> {};
  /// The linear form of a transform that is not linear is needed.
  class VNXSTD_EXPORT NonlinearXform : public qc_ErrorLeaf<NonlinearXform, Errors, 0x10000409> {};

  /// A pel outside the window, with the image coordinates asked for.
  class VNXSTD_EXPORT BadCoord : public qc_ErrorLeaf<BadCoord, Errors, 0x10000405> {
   public:
    BadCoord() = default;
    /// Coordinates beyond 32 bits are carried as the nearest 32-bit value.
    BadCoord(long x, long y);
    long x() const noexcept { return x_; }
    long y() const noexcept { return y_; }
    void archiveFields(qcArchive& archive);

   private:
    std::int32_t x_ = 0;
    std::int32_t y_ = 0;
  };
};

/// Errors of the free pixel functions.
class VNXSTD_EXPORT qcPelFunc {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// A value does not fit the pel or the coordinate that it is meant for.
  class VNXSTD_EXPORT Range : public qc_ErrorLeaf<Range, Errors, 0x10000500> {};
  /// A source and a destination share pels without being the same window.
  class VNXSTD_EXPORT Overlap : public qc_ErrorLeaf<Overlap, Errors, 0x10000501> {};
  /// Bad arguments.
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10000502> {};
};

/// Errors of pixel rectangles and spans.
class VNXSTD_EXPORT qcRectErrors {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// An intersection is asked for and there is none.
  class VNXSTD_EXPORT NoOverlap : public qc_ErrorLeaf<NoOverlap, Errors, 0x10000407> {};
  /// A rectangle, a span or a root of negative size.
  class VNXSTD_EXPORT NegativeSize : public qc_ErrorLeaf<NegativeSize, Errors, 0x10000408> {};
};

/// Errors of colour spaces.
class VNXSTD_EXPORT qcColorSpaceDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadColorSpace : public qc_ErrorLeaf<BadColorSpace, Errors, 0x1000040A> {};
};

/// Errors of the pixel layer's own machinery.
class VNXSTD_EXPORT qcPelbufHelper1 {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT qcPelbufTrigger : public qc_ErrorLeaf<qcPelbufTrigger, Errors, 0x10000007> {};
};
