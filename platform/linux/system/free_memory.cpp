#include "system/free_memory.h"

#include <malloc.h>

#include <atomic>
#include <chrono>

namespace ecu::tamu {

void release_free_memory(std::uint64_t bytes) noexcept {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::seconds interval(1);
  constexpr std::size_t reserve = 0;
  static std::atomic<Clock::time_point> last_release{};

  const Clock::time_point now = Clock::now();
  if (bytes > large_amount || now - last_release.load() >= interval) {
    last_release = now;
    ::malloc_trim(reserve);
  }
}

}  // namespace ecu::tamu
