#pragma once

#include <netinet/in.h>
#include <signal.h>

#include <optional>
#include <string>
#include <string_view>

#include "support/process.h"
#include "support/temp_dir.h"

namespace tests {

/// A port of the loopback interface that stays with its owner: nobody else is given it, and a server of the
/// owner may listen on it. A connection to it is refused while none does.
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

/// A Mosquitto broker of the test's own: it keeps nothing on disk, and its port and socket over restarts.
class Broker {
 public:
  /// Starts it. `access` says in the lines of its configuration who may use its port, and how.
  explicit Broker(std::string access = "allow_anonymous true");

  [[nodiscard]] int port() const noexcept { return port_.number(); }
  [[nodiscard]] std::string socket_path() const { return dir_.path("socket"); }

  void start();
  /// Kills it: no connection is closed properly.
  void stop() { process_.reset(); }
  void restart();
  /// It keeps its connections and answers nothing until `thaw`.
  void freeze() { process_->signal(SIGSTOP); }
  /// Whether its log says so, `times` times since its start.
  bool wait_for_log(std::string_view text, int times = 1) { return process_->wait_for_output(text, times); }
  void thaw() { process_->signal(SIGCONT); }

 private:
  TempDir dir_;
  LoopbackPort port_;
  std::string config_path_;
  std::optional<Process> process_;
};

}  // namespace tests
