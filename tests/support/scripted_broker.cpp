#include "support/scripted_broker.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <map>
#include <stdexcept>
#include <utility>

namespace tests {

namespace {

// Types of packets (MQTT 3.1.1, 2.2.1).
enum Type { connect = 1, publish = 3, subscribe = 8, unsubscribe = 10, pingreq = 12, disconnect = 14 };

std::size_t number_at(const std::string& bytes, std::size_t at) {
  return static_cast<unsigned char>(bytes.at(at)) * 256U + static_cast<unsigned char>(bytes.at(at + 1));
}

struct Packet {
  int type = 0;
  int qos = 0;
  std::string body;

  [[nodiscard]] std::string text_at(std::size_t at) const { return body.substr(at + 2, number_at(body, at)); }
  [[nodiscard]] std::string identifier_at(std::size_t at) const { return body.substr(at, 2); }

  [[nodiscard]] std::string name() const {
    static const std::map<int, std::string> names{{connect, "CONNECT"},      {publish, "PUBLISH "},
                                                  {subscribe, "SUBSCRIBE "}, {unsubscribe, "UNSUBSCRIBE "},
                                                  {pingreq, "PINGREQ"},      {disconnect, "DISCONNECT"}};
    if (type == publish) {
      return names.at(type) + text_at(0) + '=' + body.substr(2 + number_at(body, 0) + (qos > 0 ? 2 : 0));
    }
    return names.at(type) + (type == subscribe || type == unsubscribe ? text_at(2) : "");
  }

  [[nodiscard]] std::string without_identifier() const {
    const bool has_identifier = type == publish ? qos > 0 : type == subscribe || type == unsubscribe;
    const std::size_t at = type == publish ? 2 + number_at(body, 0) : 0;
    return has_identifier ? std::string(body).erase(at, 2) : body;
  }

  [[nodiscard]] std::string answer(bool refuses) const {
    using namespace std::string_literals;
    switch (type) {
      case connect:
        return "\x20\x02\x00\x00"s;
      case publish:
        return qos == 0 ? "" : "\x40\x02"s + identifier_at(2 + number_at(body, 0));
      case subscribe:
        return "\x90\x03"s + identifier_at(0) + (refuses ? "\x80"s : "\x00"s);
      case unsubscribe:
        return "\xb0\x02"s + identifier_at(0);
      case pingreq:
        return "\xd0\x00"s;
      default:
        return "";
    }
  }
};

}  // namespace

ScriptedBroker::ScriptedBroker(Script script) : script_(std::move(script)) {
  if (::listen(port_.fd(), 5) != 0) {
    throw std::runtime_error("the scripted broker cannot listen");
  }
  thread_ = std::thread([this] { serve(); });
}

ScriptedBroker::~ScriptedBroker() {
  stop_.signal();
  thread_.join();
}

bool ScriptedBroker::wait_readable(int fd) const {
  std::array<pollfd, 2> fds{{{stop_.fd(), POLLIN, 0}, {fd, POLLIN, 0}}};
  return ::poll(fds.data(), fds.size(), -1) > 0 && fds[0].revents == 0;
}

void ScriptedBroker::serve() {
  while (wait_readable(port_.fd())) {
    const ecu::tamu::posix::UniqueFd connection(::accept4(port_.fd(), nullptr, nullptr, SOCK_CLOEXEC));
    if (connection.get() >= 0) {
      serve_connection(connection.get());
    }
  }
}

std::optional<std::string> ScriptedBroker::read(int fd, std::size_t size) const {
  std::string bytes(size, '\0');
  for (std::size_t done = 0; done < size;) {
    const ssize_t got = wait_readable(fd) ? ::recv(fd, bytes.data() + done, size - done, 0) : 0;
    if (got <= 0) {
      return std::nullopt;
    }
    done += static_cast<std::size_t>(got);
  }
  return bytes;
}

void ScriptedBroker::serve_connection(int fd) {
  while (const auto first = read(fd, 1)) {
    std::string bytes = *first;
    std::size_t length = 0;
    for (unsigned shift = 0, more = 128; more >= 128; shift += 7) {
      const auto byte = read(fd, 1);
      if (!byte) {
        return;
      }
      bytes += *byte;
      more = static_cast<unsigned char>(byte->front());
      length |= std::size_t{more % 128} << shift;
    }
    const auto body = read(fd, length);
    if (!body) {
      return;
    }
    const unsigned head = static_cast<unsigned char>(first->front());
    const Packet packet{static_cast<int>(head >> 4U), static_cast<int>(head >> 1U & 3U), *body};
    {
      const std::lock_guard lock(mutex_);
      packets_.push_back(packet.name());
      bytes_ += bytes + packet.without_identifier();
      changed_.notify_all();
    }
    const Reaction reaction = script_(packet.name());
    if (reaction.kind == Reaction::close) {
      return;
    }
    const bool is_answered = reaction.kind == Reaction::answer || reaction.kind == Reaction::refuse;
    const std::string answer =
        is_answered ? packet.answer(reaction.kind == Reaction::refuse) : reaction.bytes;
    // A client that has gone may have sent more before.
    if (!answer.empty() && ::send(fd, answer.data(), answer.size(), MSG_NOSIGNAL) < 0) {
      return;
    }
    while (reaction.kind == Reaction::send && read(fd, 1)) {
    }
  }
}

bool ScriptedBroker::wait_for(const std::string& packet, int times) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, time_limit,
                           [&] { return std::count(packets_.begin(), packets_.end(), packet) >= times; });
}

std::vector<std::string> ScriptedBroker::packets() const {
  const std::lock_guard lock(mutex_);
  return packets_;
}

std::string ScriptedBroker::bytes() const {
  const std::lock_guard lock(mutex_);
  return bytes_;
}

}  // namespace tests
