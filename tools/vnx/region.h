// Where in an image a feature is looked for, and the scan lines that look for it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <vnxstd/shapes/affrect.h>
#include <vnxstd/shapes/ellipse.h>
#include <vnxstd/shapes/rect.h>

#include "chains.h"
#include "edges.h"

/// A part of the image plane: a rectangle, upright or affine, or the ring between two circles or ellipses.
class Region {
 public:
  /// Without points.
  Region() : outline_(new qcRect) {}
  Region(const qcRect& rectangle) : outline_(new qcRect(rectangle)) {}
  Region(const qcAffineRectangle& rectangle) : outline_(new qcAffineRectangle(rectangle)) {}
  /// The hole must lie inside the outline.
  Region(const qcEllipse2& hole, const qcEllipse2& outline)
      : outline_(new qcEllipse2(outline)), hole_(new qcEllipse2(hole)) {}

  /// The region that a text describes, all lengths in pixels and angles in degrees:
  ///     X,Y,W,H                     an upright rectangle by its upper-left corner
  ///     affine:X,Y,W,H,ANGLE,SKEW   a rectangle by its centre, lengths, rotation and skew, which may be left out
  ///     ring:X,Y,R1,R2              the ring between two circles around a centre
  ///     oval:X,Y,A,B,ANGLE,WIDTH    the ring around an ellipse of radii A and B, its radii less and plus WIDTH / 2
  /// Throws WrongCall for any other text.
  static Region parsed(const std::string& text);

  const qcShape& outline() const { return *outline_; }
  /// Null unless the region is a ring.
  const qcShape* hole() const { return hole_.rep(); }
  bool isRing() const { return !hole_.isNull(); }
  bool contains(const qcVector<2>& p) const;
  qcVector<2> centre() const;
  /// The border.
  std::vector<Chain> outlines() const;
  /// Of a ring: half-way between hole and outline.
  qcEllipse2 middle() const;

  /// The part inside the window of an upright rectangle; another region as it is.
  Region within(const qcRect& window) const;
  /// Scan lines across a rectangle, evenly spaced along one pair of sides; what lies outside the window is cut off.
  std::vector<ScanLine> across(const qcRect& window, int scans, bool alongRows) const;
  /// The part inside region and window of the ray from `from` through `through`, `skip` pixels from its start on.
  std::optional<ScanLine> ray(const qcRect& window, const qcVector<2>& from, const qcVector<2>& through,
                              double skip) const;

  /// Stores or loads outline and hole. Loading throws qcArchive::BadContent for shapes that no region has.
  friend qcArchive& operator||(qcArchive& archive, Region& region);

 private:
  qcPtrHandle<qcShape> outline_;  // a qcRect, qcAffineRectangle or qcEllipse2
  qcPtrHandle<qcShape> hole_;     // a qcEllipse2 or null
};
