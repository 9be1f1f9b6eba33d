#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <ecu/tamu/com/transport_client.h>

namespace tests {

/// A client without a broker that records its calls.
class FakeClient : public ecu::tamu::com::ITransportClient {
 public:
  using Message = ecu::tamu::com::Message;
  using Observer = std::shared_ptr<ecu::tamu::com::ISubscriptionObserver>;

  struct Published {
    std::string topic;
    Message message;
  };

  void connect() override {}
  void start() override {}
  void run() override {}
  void stop() override {}
  void subscribe(const std::string& topic, int max_qos, Observer observer) override {
    subscribed.push_back(topic);
    max_qos_seen = std::max(max_qos_seen, max_qos);
    observers[topic] = observer;
    last_observer = std::move(observer);
  }
  void unsubscribe(const std::string& topic, const Observer& /*observer*/) override {
    unsubscribed.push_back(topic);
  }
  ecu::tamu::com::PublishResult publish(const std::string& topic, Message message) override {
    published.push_back({topic, std::move(message)});
    return result;
  }
  [[nodiscard]] bool connected() const override { return is_connected; }

  std::vector<std::string> subscribed;
  std::vector<std::string> unsubscribed;
  int max_qos_seen = 0;
  std::map<std::string, Observer> observers;  // by topic, the last one that subscribed
  Observer last_observer;
  std::vector<Published> published;
  ecu::tamu::com::PublishResult result = ecu::tamu::com::PublishResult::success;
  bool is_connected = true;
};

}  // namespace tests
