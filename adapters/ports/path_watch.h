#pragma once

#include <string>

#include "posix/unique_fd.h"

namespace ecu::tamu::ipc {

/// Notices without polling that a path may have come to name another file: watches its folder (inotify).
/// Does not see what happens to the target of a symbolic link, nor that a folder which was gone is back.
class PathWatch {
 public:
  void set_path(const std::string& path);

  /// Watches from now on; false, with the reason in errno, when that is not possible. To be called again
  /// after a change, as the folder may have been another one.
  [[nodiscard]] bool renew() noexcept;

  /// Readable when something happened in the folder; -1, of which `poll` sees nothing, without a watch.
  [[nodiscard]] int fd() const noexcept { return inotify_.get(); }

  /// Takes what happened since the last call; whether it may concern the path.
  [[nodiscard]] bool take_changes() noexcept;

 private:
  posix::UniqueFd inotify_;
  std::string folder_;
  std::string name_;  // of the path in its folder
};

}  // namespace ecu::tamu::ipc
