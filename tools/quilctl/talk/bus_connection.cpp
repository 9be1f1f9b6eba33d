#include "quilctl/talk/bus_connection.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <span>

#include "common/connection_text.h"
#include "quilctl/talk/client_configuration.h"
#include "quilctl/talk/event_queue.h"

namespace ecu::ctl {

namespace com = tamu::com;

namespace {

// Waits for one of the descriptors, a signal, or the deadline. The result is that of `ppoll`.
int wait_for(std::span<pollfd> inputs, BusConnection::Clock::time_point deadline, const sigset_t& mask) {
  if (deadline == BusConnection::Clock::time_point::max()) {
    return ::ppoll(inputs.data(), inputs.size(), nullptr, &mask);
  }
  const auto left =
      std::max(std::chrono::ceil<std::chrono::nanoseconds>(deadline - BusConnection::Clock::now()),
               std::chrono::nanoseconds::zero());
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
  const timespec timeout{static_cast<time_t>(seconds.count()), static_cast<long>((left - seconds).count())};
  return ::ppoll(inputs.data(), inputs.size(), &timeout, &mask);
}

}  // namespace

Failure subscription_refused(const std::string& filter) {
  return {ExitCode::refused, tools::refusal_text(filter)};
}

BusConnection::BusConnection(const BrokerOptions& options, const std::vector<std::string>& filters,
                             int max_qos)
    : events_(std::make_shared<EventQueue>(options.backlog)) {
  const std::unique_ptr<tamu::config::Configuration> config = client_configuration(options);
  broker_ = tools::broker_address(*config);
  unread_file_hint_ = unread_file_hint(options);
  com::library_init();
  client_ = com::create_client(config, com::TransportType::mqtt, events_, {.backlog = options.backlog});
  for (const std::string& filter : filters) {
    client_->subscribe(filter, max_qos, events_);
  }
  termination_.emplace();
  client_->connect();
  client_->start();
}

BusConnection::~BusConnection() {
  client_.reset();
  com::library_cleanup();
}

std::optional<Event> BusConnection::next(Clock::time_point deadline, int input, bool until_signal) {
  const sigset_t mask = termination_->wait_mask();
  for (;;) {
    termination_->check();
    if (auto event = events_->take()) {
      return event;
    }
    if (Clock::now() >= deadline) {
      return std::nullopt;
    }
    std::array<pollfd, 2> inputs{{{events_->fd(), POLLIN, 0}, {input, POLLIN, 0}}};
    const int result = wait_for(inputs, deadline, mask);
    if (inputs[1].revents != 0 || (result < 0 && until_signal)) {
      return std::nullopt;
    }
  }
}

bool BusConnection::wait_until_readable(int input, Clock::time_point deadline) const {
  const sigset_t mask = termination_->wait_mask();
  pollfd readable{input, POLLIN, 0};
  int result = 0;
  do {
    termination_->check();
    result = wait_for({&readable, 1}, deadline, mask);
  } while (result < 0);
  return result > 0;
}

std::string BusConnection::loss_notice() {
  const std::uint64_t lost = events_->take_lost();
  return lost == 0 ? "" : tools::loss_text(lost);
}

Failure BusConnection::not_reachable(const std::string& reason, com::ConnectionFailure failure) const {
  return {ExitCode::broker_unreachable, tools::connection_text(broker_, failure, reason) + unread_file_hint_};
}

bool BusConnection::publish(const std::string& topic, com::Message message) {
  return client_->publish(topic, std::move(message)) != com::PublishResult::overload;
}

}  // namespace ecu::ctl
