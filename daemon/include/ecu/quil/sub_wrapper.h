#pragma once

#include <string>

#include <ecu/tamu/com/transport_client.h>

namespace ecu::quil {

/// Forwards to its owner, because the transport shares the ownership of its observers. The owner unsubscribes
/// it before its own destruction.
class SubWrapper final : public tamu::com::ISubscriptionObserver {
 public:
  explicit SubWrapper(tamu::com::ISubscriptionObserver* owner) : m_owner(owner) {}

  void message(const std::string& topic, const tamu::com::Message& msg) override {
    m_owner->message(topic, msg);
  }

 private:
  tamu::com::ISubscriptionObserver* m_owner;
};

}  // namespace ecu::quil
