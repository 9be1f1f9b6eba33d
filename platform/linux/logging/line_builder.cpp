#include "logging/line_builder.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace ecu::tamu::logging {

namespace {

constexpr int decimal = 10;
constexpr int hexadecimal = 16;

// The well-formed sequences of more than one byte by their first byte (RFC 3629, section 4). What follows the
// second byte is 0x80 to 0xbf always.
struct Utf8Form {
  unsigned char first_from, first_to;
  unsigned char second_from, second_to;
  std::size_t length;
};
constexpr Utf8Form utf8_forms[] = {
    {0xc2, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3}, {0xe1, 0xec, 0x80, 0xbf, 3},
    {0xed, 0xed, 0x80, 0x9f, 3}, {0xee, 0xef, 0x80, 0xbf, 3}, {0xf0, 0xf0, 0x90, 0xbf, 4},
    {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4},
};

constexpr bool is_within(char byte, unsigned char from, unsigned char to) noexcept {
  const auto value = static_cast<unsigned char>(byte);
  return from <= value && value <= to;
}

bool begins_with(std::string_view text, const Utf8Form& form) noexcept {
  return text.size() >= form.length && is_within(text[0], form.first_from, form.first_to) &&
         is_within(text[1], form.second_from, form.second_to) &&
         std::ranges::all_of(text.substr(2, form.length - 2),
                             [](char byte) { return is_within(byte, 0x80, 0xbf); });
}

// Length of the character at the beginning of `text` that a line may hold as it is; 0 when there is none.
std::size_t printable_length(std::string_view text) noexcept {
  if (is_within(text.front(), 0, 0x7f)) {
    return is_within(text.front(), 0x20, 0x7e) ? 1 : 0;
  }
  const auto* const form = std::ranges::find_if(
      utf8_forms, [text](const Utf8Form& candidate) { return begins_with(text, candidate); });
  return form == std::end(utf8_forms) ? 0 : form->length;
}

}  // namespace

void LineBuilder::append_escaped(std::string_view text) {
  while (!text.empty()) {
    std::size_t printable = 0;
    while (printable < text.size()) {
      const std::size_t length = printable_length(text.substr(printable));
      if (length == 0) {
        break;
      }
      printable += length;
    }
    line_.append(text.substr(0, printable));
    text.remove_prefix(printable);
    if (!text.empty()) {
      line_.append("\\x");
      append_number(static_cast<unsigned char>(text.front()), hexadecimal, 2);
      text.remove_prefix(1);
    }
  }
}

void LineBuilder::append_time(std::chrono::sys_time<std::chrono::milliseconds> time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
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
  append_part(clock.subseconds().count(), 3, "Z");
}

void LineBuilder::append(const Field& field) {
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
      line_.append(text.begin(), end);
      break;
    }
  }
}

void LineBuilder::append_number(std::uint64_t number, int base, std::size_t min_digits) {
  std::array<char, std::numeric_limits<std::uint64_t>::digits10 + 1> digits;
  const char* const end = std::to_chars(digits.begin(), digits.end(), number, base).ptr;
  const auto count = static_cast<std::size_t>(end - digits.begin());
  line_.append(min_digits > count ? min_digits - count : 0, '0');
  line_.append(digits.begin(), count);
}

}  // namespace ecu::tamu::logging
