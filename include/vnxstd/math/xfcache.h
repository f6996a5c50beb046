// A transform with its inverse at hand.
#pragma once

#include "vnxstd/archive/handle.h"
#include "vnxstd/export.h"
#include "vnxstd/math/xfbase.h"
#include "vnxstd/math/xflinear.h"

class qcArchive;

/// A transform, its inverse, and the linear forms of both where they are linear, so that they are had without a virtual
/// call or an allocation. A value: copies share the transforms, which never change; clone() copies them too.
///
/// Setting one half drops the other. A half that is absent is made by inverting the one present when it is first asked
/// for, and kept; the errors of the inversion (qcMathError::Singular) reach whoever asked, and leave the cache as it
/// was. So asking for an absent half changes the cache, which is for one thread at a time. A null handle where a
/// transform is needed throws qcBadPointer. Setters change everything or nothing.
///
/// In an archive, or a message of a qcTransferArchive, caches that share a transform go on doing so, and it must live
/// on between the loads of one after the other from there (see qcArchive::forgetObjects). The identity of those that
/// were never set is stored by each for itself.
class VNXSTD_EXPORT qc2XformCache {
 public:
  using Handle = qcPtrHandle_const<qc2XformBase>;

  /// The identity and its inverse.
  qc2XformCache();
  /// Shares both transforms; the inverse may be null, which makes it absent.
  qc2XformCache(const Handle& xform, const Handle& inverse);

  /// With deep copies of the transforms that are present.
  qc2XformCache clone() const;

  /// The transform.
  const Handle& xform() const { return present(xform_, inverse_).handle; }
  /// Sets the transform, to a deep copy or to the one given, and drops the inverse.
  void xform(const Handle& xform, bool copy) { set(xform_, inverse_, held(xform, copy)); }
  void xform(const qc2XformBase& xform) { set(xform_, inverse_, xform.clone()); }

  /// The inverse.
  const Handle& xformInverse() const { return present(inverse_, xform_).handle; }
  /// Sets the inverse, to a deep copy or to the one given, and drops the transform.
  void xformInverse(const Handle& inverse, bool copy) { set(inverse_, xform_, held(inverse, copy)); }
  void xformInverse(const qc2XformBase& inverse) { set(inverse_, xform_, inverse.clone()); }

  /// Shares both and inverts neither; the inverse may be null, which makes it absent.
  void xformAndXformInverse(const Handle& xform, const Handle& inverse) { *this = qc2XformCache(xform, inverse); }

  /// True when the transform is affine everywhere; asked of the inverse while the transform is absent.
  bool isLinear() const { return xform_.handle ? xform_.isLinear : inverse_.isLinear; }

  /// The linear forms; throw qcPel::NonlinearXform when the transform (the inverse) is not linear.
  const qc2XformLinear& linearXform() const { return linear(present(xform_, inverse_)); }
  const qc2XformLinear& linearXformInverse() const { return linear(present(inverse_, xform_)); }

  void setIdentity() { *this = qc2XformCache(); }

  /// Stores or loads a version byte (0), the transform and the inverse as polymorphic pointers, null for an absent one,
  /// and a byte that tells whether the transform is linear, which loading ignores. Loading throws
  /// qcArchive::BadContent when both are null, and leaves the cache as it was when it throws.
  friend VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qc2XformCache& cache);

 private:
  struct Half {
    Half() = default;
    explicit Half(const Handle& xform);

    Handle handle;  // null when absent
    bool isLinear = false;
    qc2XformLinear linear;  // meant when isLinear
  };

  static Handle held(const Handle& xform, bool copy) { return copy ? Handle(xform->clone()) : xform; }
  static void set(Half& half, Half& other, const Handle& xform);
  static const Half& present(Half& half, const Half& other) {
    if (!half.handle) half = Half(other.handle->inverseBase());
    return half;
  }
  static const qc2XformLinear& linear(const Half& half);

  mutable Half xform_;
  mutable Half inverse_;
};
