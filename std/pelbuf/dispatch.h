// Runs kernels at the highest instruction-set level of the processor.
//
// A kernel is written once. It is an object whose member row(Bytes<N>, pointers..., count) is always inlined and works
// on one row of neighbouring pels; N is the width of the level's vector registers. Every level has an entry function
// that carries the target attribute and inlines the row loop and the kernel, and run() calls the entry of the level in
// force. No file is compiled for a higher level as a whole: inline functions that it shares with others could leak into
// the baseline. Every level gives the same bits: contraction is off, and kernels whose result depends on the order of
// their operations must not let N decide it.
//
// AVX-512 has no level: from the second-level cache on it gains nothing, and in the first, where it takes a quarter
// off, preparing the windows costs more than their pels.
#pragma once

#include <array>
#include <cstddef>

#include "vnxstd/export.h"
#include "vnxstd/pelbuf/rows.h"

#if defined(__x86_64__) || defined(__i386__)
#define VNXSTD_X86 1
#else
#define VNXSTD_X86 0
#endif

/// Before a loop: no iteration depends on another. In place on the very same pels is allowed by that, and the compiler
/// need not check at run time whether pointers overlap (which, in place, would send it down the scalar path).
#if defined(__clang__)
#define VNXSTD_INDEPENDENT _Pragma("clang loop vectorize(assume_safety)")
#else
#define VNXSTD_INDEPENDENT _Pragma("GCC ivdep")
#endif

namespace vnxstd::simd {

enum class Level : int { Baseline, Avx2, Permutes };
inline constexpr int kLevels = 3;

/// The best level of this processor.
VNXSTD_EXPORT Level highest() noexcept;
/// The level in force: the highest, unless set otherwise.
VNXSTD_EXPORT Level level() noexcept;
/// Forces a level, or the highest below it that the processor has, and returns it. For tests; safe from any thread,
/// kernels that are running finish at the level they began with.
VNXSTD_EXPORT Level setLevel(Level wanted) noexcept;

/// The width of vector registers, as a type.
template <std::size_t N>
struct Bytes {
  static constexpr std::size_t value = N;
};

template <std::size_t N, class Kernel>
struct RowCall {
  Kernel& kernel;
  template <class... Arguments>
  [[gnu::always_inline]] inline void operator()(Arguments... arguments) const {
    kernel.row(Bytes<N>(), arguments...);
  }
};

template <class Kernel, class... P>
struct Entries {
  using Entry = void (*)(Kernel&, const qc_PelRows<P>&...);

  static void baseline(Kernel& kernel, const qc_PelRows<P>&... rows) {
    qf_PelForRows(RowCall<16, Kernel>{kernel}, rows...);
  }
#if VNXSTD_X86
  [[gnu::target("avx2")]] static void avx2(Kernel& kernel, const qc_PelRows<P>&... rows) {
    qf_PelForRows(RowCall<32, Kernel>{kernel}, rows...);
  }
  [[gnu::target("avx2,avx512f,avx512bw,avx512vbmi")]] static void permutes(Kernel& kernel,
                                                                           const qc_PelRows<P>&... rows) {
    qf_PelForRows(RowCall<64, Kernel>{kernel}, rows...);
  }
  static constexpr Entry highest() {
    if constexpr (requires { Kernel::kHasPermutes; }) {
      return &permutes;
    } else {
      return &avx2;
    }
  }
  static constexpr std::array<Entry, kLevels> table = {&baseline, &avx2, highest()};
#else
  static constexpr std::array<Entry, kLevels> table = {&baseline, &baseline, &baseline};
#endif
};

/// Runs a kernel over rectangles of one size.
template <class Kernel, class... P>
void run(Kernel& kernel, const qc_PelRows<P>&... rows) {
  Entries<Kernel, P...>::table[static_cast<std::size_t>(level())](kernel, rows...);
}

/// Entries without the loop over rows around the kernel. There are none for byte permutes.
template <class Kernel, class... P>
struct RowEntries {
  using Entry = void (*)(Kernel&, std::ptrdiff_t, P*...);

  static void baseline(Kernel& kernel, std::ptrdiff_t count, P*... pels) { kernel.row(Bytes<16>(), pels..., count); }
#if VNXSTD_X86
  [[gnu::target("avx2")]] static void avx2(Kernel& kernel, std::ptrdiff_t count, P*... pels) {
    kernel.row(Bytes<32>(), pels..., count);
  }
  static constexpr std::array<Entry, kLevels> table = {&baseline, &avx2, &avx2};
#else
  static constexpr std::array<Entry, kLevels> table = {&baseline, &baseline, &baseline};
#endif
};

/// Runs a kernel over one row.
template <class Kernel, class... P>
void runRow(Kernel& kernel, std::ptrdiff_t count, P*... pels) {
  RowEntries<Kernel, P...>::table[static_cast<std::size_t>(level())](kernel, count, pels...);
}

/// Runs a kernel row by row, for kernels that care where rows begin. The rectangles have one height; the kernel's count
/// is the width of the first.
template <class Kernel, class First, class... More>
void runEachRow(Kernel& kernel, const qc_PelRows<First>& first, const qc_PelRows<More>&... more) {
  if (first.isEmpty()) return;
  const auto entry = RowEntries<Kernel, First, More...>::table[static_cast<std::size_t>(level())];
  for (std::ptrdiff_t y = 0; y < first.height; ++y) entry(kernel, first.width, first.row(y), more.row(y)...);
}

}  // namespace vnxstd::simd
