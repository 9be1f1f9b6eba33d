#include "mqtt/connection.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <exception>
#include <new>
#include <utility>

#include "mqtt/mqtt_log.h"

namespace ecu::tamu::com::mqtt {

namespace {

int poll_timeout(Connection::Clock::time_point until) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Connection::Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, 3'600'000));
}

}  // namespace

Connection::Connection(const MqttSettings& settings, ConnectionListener& listener, Resolver resolve)
    : settings_(settings), listener_(listener), resolve_(std::move(resolve)), backoff_(settings) {}

// A fault's reason is a short text that needs no heap, because memory may have run out.
template <class Action>
void Connection::protect(Action action) noexcept {
  try {
    action();
  } catch (const std::bad_alloc&) {
    fail({ConnectionFailure::internal, out_of_memory});
  } catch (const std::exception& failure) {
    fail({ConnectionFailure::internal, failure.what()});
  } catch (...) {
    fail({ConnectionFailure::internal, "unknown fault"});
  }
}

template <class Action>
void Connection::with_session(Action action) noexcept {
  if (session_) {
    protect([&] { check(action(*session_)); });
  }
}

void Connection::wait(const posix::Event& wake, Clock::time_point deadline) noexcept {
  std::array<pollfd, 2> fds{{{wake.fd(), POLLIN, 0}, {-1, POLLIN, 0}}};
  if (session_) {
    fds[1] = {session_->fd(), session_->wanted_events(), 0};
  } else if (attempting_ && lookup_) {
    fds[1].fd = lookup_->fd();
  }
  if (::poll(fds.data(), fds.size(), poll_timeout(std::min(deadline, next_timer()))) < 0) {
    return;
  }
  if (fds[0].revents != 0) {
    wake.clear();
  }
  protect([&] {
    if (session_) {
      handle_session(fds[1].revents);
    } else if (fds[1].revents != 0) {
      use_addresses(lookup_->take());
    }
    run_timers();
  });
}

void Connection::handle_session(short events) {
  check(session_->handle(events));
  if (!up_ && session_ && session_->is_connected()) {
    up_ = true;
    attempting_ = false;
    up_since_ = Clock::now();
    if (!std::exchange(connection_is_reported_, true)) {
      mqtt_log.notice("connected to ", settings_.broker());
    }
    listener_.connection_up();
  }
}

Connection::Clock::time_point Connection::next_timer() const {
  return is_up() ? session_->keep_alive_due() : timer_;
}

void Connection::run_timers() {
  if (Clock::now() < next_timer()) {
    return;
  }
  if (is_up()) {
    check(session_->keep_alive());
  } else if (session_) {
    fail({ConnectionFailure::no_answer, "no answer"});
  } else if (attempting_) {
    fail({ConnectionFailure::unreachable, "name server does not answer"});
  } else {
    begin_attempt();
  }
}

void Connection::begin_attempt() {
  timer_ = Clock::now() + settings_.connect_timeout;
  attempting_ = true;
  if (settings_.is_unix_socket() || next_address_ < addresses_.size()) {
    open_session();
  } else if (auto known = known_addresses(settings_.host); !known.empty()) {
    use_addresses({std::move(known), ""});
  } else if (!lookup_) {
    lookup_.emplace(settings_.host, resolve_);
  }
}

void Connection::use_addresses(LookupResult result) {
  lookup_.reset();
  if (result.addresses.empty()) {
    fail({ConnectionFailure::unreachable, std::move(result.error)});
    return;
  }
  addresses_ = std::move(result.addresses);
  next_address_ = 0;
  open_session();
}

void Connection::open_session() {
  // Counts as tried even if the session cannot be made.
  const std::string& address = settings_.is_unix_socket() ? settings_.host : addresses_[next_address_++];
  session_.emplace(settings_, listener_);
  check(session_->open(address));
}

void Connection::check(const Failure& failure) {
  if (failure) {
    fail(*failure);
  }
}

// The necessary steps come first and need no memory. A log line that needs memory may be lost.
void Connection::fail(const Fault& fault) noexcept {
  const bool was_up = std::exchange(up_, false);
  const bool was_reachable = was_up || (session_ && session_->is_reachable());
  session_.reset();
  attempting_ = false;
  if (closed_) {
    return;
  }
  // The attempt fails only when every address of the host has been tried.
  if (!was_reachable && next_address_ < addresses_.size()) {
    timer_ = Clock::now();
    return;
  }
  end_if_memory_stays_short(fault, was_up);
  if (was_up) {
    const auto held = Clock::now() - up_since_;
    backoff_.connection_lost(held);
    if (held >= Backoff::stable_after) {
      reported_.clear();
    }
    addresses_.clear();
  }
  timer_ = Clock::now() + backoff_.next();
  report(was_up, fault.reason);
  listener_.connection_down(fault.kind, fault.reason);
}

// The supervisor's restart may help where the pauses have not. The line needs no heap.
void Connection::end_if_memory_stays_short(const Fault& fault, bool was_up) noexcept {
  const bool was_stable = was_up && Clock::now() - up_since_ >= Backoff::stable_after;
  if (fault.reason != out_of_memory || was_stable) {
    memory_failures_ = 0;
  }
  if (fault.reason == out_of_memory && ++memory_failures_ >= max_memory_failures) {
    mqtt_log.log(logging::Level::alert, "no connection to ", settings_.host, " for lack of memory, ",
                 max_memory_failures, " times in a row: the process ends");
    std::abort();  // not std::terminate, which would log the exception that was caught as well
  }
}

// A connection that is lost again and again for one reason, soon after each attempt, is one line.
void Connection::report(bool lost, const std::string& reason) noexcept {
  try {
    const std::string event = (lost ? " lost: " : ": ") + reason;
    if (std::exchange(reported_, event) != event) {
      connection_is_reported_ = false;
      mqtt_log.warning(lost ? "connection to " : "cannot connect to ", settings_.broker(), event);
    }
  } catch (...) {
  }
}

void Connection::retry_soon() {
  timer_ = Clock::now() + backoff_.restart();
}

void Connection::publish(const std::string& topic, const Message& message, Clock::time_point now) noexcept {
  with_session([&](MqttSession& session) { return session.publish(topic, message, now); });
}

void Connection::subscribe(const std::string& filter, int max_qos) noexcept {
  with_session([&](MqttSession& session) { return session.subscribe(filter, max_qos); });
}

void Connection::unsubscribe(const std::string& filter) noexcept {
  with_session([&](MqttSession& session) { return session.unsubscribe(filter); });
}

void Connection::request_fence(Fence fence) noexcept {
  with_session([&](MqttSession& session) { return session.request_fence(fence); });
}

void Connection::disconnect() noexcept {
  closed_ = true;
  with_session([](MqttSession& session) { return session.disconnect(); });
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
  up_ = false;
  session_.reset();
  lookup_.reset();
}

}  // namespace ecu::tamu::com::mqtt
