#pragma once

#include <sanitizer/allocator_interface.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

#include <ecu/tamu/com/message.h>
#include <ecu/tamu/logging/logging.h>

/// Helpers that the fuzz targets share.
namespace fuzz {

/// Checks a condition for every input: ends the run with `text` unless `holds`.
inline void require(bool holds, const char* text) {
  if (!holds) {
    (void)std::fprintf(stderr, "does not hold: %s\n", text);
    std::abort();
  }
}

/// The number that little-endian bytes hold.
std::uint64_t number_of(const auto& bytes) {
  std::uint64_t number = 0;
  for (std::size_t i = bytes.size(); i-- > 0;) {
    number = number << 8U | static_cast<std::uint8_t>(bytes[i]);
  }
  return number;
}

/// Lines of every level are composed, but written nowhere.
inline void silence() {
  ecu::tamu::logging::set_log_mode(ecu::tamu::logging::LogMode::none);
  ecu::tamu::logging::configure_logging("DEBUG");
}

/// `body` after a header that announces `announced` bytes; built without the code under test.
inline ecu::tamu::com::Payload framed(std::span<const std::uint8_t> body, std::uint16_t protocol_type,
                                      std::uint32_t announced) {
  const std::uint64_t framing = protocol_type | 18U << 16U | std::uint64_t{announced} << 32U;
  ecu::tamu::com::Payload payload{0x09};
  for (unsigned shift = 0; shift < 64; shift += 8) {
    payload.push_back(static_cast<std::uint8_t>(framing >> shift));
  }
  payload.insert(payload.end(), {0x11, 1, 2, 3, 4, 5, 6, 7, 8});
  payload.insert(payload.end(), body.begin(), body.end());
  return payload;
}
inline ecu::tamu::com::Payload framed(std::span<const std::uint8_t> body) {
  return framed(body, 1, static_cast<std::uint32_t>(body.size()));
}

/// The heap in use. What was in use at construction does not count.
class Heap {
 public:
  [[nodiscard]] std::size_t in_use() const { return __sanitizer_get_current_allocated_bytes() - base_; }

  /// Ends the run when more is in use than `before`, allowing for a tenth and a few buffers.
  void require_no_growth(std::size_t before) const {
    constexpr std::size_t slack = std::size_t{16} * 1024;
    if (in_use() > before + before / 10 + slack) {
      (void)std::fprintf(stderr, "does not hold: the heap in use grew from %zu to %zu bytes\n", before,
                         in_use());
      std::abort();
    }
  }

 private:
  std::size_t base_ = __sanitizer_get_current_allocated_bytes();
};

}  // namespace fuzz
