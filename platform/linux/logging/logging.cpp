#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <mutex>

#include <ecu/tamu/logging/logging.h>

#include "logging/line_builder.h"

namespace ecu::tamu::logging {

namespace {

constexpr const char* syslog_identity = "tolquil";
constexpr Level default_level = Level::notice;

// In the order of the levels' numbers.
constexpr std::array<std::string_view, 8> level_names = {"EMERG",   "ALERT",  "CRITICAL", "ERROR",
                                                         "WARNING", "NOTICE", "INFO",     "DEBUG"};

constexpr std::string_view name_of(Level level) noexcept {
  return level_names[static_cast<std::size_t>(level)];
}

constinit std::atomic<LogMode> current_mode{LogMode::syslog};

// Held while a line is written: a pipe takes a long line in pieces, and another line must not come between
// them.
constinit std::mutex output_lock;

// Independent of the locale, unlike toupper.
constexpr char to_upper(char letter) noexcept {
  return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

// The rest of a line that cannot be written is lost: there is nobody to tell.
void write_whole(int descriptor, std::string_view line) {
  const std::lock_guard lock(output_lock);
  while (!line.empty()) {
    const ssize_t written = ::write(descriptor, line.data(), line.size());
    if (written > 0) {
      line.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0 || errno != EINTR) {
      return;
    }
  }
}

void write_syslog(Level level, const char* line) {
  static std::once_flag opened;
  std::call_once(opened, [] { openlog(syslog_identity, LOG_PID, LOG_DAEMON); });
  ::syslog(static_cast<int>(level), "%s", line);
}

void append_text(LineBuilder& line, std::string_view module, std::initializer_list<Field> fields) {
  if (!module.empty()) {
    line.append_literal("[");
    line.append_escaped(module);
    line.append_literal("] ");
  }
  for (const Field& field : fields) {
    line.append(field);
  }
}

void write(Level level, std::string_view module, std::initializer_list<Field> fields) {
  const LogMode mode = current_mode.load(std::memory_order_relaxed);
  if (mode == LogMode::none) {
    return;
  }
  LineBuilder line;
  if (mode == LogMode::syslog) {
    append_text(line, module, fields);
    write_syslog(level, line.line().c_str());
    return;
  }
  using std::chrono::milliseconds;
  line.append_time(std::chrono::floor<milliseconds>(std::chrono::system_clock::now()));
  line.append_literal(" ");
  line.append_literal(name_of(level));
  line.append_literal(" ");
  append_text(line, module, fields);
  line.append_literal("\n");
  write_whole(mode == LogMode::standard_output ? STDOUT_FILENO : STDERR_FILENO, line.line());
}

}  // namespace

namespace detail {

constinit std::atomic<int> current_level{static_cast<int>(default_level)};

void write_line(Level level, std::string_view module, std::initializer_list<Field> fields) noexcept {
  // A caller may log between a failed call and its look at errno.
  const int saved_errno = errno;
  try {
    write(level, module, fields);
  } catch (...) {
    // Out of memory: the line is lost, the process is not.
  }
  errno = saved_errno;
}

}  // namespace detail

void configure_logging(std::string_view level_name) {
  const std::optional<Level> level = level_name.empty() ? default_level : level_from_name(level_name);
  if (level) {
    detail::current_level.store(static_cast<int>(*level), std::memory_order_relaxed);
  } else {
    warning("Unknown log level '", level_name, "', it stays at ", name_of(get_log_level()));
  }
}

std::optional<Level> level_from_name(std::string_view name) noexcept {
  const auto* const found = std::ranges::find_if(level_names, [name](std::string_view candidate) {
    return std::ranges::equal(name, candidate, {}, to_upper);
  });
  if (found == level_names.end()) {
    return std::nullopt;
  }
  return static_cast<Level>(found - level_names.begin());
}

std::string_view get_default_log_level_name() noexcept {
  return name_of(default_level);
}

void set_log_mode(LogMode mode) noexcept {
  current_mode.store(mode, std::memory_order_relaxed);
}

}  // namespace ecu::tamu::logging
