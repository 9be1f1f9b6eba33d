#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string_view>

/// Log lines with the levels of syslog (RFC 5424). A line above the current level costs a load and a compare.
/// Every function may be called from any thread; a line is written as a whole. The log never waits for its
/// reader: a line that is not accepted at once is dropped and counted. A line holds at most 4 KiB, including
/// its time; a longer text is cut, and the line ends with the number of bytes left out.
namespace ecu::tamu::logging {

enum class Level : int {
  emerg = 0,
  alert = 1,
  critical = 2,
  error = 3,
  warning = 4,
  notice = 5,
  info = 6,
  debug = 7,
};

/// Where lines go; `none` is for programs that report to their users themselves.
enum class LogMode : int { syslog = 0, standard_output = 1, standard_error = 2, none = 3 };

/// Sets the level by its name, EMERG to DEBUG, in upper or lower case. An empty name sets the default level;
/// an unknown name does not change the level and is reported at WARNING.
void configure_logging(std::string_view level_name);

/// The level named `name`, in upper or lower case; nothing for an unknown name.
[[nodiscard]] std::optional<Level> level_from_name(std::string_view name) noexcept;

/// The name of a level in capitals, such as "NOTICE".
[[nodiscard]] std::string_view name_of(Level level) noexcept;

[[nodiscard]] std::string_view get_default_log_level_name() noexcept;

/// Chooses where lines go; syslog until called. Call it again after another file has been put in place of
/// standard output or error.
void set_log_mode(LogMode mode) noexcept;

/// An integer written in lower-case hexadecimal digits without a prefix, with at least `min_digits` of them.
struct Hex {
  std::uint64_t number;
  int min_digits = 1;
};
[[nodiscard]] constexpr Hex hex(std::uint64_t number, int min_digits = 1) noexcept {
  return {number, min_digits};
}

/// One piece of a line: a text, an integer, a floating-point number or a `Hex`. It refers to its text, which
/// must outlive the log call.
class Field {
 public:
  enum class Kind : std::uint8_t { text, signed_number, unsigned_number, real, hexadecimal };

  // NOLINTBEGIN(google-explicit-constructor): fields are made in the argument list of a log call
  template <class T>
  requires std::convertible_to<const T&, std::string_view> Field(const T& text)
  noexcept : kind_(Kind::text), text_(std::string_view(text)) {}
  template <std::signed_integral T>
  Field(T number) noexcept : kind_(Kind::signed_number), number_(static_cast<std::uint64_t>(number)) {}
  template <std::unsigned_integral T>
  Field(T number) noexcept : kind_(Kind::unsigned_number), number_(number) {}
  Field(double number) noexcept : kind_(Kind::real), real_(number) {}
  Field(Hex number) noexcept
      : kind_(Kind::hexadecimal),
        min_digits_(static_cast<std::uint8_t>(number.min_digits)),
        number_(number.number) {}
  // NOLINTEND(google-explicit-constructor)

 private:
  friend class LineBuilder;

  Kind kind_;
  std::uint8_t min_digits_ = 1;
  union {
    std::string_view text_;
    std::uint64_t number_;
    double real_;
  };
};

namespace detail {
extern std::atomic<int> current_level;
void write_line(Level level, std::string_view module, std::initializer_list<Field> fields) noexcept;
}  // namespace detail

[[nodiscard]] inline Level get_log_level() noexcept {
  return static_cast<Level>(detail::current_level.load(std::memory_order_relaxed));
}

/// Whether a line of `level` is written.
[[nodiscard]] inline bool enabled(Level level) noexcept {
  return get_log_level() >= level;
}

/// Writes the fields one after another as one line.
template <class... Fields>
void log(Level level, const Fields&... fields) noexcept {
  if (enabled(level)) {
    detail::write_line(level, {}, {Field(fields)...});
  }
}

template <class... Fields>
void error(const Fields&... fields) noexcept {
  log(Level::error, fields...);
}
template <class... Fields>
void warning(const Fields&... fields) noexcept {
  log(Level::warning, fields...);
}
template <class... Fields>
void notice(const Fields&... fields) noexcept {
  log(Level::notice, fields...);
}
template <class... Fields>
void info(const Fields&... fields) noexcept {
  log(Level::info, fields...);
}
template <class... Fields>
void debug(const Fields&... fields) noexcept {
  log(Level::debug, fields...);
}

/// A component of the program: its lines begin with "[name] ".
class Module {
 public:
  constexpr explicit Module(std::string_view name) noexcept : name_(name) {}

  template <class... Fields>
  void log(Level level, const Fields&... fields) const noexcept {
    if (enabled(level)) {
      detail::write_line(level, name_, {Field(fields)...});
    }
  }
  template <class... Fields>
  void error(const Fields&... fields) const noexcept {
    log(Level::error, fields...);
  }
  template <class... Fields>
  void warning(const Fields&... fields) const noexcept {
    log(Level::warning, fields...);
  }
  template <class... Fields>
  void notice(const Fields&... fields) const noexcept {
    log(Level::notice, fields...);
  }
  template <class... Fields>
  void info(const Fields&... fields) const noexcept {
    log(Level::info, fields...);
  }
  template <class... Fields>
  void debug(const Fields&... fields) const noexcept {
    log(Level::debug, fields...);
  }

 private:
  std::string_view name_;
};

/// `name` must outlive the module; a string literal does.
[[nodiscard]] constexpr Module module(std::string_view name) noexcept {
  return Module(name);
}

}  // namespace ecu::tamu::logging
