// Chains of transforms.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vnxstd/archive/handle.h"
#include "vnxstd/export.h"
#include "vnxstd/math/xfbase.h"
#include "vnxstd/math/xflinear.h"

/// A list of transforms applied one after the other: the member at index 0 is applied last, the one at the highest
/// index first, so that [A, B] maps p to A(B(p)). The empty list is the identity.
///
/// A member is held in one of two ways, told by the flag `copyMember`: true stores a private deep copy, false shares
/// the caller's transform. A transform given by reference can only be shared when a handle owns it already; one that no
/// handle owns is copied. Copies of a composition share its members; clone() copies them too.
///
/// A null handle may be a member; every operation that needs it throws qcBadPointer. A composition cannot contain
/// itself, directly or through other compositions: what would make it so throws qcArchive::BadContent.
///
/// Building is for one thread, before the composition is handed out. Every change is made completely or not at all.
class VNXSTD_EXPORT qc2XformComposed : public qc2XformBase {
 public:
  using Member = qcPtrHandle_const<qc2XformBase>;

  /// How many transforms an archived composition may consist of, those of inner compositions, and these themselves,
  /// counted each time that they are reached. Storing or loading more throws qcArchive::BadContent: shared members
  /// would otherwise let a few hundred bytes stand for more work than anyone can do.
  static constexpr std::uint32_t kMaxArchived = 4096;

  /// The empty list.
  qc2XformComposed() = default;
  /// [xform].
  qc2XformComposed(const Member& xform, bool copyMember);
  qc2XformComposed(const qc2XformBase& xform, bool copyMember);
  /// [first, second].
  qc2XformComposed(const Member& first, const Member& second, bool copyFirst, bool copySecond);
  qc2XformComposed(const qc2XformBase& first, const qc2XformBase& second, bool copyFirst, bool copySecond);
  qc2XformComposed(const qc2XformComposed&) = default;
  qc2XformComposed& operator=(const qc2XformComposed& other);

  /// Inserts at index 0: applied after all others.
  void preCompose(const Member& xform, bool copyMember);
  void preCompose(const qc2XformBase& xform, bool copyMember);
  /// Appends: applied before all others.
  void postCompose(const Member& xform, bool copyMember);
  void postCompose(const qc2XformBase& xform, bool copyMember);

  /// Reverses the order and replaces every member by its inverse. Throws what the members' inverseBase throws.
  void invert();

  /// Gives the members in the order of the list.
  void decompose(std::vector<Member>& members) const { members = members_; }

  qcVector<2> mapPoint(const qcVector<2>& point) const override;
  /// True when every member is linear.
  bool isLinear() const override;
  /// The product of the members' linear forms, each at the image of the point under the members applied before it.
  qc2XformLinear linearXform(const qcVector<2>& point) const override;
  /// By the bounds of the members, each around the image of the center and as far as those before it may reach.
  double bendBound(const qcVector<2>& center, const qcVector<2>& reach) const override;
  Bend bendAlong(const qcVector<2>& center, const qcVector<2>& reach, double width) const override;
  /// A copy of this composition with a deep copy of `other` appended.
  qcPtrHandle<qc2XformBase> composeBase(const qc2XformBase& other) const override;
  qcPtrHandle<qc2XformBase> inverseBase() const override;
  qcPtrHandle<qc2XformBase> clone() const override;
  void mapPoints(const qcVector<2>* in, qcVector<2>* out, std::size_t count) const override;

  /// Lets go of all members: a load that throws leaves the empty list.
  void preLoad() override;

  static qcPersistent* make();

 protected:
  void dispatchSerialize(qcArchive& archive) override;
  /// The member list: a version byte, the number of members, and each as a polymorphic pointer.
  void serialize_(qcArchive& archive, unsigned char version);

 private:
  void adopt(std::vector<Member> members);
  void checkNotWithin(const std::vector<Member>& members) const;
  void checkArchivable() const;
  static std::uint32_t size(const std::vector<Member>& members) noexcept;

  std::vector<Member> members_;
  std::uint32_t size_ = 1;  // this composition and all that it consisted of when it was built, at most UINT32_MAX
};
