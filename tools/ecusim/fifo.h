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

/// A FIFO that exists as long as its object.
class Fifo {
 public:
  /// Makes it, with exactly this access whatever the umask; throws std::system_error when that fails, as it
  /// does when the path is taken.
  explicit Fifo(std::string path, const FifoAccess& access = {});
  ~Fifo();
  Fifo(const Fifo&) = delete;
  Fifo& operator=(const Fifo&) = delete;

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// Writes `bytes` as soon as somebody reads them, which is tried every 100 ms; false when `stop` was
  /// requested before that. The bytes are written anew when the reader goes in between. The calling thread
  /// must have SIGPIPE blocked.
  [[nodiscard]] bool write(const tamu::com::Payload& bytes, const std::stop_token& stop) const;

 private:
  const std::string path_;
};

}  // namespace ecu::sim
