#include "ecusim/parameter_requests.h"

#include <pthread.h>

#include <utility>

#include <ecu/tamu/com/topics.h>

#include "ecusim/interruptible_sleep.h"

namespace ecu::sim {

namespace {

constexpr std::chrono::seconds interval{1};

}  // namespace

ParameterRequests::ParameterRequests(std::shared_ptr<tamu::com::ITransportClient> client)
    : client_(std::move(client)), thread_([this](const std::stop_token& stop) { request(stop); }) {}

void ParameterRequests::request(const std::stop_token& stop) const {
  pthread_setname_np(pthread_self(), "requester");
  do {
    if (client_->connected()) {
      (void)client_->publish(tamu::com::topics::all_parameters_request, {});
    }
  } while (sleep_until(stop, std::chrono::steady_clock::now() + interval));
}

}  // namespace ecu::sim
