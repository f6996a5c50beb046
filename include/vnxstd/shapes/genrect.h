// General rectangles: images of upright ones under affine maps.
#pragma once

#include "vnxstd/export.h"
#include "vnxstd/shapes/parallelogram.h"

/// A parallelogram by one corner and the vectors of the two sides that start there. A region; its boundary runs from
/// the origin along the x side first. The sides may be parallel or null.
class VNXSTD_EXPORT qcGenRect : public qc_ParallelogramShape {
 public:
  /// All at (0, 0).
  qcGenRect() = default;
  qcGenRect(const qcVector<2>& origin, const qcVector<2>& xSide, const qcVector<2>& ySide)
      : origin_(origin), xSide_(xSide), ySide_(ySide) {}
  static qcPersistent* make();

  const qcVector<2>& origin() const { return origin_; }
  const qcVector<2>& xSide() const { return xSide_; }
  const qcVector<2>& ySide() const { return ySide_; }
  void origin(const qcVector<2>& origin);
  void xSide(const qcVector<2>& xSide);
  void ySide(const qcVector<2>& ySide);

  /// The cross product of the sides is exactly 0.
  bool degen() const { return xSide_.cross(ySide_) == 0; }
  qcGenRect map(const qcXform<2>& xform) const;

  qcPtrHandle<qcShape> clone() const override { return new qcGenRect(*this); }
  /// The cross product of the sides is not negative.
  bool isRightHanded() const override { return xSide_.cross(ySide_) >= 0; }
  qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const override { return new qcGenRect(map(xform)); }
  /// The same corner, with the sides exchanged.
  qcPtrHandle<qcShape> reverse() const override { return new qcGenRect(origin_, ySide_, xSide_); }
  bool equal_(const qcShape& that) const override;
  friend bool operator==(const qcGenRect& a, const qcGenRect& b) {
    return a.origin_ == b.origin_ && a.xSide_ == b.xSide_ && a.ySide_ == b.ySide_;
  }

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &qcGenRect::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version);
  std::array<qcVector<2>, 4> corners_() const override {
    return {origin_, origin_ + xSide_, origin_ + (xSide_ + ySide_), origin_ + ySide_};
  }

 private:
  qcVector<2> origin_;
  qcVector<2> xSide_;
  qcVector<2> ySide_;
};
