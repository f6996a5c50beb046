// Images in a test's own memory, guarded all around, and the sizes and instruction-set levels that pixel functions are
// tested at.
#pragma once

#include "std/pelbuf/dispatch.h"
#include "support/test.h"
#include "vnxstd/pelbuf.h"

namespace scene {

using vnxstd::simd::Level;

template <class T>
using Element = typename qcPelTraits<T>::Element;

inline std::mt19937 random_(20240611);

inline long below(long n) { return static_cast<long>(random_() % static_cast<unsigned long>(n)); }

/// One in `rarity` floating numbers is among the first `kinds` special ones; one in eight integers is an end of the
/// range or next to one or to 0.
template <class E>
E randomNumber(long rarity, long kinds) {
  if constexpr (!std::is_floating_point_v<E>) {
    constexpr E ends[] = {0, std::numeric_limits<E>::min(), std::numeric_limits<E>::max()};
    return static_cast<E>(below(8) == 0 ? static_cast<unsigned long>(ends[below(3)]) + random_() % 3 - 1 : random_());
  }
  using Limits = std::numeric_limits<double>;
  constexpr double special[] = {Limits::quiet_NaN(), -0.0, 0.0, Limits::infinity(), -Limits::infinity()};
  return static_cast<E>(below(rarity) == 0 ? special[below(kinds)] : static_cast<double>(below(2001) - 1000) / 8);
}

template <class T>
Element<T>& element(qcStoredPel<T>& pel, int i) {
  return reinterpret_cast<Element<T>*>(&pel)[i];
}

/// An image in memory of the test's own, rows padded, pels not aligned beyond their type, and a window in it.
template <class T>
struct Scene {
  using Stored = qcStoredPel<T>;
  static constexpr long kMargin = 2, kPadding = 3;

  Scene(long width, long height, bool fillsRows = false)
      : margin(fillsRows ? 0 : kMargin),
        pitch(width + 2 * margin + (fillsRows ? 0 : kPadding)),
        memory(static_cast<std::size_t>(pitch * (height + 2 * margin) + 1)) {
    const long rarity = 1 + below(2) * 7, kinds = 1 + below(5);
    for (Stored& pel : memory)
      for (int i = 0; i < qcPelTraits<T>::elements; ++i) element<T>(pel, i) = randomNumber<Element<T>>(rarity, kinds);
    buffer = qcPelBuffer<T>(
        qcPtrHandle<qcPelRoot<T>>(new qcPelRoot<T>(pitch, height + 2 * margin, pitch, memory.data() + 1, 1)));
    buffer.subWindow(margin, margin, width, height);
    buffer.offset(0, 0);
  }

  Stored& at(long x, long y) { return memory[static_cast<std::size_t>(1 + (y + margin) * pitch + x + margin)]; }
  const Stored& at(long x, long y) const { return const_cast<Scene*>(this)->at(x, y); }

  long margin, pitch;
  std::vector<Stored> memory;
  qcPelBuffer<T> buffer;
};

using Size = qcPair<long>;
inline constexpr Size kSizes[] = {{1, 1}, {3, 1}, {1, 5}, {15, 2}, {17, 3}, {64, 2}, {67, 4}, {129, 3}, {1030, 2}};

/// Runs a check at every instruction-set level that there is.
inline void forEachLevel(const std::function<void()>& check) {
  for (const Level level : {Level::Baseline, Level::Avx2, Level::Permutes}) {
    if (vnxstd::simd::setLevel(level) != level) continue;
    SCOPED_TRACE(testing::Message() << "level " << static_cast<int>(level));
    check();
  }
  vnxstd::simd::setLevel(vnxstd::simd::highest());
}

/// Runs a check for every size, in images with padding and in images that are one long row, at every level.
inline void forEachCase(const std::function<void(long width, long height, bool fillsRows)>& check) {
  forEachLevel([&] {
    for (const Size size : kSizes) {
      for (const bool fillsRows : {false, true}) {
        SCOPED_TRACE(testing::Message() << size.x() << " x " << size.y() << (fillsRows ? ", one row" : ""));
        check(size.x(), size.y(), fillsRows);
      }
    }
  });
}

/// Visits the places of a window row by row.
void forEachPel(const qcPelRect& window, const auto& visit) {
  for (long y = window.y0(); y < window.y1(); ++y)
    for (long x = window.x0(); x < window.x1(); ++x) visit(x, y);
}

/// Expects the window to be what `expected` says, and all other memory, padding included, as it was in `old`.
template <class T>
void expectWindow(Scene<T>& scene, Scene<T> old, const std::function<qcStoredPel<T>(long x, long y)>& expected) {
  forEachPel(qcPelRect(scene.buffer.width(), scene.buffer.height()),
             [&](long x, long y) { old.at(x, y) = expected(x, y); });
  EXPECT_EQ(std::memcmp(scene.memory.data(), old.memory.data(), old.memory.size() * sizeof old.memory[0]), 0);
}

/// The pel types with one array of pels, and those that are numbers.
using FlatPels = testing::Types<unsigned char, signed char, unsigned short, short, unsigned long, long, float, double,
                                qcPair<long>, qcPair<float>, qcPackedRGB16Pel, qcPackedRGB32Pel>;
using NumericPels = testing::Types<unsigned char, signed char, unsigned short, short, unsigned long, long, float,
                                   double, qcPair<long>, qcPair<float>>;

template <class T>
struct EveryPel : testing::Test {};
TYPED_TEST_SUITE(EveryPel, FlatPels);

/// Calls act(std::type_identity<T>()) for every type of a list.
template <class... T>
void forEachType(testing::Types<T...>, const auto& act) {
  (act(std::type_identity<T>()), ...);
}

}  // namespace scene
