// Axis-aligned rectangles.
#pragma once

#include "vnxstd/export.h"
#include "vnxstd/shapes/parallelogram.h"

class qcGenRect;
class qcLineSeg;
class qcPelRect;

/// An axis-aligned rectangle with real coordinates: the corner with the smallest coordinates (upper left where y points
/// down) and the width and height. A region; its boundary runs from the origin along the width first, so that it is
/// right-handed. Positions on the perimeter have index 0 and the distance from the origin corner.
class VNXSTD_EXPORT qcRect : public qc_ParallelogramShape {
 public:
  /// Origin and size are (0, 0).
  qcRect() = default;
  /// A negative width or height w moves the origin by -w and becomes |w|: the rectangle is moved, not flipped.
  qcRect(const qcVector<2>& origin, const qcVector<2>& size);
  qcRect(const qcPelRect& pels);
  /// The smallest rectangle from `low` that contains `high`: where their difference is rounded down, the size is the
  /// next larger number. A corner `high` below `low` gives a negative size.
  static qcRect fromCorners(const qcVector<2>& low, const qcVector<2>& high);
  static qcPersistent* make();

  const qcVector<2>& origin() const { return origin_; }
  const qcVector<2>& size() const { return size_; }
  void origin(const qcVector<2>& origin);
  /// The size is kept as given. A rectangle of negative width or height contains no point.
  void size(const qcVector<2>& size);

  double width() const { return size_.x(); }
  double height() const { return size_.y(); }
  qcVector<2> ul() const { return origin_; }
  qcVector<2> ur() const { return {origin_.x() + size_.x(), origin_.y()}; }
  qcVector<2> ll() const { return {origin_.x(), origin_.y() + size_.y()}; }
  qcVector<2> lr() const { return origin_ + size_; }

  // The sides, in the direction in which the boundary runs: top, right, bottom, left.
  qcLineSeg tSeg() const;
  qcLineSeg rSeg() const;
  qcLineSeg bSeg() const;
  qcLineSeg lSeg() const;

  /// Neither the width nor the height is above 0.
  bool degen() const { return size_.x() <= 0 && size_.y() <= 0; }

  /// The part in both. The default rectangle when one of them is degen, or the common part has no positive width and
  /// height.
  qcRect operator&(const qcRect& other) const;
  /// The smallest rectangle that contains both: the smaller origins and the larger far edges, whatever the sizes.
  qcRect enclose(const qcRect& other) const;
  /// The pixel rectangle from the floor of the origin to the ceiling of the far corner, clamped to the 32-bit range of
  /// pixel coordinates and sizes.
  qcPelRect enclosePelRect() const;
  /// The image under an affine map, which starts at the image of the origin.
  qcGenRect map(const qcXform<2>& xform) const;

  qcPtrHandle<qcShape> clone() const override { return new qcRect(*this); }
  /// The rectangle itself.
  qcRect boundingBox() const override { return *this; }
  double perimeter() const override;
  /// Neither or both of width and height are negative.
  bool isRightHanded() const override;
  /// All four sides are inside.
  bool within(const qcVector<2>& p) const override;
  /// A rectangle when the matrix only scales, by positive factors; otherwise the qcGenRect of map.
  qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const override;
  /// The closed polyline through the corners, traversed the other way.
  qcPtrHandle<qcShape> reverse() const override;
  bool equal_(const qcShape& that) const override;
  friend bool operator==(const qcRect& a, const qcRect& b) { return a.origin_ == b.origin_ && a.size_ == b.size_; }

  bool loadLegacy(qcArchive& archive) override;

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &qcRect::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version);
  std::array<qcVector<2>, 4> corners_() const override { return {ul(), ur(), lr(), ll()}; }

 private:
  void serializeCommon(qcArchive& archive);

  qcVector<2> origin_;
  qcVector<2> size_;
};
