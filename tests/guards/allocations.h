#pragma once

#include <atomic>
#include <cstdint>

namespace tests {

/// Names the file that holds `Allocations` to the preloaded library.
inline constexpr const char* allocations_variable = "TOLQUIL_ALLOCATIONS";

/// The memory that a program under test and its tester share.
struct Allocations {
  std::atomic<std::uint64_t> count;    // of all allocations that the program has requested
  std::atomic<std::uint64_t> fail_at;  // the number of the one that fails; 0: none
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

}  // namespace tests
