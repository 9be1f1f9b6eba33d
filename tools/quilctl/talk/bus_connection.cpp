#include "quilctl/talk/bus_connection.h"

#include <poll.h>

#include <array>
#include <string_view>

#include "quilctl/talk/client_configuration.h"
#include "quilctl/talk/event_queue.h"

namespace ecu::ctl {

namespace com = tamu::com;

namespace {

// Why the broker rejects the login; empty for any other failure.
std::string_view login_rejection(com::ConnectionFailure failure) {
  switch (failure) {
    case com::ConnectionFailure::bad_credentials:
      return "bad user name or password";
    case com::ConnectionFailure::not_authorised:
      return "not authorised";
    default:
      return {};
  }
}

timespec timespec_of(std::chrono::nanoseconds time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  return {static_cast<time_t>(seconds.count()), static_cast<long>((time - seconds).count())};
}

}  // namespace

BusConnection::BusConnection(const BrokerOptions& options) : events_(std::make_shared<EventQueue>()) {
  const std::unique_ptr<tamu::config::Configuration> config = client_configuration(options);
  broker_ = broker_address(*config);
  com::library_init();
  client_ = com::create_client(config, com::TransportType::mqtt, events_);
  termination_.emplace();
}

BusConnection::~BusConnection() {
  client_.reset();
  com::library_cleanup();
}

void BusConnection::subscribe(const std::string& filter, int max_qos) {
  client_->subscribe(filter, max_qos, events_);
}

void BusConnection::connect() {
  client_->connect();
  client_->start();
}

std::optional<Event> BusConnection::next(Clock::time_point deadline, int input) {
  const sigset_t mask = termination_->wait_mask();
  for (;;) {
    termination_->check();
    if (auto event = events_->take()) {
      return event;
    }
    const auto left = std::chrono::ceil<std::chrono::nanoseconds>(deadline - Clock::now());
    if (left <= std::chrono::nanoseconds::zero()) {
      return std::nullopt;
    }
    const timespec timeout = timespec_of(left);
    std::array<pollfd, 2> inputs{{{events_->fd(), POLLIN, 0}, {input, POLLIN, 0}}};
    ::ppoll(inputs.data(), inputs.size(), deadline == Clock::time_point::max() ? nullptr : &timeout, &mask);
    if (inputs[1].revents != 0) {
      return std::nullopt;
    }
  }
}

std::uint64_t BusConnection::take_lost() {
  return events_->take_lost();
}

BrokerFailure BusConnection::not_reachable(const std::string& reason, com::ConnectionFailure failure) const {
  if (const std::string_view rejection = login_rejection(failure); !rejection.empty()) {
    return {broker_, "broker " + broker_ + " rejects the login: " + std::string(rejection) +
                         "; check --user and --password-file"};
  }
  return {broker_, "broker " + broker_ + " not reachable: " + reason};
}

bool BusConnection::publish(const std::string& topic, com::Message message) {
  return client_->publish(topic, std::move(message)) != com::PublishResult::overload;
}

}  // namespace ecu::ctl
