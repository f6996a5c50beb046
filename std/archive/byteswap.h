// Numbers copied with their bytes reversed.
#pragma once

#include <cstddef>
#include <cstdint>

inline void qf_Reverse(std::uint16_t& word) noexcept { word = __builtin_bswap16(word); }
inline void qf_Reverse(std::uint32_t& word) noexcept { word = __builtin_bswap32(word); }
inline void qf_Reverse(std::uint64_t& word) noexcept { word = __builtin_bswap64(word); }

/// Copies `count` numbers of 2, 4 or 8 bytes each and reverses the bytes of every one. Neither pointer needs to be
/// aligned; the blocks must not overlap.
void qf_CopySwapped(void* to, const void* from, std::size_t count, unsigned size) noexcept;
