#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <ecu/tamu/ipc/data_consumer.h>
#include <ecu/tamu/ipc/ipc_signal.h>

#include "ports/record_parser.h"
#include "posix/event.h"
#include "posix/unique_fd.h"

namespace ecu::tamu::ipc::detail {

/// What `QueuePortReader` promises, on a file descriptor.
class PortReceiver {
 public:
  explicit PortReceiver(std::unique_ptr<IDataConsumer<IpcSignal>> consumer)
      : consumer_(std::move(consumer)) {}

  [[nodiscard]] bool open(const std::string& path);
  void receive();
  void request_stop() const noexcept { stop_.signal(); }

 private:
  using TimePoint = RecordParser::TimePoint;

  void drain();
  void wait_for_rest(TimePoint deadline);
  [[nodiscard]] bool read_once();
  void end_reception(std::string_view reason);
  void deliver(TimePoint now);
  void report_damage();
  template <class Call>
  void guarded(Call call) const;

  std::unique_ptr<IDataConsumer<IpcSignal>> consumer_;
  std::string path_;
  posix::UniqueFd fifo_keeper_;
  posix::UniqueFd port_;
  RecordParser parser_;
  std::uint64_t received_ = 0;  // bytes, ever
  posix::Event stop_;           // the stop request: the only thing here that other threads touch
};

}  // namespace ecu::tamu::ipc::detail
