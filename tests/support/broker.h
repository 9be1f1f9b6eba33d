#pragma once

#include <netinet/in.h>
#include <signal.h>

#include <optional>
#include <string>
#include <string_view>

#include "support/process.h"
#include "support/temp_dir.h"

namespace tests {

/// A port of the loopback interface that is reserved for its owner. A server of the owner may listen on it;
/// while none does, a connection to it is refused.
class LoopbackPort {
 public:
  LoopbackPort();
  [[nodiscard]] int number() const noexcept { return number_; }
  [[nodiscard]] int fd() const noexcept { return socket_.get(); }
  /// This socket's own address, as `bind` and `connect` take it.
  [[nodiscard]] sockaddr_in address() const;

 private:
  ecu::tamu::posix::UniqueFd socket_;
  int number_ = 0;
};

/// The test's own Mosquitto broker. It stores nothing on disk, and keeps its port and socket over restarts.
class Broker {
 public:
  /// Starts it. `access` holds the lines of its configuration that define the access to its port.
  explicit Broker(std::string access = "allow_anonymous true");

  [[nodiscard]] int port() const noexcept { return port_.number(); }
  [[nodiscard]] std::string socket_path() const { return dir_.path("socket"); }

  void start();
  /// Kills it without closing its connections.
  void stop() { process_.reset(); }
  void restart();
  /// Makes it keep its connections, but answer nothing until `thaw`.
  void freeze() { process_->signal(SIGSTOP); }
  /// Whether its log contains the text `times` times since its start.
  bool wait_for_log(std::string_view text, int times = 1) { return process_->wait_for_output(text, times); }
  void thaw() { process_->signal(SIGCONT); }

 private:
  TempDir dir_;
  LoopbackPort port_;
  std::string config_path_;
  std::optional<Process> process_;
};

}  // namespace tests
