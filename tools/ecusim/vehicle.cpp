#include "ecusim/vehicle.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/com/topics.h>
#include <ecu/tamu/pb/messages.pb.h>
#include <ecu/tamu/rt/signal_adapter.h>

namespace ecu::sim {

namespace com = tamu::com;
namespace rt = tamu::rt;
namespace topics = com::topics;

namespace {

constexpr const char* requested_group_signal = "parametergroupnumberrqst";
constexpr const char* vin_signal = "data";
constexpr const char* vin_size_signal = "nof_bytes";

// Vehicle Identification, 0xFEEC (SAE J1939-71), as 32 bits in little-endian order.
constexpr std::array<std::uint8_t, 4> vehicle_identification = {0xec, 0xfe, 0x00, 0x00};
// Some control units pad the VIN with spaces before the delimiter that ends it.
constexpr const char* padding = "   *";

bool is_vin_request(const std::string& topic, const com::Message& msg) {
  const auto group = rt::SignalAdapter::instance().unpack(topic, msg);
  const rt::Signal* const requested = group ? (*group)->signal(requested_group_signal) : nullptr;
  return requested != nullptr && std::ranges::equal(requested->data(), vehicle_identification);
}

std::string another_vin(std::string vin) {
  const char last = vin.empty() || vin.back() != '0' ? '0' : '1';
  vin.resize(vin.empty() ? 1 : vin.size());
  vin.back() = last;
  return vin;
}

std::optional<com::Message> to_message(const std::string& vin) {
  tamu::pb::SignalGroup group;
  tamu::pb::Signal& data = *group.add_signal();
  data.set_name(vin_signal);
  data.set_data(vin);
  data.set_status(rt::signal_valid);
  tamu::pb::Signal& size = *group.add_signal();
  size.set_name(vin_size_signal);
  size.set_value(static_cast<double>(vin.size()));
  size.set_status(rt::signal_valid);
  return com::PbInternalMessageAdapter<tamu::pb::SignalGroup>().serialize(group);
}

}  // namespace

// Determines the answers when a request arrives, so that overlapping requests are answered in order.
class Vehicle::Requests final : public com::ISubscriptionObserver {
 public:
  Requests(VehicleSetup setup, DelayQueue<Answers>& answers) : setup_(std::move(setup)), answers_(answers) {}

  void message(const std::string& topic, const com::Message& msg) override {
    if (!setup_.silent && is_vin_request(topic, msg)) {
      answers_.push(next_answers(), setup_.answer_after);
    }
  }

 private:
  Answers next_answers() {
    Answers answers = {{next_vin(), setup_.unit.source_address}};
    if (setup_.second) {
      answers.push_back(*setup_.second);
    }
    for (ControlUnit& unit : answers) {
      unit.vin += setup_.padding ? padding : "";
    }
    return answers;
  }

  std::string next_vin() {
    const bool has_changed = setup_.change_after && answered_ >= setup_.change_after->answers;
    const std::string& vin = has_changed ? setup_.change_after->vin : setup_.unit.vin;
    ++answered_;
    const bool is_wrong = setup_.wrong_vin_every && answered_ % *setup_.wrong_vin_every == 0;
    return is_wrong ? another_vin(vin) : vin;
  }

  const VehicleSetup setup_;
  DelayQueue<Answers>& answers_;
  std::int64_t answered_ = 0;  // used by deliveries only, of which there is one at a time
};

Vehicle::Vehicle(VehicleSetup setup, std::shared_ptr<com::ITransportClient> client)
    : client_(std::move(client)),
      requests_(std::make_shared<Requests>(std::move(setup), answers_)),
      thread_([this](const std::stop_token& stop) { answer(stop); }) {
  client_->subscribe(topics::vehicle_request, 0, requests_);
}

Vehicle::~Vehicle() {
  client_->unsubscribe(topics::vehicle_request, requests_);
}

void Vehicle::answer(const std::stop_token& stop) {
  pthread_setname_np(pthread_self(), "vehicle");
  while (const std::optional<Answers> answers = answers_.pop(stop)) {
    for (const ControlUnit& unit : *answers) {
      if (std::optional<com::Message> message = to_message(unit.vin)) {
        client_->publish(topics::vehicle_identification_prefix + unit.source_address, std::move(*message));
      }
    }
  }
}

}  // namespace ecu::sim
