#pragma once

#include <sys/types.h>

#include <optional>
#include <stop_token>
#include <string>

#include <ecu/tamu/com/message.h>

namespace ecu::sim {

/// Who may open a FIFO.
struct FifoAccess {
  mode_t mode = 0600;
  std::optional<gid_t> group;  // without it, the group that the system gives to new files
};

/// A FIFO in the file system, from construction to destruction.
class Fifo {
 public:
  /// Creates it with exactly this access, regardless of the umask; throws std::system_error when that fails,
  /// for example because the path exists.
  explicit Fifo(std::string path, const FifoAccess& access = {});
  ~Fifo();
  Fifo(const Fifo&) = delete;
  Fifo& operator=(const Fifo&) = delete;

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// Writes `bytes` once there is a reader, which is checked every 100 ms; false when `stop` is requested
  /// first. Starts again when the reader closes the FIFO before the end. The calling thread must block
  /// SIGPIPE.
  [[nodiscard]] bool write(const tamu::com::Payload& bytes, const std::stop_token& stop) const;

 private:
  const std::string path_;
};

}  // namespace ecu::sim
