#include "vnxstd/except/failure.h"

#include <algorithm>
#include <map>

#include "vnxstd/except/exception.h"

namespace {

using Converters = std::multimap<long, qcExceptionConverter>;

// Made on first use and never destroyed: static initialisers register, and code that runs at exit may still fail.
Converters& converters() {
  static Converters& table = *new Converters;
  return table;
}

constexpr std::uint32_t kFacilityShift = 5;
constexpr std::uint32_t kFacilityMask = 0x7FF;

}  // namespace

void qfRegisterExceptionConverter(long facility, qcExceptionConverter converter) {
  if (converter) converters().emplace(facility, converter);
}

void qfThrowExceptionOnFailure(long code) {
  const auto status = static_cast<std::int32_t>(code);
  if (status >= 0) return;
  const auto facility = static_cast<long>((static_cast<std::uint32_t>(status) >> kFacilityShift) & kFacilityMask);
  const auto [first, last] = converters().equal_range(facility);
  std::for_each(first, last, [status](const Converters::value_type& entry) { entry.second(status); });
  throw qcUnknownError(status);
}

std::wstring qfHex(qcUInt64 value, long minDigits) {
  constexpr const wchar_t* kDigits = L"0123456789ABCDEF";
  std::wstring digits;
  for (; value != 0; value >>= 4) digits.push_back(kDigits[value & 0xF]);
  const auto wanted = static_cast<std::size_t>(std::max(minDigits, 1L));
  if (digits.size() < wanted) digits.resize(wanted, L'0');
  std::reverse(digits.begin(), digits.end());
  return L"0x" + digits;
}

std::wstring qfHex32(std::uint32_t value, long minDigits) { return qfHex(value, minDigits); }

std::wstring qfHex16(std::uint16_t value, long minDigits) { return qfHex(value, minDigits); }
