#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "posix/event.h"
#include "support/broker.h"

namespace tests {

/// A broker that misbehaves as the test defines. It serves one connection after another, and names each
/// packet as "CONNECT", "PUBLISH topic=payload", "SUBSCRIBE filter", "UNSUBSCRIBE filter", "PINGREQ" or
/// "DISCONNECT".
class ScriptedBroker {
 public:
  /// What follows a packet: the regular answer, the refusal of a subscription, nothing, the end of the
  /// connection, or `bytes`, after which the broker only reads.
  struct Reaction {
    enum Kind { answer, refuse, ignore, close, send };
    Reaction(Kind what) : kind(what) {}  // NOLINT(google-explicit-constructor): a script returns a kind
    explicit Reaction(std::string text) : kind(send), bytes(std::move(text)) {}
    Kind kind;
    std::string bytes;
  };
  /// Called by the broker's thread for each packet.
  using Script = std::function<Reaction(const std::string& packet)>;

  explicit ScriptedBroker(Script script);
  ~ScriptedBroker();

  [[nodiscard]] int port() const noexcept { return port_.number(); }

  /// Whether `packet` has arrived `times` times.
  bool wait_for(const std::string& packet, int times = 1);
  /// All packets, in order.
  [[nodiscard]] std::vector<std::string> packets() const;
  /// The bytes of all that came, without the packet identifiers, which the client chooses.
  [[nodiscard]] std::string bytes() const;

 private:
  void serve();
  void serve_connection(int fd);
  [[nodiscard]] bool wait_readable(int fd) const;
  [[nodiscard]] std::optional<std::string> read(int fd, std::size_t size) const;

  const Script script_;
  const LoopbackPort port_;
  const ecu::tamu::posix::Event stop_;
  mutable std::mutex mutex_;  // guards the next three
  std::condition_variable changed_;
  std::vector<std::string> packets_;
  std::string bytes_;
  std::thread thread_;
};

}  // namespace tests
