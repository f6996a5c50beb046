// Pixel functions that look at other pels than their own, against naive references: arranging, filtering, colours.

#include "support/pelcomponents.h"
#include "vnxstd/pelbuf.h"

namespace {

using namespace scene;

using At = qcPair<long>;

/// Expects the destination to hold, where `from` leads to a pel of the source, that pel, and nothing else to change.
/// All coordinates are image coordinates.
template <class T>
void expectMapped(Scene<T>& src, Scene<T>& dst, const std::function<At(At)>& from, const std::function<void()>& run) {
  const auto oldSrc = src, old = dst;
  run();
  expectWindow<T>(dst, old, [&](long x, long y) {
    const At at = from(At{x, y} + dst.buffer.offset());
    if (!src.buffer.window().contains(at)) return old.at(x, y);
    return oldSrc.at(at.x() - src.buffer.offset().x(), at.y() - src.buffer.offset().y());
  });
}

template <class T>
void expectSamePels(qcPelBuffer<T> image, const Scene<T>& src) {
  EXPECT_EQ(image.window(), src.buffer.window());
  const std::size_t bytes = static_cast<std::size_t>(image.width()) * sizeof(qcStoredPel<T>);
  for (long y = 0; y < image.height(); ++y)
    ASSERT_EQ(std::memcmp(image.pointToRow(y + image.offset().y()), &src.at(0, y), bytes), 0);
}

long floorDivide(long a, long b) { return std::lround(std::floor(static_cast<double>(a) / static_cast<double>(b))); }

TYPED_TEST(EveryPel, IsMirrored) {
  using T = TypeParam;
  forEachCase([](long width, long height, bool fillsRows) {
    for (const bool inPlace : {false, true}) {
      Scene<T> src(width, height, fillsRows), other(width, height, !fillsRows);
      Scene<T>& dst = inPlace ? src : other;
      src.buffer.offset(below(3) + 4, below(3) + 4);
      if (!inPlace) dst.buffer.offset(below(3) + 4, below(3) + 4);
      const qcPelRect a = src.buffer.window(), b = dst.buffer.window();
      const long left = std::max(a.x0(), b.x0()), right = std::min(a.x1(), b.x1()) - 1;
      const long top = std::max(a.y0(), b.y0()), bottom = std::min(a.y1(), b.y1()) - 1;
      const auto common = [&](At at, At mirrored) {
        return at.x() < left || at.x() > right || at.y() < top || at.y() > bottom ? At{-1, -1} : mirrored;
      };
      const auto across = [&](At at) { return common(at, At(left + right - at.x(), at.y())); };
      const auto down = [&](At at) { return common(at, At(at.x(), top + bottom - at.y())); };
      expectMapped<T>(src, dst, across, [&] { qfPelFlipH(src.buffer, dst.buffer); });
      expectMapped<T>(src, dst, down, [&] { qfPelFlipV(src.buffer, dst.buffer); });
    }
  });
}

TYPED_TEST(EveryPel, IsTransposedCornerToCorner) {
  using T = TypeParam;
  for (const Size size : {Size{1, 1}, {5, 1}, {16, 16}, {37, 70}, {131, 64}, {129, 129}, {200, 17}}) {
    Scene<T> src(size.x(), size.y()), dst(size.y() + below(5) - 2 + 2 * (size.y() < 3), size.x() + below(3));
    src.buffer.offset(below(100), below(100));
    dst.buffer.offset(below(100), below(100));
    const At corner = src.buffer.offset();
    const long side = std::min(size.x(), size.y());
    const auto turned = [&](At at) {
      return corner + At(at.y() - dst.buffer.offset().y(), at.x() - dst.buffer.offset().x());
    };
    const auto inPlace = [&](At at) {
      at -= corner;
      return corner + (at.x() < side && at.y() < side ? At{at.y(), at.x()} : at);
    };
    expectMapped<T>(src, dst, turned, [&] { qfPelTranspose(src.buffer, dst.buffer); });
    expectMapped<T>(src, src, inPlace, [&] { qfPelTranspose(src.buffer, src.buffer); });
    const qcPelBuffer<T> result = qfPelTranspose(src.buffer);
    EXPECT_EQ(result.window(), qcPelRect(corner.y(), corner.x(), size.y(), size.x()));
    expectSamePels<T>(qfPelTranspose(result), src);
  }
}

TYPED_TEST(EveryPel, IsSampledAndExpandedByImageCoordinates) {
  using T = TypeParam;
  forEachCase([](long width, long height, bool fillsRows) {
    for (const long x : {1L, 2L, 3L, 50L}) {
      const long y = 1 + below(4);
      Scene<T> src(width, height, fillsRows), sample(width / x + 3, height / y + 3),
          large(std::min(width * x, 300L), std::min(height * y + 2, 20L), fillsRows);
      src.buffer.offset(below(21) - 10, below(21) - 10);
      const At offset = src.buffer.offset();
      const auto sampled = [&](At at) { return At{at.x() * x, at.y() * y}; };
      const auto expanded = [&](At at) { return At{floorDivide(at.x(), x), floorDivide(at.y(), y)}; };
      sample.buffer.offset(floorDivide(offset.x(), x) + below(3) - 1, floorDivide(offset.y(), y) + below(3) - 1);
      expectMapped<T>(src, sample, sampled, [&] { qfPelSample(src.buffer, sample.buffer, x, y); });
      large.buffer.offset(offset.x() * x + below(2 * x + 1) - x, offset.y() * y + below(2 * y + 1) - y);
      expectMapped<T>(src, large, expanded, [&] { qfPelExpand(src.buffer, large.buffer, x, y); });

      qcPelBuffer<T> whole = qfPelExpand(src.buffer, x, y), back = qfPelSample(whole, x, y);
      EXPECT_EQ(whole.window(), qcPelRect(offset.x() * x, offset.y() * y, width * x, height * y));
      expectSamePels<T>(back, src);
    }
  });
}

TEST(PelArrange, NewImagesKeepTheClientCoordinatesOfTheirPels) {
  qcPelBuffer<short> src(qcPelRect(-5, 7, 9, 9));
  src.clientFromImageXform(qcXform<2>(qcMatrix<2>(0.5, 0.25, 0, 2), qcVector<2>(10, 20)));
  const auto client = [](const qcPelBuffer<short>& image, double x, double y) {
    return image.clientFromImageXformBase()->mapPoint({x, y});
  };
  const qcPelBuffer<short> sample = qfPelSample(src, 2, 3), large = qfPelExpand(src, 4, 8),
                           turned = qfPelTranspose(src);
  EXPECT_EQ(sample.window(), qcPelRect(-2, 3, 4, 3));  // columns -4, -2, 0 and 2, rows 9, 12 and 15
  EXPECT_EQ(client(sample, -2, 3), client(src, -4, 9));
  EXPECT_EQ(client(large, 4, 64), client(src, 1, 8));
  EXPECT_EQ(client(turned, 9, -4), client(src, -4, 9));
  src.offset(std::numeric_limits<std::int32_t>::max() - 9, 7);
  src.subWindow(4, 0, 5, 9);  // too high to lie sideways where it ends
  EXPECT_EQ(qfPelTranspose(src).window(), qcPelRect(7, src.offset().x(), 9, 5));
}

TEST(PelArrange, WindowsAndFactorsThatCannotBeAreRefused) {
  using Buffer = qcPelBuffer<unsigned char>;
  Buffer image(20, 20), shifted(image), other(5, 5), unbound, none(image);
  qfPelClear(image);
  shifted.subWindow(2, 1, 10, 10);
  shifted.offset(0, 0);
  none.subWindow(0, 3, 20, 0);
  EXPECT_THROW(qfPelFlipH(image, shifted), qcPelFunc::Overlap);
  EXPECT_THROW(qfPelTranspose(image, shifted), qcPelFunc::Overlap);
  EXPECT_THROW(qfPelSample(image, shifted, 2, 2), qcPelFunc::Overlap);
  EXPECT_THROW(qfPelExpand(image, image, 1, 2), qcPelFunc::Overlap);
  EXPECT_NO_THROW(qfPelSample(image, image, 1, 1));
  for (const At factors : {At{0, 1}, {1, 0}, {-3, 2}, {1, std::numeric_limits<long>::min()}}) {
    EXPECT_THROW(qfPelSample(image, factors.x(), factors.y()), qcPelFunc::BadParams);
    EXPECT_THROW(qfPelExpand(image, other, factors.x(), factors.y()), qcPelFunc::BadParams);
  }
  EXPECT_THROW(qfPelExpand(image, std::numeric_limits<long>::max(), 1), qcPelFunc::Range);
  EXPECT_EQ(qfPelSample(image, std::numeric_limits<long>::max(), 7).size(), At(1, 3));
  EXPECT_NO_THROW(qfPelExpand(image, other, std::numeric_limits<long>::max(), 1000000000));
  for (const auto& result :
       {qfPelSample(none, 2, 2), qfPelExpand(none, 2, 2), qfPelTranspose(none), qfPelFlipV(none)}) {
    EXPECT_TRUE(result.isBound() && result.windowRoot().isNull());
  }
  EXPECT_THROW(qfPelTranspose(unbound, other), qcPel::UnboundWindow);
  EXPECT_THROW(qfPelExpand(unbound, other, 1, 1), qcPel::UnboundWindow);
}

TEST(PelArrange, PlanesEachByItself) {
  expectPlanes([](const auto& image) { return qfPelFlipV(qfPelFlipH(image)); });
  expectPlanes([](const auto& image) { return qfPelTranspose(image); });
  expectPlanes([](const auto& image) { return qfPelExpand(qfPelSample(image, 2, 3), 3, 2); });
  expectPlanes([](auto image) {
    image = qfPelSpatialAvg(image, 4, 3, 2);
    qfPelSmooth(image, image, 2, 1);
    qfPelMedian3x3(image, image);
    return image;
  });
}

/// The sum in a type that holds every one exactly; and how it becomes a pel.
template <class E>
using Sum = std::conditional_t<std::is_floating_point_v<E>, double, Int128>;

template <class E>
E shifted(Int128 sum, int shift) {
  const Int128 divisor = Int128{1} << shift, doubled = 2 * sum + divisor;
  Int128 result = doubled / (2 * divisor);
  if (doubled < 0 && doubled % (2 * divisor) != 0) --result;
  return static_cast<E>(std::clamp<Int128>(result, std::numeric_limits<E>::min(), std::numeric_limits<E>::max()));
}

template <class E>
E shifted(double sum, int shift) {
  return static_cast<E>(sum / std::pow(2.0, shift));
}

/// Gives a number of the source relative to the pel in question.
template <class S>
using Near = std::function<Component<S>(long dx, long dy)>;

/// Runs a filter elsewhere and in place, at every level, and expects what the reference makes of each neighbourhood.
template <class S, class D>
void expectFiltered(const Size& size, const qcPelRect& shape,
                    const std::function<void(const qcPelBuffer_const<S>&, qcPelBuffer<D>&)>& filter,
                    const std::function<Component<D>(const Near<S>&)>& reference, bool hasNan = true) {
  forEachLevel([&] {
    for (const bool inPlace : {false, true}) {
      if (inPlace && !std::is_same_v<S, D>) continue;
      SCOPED_TRACE(testing::Message() << size.x() << " x " << size.y() << " by " << shape.width() << " x "
                                      << shape.height() << " in place " << inPlace);
      Scene<S> src(size.x(), size.y(), !inPlace && below(2) == 0);
      Scene<D> other(size.x(), size.y());
      src.buffer.offset(10, 20);
      other.buffer.offset(10 + below(5) - 2, 20 + below(5) - 2);
      for (qcStoredPel<S>& pel : src.memory)
        for (int i = 0; i < kComponents<S>; ++i)
          if (component<S>(pel, i) != component<S>(pel, i) && !hasNan) setComponent<S>(pel, i, 0);
      const Scene<S> old = src;
      const auto check = [&](Scene<D>& dst, qcPelBuffer<D> target) {
        const Scene<D> before = dst;
        filter(src.buffer, target);
        expectWindow<D>(dst, before, [&](long x, long y) {
          qcStoredPel<D> pel = dst.at(x, y);
          const At at = At{x, y} + dst.buffer.offset();
          const qcPelRect window = src.buffer.window();
          const bool isInside = target.window().contains(at) && at.x() + shape.x0() >= window.x0() &&
                                at.y() + shape.y0() >= window.y0() && at.x() + shape.x1() <= window.x1() &&
                                at.y() + shape.y1() <= window.y1();
          if (!isInside) return before.at(x, y);
          for (int i = 0; i < kComponents<D>; ++i) {
            const auto near = [&](long dx, long dy) {
              return component<S>(old.at(at.x() + dx - 10, at.y() + dy - 20), i);
            };
            const auto expected = saturated<D>(reference(near), i), actual = component<D>(pel, i);
            const bool isSame = actual == expected || (actual != actual && expected != expected);
            if (!isSame) setComponent<D>(pel, i, expected);
          }
          return pel;
        });
      };
      if constexpr (std::is_same_v<S, D>) {
        if (inPlace) {
          qcPelBuffer<D> part(src.buffer);
          const At cut{below(size.x() > 1 ? 2 : 1), below(size.y() > 1 ? 2 : 1)};
          part.subWindow(cut, size - cut);
          check(src, part);
          continue;
        }
      }
      check(other, other.buffer);
    }
  });
}

template <class S, class D>
void expectBoxSums() {
  using E = Component<D>;
  struct {
    Size image;
    long width, height, shift;
  } cases[] = {{{1, 1}, 1, 1, 0},     {{70, 3}, 2, 3, 1},    {{133, 5}, 3, 3, 3},   {{19, 20}, 1, 8, 2},
               {{50, 17}, 15, 15, 8}, {{40, 19}, 17, 16, 9}, {{140, 3}, 33, 2, 31}, {{64, 12}, 8, 5, 16},
               {{3, 3}, 4, 2, 0},     {{1100, 2}, 6, 2, 3}};
  for (const auto& box : cases) {
    const long width = box.width, height = box.height, shift = box.shift;
    expectFiltered<S, D>(
        box.image, qcPelRect(-((width - 1) / 2), -((height - 1) / 2), width, height),
        [&](const auto& src, auto& dst) { qfPelSpatialAvg(src, dst, width, height, shift); },
        [&](const Near<S>& near) {
          Sum<E> sum = 0;
          for (long y = 0; y < height; ++y)
            for (long x = 0; x < width; ++x) sum += near(x - (width - 1) / 2, y - (height - 1) / 2);
          return shifted<E>(sum, static_cast<int>(shift));
        });
  }
}

template <class... S>
void expectBoxSumsAmong() {
  const auto into = []<class D>(D) { (expectBoxSums<S, D>(), ...); };
  (into(S()), ...);
}

TEST(PelSpatialAvg, SumsOfBoxesBetweenAllTypes) {
  expectBoxSumsAmong<unsigned char, signed char, unsigned short, short, unsigned long, long>();
  expectBoxSumsAmong<float, double>();
  expectBoxSumsAmong<qcPair<long>>();
  expectBoxSumsAmong<qcPair<float>>();
  expectBoxSumsAmong<qcPackedRGB16Pel>();
  expectBoxSumsAmong<qcPackedRGB32Pel>();
}

TYPED_TEST(EveryPel, HasBinomialAverages) {
  using T = TypeParam;
  using E = Component<T>;
  for (const qcPair<int> half :
       {qcPair<int>(0, 0), {1, 1}, {2, 2}, {0, 3}, {4, 0}, {3, 4}, {15, 0}, {2, 15}, {15, 15}}) {
    if (std::is_floating_point_v<E> && half.x() + half.y() > 6) continue;  // not exact in any order
    const auto weight = [](long n, long k) {
      qcInt64 product = 1;
      for (long i = 1; i <= k; ++i) product = product * (2 * n - i + 1) / i;
      return product;
    };
    expectFiltered<T, T>(
        Size(half.x() + half.y() < 10 ? 131 : 67, 2 * half.y() + 3),
        qcPelRect(-half.x(), -half.y(), 2 * half.x() + 1, 2 * half.y() + 1),
        [&](const auto& src, auto& dst) { qfPelSmooth(src, dst, half.x(), half.y()); },
        [&](const Near<T>& near) {
          Sum<E> sum = 0;
          for (int y = -half.y(); y <= half.y(); ++y) {
            for (int x = -half.x(); x <= half.x(); ++x) {
              const qcInt64 factor = weight(half.x(), x + half.x()) * weight(half.y(), y + half.y());
              sum += static_cast<Sum<E>>(factor) * near(x, y);
            }
          }
          return shifted<E>(sum, 2 * (half.x() + half.y()));
        });
  }
}

TYPED_TEST(EveryPel, HasMediansOfThreeByThree) {
  using T = TypeParam;
  for (const Size size : {Size{3, 3}, {2, 5}, {35, 4}, {67, 5}, {131, 3}, {300, 7}})
    expectFiltered<T, T>(
        size, qcPelRect(-1, -1, 3, 3), [](const auto& src, auto& dst) { qfPelMedian3x3(src, dst); },
        [](const Near<T>& near) {
          std::vector<Component<T>> values;
          for (long i = 0; i < 9; ++i) values.push_back(near(i % 3 - 1, i / 3 - 1));
          std::ranges::sort(values);
          return values[4];
        },
        false);
}

TEST(PelFilter, LargestSumsDoNotOverflow) {
  forEachType(testing::Types<float, double>(), []<class T>(std::type_identity<T>) {
    const T most = std::numeric_limits<T>::max();
    qcPelBuffer<T> image(9, 9), result(9, 9);
    qfPelSet(image, most);
    for (const qcPair<int> half : {qcPair<int>(0, 0), {1, 0}, {3, 0}, {0, 1}, {0, 3}, {1, 1}, {2, 3}}) {
      qfPelSmooth(image, result, half.x(), half.y());
      EXPECT_EQ(result.get(4, 4), most) << half.x() << ' ' << half.y();
    }
    for (const long width : {1L, 4L}) {
      qfPelSpatialAvg(image, result, width, 4, width == 1 ? 2 : 4);
      EXPECT_EQ(result.get(4, 4), most) << width;
    }
  });
}

using Components = std::array<int, 4>;  // red, green, blue, alpha

Components components(unsigned char pel) { return {pel, pel, pel, 255}; }
Components components(qcPackedRGB16Pel pel) { return {pel.r(), pel.g(), pel.b(), 255}; }
Components components(qcPackedRGB32Pel pel) { return {pel.r(), pel.g(), pel.b(), pel.a()}; }
Components components(qc3PlanePel pel) { return {pel.plane0(), pel.plane1(), pel.plane2(), 255}; }

TEST(PelFilter, RefusesWhatCannotBe) {
  using Buffer = qcPelBuffer<unsigned char>;
  Buffer image(40, 40), unbound, other(40, 40), shifted(image), apart(image);
  const long most = std::numeric_limits<std::int32_t>::max();
  for (const At box : {At{0, 1}, {1, 0}, {-1, -1}, {most, 2}, {std::numeric_limits<long>::max(), 2}})
    EXPECT_THROW(qfPelSpatialAvg(image, other, box.x(), box.y(), 0), qcPelFunc::BadParams);
  for (const long shift : {-1L, 32L}) EXPECT_THROW(qfPelSpatialAvg(image, 3, 3, shift), qcPelFunc::BadParams);
  for (const qcPair<int> half : {qcPair<int>(-1, 1), {1, -1}, {16, 0}, {0, 16}})
    EXPECT_THROW(qfPelSmooth(image, other, half.x(), half.y()), qcPelFunc::BadParams);
  EXPECT_THROW(qfPelMedian3x3(unbound, other), qcPel::UnboundWindow);
  const qcPelBuffer<unsigned char> none = qfPelSpatialAvg(image, 41, 1, 0), whole = qfPelSpatialAvg(image, most, 1, 31);
  EXPECT_TRUE(none.isBound() && none.windowRoot().isNull() && whole.isBound() && whole.windowRoot().isNull());
  other.offset(most - 40, 0);  // the middle of a wide box would lie beyond all coordinates
  EXPECT_TRUE(qfPelSpatialAvg(other, 100, 1, 0).windowRoot().isNull());
  EXPECT_NO_THROW(qfPelSpatialAvg(other, image, 100, 1, 0));
  shifted.subWindow(0, 0, 20, 20);
  shifted.offset(5, 5);  // five pels away from where its pels lie in the image
  EXPECT_THROW(qfPelMedian3x3(image, shifted), qcPelFunc::Overlap);
  image.subWindow(0, 0, 20, 40);
  apart.subWindow(21, 0, 19, 40);
  apart.offset(1, 0);  // beside the source: nothing in common
  EXPECT_NO_THROW(qfPelMedian3x3(image, apart));
  apart.offset(21, 0);
  apart.window(19, 0, 21, 40, false);  // its first column is the source's last, which no neighbourhood is around
  EXPECT_NO_THROW(qfPelSmooth(image, apart, 1, 1));
}

/// What the colour must become: what the type has no room for is cut off.
template <class D>
Components stored(Components colour) {
  const auto [r, g, b, a] = colour;
  if constexpr (std::is_same_v<D, unsigned char>) {
    const int grey = (299 * r + 587 * g + 114 * b + 500) / 1000;
    return {grey, grey, grey, 255};
  } else if constexpr (std::is_same_v<D, qcPackedRGB16Pel>) {
    return {r & 0xf8, g & 0xfc, b & 0xf8, 255};
  } else {
    return {r, g, b, std::is_same_v<D, qcPackedRGB32Pel> ? a : 255};
  }
}

template <class S, class D>
void expectConverted() {
  forEachCase([](long width, long height, bool) {
    qcPelBuffer<S> src(qcPelRect(-3, 5, width + 2, height));
    forEachPel(src.window(), [&](long x, long y) { src.put(x, y, anyPel<S>()); });
    const D guard = anyPel<D>();
    qcPelBuffer<D> dst(qcPelRect(-2, 4, width, height));
    qfPelSet(dst, guard);
    qfConvertColorPelBuffer(src, dst);
    forEachPel(dst.window(), [&](long x, long y) {
      const auto expected = y < 5 ? components(guard) : stored<D>(components(src.get(x, y)));
      ASSERT_EQ(components(dst.get(x, y)), expected) << x << ' ' << y;
    });
  });
}

TEST(PelColour, BetweenAllTypes) {
  const auto among = []<class... T>(T...) {
    const auto into = []<class D>(D) { (expectConverted<T, D>(), ...); };
    (into(T()), ...);
  };
  among(static_cast<unsigned char>(0), qcPackedRGB16Pel(), qcPackedRGB32Pel(), qc3PlanePel());
}

TEST(PelColour, GreyOfEveryColour) {
  qcPelBuffer<qcPackedRGB32Pel> colours(4096, 256);
  qcPelBuffer<unsigned char> greys;
  for (std::uint32_t red = 0; red < 256; red += 16) {  // sixteen reds at a time
    for (std::uint32_t i = 0; i < 1u << 20; ++i) colours.rep()->pels()[i] = qcPackedRGB32Pel::fromWord((red << 16) + i);
    qfConvertColorPelBuffer(colours, greys);
    for (std::uint32_t i = 0; i < 1u << 20; ++i)
      ASSERT_EQ(greys.rep()->pels()[i],
                (299 * (red + (i >> 16)) + 587 * (i >> 8 & 255) + 114 * (i & 255) + 500) / 1000);
  }
}

TEST(PelColour, PlanesOfTheOtherImage) {
  qcPelBuffer<qc3PlanePel> planes(qcPelRect(2, 3, 40, 5));
  qfPelSet(planes, {10, 200, 30});
  qcPelBuffer<unsigned char> green = planes.planeBuffer(1), shifted = green;
  shifted.offset(3, 3);
  EXPECT_THROW(qfConvertColorPelBuffer(planes, shifted), qcPelFunc::Overlap);
  EXPECT_THROW(qfConvertColorPelBuffer(shifted, planes), qcPelFunc::Overlap);
  EXPECT_EQ(planes.get(41, 7), qc3PlanePel(10, 200, 30));
  qfConvertColorPelBuffer(planes, green);
  EXPECT_EQ(planes.get(41, 7), qc3PlanePel(10, 124, 30));  // 2.99 + 117.4 + 3.42
  qfConvertColorPelBuffer(green, planes);
  EXPECT_EQ(planes.get(2, 3), qc3PlanePel(124, 124, 124));
}

}  // namespace
