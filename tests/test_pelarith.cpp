// Pel-wise arithmetic against naive references: every pair of types, every instruction-set level, odd windows in
// watched memory, in place and elsewhere.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <type_traits>

#include "support/pelcomponents.h"
#include "support/scene.h"
#include "vnxstd/pelbuf.h"

namespace {

using namespace scene;

template <class S, class D>
struct To {
  using Source = S;
  using Destination = D;
};

// Exact in 128 bits; a shift is a division that rounds half up.
__extension__ typedef __int128 Int128;
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
constexpr auto kMin = [](auto a, auto b, auto, int) { return b < a ? b : a; };
constexpr auto kMax = [](auto a, auto b, auto, int) { return a < b ? b : a; };

/// Runs call(a, b, c, destination, bits) on random images; `formula` gives a component of the result. The destination
/// is c where that is what the function adds to.
template <class S, class D, class Call, class Formula>
void check(Call call, Formula formula, bool isAccumulated = false) {
  using Exact = std::conditional_t<std::is_floating_point_v<Component<D>>, Component<D>, Int128>;
  forEachCase([&](long width, long height, bool fillsRows) {
    const int bits = static_cast<int>(below(3) == 0 ? below(32) : below(2) * below(12));
    SCOPED_TRACE(bits);
    Scene<S> a(width, height, fillsRows), b(width, height, fillsRows);
    Scene<D> c(width, height, fillsRows), elsewhere(width, height);
    auto oldA = a, oldB = b;
    auto oldC = c;
    const auto run = [&](Scene<D>& to, long dx, long dy) {
      to.buffer.offset(dx, dy);
      auto old = to;
      call(a.buffer, b.buffer, c.buffer, to.buffer, bits);
      expectWindow<D>(to, old, [&](long x, long y) {
        auto result = old.at(x, y);
        x += dx, y += dy;
        if (x < 0 || y < 0 || x >= width || y >= height) return result;
        const auto actual = to.at(x - dx, y - dy);
        for (int i = 0; i < kComponents<D>; ++i) {
          const auto value = formula(static_cast<Exact>(component<S>(oldA.at(x, y), i)),
                                     static_cast<Exact>(component<S>(oldB.at(x, y), i)),
                                     static_cast<Exact>(component<D>(oldC.at(x, y), i)), bits);
          if (value != value && component<D>(actual, i) != component<D>(actual, i)) {
            setComponent<D>(result, i, component<D>(actual, i));  // of NaN the bits do not matter
          } else {
            setComponent<D>(result, i, saturated<D>(value, i));
          }
        }
        return result;
      });
    };
    if (isAccumulated) return run(c, 0, 0);
    const long target = below(4);
    if constexpr (std::is_same_v<S, D>) {
      if (target < 2) return run(target == 0 ? a : b, 0, 0);
    }
    target == 2 ? run(c, 0, 0) : run(elsewhere, below(3) - 1, below(3) - 1);
  });
}

template <class Types>
struct Arithmetic : testing::Test {};
using SumTypes = testing::Types<
    To<unsigned char, unsigned char>, To<unsigned char, unsigned short>, To<unsigned char, short>,
    To<unsigned char, unsigned long>, To<unsigned char, long>, To<unsigned char, float>, To<unsigned char, double>,
    To<signed char, signed char>, To<signed char, short>, To<signed char, long>, To<signed char, float>,
    To<signed char, double>, To<unsigned short, unsigned short>, To<unsigned short, unsigned long>,
    To<unsigned short, long>, To<unsigned short, float>, To<unsigned short, double>, To<short, short>, To<short, long>,
    To<short, float>, To<short, double>, To<unsigned long, unsigned long>, To<unsigned long, double>, To<long, long>,
    To<long, double>, To<float, float>, To<float, double>, To<double, double>, To<qcPair<long>, qcPair<long>>,
    To<qcPair<float>, qcPair<float>>, To<qcPackedRGB16Pel, qcPackedRGB16Pel>, To<qcPackedRGB32Pel, qcPackedRGB32Pel>>;
TYPED_TEST_SUITE(Arithmetic, SumTypes);

TYPED_TEST(Arithmetic, IsExactShiftedAndSaturated) {
  using S = typename TypeParam::Source;
  using D = typename TypeParam::Destination;
  check<S, D>([](auto& a, auto& b, auto&, auto& to, int bits) { qfPelAdd(a, b, to, bits); }, kSum);
  check<S, D>([](auto& a, auto& b, auto&, auto& to, int bits) { qfPelSub(a, b, to, bits); }, kDifference);
  check<S, D>([](auto& a, auto& b, auto&, auto& to, int bits) { qfPelMult(a, b, to, bits); }, kProduct);
  check<S, D>([](auto& a, auto& b, auto& c, auto& to, int bits) { qfPelMultAdd(a, b, c, to, bits); }, kProductSum);
  check<S, D>([](auto& a, auto&, auto&, auto& to, int bits) { qfPelSquare(a, to, bits); }, kSquare);
  check<S, D>([](auto& a, auto&, auto&, auto& to, int bits) { qfPelSquareAccum(a, to, bits); },
              [](auto a, auto, auto c, int bits) { return shifted(a * a, bits) + c; }, true);
}

TEST(PelArith, ExtremesOfColoursAndInversion) {
  const auto least = [](auto& a, auto& b, auto&, auto& to, int) { qfPelMin(a, b, to); };
  const auto largest = [](auto& a, auto& b, auto&, auto& to, int) { qfPelMax(a, b, to); };
  check<qcPackedRGB16Pel, qcPackedRGB16Pel>(least, kMin);
  check<qcPackedRGB16Pel, qcPackedRGB16Pel>(largest, kMax);
  check<qcPackedRGB32Pel, qcPackedRGB32Pel>(least, kMin);
  check<qcPackedRGB32Pel, qcPackedRGB32Pel>(largest, kMax);
  check<unsigned char, unsigned char>([](auto& a, auto&, auto&, auto& to, int) { qfPelInvert_U8(a, to); },
                                      [](auto a, auto, auto, int) { return 255 - a; });
}

// The closed list of destinations beside the sources' own type.
template <class S, class... D>
constexpr bool goTo = (qcPelHolds<S, D> && ...);
template <class S, class... D>
constexpr bool goToNone = !(qcPelHolds<S, D> || ...);
static_assert(goTo<unsigned char, unsigned short, short, unsigned long, long, float, double>);
static_assert(goTo<signed char, short, long, float, double> && goTo<float, double>);
static_assert(goTo<unsigned short, unsigned long, long, float, double> && goTo<short, long, float, double>);
static_assert(goTo<unsigned long, double> && goTo<long, double>);
static_assert(goToNone<unsigned char, signed char, qcPair<long>, qcPackedRGB32Pel, qc3PlanePel>);
static_assert(goToNone<signed char, unsigned char, unsigned short, unsigned long>);
static_assert(goToNone<unsigned short, unsigned char, short> && goToNone<short, signed char, unsigned short>);
static_assert(goToNone<long, unsigned long, float, qcPair<long>> && goToNone<unsigned long, long, float>);
static_assert(goToNone<float, long, unsigned char> && goToNone<double, float> && goToNone<qcPair<long>, qcPair<float>>);

template <class T>
struct NewImages : testing::Test {};
using ImageTypes =
    testing::Types<unsigned char, short, long, double, qcPair<float>, qcPackedRGB16Pel, qcPackedRGB32Pel, qc3PlanePel>;
TYPED_TEST_SUITE(NewImages, ImageTypes);

TYPED_TEST(NewImages, HoldWhatDestinationsDo) {
  using T = TypeParam;
  const qcPelRect window(5, -3, 9, 4);
  qcPelBuffer<T> a(window), b(window), c(window), to(window);
  for (const auto& image : {a, b, c}) {
    for (long y = -3; y < 1; ++y) {
      for (long x = 5; x < 14; ++x) image.put(x, y, anyPel<T>());
    }
  }
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
}

TEST(PelArith, PlanesAreImagesOfTheirOwn) {
  qcPelBuffer<qc3PlanePel> a(7, 5), b(7, 5), sum(7, 5);
  for (long i = 0; i < 35; ++i) {
    a.put(i % 7, i / 7, anyPel<qc3PlanePel>());
    b.put(i % 7, i / 7, anyPel<qc3PlanePel>());
  }
  b.offset(2, -1);
  qfPelClear(sum);
  qfPelAdd(a, b, sum);
  qfPelMax(a, sum, a);
  qfPelSquareAccum(b, sum, 3);
  for (int i = 0; i < 3; ++i) {
    for (long y = 0; y < 4; ++y) {
      for (long x = 2; x < 7; ++x) {
        const int second = b.planeBuffer(i).get(x, y), first = a.planeBuffer(i).get(x, y) - second;
        EXPECT_GE(first, 0);
        EXPECT_EQ(sum.planeBuffer(i).get(x, y), std::min(255, first + second + (second * second + 4) / 8));
      }
    }
    EXPECT_EQ(sum.planeBuffer(i).get(0, 0), 0);
  }
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
