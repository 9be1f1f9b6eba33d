#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "posix/event.h"
#include "support/process.h"

namespace tests {

/// Where a service manager or the system log listens. Its path is gone with it.
class DatagramSocket {
 public:
  explicit DatagramSocket(std::string path)
      : path_(std::move(path)),
        socket_(ecu::tamu::posix::checked_fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket")) {
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    path_.copy(name.sun_path, sizeof(name.sun_path) - 1);
    EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&name), sizeof(name)), 0);
  }
  ~DatagramSocket() { ::unlink(path_.c_str()); }
  DatagramSocket(const DatagramSocket&) = delete;
  DatagramSocket& operator=(const DatagramSocket&) = delete;

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// The next datagram, if one comes within the time.
  std::optional<std::string> receive(std::chrono::milliseconds timeout = std::chrono::milliseconds(0)) const {
    pollfd ready{socket_.get(), POLLIN, 0};
    if (::poll(&ready, 1, static_cast<int>(timeout.count())) != 1) {
      return std::nullopt;
    }
    std::array<char, 8192> datagram{};
    const auto size = ::recv(socket_.get(), datagram.data(), datagram.size(), 0);
    return std::string(datagram.data(), static_cast<std::size_t>(size));
  }

  /// Whether a datagram that holds `text` comes, those before it being passed over.
  bool wait_for(std::string_view text) const {
    while (const auto datagram = receive(patience)) {
      if (datagram->find(text) != std::string::npos) {
        return true;
      }
    }
    return false;
  }

 private:
  std::string path_;
  ecu::tamu::posix::UniqueFd socket_;
};

}  // namespace tests
