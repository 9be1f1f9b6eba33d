#pragma once

#include <cstddef>
#include <cstdint>

namespace ecu::tamu {

/// Input of more than this many bytes may leave much memory free.
inline constexpr std::size_t large_amount = std::size_t{16} * 1024;

/// Gives memory that is free back to the system, after input of `bytes` was handled: at once when that is
/// much, else if it was not done in the last second, because a small message may replace large values. The
/// allocator alone keeps small blocks, such as those of a parsed message. Any thread.
void release_free_memory(std::uint64_t bytes) noexcept;

}  // namespace ecu::tamu
