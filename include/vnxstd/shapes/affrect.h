// Affine rectangles: rotated and skewed regions.
#pragma once

#include <cstdint>

#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"
#include "vnxstd/math/xform.h"
#include "vnxstd/shapes/parallelogram.h"

class qcPelRect;

/// The image of the unit square under an affine transform: a parallelogram, and the region that tools look at. The
/// transform is what a rectangle is; all other descriptions follow from it, and each can be used to set it.
///
/// The corners po, px, py and popp are the images of (0, 0), (1, 0), (0, 1) and (1, 1). The x side runs from po to px,
/// the y side from po to py; the boundary starts along the x side. xRotation is the direction of the x side, yRotation
/// that of the y side less a right angle, both in [-pi, pi); skew is yRotation - xRotation, 0 for right angles between
/// the sides. The rectangle is right-handed when the y side turns left from the x side: for a skew between -pi/2 and
/// pi/2.
///
/// Descriptions are computed when asked for and kept in the object, also by const queries: a rectangle may be asked for
/// them from several threads only after each description has been asked for once, or under the caller's lock. The
/// operations of qcShape keep nothing.
class VNXSTD_EXPORT qcAffineRectangle : public qc_ParallelogramShape {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// A side length is not a positive finite number; two defining corners coincide, or the three are on one line.
  class VNXSTD_EXPORT BadLength : public qc_ErrorLeaf<BadLength, Errors, 0x10002A07> {};
  /// The skew is a right angle, so that the sides would be parallel, or no number.
  class VNXSTD_EXPORT BadSkew : public qc_ErrorLeaf<BadSkew, Errors, 0x10002A08> {};

  /// How near to a right angle a skew is refused, in radians.
  static constexpr double kBadSkew = 0.001;

  /// The unit square.
  qcAffineRectangle() = default;
  /// Any transform will do, a singular one as well.
  explicit qcAffineRectangle(const qcXform<2>& affRectFromUnitSq) : affRectFromUnitSq_(affRectFromUnitSq) {}
  /// As by cornersPoPxPy, and centerLengthsRotAndSkew.
  qcAffineRectangle(const qcVector<2>& po, const qcVector<2>& px, const qcVector<2>& py);
  qcAffineRectangle(const qcVector<2>& center, double xLength, double yLength, const qcRadian& xRotation,
                    const qcRadian& skew);
  static qcPersistent* make();

  // Setters replace the whole rectangle, or one quantity. They change nothing when they throw.

  const qcXform<2>& affRectFromUnitSq() const { return affRectFromUnitSq_; }
  void affRectFromUnitSq(const qcXform<2>& xform);
  /// Throws BadLength when po and px are equal, or py is on the line through them; also when they are so near to that
  /// that the determinant is rounded to 0, or a side has no finite length.
  void cornersPoPxPy(const qcVector<2>& po, const qcVector<2>& px, const qcVector<2>& py);
  /// These throw BadLength for a length that is not positive and finite, BadSkew for a skew that isBadSkew,
  /// qcShapesError::BadParams for a rotation that is no finite number.
  void centerLengthsRotAndSkew(const qcVector<2>& center, double xLength, double yLength, const qcRadian& xRotation,
                               const qcRadian& skew);
  void cornerPoLengthsRotAndSkew(const qcVector<2>& po, double xLength, double yLength, const qcRadian& xRotation,
                                 const qcRadian& skew);
  /// Move the rectangle.
  void center(const qcVector<2>& center);
  void cornerPo(const qcVector<2>& po);
  /// Change one length, the centre, the other length and both directions staying as they are. They throw BadLength.
  void xLength(double xLength);
  void yLength(double yLength);
  /// Turns the rectangle around its centre. Throws qcShapesError::BadParams for no finite number.
  void xRotation(const qcRadian& xRotation);
  /// Turns the y side, the centre staying where it is. Throws BadSkew.
  void skew(const qcRadian& skew);

  qcVector<2> cornerPo() const;
  qcVector<2> cornerPx() const;
  qcVector<2> cornerPy() const;
  qcVector<2> cornerPopp() const;
  qcVector<2> center() const;
  double xLength() const;
  double yLength() const;
  /// A side of length 0 has the rotation that was set last, until the sides change in another way, else 0.
  qcRadian xRotation() const;
  qcRadian yRotation() const;
  qcRadian skew() const;

  /// The determinant of the transform is exactly 0.
  bool degen() const { return affRectFromUnitSq_.isSingular(); }
  /// The skew is within kBadSkew of a right angle, to either side, or no finite number.
  static bool isBadSkew(const qcRadian& skew);

  qcAffineRectangle map(const qcXform<2>& xform) const;
  /// The same as boundingBox().
  qcRect encloseRect() const;
  /// The smallest rectangle of pixels that holds the image of the rectangle under a transform to image coordinates,
  /// where the pixel (x, y) is the square from (x, y) to (x + 1, y + 1). Exact: a side that the elements of both
  /// transforms put on the border of a pixel does not reach into the next one. Clamped to the 32-bit range of pixel
  /// coordinates and sizes.
  qcPelRect encloseImageRect(const qcXform<2>& imageFromClient) const;

  qcPtrHandle<qcShape> clone() const override { return new qcAffineRectangle(*this); }
  /// The determinant is 0 or positive.
  bool isRightHanded() const override { return affRectFromUnitSq_.matrix().determinant() >= 0; }
  qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const override { return new qcAffineRectangle(map(xform)); }
  /// The same corner po, with the sides exchanged.
  qcPtrHandle<qcShape> reverse() const override;
  bool equal_(const qcShape& that) const override;
  friend bool operator==(const qcAffineRectangle& a, const qcAffineRectangle& b) {
    return a.affRectFromUnitSq_ == b.affRectFromUnitSq_;
  }

  bool loadLegacy(qcArchive& archive) override;

 protected:
  void dispatchSerialize(qcArchive& archive) override {
    serializeLevel(archive, this, 0, &qcAffineRectangle::serialize_);
  }
  void serialize_(qcArchive& archive, unsigned char version);
  std::array<qcVector<2>, 4> corners_() const override;

 private:
  // The bits of valid_.
  enum : std::uint16_t {
    kCornerPo = 0x1,
    kCornerPx = 0x2,
    kCornerPy = 0x4,
    kCornerPopp = 0x8,
    kCenter = 0x10,
    kXLength = 0x20,
    kYLength = 0x40,
    kXRotation = 0x80,
    kYRotation = 0x100
  };

  template <class T, class Compute>
  T cached(std::uint16_t bit, T& kept, Compute compute) const {
    if ((valid_ & bit) == 0) {
      kept = compute();
      valid_ = static_cast<std::uint16_t>(valid_ | bit);
    }
    return kept;
  }
  qcVector<2> xSide() const;
  qcVector<2> ySide() const;
  void lengthsRotAndSkew(double xLength, double yLength, const qcRadian& xRotation, const qcRadian& skew);
  void sidesAround(qcVector<2> center, const qcVector<2>& xSide, const qcVector<2>& ySide);
  void serializeCommon(qcArchive& archive);

  mutable std::uint16_t valid_ = 0;  // which of the next ones hold
  mutable qcVector<2> center_;
  mutable double xLength_ = 0, yLength_ = 0;
  mutable qcRadian xRotation_, yRotation_;
  mutable qcVector<2> cornerPo_, cornerPx_, cornerPy_, cornerPopp_;
  qcXform<2> affRectFromUnitSq_;
};
