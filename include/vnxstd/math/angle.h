// Angles: in radians, in degrees, and in 1/256 and 1/65536 of a turn.
#pragma once

#include <cmath>
#include <compare>
#include <concepts>
#include <cstdint>

#include "vnxstd/export.h"
#include "vnxstd/math/error.h"
#include "vnxstd/math/scalar.h"

class qcArchive;
class qcRadian;
class qcDegree;
class qcAngle8;
class qcAngle16;

/// What qcRadian and qcDegree have in common. `Angle` is the class itself, `turn` its name for a full turn.
/// Arithmetic is that of the plain numbers and never reduces; comparisons are exact, so that a full turn and 0
/// differ. Radians and degrees do not mix in one operation: convert one of them first.
template <class Angle>
class qc_RealAngle {
 public:
  /// The number of units of the class.
  constexpr double plain() const { return value_; }

  /// The angle reduced into [0, full turn): fmod, then one full turn added when negative. A negative angle so
  /// small that the sum would round to the full turn gives 0. NaN for NaN and infinite angles.
  Angle norm() const {
    double r = std::fmod(value_, Angle::turn);
    if (r < 0) r += Angle::turn;
    return Angle(r >= Angle::turn ? 0.0 : r);
  }

  /// The angle reduced into [-half turn, half turn); an angle that lies there already is returned unchanged.
  Angle signedNorm() const {
    if (-Angle::turn / 2 <= value_ && value_ < Angle::turn / 2) return Angle(value_);
    const double r = norm().plain();
    return Angle(Angle::turn - r <= r ? r - Angle::turn : r);
  }

  constexpr Angle& operator+=(const Angle& other) { return assign(value_ + other.plain()); }
  constexpr Angle& operator-=(const Angle& other) { return assign(value_ - other.plain()); }
  constexpr Angle& operator*=(double factor) { return assign(value_ * factor); }
  constexpr Angle& operator/=(double divisor) { return assign(value_ / divisor); }
  constexpr Angle operator-() const { return Angle(-value_); }

  friend constexpr Angle operator+(const Angle& a, const Angle& b) { return Angle(a.plain() + b.plain()); }
  friend constexpr Angle operator-(const Angle& a, const Angle& b) { return Angle(a.plain() - b.plain()); }
  friend constexpr Angle operator*(const Angle& a, double factor) { return Angle(a.plain() * factor); }
  friend constexpr Angle operator*(double factor, const Angle& a) { return Angle(a.plain() * factor); }
  friend constexpr Angle operator/(const Angle& a, double divisor) { return Angle(a.plain() / divisor); }
  friend constexpr double operator*(const Angle& a, const Angle& b) { return a.plain() * b.plain(); }
  friend constexpr double operator/(const Angle& a, const Angle& b) { return a.plain() / b.plain(); }
  friend constexpr bool operator==(const Angle& a, const Angle& b) { return a.plain() == b.plain(); }
  friend constexpr auto operator<=>(const Angle& a, const Angle& b) { return a.plain() <=> b.plain(); }
  friend Angle abs(const Angle& a) { return Angle(std::fabs(a.plain())); }

  /// True when the angles differ by at most eps, in the units of the class, whole turns ignored.
  friend bool qfRealEq(const Angle& a, const Angle& b, double eps) {
    return std::fabs((a - b).signedNorm().plain()) <= eps;
  }

 protected:
  constexpr qc_RealAngle() = default;
  constexpr explicit qc_RealAngle(double value) : value_(value) {}

 private:
  constexpr Angle& assign(double value) {
    value_ = value;
    return static_cast<Angle&>(*this);
  }

  double value_ = 0;
};

/// What qcAngle8 and qcAngle16 have in common: an unsigned fraction of a turn that wraps at a full turn.
/// Comparisons and divisions are on the unsigned numbers, so that 0 is less than the angle just below a full turn.
template <class Angle, std::unsigned_integral Raw>
class qc_FixedAngle {
 public:
  /// The number of units, and the same as a double. It is not a number of radians.
  constexpr Raw plain() const { return value_; }
  constexpr double toDouble() const { return value_; }

  constexpr Angle operator-() const { return make(0u - value_); }
  constexpr Angle& operator+=(const Angle& other) { return assign(self() + other); }
  constexpr Angle& operator-=(const Angle& other) { return assign(self() - other); }
  constexpr Angle& operator*=(std::integral auto factor) { return assign(self() * factor); }
  constexpr Angle& operator/=(std::integral auto divisor) { return assign(self() / divisor); }

  friend constexpr Angle operator+(const Angle& a, const Angle& b) { return make(unit(a) + unit(b)); }
  friend constexpr Angle operator-(const Angle& a, const Angle& b) { return make(unit(a) - unit(b)); }
  /// The product, truncated to the width.
  friend constexpr Angle operator*(const Angle& a, std::integral auto factor) {
    return make(unit(a) * static_cast<unsigned long long>(factor));
  }
  friend constexpr Angle operator*(std::integral auto factor, const Angle& a) { return a * factor; }
  friend constexpr Angle operator*(const Angle& a, const Angle& b) { return make(unit(a) * unit(b)); }
  /// The unsigned quotient; a negative divisor counts as the large unsigned number of the same bits. Division
  /// by zero throws qcMathError::DivisionByZero.
  friend constexpr Angle operator/(const Angle& a, std::integral auto divisor) {
    if (divisor == 0) qf_throwDivisionByZero();
    return make(unit(a) / static_cast<unsigned long long>(divisor));
  }
  friend constexpr unsigned operator/(const Angle& a, const Angle& b) {
    if (b.plain() == 0) qf_throwDivisionByZero();
    return static_cast<unsigned>(unit(a) / unit(b));
  }
  friend constexpr bool operator==(const Angle& a, const Angle& b) { return a.plain() == b.plain(); }
  friend constexpr auto operator<=>(const Angle& a, const Angle& b) { return a.plain() <=> b.plain(); }

