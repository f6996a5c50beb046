// Text dumps of windows, for people.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <type_traits>

#include "vnxstd/export.h"
#include "vnxstd/pelbuf/buffer.h"

/// A pel as text: numbers in decimal, floating ones with as many digits as tell them from their neighbours, everything
/// else as its components in parentheses. The same in every locale.
VNXSTD_EXPORT std::wstring qf_PelText(long value);
VNXSTD_EXPORT std::wstring qf_PelText(unsigned long value);
VNXSTD_EXPORT std::wstring qf_PelText(float value);
VNXSTD_EXPORT std::wstring qf_PelText(double value);
VNXSTD_EXPORT std::wstring qf_PelText(const qcPair<long>& value);
VNXSTD_EXPORT std::wstring qf_PelText(const qcPair<float>& value);
VNXSTD_EXPORT std::wstring qf_PelText(const qcPackedRGB16Pel& value);
VNXSTD_EXPORT std::wstring qf_PelText(const qcPackedRGB32Pel& value);
VNXSTD_EXPORT std::wstring qf_PelText(const qc3PlanePel& value);

/// The worker of qfPelPrint; `text` gives the text of the pel at image coordinates.
VNXSTD_EXPORT void qf_PelPrint(const qc_PelBuffer& buffer, const std::function<std::wstring(long x, long y)>& text,
                               std::wostream& stream);

/// Writes the window's size and image coordinates, "3 x 2 at (10, 20)", and then every row as a line, its pels aligned
/// to the right in columns of one width; of an unbound buffer "unbound". Every pel is formatted twice: meant for small
/// windows.
template <class T>
void qfPelPrint(const qcPelBuffer_const<T>& buffer, std::wostream& stream) {
  const auto text = [&](long x, long y) {
    if constexpr (std::is_integral_v<T>) {
      using Wide = std::conditional_t<std::is_signed_v<T>, long, unsigned long>;
      return qf_PelText(static_cast<Wide>(buffer.get(x, y)));
    } else {
      return qf_PelText(buffer.get(x, y));
    }
  };
  qf_PelPrint(buffer, text, stream);
}
