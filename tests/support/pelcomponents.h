// The components of pels, one by one, for naive references of pixel functions.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "support/scene.h"
#include "vnxstd/pelbuf/pel.h"

namespace scene {

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
    for (int i = 0; i < kComponents<T>; ++i) setComponent<T>(pel, i, static_cast<Component<T>>(below(100)));
    return qcPelTraits<T>::load(pel);
  }
}

}  // namespace scene
