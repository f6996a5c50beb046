// Conversions between narrow text (UTF-8), wide text (the platform's wide characters) and UTF-16.
//
// The strict forms are exact both ways and throw qcBadUnicodeChar for malformed input: broken or overlong UTF-8,
// unpaired surrogates, values above U+10FFFF. The lossy forms put U+FFFD in the place of what is malformed, one for
// each longest prefix that a valid sequence could begin with, and never throw it.
#pragma once

#include <string>
#include <string_view>

#include "vnxstd/export.h"

VNXSTD_EXPORT std::wstring qf_Widen(std::string_view narrow);
VNXSTD_EXPORT std::wstring qf_WidenLossy(std::string_view narrow);
VNXSTD_EXPORT std::string qf_Narrow(std::wstring_view wide);
VNXSTD_EXPORT std::string qf_NarrowLossy(std::wstring_view wide);

VNXSTD_EXPORT std::u16string qf_Utf16FromWide(std::wstring_view wide);
VNXSTD_EXPORT std::wstring qf_WideFromUtf16(std::u16string_view text);
VNXSTD_EXPORT std::u16string qf_Utf16FromUtf32(std::u32string_view text);
VNXSTD_EXPORT std::u32string qf_Utf32FromUtf16(std::u16string_view text);
VNXSTD_EXPORT std::string qf_NarrowFromUtf16(std::u16string_view text);
VNXSTD_EXPORT std::u32string qf_Utf32FromNarrow(std::string_view narrow);
