// The families of pixel functions in every shape and for every type that they are meant for: what is missing does not
// compile or link. Clear images stay clear through all of them.

#include <concepts>

#include "support/scene.h"
#include "vnxstd/pelbuf.h"

namespace {

using scene::forEachType;
using testing::Types;
using Words = Types<unsigned char, signed char, unsigned short, short>;
using Integers = Types<unsigned char, signed char, unsigned short, short, unsigned long, long>;
using Colours = Types<unsigned char, qcPackedRGB16Pel, qcPackedRGB32Pel, qc3PlanePel>;
using All = Types<unsigned char, signed char, unsigned short, short, unsigned long, long, float, double, qcPair<long>,
                  qcPair<float>, qcPackedRGB16Pel, qcPackedRGB32Pel, qc3PlanePel>;

template <class T>
qcPelBuffer<T> clear(long width = 6, long height = 6) {
  qcPelBuffer<T> image(width, height);
  qfPelClear(image);
  return image;
}

template <class... T>
void expectClear(const qcPelBuffer<T>&... images) {
  const auto expect = []<class E>(const qcPelBuffer<E>& image) {
    EXPECT_TRUE(qfPelEqual(image, clear<E>(image.width(), image.height()))) << qfPelTypeName(qcPelTraits<E>::type);
  };
  (expect(images), ...);
}

/// Runs forms that write to a destination, each with a new one.
template <class D, class... Form>
void expectClearOf(const Form&... form) {
  const auto run = [](const auto& each) {
    qcPelBuffer<D> to;
    each(to);
    expectClear(to);
  };
  (run(form), ...);
}

TEST(PelTable, FillingCopyingAndArranging) {
  forEachType(All(), []<class T>(std::type_identity<T>) {
    auto a = clear<T>();
    qfPelSet(a, T());
    qfPelBorderSet(a, T());
    expectClearOf<T>([&](auto& to) { qfPelCopy(a, to); }, [&](auto& to) { qfPelMove(a, to); },
                     [&](auto& to) { qfPelAlloc(a, to, 2, 3), qfPelClear(to); }, [&](auto& to) { qfPelFlipH(a, to); },
                     [&](auto& to) { qfPelFlipV(a, to); }, [&](auto& to) { qfPelTranspose(a, to); },
                     [&](auto& to) { qfPelSample(a, to, 2, 3); }, [&](auto& to) { qfPelExpand(a, to, 2, 3); },
                     [&](auto& to) { qfPelSpatialAvg(a, to, 3, 3, 1); }, [&](auto& to) { qfPelSmooth(a, to, 1, 2); },
                     [&](auto& to) { qfPelMedian3x3(a, to); });
    expectClear(qfPelCopy(a), qfPelFlipH(a), qfPelFlipV(a), qfPelTranspose(a), qfPelSample(a, 2, 3),
                qfPelExpand(a, 2, 3), qfPelSpatialAvg(a, 3, 3, 1));
    std::wostringstream text;
    qfPelPrint(a, text);
    EXPECT_FALSE(text.str().empty());
    qcPelBuffer<T> shared(a);
    qfPelNoShare(shared);
    EXPECT_FALSE(shared.sharesPels(a));
  });
}

TEST(PelTable, Measuring) {
  forEachType(All(), []<class T>(std::type_identity<T>) {
    T lo, hi;
    qfPelMinmax(clear<T>(), lo, hi);
    EXPECT_TRUE(lo == T() && hi == T() && qfPelMin(clear<T>()) == T() && qfPelMax(clear<T>()) == T());
  });
  forEachType(Words(), []<class T>(std::type_identity<T>) {
    std::vector<unsigned long> counts;
    bool dropped;
    qfPelHistogram(clear<T>(), counts);
    qfPelHistogram(clear<T>(), counts, dropped);
    EXPECT_EQ(counts.back(), 72u);
  });
}

TEST(PelTable, Arithmetic) {
  forEachType(All(), []<class S>(std::type_identity<S>) {
    const auto a = clear<S>(), b = clear<S>();
    expectClearOf<S>([&](auto& to) { qfPelMin(a, b, to); }, [&](auto& to) { qfPelMax(a, b, to); });
    expectClear(qfPelMin(a, b), qfPelMax(a, b), qfPelAdd(a, b), qfPelAdd(a, b, 1), qfPelSub(a, b), qfPelSub(a, b, 1),
                qfPelMult(a, b), qfPelMult(a, b, 1), qfPelDivideByVal(a, 3));
    forEachType(All(), [&]<class D>(std::type_identity<D>) {
      if constexpr (qcPelHolds<S, D>) {
        const auto c = clear<D>();
        expectClearOf<D>([&](auto& to) { qfPelAdd(a, b, to); }, [&](auto& to) { qfPelAdd(a, b, to, 1); },
                         [&](auto& to) { qfPelSub(a, b, to); }, [&](auto& to) { qfPelSub(a, b, to, 1); },
                         [&](auto& to) { qfPelMult(a, b, to); }, [&](auto& to) { qfPelMult(a, b, to, 1); },
                         [&](auto& to) { qfPelMultAdd(a, b, c, to); }, [&](auto& to) { qfPelMultAdd(a, b, c, to, 1); },
                         [&](auto& to) { qfPelSquare(a, to, 1); },
                         [&](auto& to) { to = clear<D>(), qfPelSquareAccum(a, to, 1); });
        expectClear(qfPelMultAdd(a, b, c), qfPelMultAdd(a, b, c, 1));
      }
      if constexpr (qcPelQuotient<S, D>) {
        expectClearOf<D>([&](auto& to) { qfPelDivideByVal(a, to, 3); },
                         [&](auto& to) { qfPelDivideByVal(a, to, 3, true); });
        if constexpr (std::integral<S> && sizeof(S) == 2 && std::integral<D>) {
          expectClearOf<D>([&](auto& to) { qfPelIntDivideByVal(a, to, 3, true); });
        }
      }
    });
  });
  forEachType(scene::NumericPels(), []<class T>(std::type_identity<T>) {
    expectClearOf<T>([&](auto& to) { qfPelStandardDeviation(clear<T>(), clear<T>(), 2, to); });
  });
}

// Rows are sources and columns destinations, in the order of All: s for sums and products, q for quotients, b for both.
TEST(PelTable, DestinationsOfEverySource) {
  std::string table;
  forEachType(All(), [&]<class S>(std::type_identity<S>) {
    forEachType(All(), [&]<class D>(std::type_identity<D>) {
      table += ".sqb"[(qcPelHolds<S, D> ? 1 : 0) + (qcPelQuotient<S, D> ? 2 : 0)];
    });
    table += '\n';
  });
  EXPECT_EQ(table,
            "b.ssssbb.....\n"
            ".b.s.sbb.....\n"
            "q.b.ssbb.....\n"
            "qq.b.sbb.....\n"
            "q.q.b.qb.....\n"
            "qqqq.bqb.....\n"
            "......bb.....\n"
            "......qb.....\n"
            "........b....\n"
            ".........b...\n"
            "..........b..\n"
            "...........b.\n"
            "............b\n");
}

TEST(PelTable, MapsAndColours) {
  const auto maps = []<class S, class E>(const qcPelBuffer<S>& a, const std::vector<E>& table) {
    bool isBeyond;
    expectClearOf<qcPelMapped<S, E>>([&](auto& to) { qfPelMap(a, table, to); },
                                     [&](auto& to) { qfPelMap(a, table, to, isBeyond); });
    expectClear(qfPelMap(a, table), qfPelMap(a, table, isBeyond));
  };
  forEachType(Integers(), [&]<class S>(std::type_identity<S>) {
    forEachType(All(), [&]<class E>(std::type_identity<E>) { maps(clear<S>(), std::vector<E>(1)); });
  });
  maps(clear<qcPackedRGB32Pel>(), std::vector<unsigned char>(1));
  maps(clear<qc3PlanePel>(), std::vector<unsigned char>(1));
  forEachType(Colours(), []<class S>(std::type_identity<S>) {
    forEachType(Colours(), []<class D>(std::type_identity<D>) {
      qcPelBuffer<D> to;
      qfConvertColorPelBuffer(clear<S>(), to);
      if constexpr (!std::same_as<D, qcPackedRGB32Pel>) expectClear(to);  // which gets an alpha
    });
  });
}

TEST(PelTable, Bytes) {
  const auto a = clear<unsigned char>(), white = qfPelInvert_U8(a);
  EXPECT_EQ(qfPelMin(white), 255);
  qfPelSet_U8(a, 255);
  expectClearOf<unsigned char>([&](auto& to) { qfPelInvert_U8(white, to); });
  EXPECT_TRUE(qfPelEqual(a, white));
  qcPelBuffer<unsigned char> flipped;
  qfPelFlipV_U8(a, flipped);
  EXPECT_TRUE(qfPelEqual(a, flipped));
}

}  // namespace
