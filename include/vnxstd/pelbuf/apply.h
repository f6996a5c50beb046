// Running your own code over windows: kernels and the appliers that run them.
//
// A kernel sees pointers to neighbouring pels and their number. An applier calls it once for every row of its windows,
// or once for all pels where the rows of every window follow each other without padding; so a kernel must not depend on
// where rows begin. Prepare the windows first (see prepare.h). Appliers throw qcPel::UnboundWindow for an unbound
// buffer and qcPelFunc::BadParams when the windows differ in size, and pass on what the kernel throws.
//
//   class Threshold : public qc_Kernel_1s1d<unsigned char, unsigned char> {
//    public:
//     void run(const unsigned char* src, unsigned char* dst, std::ptrdiff_t count) override {
//       for (std::ptrdiff_t i = 0; i < count; ++i) dst[i] = src[i] < 128 ? 0 : 255;
//     }
//   };
//
// Images of three planes have no neighbouring pels: run a kernel on each plane.
#pragma once

#include <cstddef>
#include <type_traits>

#include "vnxstd/pelbuf/buffer.h"
#include "vnxstd/pelbuf/rows.h"

/// A pel type whose pels lie side by side in memory.
template <class T>
concept qcFlatPelType = qcRootPelType<T> && !std::is_same_v<T, qc3PlanePel>;

/// Reads the pels of one window.
template <qcFlatPelType S>
class qc_Kernel_1s {
 public:
  virtual ~qc_Kernel_1s() = default;
  virtual void run(const qcStoredPel<S>* src, std::ptrdiff_t count) = 0;
};

/// Reads the pels of one window and writes those of another. In place, both pointers are the same.
template <qcFlatPelType S, qcFlatPelType D>
class qc_Kernel_1s1d {
 public:
  virtual ~qc_Kernel_1s1d() = default;
  virtual void run(const qcStoredPel<S>* src, qcStoredPel<D>* dst, std::ptrdiff_t count) = 0;
};

/// Reads the pels of two windows and writes those of a third, which may be one of the two.
template <qcFlatPelType S1, qcFlatPelType S2, qcFlatPelType D>
class qc_Kernel_2s1d {
 public:
  virtual ~qc_Kernel_2s1d() = default;
  virtual void run(const qcStoredPel<S1>* src1, const qcStoredPel<S2>* src2, qcStoredPel<D>* dst,
                   std::ptrdiff_t count) = 0;
};

/// The pels of a window in memory. Throws qcPel::UnboundWindow.
template <qcFlatPelType T>
[[gnu::always_inline]] inline qc_PelRows<const qcStoredPel<T>> qf_PelRows(const qcPelBuffer_const<T>& buffer) {
  if (!buffer.isBound()) throw qcPel::UnboundWindow();
  if (buffer.width() == 0 || buffer.height() == 0) return {};
  return {buffer.pointToOffset(), buffer.rowUpdate(), buffer.width(), buffer.height()};
}

/// The same to write to, which counts as a change of the root.
template <qcFlatPelType T>
[[gnu::always_inline]] inline qc_PelRows<qcStoredPel<T>> qf_PelRows(const qcPelBuffer<T>& buffer) {
  if (!buffer.isBound()) throw qcPel::UnboundWindow();
  if (buffer.width() == 0 || buffer.height() == 0) return {};
  return {buffer.pointToOffset(), buffer.rowUpdate(), buffer.width(), buffer.height()};
}

/// Runs a kernel over the pels of a window.
template <qcFlatPelType S>
void qf_PelApply_1s(const qcPelBuffer_const<S>& src, qc_Kernel_1s<S>& kernel) {
  qf_PelForRows([&](auto... arguments) { kernel.run(arguments...); }, qf_PelRows(src));
}

/// Runs a kernel over two windows of one size; returns the rectangle processed, in the source's image coordinates.
template <qcFlatPelType S, qcFlatPelType D>
qcPelRect qf_PelApply_1s1d(const qcPelBuffer_const<S>& src, const qcPelBuffer<D>& dst, qc_Kernel_1s1d<S, D>& kernel) {
  const auto s = qf_PelRows(src);
  const auto d = qf_PelRows(dst);
  if (src.size() != dst.size()) throw qcPelFunc::BadParams();
  qf_PelForRows([&](auto... arguments) { kernel.run(arguments...); }, s, d);
  return src.window();
}

/// Runs a kernel over three windows of one size; returns the rectangle processed, in the first source's image
/// coordinates.
template <qcFlatPelType S1, qcFlatPelType S2, qcFlatPelType D>
qcPelRect qf_PelApply_2s1d(const qcPelBuffer_const<S1>& src1, const qcPelBuffer_const<S2>& src2,
                           const qcPelBuffer<D>& dst, qc_Kernel_2s1d<S1, S2, D>& kernel) {
  const auto s1 = qf_PelRows(src1);
  const auto s2 = qf_PelRows(src2);
  const auto d = qf_PelRows(dst);
  if (src1.size() != dst.size() || src2.size() != dst.size()) throw qcPelFunc::BadParams();
  qf_PelForRows([&](auto... arguments) { kernel.run(arguments...); }, s1, s2, d);
  return src1.window();
}

/// Calls work(src, dst) for the pels of two windows, where there are planes once for each.
template <qcRootPelType S, qcRootPelType D, class Work>
void qf_PelForPlanes(const qcPelBuffer_const<S>& src, const qcPelBuffer<D>& dst, Work&& work) {
  if constexpr (qcFlatPelType<S>) {
    work(src, dst);
  } else {
    for (int plane = 0; plane < 3; ++plane) work(src.planeBuffer(plane), dst.planeBuffer(plane));
  }
}
