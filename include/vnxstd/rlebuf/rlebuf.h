// Run-length images: 8-bit images whose rows are lists of runs of equal pels.
//
// This is how masks and label images are kept: small, and measured, combined and shaped without decoding. A run is a
// value and a length of 1 to 255 pels; longer stretches are split, and a run of length 0 ends the row. An image that
// this library makes is canonical: neighbouring runs differ in value, or the left one has 255 pels. Rows that were
// adopted or loaded may be split otherwise, which only the functions that count runs can tell.
//
// Like a pixel buffer, an image has an offset, which is the image coordinates of its upper-left pel, and a transform
// from image to client coordinates. All coordinates below are image coordinates. Pel (x, y) covers the square from
// (x, y) to (x + 1, y + 1), so that its centre is at (x + 0.5, y + 0.5).
//
// A buffer without runs is degenerate. Everything that needs runs then throws qcRLEBuffer::Degenerate. Operations take
// time in proportion to the number of runs (and, where they fill a vector of bins, bins), never to that of pels, unless
// said otherwise. Functions that throw leave the buffer, and what they were to fill, as they were; encoding is the one
// exception. Several threads may read one buffer as long as none asks for the one of its two transforms that was not
// set, which is then computed and kept (see qc2XformCache): new images take copies of both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "vnxstd/archive/persistent.h"
#include "vnxstd/archive/widths.h"
#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"
#include "vnxstd/math/pair.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/math/xfcache.h"
#include "vnxstd/math/xform.h"
#include "vnxstd/pelbuf/buffer.h"
#include "vnxstd/pelspan/pelspan.h"

class qcArchive;
struct qc_RLERep;

/// A run: two bytes, the value and the number of pels that have it. A new one has no defined content.
class VNXSTD_EXPORT qcRLEBufferRun {
 public:
  qcRLEBufferRun() = default;
  constexpr qcRLEBufferRun(unsigned char value, unsigned char length) : value_(value), length_(length) {}
  constexpr unsigned char value() const noexcept { return value_; }
  constexpr unsigned char length() const noexcept { return length_; }
  friend constexpr bool operator==(const qcRLEBufferRun&, const qcRLEBufferRun&) = default;

 private:
  unsigned char value_, length_;
};

/// Memory for runs, to be handed over to a buffer.
struct VNXSTD_EXPORT qcRLEBufferBlock {
  qcRLEBufferBlock() = default;
  /// Room for `count` runs, whose content is not defined.
  explicit qcRLEBufferBlock(std::size_t count)
      : runs(std::make_unique_for_overwrite<qcRLEBufferRun[]>(count)), size(count) {}

  std::unique_ptr<qcRLEBufferRun[]> runs;
  std::size_t size = 0;
};

/// What operations that make a new image return: to construct a qcRLEBuffer from, or assign to one. Runs are not
/// copied.
class VNXSTD_EXPORT qc_TmpRLEBuffer {
 public:
  qc_TmpRLEBuffer(qc_TmpRLEBuffer&& other) noexcept;
  ~qc_TmpRLEBuffer();

 private:
  friend class qcRLEBuffer;
  friend class qcRLERegions;
  explicit qc_TmpRLEBuffer(std::unique_ptr<qc_RLERep> rep) noexcept;

  std::unique_ptr<qc_RLERep> rep_;
};

/// A run-length image.
class VNXSTD_EXPORT qcRLEBuffer : public qcPersistent {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// There are no runs, or an image without pels is asked for.
  class VNXSTD_EXPORT Degenerate : public qc_ErrorLeaf<Degenerate, Errors, 0x10001800> {};

  /// The neighbourhood of a pel: itself and its two neighbours in the row, those in the column, or all eight.
  enum Shape : std::int32_t { horizontal = 0, vertical = 1, square = 2 };
  /// What the bins of a projection along a direction are made of: whole rows, whole columns, or single pels.
  enum ProjType : std::int32_t { ofRows = 0, ofColumns = 1, ofPels = 2 };

  // --- making ---

  /// Degenerate.
  qcRLEBuffer() noexcept;
  /// Copies the runs into one block.
  qcRLEBuffer(const qcRLEBuffer& other);
  qcRLEBuffer& operator=(const qcRLEBuffer& other);
  qcRLEBuffer(qc_TmpRLEBuffer&& made) noexcept;
  qcRLEBuffer& operator=(qc_TmpRLEBuffer&& made);
  /// An image of one value at offset (0, 0). Throws Degenerate when the width or the height is 0,
  /// qcRectErrors::NegativeSize when one is negative, qcPelFunc::Range when one does not fit 32 bits.
  qcRLEBuffer(long width, long height, unsigned char value);
  ~qcRLEBuffer() override;
  static qcPersistent* make();

