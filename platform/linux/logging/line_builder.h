#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <ecu/tamu/logging/logging.h>

namespace ecu::tamu::logging {

/// A time since the Epoch, from the system's clock.
struct Timestamp {
  std::int64_t seconds;
  int milliseconds;
};

/// Composes one line of at most 4 KiB, without the heap. A longer text is cut after the last character or
/// escape that fits, and the line then ends in "... (N bytes left out)"; N counts the bytes before they were
/// escaped. Not thread-safe.
class LineBuilder {
 public:
  static constexpr std::size_t max_size = 4096;  // including the prefix and the newline

  /// Appends text unchanged, or omits it completely.
  void append_literal(std::string_view text) noexcept;

  /// Appends text; control characters (below U+0020, U+007F to U+009F) and bytes that are not part of valid
  /// UTF-8 (RFC 3629) as `\xNN` each.
  void append_escaped(std::string_view text) noexcept;

  /// Appends a time in UTC in the form of ISO 8601: `2026-11-21T10:00:00.123Z`.
  void append_time(Timestamp time) noexcept;

  /// Appends a local time in the form of the system log (RFC 3164): `Nov  1 10:00:00`.
  void append_local_time(Timestamp time) noexcept;

  /// Appends a piece of a log call: texts escaped, floating-point numbers with six significant digits.
  void append(const Field& field) noexcept;

  /// The whole line followed by `end`. Nothing may be appended afterwards.
  [[nodiscard]] std::string_view finish(std::string_view end) noexcept;

 private:
  static constexpr std::size_t end_room = 64;  // for the number of bytes left out and the end

  [[nodiscard]] std::size_t room() const noexcept;
  bool append_beginning(std::string_view& text) noexcept;
  void append_number(std::uint64_t number, int base, std::size_t min_digits = 1) noexcept;
  void put(std::string_view text) noexcept;

  std::array<char, max_size> buffer_;
  std::size_t size_ = 0;
  std::size_t left_out_ = 0;
};

}  // namespace ecu::tamu::logging
