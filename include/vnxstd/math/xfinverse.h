// Inverses of transforms that have none in closed form.
#pragma once

#include <utility>
#include <variant>

#include "vnxstd/archive/handle.h"
#include "vnxstd/export.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/math/xfbase.h"
#include "vnxstd/math/xfdeform.h"
#include "vnxstd/math/xflinear.h"
#include "vnxstd/math/xfpoly.h"

/// The inverse of a polynomial or a deformation, of which it keeps a copy: each point is mapped by finding the one that
/// the transform maps to it, by Newton's method, which starts from the inverse of the transform's affine approximation
/// at its origin and shortens steps that lead away (Dennis and Schnabel, "Numerical Methods for Unconstrained
/// Optimization and Nonlinear Equations", 1983). Of several such points it finds one. The result is exact to 1e-10, or
/// to the rounding errors of the coordinates where these are larger. Costs some five evaluations with derivatives per
/// point.
///
/// Throws qc2XformPerspectiveDefs::NumericalError where no point is found. Objects that are not changed may be used by
/// several threads.
class VNXSTD_EXPORT qc2XformInverse : public qc2XformBase {
 public:
  /// The inverse of the identity.
  qc2XformInverse();
  /// Throws qc2XformPerspectiveDefs::NumericalError when the affine approximation at the origin is singular: its
  /// determinant is 0 within the rounding errors of its computation, or its inverse is not finite.
  explicit qc2XformInverse(const qc2XformPoly& forward);
  explicit qc2XformInverse(const qc2XformDeform& forward);
  /// Copies share what they undo; clone() copies it too.
  qc2XformInverse(const qc2XformInverse&) = default;
  qc2XformInverse& operator=(const qc2XformInverse& other);

  /// The transform that is undone.
  const qc2XformBase& forward() const;

  qcVector<2> mapPoint(const qcVector<2>& point) const override;
  /// That of the transform undone.
  bool isLinear() const override;
  /// The inverse of the expansion of the transform undone. Throws qc2XformPerspectiveDefs::NumericalError where that is
  /// singular in the same sense.
  qc2XformLinear linearXform(const qcVector<2>& point) const override;
  /// By the bound of the transform undone; infinite unless that shows that the transform can be undone all around.
  double bendBound(const qcVector<2>& center, const qcVector<2>& reach) const override;
  /// A copy of the transform undone.
  qcPtrHandle<qc2XformBase> inverseBase() const override;
  qcPtrHandle<qc2XformBase> clone() const override;

  static qcPersistent* make();

 protected:
  void dispatchSerialize(qcArchive& archive) override;
  /// The transform undone, as a polymorphic pointer. Loading throws qcArchive::BadContent when it is null or of a class
  /// that this one does not undo, and leaves the transform as it was when it throws.
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  using Forward = std::variant<qcPtrHandle_const<qc2XformPoly>, qcPtrHandle_const<qc2XformDeform>>;
  explicit qc2XformInverse(Forward forward) : forward_(std::move(forward)) {}

  Forward forward_;  // never null
};