  /// Exchanges the images of two buffers in constant time.
  void transfer(qcRLEBuffer& other);
  /// Takes over rows that the caller has built: `rows` points to the first run of every row, from the top down, each
  /// in one of `blocks`, which may hold other things too. The offset becomes (0, 0), the transform the identity. Throws
  /// qcPelFunc::BadParams when there are no rows, the width is not from 1 to 2147483647, a row begins outside the
  /// blocks, or its lengths do not add up to the width in front of a run (0, 0) in the same block; the blocks are then
  /// freed. Time is linear in the runs, and logarithmic in the number of blocks for every row.
  void becomeOwner(long width, const std::vector<const qcRLEBufferRun*>& rows, std::vector<qcRLEBufferBlock> blocks);

  /// How many runs the next image to be encoded is expected to have; memory for runs is then taken in pieces of that
  /// size. Without a hint (0 or less) the first piece is small and later ones grow.
  void hintNumRuns(int runs);
  int hintNumRuns() const noexcept { return hint_; }

  // --- encoding: one pass over the pels of the window ---
  //
  // The image takes the offset and the transform of the window. A window without pels throws Degenerate. The old image
  // is dropped first, so that a buffer whose encoding throws is degenerate; only qcPel::UnboundWindow, and
  // qcPelFunc::BadParams for bad arguments, leave it as it was.

  /// Every value as it is.
  void encode(const qcPelBuffer_const<unsigned char>& pels);
  /// 1 where the pel is at least the threshold, else 0; with `invert` the other way round.
  void encode(const qcPelBuffer_const<unsigned char>& pels, unsigned char threshold, bool invert = false);
  /// 0 where the pel is below `low`, `levels` where it is above `high`, and levels * (pel - low) / (high - low) between
  /// them, rounded to the nearest, halves upwards (`levels` when low equals high); with `invert` levels minus that.
  /// Throws qcPelFunc::BadParams unless low <= high and levels is from 1 to 255.
  void encode(const qcPelBuffer_const<unsigned char>& pels, unsigned char low, unsigned char high, int levels,
              bool invert = false);
  /// The table's value for every pel. Throws qcPelFunc::BadParams for an empty table, qcPelFunc::Range for a pel beyond
  /// the table.
  void encode(const qcPelBuffer_const<unsigned char>& pels, const std::vector<unsigned char>& table);
  /// As `encode` with a threshold that comes from the image: `leftTail` percent of the pels, the darkest, and
  /// `rightTail` percent, the brightest, are left out, and the threshold is the value of which `percent` percent of the
  /// rest are before it in ascending order (100: the brightest of them). Numbers of pels are rounded down. Throws
  /// qcPelFunc::BadParams for a percentage outside 0 to 100, or tails that leave nothing.
  void encodePercent(const qcPelBuffer_const<unsigned char>& pels, int leftTail, int rightTail, int percent,
                     bool invert = false);
  /// As `encode` with levels, low and high taken from the image in that way.
  void encodePercent(const qcPelBuffer_const<unsigned char>& pels, int leftTail, int rightTail, int lowPercent,
                     int highPercent, int levels, bool invert = false);

  // --- decoding and painting ---
  //
  // These write pels, and take time in proportion to what they write as well.

  /// Writes the image into the pels that it has in common with the buffer's window; an unbound buffer becomes a new
  /// image of this size, offset and transform.
  void image(qcPelBuffer<unsigned char>& pels) const;
  /// A new pixel image with this offset and transform.
  qcPelBuffer<unsigned char> image() const;
  /// Copies the pels of `source` to the same place of `destination` where this image, moved by `offset`, is not zero
  /// (with `invert` where it is zero). Pels outside any of the three are left alone. Throws qcPel::UnboundWindow, and
  /// qcPelFunc::Overlap when the windows share pels that have other coordinates in one than in the other.
  void copyRegion(const qcPelBuffer_const<unsigned char>& source, const qcPelBuffer<unsigned char>& destination,
                  const qcPair<long>& offset = {}, bool invert = false) const;
  /// Writes `value` where this image, moved by `offset`, is not zero (with `invert` where it is zero). Throws
  /// qcPel::UnboundWindow.
  void setRegion(const qcPelBuffer<unsigned char>& pels, unsigned char value, const qcPair<long>& offset = {},
                 bool invert = false) const;

