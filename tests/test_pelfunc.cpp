// The free pixel functions against naive references: every pel type, odd and misaligned windows, every instruction-set
// level, with all pels around the window guarded.

#include "support/pelcomponents.h"
#include "vnxstd/pelbuf.h"

namespace {

using namespace scene;

TYPED_TEST(EveryPel, FillsChangeTheirPelsAndNothingElse) {
  using T = TypeParam;
  forEachCase([](long width, long height, bool fillsRows) {
    Scene<T> scene(width, height, fillsRows);
    auto old = scene;
    const auto stored = scene.memory.back();
    const T value = qcPelTraits<T>::load(stored);
    qfPelBorderSet(scene.buffer, value);
    expectWindow<T>(scene, old, [&](long x, long y) {
      return x == 0 || y == 0 || x == width - 1 || y == height - 1 ? stored : old.at(x, y);
    });
    qfPelSet(scene.buffer, value);
    expectWindow<T>(scene, old, [&](long, long) { return stored; });
    qfPelClear(scene.buffer);
    expectWindow<T>(scene, old, [](long, long) { return qcStoredPel<T>{}; });
  });
}

TYPED_TEST(EveryPel, CopiesWriteTheCommonPelsAndAreEqual) {
  using T = TypeParam;
  forEachCase([](long width, long height, bool fillsRows) {
    Scene<T> src(width, height, fillsRows), dst(width, height, !fillsRows);
    const long dx = below(3) - 1, dy = below(3) - 1;
    dst.buffer.offset(dx, dy);
    auto old = dst;
    qfPelCopy(src.buffer, dst.buffer);
    expectWindow<T>(dst, old, [&](long x, long y) {
      const bool isCommon = x + dx >= 0 && x + dx < width && y + dy >= 0 && y + dy < height;
      return isCommon ? src.at(x + dx, y + dy) : old.at(x, y);
    });
    qfPelSet(src.buffer, T());  // no NaN
    qcPelBuffer<T> copy = qfPelCopy(src.buffer);
    EXPECT_TRUE(qfPelEqual(src.buffer, copy));
    element<T>(*copy.pointToPel(below(width), below(height)), qcPelTraits<T>::elements - 1) = 1;
    EXPECT_FALSE(qfPelEqual(src.buffer, copy));
  });
}

TYPED_TEST(EveryPel, MovesWithinOneImageAreAsIfThroughACopy) {
  using T = TypeParam;
  for (int round = 0; round < 200; ++round) {
    Scene<T> scene(20, 15, round % 2 == 1);
    const long width = below(12), height = below(10), fromX = below(8), fromY = below(5), toX = below(8),
               toY = below(5);
    qcPelBuffer<T> from(scene.buffer), to(scene.buffer);
    from.subWindow(fromX, fromY, width, height);
    to.subWindow(toX, toY, width, height);
    to.offset(from.offset());
    auto old = scene;
    qfPelMove(from, to);
    expectWindow<T>(scene, old, [&](long x, long y) {
      const bool isMoved = x >= toX && x < toX + width && y >= toY && y < toY + height;
      return isMoved ? old.at(x - toX + fromX, y - toY + fromY) : old.at(x, y);
    });
  }
}

TYPED_TEST(EveryPel, ExtremesOfAWindow) {
  using T = TypeParam;
  using C = Component<T>;
  forEachCase([](long width, long height, bool fillsRows) {
    Scene<T> scene(width, height, fillsRows);
    T lo, hi;
    qfPelMinmax(scene.buffer, lo, hi);
    for (int i = 0; i < kComponents<T>; ++i) {  // NaN is passed over, zeros have no sign
      std::vector<C> values;
      forEachPel(qcPelRect(width, height), [&](long x, long y) {
        const C value = component<T>(scene.at(x, y), i);
        if (value == value) values.push_back(value == 0 ? 0 : value);
      });
      const C results[] = {component<T>(qcPelTraits<T>::store(lo), i), component<T>(qcPelTraits<T>::store(hi), i)};
      if (values.empty()) {
        EXPECT_TRUE(results[0] != results[0] && results[1] != results[1]);
        continue;
      }
      const auto [min, max] = std::ranges::minmax(values);
      const C expected[] = {min, max};
      EXPECT_EQ(std::memcmp(results, expected, sizeof results), 0) << results[0] << ' ' << results[1];
    }
  });
}

TYPED_TEST(EveryPel, PelwiseExtremesAlsoInPlace) {
  using T = TypeParam;
  using X = std::conditional_t<std::is_integral_v<Component<T>>, Int128, Component<T>>;
  const auto least = [](X a, X b, X, int) { return a != a || b < a ? b : a; };  // NaN is passed over
  const auto largest = [](X a, X b, X, int) { return a != a || b > a ? b : a; };
  for (int round = 0; round < 4; ++round) {  // each with a random target
    checkPelwise<T, T, T, X>([](auto& a, auto& b, auto&, auto& to, int) { qfPelMin(a, b, to); }, least);
    checkPelwise<T, T, T, X>([](auto& a, auto& b, auto&, auto& to, int) { qfPelMax(a, b, to); }, largest);
  }
}

TEST(PelFunc, HistogramsAccumulateAndDropWhatDoesNotFit) {
  using Types = testing::Types<unsigned char, signed char, unsigned short, short>;
  forEachType(Types(), []<class T>(std::type_identity<T>) {
    for (const Size size : {Size{1, 1}, Size{13, 7}, Size{67, 40}, Size{400, 300}}) {
      for (const int bits : {2, 7, 16}) {
        Scene<T> scene(size.x(), size.y(), bits == 7);
        for (auto& pel : scene.memory) pel = static_cast<T>(pel >> std::max(0, static_cast<int>(8 * sizeof(T)) - bits));
        std::vector<unsigned long> expected(65536);
        for (long i = 0; i < size.x() * size.y(); ++i)
          ++expected[static_cast<std::size_t>(scene.at(i % size.x(), i / size.x()) - std::numeric_limits<T>::min())];
        while (expected.back() == 0) expected.pop_back();
        const std::size_t used = expected.size();
        std::vector<unsigned long> counts;
        bool dropped;
        qfPelHistogram(scene.buffer, counts, dropped);
        EXPECT_EQ(counts, expected);
        EXPECT_FALSE(dropped);
        counts.resize(used - 1);  // no room for the largest value
        qfPelHistogram(scene.buffer, counts, dropped);
        EXPECT_EQ(dropped, used > 1);
        ASSERT_EQ(counts.size(), used == 1 ? 1 : used - 1);
        for (std::size_t i = 0; i + 1 < used; ++i) ASSERT_EQ(counts[i], 2 * expected[i]) << i;
      }
    }
  });
}

TEST(PelFunc, WindowsThatOverlapOtherwiseThanExactlyAreRefused) {
  Scene<unsigned char> scene(40, 40), other(40, 40);
  const auto before = scene.memory;
  qcPelBuffer<unsigned char> src(scene.buffer), dst(scene.buffer);
  src.subWindow(15, 15, 10, 10);
  for (const qcPair<long> shift : {qcPair<long>(1, 0), {0, 1}, {-3, 2}, {9, -9}}) {
    dst = scene.buffer;
    dst.subWindow(src.offset() + shift, {10, 10});
    dst.offset(src.offset());
    EXPECT_THROW(qfPelCopy(src, dst), qcPelFunc::Overlap);
    EXPECT_THROW(qfPelMax(src, other.buffer, dst), qcPelFunc::Overlap);
    EXPECT_THROW(qfPelMin(other.buffer, src, dst), qcPelFunc::Overlap);
    EXPECT_EQ(dst.window(), src.window());
  }
  dst.offset(100, 100);  // nothing in common in image coordinates
  EXPECT_NO_THROW(qfPelCopy(src, dst));
  EXPECT_EQ(dst.window(), qcPelRect(100, 100, 10, 10));
  dst.offset(dst.offsetRoot() - src.offsetRoot() + src.offset());  // the common pels are the same pels
  EXPECT_NO_THROW(qfPelCopy(src, dst));
  EXPECT_EQ(scene.memory, before);
  dst = scene.buffer;
  dst.subWindow(25, 15, 10, 10);  // the common pels lie side by side
  dst.offset(15, 15);
  src = scene.buffer;
  src.subWindow(15, 15, 20, 10);
  EXPECT_NO_THROW(qfPelCopy(src, dst));
  src.subWindow(0, 0, 10, 10);
  EXPECT_TRUE(qfPelEqual(src, dst));
}

TEST(PelFunc, ResultsAreBoundWhereTheFirstSourceLies) {
  Scene<float> a(12, 9), b(12, 9);
  a.buffer.offset(100, 50);
  b.buffer.offset(104, 48);
  const qcXform<2> half(qcMatrix<2>(0.5, 0, 0, 0.5), qcVector<2>(1, 2));
  a.buffer.clientFromImageXform(half);
  qcPelBuffer<float> common = qfPelMin(a.buffer, b.buffer);
  EXPECT_EQ(common.window(), qcPelRect(104, 50, 8, 7));
  EXPECT_EQ(common.clientFromImageXform(), half);

  b.buffer.offset(500, 500);  // nothing in common
  qcPelBuffer<float> none = qfPelMax(a.buffer, b.buffer), unbound, target;
  EXPECT_TRUE(none.isBound() && none.rep()->width() == 0);
  EXPECT_THROW(qfPelMin(a.buffer, unbound, target), qcPel::UnboundWindow);
  EXPECT_FALSE(target.isBound());
  EXPECT_THROW(qfPelAlloc(unbound, target, 3, 3), qcPel::UnboundWindow);
  EXPECT_TRUE(qfPelAlloc(a.buffer, target, 3, 4));
  EXPECT_EQ(target.window(), qcPelRect(100, 50, 3, 4));
  EXPECT_FALSE(qfPelAlloc(a.buffer, target, 5, 5));
  EXPECT_EQ(target.width(), 3);
}

TEST(PelFunc, PreparersLimitAllWindowsOrNone) {
  using Buffer = qcPelBuffer<unsigned char>;
  const Buffer a(qcPelRect(0, 0, 10, 10)), b(qcPelRect(4, 2, 10, 10)), c(qcPelRect(0, 5, 8, 10)),
      d(qcPelRect(-5, 0, 12, 9));
  for (const auto prepare : {qfPelPrepare_2s2d, qfPelPrepare_3s1d}) {
    Buffer w(a), x(b), y(c), z(d), unbound;
    EXPECT_THROW(prepare(w, unbound, y, z), qcPel::UnboundWindow);
    EXPECT_EQ(w.window(), a.window());
    prepare(w, x, y, z);
    for (const Buffer* each : {&w, &x, &y, &z}) EXPECT_EQ(each->window(), qcPelRect(4, 5, 3, 4));
    Buffer shifted(a);
    shifted.offset(1, 1);
    w = a;
    EXPECT_NO_THROW(prepare(w, shifted, y, unbound));  // sources may overlap
    EXPECT_THROW(prepare(w, x, y, shifted), qcPelFunc::Overlap);
    EXPECT_THROW(qfPelPrepare_2s2d(x, y, w, shifted), qcPelFunc::Overlap);
  }
  for (const auto prepare : {qfPelPrepare_1s1d, qf_PelPrepareMove}) {
    Buffer column(a), unbound;
    column.subWindow(2, 1, 0, 3);
    prepare(column, unbound);
    EXPECT_EQ(column.window(), qcPelRect(2, 1, 0, 3));
    EXPECT_THROW(prepare(unbound, column), qcPel::UnboundWindow);
  }
}

TEST(PelFunc, NoShareCopiesOnlyWhatIsShared) {
  Scene<short> scene(9, 4);
  qcPelBuffer<short> other(scene.buffer);
  other.offset(30, 40);
  qfPelNoShare(other);
  EXPECT_TRUE(!other.sharesPels(scene.buffer) && qfPelEqual(other, scene.buffer));
  EXPECT_EQ(other.offset(), qcPair<long>(30, 40));

  qcPelBuffer<qc3PlanePel> planes(4, 4);
  const auto* const root = planes.rep();
  qfPelNoShare(planes);
  EXPECT_EQ(planes.rep(), root);
  const auto plane = planes.planeBuffer(1);
  qfPelNoShare(planes);
  EXPECT_NE(planes.rep(), root);
}

TEST(PelFunc, ThreePlanesTogether) {
  qcPelBuffer<qc3PlanePel> image(7, 5), window(image), moved(image);
  window.subWindow(2, 1, 4, 3);
  moved.subWindow(1, 1, 4, 3);
  moved.offset(window.offset());
  qfPelClear(image);
  qfPelSet(window, {10, 20, 30});
  qfPelBorderSet(image, {1, 2, 3});
  for (int i = 0; i < 3; ++i) {
    std::vector<unsigned long> counts, expected(static_cast<std::size_t>(10 * i + 11));
    qfPelHistogram(image.planeBuffer(i), counts);
    expected[0] = 3, expected[static_cast<std::size_t>(i + 1)] = 20, expected.back() = 12;
    EXPECT_EQ(counts, expected);
  }
  EXPECT_TRUE(qfPelMin(image) == qc3PlanePel(0, 0, 0) && qfPelMax(image) == qc3PlanePel(10, 20, 30));
  qcPelBuffer<qc3PlanePel> copy = qfPelCopy(window);
  EXPECT_THROW(qfPelCopy(window, moved), qcPelFunc::Overlap);
  qfPelMove(window, moved);
  EXPECT_TRUE(qfPelEqual(copy, moved));
  copy.put(2, 1, {10, 20, 31});
  EXPECT_FALSE(qfPelEqual(copy, moved));
}

TEST(PelFunc, EmptyWindowsAndValuesThatDoNotFit) {
  qcPelBuffer<unsigned short> image(5, 4), none(image);
  none.subWindow(5, 0, 0, 4);
  std::vector<unsigned long> counts;
  qfPelHistogram(none, counts);
  EXPECT_TRUE(counts.empty());
  EXPECT_THROW(qfPelMin(none), qcPelFunc::BadParams);
  EXPECT_FALSE(qfPelEqual(image, none));
  qcPelBuffer<unsigned short> flat(image);
  flat.subWindow(0, 4, 5, 0);
  EXPECT_FALSE(qfPelEqual(flat, none));  // neither has a pel, yet their sizes differ
  EXPECT_THROW(qfPelEqual(qcPelBuffer<qc3PlanePel>(5, 4), qcPelBuffer<qc3PlanePel>()), qcPel::UnboundWindow);

  qcPelBuffer<long> words(3, 3);
  qfPelClear(words);
  if (sizeof(long) > 4) {
    EXPECT_THROW(qfPelBorderSet(words, std::numeric_limits<long>::max()), qcPelFunc::Range);
    EXPECT_EQ(qfPelMax(words), 0);
  }
  qcPelBuffer<double> zeros(5, 1), minus(5, 1);
  qfPelSet(zeros, 0.0);
  qfPelSet(minus, -0.0);
  EXPECT_TRUE(qfPelEqual(zeros, minus));
  zeros.put(4, 0, std::nan(""));
  EXPECT_FALSE(qfPelEqual(zeros, zeros));
}

class Sum : public qc_Kernel_2s1d<unsigned char, unsigned char, long> {
 public:
  void run(const unsigned char* a, const unsigned char* b, std::int32_t* to, std::ptrdiff_t count) override {
    ++runs;
    for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = a[i] + b[i];
  }
  int runs = 0;
};

TEST(PelFunc, AppliersRunRowsOrOneLongRow) {
  Scene<unsigned char> rows(6, 4), row(6, 4, true);
  qfPelSet(rows.buffer, 200);
  qfPelSet(row.buffer, 100);
  Scene<long> to(6, 4, true);
  Sum sum;
  rows.buffer.offset(3, 2);
  EXPECT_EQ(qf_PelApply_2s1d(rows.buffer, row.buffer, to.buffer, sum), qcPelRect(3, 2, 6, 4));
  EXPECT_TRUE(sum.runs == 4 && qfPelMin(to.buffer) == 300);
  qf_PelApply_2s1d(row.buffer, row.buffer, to.buffer, sum);
  EXPECT_TRUE(sum.runs == 5 && qfPelMax(to.buffer) == 200);
  to.buffer.subWindow(0, 0, 5, 4);
  EXPECT_THROW(qf_PelApply_2s1d(rows.buffer, row.buffer, to.buffer, sum), qcPelFunc::BadParams);
}

TEST(PelFunc, Prints) {
  qcPelBuffer<signed char> bytes(qcPelRect(-2, 7, 3, 2));
  qfPelSet(bytes, 5);
  bytes.put(-1, 8, -128);
  qcPelBuffer<qcPair<float>> pairs(2, 1);
  qfPelSet(pairs, {0.1f, 1e30f});
  std::wostringstream stream;
  qfPelPrint(bytes, stream);
  qfPelPrint(pairs, stream);
  qfPelPrint(qcPelBuffer<float>(), stream);
  EXPECT_EQ(stream.str(),
            L"3 x 2 at (-2, 7)\n   5    5    5\n   5 -128    5\n"
            L"2 x 1 at (0, 0)\n(0.1, 1e+30) (0.1, 1e+30)\nunbound\n");
}

}  // namespace
