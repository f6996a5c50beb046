// Projective maps of the plane: what a pinhole camera makes of one plane seen on another.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "vnxstd/archive/handle.h"
#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"
#include "vnxstd/math/matrix.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/math/xfbase.h"
#include "vnxstd/math/xflinear.h"

struct qmath_xformPerspective;

/// Errors of the perspective, polynomial and deformation transforms and of their inverses; they carry a text.
class VNXSTD_EXPORT qc2XformPerspectiveDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors, qcExceptionWithString> {
   protected:
    using qc_ErrorGroup::qc_ErrorGroup;
  };
  /// Too few points, lists of unequal length, an unknown order, a number that is not finite.
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10003D00> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
  /// A point without a finite image, a transform without an inverse, points that determine no transform, a curve that
  /// is bent too much to be followed.
  class VNXSTD_EXPORT NumericalError : public qc_ErrorLeaf<NumericalError, Errors, 0x10003D01> {
   public:
    using qc_ErrorLeaf::qc_ErrorLeaf;
  };
};

/// The projective map (x, y) -> (u / w, v / w) with (u, v, w) = H (x, y, 1), H a matrix of 3 x 3 numbers of which a
/// common factor does not matter.
///
/// Points on the line w = 0 have no image, and of others u, v, w or the image may lie beyond the range of double:
/// mapping them, and expanding there, throws qc2XformPerspectiveDefs::NumericalError. So it does for every point when
/// elements of the matrix are not finite. Objects that are not changed may be used by several threads.
class VNXSTD_EXPORT qc2XformPerspective : public qc2XformBase {
 public:
  /// The identity. Constructors throw std::bad_alloc when there is no memory.
  qc2XformPerspective();
  /// Any matrix; its elements are copied as they are.
  explicit qc2XformPerspective(const qcMatrix<3>& matrix);
  /// The one map that takes four points to four others. The last element of its matrix is 1 or, where that one vanishes
  /// beside the others, the largest is. Throws qc2XformPerspectiveDefs::NumericalError when three of the sources, or of
  /// the destinations, are collinear within the rounding errors of their coordinates, or so nearly that the map misses
  /// destinations by 1e-6 of their extent, and qc2XformPerspectiveDefs::BadParams when a coordinate is not finite.
  qc2XformPerspective(const qcVector<2> (&from)[4], const qcVector<2> (&to)[4]);
  /// The same for four or more correspondences, by least squares: the direct linear transformation in normalised
  /// coordinates (Hartley, "In defence of the eight-point algorithm", 1997). What is made small is the sum of squares
  /// of w times the distance between destination and image, in the destinations' coordinates as normalised.
  /// Throws qc2XformPerspectiveDefs::BadParams for fewer than four points and lists of unequal length as well, and
  /// NumericalError when the points do not determine a map that can be inverted. Costs in proportion to the number of
  /// points.
  qc2XformPerspective(const std::vector<qcVector<2>>& from, const std::vector<qcVector<2>>& to);
  /// A copy of a state of the module of plain functions.
  explicit qc2XformPerspective(const qmath_xformPerspective& state);
  qc2XformPerspective(const qc2XformPerspective& other);
  qc2XformPerspective& operator=(const qc2XformPerspective& other);
  ~qc2XformPerspective() override;

  qcMatrix<3> matrix() const;

  /// True when the determinant is 0 within the rounding errors of its computation, or no number.
  bool isSingular() const;

  /// Exact, on the nine elements: matrices that differ by a factor map alike but are not equal.
  friend bool operator==(const qc2XformPerspective& a, const qc2XformPerspective& b) {
    return a.matrix() == b.matrix();
  }

  qcVector<2> mapPoint(const qcVector<2>& point) const override;
  /// True when the last row is (0, 0, w), w not 0.
  bool isLinear() const override;
  qc2XformLinear linearXform(const qcVector<2>& point) const override;
  double bendBound(const qcVector<2>& center, const qcVector<2>& reach) const override;
  Bend bendAlong(const qcVector<2>& center, const qcVector<2>& reach, double width) const override;
  /// A new qc2XformPerspective when `other` is one, or linear, of whatever class; else a composition.
  qcPtrHandle<qc2XformBase> composeBase(const qc2XformBase& other) const override;
  /// A new qc2XformPerspective. Throws qc2XformPerspectiveDefs::NumericalError when this one is singular.
  qcPtrHandle<qc2XformBase> inverseBase() const override;
  qcPtrHandle<qc2XformBase> clone() const override;
  void mapPoints(const qcVector<2>* in, qcVector<2>* out, std::size_t count) const override;

  static qcPersistent* make();

 protected:
  void dispatchSerialize(qcArchive& archive) override;
  /// The matrix. A load that throws leaves it as it was.
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  struct Destruct {
    void operator()(qmath_xformPerspective* state) const noexcept;
  };
  using State = std::unique_ptr<qmath_xformPerspective, Destruct>;

  explicit qc2XformPerspective(State state) noexcept;

  State state_;  // never null
};
