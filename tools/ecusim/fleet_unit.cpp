#include "ecusim/fleet_unit.h"

#include <mosquitto.h>
#include <poll.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <system_error>
#include <utility>

#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/date_time.h>

#include "common/broker_options.h"
#include "common/fleet_message.h"
#include "common/notes.h"
#include "common/times.h"
#include "common/variable_catalogue.h"

namespace ecu::sim {

namespace topics = tamu::com::topics;

namespace {

constexpr int qos = 1;
constexpr int keep_alive_seconds = 60;
constexpr std::chrono::seconds connect_timeout{10};
constexpr std::string_view changing_variable = "topversion";

std::string name_of(unsigned number) {
  std::array<char, 32> name{};
  (void)std::snprintf(name.data(), name.size(), "unit-%05u", number);
  return name.data();
}

}  // namespace

void FleetUnit::Destroy::operator()(mosquitto* handle) const {
  mosquitto_destroy(handle);
}

FleetUnit::FleetUnit(unsigned number, const FleetSetup& setup, FleetCounters& counters)
    : setup_(setup),
      counters_(counters),
      name_(name_of(number)),
      attempts_(number),
      change_due_(setup.change_period > 0 ? Clock::now() + random_pause(setup.change_period)
                                          : Clock::time_point::max()) {}

pollfd FleetUnit::request() const {
  if (!handle_) {
    return {-1, 0, 0};
  }
  const bool has_output = !is_connected_ || mosquitto_want_write(handle_.get());
  return {mosquitto_socket(handle_.get()), static_cast<short>(POLLIN | (has_output ? POLLOUT : 0)), 0};
}

void FleetUnit::handle(short events) {
  if ((events & ~POLLOUT) != 0) {
    check(mosquitto_loop_read(handle_.get(), 1));
  }
  if (is_accepted_ && !is_connected_) {
    connected();
  }
  if (handle_ && (events & POLLOUT) != 0) {
    check(mosquitto_loop_write(handle_.get(), 1));
  }
}

void FleetUnit::tick(Clock::time_point now) {
  if (is_connected_) {
    check(mosquitto_loop_misc(handle_.get()));
  } else if (now >= due_) {
    if (handle_) {
      check(MOSQ_ERR_CONN_LOST);
    } else {
      connect();
    }
  }
  if (is_connected_ && now >= change_due_) {
    change_due_ = now + std::chrono::seconds(setup_.change_period);
    publish_variable(changing_variable, "change " + std::to_string(++changes_));
  }
}

void FleetUnit::announce_stop() {
  if (is_connected_) {
    publish(topics::fleet_presence, topics::presence_offline);
  }
}

void FleetUnit::disconnect() {
  if (is_connected_ && unacknowledged_ == 0) {
    mosquitto_disconnect(handle_.get());
  }
}

// A new handle each time: the library would send again what it could not send on the last connection.
void FleetUnit::connect() {
  handle_.reset(mosquitto_new(name_.c_str(), true, this));
  if (!handle_) {
    throw std::system_error(errno, std::generic_category(), "no further connection");
  }
  mosquitto_connect_callback_set(handle_.get(), [](mosquitto*, void* unit, int refusal) {
    if (refusal == 0) {
      static_cast<FleetUnit*>(unit)->is_accepted_ = true;
    } else {
      static_cast<FleetUnit*>(unit)->report_failure(mosquitto_connack_string(refusal));
    }
  });
  mosquitto_publish_callback_set(handle_.get(), [](mosquitto*, void* unit, int) {
    --static_cast<FleetUnit*>(unit)->unacknowledged_;
    --static_cast<FleetUnit*>(unit)->counters_.unacknowledged;
  });
  const std::string presence =
      std::string(topics::default_fleet_prefix) + '/' + name_ + '/' + topics::fleet_presence;
  const std::string_view lost = topics::presence_lost;
  mosquitto_will_set(handle_.get(), presence.c_str(), static_cast<int>(lost.size()), lost.data(), qos, true);
  due_ = Clock::now() + connect_timeout;
  const auto address = tools::parse_broker_address(setup_.hosts[attempts_++ % setup_.hosts.size()]);
  const int port = address.host.front() == '/' ? 0  // a socket, for the library
                   : address.port.empty()      ? setup_.port
                                               : std::stoi(address.port);
  check(mosquitto_connect_async(handle_.get(), address.host.c_str(), port, keep_alive_seconds));
}

void FleetUnit::connected() {
  is_connected_ = true;
  ++counters_.connected;
  ++counters_.connections;
  publish(topics::fleet_presence, topics::presence_online);
  publish(topics::fleet_connected_since, tools::iso_time(tools::wall_clock_now()));
  publish(topics::fleet_daemon, topics::presence_online);
  for (const tools::VariableInfo& variable : tools::variables()) {
    publish_variable(variable.name, std::string(variable.example));
  }
}

void FleetUnit::publish(const std::string& key, std::string_view payload) {
  const std::string topic = std::string(topics::default_fleet_prefix) + '/' + name_ + '/' + key;
  if (mosquitto_publish(handle_.get(), nullptr, topic.c_str(), static_cast<int>(payload.size()),
                        payload.data(), qos, true) == MOSQ_ERR_SUCCESS) {
    ++counters_.published;
    ++counters_.unacknowledged;
    ++unacknowledged_;
  }
}

void FleetUnit::publish_variable(std::string_view name, std::string value) {
  publish(std::string(topics::fleet_variable_prefix).append(name),
          tools::to_json({std::move(value), tools::wall_clock_now(),
                          static_cast<std::int64_t>(tamu::DateTime::time_since_boot_ns()),
                          topics::presence_online}));
}

// The library closes a connection without answers and reports that as success.
void FleetUnit::check(int result) {
  if (result == MOSQ_ERR_SUCCESS && mosquitto_socket(handle_.get()) >= 0) {
    return;
  }
  report_failure(mosquitto_strerror(result == MOSQ_ERR_SUCCESS ? MOSQ_ERR_CONN_LOST : result));
  counters_.connected -= is_connected_ ? 1U : 0U;
  counters_.unacknowledged -= unacknowledged_;
  unacknowledged_ = 0;
  is_connected_ = is_accepted_ = false;
  handle_.reset();
  due_ = Clock::now() + random_pause(setup_.reconnect_spread);
}

void FleetUnit::report_failure(const char* reason) {
  if (!std::exchange(counters_.has_reported_failure, true)) {
    tools::note(name_ + ": no connection: " + reason + "; further failures are not reported");
  }
}

FleetUnit::Clock::duration FleetUnit::random_pause(unsigned seconds) {
  return std::chrono::milliseconds(
      std::uniform_int_distribution<std::int64_t>(0, std::int64_t{seconds} * 1000)(random_));
}

}  // namespace ecu::sim
