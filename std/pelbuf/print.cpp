#include "vnxstd/pelbuf/print.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <initializer_list>
#include <string_view>

namespace {

std::wstring padded(const std::wstring& text, std::size_t width) {
  return std::wstring(width - std::min(width, text.size()), L' ') + text;
}

template <class Number>
std::wstring decimal(Number value) {
  char text[64];
  const std::to_chars_result end = std::to_chars(text, text + sizeof text, value);
  return std::wstring(text, end.ptr);
}

std::wstring components(std::initializer_list<std::wstring> values) {
  std::wstring text;
  for (const std::wstring& value : values) text += (text.empty() ? L"(" : L", ") + value;
  return text + L')';
}

}  // namespace

std::wstring qf_PelText(long value) { return decimal(value); }
std::wstring qf_PelText(unsigned long value) { return decimal(value); }
std::wstring qf_PelText(float value) { return decimal(value); }
std::wstring qf_PelText(double value) { return decimal(value); }

std::wstring qf_PelText(const qcPair<long>& value) { return components({decimal(value.x()), decimal(value.y())}); }
std::wstring qf_PelText(const qcPair<float>& value) { return components({decimal(value.x()), decimal(value.y())}); }

std::wstring qf_PelText(const qcPackedRGB16Pel& value) {
  return components({decimal(int{value.r()}), decimal(int{value.g()}), decimal(int{value.b()})});
}

std::wstring qf_PelText(const qcPackedRGB32Pel& value) {
  return components(
      {decimal(int{value.r()}), decimal(int{value.g()}), decimal(int{value.b()}), decimal(int{value.a()})});
}

std::wstring qf_PelText(const qc3PlanePel& value) {
  return components({decimal(int{value.plane0()}), decimal(int{value.plane1()}), decimal(int{value.plane2()})});
}

void qf_PelPrint(const qc_PelBuffer& buffer, const std::function<std::wstring(long x, long y)>& text,
                 std::wostream& stream) {
  if (!buffer.isBound()) {
    stream << L"unbound\n";
    return;
  }
  const qcPelRect window = buffer.window();
  stream << decimal(window.width()) << L" x " << decimal(window.height()) << L" at " << qf_PelText(window.ul())
         << L'\n';
  if (window.isNull()) return;
  std::size_t width = 0;
  for (long y = window.y0(); y < window.y1(); ++y) {
    for (long x = window.x0(); x < window.x1(); ++x) width = std::max(width, text(x, y).size());
  }
  for (long y = window.y0(); y < window.y1(); ++y) {
    for (long x = window.x0(); x < window.x1(); ++x) {
      stream << (x == window.x0() ? L"" : L" ") << padded(text(x, y), width);
    }
    stream << L'\n';
  }
}
