// Standard deviations over series of images. Built without errno for mathematical functions, so that square roots
// become vectors.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "std/pelbuf/dispatch.h"
#include "std/pelbuf/exact.h"
#include "vnxstd/pelbuf/divide.h"

namespace {

namespace simd = vnxstd::simd;
namespace exact = vnxstd::exact;

template <class E>
[[gnu::always_inline]] inline double number(E x) {
  if constexpr (std::is_integral_v<E> && sizeof(E) == 4) {
    return exact::toDouble(x);
  } else {
    return static_cast<double>(x);
  }
}

constexpr double square(double x) { return x * x; }

template <class A, class B, class D>
struct Deviation {
  template <std::size_t N>
  [[gnu::always_inline]] inline void row(simd::Bytes<N>, const A* sums, const B* squares, D* to,
                                         std::ptrdiff_t count) const {
    const double n = images, divisor = n * (n - 1), finite = least;
    [[maybe_unused]] const double limit = most;
    VNXSTD_INDEPENDENT
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      const double sum = number(sums[i]);
      double variance = (n * number(squares[i]) - sum * sum) / divisor;
      if constexpr (std::is_floating_point_v<B>) variance = variance < finite ? finite : variance;
      if constexpr (std::is_integral_v<D>) variance = variance < limit ? variance : limit;
      // The positive part without a choice: the compiler would make a branch of it, to save the root.
      const double root = std::sqrt(0.5 * variance + 0.5 * std::fabs(variance));
      if constexpr (std::is_floating_point_v<D>) {
        to[i] = static_cast<D>(root);
      } else {
        using Wide = std::conditional_t<sizeof(D) < 4, std::int32_t, std::int64_t>;
        const auto whole = static_cast<Wide>(root);
        const auto half = static_cast<Wide>(2 * (root - static_cast<double>(whole)));  // a comparison would be a branch
        to[i] = exact::saturated<D>(static_cast<Wide>(whole + half));
      }
    }
  }

  double images;
  // Variables, lest the compiler see what these give in the end, and branch.
  double least = std::numeric_limits<double>::lowest();  ///< what infinite squares leave
  double most =
      square(static_cast<double>(std::numeric_limits<D>::max()) + 1);  ///< of integers, also what is no number
};

}  // namespace

template <class A, class B, class D>
void qf_PelDeviation(const qc_PelRows<const A>& sums, const qc_PelRows<const B>& squares, long count,
                     const qc_PelRows<D>& to) {
  if (count < 2) throw qcPelFunc::BadParams();
  const Deviation<A, B, D> kernel{static_cast<double>(count)};
  simd::run(kernel, sums, squares, to);
}

#define VNXSTD_DEVIATION(A, B, D)                                                                           \
  template VNXSTD_EXPORT void qf_PelDeviation(const qc_PelRows<const A>&, const qc_PelRows<const B>&, long, \
                                              const qc_PelRows<D>&);
#define VNXSTD_DEVIATIONS(A, B)         \
  VNXSTD_DEVIATION(A, B, unsigned char) \
  VNXSTD_DEVIATION(A, B, unsigned short) VNXSTD_DEVIATION(A, B, float) VNXSTD_DEVIATION(A, B, double)
VNXSTD_DEVIATIONS(unsigned short, std::uint32_t)
VNXSTD_DEVIATIONS(std::uint32_t, std::uint32_t)
VNXSTD_DEVIATIONS(std::int32_t, std::uint32_t)
VNXSTD_DEVIATIONS(std::uint32_t, double)
VNXSTD_DEVIATIONS(std::int32_t, double)
VNXSTD_DEVIATIONS(double, double)
VNXSTD_DEVIATION(unsigned char, unsigned char, unsigned char)
VNXSTD_DEVIATION(signed char, signed char, signed char)
VNXSTD_DEVIATION(unsigned short, unsigned short, unsigned short)
VNXSTD_DEVIATION(short, short, short)
VNXSTD_DEVIATION(std::uint32_t, std::uint32_t, std::uint32_t)
VNXSTD_DEVIATION(std::int32_t, std::int32_t, std::int32_t)
VNXSTD_DEVIATION(float, float, float)
