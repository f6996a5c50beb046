// The affine member of the transform family.
#pragma once

#include <cstddef>
#include <new>

#include "vnxstd/archive/handle.h"
#include "vnxstd/export.h"
#include "vnxstd/math/angle.h"
#include "vnxstd/math/matrix.h"
#include "vnxstd/math/vector.h"
#include "vnxstd/math/xfbase.h"
#include "vnxstd/math/xform.h"

/// The images of `count` points under an affine transform, bit for bit what mapPoint gives for each. `out` is `in`
/// itself or does not overlap it.
VNXSTD_EXPORT void qfMapPoints(const qcXform<2>& xform, const qcVector<2>* in, qcVector<2>* out, std::size_t count);

/// An affine transform p -> M * p + t that can be shared and archived: a qcXform<2> as a member of the family.
/// What is computed, and the errors, are those of qcXform<2>; see there. Operations that need the inverse throw
/// qcMathError::Singular when the determinant is exactly 0.
///
/// Objects made with `new` take blocks of a pool that all threads share and that lives until the process ends; it
/// throws std::bad_alloc when it cannot grow. Classes derived from this one that are larger come from the general heap.
class VNXSTD_EXPORT qc2XformLinear : public qc2XformBase {
 public:
  /// The identity.
  qc2XformLinear() = default;
  qc2XformLinear(const qcMatrix<2>& matrix, const qcVector<2>& trans) : xform_(matrix, trans) {}
  /// The matrix is made of the last four arguments as by qcMatrix<2>.
  qc2XformLinear(const qcVector<2>& trans, const qcRadian& xRot, const qcRadian& yRot, double xScale, double yScale)
      : xform_(trans, xRot, yRot, xScale, yScale) {}
  qc2XformLinear(const qcVector<2>& trans, double scale, double aspect, const qcRadian& shear, const qcRadian& rotation)
      : xform_(trans, scale, aspect, shear, rotation) {}
  qc2XformLinear(const qcXform<2>& xform) : xform_(xform) {}
  qc2XformLinear(const qc2XformLinear&) = default;
  qc2XformLinear& operator=(const qc2XformLinear& other) { return *this = other.xform_; }
  qc2XformLinear& operator=(const qcXform<2>& xform) {
    mutating();
    xform_ = xform;
    return *this;
  }
  operator const qcXform<2>&() const { return xform_; }

  const qcMatrix<2>& matrix() const { return xform_.matrix(); }
  const qcVector<2>& trans() const { return xform_.trans(); }
  void matrix(const qcMatrix<2>& matrix) { *this = qcXform<2>(matrix, xform_.trans()); }
  void trans(const qcVector<2>& trans) { *this = qcXform<2>(xform_.matrix(), trans); }

  qcRadian rotation() const { return xform_.rotation(); }
  qcRadian yRot() const { return xform_.yRot(); }
  double scale() const { return xform_.scale(); }
  double yScale() const { return xform_.yScale(); }
  double aspect() const { return xform_.aspect(); }
  qcRadian shear() const { return xform_.shear(); }
  bool isIdentity() const { return xform_.isIdentity(); }
  bool isSingular() const { return xform_.isSingular(); }

  qcVector<2> mapVector(const qcVector<2>& vector) const { return xform_.mapVector(vector); }
  qcVector<2> invMapVector(const qcVector<2>& vector) const { return xform_.invMapVector(vector); }
  qcVector<2> invMapPoint(const qcVector<2>& point) const { return xform_.invMapPoint(point); }
  double mapArea(double area) const { return xform_.mapArea(area); }
  double invMapArea(double area) const { return xform_.invMapArea(area); }
  qcRadian mapAngle(const qcRadian& angle) const { return xform_.mapAngle(angle); }
  qcRadian invMapAngle(const qcRadian& angle) const { return xform_.invMapAngle(angle); }

  /// The transform that applies `first` and then this one.
  qc2XformLinear compose(const qc2XformLinear& first) const { return xform_.compose(first.xform_); }
  qc2XformLinear inverse() const { return xform_.inverse(); }

  using qc2XformBase::operator*;
  qcVector<2> operator*(const qcVector<2>& point) const { return xform_.mapPoint(point); }
  qc2XformLinear operator*(const qc2XformLinear& first) const { return compose(first); }

  /// Exact, on translation and matrix.
  friend bool operator==(const qc2XformLinear& a, const qc2XformLinear& b) { return a.xform_ == b.xform_; }
  friend bool operator==(const qc2XformLinear& a, const qcXform<2>& b) { return a.xform_ == b; }

  qcVector<2> mapPoint(const qcVector<2>& point) const override { return xform_.mapPoint(point); }
  bool isLinear() const override { return true; }
  qc2XformLinear linearXform(const qcVector<2>& point) const override;
  double bendBound(const qcVector<2>&, const qcVector<2>&) const override { return 0; }
  /// A new qc2XformLinear when `other` is linear, of whatever class; a new qc2XformPoly when it is one; else a
  /// composition.
  qcPtrHandle<qc2XformBase> composeBase(const qc2XformBase& other) const override;
  qcPtrHandle<qc2XformBase> inverseBase() const override;
  qcPtrHandle<qc2XformBase> clone() const override;
  void mapPoints(const qcVector<2>* in, qcVector<2>* out, std::size_t count) const override;

  static qcPersistent* make();

  static void* operator new(std::size_t size);
  static void operator delete(void* block, std::size_t size) noexcept;
  // Over-aligned derived classes, and construction in given storage.
  static void* operator new(std::size_t size, std::align_val_t alignment) { return ::operator new(size, alignment); }
  static void operator delete(void* block, std::size_t, std::align_val_t alignment) noexcept {
    ::operator delete(block, alignment);
  }
  static void* operator new(std::size_t, void* storage) noexcept { return storage; }
  static void operator delete(void*, void*) noexcept {}

 protected:
  void dispatchSerialize(qcArchive& archive) override;
  /// The translation, then the matrix. A load that throws leaves both as they were.
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  qcXform<2> xform_;
};
