// The 64-bit integers of archives.
//
// On some platforms std::int64_t is long, which archives store in four bytes; a field of 64 bits is therefore declared
// with these names, which are the eight-byte types of the archive everywhere.
#pragma once

using qcInt64 = long long;
using qcUInt64 = unsigned long long;
