// Pixel types: the closed set of element types, the packed colour pels, and how each lies in memory.
//
// Pels have the same layout on every platform, but for the order of the bytes within a number. Where the C++ type has
// not, as long has not, the pel type T has a stored type of its own: pointers into an image are pointers to the stored
// type, while get and put convert.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "vnxstd/except/pelerrors.h"
#include "vnxstd/export.h"
#include "vnxstd/math/pair.h"

/// A colour packed into one 16-bit word: five bits of red above GreenBits bits of green above five bits of blue. A
/// component is read as 8 bits, shifted up with zeros below: 31 of 31 reads as 248, so that what was set is what is
/// read, less the bits that the pel has no room for. Setting a component keeps its top bits and leaves the others
/// alone.
template <class Derived, unsigned GreenBits>
class VNXSTD_EXPORT qc_PackedRGBWord {
 public:
  constexpr qc_PackedRGBWord() = default;
  constexpr qc_PackedRGBWord(unsigned char red, unsigned char green, unsigned char blue) {
    r(red);
    g(green);
    b(blue);
  }

  constexpr unsigned char r() const noexcept { return static_cast<unsigned char>((word_ >> kRedShift & 31u) << 3); }
  constexpr unsigned char g() const noexcept {
    return static_cast<unsigned char>((word_ >> 5 & kGreenMask) << (8 - GreenBits));
  }
  constexpr unsigned char b() const noexcept { return static_cast<unsigned char>((word_ & 31u) << 3); }

  /// Also clears the bit above red, where there is one.
  constexpr void r(unsigned char value) noexcept {
    set(word_ & ((1u << kRedShift) - 1), static_cast<unsigned>(value >> 3) << kRedShift);
  }
  constexpr void g(unsigned char value) noexcept {
    set(word_ & ~(kGreenMask << 5), static_cast<unsigned>(value >> (8 - GreenBits)) << 5);
  }
  constexpr void b(unsigned char value) noexcept { set(word_ & ~31u, static_cast<unsigned>(value >> 3)); }

  /// All 16 bits.
  constexpr std::uint16_t word() const noexcept { return word_; }
  static constexpr Derived fromWord(std::uint16_t word) noexcept {
    Derived pel;
    pel.word_ = word;
    return pel;
  }

  friend constexpr bool operator==(const Derived& x, const Derived& y) noexcept { return x.word_ == y.word_; }

 private:
  static constexpr unsigned kRedShift = 5 + GreenBits;
  static constexpr unsigned kGreenMask = (1u << GreenBits) - 1;

  constexpr void set(unsigned others, unsigned field) noexcept { word_ = static_cast<std::uint16_t>(others | field); }

  std::uint16_t word_ = 0;
};

/// Red in bits 10 to 14, green in 5 to 9, blue in 0 to 4; bit 15 is zero.
class VNXSTD_EXPORT qcPackedRGB15Pel : public qc_PackedRGBWord<qcPackedRGB15Pel, 5> {
 public:
  using qc_PackedRGBWord::qc_PackedRGBWord;
};

/// Red in bits 11 to 15, green in 5 to 10 (six bits), blue in 0 to 4.
class VNXSTD_EXPORT qcPackedRGB16Pel : public qc_PackedRGBWord<qcPackedRGB16Pel, 6> {
 public:
  using qc_PackedRGBWord::qc_PackedRGBWord;
};

/// Three bytes: blue, green, red.
class VNXSTD_EXPORT qcPackedRGB24Pel {
 public:
  constexpr qcPackedRGB24Pel() = default;
  constexpr qcPackedRGB24Pel(unsigned char red, unsigned char green, unsigned char blue)
      : blue_(blue), green_(green), red_(red) {}
  /// From 0x00RRGGBB; higher bits are ignored.
  constexpr explicit qcPackedRGB24Pel(unsigned long rgb)
      : blue_(static_cast<unsigned char>(rgb & 255)),
        green_(static_cast<unsigned char>(rgb >> 8 & 255)),
        red_(static_cast<unsigned char>(rgb >> 16 & 255)) {}

  constexpr unsigned char r() const noexcept { return red_; }
  constexpr unsigned char g() const noexcept { return green_; }
  constexpr unsigned char b() const noexcept { return blue_; }
  constexpr void r(unsigned char value) noexcept { red_ = value; }
  constexpr void g(unsigned char value) noexcept { green_ = value; }
  constexpr void b(unsigned char value) noexcept { blue_ = value; }

  friend constexpr bool operator==(const qcPackedRGB24Pel&, const qcPackedRGB24Pel&) = default;

 private:
  unsigned char blue_ = 0, green_ = 0, red_ = 0;
};

