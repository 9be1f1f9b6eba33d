#pragma once

#include <stop_token>
#include <string>

#include <ecu/tamu/com/message.h>

namespace ecu::sim {

/// A FIFO in the file system, from construction to destruction.
class Fifo {
 public:
  /// Throws std::system_error when it cannot be made, for example because the path exists.
  explicit Fifo(std::string path);
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