  // --- queries ---

  bool isDegenerate() const noexcept { return !rep_; }
  /// Only the values 0 and 1 occur.
  bool isBinary() const;
  /// All runs lie in one block of memory, as those of an image from an archive do.
  bool isContiguous() const;
  /// Moves the runs into one block.
  void makeContiguous();
  long width() const;
  long height() const;
  qcPair<long> size() const { return {width(), height()}; }
  /// The image's rectangle; its upper-left corner is the offset.
  qcPelRect window() const { return qcPelRect(offset(), size()); }
  qcPair<long> offset() const;
  /// Gives the pels other image coordinates. Throws qcPel::BadWindow when they do not fit 32 bits.
  void offset(long x, long y);
  void offset(const qcPair<long>& offset) { this->offset(offset.x(), offset.y()); }
  /// Milliseconds that encoding took; 0 for an image that was made otherwise.
  double createTime() const;
  /// The number of runs, split stretches counting as many times as they have runs; of all values, or of one. Ends of
  /// rows do not count.
  qcUInt64 numRuns() const;
  qcUInt64 numRuns(unsigned char value) const;
  /// Pels per run; 0 when the value does not occur.
  double avgRunLength() const;
  double avgRunLength(unsigned char value) const;
  /// The pel. Throws qcPel::BadCoord outside the image. Linear in the runs of the row.
  unsigned char getPel(long x, long y) const;
  unsigned char getPel(const qcPair<long>& at) const { return getPel(at.x(), at.y()); }
  /// The first run of row `y`; the run (0, 0) ends the row. Throws qcPel::BadCoord outside the image. This pointer and
  /// the row table hold until the runs are replaced, moved to another buffer or made contiguous.
  const qcRLEBufferRun* pointToRow(long y) const;
  /// The first runs of all rows from the top down.
  const std::vector<const qcRLEBufferRun*>& pointToRat() const;

  /// The same size and the same pels, however they are split; offset and transform do not count. Degenerate buffers
  /// equal each other.
  friend VNXSTD_EXPORT bool operator==(const qcRLEBuffer& a, const qcRLEBuffer& b);

  // --- measuring ---

  /// Adds the number of pels of every value to `counts`, as qfPelHistogram does: an empty vector first takes the size
  /// that the largest value needs, any other keeps its size and values beyond it are dropped.
  void histo(std::vector<unsigned long>& counts) const;
  /// The same, and the number of runs of every value to `runs`.
  void histo(std::vector<unsigned long>& counts, std::vector<unsigned long>& runs) const;
  /// Adds the pels of `pels` that lie where this image is not zero, in the same way. Also linear in these pels. Throws
  /// qcPel::UnboundWindow.
  void histo(const qcPelBuffer_const<unsigned char>& pels, std::vector<unsigned long>& counts) const;

  /// The sum of the pels of every row, of every column, or of every diagonal from upper right to lower left: bin i of
  /// the last one holds the pels i pels right of and below the upper-left one, together. The vector is replaced.
  void projectHoriz(std::vector<unsigned long>& sums) const;
  void projectVert(std::vector<unsigned long>& sums) const;
  void projectDiag(std::vector<unsigned long>& sums) const;
  /// Projects pel centres, mapped by `xform`, onto a line through the origin along `direction`, which need not have
  /// length 1, into bins of one unit: bin i of `sums` gets the pels, and bin i of `counts` the number of those that are
  /// not zero, whose place on the line is from first + i up to first + i + 1. There are bins for all pels of the image.
  /// The vectors are replaced. Besides the runs, every run passes over its bins, unless the bins are made of whole rows
  /// or columns, as the result tells. Throws qcPelFunc::BadParams when the direction has no length or something is not
  /// finite, qcPelFunc::Range when there were more than 16777216 bins or a bin beyond 2^53.
  ProjType projectAngle(const qcVector<2>& direction, const qcXform<2>& xform, std::vector<unsigned long>& sums,
                        std::vector<unsigned long>& counts, qcInt64& first) const;
  /// The same with the client transform, or in image coordinates. When the client transform is asked for, throws
  /// qcPel::NonlinearXform if it is not linear, qcMathError::Singular if it was set as an inverse that has none.
  ProjType projectAngle(const qcVector<2>& direction, bool inClient, std::vector<unsigned long>& sums,
                        std::vector<unsigned long>& counts, qcInt64& first) const;

