// Pels divided by values, standard deviations over series, and look-up tables, against naive references.

#include "support/pelcomponents.h"
#include "vnxstd/pelbuf.h"

namespace {

using namespace scene;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
/// Whole, fractional and extreme divisors, one for every number of bits.
constexpr double kDivisors[32] = {1,      2,    3,     7,     10,   128,  129, 255,      256,    257,      510,
                                  511,    1000, 65535, 65536, 1e6,  -1,   -2,  -10,      -70000, -32768,   1e10,
                                  0x1p40, 2.5,  0.1,   -0.75, 1e-9, 1e20, 2.1, -1 / 3.0, 1e-30,  kInfinity};

/// For whole divisors that fit, in integers: the truncated or rounded quotient.
Int128 wholeQuotient(Int128 x, Int128 d, bool isRounded) {
  const Int128 size = d < 0 ? -d : d, magnitude = x < 0 ? -x : x;
  const Int128 q = isRounded ? (2 * magnitude + size) / (2 * size) : magnitude / size;
  return (x < 0) != (d < 0) ? -q : q;
}

Int128 quotient(Int128 x, double d, bool isRounded) {
  if (d == std::floor(d) && std::fabs(d) < 1e18) return wholeQuotient(x, static_cast<Int128>(d), isRounded);
  const double q = std::clamp(static_cast<double>(x) / d, -1e12, 1e12);
  return static_cast<Int128>(isRounded ? std::round(q) : std::trunc(q));
}

TYPED_TEST(EveryPel, IsDividedTruncatedOrRoundedAndSaturated) {
  using S = TypeParam;
  const auto check = []<class D>(bool isRounded, std::type_identity<D>) {
    checkPelwise<S, S, D, Component<S>>(
        [=](auto& src, auto&, auto&, auto& to, int i) { qfPelDivideByVal(src, to, kDivisors[i], isRounded); },
        [=](auto x, auto, auto, int i) {
          const double d = kDivisors[i];
          if constexpr (!std::is_floating_point_v<Component<D>>) {
            return quotient(x, d, isRounded);
          } else if constexpr (std::is_same_v<Component<D>, float> &&
                               (sizeof x <= 2 || std::is_same_v<decltype(x), float>)) {
            return static_cast<float>(x) / static_cast<float>(d);
          } else {
            return static_cast<Component<D>>(static_cast<double>(x) / d);
          }
        });
  };
  forEachType(FlatPels(), [&]<class D>(std::type_identity<D> type) {
    if constexpr (qcPelQuotient<S, D>)
      for (int round = 0; round < 6; ++round) check(round % 2 == 1, type);
  });
}

// Every 8-bit quotient, and 16-bit ones next to the multiples and halves of the divisor.
TEST(Division, ByWholeNumbersIsExact) {
  qcPelBuffer<unsigned char> bytes(256, 1);
  for (int i = 0; i < 256; ++i) bytes.put(i, 0, static_cast<unsigned char>(i));
  qcPelBuffer<unsigned short> words(60, 1), wordQuotients(60, 1);
  for (long d = 1; d < 70000; d += d < 600 ? 1 : 1 + below(400)) {
    for (long i = 0; i < 60; ++i) {
      const long near = d * below(65536 / d + 2) / (1 + i % 2) + below(3) - 1;
      words.put(i, 0, static_cast<unsigned short>(std::clamp(near, 0L, 65535L)));
    }
    for (const bool isRounded : {false, true}) {
      const auto quotients = qfPelDivideByVal(bytes, static_cast<double>(d), isRounded);
      for (int i = 0; d < 600 && i < 256; ++i)
        ASSERT_EQ(quotients.get(i, 0), static_cast<unsigned char>(wholeQuotient(i, d, isRounded))) << i << " / " << d;
      qfPelIntDivideByVal(words, wordQuotients, d, isRounded);
      for (int i = 0; i < 60; ++i)
        ASSERT_EQ(wordQuotients.get(i, 0), static_cast<unsigned short>(wholeQuotient(words.get(i, 0), d, isRounded)))
            << words.get(i, 0) << " / " << d;
    }
  }
}

TEST(Division, RefusesWhatIsNoDivisor) {
  Scene<float> floats(5, 5);
  Scene<unsigned char> bytes(5, 5);
  const auto old = bytes.memory;
  for (const double d : {0.0, -0.0, std::nan("")}) {
    EXPECT_THROW(qfPelDivideByVal(bytes.buffer, bytes.buffer, d), qcPelFunc::BadParams);
    EXPECT_THROW(qfPelDivideByVal(floats.buffer, d), qcPelFunc::BadParams);
  }
  EXPECT_THROW(qfPelDivideByVal(floats.buffer, 1e-60), qcPelFunc::BadParams);
  qcPelBuffer<short> words(3, 3);
  EXPECT_THROW(qfPelIntDivideByVal(words, words, 0, true), qcPelFunc::BadParams);
  EXPECT_EQ(bytes.memory, old);
}

template <class A, class B, class D>
struct Series {
  using Sum = A;
  using Squares = B;
  using Result = D;
};
template <class Types>
struct Deviation : testing::Test {};
using DeviationTypes = testing::Types<
    Series<unsigned char, unsigned char, unsigned char>, Series<signed char, signed char, signed char>,
    Series<unsigned short, unsigned short, unsigned short>, Series<short, short, short>, Series<long, long, long>,
    Series<float, float, float>, Series<qcPair<long>, qcPair<long>, qcPair<long>>,
    Series<qcPair<float>, qcPair<float>, qcPair<float>>, Series<unsigned short, unsigned long, unsigned char>,
    Series<unsigned long, unsigned long, unsigned short>, Series<unsigned long, unsigned long, unsigned long>,
    Series<long, unsigned long, float>, Series<unsigned long, double, double>, Series<long, double, unsigned char>,
    Series<double, double, unsigned short>, Series<double, double, double>>;
TYPED_TEST_SUITE(Deviation, DeviationTypes);

// The reference takes the images of the series one by one.
TYPED_TEST(Deviation, IsThatOfTheSeries) {
  using A = typename TypeParam::Sum;
  using B = typename TypeParam::Squares;
  using D = typename TypeParam::Result;
  forEachCase([](long width, long height, bool fillsRows) {
    const bool isWide = std::is_same_v<B, double> && below(2) == 0;
    const long images = isWide ? 2 + below(30) : 2 + below(2), values = isWide ? 30000 : 6;
    Scene<A> sums(width, height, fillsRows);
    Scene<B> squares(width, height, fillsRows);
    Scene<D> to(width, height);
    std::vector<double> roots;
    forEachPel(qcPelRect(width, height), [&](long x, long y) {
      for (int i = 0; i < kComponents<A>; ++i) {
        std::vector<double> series(static_cast<std::size_t>(images));
        double sum = 0, square = 0, deviations = 0;
        for (double& value : series) {
          value = static_cast<double>(below(values));
          sum += value, square += value * value;
        }
        for (const double value : series) deviations += std::pow(value - sum / static_cast<double>(images), 2);
        const bool isNegative = below(10) == 0;  // sums that contradict each other
        setComponent<A>(sums.at(x, y), i, static_cast<Component<A>>(sum));
        setComponent<B>(squares.at(x, y), i, static_cast<Component<B>>(isNegative ? 0 : square));
        roots.push_back(isNegative ? 0 : std::sqrt(deviations / static_cast<double>(images - 1)));
      }
    });
    auto old = to;
    qfPelStandardDeviation(sums.buffer, squares.buffer, images, to.buffer);
    expectWindow<D>(to, old, [&](long x, long y) {
      const auto actual = to.at(x, y);
      for (int i = 0; i < kComponents<D>; ++i) {
        using C = Component<D>;
        const double root = roots[static_cast<std::size_t>((y * width + x) * kComponents<D> + i)];
        const double limited =
            std::is_integral_v<C> ? std::min(root, static_cast<double>(std::numeric_limits<C>::max())) : root;
        const double slack = std::is_integral_v<C> ? 0.5 + 1e-9 : root * 1e-6 + 1e-9;
        EXPECT_NEAR(static_cast<double>(component<D>(actual, i)), limited, slack);
      }
      return actual;
    });
  });
}

TEST(Deviation, NeedsTwoImages) {
  qcPelBuffer<double> sums(2, 2), to;
  qfPelSet(sums, 3);
  for (const long images : {1L, 0L, -5L})
    EXPECT_THROW(qfPelStandardDeviation(sums, sums, images, to), qcPelFunc::BadParams);
  EXPECT_FALSE(to.isBound());
  sums.put(0, 0, std::nan(""));
  sums.put(1, 0, 1e200);  // less than no variance, without end
  qcPelBuffer<unsigned char> bytes;
  qfPelStandardDeviation(sums, sums, 2, bytes);
  EXPECT_EQ(bytes.get(0, 0), 255);
  EXPECT_EQ(bytes.get(1, 0), 0);
  qcPelBuffer<unsigned long> whole(2, 1);
  qfPelClear(whole);
  qfPelSet(sums, -1e308);  // ten times that has no end
  qfPelStandardDeviation(whole, sums, 10, bytes);
  EXPECT_EQ(qfPelMax(bytes), 0);
}

template <class Types>
struct Map : testing::Test {};
using MapTypes =
    testing::Types<To<unsigned char, unsigned char>, To<unsigned char, short>, To<unsigned char, long>,
                   To<unsigned char, double>, To<unsigned char, qcPackedRGB32Pel>, To<signed char, signed char>,
                   To<signed char, qcPair<float>>, To<unsigned short, unsigned short>,
                   To<unsigned short, unsigned char>, To<short, qcPackedRGB16Pel>, To<unsigned long, float>,
                   To<long, qcPair<long>>, To<long, long>>;
TYPED_TEST_SUITE(Map, MapTypes);

TYPED_TEST(Map, TakesEntriesOrRefuses) {
  using S = typename TypeParam::Source;
  using D = typename TypeParam::Destination;
  forEachCase([](long width, long height, bool fillsRows) {
    const long largest = sizeof(S) == 1 ? static_cast<long>(std::numeric_limits<Element<S>>::max()) : 299,
               entries = 1 + below(below(2) * 300 + 1);
    std::vector<D> table;
    for (long i = 0; i < entries; ++i) table.push_back(anyPel<D>());
    Scene<S> src(width, height, fillsRows);
    Scene<D> elsewhere(width, height);
    for (auto& pel : src.memory) pel = static_cast<qcStoredPel<S>>(below(std::min(entries, largest + 1)));
    const bool hasNegative = std::is_signed_v<S> && below(2) == 0, canExceed = entries <= largest || hasNegative;
    const auto run = [&](auto& to, bool isFlagged) {
      auto before = src;
      auto old = to;
      bool isBeyond = true;
      isFlagged ? qfPelMap(src.buffer, table, to.buffer, isBeyond) : qfPelMap(src.buffer, table, to.buffer);
      expectWindow<D>(to, old, [&](long x, long y) {
        const auto value = static_cast<std::size_t>(before.at(x, y));  // a negative one becomes large
        return qcPelTraits<D>::store(table[std::min(value, table.size() - 1)]);
      });
      return isBeyond;
    };
    EXPECT_TRUE(run(elsewhere, false));
    EXPECT_FALSE(run(elsewhere, true));
    if (canExceed) {
      src.at(below(width), below(height)) = static_cast<qcStoredPel<S>>(hasNegative ? -1
                                                                        : below(2)  ? largest
                                                                                    : entries);
      auto old = elsewhere;
      EXPECT_THROW(qfPelMap(src.buffer, table, elsewhere.buffer), qcPelFunc::Range);
      expectWindow<D>(elsewhere, old, [&](long x, long y) { return old.at(x, y); });
      EXPECT_TRUE(run(elsewhere, true));
    }
    if constexpr (std::is_same_v<S, D>) {
      EXPECT_EQ(run(src, true), canExceed);
    }
  });
}

TEST(Map, ColoursByComponents) {
  const std::vector<unsigned char> table{10, 20, 30, 40};
  qcPelBuffer<qc3PlanePel> planes(2, 1);
  qfPelSet(planes, {0, 1, 2});
  qcPelBuffer<qcPackedRGB32Pel> packed(2, 1);
  qfPelSet(packed, {3, 0, 1, 2});
  EXPECT_EQ(qfPelMap(planes, table).get(1, 0), qc3PlanePel(10, 20, 30));
  EXPECT_EQ(qfPelMap(packed, table).get(1, 0), qcPackedRGB32Pel(40, 10, 20, 30));
  planes.put(1, 0, {0, 1, 200});  // beyond in the last plane only
  EXPECT_THROW(qfPelMap(planes, table, planes), qcPelFunc::Range);
  EXPECT_EQ(planes.get(0, 0), qc3PlanePel(0, 1, 2));
  bool isBeyond = false;
  EXPECT_EQ(qfPelMap(planes, table, isBeyond).get(1, 0), qc3PlanePel(10, 20, 40));
  EXPECT_TRUE(isBeyond);

  qcPelBuffer<unsigned short> grey(2, 1);
  qfPelSet(grey, 1);
  const std::vector<qc3PlanePel> colours{{1, 2, 3}, {4, 5, 6}};
  EXPECT_EQ(qfPelMap(grey, colours).get(0, 0), qc3PlanePel(4, 5, 6));

  for (int own = 0; own < 3; ++own) {  // the source is a plane of the destination
    qfPelSet(planes, {1, 1, 1});
    qcPelBuffer<unsigned char> plane = planes.planeBuffer(own);
    qfPelMap(plane, colours, planes);
    EXPECT_EQ(planes.get(1, 0), qc3PlanePel(4, 5, 6));
    qcPelBuffer<qc3PlanePel> image(3, 1), right(image);
    qfPelClear(image);
    right.subWindow(1, 0, 2, 1);
    right.offset(0, 0);
    EXPECT_THROW(qfPelMap(image.planeBuffer(own), colours, right), qcPelFunc::Overlap);
  }
}

TEST(Map, EmptyTablesAndEntriesThatDoNotFit) {
  qcPelBuffer<unsigned char> image(3, 3), none(image);
  qfPelClear(image);
  none.subWindow(1, 1, 0, 2);
  const std::vector<float> empty;
  bool isBeyond = true;
  EXPECT_THROW(qfPelMap(image, empty), qcPelFunc::Range);
  EXPECT_THROW(qfPelMap(image, empty, isBeyond), qcPelFunc::Range);
  EXPECT_FALSE(isBeyond);
  EXPECT_EQ(qfPelMap(none, empty, isBeyond).width(), 0);
  EXPECT_EQ(qfPelMap(none, std::vector<unsigned char>()).width(), 0);
  if (sizeof(long) > 4) {
    EXPECT_THROW(qfPelMap(image, std::vector<long>{0, std::numeric_limits<long>::max()}), qcPelFunc::Range);
  }
}

}  // namespace
