#include "ecusim/fleet.h"

#include <poll.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <deque>
#include <iomanip>
#include <iostream>
#include <system_error>
#include <utility>
#include <vector>

#include <ecu/tamu/com/transport_client.h>

#include "common/broker_options.h"

namespace ecu::sim {

namespace {

using Clock = FleetUnit::Clock;

constexpr std::chrono::milliseconds tick_period{50};
constexpr std::chrono::seconds report_period{1};
constexpr std::chrono::seconds stop_limit{2};

volatile std::sig_atomic_t stop_requested = 0;

void report(const FleetCounters& counters, std::uint64_t new_connections, Clock::duration age) {
  std::cout << std::setw(8) << std::chrono::round<std::chrono::seconds>(age).count() << std::setw(10)
            << counters.connected << std::setw(12) << new_connections << std::setw(11) << counters.published
            << std::setw(15) << counters.unacknowledged << std::endl;
}

void serve(std::deque<FleetUnit>& units, std::vector<pollfd>& requests) {
  for (std::size_t i = 0; i < units.size(); ++i) {
    requests[i] = units[i].request();
  }
  if (::poll(requests.data(), requests.size(), static_cast<int>(tick_period.count())) < 0 && errno != EINTR) {
    throw std::system_error(errno, std::generic_category(), "cannot wait for all units, see ulimit -n");
  }
  for (std::size_t i = 0; i < units.size(); ++i) {
    if (requests[i].revents != 0) {
      units[i].handle(std::exchange(requests[i].revents, short{0}));
    }
  }
}

void stop(std::deque<FleetUnit>& units, std::vector<pollfd>& requests, const FleetCounters& counters) {
  for (FleetUnit& unit : units) {
    unit.announce_stop();
  }
  const auto end = Clock::now() + stop_limit;
  while (counters.unacknowledged > 0 && Clock::now() < end) {
    serve(units, requests);
  }
  for (FleetUnit& unit : units) {
    unit.disconnect();
  }
}

void serve_until_signal(std::deque<FleetUnit>& units, std::vector<pollfd>& requests,
                        const FleetCounters& counters) {
  const auto begin = Clock::now();
  auto tick_due = begin, report_due = begin + report_period;
  std::uint64_t reported_connections = 0;
  std::cout << " seconds connected connections   messages unacknowledged" << std::endl;
  while (stop_requested == 0) {
    serve(units, requests);
    const auto now = Clock::now();
    if (now >= tick_due) {
      tick_due = now + tick_period;
      for (FleetUnit& unit : units) {
        unit.tick(now);
      }
    }
    if (now >= report_due) {
      report_due += report_period;
      report(counters, counters.connections - std::exchange(reported_connections, counters.connections),
             now - begin);
    }
  }
}

}  // namespace

void run_fleet(const FleetSetup& setup) {
  for (const std::string& host : setup.hosts) {
    if (tools::parse_broker_address(host).is_tls) {
      throw tools::InputError("the units of a fleet connect without TLS: " + host);
    }
  }
  tamu::com::library_init();
  for (const int number : {SIGINT, SIGTERM}) {
    (void)std::signal(number, [](int) { stop_requested = 1; });
  }
  FleetCounters counters;
  std::deque<FleetUnit> units;
  for (unsigned number = 1; number <= setup.units; ++number) {
    units.emplace_back(number, setup, counters);
  }
  std::vector<pollfd> requests(units.size());
  serve_until_signal(units, requests, counters);
  stop(units, requests, counters);
  units.clear();
  tamu::com::library_cleanup();
}

}  // namespace ecu::sim