/// Four bytes held as one word: alpha in the top byte, blue in the lowest. In memory blue comes first, but on platforms
/// whose words begin with the top byte.
class VNXSTD_EXPORT qcPackedRGB32Pel {
 public:
  constexpr qcPackedRGB32Pel() = default;
  constexpr qcPackedRGB32Pel(unsigned char red, unsigned char green, unsigned char blue, unsigned char alpha)
      : word_(std::uint32_t{alpha} << 24 | std::uint32_t{red} << 16 | std::uint32_t{green} << 8 | blue) {}

  constexpr unsigned char r() const noexcept { return byte(16); }
  constexpr unsigned char g() const noexcept { return byte(8); }
  constexpr unsigned char b() const noexcept { return byte(0); }
  constexpr unsigned char a() const noexcept { return byte(24); }
  constexpr void r(unsigned char value) noexcept { byte(16, value); }
  constexpr void g(unsigned char value) noexcept { byte(8, value); }
  constexpr void b(unsigned char value) noexcept { byte(0, value); }
  constexpr void a(unsigned char value) noexcept { byte(24, value); }

  /// All 32 bits.
  constexpr std::uint32_t word() const noexcept { return word_; }
  static constexpr qcPackedRGB32Pel fromWord(std::uint32_t word) noexcept {
    qcPackedRGB32Pel pel;
    pel.word_ = word;
    return pel;
  }

  /// Alpha counts.
  friend constexpr bool operator==(const qcPackedRGB32Pel&, const qcPackedRGB32Pel&) = default;

 private:
  constexpr unsigned char byte(unsigned shift) const noexcept {
    return static_cast<unsigned char>(word_ >> shift & 255u);
  }
  constexpr void byte(unsigned shift, unsigned char value) noexcept {
    word_ = (word_ & ~(std::uint32_t{255} << shift)) | std::uint32_t{value} << shift;
  }

  std::uint32_t word_ = 0;
};

/// A pel of a 3-plane image that may only be read: it refers to the three plane pels and follows their changes. Valid
/// as long as the image's root lives.
class VNXSTD_EXPORT qc3PlanePelRef_const {
 public:
  constexpr qc3PlanePelRef_const(const unsigned char& p0, const unsigned char& p1, const unsigned char& p2)
      : plane0_(&p0), plane1_(&p1), plane2_(&p2) {}

  constexpr const unsigned char& plane0() const noexcept { return *plane0_; }
  constexpr const unsigned char& plane1() const noexcept { return *plane1_; }
  constexpr const unsigned char& plane2() const noexcept { return *plane2_; }

 private:
  const unsigned char *plane0_, *plane1_, *plane2_;
};

/// A pel of three 8-bit planes. Colour images keep red in plane 0, green in 1, blue in 2.
class VNXSTD_EXPORT qc3PlanePel {
 public:
  constexpr qc3PlanePel() = default;
  constexpr qc3PlanePel(unsigned char p0, unsigned char p1, unsigned char p2) : plane0_(p0), plane1_(p1), plane2_(p2) {}
  constexpr qc3PlanePel(const qc3PlanePelRef_const& pel) : qc3PlanePel(pel.plane0(), pel.plane1(), pel.plane2()) {}

  constexpr unsigned char& plane0() noexcept { return plane0_; }
  constexpr unsigned char& plane1() noexcept { return plane1_; }
  constexpr unsigned char& plane2() noexcept { return plane2_; }
  constexpr const unsigned char& plane0() const noexcept { return plane0_; }
  constexpr const unsigned char& plane1() const noexcept { return plane1_; }
  constexpr const unsigned char& plane2() const noexcept { return plane2_; }

  /// Also compares references, which convert.
  friend constexpr bool operator==(const qc3PlanePel&, const qc3PlanePel&) = default;

 private:
  unsigned char plane0_ = 0, plane1_ = 0, plane2_ = 0;
};

/// The pel types by number, in the order of the set. Any stands for a buffer that takes every type.
enum class qePelType : unsigned char {
  Any,
  U8,
  S8,
  U16,
  S16,
  U32,
  S32,
  F32,
  F64,
  PairS32,
  PairF32,
  RGB15,
  RGB16,
  RGB24,
  RGB32,
  ThreePlane
};

/// The C++ name of the pel type, the same on every platform ("unsigned char", "qcPair<long>").
VNXSTD_EXPORT const char* qfPelTypeName(qePelType type) noexcept;

template <class T>
inline constexpr bool qc_IsNoPelType = false;

/// What belongs to a pel type T:
/// `type`, its number; `hasRoot`, whether images of it exist; `Stored`, the type of a pel in memory; `Element`, the
/// number that archives know it by, and `elements`, how many of them a pel has; `store(T)` and `load(Stored)`, the
/// conversions. `store` throws qcPelFunc::Range when a value does not fit.
template <class T>
struct qcPelTraits {
  static_assert(qc_IsNoPelType<T>,
                "the pel types are unsigned char, signed char, unsigned short, short, unsigned long, long, float, "
                "double, qcPair<long>, qcPair<float>, qcPackedRGB15Pel, qcPackedRGB16Pel, qcPackedRGB24Pel, "
                "qcPackedRGB32Pel and qc3PlanePel");
};

