#include "logging/line_builder.h"

#include <time.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <ctime>
#include <limits>

#include <ecu/tamu/text/utf8.h>

namespace ecu::tamu::logging {

namespace {

constexpr int decimal = 10;
constexpr int hexadecimal = 16;

constexpr bool is_printable_ascii(char byte) noexcept {
  return byte >= 0x20 && byte <= 0x7e;
}

}  // namespace

void LineBuilder::append_literal(std::string_view text) noexcept {
  if (text.size() <= room()) {
    put(text);
  } else {
    left_out_ += text.size();
  }
}

void LineBuilder::append_escaped(std::string_view text) noexcept {
  while (!text.empty() && append_beginning(text)) {
  }
  left_out_ += text.size();
}

// Moves the printable ASCII at the beginning of `text`, or else one character or byte, to the line; false
// when it does not fit.
bool LineBuilder::append_beginning(std::string_view& text) noexcept {
  const std::string_view reachable = text.substr(0, room());
  const auto* const plain_end = std::ranges::find_if_not(reachable, is_printable_ascii);
  if (const auto plain = static_cast<std::size_t>(plain_end - reachable.begin()); plain > 0) {
    put(text.substr(0, plain));
    text.remove_prefix(plain);
    return true;
  }
  const auto [size, code] = text::first_character(text);
  const bool is_printable = size > 0 && !text::is_control(code);
  // The second byte of an escaped character is not UTF-8 and so is escaped next.
  const std::array<char, 4> escape = text::hex_escape(text.front());
  const std::string_view piece =
      is_printable ? text.substr(0, size) : std::string_view(escape.data(), escape.size());
  if (piece.size() > room()) {
    return false;
  }
  put(piece);
  text.remove_prefix(is_printable ? size : 1);
  return true;
}

void LineBuilder::append_time(Timestamp time) noexcept {
  const std::chrono::sys_seconds seconds{std::chrono::seconds(time.seconds)};
  const auto day = std::chrono::floor<std::chrono::days>(seconds);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(seconds - day);
  const auto append_part = [this](auto part, std::size_t digits, std::string_view separator) {
    append_number(static_cast<std::uint64_t>(part), decimal, digits);
    append_literal(separator);
  };
  append_part(static_cast<int>(date.year()), 4, "-");
  append_part(static_cast<unsigned>(date.month()), 2, "-");
  append_part(static_cast<unsigned>(date.day()), 2, "T");
  append_part(clock.hours().count(), 2, ":");
  append_part(clock.minutes().count(), 2, ":");
  append_part(clock.seconds().count(), 2, ".");
  append_part(time.milliseconds, 3, "Z");
}

void LineBuilder::append_local_time(Timestamp time) noexcept {
  constexpr std::array<std::string_view, 12> months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  static_assert(sizeof(std::time_t) == sizeof(time.seconds), "a time beyond 2038 must fit");
  const std::time_t seconds = time.seconds;
  std::tm local{};
  ::localtime_r(&seconds, &local);
  const auto append_part = [this](std::string_view separator, int part) {
    append_literal(separator);
    append_number(static_cast<std::uint64_t>(part), decimal, 2);
  };
  append_literal(months[static_cast<std::size_t>(local.tm_mon)]);
  append_literal(local.tm_mday < 10 ? "  " : " ");
  append_number(static_cast<std::uint64_t>(local.tm_mday), decimal);
  append_part(" ", local.tm_hour);
  append_part(":", local.tm_min);
  append_part(":", local.tm_sec);
}

void LineBuilder::append(const Field& field) noexcept {
  switch (field.kind_) {
    case Field::Kind::text:
      append_escaped(field.text_);
      break;
    case Field::Kind::signed_number: {
      const bool negative = static_cast<std::int64_t>(field.number_) < 0;
      append_literal(negative ? "-" : "");
      append_number(negative ? 0 - field.number_ : field.number_, decimal);
      break;
    }
    case Field::Kind::unsigned_number:
      append_number(field.number_, decimal);
      break;
    case Field::Kind::hexadecimal:
      append_number(field.number_, hexadecimal, field.min_digits_);
      break;
    case Field::Kind::real: {
      std::array<char, 32> text;
      char* const end =
          std::to_chars(text.begin(), text.end(), field.real_, std::chars_format::general, 6).ptr;
      append_literal({text.begin(), end});
      break;
    }
  }
}

std::string_view LineBuilder::finish(std::string_view end) noexcept {
  if (left_out_ > 0) {
    std::array<char, std::numeric_limits<std::size_t>::digits10 + 1> digits;
    put("... (");
    put({digits.begin(), std::to_chars(digits.begin(), digits.end(), left_out_).ptr});
    put(left_out_ == 1 ? " byte left out)" : " bytes left out)");
  }
  put(end);
  return {buffer_.data(), size_};
}

// The room for text; 0 after a piece that did not fit, so that the line ends there.
std::size_t LineBuilder::room() const noexcept {
  return left_out_ > 0 ? 0 : max_size - end_room - size_;
}

void LineBuilder::append_number(std::uint64_t number, int base, std::size_t min_digits) noexcept {
  std::array<char, std::numeric_limits<std::uint64_t>::digits10 + 1> digits;
  const char* const end = std::to_chars(digits.begin(), digits.end(), number, base).ptr;
  const auto count = static_cast<std::size_t>(end - digits.begin());
  for (std::size_t missing = count; missing < min_digits; ++missing) {
    append_literal("0");
  }
  append_literal({digits.begin(), count});
}

// Appends text; the line must have room for it.
void LineBuilder::put(std::string_view text) noexcept {
  text.copy(buffer_.data() + size_, text.size());
  size_ += text.size();
}

}  // namespace ecu::tamu::logging
