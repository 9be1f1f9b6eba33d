#pragma once

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "posix/event.h"
#include "support/process.h"
#include "support/temp_dir.h"

namespace tests {

/// The socket of a service manager or the system log. Its path is removed with it. A path that begins with
/// '@' is in the abstract namespace.
class DatagramSocket {
 public:
  explicit DatagramSocket(const std::string& path = "")
      : path_(path.empty() ? dir_.path("datagrams") : path),
        socket_(ecu::tamu::posix::checked_fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket")) {
    name_.sun_family = AF_UNIX;
    path_.copy(name_.sun_path, sizeof(name_.sun_path) - 1);
    std::replace(name_.sun_path, name_.sun_path + 1, '@', '\0');
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path_.size());
    EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&name_), size), 0);
  }
  ~DatagramSocket() { ::unlink(path_.c_str()); }
  DatagramSocket(const DatagramSocket&) = delete;
  DatagramSocket& operator=(const DatagramSocket&) = delete;

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// The next datagram, if one arrives within the time.
  std::optional<std::string> receive(std::chrono::milliseconds timeout = std::chrono::milliseconds(0)) const {
    pollfd ready{socket_.get(), POLLIN, 0};
    if (::poll(&ready, 1, static_cast<int>(timeout.count())) != 1) {
      return std::nullopt;
    }
    std::array<char, 8192> datagram{};
    const auto size = ::recv(socket_.get(), datagram.data(), datagram.size(), 0);
    return std::string(datagram.data(), static_cast<std::size_t>(size));
  }

  /// Sends datagrams to it until it accepts no more. A sender may run out of memory of its own before that.
  void fill() const {
    for (bool has_room = true; has_room;) {
      const ecu::tamu::posix::UniqueFd sender(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
      EXPECT_EQ(::connect(sender.get(), reinterpret_cast<const sockaddr*>(&name_), sizeof(name_)), 0);
      has_room = ::send(sender.get(), "full", 4, MSG_DONTWAIT) > 0;
      while (::send(sender.get(), "full", 4, MSG_DONTWAIT) > 0) {
      }
    }
  }

  /// Whether a datagram that is, or matches, `wanted` arrives; earlier ones are skipped.
  bool wait_for(const testing::Matcher<std::string>& wanted) const {
    const auto deadline = std::chrono::steady_clock::now() + time_limit;
    auto datagram = receive(time_limit);
    while (datagram && !wanted.Matches(*datagram) && std::chrono::steady_clock::now() < deadline) {
      datagram = receive(time_limit);
    }
    return datagram && wanted.Matches(*datagram);
  }

 private:
  TempDir dir_;
  std::string path_;
  sockaddr_un name_{};
  ecu::tamu::posix::UniqueFd socket_;
};

}  // namespace tests
