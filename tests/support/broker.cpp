#include "support/broker.h"

#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

#include "posix/event.h"

namespace tests {

LoopbackPort::LoopbackPort()
    : socket_(ecu::tamu::posix::checked_fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket")) {
  sockaddr_in any{};
  any.sin_family = AF_INET;
  any.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::bind(fd(), reinterpret_cast<const sockaddr*>(&any), sizeof(any)) != 0) {
    throw std::runtime_error("no free port");
  }
  number_ = ntohs(address().sin_port);
  // Set only now, so that the kernel has chosen an unused port.
  const int on = 1;
  ::setsockopt(fd(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
}

sockaddr_in LoopbackPort::address() const {
  sockaddr_in own{};
  socklen_t size = sizeof(own);
  ::getsockname(fd(), reinterpret_cast<sockaddr*>(&own), &size);
  return own;
}

Broker::Broker(std::string access) {
  std::string config = "set_tcp_nodelay true\npersistence false\nlog_dest stderr\nlistener 0 " +
                       socket_path() + "\nlistener " + std::to_string(port()) + " 127.0.0.1\n" +
                       std::move(access) + '\n';
  if (::geteuid() == 0) {
    config += "user root\n";
  }
  config_path_ = dir_.write("mosquitto.conf", config);
  start();
}

void Broker::start() {
  process_.emplace(std::vector<std::string>{MOSQUITTO_PATH, "-c", config_path_});
  if (!process_->wait_for_output(" running\n")) {
    throw std::runtime_error("the broker does not start: " + process_->output());
  }
}

void Broker::restart() {
  stop();
  start();
}

}  // namespace tests
