#include "support/bus_client.h"

#include <mosquittopp.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <stdexcept>

namespace tests {

class BusClient::Library final : public mosqpp::mosquittopp {
 public:
  Library(const std::string& id, BusClient& owner)
      : mosqpp::mosquittopp(id.empty() ? nullptr : id.c_str(), true), owner_(owner) {}
  ~Library() override {
    disconnect();
    loop_stop();
  }

 private:
  template <class Change>
  void tell(Change change) {
    const std::lock_guard lock(owner_.mutex_);
    change();
    owner_.changed_.notify_all();
  }

  void on_connect(int code) override {
    const int on = 1;
    ::setsockopt(socket(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    tell([&] { owner_.answer_ = code; });
  }
  void on_subscribe(int mid, int /*count*/, const int* /*granted*/) override {
    tell([&] { owner_.subscribed_.push_back(mid); });
  }
  void on_message(const mosquitto_message* message) override {
    const auto* bytes = static_cast<const char*>(message->payload);
    tell([&] {
      owner_.history_.push_back(
          {message->topic, std::string(bytes, bytes + message->payloadlen), message->qos, message->retain});
      owner_.returned_.push_back(false);
    });
  }

  BusClient& owner_;
};

BusClient::BusClient(int port, const std::string& id, const std::string& user, const std::string& password) {
  static const int initialised = mosqpp::lib_init();
  static_cast<void>(initialised);
  library_ = std::make_unique<Library>(id, *this);
  if (!user.empty()) {
    library_->username_pw_set(user.c_str(), password.c_str());
  }
  if (library_->connect("127.0.0.1", port) != MOSQ_ERR_SUCCESS) {
    throw std::runtime_error("no broker on port " + std::to_string(port));
  }
  library_->loop_start();
  std::unique_lock lock(mutex_);
  if (!changed_.wait_for(lock, time_limit, [this] { return answer_.has_value(); }) || *answer_ != 0) {
    throw std::runtime_error("no login");
  }
}

BusClient::~BusClient() = default;

void BusClient::publish(const std::string& topic, std::string_view payload, bool retained, int qos) {
  library_->publish(nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(), qos, retained);
}

void BusClient::publish(const std::string& topic, const ecu::tamu::com::Payload& payload, bool retained,
                        int qos) {
  publish(topic, std::string(payload.begin(), payload.end()), retained, qos);
}

void BusClient::subscribe(const std::string& filter, int qos) {
  int mid = 0;
  library_->subscribe(&mid, filter.c_str(), qos);
  std::unique_lock lock(mutex_);
  const auto granted = [&] {
    return std::find(subscribed_.begin(), subscribed_.end(), mid) != subscribed_.end();
  };
  if (!changed_.wait_for(lock, time_limit, granted)) {
    throw std::runtime_error("no subscription to " + filter);
  }
}

std::optional<BusMessage> BusClient::wait_for(const std::string& topic, const Predicate& wanted,
                                              std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  std::size_t next = 0;
  const auto found = [&] {
    for (; next < history_.size(); ++next) {
      const BusMessage& message = history_[next];
      if (!returned_[next] && message.topic == topic && (!wanted || wanted(message))) {
        return true;
      }
    }
    return false;
  };
  if (!changed_.wait_for(lock, timeout, found)) {
    return std::nullopt;
  }
  returned_[next] = true;
  return history_[next];
}

bool BusClient::wait_for_text(const std::string& topic, std::string_view text) {
  return wait_for(topic, [text](const BusMessage& message) { return message.payload == text; }).has_value();
}

std::vector<BusMessage> BusClient::history() const {
  const std::lock_guard lock(mutex_);
  return history_;
}

}  // namespace tests
