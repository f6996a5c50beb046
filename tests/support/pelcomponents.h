// The components of pels, one by one, and pel-wise functions against naive references.
#pragma once

#include "support/scene.h"
#include "vnxstd/pelbuf/pel.h"

namespace scene {

__extension__ typedef __int128 Int128;

template <class T>
inline constexpr bool kIsColour = std::is_same_v<T, qcPackedRGB16Pel> || std::is_same_v<T, qcPackedRGB32Pel>;
template <class T>
using Component = std::conditional_t<kIsColour<T>, unsigned char, Element<T>>;

template <class T>
inline constexpr int kComponents = qcPelTraits<T>::elements;
template <>
inline constexpr int kComponents<qcPackedRGB16Pel> = 3;
template <>
inline constexpr int kComponents<qcPackedRGB32Pel> = 4;

/// The types that a function reads and writes.
template <class S, class D>
struct To {
  using Source = S;
  using Destination = D;
};

/// Where a component of a colour lies in its word.
struct Field {
  int shift;
  unsigned mask;
};
template <class T>
Field field(int i) {
  constexpr Field fields[] = {{11, 31}, {5, 63}, {0, 31}};
  return std::is_same_v<T, qcPackedRGB16Pel> ? fields[i % 3] : Field{8 * i, 255};
}

template <class T>
Component<T> component(qcStoredPel<T> pel, int i) {
  if constexpr (kIsColour<T>) {
    return static_cast<unsigned char>(pel.word() >> field<T>(i).shift & field<T>(i).mask);
  } else {
    return element<T>(pel, i);
  }
}

template <class T>
void setComponent(qcStoredPel<T>& pel, int i, Component<T> value) {
  if constexpr (kIsColour<T>) {
    const auto [shift, mask] = field<T>(i);
    using Word = decltype(pel.word());
    pel = T::fromWord(static_cast<Word>((pel.word() & ~(mask << shift)) | static_cast<unsigned>(value) << shift));
  } else {
    element<T>(pel, i) = value;
  }
}

/// What a component becomes of an exact value: an integer the nearest that there is.
template <class T, class V>
Component<T> saturated(V value, int i) {
  if constexpr (!std::is_floating_point_v<Component<T>>) {
    using Limits = std::numeric_limits<Component<T>>;
    const V least = Limits::min(), most = kIsColour<T> ? static_cast<V>(field<T>(i).mask) : V(Limits::max());
    value = std::clamp(value, least, most);
  }
  return static_cast<Component<T>>(value);
}

/// A pel of random finite components.
template <class T>
T anyPel() {
  if constexpr (std::is_same_v<T, qc3PlanePel>) {
    return {anyPel<unsigned char>(), anyPel<unsigned char>(), anyPel<unsigned char>()};
  } else {
    qcStoredPel<T> pel{};
    for (int i = 0; i < kComponents<T>; ++i)
      setComponent<T>(pel, i, static_cast<Component<T>>(below(kIsColour<T> ? field<T>(i).mask + 1 : 256u)));
    return qcPelTraits<T>::load(pel);
  }
}

/// Runs call(a, b, c, destination, bits) on random images, where c is of the destination's type and bits are 0 to 31;
/// `formula` gives a component of the result from those of a, b and c as numbers of type X. The destination is one of
/// the three or elsewhere; it is c where that is what the function adds to.
template <class A, class B, class D, class X, class Call, class Formula>
void checkPelwise(Call call, Formula formula, bool isAccumulated = false) {
  forEachCase([&](long width, long height, bool fillsRows) {
    const int bits = static_cast<int>(below(3) == 0 ? below(32) : below(2) * below(12));
    SCOPED_TRACE(bits);
    Scene<A> a(width, height, fillsRows);
    Scene<B> b(width, height, fillsRows);
    Scene<D> c(width, height, fillsRows), elsewhere(width, height);
    auto oldA = a;
    auto oldB = b;
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
          const auto value =
              formula(static_cast<X>(component<A>(oldA.at(x, y), i)), static_cast<X>(component<B>(oldB.at(x, y), i)),
                      static_cast<X>(component<D>(oldC.at(x, y), i)), bits);
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
    if constexpr (std::is_same_v<A, D> && std::is_same_v<B, D>) {
      if (target < 2) return run(target == 0 ? a : b, 0, 0);
    }
    target == 2 ? run(c, 0, 0) : run(elsewhere, below(3) - 1, below(3) - 1);
  });
}

/// Runs a function on a 3-plane image, and expects of every plane what the 8-bit function makes of it.
void expectPlanes(const auto& function) {
  qcPelBuffer<qc3PlanePel> image(qcPelRect(3, 4, 21, 17));
  const auto byte = [] { return randomNumber<unsigned char>(1, 1); };
  forEachPel(image.window(), [&](long x, long y) { image.put(x, y, {byte(), byte(), byte()}); });
  qcPelBuffer<qc3PlanePel> result = function(image);
  for (int plane = 0; plane < 3; ++plane) {
    const auto expected = function(image.planeBuffer(plane));
    EXPECT_EQ(result.window(), expected.window());
    EXPECT_TRUE(qfPelEqual(result.planeBuffer(plane), expected));
  }
}

}  // namespace scene
