#include "vnxstd/math/xfcomp.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_set>
#include <utility>

#include "std/archive/found.h"
#include "vnxstd/archive/archive.h"
#include "zrtnlxf/points.h"

namespace {

using Member = qc2XformComposed::Member;
using Members = std::vector<Member>;

constexpr const char* kSource = "std/math/xfcomp";
constexpr int kVersionLine = 176;
constexpr int kListVersionLine = 41;
constexpr int kSizeLine = 183;
constexpr int kWithinLine = 190;

constexpr std::size_t kBlock = 1024;  // points mapped by one member before the next, so that they stay in cache

const qc_Instantiator registered(typeid(qc2XformComposed), &qc2XformComposed::make);

const qc2XformComposed* composition(const Member& member) {
  return dynamic_cast<const qc2XformComposed*>(member.rep());
}

// The member as it is to be held; a null one can be shared but not copied.
Member held(const Member& xform, bool copyMember) { return copyMember ? Member(xform->clone()) : xform; }

// An object that no handle owns may live on the stack or in another object, where a handle must not delete it.
Member held(const qc2XformBase& xform, bool copyMember) {
  return copyMember || xform.refc() == 0 ? Member(xform.clone()) : Member(&xform);
}

}  // namespace

qc2XformComposed::qc2XformComposed(const Member& xform, bool copyMember) { adopt({held(xform, copyMember)}); }

qc2XformComposed::qc2XformComposed(const qc2XformBase& xform, bool copyMember) { adopt({held(xform, copyMember)}); }

qc2XformComposed::qc2XformComposed(const Member& first, const Member& second, bool copyFirst, bool copySecond) {
  adopt({held(first, copyFirst), held(second, copySecond)});
}

qc2XformComposed::qc2XformComposed(const qc2XformBase& first, const qc2XformBase& second, bool copyFirst,
                                   bool copySecond) {
  adopt({held(first, copyFirst), held(second, copySecond)});
}

qc2XformComposed& qc2XformComposed::operator=(const qc2XformComposed& other) {
  adopt(other.members_);
  return *this;
}

void qc2XformComposed::preCompose(const Member& xform, bool copyMember) {
  Members members{held(xform, copyMember)};
  members.insert(members.end(), members_.begin(), members_.end());
  adopt(std::move(members));
}

void qc2XformComposed::preCompose(const qc2XformBase& xform, bool copyMember) {
  preCompose(held(xform, copyMember), false);
}

void qc2XformComposed::postCompose(const Member& xform, bool copyMember) {
  Members members = members_;
  members.push_back(held(xform, copyMember));
  adopt(std::move(members));
}

void qc2XformComposed::postCompose(const qc2XformBase& xform, bool copyMember) {
  postCompose(held(xform, copyMember), false);
}

void qc2XformComposed::invert() {
  Members inverses;
  inverses.reserve(members_.size());
  for (auto member = members_.rbegin(); member != members_.rend(); ++member) {
    inverses.emplace_back((*member)->inverseBase());
  }
  adopt(std::move(inverses));
}

qcVector<2> qc2XformComposed::mapPoint(const qcVector<2>& point) const {
  qcVector<2> image = point;
  for (auto member = members_.rbegin(); member != members_.rend(); ++member) image = (*member)->mapPoint(image);
  return image;
}

bool qc2XformComposed::isLinear() const {
  bool linear = true;
  for (const Member& member : members_) linear = member->isLinear() && linear;  // a null member throws, wherever it is
  return linear;
}

qc2XformLinear qc2XformComposed::linearXform(const qcVector<2>& point) const {
  qcXform<2> result;
  qcVector<2> image = point;
  for (auto member = members_.rbegin(); member != members_.rend(); ++member) {
    const qcXform<2> local = (*member)->linearXform(image);
    image = local.mapPoint(image);
    result = local * result;
  }
  return result;
}

double qc2XformComposed::bendBound(const qcVector<2>& center, const qcVector<2>& reach) const {
  const double radius = reach.len();
  qcMatrix<2> whole;
  qcVector<2> at = center;
  double bend = 0, factor = 1;  // of the members so far, and by how much they lengthen
  for (auto member = members_.rbegin(); member != members_.rend(); ++member) {
    const qcXform<2> local = (*member)->linearXform(at);
    const qcVector<2> along = whole * reach;
    const double length = along.len();
    const qcVector<2> next = length > 0 ? along * (factor * radius / length) : qcVector<2>(factor * radius, 0);
    const double own = (*member)->bendBound(at, next);
    bend = zrtnlxf::norm(local.matrix()) * bend + own * factor;
    whole = local.matrix() * whole;
    at = local.mapPoint(at);
    factor = zrtnlxf::norm(whole) + bend;
    if (!(factor <= std::numeric_limits<double>::max())) return std::numeric_limits<double>::infinity();
  }
  return bend;
}

