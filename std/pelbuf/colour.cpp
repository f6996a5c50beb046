// Conversion of colours: every type is read as three components and written from them.
#include "vnxstd/pelbuf/colour.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "std/pelbuf/dispatch.h"
#include "vnxstd/pelbuf/apply.h"

namespace {

namespace simd = vnxstd::simd;

struct Colour {
  std::uint32_t r, g, b;
};

/// The weights in units of 2^-22, rounded up: the sum is too large by less than the thousandth that lies between two
/// exact sums, so that it is rounded as the exact one.
[[gnu::always_inline]] inline unsigned char grey(Colour colour) {
  constexpr std::uint32_t red = 1254097, green = 2462057, blue = 478151, half = 1u << 21;
  return static_cast<unsigned char>((red * colour.r + green * colour.g + blue * colour.b + half) >> 22);
}

[[gnu::always_inline]] inline Colour load(unsigned char pel) { return {pel, pel, pel}; }
[[gnu::always_inline]] inline Colour load(qcPackedRGB16Pel pel) { return {pel.r(), pel.g(), pel.b()}; }
[[gnu::always_inline]] inline Colour load(qcPackedRGB32Pel pel) { return {pel.r(), pel.g(), pel.b()}; }

[[gnu::always_inline]] inline void store(unsigned char& pel, Colour colour) { pel = grey(colour); }
[[gnu::always_inline]] inline void store(qcPackedRGB16Pel& pel, Colour colour) {
  const std::uint32_t word = (colour.r >> 3) << 11 | (colour.g >> 2) << 5 | colour.b >> 3;
  pel = qcPackedRGB16Pel::fromWord(static_cast<std::uint16_t>(word));
}
[[gnu::always_inline]] inline void store(qcPackedRGB32Pel& pel, Colour colour) {
  pel = qcPackedRGB32Pel::fromWord(std::uint32_t{255} << 24 | colour.r << 16 | colour.g << 8 | colour.b);
}

struct FlatToFlat {
  template <std::size_t N, class S, class D>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const S* src, D* dst, std::ptrdiff_t count) const {
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) store(dst[i], load(src[i]));
  }
};

struct PlanesToFlat {
  template <std::size_t N, class D>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const unsigned char* r, const unsigned char* g,
                                         const unsigned char* b, D* dst, std::ptrdiff_t count) const {
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) store(dst[i], {r[i], g[i], b[i]});
  }
};

struct FlatToPlanes {
  template <std::size_t N, class S>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const S* src, unsigned char* r, unsigned char* g,
                                         unsigned char* b, std::ptrdiff_t count) const {
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      const Colour colour = load(src[i]);
      r[i] = static_cast<unsigned char>(colour.r);
      g[i] = static_cast<unsigned char>(colour.g);
      b[i] = static_cast<unsigned char>(colour.b);
    }
  }
};

}  // namespace

template <qcColorPelType S, qcColorPelType D>
void qf_PelConvertColor(const qcPelBuffer_const<S>& src, const qcPelBuffer<D>& dst) {
  const auto plane = [](const auto& image, int index) { return qf_PelRows(image.planeBuffer(index)); };
  if constexpr (std::same_as<S, qc3PlanePel>) {
    const PlanesToFlat kernel;
    simd::run(kernel, plane(src, 0), plane(src, 1), plane(src, 2), qf_PelRows(dst));
  } else if constexpr (std::same_as<D, qc3PlanePel>) {
    const FlatToPlanes kernel;
    simd::run(kernel, qf_PelRows(src), plane(dst, 0), plane(dst, 1), plane(dst, 2));
  } else {
    const FlatToFlat kernel;
    simd::run(kernel, qf_PelRows(src), qf_PelRows(dst));
  }
}

#define VNXSTD_INSTANTIATE(S, D) \
  template VNXSTD_EXPORT void qf_PelConvertColor(const qcPelBuffer_const<S>&, const qcPelBuffer<D>&);
VNXSTD_INSTANTIATE(unsigned char, qcPackedRGB16Pel)
VNXSTD_INSTANTIATE(unsigned char, qcPackedRGB32Pel)
VNXSTD_INSTANTIATE(unsigned char, qc3PlanePel)
VNXSTD_INSTANTIATE(qcPackedRGB16Pel, unsigned char)
VNXSTD_INSTANTIATE(qcPackedRGB16Pel, qcPackedRGB32Pel)
VNXSTD_INSTANTIATE(qcPackedRGB16Pel, qc3PlanePel)
VNXSTD_INSTANTIATE(qcPackedRGB32Pel, unsigned char)
VNXSTD_INSTANTIATE(qcPackedRGB32Pel, qcPackedRGB16Pel)
VNXSTD_INSTANTIATE(qcPackedRGB32Pel, qc3PlanePel)
VNXSTD_INSTANTIATE(qc3PlanePel, unsigned char)
VNXSTD_INSTANTIATE(qc3PlanePel, qcPackedRGB16Pel)
VNXSTD_INSTANTIATE(qc3PlanePel, qcPackedRGB32Pel)
