#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <ecu/tamu/com/transport_client.h>

namespace tests {

/// A client without a broker that only counts publications.
class DiscardingClient final : public ecu::tamu::com::ITransportClient {
 public:
  using Observer = std::shared_ptr<ecu::tamu::com::ISubscriptionObserver>;

  void connect() override {}
  void start() override {}
  void run() override {}
  void stop() override {}
  void subscribe(const std::string& /*topic*/, int /*max_qos*/, Observer /*observer*/) override {}
  void unsubscribe(const std::string& /*topic*/, const Observer& /*observer*/) override {}
  ecu::tamu::com::PublishResult publish(const std::string& /*topic*/,
                                        ecu::tamu::com::Message /*message*/) override {
    ++published_;
    return ecu::tamu::com::PublishResult::success;
  }
  [[nodiscard]] bool connected() const override { return true; }

  [[nodiscard]] std::uint64_t published() const noexcept { return published_; }

 private:
  std::uint64_t published_ = 0;
};

}  // namespace tests
