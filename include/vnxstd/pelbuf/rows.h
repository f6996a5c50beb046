// Rows of pels in memory, and the one loop that runs a kernel over them.
#pragma once

#include <cstddef>
#include <type_traits>

/// A rectangle of pels in memory: what is left of a window when only pointers and counts matter. P is a stored pel
/// type, const where the pels are read. A plain value that owns nothing. Functions that are called take it by
/// reference, and those that make it are inlined always: the processor waits for a value that was stored in words of 8
/// bytes and is copied, as arguments and results in memory are, in words of 16. That took 20 ns of a call on 16 x 16
/// pels.
template <class P>
struct qc_PelRows {
  P* pels = nullptr;         ///< the upper-left pel
  std::ptrdiff_t pitch = 0;  ///< pels from the start of a row to the start of the next
  std::ptrdiff_t width = 0;
  std::ptrdiff_t height = 0;

  bool isEmpty() const noexcept { return width <= 0 || height <= 0; }
  /// Whether the rows follow each other without a gap, so that they are one long row.
  bool isContiguous() const noexcept { return pitch == width || height == 1; }
  P* row(std::ptrdiff_t y) const noexcept { return pels + y * pitch; }
};

/// The same rectangle as elements that pels consist of: numbers, or bytes.
template <class E, class P>
[[gnu::always_inline]] inline qc_PelRows<E> qf_PelRowsAs(const qc_PelRows<P>& rows) {
  static_assert(sizeof(P) % sizeof(E) == 0 && std::is_const_v<E> == std::is_const_v<P>);
  constexpr std::ptrdiff_t n = std::ptrdiff_t{sizeof(P)} / std::ptrdiff_t{sizeof(E)};
  return {reinterpret_cast<E*>(rows.pels), rows.pitch * n, rows.width * n, rows.height};
}

/// Calls kernel(pointers..., count) for every row of rectangles of one size, once for all rows when all of them are
/// contiguous. Inlined always, so that a kernel that is inlined too is compiled for its caller's instruction set.
template <class Kernel, class First, class... More>
[[gnu::always_inline]] inline void qf_PelForRows(Kernel&& kernel, qc_PelRows<First> first, qc_PelRows<More>... more) {
  if (first.isEmpty()) return;
  if (first.isContiguous() && (more.isContiguous() && ...)) {
    kernel(first.pels, more.pels..., first.width * first.height);
    return;
  }
  const std::ptrdiff_t width = first.width, height = first.height;
  for (std::ptrdiff_t y = 0; y < height; ++y) kernel(first.row(y), more.row(y)..., width);
}
