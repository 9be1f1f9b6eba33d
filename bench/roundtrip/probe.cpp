#include "probe.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <chrono>
#include <stdexcept>

#include <ecu/tamu/rt/signal_adapter.h>

#include "echo.h"
#include "support/rt_messages.h"

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds start_step{50};  // between two requests to a program that is starting
constexpr std::chrono::seconds time_limit{20};
constexpr int max_tries = 200;
constexpr int window = 32;  // of requests without an answer

ecu::tamu::com::Payload make_request(bool group) {
  tests::Group request;
  if (group) {
    for (const std::string_view signal : ecu::tamu::rt::catalogue_signals(group_request_topic)) {
      request.value(signal, 1.0).status(ecu::tamu::rt::signal_valid);
    }
  } else {
    request.bytes("data", std::string(64, '\0') + "\xd2\x02\x96\x49" + std::string(60, '\0'));
  }
  return request.message().payload;
}

}  // namespace

Probe::Probe(const std::string& host, int port, int results)
    : mosquittopp("probe", true), results_(results), request_(make_request(results > 1)) {
  if (connect(host.c_str(), host.front() == '/' ? 0 : port) != MOSQ_ERR_SUCCESS) {
    throw std::runtime_error("no broker");
  }
}

void Probe::on_connect(int /*code*/) {
  const int on = 1;
  ::setsockopt(socket(), IPPROTO_TCP, TCP_NODELAY, &on,
               sizeof(on));  // fails on another socket, which needs it not
  subscribe(nullptr, results_ == 1 ? single_result_topic : last_result_topic);
}

void Probe::on_message(const mosquitto_message* message) {
  received_ += message->retain ? 0 : 1;
}

void Probe::wait_for_answer() {
  for (int tries = 0; tries < max_tries; ++tries) {
    send_request();
    if (wait_for(received_ + 1, start_step)) {
      while (wait_for(received_ + 1, start_step)) {  // the answers to the requests before
      }
      sent_ = received_;
      return;
    }
  }
  throw std::runtime_error("no answer");
}

double Probe::round_trip() {
  const auto start = Clock::now();
  send_request();
  if (!wait_for(sent_, time_limit)) {
    throw std::runtime_error("an answer is missing");
  }
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

void Probe::stream(int count) {
  for (const int end = sent_ + count; sent_ < end;) {
    send_request();
    if (!wait_for(sent_ < end ? sent_ - window : sent_, time_limit)) {
      throw std::runtime_error("an answer is missing");
    }
  }
}

void Probe::send_request() {
  ++sent_;
  publish(nullptr, results_ == 1 ? single_request_topic : group_request_topic,
          static_cast<int>(request_.size()), request_.data());
}

bool Probe::wait_for(int results, std::chrono::milliseconds limit) {
  const auto end = Clock::now() + limit;
  while (received_ < results && Clock::now() < end) {
    loop(static_cast<int>(start_step.count()));
  }
  return received_ >= results;
}

}  // namespace bench
