#include "mqtt/connection.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <system_error>
#include <utility>

#include "mqtt/mqtt_log.h"

namespace ecu::tamu::com::mqtt {

namespace {

constexpr std::chrono::seconds connect_timeout{10};

int poll_timeout(Connection::Clock::time_point until) {
  if (until == Connection::Clock::time_point::max()) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Connection::Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, 3'600'000));
}

}  // namespace

void Connection::wait(const posix::Event& wake, Clock::time_point deadline) {
  std::array<pollfd, 2> fds{{{wake.fd(), POLLIN, 0}, {-1, POLLIN, 0}}};
  if (session_) {
    fds[1] = {session_->fd(), session_->wanted_events(), 0};
  } else if (lookup_) {
    fds[1].fd = lookup_->fd();
  }
  if (::poll(fds.data(), fds.size(), poll_timeout(std::min(deadline, next_timer()))) < 0) {
    return;
  }
  if (fds[0].revents != 0) {
    wake.clear();
  }
  if (session_) {
    check(session_->handle(fds[1].revents));
  } else if (lookup_ && fds[1].revents != 0) {
    use_addresses(lookup_->take());
  }
  run_timers();
}

Connection::Clock::time_point Connection::next_timer() const {
  if (closed_) {
    return Clock::time_point::max();
  }
  return is_up() ? session_->keep_alive_due() : timer_;
}

void Connection::run_timers() {
  if (Clock::now() < next_timer()) {
    return;
  }
  if (is_up()) {
    check(session_->keep_alive());
  } else if (session_) {
    fail("no answer");
  } else if (lookup_) {
    fail("name server does not answer");
  } else {
    begin_attempt();
  }
}

void Connection::begin_attempt() {
  timer_ = Clock::now() + connect_timeout;
  if (settings_.is_unix_socket() || next_address_ < addresses_.size()) {
    open_session();
  } else if (is_local_knowledge(settings_.host)) {
    use_addresses(look_up(settings_.host));
  } else {
    try {
      lookup_.emplace(settings_.host);
    } catch (const std::system_error& failure) {
      fail(failure.what());
    }
  }
}

void Connection::use_addresses(LookupResult result) {
  lookup_.reset();
  if (result.addresses.empty()) {
    fail(result.error);
    return;
  }
  addresses_ = std::move(result.addresses);
  next_address_ = 0;
  open_session();
}

void Connection::open_session() {
  MqttSession::Listener& events = *this;
  session_.emplace(settings_, events);
  check(session_->open(settings_.is_unix_socket() ? settings_.host : addresses_[next_address_++]));
}

void Connection::connected() {
  mqtt_log.notice("connected to ", settings_.broker());
  reported_.clear();
  up_since_ = Clock::now();
  listener_.connection_up();
}

void Connection::message(const std::string& topic, Message message) {
  listener_.message(topic, std::move(message));
}

void Connection::subscription_refused(const std::string& filter) {
  listener_.subscription_refused(filter);
}

void Connection::echoed() {
  listener_.echoed();
}

void Connection::check(const Failure& failure) {
  if (failure) {
    fail(*failure);
  }
}

void Connection::fail(const std::string& reason) {
  const bool was_up = session_ && session_->is_connected();
  const bool was_reachable = session_ && session_->is_reachable();
  session_.reset();
  lookup_.reset();
  if (closed_) {
    return;
  }
  // A host is without a broker when none of its addresses has one.
  if (!was_reachable && next_address_ < addresses_.size()) {
    timer_ = Clock::now();
    return;
  }
  if (was_up) {
    if (Clock::now() - up_since_ >= Backoff::longest) {
      backoff_.reset();
    }
    addresses_.clear();
  }
  if (std::exchange(reported_, reason) != reason) {
    mqtt_log.warning(was_up ? "connection to " : "cannot connect to ", settings_.broker(),
                     was_up ? " lost: " : ": ", reason);
  }
  timer_ = Clock::now() + backoff_.next();
  listener_.connection_down(reason);
}

void Connection::publish(const std::string& topic, const Message& message) {
  if (session_) {
    check(session_->publish(topic, message));
  }
}

void Connection::subscribe(const std::string& filter, int max_qos) {
  if (session_) {
    check(session_->subscribe(filter, max_qos));
  }
}

void Connection::unsubscribe(const std::string& filter) {
  if (session_) {
    check(session_->unsubscribe(filter));
  }
}

void Connection::request_echo() {
  if (session_) {
    check(session_->request_echo());
  }
}

void Connection::disconnect() {
  closed_ = true;
  if (session_) {
    check(session_->disconnect());
  }
}

void Connection::cork() {
  if (session_) {
    session_->cork();
  }
}

void Connection::uncork() {
  if (session_) {
    session_->uncork();
  }
}

void Connection::close() {
  closed_ = true;
  session_.reset();
  lookup_.reset();
}

}  // namespace ecu::tamu::com::mqtt
