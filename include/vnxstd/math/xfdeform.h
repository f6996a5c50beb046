// Deformations of the plane: what a sheet of rubber or a printed foil makes of it.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "vnxstd/archive/handle.h"
#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/math/xfbase.h"
#include "vnxstd/math/xflinear.h"

struct qmath_xformDeform;

/// Errors of deformation transforms.
class VNXSTD_EXPORT qc2XformDeformDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  class VNXSTD_EXPORT BadParams : public qc_ErrorLeaf<BadParams, Errors, 0x10003E00> {};
};

/// The thin-plate spline through given correspondences, or near them: the map that bends least (Duchon, 1977;
/// Bookstein, "Principal warps: thin-plate splines and the decomposition of deformations", 1989). It is an affine map
/// plus a weighted sum of r^2 ln r over the sources, r the distance to each in the units of the sources.
///
/// The smoothness, in squared units of the sources, is what is added to the diagonal of the kernel's matrix: 0 maps
/// every source to its destination, more lets the images leave the destinations where that takes out bends, and in the
/// limit only the affine map of least squares is left (Wahba, "Spline Models for Observational Data", 1990). Sources
/// are mapped to where they should be to 1e-10 of the extent of the destinations or, where they lie very close to each
/// other and their destinations do not, to 1e-6.
///
/// Bad arguments throw qc2XformDeformDefs::BadParams; a point without a finite image, and sources too close to each
/// other for that precision, throw qc2XformPerspectiveDefs::NumericalError. Mapping costs in
/// proportion to the number of sources. Objects that are not changed may be used by several threads.
class VNXSTD_EXPORT qc2XformDeform : public qc2XformBase {
 public:
  /// The identity, without correspondences and with a smoothness of 0.
  qc2XformDeform();
  /// Correspondences that are repeated count once. Throws qc2XformDeformDefs::BadParams for lists of unequal length,
  /// fewer than three distinct sources, sources that are collinear within the rounding errors of their coordinates, a
  /// source with several destinations, a negative smoothness, and numbers that are not finite. Costs in proportion to
  /// the third power of the number of sources, and memory in proportion to the second: a second or so and 8 MB for
  /// 1000.
  qc2XformDeform(const std::vector<qcVector<2>>& from, const std::vector<qcVector<2>>& to, double smoothness = 0);
  qc2XformDeform(const qc2XformDeform& other);
  qc2XformDeform& operator=(const qc2XformDeform& other);
  ~qc2XformDeform() override;

  double smoothness() const;
  /// The correspondences, without those that were repeated.
  std::vector<qcVector<2>> from() const;
  std::vector<qcVector<2>> to() const;
  /// The centroid of the sources, from whose surroundings inverses start.
  qcVector<2> origin() const;

  /// Adds correspondences and determines the map anew from all that there are; the errors and the cost are those of the
  /// constructor, and leave it as it was. For a transform that nobody shares yet: inverses and clones made before keep
  /// what they have.
  void update(const std::vector<qcVector<2>>& from, const std::vector<qcVector<2>>& to);

  /// The point that is mapped to this one: of several the one that Newton's method finds from the affine approximation
  /// at the origin, to 1e-10 (see qc2XformInverse). Throws qc2XformPerspectiveDefs::NumericalError when it finds none.
  qcVector<2> invMapPoint(const qcVector<2>& point) const;

  qcVector<2> mapPoint(const qcVector<2>& point) const override;
  /// True when nothing bends, all weights being exactly 0, as they are for up to three correspondences.
  bool isLinear() const override;
  qc2XformLinear linearXform(const qcVector<2>& point) const override;
  /// By the second derivatives at the center and bounds for the third ones, or around near sources for the first.
  double bendBound(const qcVector<2>& center, const qcVector<2>& reach) const override;
  /// A new qc2XformInverse. Throws qc2XformPerspectiveDefs::NumericalError when the affine approximation at the origin
  /// is singular.
  qcPtrHandle<qc2XformBase> inverseBase() const override;
  qcPtrHandle<qc2XformBase> clone() const override;
  void mapPoints(const qcVector<2>* in, qcVector<2>* out, std::size_t count) const override;

  static qcPersistent* make();

 protected:
  void dispatchSerialize(qcArchive& archive) override;
  /// The correspondences and the map, which loading does not determine anew. Loading throws qcArchive::BadContent for
  /// lists of unequal length and numbers that no map has; a load that throws leaves the transform as it was.
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  struct Destruct {
    void operator()(qmath_xformDeform* state) const noexcept;
  };

  std::unique_ptr<qmath_xformDeform, Destruct> state_;  // never null
};
