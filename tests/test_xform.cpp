// The family of transforms: laws over random members, linear, bent and composed; caches; rigid transforms; archives.

#include "support/randomshapes.h"
#include "support/records.h"
#include "vnxstd/except/pelerrors.h"
#include "vnxstd/math.h"

namespace {

using Handle = qcPtrHandle<qc2XformBase>;
using Member = qcPtrHandle_const<qc2XformBase>;
using Composition = qcPtrHandle<qc2XformComposed>;
using Point = qcVector<2>;
using Linear = qc2XformLinear;

struct Bend : qc2XformBase {  // (x, y) -> (x + k sin y, y)
  explicit Bend(double strength) : k(strength) {}
  Point mapPoint(const Point& p) const override { return {p.x() + k * std::sin(p.y()), p.y()}; }
  bool isLinear() const override { return k == 0; }
  Linear linearXform(const Point& p) const override {
    const qcMatrix<2> m(1, k * std::cos(p.y()), 0, 1);
    return {m, mapPoint(p) - m * p};
  }
  Handle inverseBase() const override { return new Bend(-k); }
  Handle clone() const override { return new Bend(*this); }
  double k;
};

struct Source : Random {
  Source() : Random(7) {}
  Point point() { return {real(-3, 3), real(-3, 3)}; }
  qc2Rigid rigid() { return {qcDegree(real(-400, 400)), point()}; }
  Handle linear() { return new Linear(point(), real(0.5, 2), real(0.5, 2), qcRadian(real(-0.5, 0.5)), angle()); }
  Handle any(int depth = 2) {
    const int kind = integer(0, depth > 0 ? 3 : 1);
    if (kind < 2) return kind == 0 ? linear() : Handle(new Bend(real(-0.5, 0.5)));
    if (kind == 2) return new qc2XformComposed(any(depth - 1), true);
    return new qc2XformComposed(any(depth - 1), any(depth - 1), true, false);
  }
};

TEST(Family, LawsHoldForEveryPair) {
  Source source;
  const auto linear = [](const Handle& handle) { return dynamic_cast<Linear*>(handle.rep()) != nullptr; };
  for (int round = 0; round < 500; ++round) {
    const Handle a = source.any(), b = source.any(), c = source.any(), ab = *a * *b;
    const Point p = source.point();
    EXPECT_TRUE(qfRealEq(*ab * p, *a * (*b * p), 1e-12) && *ab->clone() * p == *ab * p);
    EXPECT_TRUE(qfRealEq(*(*ab * *c) * p, *(*a * *(*b * *c)) * p, 1e-11));
    EXPECT_TRUE(qfRealEq(*ab->inverseBase() * (*ab * p), p, 1e-9));
    EXPECT_EQ(ab->isLinear(), a->isLinear() && b->isLinear());
    // A linear transform absorbs what is linear, of whatever class; every other pair is a chain.
    EXPECT_EQ(linear(ab), linear(a) && b->isLinear());
    // The linear form touches the transform at the point: same image, same derivatives.
    const Linear form = ab->linearXform(p);
    EXPECT_TRUE(qfRealEq(form * p, *ab * p, 1e-12));
    const double h = 1e-5;
    for (const Point& e : {Point(h, 0), Point(0, h)})
      EXPECT_TRUE(qfRealEq(form.mapVector(e) / h, (*ab * (p + e) - *ab * (p - e)) / (2 * h), 1e-5));
  }
}

std::vector<Member> members(const qc2XformBase& xform) {
  std::vector<Member> result;
  dynamic_cast<const qc2XformComposed&>(xform).decompose(result);
  return result;
}

TEST(Composition, SharesOrCopiesAndChangesCompletelyOrNotAtAll) {
  const Handle bend(new Bend(0.2)), linear(new Linear);
  const Bend unowned(0.1);
  const Composition chain(new qc2XformComposed(bend, linear, true, false));
  chain->preCompose(unowned, false);  // owned by no handle, hence copied
  chain->postCompose(*linear, false);
  const std::vector<Member> m = members(qc2XformComposed(*chain));
  EXPECT_TRUE(m.size() == 4 && m[0].rep() != &unowned && m[1] != bend && m[2] == linear && m[3] == linear);
  EXPECT_FALSE(members(*chain->clone())[2] == linear);

  chain->postCompose(Linear(qcMatrix<2>(1, 2, 2, 4), Point()), true);
  const std::vector<Member> before = members(*chain);
  const Composition outer(new qc2XformComposed(chain, Member(), false, false));
  EXPECT_THROW(chain->invert(), qcMathError::Singular);
  EXPECT_THROW(chain->preCompose(chain, false), qcArchive::BadContent);
  EXPECT_THROW(chain->postCompose(outer, false), qcArchive::BadContent);
  EXPECT_THROW(*chain = *outer, qcArchive::BadContent);
  EXPECT_THROW(chain->preCompose(Member(), true), qcBadPointer);
  EXPECT_TRUE(members(*chain) == before);
  EXPECT_THROW(outer->isLinear(), qcBadPointer);
}

TEST(Cache, KeepsOrRemakesTheOtherHalf) {
  const Handle a = Source().linear(), b = a->clone(), bend(new Bend(0.5));
  const Point p(1, 2);
  qc2XformCache cache;
  cache.xform(a, false);
  EXPECT_TRUE(cache.xform() == a && qfRealEq(cache.linearXformInverse() * (*a * p), p, 1e-12));
  cache.xformInverse(b, true);
  EXPECT_TRUE(cache.xformInverse() != b && qfRealEq(cache.linearXform() * (*b * p), p, 1e-12));
  cache.xformAndXformInverse(a, bend);  // not inverted, so not found out
  EXPECT_THROW(cache.linearXformInverse(), qcPel::NonlinearXform);
  EXPECT_THROW(cache.xform(Member(), false), qcBadPointer);
  EXPECT_TRUE(cache.xform() == a && cache.xformInverse() == bend && cache.isLinear());
  cache.xformInverse(Linear(qcMatrix<2>(0, 0, 0, 0), Point()));
  EXPECT_THROW(cache.xform(), qcMathError::Singular);
  cache.xform(bend, false);
  EXPECT_THROW(cache.linearXform(), qcPel::NonlinearXform);
  EXPECT_TRUE(!cache.isLinear() && qc2XformCache(cache).xform() == bend && cache.clone().xform() != bend);
}

TEST(Rigid, AgreesWithItsPlainTransform) {
  Source source;
  for (int round = 0; round < 500; ++round) {
    const qc2Rigid a = source.rigid(), b = source.rigid();
    const qcXform<2> plain = a.linear(), product = plain * b.linear();
    const Point p = source.point();
    const qcRadian angle = source.angle(), turned = plain.mapAngle(angle);
    EXPECT_TRUE(qfRealEq((a * b).linear(), product, 1e-12) && a * b.linear() == product && plain * b == product);
    EXPECT_TRUE(qfRealEq(a.inverse().linear(), plain.inverse(), 1e-12));
    EXPECT_TRUE(qfRealEq(a * p, plain * p, 1e-12) && qfRealEq(a.invMapPoint(a * p), p, 1e-12));
    EXPECT_TRUE(qfRealEq(a.mapAngle(angle), turned, 1e-12) && qfRealEq(a.invMapAngle(turned), angle, 1e-12));
    // Bounds are about the motion between the two, wherever both are.
    const qc2Rigid moved = a * qc2Rigid(qcDegree(10), Point(2, -3));
    const auto within = [&](double turn, double x, double y) { return moved.isBounded(a, {qcDegree(turn), {x, y}}); };
    EXPECT_TRUE(within(-10.1, -2.1, 3.1));
    EXPECT_FALSE(within(9.9, 2.1, 3.1) || within(10.1, 1.9, 3.1) || within(10.1, 2.1, 2.9));
  }
}

const std::string kHead = headOf(kBig), kLevels(4, '\0');  // the versions of an object's levels and of the next part

std::string linear(int id) {  // (x, y) -> (x + 5, y)
  const std::string one = fromHex("3FF0000000000000"), zero(8, '\0');
  return newObject(id, "qc2XformLinear",
                   kLevels + fromHex("4014000000000000") + zero + '\0' + one + zero + zero + one + one);
}
std::string composed(int id, unsigned count) {
  return newObject(id, "qc2XformComposed", kLevels + stored(kBig, false, count));
}

TEST(Archive, RefusesCirclesAndExplosions) {
  Handle loaded, built(new qc2XformComposed);
  EXPECT_THROW(load(kHead + composed(1, 2) + linear(2) + composed(3, 1) + record(1, 0), loaded), qcArchive::BadContent);
  EXPECT_THROW(load(kHead + composed(1, 0xFFFFFFFF) + linear(2), loaded), qcArchive::Eof);
  std::string tower = kHead;  // each level holds the one below twice
  for (int level = 1; level <= 40; ++level) tower += composed(level, 2);
  tower += record(0, 0) + record(0, 0);
  for (int level = 40; level > 1; --level) tower += record(level, 0);
  EXPECT_THROW(load(tower, loaded), qcArchive::BadContent);
  for (int level = 0; level < 40; ++level) built = new qc2XformComposed(built, built, false, false);
  EXPECT_THROW(archived(kLittle, false, built), qcArchive::BadContent);
  Composition last(new qc2XformComposed);  // the same tower, built downwards
  built = last;
  for (int level = 0; level < 40; ++level) {
    const Composition below(new qc2XformComposed);
    for (int twice = 0; twice < 2; ++twice) last->postCompose(below, false);
    last = below;
  }
  EXPECT_THROW(archived(kLittle, false, built), qcArchive::BadContent);
  EXPECT_TRUE(loaded.isNull());
  qc2XformCache cache;
  EXPECT_THROW(load(kHead + '\0' + record(0, 0) + record(0, 0) + '\0', cache), qcArchive::BadContent);
}

struct Larger : Linear {
  double more[9] = {};
};
struct alignas(64) Aligned : Linear {};

// Destroyed after everything that is made on first use: transforms must still be alive, and new ones be had.
struct UntilTheEnd {
  Handle handle;
  ~UntilTheEnd() {
    if (handle && *handle->inverseBase() * Point(6, 0) != Point(1, 0)) std::abort();
  }
} untilTheEnd;

TEST(Pool, ServesThreadsDerivedClassesAndTheEndOfTheProcess) {
  untilTheEnd.handle = new Linear(qcMatrix<2>(), Point(5, 0));
  std::vector<Handle> made[4];  // each by a thread of its own, and freed by this one
  std::vector<std::thread> threads;
  for (std::vector<Handle>& mine : made) {
    threads.emplace_back([&mine, p = Point(static_cast<double>(threads.size()), 1)] {
      for (std::size_t i = 0; i < 2000; ++i) {
        mine.emplace_back(new Linear(qcMatrix<2>(), p));
        if (i % 3 == 0) mine[i / 2] = mine.back()->inverseBase()->inverseBase();
      }
    });
  }
  for (std::size_t t = 0; t < 4; ++t) {
    threads[t].join();
    for (const Handle& handle : made[t]) ASSERT_EQ(*handle * Point(), Point(static_cast<double>(t), 1));
  }
  const Handle larger(new Larger), aligned(new Aligned);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(aligned.rep()) % 64, 0u);
}

}  // namespace
