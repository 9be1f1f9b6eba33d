#pragma once

#include <ecu/tamu/com/transport_client.h>
#include <ecu/tamu/config/configuration.h>

#include "support/broker.h"
#include "support/bus_client.h"
#include "support/recorder.h"
#include "support/rt_messages.h"
#include "support/testing.h"

namespace tests {

namespace com = ecu::tamu::com;

/// Calls `on_event` with "up", "down: REASON", "settled" or "dropped: COUNT FILTER"; the broker of these
/// tests refuses nothing.
class ConnectionLog final : public com::IConnectionObserver {
 public:
  explicit ConnectionLog(std::function<void(const std::string&)> on_event) : on_event_(std::move(on_event)) {}

  void connection_up() override { on_event_("up"); }
  void connection_down(com::ConnectionFailure /*failure*/, const std::string& reason) override {
    on_event_("down: " + reason);
  }
  void subscription_refused(const std::string& /*filter*/) override {}
  void subscriptions_settled() override { on_event_("settled"); }
  void messages_dropped(const std::string& filter, std::uint64_t count) override {
    on_event_("dropped: " + std::to_string(count) + ' ' + filter);
  }

 private:
  const std::function<void(const std::string&)> on_event_;
};

/// The client under test, and another user of the bus that receives everything on "out/" and "system/".
class ClientTest : public testing::Test {
 public:
  ~ClientTest() override {
    if (!gate.try_wait()) {
      gate.count_down();
    }
    stop();
  }

 protected:
  static inline const std::string presence_topic = "system/presence/tested";

  explicit ClientTest(const std::string& access = "allow_anonymous true") : broker(access) {
    bus.subscribe("system/#");
    bus.subscribe("out/#");
    auto config = std::make_unique<ecu::tamu::config::Configuration>();
    config->set_value("client_name", "tested");
    config->set_value("host", "127.0.0.1");
    config->set_value("port", std::to_string(broker.port()));
    client = com::create_client(config, com::TransportType::mqtt,
                                std::make_shared<ConnectionLog>([this](const std::string& event) {
                                  if (on_connection) {
                                    on_connection(event);
                                  }
                                }));
  }
  /// Runs the client; on return it is connected and its earlier subscriptions are in effect.
  void start() {
    run();
    ASSERT_TRUE(bus.wait_for_text(presence_topic, "online"));
  }
  void run() {
    client->connect();
    client->start();
    running = std::async(std::launch::async, [this] { client->run(); });
  }
  void stop() {
    client->stop();
    if (running.valid()) {
      ASSERT_EQ(running.wait_for(time_limit), std::future_status::ready);
    }
  }
  com::PublishResult publish(const std::string& topic, const std::string& text, bool retained = false) {
    return client->publish(topic, raw_message(text, false, retained));
  }
  std::shared_ptr<Recorder> make_blocked_recorder() {
    return make_recorder([this](const std::string&, const com::Message&) { gate.wait(); });
  }

  std::function<void(const std::string&)> on_connection;  // set before `start`
  std::latch gate{1};                                     // blocked observers wait for it
  Broker broker;
  BusClient bus{broker.port()};
  std::shared_ptr<com::ITransportClient> client;
  std::future<void> running;
};

inline bool returns_soon(const std::future<void>& call) {
  return call.wait_for(time_limit) == std::future_status::ready;
}
inline bool has_returned(const std::future<void>& call) {
  return call.wait_for(std::chrono::milliseconds(50)) == std::future_status::ready;
}

}  // namespace tests
