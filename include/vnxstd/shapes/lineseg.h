// Line segments.
#pragma once

#include "vnxstd/export.h"
#include "vnxstd/shapes/shape.h"

class qcLine;

/// The segment from p1 to p2: an open contour and a primitive. Both ends may coincide.
class VNXSTD_EXPORT qcLineSeg : public qcShape {
 public:
  /// Both ends at the origin.
  qcLineSeg() = default;
  qcLineSeg(const qcVector<2>& p1, const qcVector<2>& p2) : p1_(p1), p2_(p2) {}
  static qcPersistent* make();

  const qcVector<2>& p1() const { return p1_; }
  const qcVector<2>& p2() const { return p2_; }
  void p1(const qcVector<2>& p1);
  void p2(const qcVector<2>& p2);

  /// Both ends are exactly equal.
  bool degen() const { return p1_ == p2_; }
  /// The line through p1 in the direction of p2. Throws qcShapesError::DegenerateShape when degen.
  qcLine line() const;
  qcLineSeg map(const qcXform<2>& xform) const { return {xform * p1_, xform * p2_}; }

  qcPtrHandle<qcShape> clone() const override { return new qcLineSeg(*this); }
  bool isOpenContour() const override { return true; }
  bool isRegion() const override { return false; }
  bool isFinite() const override { return true; }
  bool isEmpty() const override { return false; }
  bool hasTangent() const override { return !degen(); }
  bool isDecomposed() const override { return true; }
  bool isReversible() const override { return true; }
  qcRect boundingBox() const override;
  qcVector<2> nearestPoint(const qcVector<2>& p) const override;
  double perimeter() const override;
  qcPerimPos nearestPerimPos(const qcShapeInfo& info, const qcVector<2>& p) const override;
  qcVector<2> startPoint() const override { return p1_; }
  qcVector<2> endPoint() const override { return p2_; }
  qcRadian startAngle() const override;
  qcRadian endAngle() const override { return startAngle(); }
  qcRadian tangentRotation() const override { return qcRadian(0); }
  /// In [-pi, pi]. On the segment itself it is pi, at its ends pi/2; 0 when the segment is a point.
  qcRadian windingAngle(const qcVector<2>& p) const override;
  qcPtrHandle<qcShape> mapShape(const qcXform<2>& xform) const override { return new qcLineSeg(map(xform)); }
  qcPtrHandle<qcShape> reverse() const override { return new qcLineSeg(p2_, p1_); }
  qcPtrHandle<qcShape> decompose() const override { return clone(); }
  qcPtrHandle<qcShape> clip_(const qcPolyline& polygon, qcClipInfo& info) const override;
  /// A segment.
  qcPtrHandle<qcShape> subShape(const qcShapeInfo& info, const std::pair<qcPerimPos, double>& piece) const override;
  /// Both ends and what lies between them: by spacing as many equal steps as are needed; in uniform mode see
  /// qfUniformSamplePrimitive.
  void sample(const qcSampleParams& params, qcSampleResult& result) const override;
  bool equal_(const qcShape& that) const override;
  void perimPointAndTangent_(const qcShapeInfo& info, const qcPerimPos& position, qcVector<2>& point,
                             qcRadian* tangent) const override;
  friend bool operator==(const qcLineSeg& a, const qcLineSeg& b) { return a.p1_ == b.p1_ && a.p2_ == b.p2_; }

  bool loadLegacy(qcArchive& archive) override;

 protected:
  void dispatchSerialize(qcArchive& archive) override { serializeLevel(archive, this, 0, &qcLineSeg::serialize_); }
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  void serializeCommon(qcArchive& archive);

  qcVector<2> p1_;
  qcVector<2> p2_;
};
