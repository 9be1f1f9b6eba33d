#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "posix/event.h"
#include "support/process.h"
#include "support/temp_dir.h"

namespace tests {

/// The socket of a service manager or the system log. Its path is removed with it. A path that begins with
/// '@' is in the abstract namespace.
class DatagramSocket {
 public:
  DatagramSocket() : DatagramSocket(std::string()) {}
  /// At the caller's path.
  explicit DatagramSocket(const std::string& path)
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

  /// Whether a datagram that contains `text` arrives; earlier ones are skipped.
  bool wait_for(std::string_view text) const {
    return wait([text](std::string_view datagram) { return datagram.find(text) != std::string_view::npos; });
  }
  /// The same for a datagram equal to `text`.
  bool wait_for_exactly(std::string_view text) const {
    return wait([text](std::string_view datagram) { return datagram == text; });
  }

 private:
  template <class Wanted>
  bool wait(Wanted wanted) const {
    const auto deadline = std::chrono::steady_clock::now() + time_limit;
    while (std::chrono::steady_clock::now() < deadline) {
      const auto datagram = receive(time_limit);
      if (!datagram || wanted(*datagram)) {
        return datagram.has_value();
      }
    }
    return false;
  }

  TempDir dir_;
  std::string path_;
  sockaddr_un name_{};
  ecu::tamu::posix::UniqueFd socket_;
};

}  // namespace tests
