#pragma once

#include <chrono>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <ecu/tamu/ipc/ipc_signal.h>

#include "ports/writer_queue.h"
#include "posix/unique_fd.h"

namespace ecu::tamu::ipc::detail {

/// Implements `QueuePortWriter` on a file descriptor. Not thread-safe.
class PortSender {
 public:
  PortSender() = default;
  ~PortSender() { close(); }

  PortSender(const PortSender&) = delete;
  PortSender& operator=(const PortSender&) = delete;

  [[nodiscard]] bool open(const std::string& path);
  [[nodiscard]] bool transmit(const IpcSignal& signal);

 private:
  using Clock = std::chrono::steady_clock;

  void close() noexcept;
  void end_frame() noexcept;
  [[nodiscard]] bool send(std::span<const char> record, Clock::time_point deadline);
  [[nodiscard]] const char* write_alone(std::span<const char> record, Clock::time_point deadline) const;
  [[nodiscard]] const char* write_whole(std::span<const char> record, Clock::time_point deadline) const;

  std::string path_;
  posix::UniqueFd port_;
  std::shared_ptr<WriterQueue> queue_;  // of the open port
  bool has_begun_frame_ = false;
  bool is_stuck_ = false;  // the last record could not be written
  std::vector<char> record_;
};

}  // namespace ecu::tamu::ipc::detail
