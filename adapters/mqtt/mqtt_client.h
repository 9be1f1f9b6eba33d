#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <ecu/tamu/com/transport_client.h>

#include "mqtt/connection.h"
#include "mqtt/delivery.h"
#include "mqtt/leader_threads.h"
#include "mqtt/mqtt_settings.h"
#include "mqtt/outbox.h"
#include "mqtt/quarantine.h"
#include "mqtt/refused_subscriptions.h"
#include "mqtt/repetition.h"
#include "mqtt/send_queue.h"
#include "posix/event.h"
#include "system/heartbeat.h"

namespace ecu::tamu::com::mqtt {

/// The bus over MQTT 3.1.1. One thread at a time, the leader, uses the connection. Publications of other
/// threads, and of the observers that the leader calls, are queued and leave in batches.
class MqttClient final : public ITransportClient, private ConnectionListener {
 public:
  /// `observer` may be null.
  MqttClient(MqttSettings settings, std::shared_ptr<IConnectionObserver> observer);
  ~MqttClient() override;

  void connect() override;
  void start() override;
  void run() override;
  void stop() override;
  void subscribe(const std::string& topic, int max_qos,
                 std::shared_ptr<ISubscriptionObserver> observer) override;
  void unsubscribe(const std::string& topic, const std::shared_ptr<ISubscriptionObserver>& observer) override;
  PublishResult publish(const std::string& topic, Message message) override;
  [[nodiscard]] bool connected() const override;

 private:
  void request_stop();
  void report_status(const std::string& text) const;
  void connection_up() override;
  void connection_down(ConnectionFailure failure, const std::string& reason) override;
  void message(const std::string& topic, Message message) override;
  void oversized_message(const std::string& topic) override;
  void subscription_refused(const std::string& filter) override;
  void subscription_granted(const std::string& filter) override;
  void fence_answered(Fence fence) override;
  void acknowledged_late() override;

  void lead();
  [[nodiscard]] bool deliver();
  void handle_wake_up_request();
  void send();
  void send_all();
  void report_settlement();
  void send_subscription_changes(const std::vector<SubscriptionChange>& changes);
  void repeat_publications();
  void retry_subscriptions();
  void send_publications();
  void forget_cleared_topics();
  [[nodiscard]] bool take_batch();
  [[nodiscard]] SendQueue::Room room() const;
  void sleep();
  void close_connection();
  [[nodiscard]] bool all_sent();

  // Constant after construction.
  const MqttSettings settings_;
  const std::shared_ptr<IConnectionObserver> observer_;

  // With their own synchronisation.
  const posix::Event stop_;  // for the thread in `run`
  const posix::Event wake_;  // for the leader
  std::atomic<bool> stop_requested_ = false;
  Delivery delivery_;
  SendQueue queue_;

  // Used by the leader only.
  Connection connection_;
  Quarantine quarantine_;
  std::vector<PublicationPtr> batch_;     // being sent
  std::vector<PublicationPtr> clearing_;  // sent to clear their topics, and perhaps not acknowledged
  bool fence_wanted_ = false;             // after the first subscriptions of a connection
  bool first_fence_wanted_ = false;       // before the first publication of a connection
  // The number of messages to deliver before the subscriptions count as settled.
  std::optional<std::uint64_t> settled_after_;
  Repetition repetition_;
  RefusedSubscriptions refused_;

  // With their own synchronisation, and destroyed first: their threads use the members above.
  LeaderThreads threads_;
  Heartbeat heartbeat_;
};

}  // namespace ecu::tamu::com::mqtt