/// Pels whose C++ type is also their type in memory.
template <class T, qePelType Type, class E, int Elements = 1, bool HasRoot = true>
struct qc_PlainPelTraits {
  static constexpr qePelType type = Type;
  static constexpr bool hasRoot = HasRoot;
  using Stored = T;
  using Element = E;
  static constexpr int elements = Elements;
  static constexpr Stored store(const T& value) noexcept { return value; }
  static constexpr T load(const Stored& value) noexcept { return value; }
  static_assert(std::is_trivially_copyable_v<T> && sizeof(T) == Elements * sizeof(E));
};

/// Pels of long, which take 32 bits everywhere.
template <class T, qePelType Type, class S>
struct qc_LongPelTraits {
  static constexpr qePelType type = Type;
  static constexpr bool hasRoot = true;
  using Stored = S;
  using Element = S;
  static constexpr int elements = 1;
  static constexpr Stored store(T value) {
    if (static_cast<T>(static_cast<S>(value)) != value) throw qcPelFunc::Range();
    return static_cast<S>(value);
  }
  static constexpr T load(Stored value) noexcept { return value; }
};

template <>
struct qcPelTraits<unsigned char> : qc_PlainPelTraits<unsigned char, qePelType::U8, unsigned char> {};
template <>
struct qcPelTraits<signed char> : qc_PlainPelTraits<signed char, qePelType::S8, signed char> {};
template <>
struct qcPelTraits<unsigned short> : qc_PlainPelTraits<unsigned short, qePelType::U16, unsigned short> {};
template <>
struct qcPelTraits<short> : qc_PlainPelTraits<short, qePelType::S16, short> {};
template <>
struct qcPelTraits<unsigned long> : qc_LongPelTraits<unsigned long, qePelType::U32, std::uint32_t> {};
template <>
struct qcPelTraits<long> : qc_LongPelTraits<long, qePelType::S32, std::int32_t> {};
template <>
struct qcPelTraits<float> : qc_PlainPelTraits<float, qePelType::F32, float> {};
template <>
struct qcPelTraits<double> : qc_PlainPelTraits<double, qePelType::F64, double> {};
template <>
struct qcPelTraits<qcPair<float>> : qc_PlainPelTraits<qcPair<float>, qePelType::PairF32, float, 2> {};
template <>
struct qcPelTraits<qcPackedRGB15Pel> : qc_PlainPelTraits<qcPackedRGB15Pel, qePelType::RGB15, std::uint16_t, 1, false> {
};
template <>
struct qcPelTraits<qcPackedRGB16Pel> : qc_PlainPelTraits<qcPackedRGB16Pel, qePelType::RGB16, std::uint16_t> {};
template <>
struct qcPelTraits<qcPackedRGB24Pel> : qc_PlainPelTraits<qcPackedRGB24Pel, qePelType::RGB24, unsigned char, 3, false> {
};
template <>
struct qcPelTraits<qcPackedRGB32Pel> : qc_PlainPelTraits<qcPackedRGB32Pel, qePelType::RGB32, std::uint32_t> {};
template <>
struct qcPelTraits<qc3PlanePel> : qc_PlainPelTraits<qc3PlanePel, qePelType::ThreePlane, unsigned char, 3> {};

template <>
struct qcPelTraits<qcPair<long>> {
  static constexpr qePelType type = qePelType::PairS32;
  static constexpr bool hasRoot = true;
  using Stored = qcPair<std::int32_t>;
  using Element = std::int32_t;
  static constexpr int elements = 2;
  static constexpr Stored store(const qcPair<long>& value) {
    return {qcPelTraits<long>::store(value.x()), qcPelTraits<long>::store(value.y())};
  }
  static constexpr qcPair<long> load(const Stored& value) noexcept { return {value.x(), value.y()}; }
  static_assert(std::is_trivially_copyable_v<Stored> && sizeof(Stored) == 8);
};

/// The type of a pel in memory.
template <class T>
using qcStoredPel = typename qcPelTraits<T>::Stored;

/// A pel type that images are made of.
template <class T>
concept qcRootPelType = qcPelTraits<T>::hasRoot;

// The root types, for explicit instantiation: those whose pels lie in one array, and the planar one.
#define VNXSTD_FOR_ARRAY_PELS(apply)                                                                          \
  apply(unsigned char) apply(signed char) apply(unsigned short) apply(short) apply(unsigned long) apply(long) \
      apply(float) apply(double) apply(qcPair<long>) apply(qcPair<float>) apply(qcPackedRGB16Pel)             \
          apply(qcPackedRGB32Pel)
#define VNXSTD_FOR_ROOT_PELS(apply) VNXSTD_FOR_ARRAY_PELS(apply) apply(qc3PlanePel)
