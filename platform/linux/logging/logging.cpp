#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <new>

#include <ecu/tamu/logging/logging.h>

#include "logging/sink.h"

namespace ecu::tamu::logging {

namespace {

constexpr Level default_level = Level::notice;

// In the order of the levels' numbers.
constexpr std::array<std::string_view, 8> level_names = {"EMERG",   "ALERT",  "CRITICAL", "ERROR",
                                                         "WARNING", "NOTICE", "INFO",     "DEBUG"};

constinit std::atomic<LogMode> current_mode{LogMode::syslog};

// Independent of the locale, unlike toupper.
constexpr char to_upper(char letter) noexcept {
  return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

struct Sinks {
  SyslogSink system_log;
  StreamSink standard_output{STDOUT_FILENO};
  StreamSink standard_error{STDERR_FILENO};
};

// Never destroyed, because a thread may log until the process ends; not on the heap, because a lack of memory
// is logged, too.
Sinks& sinks() noexcept {
  alignas(Sinks) static std::array<std::byte, sizeof(Sinks)> memory;
  // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): nothing is allocated
  static auto* const all = new (memory.data()) Sinks;
  return *all;
}

Sink* sink_of(LogMode mode) noexcept {
  switch (mode) {
    case LogMode::syslog:
      return &sinks().system_log;
    case LogMode::standard_output:
      return &sinks().standard_output;
    case LogMode::standard_error:
      return &sinks().standard_error;
    case LogMode::none:
      break;
  }
  return nullptr;
}

}  // namespace

namespace detail {

constinit std::atomic<int> current_level{static_cast<int>(default_level)};

void write_line(Level level, std::string_view module, std::initializer_list<Field> fields) noexcept {
  // A caller may log between a failed call and its check of errno.
  const int saved_errno = errno;
  if (Sink* const sink = sink_of(current_mode.load(std::memory_order_relaxed))) {
    sink->write(level, module, fields);
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

std::string_view name_of(Level level) noexcept {
  return level_names[static_cast<std::size_t>(level)];
}

std::string_view get_default_log_level_name() noexcept {
  return name_of(default_level);
}

void set_log_mode(LogMode mode) noexcept {
  if (Sink* const sink = sink_of(mode)) {
    sink->reset();
  }
  current_mode.store(mode, std::memory_order_relaxed);
}

}  // namespace ecu::tamu::logging
