#include "system/supervision.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include <ecu/tamu/application.h>
#include <ecu/tamu/logging/logging.h>
#include <ecu/tamu/text/parse_number.h>
#include <ecu/tamu/thread_safety.h>

#include "posix/unique_fd.h"

namespace ecu::tamu {

namespace {

constexpr auto logger = logging::module("tamu.supervision");

constexpr const char* socket_variable = "NOTIFY_SOCKET";
constexpr const char* watchdog_time_variable = "WATCHDOG_USEC";
constexpr const char* watchdog_process_variable = "WATCHDOG_PID";

std::string_view environment(const char* name) noexcept {
  const char* const value = std::getenv(name);
  return value == nullptr ? std::string_view{} : std::string_view(value);
}

struct Address {
  sockaddr_un name{};
  socklen_t size = 0;
};

// The socket address for `text`, which must not be empty: a path, or "@" and an abstract name.
std::optional<Address> to_address(std::string_view text) noexcept {
  Address address;
  if (text.size() > sizeof address.name.sun_path || (text.front() != '/' && text.front() != '@')) {
    return std::nullopt;
  }
  address.name.sun_family = AF_UNIX;
  text.copy(address.name.sun_path, text.size());
  if (text.front() == '@') {
    address.name.sun_path[0] = '\0';
  }
  address.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + text.size());
  return address;
}

// False with errno set on failure.
bool deliver(const Address& address, std::string_view state) noexcept {
  const posix::UniqueFd channel(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  return channel && ::sendto(channel.get(), state.data(), state.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                             reinterpret_cast<const sockaddr*>(&address.name), address.size) >= 0;
}

void notify(std::string_view state) noexcept {
  const std::string_view target = environment(socket_variable);
  if (target.empty()) {
    return;
  }
  const std::optional<Address> address = to_address(target);
  if (!address) {
    logger.warning(socket_variable, " '", target, "' is not an address of a local socket");
  } else if (!deliver(*address, state)) {
    logger.warning("Unable to notify the service manager at '", target, "' (errno ", errno, ")");
  }
}

// The status text, made of parts. It is sent with the lock held, so that the newest text is sent last.
class Status {
 public:
  void set(std::string_view name, std::string_view text) {
    const MutexLock lock(mutex_);
    parts_.insert_or_assign(std::string(name), without_controls(text));
    const std::string joined_parts = joined();
    if (joined_parts != sent_) {
      notify("STATUS=" + joined_parts);
      sent_ = joined_parts;
    }
  }

  void send_with(const std::string& state) {
    const MutexLock lock(mutex_);
    sent_ = joined();
    notify(state + "\nSTATUS=" + (sent_.empty() ? "Running" : sent_));
  }

 private:
  // A line feed would end the text and begin another assignment.
  static std::string without_controls(std::string_view text) {
    std::string plain(text);
    std::replace_if(
        plain.begin(), plain.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
    return plain;
  }

  [[nodiscard]] std::string joined() const TAMU_REQUIRES(mutex_) {
    std::string text;
    for (const auto& [name, part] : parts_) {
      text += (text.empty() || part.empty() ? "" : "; ") + part;
    }
    return text;
  }

  Mutex mutex_;

  // Guarded by mutex_.
  std::map<std::string, std::string> parts_ TAMU_GUARDED_BY(mutex_);
  std::string sent_ TAMU_GUARDED_BY(mutex_);
};

Status& status() {
  static Status instance;
  return instance;
}

}  // namespace

void application_starting() noexcept {
  notify("STATUS=Starting");
}

void application_ready() noexcept {
  try {
    status().send_with("READY=1");
  } catch (const std::bad_alloc&) {
    notify("READY=1");
  }
}

void set_status(std::string_view part, std::string_view text) noexcept {
  if (environment(socket_variable).empty()) {
    return;
  }
  try {
    status().set(part, text);
  } catch (const std::bad_alloc&) {
    logger.warning("No memory for the status text");
  }
}

void notify_stopping() noexcept {
  notify("STOPPING=1");
}

void notify_watchdog() noexcept {
  notify("WATCHDOG=1");
}

std::optional<std::chrono::microseconds> watchdog_period() noexcept {
  constexpr std::uint64_t never = std::numeric_limits<std::uint64_t>::max();
  const std::string_view process = environment(watchdog_process_variable);
  if (!process.empty() && text::parse_number(process) != static_cast<std::uint64_t>(::getpid())) {
    return std::nullopt;
  }
  const std::uint64_t half = text::parse_number(environment(watchdog_time_variable)).value_or(never) / 2;
  if (half == 0 || half == never / 2) {
    return std::nullopt;
  }
  return std::chrono::microseconds(half);
}

}  // namespace ecu::tamu
