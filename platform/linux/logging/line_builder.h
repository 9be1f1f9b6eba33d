#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory_resource>
#include <string>
#include <string_view>

#include <ecu/tamu/logging/logging.h>

namespace ecu::tamu::logging {

/// Composes one line, without the heap unless the line is long. Throws std::bad_alloc. One thread at a time.
class LineBuilder {
 public:
  LineBuilder() { line_.reserve(buffer_.size() - 1); }

  /// Appends text as it is.
  void append_literal(std::string_view text) { line_.append(text); }

  /// Appends text, each byte below 0x20, 0x7f and each byte that is not part of valid UTF-8 (RFC 3629) as
  /// `\xNN`.
  void append_escaped(std::string_view text);

  /// Appends a time as ISO 8601 has it, in UTC and to the millisecond: `2026-11-21T10:00:00.123Z`.
  void append_time(std::chrono::sys_time<std::chrono::milliseconds> time);

  /// Appends a piece of a log call: texts escaped, floating-point numbers with six significant digits.
  void append(const Field& field);

  [[nodiscard]] const std::pmr::string& line() const noexcept { return line_; }

 private:
  void append_number(std::uint64_t number, int base, std::size_t min_digits = 1);

  std::array<std::byte, 1024> buffer_;
  std::pmr::monotonic_buffer_resource memory_{buffer_.data(), buffer_.size()};
  std::pmr::string line_{&memory_};
};

}  // namespace ecu::tamu::logging
