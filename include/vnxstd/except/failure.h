// From the status codes of lower layers to exceptions, and the hexadecimal texts of both.
#pragma once

#include <cstdint>
#include <string>

#include "vnxstd/archive/widths.h"
#include "vnxstd/export.h"

/// Reports a failure by throwing; a converter that returns passes the code on to the next one.
using qcExceptionConverter = void (*)(long code);

/// Registers a converter for the codes of a facility, which is bits 5 to 15 of the code. Several converters per
/// facility are asked in the order of their registration; a null converter is ignored. Safe from the static
/// initialisers of any translation unit, whatever their order. Not locked: all registration happens before threads use
/// the table.
VNXSTD_EXPORT void qfRegisterExceptionConverter(long facility, qcExceptionConverter converter);

/// Returns when `code`, taken as 32 bits, is not negative; otherwise asks the converters of its facility, and throws
/// qcUnknownError when none of them threw.
VNXSTD_EXPORT void qfThrowExceptionOnFailure(long code);

/// "0x" and the value in upper-case hexadecimal, padded with zeros to at least `minDigits` digits.
VNXSTD_EXPORT std::wstring qfHex(qcUInt64 value, long minDigits);
VNXSTD_EXPORT std::wstring qfHex32(std::uint32_t value, long minDigits);
VNXSTD_EXPORT std::wstring qfHex16(std::uint16_t value, long minDigits);
