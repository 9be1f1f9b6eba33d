#pragma once

#include <filesystem>
#include <string>

#include "posix/unique_fd.h"

namespace ecu::tamu::ipc {

/// Notices without polling that a path may name another file now (inotify): that its file, one of its folders
/// or a symbolic link in it was removed, replaced, renamed or created. Not thread-safe.
class PathWatch {
 public:
  /// Sets the path, absolute or relative to the working directory, and ends the watch of an earlier one. The
  /// watch begins with `renew`. Throws std::bad_alloc.
  void set_path(const std::string& path);

  /// Begins to watch the files that the path leads through now. False, with the reason in errno, when part of
  /// them cannot be watched; if inotify has no instance left, what was watched before still is. Must be
  /// called after each change, because the path may lead through other files.
  [[nodiscard]] bool renew() noexcept;

  /// Readable when something happened; -1, which `poll` ignores, without a watch.
  [[nodiscard]] int fd() const noexcept { return inotify_.get(); }

  /// Takes the events since the last call; true when they may concern the path.
  [[nodiscard]] bool take_changes() noexcept;

 private:
  [[nodiscard]] bool follow_path();

  posix::UniqueFd inotify_;
  std::filesystem::path path_;
  // Of the file, or of the first missing component, in the last folder of the path that exists.
  std::string name_;
};

}  // namespace ecu::tamu::ipc
