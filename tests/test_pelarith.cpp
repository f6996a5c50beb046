// Pel-wise arithmetic against naive references: every pair of types, every instruction-set level, odd windows in
// watched memory, in place and elsewhere.

#include "support/pelcomponents.h"
#include "vnxstd/pelbuf.h"

namespace {

using namespace scene;

// Exact in 128 bits; a shift is a division that rounds half up.
Int128 shifted(Int128 value, int bits) {
  const Int128 divisor = Int128{1} << bits, sum = value + divisor / 2;
  return sum / divisor - (sum % divisor < 0 ? 1 : 0);
}
float shifted(float value, int bits) { return std::ldexp(value, -bits); }
double shifted(double value, int bits) { return std::ldexp(value, -bits); }

constexpr auto kSum = [](auto a, auto b, auto, int bits) { return shifted(a + b, bits); };
constexpr auto kDifference = [](auto a, auto b, auto, int bits) { return shifted(a - b, bits); };
constexpr auto kProduct = [](auto a, auto b, auto, int bits) { return shifted(a * b, bits); };
constexpr auto kProductSum = [](auto a, auto b, auto c, int bits) { return shifted(a * b, bits) + c; };
constexpr auto kSquare = [](auto a, auto, auto, int bits) { return shifted(a * a, bits); };

template <class S, class D>
using Exact = std::conditional_t<std::is_floating_point_v<Component<D>>, Component<D>, Int128>;

template <class S, class D, class Call, class Formula>
void check(Call call, Formula formula, bool isAccumulated = false) {
  checkPelwise<S, S, D, Exact<S, D>>(call, formula, isAccumulated);
}

TYPED_TEST(EveryPel, IsReckonedExactlyShiftedAndSaturated) {
  using S = TypeParam;
  forEachType(FlatPels(), []<class D>(std::type_identity<D>) {
    if constexpr (qcPelHolds<S, D>) {
      check<S, D>([](auto& a, auto& b, auto&, auto& to, int bits) { qfPelAdd(a, b, to, bits); }, kSum);
      check<S, D>([](auto& a, auto& b, auto&, auto& to, int bits) { qfPelSub(a, b, to, bits); }, kDifference);
      check<S, D>([](auto& a, auto& b, auto&, auto& to, int bits) { qfPelMult(a, b, to, bits); }, kProduct);
      check<S, D>([](auto& a, auto& b, auto& c, auto& to, int bits) { qfPelMultAdd(a, b, c, to, bits); }, kProductSum);
      check<S, D>([](auto& a, auto&, auto&, auto& to, int bits) { qfPelSquare(a, to, bits); }, kSquare);
      check<S, D>([](auto& a, auto&, auto&, auto& to, int bits) { qfPelSquareAccum(a, to, bits); },
                  [](auto a, auto, auto c, int bits) { return shifted(a * a, bits) + c; }, true);
    }
  });
}

TEST(PelArith, InvertsBytes) {
  check<unsigned char, unsigned char>([](auto& a, auto&, auto&, auto& to, int) { qfPelInvert_U8(a, to); },
                                      [](auto a, auto, auto, int) { return 255 - a; });
}

TEST(PelArith, NewImagesHoldWhatDestinationsDo) {
  using Types = testing::Types<unsigned char, short, long, double, qcPair<float>, qcPackedRGB16Pel, qcPackedRGB32Pel,
                               qc3PlanePel>;
  forEachType(Types(), []<class T>(std::type_identity<T>) {
    const qcPelRect window(5, -3, 9, 4);
    qcPelBuffer<T> a(window), b(window), c(window), to(window);
    for (const auto& image : {a, b, c}) forEachPel(window, [&image](long x, long y) { image.put(x, y, anyPel<T>()); });
    const auto expectEqual = [&](const qcPelBuffer<T>& image) {
      EXPECT_TRUE(qfPelEqual(image, to));
      EXPECT_EQ(image.window(), window);
    };
    for (const int bits : {0, 3}) {
      qfPelAdd(a, b, to, bits);
      expectEqual(bits ? qfPelAdd(a, b, bits) : qfPelAdd(a, b));
      qfPelSub(a, b, to, bits);
      expectEqual(bits ? qfPelSub(a, b, bits) : qfPelSub(a, b));
      qfPelMult(a, b, to, bits);
      expectEqual(bits ? qfPelMult(a, b, bits) : qfPelMult(a, b));
      qfPelMultAdd(a, b, c, to, bits);
      expectEqual(bits ? qfPelMultAdd(a, b, c, bits) : qfPelMultAdd(a, b, c));
    }
  });
}

TEST(PelArith, PlanesEachByItself) {
  expectPlanes([](const auto& image) {
    auto shifted = qfPelCopy(image), sum = qfPelCopy(image);
    shifted.offset(image.offset() + qcPair<long>(2, -1));
    qfPelAdd(image, shifted, sum);
    qfPelMax(sum, shifted, shifted);
    qfPelSquareAccum(shifted, sum, 3);
    return sum;
  });
}

TEST(PelArith, RefusesBadShiftsAndUnboundSums) {
  Scene<short> a(4, 4), b(4, 4);
  qcPelBuffer<short> unbound;
  const auto old = b.memory;
  for (const int bits : {-1, 32, std::numeric_limits<int>::min()}) {
    EXPECT_THROW(qfPelAdd(a.buffer, b.buffer, b.buffer, bits), qcPelFunc::BadParams);
    EXPECT_THROW(qfPelMult(a.buffer, b.buffer, unbound, bits), qcPelFunc::BadParams);
    EXPECT_THROW(qfPelMultAdd(a.buffer, b.buffer, b.buffer, b.buffer, bits), qcPelFunc::BadParams);
    EXPECT_THROW(qfPelSquareAccum(a.buffer, b.buffer, bits), qcPelFunc::BadParams);
  }
  EXPECT_THROW(qfPelSquareAccum(a.buffer, unbound), qcPel::UnboundWindow);
  EXPECT_FALSE(unbound.isBound());
  EXPECT_EQ(b.memory, old);
}

}  // namespace
