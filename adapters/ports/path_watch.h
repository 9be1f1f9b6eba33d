#pragma once

#include <string>

#include "posix/unique_fd.h"

namespace ecu::tamu::ipc {

/// Notices without polling that a path may name another file now: watches its folder (inotify). Sees neither
/// changes of a symbolic link's target nor the return of a removed folder.
class PathWatch {
 public:
  void set_path(const std::string& path);

  /// Begins to watch; false, with the reason in errno, when that is not possible. Must be called again after
  /// a change, because the folder may have been replaced.
  [[nodiscard]] bool renew() noexcept;

  /// Readable when something happened in the folder; -1, which `poll` ignores, without a watch.
  [[nodiscard]] int fd() const noexcept { return inotify_.get(); }

  /// Takes the events since the last call; true when they may concern the path.
  [[nodiscard]] bool take_changes() noexcept;

 private:
  posix::UniqueFd inotify_;
  std::string folder_;
  std::string name_;  // of the path in its folder
};

}  // namespace ecu::tamu::ipc
