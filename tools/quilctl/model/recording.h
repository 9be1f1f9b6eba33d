#pragma once

#include <chrono>
#include <istream>
#include <optional>
#include <string>
#include <string_view>

/// Messages of the bus as text, one in each line, for people to read and edit:
///
///   quilctl-recording 1
///   # a comment
///   0.000123 "rt/system/hw_variant" hex:0a0b0c
///   0.250000 "system/presence/quil" retained qos1 "online"
///   0.250410 "system/quil/secstore/getmaster" retained qos1 redacted
///
/// Time in seconds since the beginning, topic, flags, payload: text in quotes, hexadecimal, or left out
/// because it is a secret. In quotes bytes are escaped as `printable` does, and a quote as \x22.
namespace ecu::ctl {

struct Recorded {
  std::chrono::microseconds at{};
  std::string topic;
  bool retained = false;
  bool acknowledged = false;           // quality of service 1
  std::optional<std::string> payload;  // none: redacted
};

/// The first line of a recording, and the line of a message, both without line end.
inline constexpr std::string_view recording_header = "quilctl-recording 1";
[[nodiscard]] std::string line_of(const Recorded& message);

/// Reads a recording line by line. Throws `Failure` with name, line and reason when it is malformed, and
/// `tools::InputError` when it cannot be read.
class RecordingReader {
 public:
  /// `input` must outlive the reader; error texts call it `name`.
  RecordingReader(std::istream& input, std::string name);

  /// The next message; nothing at the end. Times never decrease.
  [[nodiscard]] std::optional<Recorded> next();

 private:
  [[nodiscard]] bool read_line(std::string& line, std::size_t max_size);
  [[noreturn]] void fail(const std::string& reason) const;
  [[nodiscard]] Recorded parse(std::string_view line) const;
  [[nodiscard]] std::chrono::microseconds parse_time(std::string_view text) const;
  [[nodiscard]] std::string parse_quoted(std::string_view& rest) const;
  [[nodiscard]] std::optional<std::string> parse_payload(std::string_view rest) const;

  std::istream& input_;
  const std::string name_;
  int line_ = 0;
  std::chrono::microseconds last_{};
};

}  // namespace ecu::ctl
