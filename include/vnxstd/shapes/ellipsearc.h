// Arcs of ellipses.
#pragma once

#include "vnxstd/export.h"
#include "vnxstd/shapes/ellipse.h"

/// What the arcs of both classes of ellipses have in common: `Arc` is the class of the arc itself. An arc runs from one
/// value of its ellipse's parameter to another, at most once round: with the parameter when its span is positive, and
/// against it when the span is negative. An open contour, also where its ends meet. Both values are stored rather
/// than one and the span, so that the pieces of an arc that was split, and reversed arcs, have exactly the same ends.
///
/// A span of more than a turn in magnitude, beyond rounding, and numbers that are not finite, throw
/// qcShapesError::BadParams; setters then change nothing.
template <class Arc, class Ellipse>
class VNXSTD_EXPORT qc_EllipseArcOf : public qc_EllipseShape {
 public:
  /// The start is kept reduced into [-pi, pi).
  qc_EllipseArcOf(const Ellipse& ellipse, const qcRadian& phiStart, const qcRadian& phiSpan);
  /// From one value to the other, kept as given.
  static Arc between(const Ellipse& ellipse, const qcRadian& phiStart, const qcRadian& phiEnd);
  static qcPersistent* make() { return new Arc; }

  const Ellipse& ellipse() const { return ellipse_; }
  const qcRadian& phiStart() const { return start_; }
  const qcRadian& phiEnd() const { return end_; }
  /// In [-2 pi, 2 pi]: the difference of end and start; where that is a turn but for rounding, exactly a turn.
  qcRadian phiSpan() const;
  void ellipse(const Ellipse& ellipse);
  /// Keeps the span.
  void phiStart(const qcRadian& phiStart);
  /// Keeps the start, reduced into [-pi, pi).
  void phiSpan(const qcRadian& phiSpan);

  // None of these is inline: g++ on Windows does not export inline members of templates that are declared extern.
  qcPtrHandle<qcShape> clone() const override;
  bool isRegion() const override;
  bool isReversible() const override;
  /// The same ellipse with start and end exchanged.
  qcPtrHandle<qcShape> reverse() const override;
  bool equal_(const qcShape& that) const override;
  friend bool operator==(const Arc& a, const Arc& b) {
    return a.ellipse_ == b.ellipse_ && a.start_ == b.start_ && a.end_ == b.end_;
  }

 protected:
  void dispatchSerialize(qcArchive& archive) override;
  void serialize_(qcArchive& archive, unsigned char version);
  qc_shapes::EllipseCurve curve_() const override;

 private:
  const Arc& self() const { return static_cast<const Arc&>(*this); }

  Ellipse ellipse_;
  qcRadian start_;
  qcRadian end_;
};

class VNXSTD_EXPORT qcEllipseArc;
class VNXSTD_EXPORT qcEllipseArc2;
extern template class qc_EllipseArcOf<qcEllipseArc, qcEllipse>;
extern template class qc_EllipseArcOf<qcEllipseArc2, qcEllipse2>;

/// An arc of a qcEllipse: the older class. Its parameter is counted from the first axis.
class VNXSTD_EXPORT qcEllipseArc : public qc_EllipseArcOf<qcEllipseArc, qcEllipse> {
 public:
  /// The unit circle, once round from angle 0.
  qcEllipseArc() : qcEllipseArc(qcEllipse(), qcRadian(0), qcRadian(qcRadian::turn)) {}
  using qc_EllipseArcOf::qc_EllipseArcOf;

  /// The image under an affine map.
  qcEllipseArc map(const qcXform<2>& xform) const;
  bool isDecomposed() const override { return false; }
  /// A qcEllipseArc2.
  qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const override;
  /// The same arc as a qcEllipseArc2.
  qcPtrHandle<qcShape> decompose() const override;
};

/// An arc of a qcEllipse2: a primitive. Circles and ellipses are decomposed and split into these.
class VNXSTD_EXPORT qcEllipseArc2 : public qc_EllipseArcOf<qcEllipseArc2, qcEllipse2> {
 public:
  /// The unit circle, once round from angle 0.
  qcEllipseArc2() : qcEllipseArc2(qcEllipse2(), qcRadian(0), qcRadian(qcRadian::turn)) {}
  using qc_EllipseArcOf::qc_EllipseArcOf;
  qcEllipseArc2(const qcEllipseArc& arc);

  /// The same arc of an ellipse without phase and handedness.
  qcEllipseArc oldEllipseArc() const;
  /// The image under an affine map, with the same start and end parameters.
  qcEllipseArc2 map(const qc2XformLinear& xform) const { return between(ellipse().map(xform), phiStart(), phiEnd()); }
  bool isDecomposed() const override { return true; }
  qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const override { return new qcEllipseArc2(map(xform)); }
  qcPtrHandle<qcShape> decompose() const override { return clone(); }
};
