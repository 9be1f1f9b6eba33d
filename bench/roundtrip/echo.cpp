#include "echo.h"

#include <mosquittopp.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstdint>
#include <span>
#include <vector>

#include <ecu/tamu/com/framing.h>
#include <ecu/tamu/pb/messages.pb.h>

namespace bench {

namespace {

namespace com = ecu::tamu::com;

com::Payload result() {
  ecu::tamu::pb::EcuVariable variable;
  variable.set_value("123456-7890");
  variable.set_timestamp(1'000'000'000'000);
  return com::frame(variable, com::pb_protocol_type).value().payload;
}

class Echo : public mosqpp::mosquittopp {
 public:
  Echo(const std::string& host, int port, int results)
      : mosquittopp("echo", true),
        request_topic_(results == 1 ? single_request_topic : group_request_topic),
        is_tcp_(host.front() != '/') {
    for (int i = 1; i < results; ++i) {
      topics_.push_back("system/var/result" + std::to_string(i));
    }
    topics_.emplace_back(results == 1 ? single_result_topic : last_result_topic);
    connect(host.c_str(), is_tcp_ ? port : 0);
  }

  void on_connect(int /*code*/) override {
    set_tcp_option(TCP_NODELAY, 1);
    subscribe(nullptr, request_topic_);
  }
  void on_message(const mosquitto_message* /*message*/) override { publish_results(); }

 protected:
  void publish_results() {
    for (const std::string& topic : topics_) {
      publish_result(topic, payload_);
    }
  }
  void publish_result(const std::string& topic, const com::Payload& payload) {
    publish(nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(), 0, true);
  }
  [[nodiscard]] const std::vector<std::string>& topics() const { return topics_; }
  void set_tcp_option(int option, int value) {
    if (is_tcp_) {
      ::setsockopt(socket(), IPPROTO_TCP, option, &value, sizeof(value));
    }
  }

 private:
  const char* request_topic_;
  bool is_tcp_;
  std::vector<std::string> topics_;
  com::Payload payload_ = result();
};

class WorkingEcho final : public Echo {
 public:
  using Echo::Echo;

  void on_message(const mosquitto_message* message) override {
    const std::span request(static_cast<const std::uint8_t*>(message->payload),
                            static_cast<std::size_t>(message->payloadlen));
    std::uint16_t protocol_type = 0;
    if (com::unframe(request, group_, protocol_type) == com::err::PbInternalDeserializationError::success) {
      for (const std::string& topic : topics()) {
        publish_result(topic, result());
      }
    }
  }

 private:
  ecu::tamu::pb::SignalGroup group_;
};

class BatchingEcho final : public Echo {
 public:
  using Echo::Echo;

  void on_message(const mosquitto_message* /*message*/) override { ++waiting_; }

  void run() {
    for (;;) {
      const int events = POLLIN | (want_write() ? POLLOUT : 0);
      pollfd connection{socket(), static_cast<short>(events), 0};
      ::poll(&connection, 1, -1);
      loop_write();
      int before = 0;
      do {
        before = waiting_;
        loop_read();
      } while (waiting_ != before);
      send_all();
    }
  }

 private:
  void send_all() {
    const bool several = waiting_ > 1 || topics().size() > 1;
    if (several) {
      set_tcp_option(TCP_CORK, 1);
    }
    for (; waiting_ > 0; --waiting_) {
      publish_results();
    }
    if (several) {
      set_tcp_option(TCP_CORK, 0);
    }
  }

  int waiting_ = 0;
};

}  // namespace

void run_echo(std::string_view kind, const std::string& host, int port, int results) {
  if (kind == batching_echo) {
    BatchingEcho(host, port, results).run();
  } else if (kind == working_echo) {
    WorkingEcho(host, port, results).loop_forever();
  } else {
    Echo(host, port, results).loop_forever();
  }
}

}  // namespace bench
