#include "mqtt/mqtt_library.h"

#include <cstdint>
#include <exception>
#include <utility>

#include <ecu/tamu/date_time.h>

#include "mqtt/mqtt_log.h"

namespace ecu::tamu::com::mqtt {

namespace {

constexpr int refused_qos = 0x80;  // in a SUBACK

}  // namespace

MqttLibrary::MqttLibrary(const std::string& client_id, MqttSession::Listener& listener)
    : mosqpp::mosquittopp(client_id.empty() ? nullptr : client_id.c_str(), true), listener_(listener) {}

std::string MqttLibrary::explain(const std::string& general) const {
  if (!refusal_.empty()) {
    return refusal_;
  }
  return last_error_.empty() ? general : general + " (" + last_error_ + ")";
}

// Nothing may unwind through the library's C code.
template <class Action>
void MqttLibrary::guard(Action action) noexcept {
  try {
    ++received_;
    action();
  } catch (const std::exception& failure) {
    mqtt_log.error("incoming packet lost: ", failure.what());
  } catch (...) {
    mqtt_log.error("incoming packet lost");
  }
}

void MqttLibrary::on_connect(int code) {
  guard([&] {
    if (code != 0) {
      refusal_ = mosqpp::connack_string(code);
      return;
    }
    accepted_ = true;
    listener_.connected();
  });
}

void MqttLibrary::on_message(const mosquitto_message* message) {
  guard([&] {
    ++messages_;
    bytes_ += static_cast<std::size_t>(message->payloadlen);
    const auto* bytes = static_cast<const std::uint8_t*>(message->payload);
    Message received;
    received.acknowledged = message->qos > 0;
    acknowledged_ += received.acknowledged ? 1U : 0U;
    received.timestamp = DateTime::time_since_boot_ns();
    received.payload.assign(bytes, bytes + message->payloadlen);
    received.retained = message->retain;
    listener_.message(message->topic, std::move(received));
  });
}

void MqttLibrary::on_subscribe(int mid, int count, const int* granted) {
  guard([&] {
    const auto subscription = subscribing_.extract(mid);
    if (!subscription.empty() && count > 0 && granted[0] == refused_qos) {
      mqtt_log.warning("broker refuses the subscription to ", subscription.mapped());
      listener_.subscription_refused(subscription.mapped());
    }
  });
}

void MqttLibrary::on_unsubscribe(int mid) {
  guard([&] {
    if (mid == echo_) {
      listener_.echoed();
    }
  });
}

void MqttLibrary::on_publish(int mid) {
  guard([&] { std::erase(unacknowledged_, mid); });
}

void MqttLibrary::on_log(int level, const char* text) {
  if (level == MOSQ_LOG_ERR) {
    guard([&] { last_error_ = text; });
  }
}

}  // namespace ecu::tamu::com::mqtt
