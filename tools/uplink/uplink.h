#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/thread_safety.h>

#include "uplink/change_filter.h"
#include "uplink/fault_reports.h"
#include "uplink/fleet_link.h"
#include "uplink/old_topics.h"
#include "uplink/unit_clock.h"
#include "uplink/uplink_settings.h"
#include "uplink/wake_up.h"

namespace ecu::uplink {

/// Sends the variables of a unit to the broker of its fleet. It reads the topics of the variables and the
/// daemon's presence, and writes nothing to the unit's bus but its own presence.
///
/// The observer's thread publishes what is due at once; a timer thread publishes what is due later. Both hold
/// `mutex_` while they publish, so that the newest value of a topic is published last. The leader of the bus
/// takes it for short steps, too, and waits up to 2 s while the unit's name changes. While the unit's bus is
/// away, the daemon's presence is unknown, and cleared at the fleet's broker.
///
/// The fleet's client sends its latest messages again on each connection, as they were composed. The timer
/// thread then replaces those that another wall clock or presence of the daemon has made wrong since. Some
/// time after a change of the name it clears the old topics and sends everything once more, because messages
/// of the old connection and its last will may arrive late.
///
/// The timer thread also subscribes, and does so again 5 s after messages were dropped, once a refresh, and
/// at least every 10 minutes: what was missed is retained, and comes with the new subscription.
class Uplink {
 public:
  using WallClock = FleetLink::WallClock;

  /// `wall_clock` is called with internal locks held.
  explicit Uplink(UplinkSettings settings, WallClock wall_clock = wall_time_now);
  ~Uplink();
  Uplink(const Uplink&) = delete;
  Uplink& operator=(const Uplink&) = delete;

  /// Connects to both brokers and starts all threads.
  void start();

  /// Blocks the main thread until `stop`; SIGINT and SIGTERM are unblocked only while it waits.
  void run();

  /// Makes `run` return. May be called from a signal handler that interrupted the wait inside `run`.
  void stop();

 private:
  class BusObserver;
  class BusConnection;

  void handle(const std::string& topic, const tamu::com::Message& msg);
  void bus_up();
  void bus_down();
  void messages_lost();
  void subscribe() TAMU_EXCLUDES(mutex_);
  void send_and_plan() TAMU_REQUIRES(mutex_);
  void take_presence(const std::string& state) TAMU_REQUIRES(mutex_);
  void take_variable(const std::string& name, const tamu::com::Message& msg) TAMU_REQUIRES(mutex_);
  void take(const std::string& key, const std::string& text, BootTime published) TAMU_REQUIRES(mutex_);
  [[nodiscard]] bool is_sendable(const std::string& name, const std::string& value) TAMU_REQUIRES(mutex_);
  [[nodiscard]] bool must_report(const std::string& subject) TAMU_REQUIRES(mutex_);
  void take_unit(const std::string& unit) TAMU_REQUIRES(mutex_);
  void set_unit_if_due() TAMU_REQUIRES(mutex_);
  void set_unit(const std::string& unit) TAMU_REQUIRES(mutex_);
  void leave_name() TAMU_REQUIRES(mutex_);
  void send_due() TAMU_REQUIRES(mutex_);
  [[nodiscard]] ChangeFilter::Context context() const TAMU_REQUIRES(mutex_);
  void handle_connection();
  void correct() TAMU_REQUIRES(mutex_);
  void repair_names() TAMU_REQUIRES(mutex_);
  void run_timer();
  [[nodiscard]] bool subscription_is_due() TAMU_EXCLUDES(mutex_);
  [[nodiscard]] BootTime run_tasks() TAMU_EXCLUDES(mutex_);
  [[nodiscard]] BootTime next_task() const TAMU_REQUIRES(mutex_);

  // Constant after construction.
  const UplinkSettings settings_;
  const WallClock wall_clock_;
  const std::shared_ptr<tamu::com::ISubscriptionObserver> observer_;

  // With their own synchronisation.
  const std::shared_ptr<OldTopics> old_topics_ = std::make_shared<OldTopics>();
  WakeUp timer_wake_;
  std::atomic<bool> is_stopping_ = false;
  // A connection to the fleet has begun. Set by the link's threads, which must not wait for mutex_: it is
  // held while they end.
  std::atomic<bool> is_newly_connected_ = false;

  tamu::Mutex mutex_;

  // Guarded by mutex_.
  ChangeFilter filter_ TAMU_GUARDED_BY(mutex_);
  bool bus_is_up_ TAMU_GUARDED_BY(mutex_) = false;
  std::optional<std::string> daemon_presence_ TAMU_GUARDED_BY(mutex_);  // nothing while it is unknown
  bool is_full_ TAMU_GUARDED_BY(mutex_) = false;                        // which has been reported
  FaultReports faults_ TAMU_GUARDED_BY(mutex_);
  // Messages that were sent again on a new connection may show the time of another clock.
  bool are_times_old_ TAMU_GUARDED_BY(mutex_) = false;
  BootTime subscribe_due_ TAMU_GUARDED_BY(mutex_) = BootTime::min();
  BootTime repair_due_ TAMU_GUARDED_BY(mutex_) = BootTime::max();  // of the topics of former names
  BootTime timer_due_ TAMU_GUARDED_BY(mutex_) = BootTime::max();   // when the timer thread wakes by itself
  std::string next_unit_ TAMU_GUARDED_BY(mutex_);                  // empty: none
  BootTime next_unit_due_ TAMU_GUARDED_BY(mutex_){};
  std::unique_ptr<FleetLink> fleet_ TAMU_GUARDED_BY(mutex_);  // null until the unit's name is known

  std::jthread timer_;

  // Destroyed first: its threads use the members above.
  const std::shared_ptr<tamu::com::ITransportClient> bus_;
};

}  // namespace ecu::uplink
