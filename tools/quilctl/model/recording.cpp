#include "quilctl/model/recording.h"

#include <algorithm>
#include <utility>

#include <ecu/tamu/com/topic.h>
#include <ecu/tamu/text/parse_number.h>

#include "common/bounded_line.h"
#include "common/escaping.h"
#include "common/hexadecimal.h"
#include "common/input_file.h"
#include "quilctl/base/failure.h"

namespace ecu::ctl {

namespace {

using std::chrono::microseconds;

constexpr std::string_view retained_flag = "retained";
constexpr std::string_view acknowledged_flag = "qos1";
constexpr std::string_view redacted_mark = "redacted";
constexpr std::string_view hex_prefix = "hex:";
constexpr std::string_view escaped_quote = R"(\x22)";
constexpr std::string_view blanks = " \t\r";
constexpr std::size_t decimals = 6;
constexpr std::uint32_t max_seconds = 1'000'000'000;
constexpr std::size_t max_first_line_size = 1024;
// Room for the largest payload that is recorded, 16 MiB, with every byte escaped.
constexpr std::size_t max_line_size = std::size_t{65} * 1024 * 1024;

std::string quoted(std::string_view bytes) {
  std::string text = "\"";
  for (const char character : tools::printable(bytes)) {
    text += character == '"' ? escaped_quote : std::string_view(&character, 1);
  }
  return text + '"';
}

bool is_plain_text(std::string_view bytes) {
  return tools::is_utf8(bytes) &&
         std::ranges::count(tools::printable(bytes), '\\') == 2 * std::ranges::count(bytes, '\\');
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(blanks);
  return first == std::string_view::npos ? std::string_view()
                                         : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Removes the first word from `rest`.
std::string_view next_word(std::string_view& rest) {
  rest = trimmed(rest);
  const std::string_view word = rest.substr(0, rest.find_first_of(blanks));
  rest.remove_prefix(word.size());
  rest = trimmed(rest);
  return word;
}

}  // namespace

std::string line_of(const Recorded& message) {
  const std::string fraction = std::to_string(1'000'000 + message.at.count() % 1'000'000).substr(1);
  std::string line =
      std::to_string(message.at.count() / 1'000'000) + '.' + fraction + ' ' + quoted(message.topic);
  if (message.retained) {
    line.append(" ").append(retained_flag);
  }
  if (message.acknowledged) {
    line.append(" ").append(acknowledged_flag);
  }
  line += ' ';
  return line + (!message.payload ? std::string(redacted_mark)
                 : is_plain_text(*message.payload)
                     ? quoted(*message.payload)
                     : std::string(hex_prefix) + tools::to_hex(*message.payload));
}

RecordingReader::RecordingReader(std::istream& input, std::string name)
    : input_(input), name_(std::move(name)) {
  std::string line;
  if (!read_line(line, max_first_line_size) || trimmed(line) != recording_header) {
    fail("not a recording: the first line is not '" + std::string(recording_header) + "'");
  }
}

std::optional<Recorded> RecordingReader::next() {
  std::string line;
  while (read_line(line, max_line_size)) {
    if (line.size() > max_line_size) {
      fail("the line has more than " + std::to_string(max_line_size) + " bytes");
    }
    const std::string_view text = trimmed(line);
    if (text.empty() || text.front() == '#') {
      continue;
    }
    Recorded message = parse(text);
    if (message.at < last_) {
      fail("the time is earlier than that of the line before");
    }
    last_ = message.at;
    return message;
  }
  return std::nullopt;
}

bool RecordingReader::read_line(std::string& line, std::size_t max_size) {
  ++line_;
  const bool is_there = tools::read_line(input_, line, max_size);
  if (input_.bad()) {
    throw tools::input_error(name_);
  }
  return is_there;
}

void RecordingReader::fail(const std::string& reason) const {
  throw Failure(ExitCode::failure, name_ + ":" + std::to_string(line_) + ": " + reason);
}

Recorded RecordingReader::parse(std::string_view line) const {
  Recorded message;
  message.at = parse_time(next_word(line));
  message.topic = parse_quoted(line);
  if (!tamu::com::is_topic_name(message.topic)) {
    fail("invalid topic: wildcards are not allowed, nor an empty topic");
  }
  for (line = trimmed(line);;) {
    std::string_view rest = line;
    const std::string_view word = next_word(rest);
    if (word == retained_flag) {
      message.retained = true;
    } else if (word == acknowledged_flag) {
      message.acknowledged = true;
    } else {
      break;
    }
    line = rest;
  }
  message.payload = parse_payload(line);
  return message;
}

microseconds RecordingReader::parse_time(std::string_view text) const {
  const std::size_t point = text.find('.');
  const auto seconds = tamu::text::parse_number<std::uint32_t>(text.substr(0, point));
  std::string fraction(point == std::string_view::npos ? "" : text.substr(point + 1));
  fraction.resize(std::max(fraction.size(), decimals), '0');
  const auto micros = tamu::text::parse_number<std::uint32_t>(fraction);
  if (!seconds || *seconds > max_seconds || !micros || fraction.size() > decimals) {
    fail("'" + std::string(text) + "' is not a time in seconds with at most 6 decimals");
  }
  return std::chrono::seconds(*seconds) + microseconds(*micros);
}

std::string RecordingReader::parse_quoted(std::string_view& rest) const {
  const std::size_t end = rest.starts_with('"') ? rest.find('"', 1) : std::string_view::npos;
  if (end == std::string_view::npos) {
    fail("text in double quotes expected");
  }
  auto text = tools::from_printable(rest.substr(1, end - 1));
  if (!text) {
    fail(R"(invalid escape: only \\ and \xNN are allowed)");
  }
  rest.remove_prefix(end + 1);
  return std::move(*text);
}

std::optional<std::string> RecordingReader::parse_payload(std::string_view rest) const {
  if (rest == redacted_mark) {
    return std::nullopt;
  }
  if (rest.starts_with(hex_prefix)) {
    auto bytes = tools::from_hex(rest.substr(hex_prefix.size()));
    if (!bytes) {
      fail("invalid hexadecimal payload: each byte needs two digits");
    }
    return bytes;
  }
  std::string text = parse_quoted(rest);
  if (!rest.empty()) {
    fail("'" + std::string(rest) + "' after the payload");
  }
  return text;
}

}  // namespace ecu::ctl
