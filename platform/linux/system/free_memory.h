#pragma once

#include <malloc.h>

#include <cstddef>

namespace ecu::tamu {

/// More bytes than this at once are worth a call of `release_free_memory` after they were handled.
inline constexpr std::size_t large_amount = std::size_t{16} * 1024;

/// Gives memory that is free back to the system. The allocator keeps many small blocks, such as those of a
/// parsed message, until a thread happens to free a large one at the end of its heap.
inline void release_free_memory() noexcept {
  constexpr std::size_t reserve = 0;
  ::malloc_trim(reserve);
}

}  // namespace ecu::tamu
