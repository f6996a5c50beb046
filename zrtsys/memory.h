// Memory services: aligned blocks with 64-bit sizes, fills of blocks and rectangles, copies of rectangles.
//
// Plain functions that report failure by a negative status and throw nothing. All are safe from several threads as long
// as the memory they work on is not shared.
#pragma once

#include <cstdint>

#include "zrtsys/status.h"

namespace zrtsys {

/// Allocates `bytes` bytes whose first one, `*start`, lies at a multiple of `modulus` (any number from 1 on, not only a
/// power of two; large blocks begin at a memory page). `*block` is what free() takes. The contents are whatever they
/// are. More than the address space can hold is outOfMemory like any other size that is not to be had; both pointers
/// are null after a failure.
Status allocate(std::uint64_t bytes, std::uint64_t modulus, void** block, void** start) noexcept;

/// Gives a block back; null is ignored.
void free(void* block) noexcept;

/// Repeats a unit of 1, 2, 4 or 8 bytes `count` times from `to` on.
Status fillBlock(void* to, std::uint64_t count, const void* unit, std::uint32_t unitBytes) noexcept;

/// Fills `rows` rows of `rowUnits` units each; a row starts `pitch` bytes after the one before it.
Status fillRect(void* to, std::int64_t pitch, std::uint64_t rowUnits, std::uint64_t rows, const void* unit,
                std::uint32_t unitBytes) noexcept;

/// Copies `rows` rows of `rowBytes` bytes each; `toPitch` and `fromPitch` are the distances in bytes from row to row.
/// The two rectangles may overlap when their pitches are equal and not less than `rowBytes`.
Status copyRect(void* to, std::int64_t toPitch, const void* from, std::int64_t fromPitch, std::uint64_t rowBytes,
                std::uint64_t rows) noexcept;

}  // namespace zrtsys

/// The memory of the process's pool of pixel storage. One block of `bytes` bytes at a time, at a multiple of 4096: null
/// when it is not to be had or one is out already. With 0 bytes the block is given back, and the result is null. Safe
/// from several threads.
void* qfPoolAlloc(std::uint64_t bytes) noexcept;