 protected:
  constexpr qc_FixedAngle() = default;
  constexpr explicit qc_FixedAngle(Raw value) : value_(value) {}
  /// The nearest unit of a number of units, halves upwards, wrapped. What does not fit 32 bits, and NaN, give 0.
  static Raw nearest(double units) {
    return static_cast<Raw>(static_cast<std::uint32_t>(qc_math::convert32(std::floor(units + 0.5))));
  }

 private:
  static constexpr unsigned long long unit(const qc_FixedAngle& a) { return a.value_; }
  static constexpr Angle make(unsigned long long value) { return Angle(static_cast<Raw>(value)); }
  constexpr const Angle& self() const { return static_cast<const Angle&>(*this); }
  constexpr Angle& assign(const Angle& a) {
    value_ = a.plain();
    return static_cast<Angle&>(*this);
  }

  Raw value_ = 0;
};

/// An angle in radians, held as a double.
class VNXSTD_EXPORT qcRadian : public qc_RealAngle<qcRadian> {
 public:
  static constexpr double turn = 6.283185307179586;  ///< a full turn
  static constexpr double perDegree = 0.017453292519943295;

  constexpr qcRadian() = default;
  constexpr explicit qcRadian(double radians) : qc_RealAngle(radians) {}
  constexpr qcRadian(const qcDegree& degrees);
  constexpr explicit qcRadian(const qcAngle8& angle);
  constexpr explicit qcRadian(const qcAngle16& angle);
};

/// An angle in degrees, held as a double.
class VNXSTD_EXPORT qcDegree : public qc_RealAngle<qcDegree> {
 public:
  static constexpr double turn = 360.0;  ///< a full turn
  static constexpr double perRadian = 57.29577951308232;

  constexpr qcDegree() = default;
  constexpr explicit qcDegree(double degrees) : qc_RealAngle(degrees) {}
  constexpr qcDegree(const qcRadian& radians);
  constexpr explicit qcDegree(const qcAngle8& angle);
  constexpr explicit qcDegree(const qcAngle16& angle);
};

/// An angle in units of 1/256 of a turn. Conversions round to the nearest unit, halves upwards, and wrap.
class VNXSTD_EXPORT qcAngle8 : public qc_FixedAngle<qcAngle8, std::uint8_t> {
 public:
  constexpr qcAngle8() = default;
  constexpr explicit qcAngle8(std::uint8_t units) : qc_FixedAngle(units) {}
  /// From other integers: the low 8 bits.
  constexpr explicit qcAngle8(std::integral auto units) : qc_FixedAngle(static_cast<std::uint8_t>(units)) {}
  explicit qcAngle8(const qcRadian& angle) : qc_FixedAngle(nearest(angle.plain() * 40.74366543152521)) {}
  explicit qcAngle8(const qcDegree& angle) : qc_FixedAngle(nearest(angle.plain() * 0.7111111111111111)) {}
  constexpr explicit qcAngle8(const qcAngle16& angle);
};

/// An angle in units of 1/65536 of a turn. Conversions round to the nearest unit, halves upwards, and wrap.
class VNXSTD_EXPORT qcAngle16 : public qc_FixedAngle<qcAngle16, std::uint16_t> {
 public:
  constexpr qcAngle16() = default;
  constexpr explicit qcAngle16(std::uint16_t units) : qc_FixedAngle(units) {}
  /// From other integers: the low 16 bits.
  constexpr explicit qcAngle16(std::integral auto units) : qc_FixedAngle(static_cast<std::uint16_t>(units)) {}
  explicit qcAngle16(const qcRadian& angle) : qc_FixedAngle(nearest(angle.plain() * 10430.378350470453)) {}
  explicit qcAngle16(const qcDegree& angle) : qc_FixedAngle(nearest(angle.plain() * 182.04444444444445)) {}
  constexpr explicit qcAngle16(const qcAngle8& angle) : qc_FixedAngle(static_cast<std::uint16_t>(angle.plain() << 8)) {}
};

constexpr qcRadian::qcRadian(const qcDegree& degrees) : qc_RealAngle(degrees.plain() * perDegree) {}
constexpr qcRadian::qcRadian(const qcAngle8& angle) : qc_RealAngle(angle.toDouble() * 0.02454369260617026) {}
constexpr qcRadian::qcRadian(const qcAngle16& angle) : qc_RealAngle(angle.toDouble() * 9.587379924285257e-05) {}
constexpr qcDegree::qcDegree(const qcRadian& radians) : qc_RealAngle(radians.plain() * perRadian) {}
constexpr qcDegree::qcDegree(const qcAngle8& angle) : qc_RealAngle(angle.toDouble() * 1.40625) {}
constexpr qcDegree::qcDegree(const qcAngle16& angle) : qc_RealAngle(angle.toDouble() * 0.0054931640625) {}
constexpr qcAngle8::qcAngle8(const qcAngle16& angle)
    : qc_FixedAngle(static_cast<std::uint8_t>((angle.plain() + 128) >> 8)) {}

/// Stores or loads the number of units: one double, or 1 or 2 bytes, without a version byte.
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcRadian& angle);
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcDegree& angle);
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcAngle8& angle);
VNXSTD_EXPORT qcArchive& operator||(qcArchive& archive, qcAngle16& angle);
