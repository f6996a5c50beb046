// The interface that all transforms of the plane share.
//
// A transform maps points of one frame (pixels of an image, millimetres of a part) to another. Transforms are shared
// through reference-counted handles and never change once they are: operations that build new transforms return new
// handles, completely built. Transforms held through read-only handles may be mapped from several threads at once.
#pragma once

#include <cstddef>

#include "vnxstd/archive/handle.h"
#include "vnxstd/archive/persistent.h"
#include "vnxstd/except/exception.h"
#include "vnxstd/export.h"
#include "vnxstd/math/vector.h"

class qc2XformLinear;

/// The owner of the errors of transforms.
class VNXSTD_EXPORT qc2XformDefs {
 public:
  class VNXSTD_EXPORT Errors : public qc_ErrorGroup<Errors> {};
  /// The class of the transform does not offer the operation.
  class VNXSTD_EXPORT NotImplemented : public qc_ErrorLeaf<NotImplemented, Errors, 0x10000F30> {};
};

/// A transform of the plane. A * B applies B first and A second.
class VNXSTD_EXPORT qc2XformBase : public qcPersistent, public qcRepBase {
 public:
  /// The image of a point.
  virtual qcVector<2> mapPoint(const qcVector<2>& point) const = 0;

  /// True when the transform is affine everywhere.
  virtual bool isLinear() const = 0;

  /// The affine transform that best approximates this one at the point, its first-order expansion; a linear transform
  /// gives itself, whatever the point.
  virtual qc2XformLinear linearXform(const qcVector<2>& point) const = 0;

  /// A new transform that applies `other` first and this one second. Unless a class knows better, the composition of
  /// deep copies of both.
  virtual qcPtrHandle<qc2XformBase> composeBase(const qc2XformBase& other) const;

  /// A new transform that undoes this one. Throws qc2XformDefs::NotImplemented unless the class offers it.
  virtual qcPtrHandle<qc2XformBase> inverseBase() const;

  /// A new deep copy. Throws qc2XformDefs::NotImplemented unless the class offers it.
  virtual qcPtrHandle<qc2XformBase> clone() const;

  /// The images of `count` points, each what mapPoint gives. `out` is `in` itself or does not overlap it. When a point
  /// throws, what `out` holds is unspecified.
  virtual void mapPoints(const qcVector<2>* in, qcVector<2>* out, std::size_t count) const;

  /// How much the transform bends around a point: an upper bound for the norm of the difference between the matrices of
  /// linearXform at `center` and at any point that is no further from it than the length of `reach`. Infinite where one
  /// of these points may have no finite image. Curves are approximated within a tolerance by means of it, and what it
  /// overlooks they overlook. Throws what linearXform throws at the center.
  ///
  /// The transforms of this library give bounds that hold, which approach 0 with the reach. By default twice the
  /// largest difference at 256 points along `reach`, through the center, and 256 scattered around: a class of
  /// transforms with features that these can miss must give its own bound.
  virtual double bendBound(const qcVector<2>& center, const qcVector<2>& reach) const;

  /// By how much the derivatives in two directions change at most.
  struct Bend {
    double along, across;
  };
  /// How much the transform bends along a curve that leads through `center`: bounds like bendBound's for the
  /// derivatives along `reach` and across it, at points that are no further from the center than the length of `reach`
  /// and no further than `width` from the line through the center along `reach`. With a width of 0, for straight lines,
  /// `across` means nothing. By default bendBound for both, which may be far above what the line itself sees: next to
  /// the line at infinity of a perspective, say, along which nothing changes.
  virtual Bend bendAlong(const qcVector<2>& center, const qcVector<2>& reach, double width) const;

  qcVector<2> operator*(const qcVector<2>& point) const { return mapPoint(point); }
  qcPtrHandle<qc2XformBase> operator*(const qc2XformBase& other) const { return composeBase(other); }

 protected:
  qc2XformBase() = default;
  qc2XformBase(const qc2XformBase&) = default;
  qc2XformBase& operator=(const qc2XformBase&) = default;

  void dispatchSerialize(qcArchive& archive) override;
  /// A version byte; no fields.
  void serialize_(qcArchive& archive, unsigned char version);
};
