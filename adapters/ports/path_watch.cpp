#include "ports/path_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <span>
#include <string_view>

namespace ecu::tamu::ipc {

namespace {

// Permissions count, too: a file is often created first and made readable afterwards.
constexpr std::uint32_t changes = IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM | IN_ATTRIB |
                                  IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

constexpr std::size_t buffer_size = 4096;

// Events without a name concern the folder itself, or lost events.
bool concerns(std::span<const char> events, std::string_view name) noexcept {
  while (!events.empty()) {
    inotify_event event{};
    std::memcpy(&event, events.data(), sizeof(event));
    const char* const padded_name = events.data() + sizeof(event);
    if (event.len == 0 || std::string_view(padded_name, ::strnlen(padded_name, event.len)) == name) {
      return true;
    }
    events = events.subspan(sizeof(event) + event.len);
  }
  return false;
}

}  // namespace

void PathWatch::set_path(const std::string& path) {
  const std::filesystem::path parts(path);
  inotify_.reset();
  folder_ = parts.parent_path().string();
  if (folder_.empty()) {
    folder_ = ".";
  }
  name_ = parts.filename().string();
}

bool PathWatch::renew() noexcept {
  if (!inotify_) {
    inotify_.reset(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  }
  return inotify_ && ::inotify_add_watch(inotify_.get(), folder_.c_str(), changes) >= 0;
}

bool PathWatch::take_changes() noexcept {
  bool concerned = false;
  std::array<char, buffer_size> events{};
  for (;;) {
    const ssize_t size = ::read(inotify_.get(), events.data(), events.size());
    if (size > 0) {
      concerned = concerns(std::span(events).first(static_cast<std::size_t>(size)), name_) || concerned;
    } else if (size == 0 || errno != EINTR) {
      return concerned;
    }
  }
}

}  // namespace ecu::tamu::ipc
