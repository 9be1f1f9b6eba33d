#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/thread_safety.h>

#include "common/wake_event.h"
#include "quilctl/talk/bus_event.h"

namespace ecu::ctl {

/// Queues the client's events. The client's threads put them in, one other thread takes them out. When the
/// queue is full, the oldest messages are dropped and counted.
class EventQueue final : public tamu::com::ISubscriptionObserver, public tamu::com::IConnectionObserver {
 public:
  /// The limits apply `backlog` times.
  explicit EventQueue(std::size_t backlog) : backlog_(backlog) {}

  void message(const std::string& topic, const tamu::com::Message& msg) override;
  void connection_up() override;
  void connection_down(tamu::com::ConnectionFailure failure, const std::string& reason) override;
  void subscription_refused(const std::string& filter) override;
  void subscriptions_settled() override;
  void messages_dropped(const std::string& filter, std::uint64_t count) override;

  /// The next event; nothing when none is waiting.
  [[nodiscard]] std::optional<Event> take();

  /// The number of messages dropped since the last call.
  [[nodiscard]] std::uint64_t take_lost();

  /// Readable when an event may be waiting.
  [[nodiscard]] int fd() const noexcept { return wake_.fd(); }

 private:
  void put(Event event);
  void drop_oldest_messages() TAMU_REQUIRES(mutex_);

  // Constant after construction.
  const std::size_t backlog_;

  // With its own synchronisation.
  const tools::WakeEvent wake_;

  tamu::Mutex mutex_;

  // Guarded by mutex_.
  std::deque<Event> waiting_ TAMU_GUARDED_BY(mutex_);
  std::size_t bytes_ TAMU_GUARDED_BY(mutex_) = 0;  // of the waiting payloads
  std::uint64_t lost_ TAMU_GUARDED_BY(mutex_) = 0;
};

}  // namespace ecu::ctl
