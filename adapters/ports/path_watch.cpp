#include "ports/path_watch.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace ecu::tamu::ipc {

namespace {

// What happens to the names in a folder. Permissions count, too: a file is often created first and made
// readable afterwards.
constexpr std::uint32_t folder_changes =
    IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;
// What happens to a folder or a symbolic link itself.
constexpr std::uint32_t own_changes = IN_DELETE_SELF | IN_MOVE_SELF;

constexpr int max_links = 40;  // as for the kernel

constexpr std::size_t buffer_size = 4096;

// Events without a name concern a folder or link itself, or lost events.
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

// std::filesystem reads the times of a file, too, and on 32 bits it fails for those after 2038.
std::optional<std::filesystem::path> target_of_link(const std::filesystem::path& file) {
  std::array<char, PATH_MAX> target{};
  const ssize_t size = ::readlink(file.c_str(), target.data(), target.size());
  if (size < 0) {
    return std::nullopt;
  }
  return std::string(target.data(), static_cast<std::size_t>(size));
}

bool is_folder(const std::filesystem::path& file) {
  struct stat status {};
  return ::lstat(file.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::filesystem::path without_first(const std::filesystem::path& path) {
  std::filesystem::path rest;
  std::for_each(std::next(path.begin()), path.end(), [&rest](const auto& name) { rest /= name; });
  return rest;
}

}  // namespace

void PathWatch::set_path(const std::string& path) {
  inotify_.reset();
  path_ = path;
}

bool PathWatch::renew() noexcept {
  posix::UniqueFd fresh(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (!fresh) {
    return false;
  }
  inotify_ = std::move(fresh);
  try {
    return follow_path();
  } catch (const std::exception&) {
    errno = ENOMEM;
    return false;
  }
}

// Everything is watched before it is examined, so that no change is missed in between.
bool PathWatch::follow_path() {
  int error = 0;
  const auto watch = [this, &error](const std::filesystem::path& file, std::uint32_t changes) {
    if (::inotify_add_watch(inotify_.get(), file.c_str(), changes | IN_MASK_ADD) < 0 && errno != ENOENT) {
      error = errno;
    }
  };
  std::filesystem::path folder = path_.is_absolute() ? "/" : ".";
  std::filesystem::path rest = path_.relative_path();
  std::filesystem::path last_folder;
  for (int links = 0; !rest.empty() && links < max_links;) {
    const std::filesystem::path file = folder / *rest.begin();
    const std::filesystem::path after = without_first(rest);
    watch(file, own_changes | IN_DONT_FOLLOW);
    if (const auto target = target_of_link(file)) {
      folder = target->is_absolute() ? "/" : folder;
      rest = target->relative_path() / after;
      ++links;
    } else if (!after.empty() && is_folder(file)) {
      folder = file;
      rest = after;
    } else if (folder != last_folder) {
      last_folder = folder;
      name_ = rest.begin()->string();
      watch(folder, folder_changes);
    } else {
      break;
    }
  }
  errno = error;
  return error == 0;
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
