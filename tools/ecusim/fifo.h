#pragma once

#include <stop_token>
#include <string>

#include <ecu/tamu/com/message.h>

namespace ecu::sim {

/// A FIFO that exists as long as its object.
class Fifo {
 public:
  /// Makes it; throws std::system_error when that fails, as it does when the path is taken.
  explicit Fifo(std::string path);
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