  // --- new images, with this transform, and with this offset unless said ---

  /// Grey erosion and dilation: the least and the largest value of every pel's neighbourhood. Pels outside the image do
  /// not take part. Throws qcPelFunc::BadParams for a shape that is none.
  qc_TmpRLEBuffer gmorphMin(Shape shape) const;
  qc_TmpRLEBuffer gmorphMax(Shape shape) const;
  /// A part of the image; the offset is the part's corner. Throws qcPel::BadWindow when it reaches outside the image,
  /// Degenerate when it has no pels.
  qc_TmpRLEBuffer subWindow(const qcPelRect& window) const;
  /// Where `other` is not zero (with `invert` where it is zero) the pel when `inside` is 255, else `inside`; elsewhere,
  /// and beyond the borders of `other`, `outside`.
  qc_TmpRLEBuffer mask(const qcRLEBuffer& other, unsigned char inside, unsigned char outside,
                       bool invert = false) const;
  /// table[256 * pel + the other's pel] where the image has pels in common with `other` moved by `offset`; unchanged
  /// elsewhere. Throws qcPelFunc::BadParams unless the table has 65536 entries.
  qc_TmpRLEBuffer combine(const qcPair<long>& offset, const qcRLEBuffer& other,
                          const std::vector<unsigned char>& table) const;
  /// The table's value for every pel. Throws qcPelFunc::Range for a value beyond the table.
  qc_TmpRLEBuffer map(const std::vector<unsigned char>& table) const;

  // --- transforms: as those of pixel buffers ---

  qcXform<2> clientFromImageXform() const { return xforms().linearXform(); }
  qcXform<2> imageFromClientXform() const { return xforms().linearXformInverse(); }
  void clientFromImageXform(const qcXform<2>& xform);
  void imageFromClientXform(const qcXform<2>& xform);
  const qcPtrHandle_const<qc2XformBase>& clientFromImageXformBase() const { return xforms().xform(); }
  const qcPtrHandle_const<qc2XformBase>& imageFromClientXformBase() const { return xforms().xformInverse(); }
  /// Sets a copy of the transform.
  void clientFromImageXformBase(const qc2XformBase& xform);
  void imageFromClientXformBase(const qc2XformBase& xform);
  /// Sets a copy of the transform, or shares it. Throws qcBadPointer for a null handle.
  void clientFromImageXformBase(const qcPtrHandle_const<qc2XformBase>& xform, bool copy);
  void imageFromClientXformBase(const qcPtrHandle_const<qc2XformBase>& xform, bool copy);
  const qc2XformCache& xforms() const;
  void copyXforms(const qc2XformCache& xforms);
  void copyXforms(const qcRLEBuffer& other) { copyXforms(other.xforms()); }
  void copyXforms(const qc_PelBuffer& other) { copyXforms(other.xforms()); }

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 2, &qcRLEBuffer::serialize_); }
  /// Loading throws qcArchive::BadContent for rows that contradict the size or the number of runs; memory is taken for
  /// runs that the medium holds, or that have arrived. Storing throws it for more than 4294967295 runs.
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  friend class qcRLERegions;
  friend VNXSTD_EXPORT void qfPelCombine_U8(const qcPelBuffer<unsigned char>& pels, const qcRLEBuffer& runs,
                                            const qcPair<long>& offset, const std::vector<unsigned char>& table);

  qc_RLERep& rep() const {
    if (!rep_) throw Degenerate();
    return *rep_;
  }
  qc_RLERep& changing();
  template <class WriteRow>
  void replaceBy(const qcPelBuffer_const<unsigned char>& pels, WriteRow writeRow);

  std::int32_t hint_ = 0;
  std::unique_ptr<qc_RLERep> rep_;
};

/// Every pel of `pels` that it has in common with `runs` moved by `offset` becomes table[256 * pel + the value of its
/// run]. Values whose part of the table changes nothing cost no time per pel. Throws qcPelFunc::BadParams unless the
/// table has 65536 entries, qcPel::UnboundWindow, qcRLEBuffer::Degenerate.
VNXSTD_EXPORT void qfPelCombine_U8(const qcPelBuffer<unsigned char>& pels, const qcRLEBuffer& runs,
                                   const qcPair<long>& offset, const std::vector<unsigned char>& table);
