// A pair of numbers: integer coordinates and sizes in pixels, and the vector-valued pels.
#pragma once

#include <cstring>
#include <type_traits>

#include "vnxstd/archive/compound.h"
#include "vnxstd/export.h"

class qcArchive;

/// Two numbers of one type, x before y in memory and in archives. A plain value.
/// Arithmetic on integers wraps around at the width of T, it never overflows into undefined behaviour.
template <class T>
class VNXSTD_EXPORT qcPair {
 public:
  static_assert(std::is_arithmetic_v<T>, "qcPair holds two numbers");
  using value_type = T;

  constexpr qcPair() = default;
  constexpr qcPair(T x, T y) : x_(x), y_(y) {}
  /// Converts element by element, as static_cast does. Floating values do not convert to integers: say how to round,
  /// for instance by qfIFloor.
  template <class U>
  requires(std::is_floating_point_v<T> || std::is_integral_v<U>) constexpr explicit qcPair(const qcPair<U>& other)
      : x_(static_cast<T>(other.x())), y_(static_cast<T>(other.y())) {}

  constexpr T x() const { return x_; }
  constexpr T y() const { return y_; }
  constexpr void x(T x) { x_ = x; }
  constexpr void y(T y) { y_ = y; }

  constexpr qcPair& operator+=(const qcPair& other) { return *this = *this + other; }
  constexpr qcPair& operator-=(const qcPair& other) { return *this = *this - other; }
  constexpr qcPair& operator*=(T factor) { return *this = *this * factor; }
  constexpr qcPair operator-() const { return qcPair() - *this; }

  friend constexpr qcPair operator+(const qcPair& a, const qcPair& b) {
    return {result(wide(a.x_) + wide(b.x_)), result(wide(a.y_) + wide(b.y_))};
  }
  friend constexpr qcPair operator-(const qcPair& a, const qcPair& b) {
    return {result(wide(a.x_) - wide(b.x_)), result(wide(a.y_) - wide(b.y_))};
  }
  friend constexpr qcPair operator*(const qcPair& a, T factor) {
    return {result(wide(a.x_) * wide(factor)), result(wide(a.y_) * wide(factor))};
  }
  friend constexpr qcPair operator*(T factor, const qcPair& a) { return a * factor; }
  friend constexpr bool operator==(const qcPair&, const qcPair&) = default;

  /// Stores or loads x and y by the archive's operator for T, without a version byte.
  friend qcArchive& operator||(qcArchive& archive, qcPair& pair) {
    qcPair copy = pair;
    archive || copy.x_;
    const qcArchiveCompound compound(archive);
    archive || copy.y_;
    if (std::memcmp(&copy, &pair, sizeof copy) != 0) pair = copy;  // storing only reads, as other threads may do
    return archive;
  }

 private:
  // Integers are computed unsigned and at least as wide as int, so that they wrap.
  static constexpr auto wide(T value) {
    if constexpr (std::is_integral_v<T>) {
      return static_cast<std::make_unsigned_t<decltype(value + 0)>>(value);
    } else {
      return value;
    }
  }
  template <class W>
  static constexpr T result(W value) {
    return static_cast<T>(value);
  }

  T x_ = 0;
  T y_ = 0;
};
