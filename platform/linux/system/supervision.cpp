#include "system/supervision.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
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

// The errors that may be gone at the next attempt.
bool may_pass(int error) noexcept {
  return error == EAGAIN || error == ENOBUFS || error == ENOMEM || error == EMFILE || error == ENFILE;
}

// The connection to the service manager, and the status text, which is made of parts. The newest text is sent
// last, because each is sent with the lock held. The socket stays open, because a process without a free
// descriptor is still alive.
class Manager {
 public:
  // False if a further attempt may succeed.
  bool notify(std::string_view state) noexcept {
    const MutexLock lock(mutex_);
    return send(state);
  }

  void set_status(std::string_view part, std::string_view text) {
    const MutexLock lock(mutex_);
    parts_.insert_or_assign(std::string(part), without_controls(text));
    (void)send_status();
  }

  void set_ready() {
    const MutexLock lock(mutex_);
    ready_is_due_ = true;
    (void)send_status();
  }

  bool notify_again() {
    const MutexLock lock(mutex_);
    return send_status();
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

  // Sends READY=1 and the text as far as the manager does not know them; false as for `send`.
  bool send_status() TAMU_REQUIRES(mutex_) {
    const std::string text = joined();
    if (!ready_is_due_ && text == sent_) {
      return true;
    }
    const std::string shown = ready_is_due_ && text.empty() ? "Running" : text;
    if (!send((ready_is_due_ ? "READY=1\nSTATUS=" : "STATUS=") + shown)) {
      return false;
    }
    ready_is_due_ = false;
    sent_ = text;
    return true;
  }

  bool send(std::string_view state) noexcept TAMU_REQUIRES(mutex_) {
    const std::string_view target = environment(socket_variable);
    if (target.empty()) {
      return true;
    }
    const std::optional<Address> address = to_address(target);
    const int error = address ? deliver(*address, state) : EINVAL;
    if (error != 0 && error != error_) {
      logger.warning("Unable to notify the service manager at '", target, "': ", std::strerror(error));
    }
    error_ = error;
    return !may_pass(error);
  }

  // The error, or 0.
  int deliver(const Address& address, std::string_view state) noexcept TAMU_REQUIRES(mutex_) {
    if (!channel_) {
      channel_.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    }
    return channel_ && ::sendto(channel_.get(), state.data(), state.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&address.name), address.size) >= 0
               ? 0
               : errno;
  }

  Mutex mutex_;

  // Guarded by mutex_.
  posix::UniqueFd channel_ TAMU_GUARDED_BY(mutex_);
  int error_ TAMU_GUARDED_BY(mutex_) = 0;  // of the last notification; each is logged when it begins
  std::map<std::string, std::string> parts_ TAMU_GUARDED_BY(mutex_);
  std::string sent_ TAMU_GUARDED_BY(mutex_);
  bool ready_is_due_ TAMU_GUARDED_BY(mutex_) = false;
};

Manager& manager() {
  static Manager instance;
  return instance;
}

}  // namespace

void application_starting() noexcept {
  (void)manager().notify("STATUS=Starting");
}

void application_ready() noexcept {
  try {
    manager().set_ready();
  } catch (const std::bad_alloc&) {
    (void)manager().notify("READY=1");
  }
}

void set_status(std::string_view part, std::string_view text) noexcept {
  if (environment(socket_variable).empty()) {
    return;
  }
  try {
    manager().set_status(part, text);
  } catch (const std::bad_alloc&) {
    logger.warning("No memory for the status text");
  }
}

bool notify_again() noexcept {
  try {
    return manager().notify_again();
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void notify_stopping() noexcept {
  (void)manager().notify("STOPPING=1");
}

bool notify_watchdog() noexcept {
  return manager().notify("WATCHDOG=1");
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