// The derivative along the reach of the members so far is D + d, with D that at the center, and the next member's is
// G + g: what changes is G d + g D + g d. Likewise across. The curve strays from the line along D by what bends, too.
qc2XformBase::Bend qc2XformComposed::bendAlong(const qcVector<2>& center, const qcVector<2>& reach,
                                               double width) const {
  const double radius = reach.len();
  const qcVector<2> direction = radius > 0 ? 1 / radius * reach : qcVector<2>(1, 0);
  qcMatrix<2> whole;
  qcVector<2> at = center;
  Bend bend{0, 0};
  for (auto member = members_.rbegin(); member != members_.rend(); ++member) {
    const qcXform<2> local = (*member)->linearXform(at);
    const qcVector<2> along = whole * direction;
    const double speed = along.len(), speedAcross = (whole * direction.perpendicular()).len();
    const double off = bend.along * radius + (width > 0 ? (speedAcross + bend.across) * width : 0);
    const double next = speed * radius + off;
    const Bend own = (*member)->bendAlong(at, speed > 0 ? next / speed * along : qcVector<2>(next, 0), off);
    const double norm = zrtnlxf::norm(local.matrix()), any = off > 0 ? std::hypot(own.along, own.across) : 0;
    bend = {norm * bend.along + own.along * speed + any * bend.along,
            norm * bend.across + any * (speedAcross + bend.across)};
    whole = local.matrix() * whole;
    at = local.mapPoint(at);
    if (!std::isfinite(bend.along) || !std::isfinite(bend.across)) {
      return {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()};
    }
  }
  return bend;
}

qcPtrHandle<qc2XformBase> qc2XformComposed::composeBase(const qc2XformBase& other) const {
  const qcPtrHandle<qc2XformComposed> result(new qc2XformComposed(*this));
  result->postCompose(other, true);
  return result;
}

qcPtrHandle<qc2XformBase> qc2XformComposed::inverseBase() const {
  const qcPtrHandle<qc2XformComposed> result(new qc2XformComposed(*this));
  result->invert();
  return result;
}

qcPtrHandle<qc2XformBase> qc2XformComposed::clone() const {
  Members copies;
  copies.reserve(members_.size());
  for (const Member& member : members_) copies.push_back(held(member, !member.isNull()));
  const qcPtrHandle<qc2XformComposed> result(new qc2XformComposed);
  result->adopt(std::move(copies));
  return result;
}

void qc2XformComposed::mapPoints(const qcVector<2>* in, qcVector<2>* out, std::size_t count) const {
  if (members_.empty() && in != out) std::copy_n(in, count, out);
  for (std::size_t done = 0; done < count; done += kBlock) {
    const std::size_t block = std::min(kBlock, count - done);
    const qcVector<2>* from = in + done;
    for (auto member = members_.rbegin(); member != members_.rend(); ++member) {
      (*member)->mapPoints(from, out + done, block);
      from = out + done;
    }
  }
}

void qc2XformComposed::preLoad() {
  members_.clear();
  size_ = 1;
}

qcPersistent* qc2XformComposed::make() { return new qc2XformComposed; }

void qc2XformComposed::dispatchSerialize(qcArchive& archive) {
  serializeLevel(archive, this, 0, &qc2XformComposed::serialize_);
}

void qc2XformComposed::serialize_(qcArchive& archive, unsigned char version) {
  qcArchive::checkVersion(archive, version, 0, kSource, kVersionLine);
  qc2XformBase::dispatchSerialize(archive);
  unsigned char listVersion = 0;
  archive || listVersion;
  qcArchive::checkVersion(archive, listVersion, 0, kSource, kListVersionLine);
  if (archive.isStoring()) {
    checkArchivable();
    archive || members_;
    archive.checkDepth();
    return;
  }
  Members members;
  archive || members;
  archive.checkDepth();
  if (size(members) > kMaxArchived) {
    throw archive.located(qcArchive::BadContent(kSource, kSizeLine), qf_Found(kMaxArchived) + " transforms at most",
                          qf_Found(size(members)));
  }
  checkNotWithin(members);
  size_ = size(members);
  members_.swap(members);
}

void qc2XformComposed::adopt(Members members) {
  checkNotWithin(members);
  mutating();
  size_ = size(members);
  members_.swap(members);
}

void qc2XformComposed::checkNotWithin(const Members& members) const {
  if (refc() == 0) return;  // no handle, hence no composition, refers to this one
  std::unordered_set<const qc2XformComposed*> seen;
  std::vector<const Members*> waiting{&members};
  while (!waiting.empty()) {
    const Members& list = *waiting.back();
    waiting.pop_back();
    for (const Member& member : list) {
      const qc2XformComposed* inner = composition(member);
      if (inner == this) throw qcArchive::BadContent(kSource, kWithinLine);
      if (inner && seen.insert(inner).second) waiting.push_back(&inner->members_);
    }
  }
}

// Counts anew: the size that a composition keeps is out of date when one that it shares has changed since.
void qc2XformComposed::checkArchivable() const {
  std::size_t total = 1;
  std::vector<const Members*> waiting{&members_};
  while (!waiting.empty()) {
    const Members& list = *waiting.back();
    waiting.pop_back();
    total += list.size();
    if (total > kMaxArchived) throw qcArchive::BadContent(kSource, kSizeLine);
    for (const Member& member : list) {
      if (const qc2XformComposed* inner = composition(member)) waiting.push_back(&inner->members_);
    }
  }
}

std::uint32_t qc2XformComposed::size(const Members& members) noexcept {
  std::uint64_t total = 1;
  for (const Member& member : members) {
    const qc2XformComposed* inner = composition(member);
    total = std::min<std::uint64_t>(total + (inner ? inner->size_ : 1), UINT32_MAX);
  }
  return static_cast<std::uint32_t>(total);
}
