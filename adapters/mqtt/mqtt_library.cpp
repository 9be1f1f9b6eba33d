#include "mqtt/mqtt_library.h"

#include <mosquitto.h>

#include <cerrno>
#include <cstdint>
#include <exception>
#include <new>
#include <stdexcept>
#include <utility>

#include <ecu/tamu/date_time.h>

#include "mqtt/fault.h"
#include "mqtt/mailbox.h"
#include "mqtt/mqtt_log.h"

namespace ecu::tamu::com::mqtt {

namespace {

constexpr int refused_qos = 0x80;  // in a SUBACK

// A log line that needs memory may be lost, too.
void report_lost_message(const char* topic, const char* reason) noexcept {
  try {
    mqtt_log.error("incoming message on topic ", topic, " lost: ", reason);
  } catch (...) {
  }
}

// The identifier as the library takes it. The library's constructor accesses its object even if the object
// could not be created. Creating one first shows whether it can be.
const char* checked(const std::string& client_id) {
  const char* const id = client_id.empty() ? nullptr : client_id.c_str();
  errno = 0;
  mosquitto* const object = ::mosquitto_new(id, true, nullptr);
  if (object == nullptr) {
    if (errno == ENOMEM) {
      throw std::bad_alloc();
    }
    throw std::runtime_error("invalid client identifier");
  }
  ::mosquitto_destroy(object);
  return id;
}

}  // namespace

MqttLibrary::MqttLibrary(const std::string& client_id, ConnectionListener& listener)
    : mosqpp::mosquittopp(checked(client_id), true), listener_(listener) {}

// Nothing may unwind through the library's C code.
template <class Action>
void MqttLibrary::guard(Action action) noexcept {
  try {
    ++received_;
    action();
  } catch (const std::bad_alloc&) {
    callback_failure_ = out_of_memory;
  } catch (...) {
    callback_failure_ = "a packet could not be handled";
  }
}

void MqttLibrary::on_connect(int code) {
  guard([&] {
    refusal_ = code;
    accepted_ = code == 0;
  });
}

void MqttLibrary::on_message(const mosquitto_message* message) {
  guard([&] {
    bytes_ += static_cast<std::size_t>(message->payloadlen);
    acknowledged_ += message->qos > 0 ? 1U : 0U;
    try {
      // The library holds the message twice. A third copy is made only if there is use for it.
      if (static_cast<std::size_t>(message->payloadlen) > max_waiting_bytes) {
        listener_.oversized_message(message->topic);
        return;
      }
      const auto* bytes = static_cast<const std::uint8_t*>(message->payload);
      Message received;
      received.acknowledged = message->qos > 0;
      received.timestamp = DateTime::time_since_boot_ns();
      received.payload.assign(bytes, bytes + message->payloadlen);
      received.retained = message->retain;
      listener_.message(message->topic, std::move(received));
    } catch (const std::exception& failure) {
      report_lost_message(message->topic, failure.what());
    }
  });
}

void MqttLibrary::on_subscribe(int mid, int count, const int* granted) {
  guard([&] {
    const auto request = pending_.take(mid);
    if (!request || count < 1) {
      return;
    }
    if (granted[0] == refused_qos) {
      listener_.subscription_refused(request->filter);
    } else {
      listener_.subscription_granted(request->filter);
    }
  });
}

void MqttLibrary::on_unsubscribe(int mid) {
  guard([&] {
    const auto request = pending_.take(mid);
    if (request && request->kind == PendingAnswers::Kind::fence) {
      listener_.fence_answered(request->fence);
    }
  });
}

void MqttLibrary::on_publish(int mid) {
  guard([&] {
    const auto request = pending_.take(mid);
    if (request && request->sent && PendingAnswers::Clock::now() - *request->sent > late_acknowledgement) {
      listener_.acknowledged_late();
    }
  });
}

void MqttLibrary::on_log(int level, const char* text) {
  if (level == MOSQ_LOG_ERR) {
    guard([&] { last_error_ = text; });
  }
}

}  // namespace ecu::tamu::com::mqtt
