#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

struct mosquitto;
struct pollfd;

namespace ecu::sim {

/// How the units of a simulated fleet behave.
struct FleetSetup {
  unsigned units = 100;
  /// Addresses of the fleet's broker, see `tools::parse_broker_address`; each attempt takes the next one.
  std::vector<std::string> hosts{"localhost"};
  int port = 1883;  ///< of an address without one
  /// Seconds; an attempt to reconnect follows a random pause of at most this.
  unsigned reconnect_spread = 30;
  /// Seconds between two changes of one unit; 0: nothing changes.
  unsigned change_period = 0;
};

/// What the units of a fleet have done so far.
struct FleetCounters {
  unsigned connected = 0;  ///< at present
  std::uint64_t connections = 0;
  std::uint64_t published = 0;
  std::uint64_t unacknowledged = 0;  ///< at present
  bool has_reported_failure = false;
};

/// A unit of a fleet as its broker sees it: a connection on which it publishes what tolquil-uplink(8) would.
/// The owner polls it. Not thread-safe.
class FleetUnit {
 public:
  using Clock = std::chrono::steady_clock;

  /// `setup` and `counters` must outlive it.
  FleetUnit(unsigned number, const FleetSetup& setup, FleetCounters& counters);
  FleetUnit(const FleetUnit&) = delete;
  FleetUnit& operator=(const FleetUnit&) = delete;

  /// What to wait for.
  [[nodiscard]] pollfd request() const;
  /// Handles what `request` waited for.
  void handle(short events);
  /// Does what is due; call it several times a second. Throws std::system_error if the process may not open
  /// further files.
  void tick(Clock::time_point now);
  /// Publishes that the unit goes offline in order.
  void announce_stop();
  /// Ends the connection in order if the broker has acknowledged everything; otherwise the broker publishes
  /// that the unit is lost when the connection closes.
  void disconnect();

 private:
  struct Destroy {
    void operator()(mosquitto* handle) const;
  };

  void connect();
  void connected();
  void publish(const std::string& key, std::string_view payload);
  void publish_variable(std::string_view name, std::string value);
  void check(int result);
  void report_failure(const char* reason);
  [[nodiscard]] Clock::duration random_pause(unsigned seconds);

  const FleetSetup& setup_;
  FleetCounters& counters_;
  const std::string name_;
  std::minstd_rand random_{std::random_device()()};
  std::unique_ptr<mosquitto, Destroy> handle_;
  bool is_accepted_ = false;  // by the broker, as the callback saw; the library's locks are held there
  bool is_connected_ = false;
  std::size_t attempts_ = 0;
  std::uint64_t unacknowledged_ = 0;
  unsigned changes_ = 0;
  Clock::time_point due_{};  // of the next attempt to connect, or of its failure
  Clock::time_point change_due_;
};

}  // namespace ecu::sim
