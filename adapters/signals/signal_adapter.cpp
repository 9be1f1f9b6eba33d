#include <algorithm>
#include <optional>
#include <utility>

#include <ecu/tamu/com/message_fields.h>
#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/pb/messages.pb.h>
#include <ecu/tamu/rt/signal_adapter.h>

#include "signals/signal_catalogue.h"

namespace ecu::tamu::rt {

namespace {

using Unpacked = Result<std::shared_ptr<const SignalGroup>, UnpackError>;

// Several times the size of any message that the real-time side sends. A larger one is not kept, so that a
// thread holds little memory between two messages.
constexpr std::size_t max_kept_payload = std::size_t{4} * 1024;

// The message that a thread unpacked last. Several variables read the same message one after another; the
// group is parsed for the first of them. A message is recognised by its content, so a match is never wrong.
struct LastUnpacked {
  std::string topic;
  std::uint64_t timestamp = 0;
  com::Payload payload;
  std::optional<Unpacked> result;  // empty while the other members are inconsistent

  [[nodiscard]] bool holds(const std::string& other_topic, const com::Message& msg) const {
    return result && timestamp == msg.timestamp && topic == other_topic && payload == msg.payload;
  }
};

}  // namespace

SignalGroup::SignalGroup(const CatalogueEntry& topic) : topic_(&topic), signals_(topic.signals.size()) {}

const Signal* SignalGroup::signal(std::string_view name) const noexcept {
  const std::size_t position = position_of(name);
  return position < signals_.size() && signals_[position] ? &*signals_[position] : nullptr;
}

std::size_t SignalGroup::position_of(std::string_view name) const noexcept {
  const auto names = topic_->signals;
  const auto found = std::find_if(names.begin(), names.end(), [name](std::string_view known) {
    // Names of the same length mostly differ at their ends, and this comparison needs no function call.
    return known.size() == name.size() && known.back() == name.back() && known == name;
  });
  return static_cast<std::size_t>(found - names.begin());
}

Signal* SignalGroup::set(std::string_view name) {
  const std::size_t position = position_of(name);
  if (position == signals_.size()) {
    return nullptr;
  }
  std::optional<Signal>& signal = signals_[position];
  return signal ? &*signal : &signal.emplace(topic_->signals[position]);
}

bool SignalGroup::set_signal_data(std::string_view name, std::span<const std::uint8_t> bytes) {
  Signal* signal = set(name);
  if (signal == nullptr) {
    return false;
  }
  signal->data_.assign(bytes.begin(), bytes.end());
  signal->status_ = signal_valid;
  return true;
}

const SignalAdapter& SignalAdapter::instance() {
  static const SignalAdapter adapter;
  return adapter;
}

Result<std::shared_ptr<const SignalGroup>, UnpackError> SignalAdapter::unpack(const std::string& topic,
                                                                              const com::Message& msg) const {
  if (msg.payload.size() > max_kept_payload) {
    return parse(topic, msg);
  }
  thread_local LastUnpacked last;
  if (!last.holds(topic, msg)) {
    last.result.reset();
    last.topic = topic;
    last.timestamp = msg.timestamp;
    last.payload = msg.payload;
    last.result = parse(topic, msg);
  }
  return *last.result;
}

Result<std::shared_ptr<const SignalGroup>, UnpackError> SignalAdapter::parse(const std::string& topic,
                                                                             const com::Message& msg) {
  const CatalogueEntry* entry = find_topic(topic);
  if (entry == nullptr) {
    return UnpackError::unknown_topic;
  }
  std::uint16_t protocol_type = com::pb_protocol_type;
  const auto body = com::framed_body(msg.payload, protocol_type);
  if (!body) {
    return static_cast<UnpackError>(body.error());
  }
  auto group = std::make_shared<SignalGroup>(SignalGroup(*entry));
  const bool parsed = com::for_each_field<pb::SignalGroup>(*body, [&group](const pb::SignalGroup& field) {
    for (const pb::Signal& received : field.signal()) {
      if (Signal* signal = group->set(received.name())) {
        signal->data_.assign(received.data().begin(), received.data().end());
        signal->value_ = received.value();
        signal->status_ = received.status();
      }
    }
    return true;
  });
  if (!parsed) {
    return static_cast<UnpackError>(com::refuse_body());
  }
  return std::shared_ptr<const SignalGroup>(std::move(group));
}

Result<SignalGroup, GroupError> SignalAdapter::create_sg(const std::string& topic) const {
  const CatalogueEntry* entry = find_topic(topic);
  if (entry == nullptr) {
    return GroupError::unknown_topic;
  }
  return SignalGroup(*entry);
}

Result<com::Message, GroupError> SignalAdapter::pack(const SignalGroup& group) const {
  pb::SignalGroup body;
  for (const std::optional<Signal>& signal : group.signals_) {
    if (signal) {
      pb::Signal& packed = *body.add_signal();
      packed.set_name(std::string(signal->name()));
      packed.set_data(signal->data().data(), signal->data().size());
      packed.set_status(signal->status());
    }
  }
  auto message = com::PbInternalMessageAdapter<pb::SignalGroup>().serialize(body);
  if (!message) {
    return GroupError::protobuf;
  }
  return std::move(*message);
}

}  // namespace ecu::tamu::rt
