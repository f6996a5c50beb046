// Polynomial transforms of the plane: what a lens makes of a plane, and other smooth maps.
#pragma once

#include <cstddef>
#include <vector>

#include "vnxstd/archive/handle.h"
#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/math/xfbase.h"
#include "vnxstd/math/xflinear.h"

struct qmath_xformPoly;

/// A map of the plane whose coordinates are two polynomials of total degree n, the order, from 1 to 9, in
/// u = (x - origin.x) * scale.x and v = (y - origin.y) * scale.y. Each has (n + 1)(n + 2) / 2 coefficients, which
/// ascend by degree and within a degree by the power of v: those of 1, u, v, u^2, u v, v^2, u^3 and so on. A fit
/// chooses origin and scale so that u and v lie within [-1, 1] over the points, where high powers are good numbers.
///
/// Errors are those of qc2XformPerspectiveDefs: BadParams for an unknown order, lists of another length than needed and
/// numbers that are not finite, also those that come of a linear transform on the left; NumericalError where an image
/// or an expansion is not finite. Objects that are not changed may be used by several threads.
class VNXSTD_EXPORT qc2XformPoly : public qc2XformBase {
 public:
  // What archives of older errors may hold; nothing throws these.
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10000F38> {};
  class VNXSTD_EXPORT IllDefined : public qc_ErrorLeaf<IllDefined, Errors, 0x10000F39> {};

  static constexpr int kMaxOrder = 9;

  /// The number of coefficients per coordinate of an order.
  static std::size_t size(int order);

  /// The smallest, and the largest, order whose coefficients correspondences of these points can determine, going by
  /// the number of distinct points: 1, and the last one that has no more coefficients than that. Whether they lie well
  /// shows in the fit. Throws qc2XformPerspectiveDefs::BadParams for fewer than three distinct points.
  static int minOrder(const std::vector<qcVector<2>>& points);
  static int maxOrder(const std::vector<qcVector<2>>& points);

  /// The identity, as a polynomial of an order.
  explicit qc2XformPoly(int order = 1);
  /// The factors of the scale must not be 0.
  qc2XformPoly(int order, const std::vector<double>& xCoefs, const std::vector<double>& yCoefs,
               const qcVector<2>& origin = qcVector<2>(), const qcVector<2>& scale = qcVector<2>(1, 1));
  /// The polynomial of an order that makes least the sum of squared distances between the images of `from` and `to`, by
  /// QR factorisation. Throws qc2XformPerspectiveDefs::BadParams for fewer distinct points than coefficients as well,
  /// and NumericalError when the points lie on a curve of that order, so that more than one polynomial fits, or so
  /// nearly that images have rounding errors of 1e-6 of the extent of the destinations. Costs in proportion to the
  /// number of points and the square of that of coefficients.
  qc2XformPoly(const std::vector<qcVector<2>>& from, const std::vector<qcVector<2>>& to, int order);
  qc2XformPoly(const qc2XformPoly&) = default;
  qc2XformPoly& operator=(const qc2XformPoly& other);

  int order() const { return order_; }
  const qcVector<2>& origin() const { return origin_; }
  const qcVector<2>& scale() const { return scale_; }
  std::vector<double> xCoefs() const;
  std::vector<double> yCoefs() const;

  /// The point that is mapped to this one: of several the one that Newton's method finds from the affine approximation
  /// at the origin, to 1e-10 (see qc2XformInverse). Throws qc2XformPerspectiveDefs::NumericalError when it finds none.
  qcVector<2> invMapPoint(const qcVector<2>& point) const;

  /// Exact, on order, coefficients, origin and scale.
  friend bool operator==(const qc2XformPoly& a, const qc2XformPoly& b) {
    return a.order_ == b.order_ && a.origin_ == b.origin_ && a.scale_ == b.scale_ && a.coefs_ == b.coefs_;
  }

  qcVector<2> mapPoint(const qcVector<2>& point) const override;
  /// True when all coefficients of degrees above 1 are 0, as those of order 1 are.
  bool isLinear() const override;
  qc2XformLinear linearXform(const qcVector<2>& point) const override;
  /// By the magnitudes of the coefficients of its expansion at the center.
  double bendBound(const qcVector<2>& center, const qcVector<2>& reach) const override;
  Bend bendAlong(const qcVector<2>& center, const qcVector<2>& reach, double width) const override;
  /// A new qc2XformInverse. Throws qc2XformPerspectiveDefs::NumericalError when the affine approximation at the origin
  /// is singular.
  qcPtrHandle<qc2XformBase> inverseBase() const override;
  qcPtrHandle<qc2XformBase> clone() const override;
  void mapPoints(const qcVector<2>* in, qcVector<2>* out, std::size_t count) const override;

  static qcPersistent* make();

 protected:
  void dispatchSerialize(qcArchive& archive) override;
  /// Order, origin, scale and coefficients. Loading throws qcArchive::BadContent for what the constructors refuse; a
  /// load that throws leaves the transform as it was.
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  friend class qc2XformLinear;

  // The polynomial of the same order that applies this one first and `second` second.
  qcPtrHandle<qc2XformBase> leftCompose(const qcXform<2>& second) const;
  bool isValid() const;
  qmath_xformPoly poly() const;

  std::int32_t order_;
  qcVector<2> origin_;
  qcVector<2> scale_{1, 1};
  std::vector<double> coefs_;  // those of x, then those of y
};
