#include <atomic>
#include <memory>
#include <thread>

#include <ecu/quil/environment_daemon.h>

#include "fuzz/signal_groups.h"
#include "fuzz/wire_reader.h"
#include "support/fake_client.h"

// Sends the daemon one message after another, on all of its topics, and compares the memory in use after
// ordinary messages with that before.
namespace {

using namespace ecu;
namespace topics = tamu::com::topics;

// Passes messages to their observers, and accepts publications without keeping them.
class RoutingClient final : public tests::FakeClient {
 public:
  tamu::com::PublishResult publish(const std::string& /*topic*/, Message message) override {
    published_bytes += message.payload.size();
    return tamu::com::PublishResult::success;
  }
  void deliver(const std::string& topic, const Message& message) {
    if (const auto observer = observers.find(topic); observer != observers.end()) {
      observer->second->message(topic, message);
    }
  }

  std::atomic<std::size_t> published_bytes = 0;
};

constexpr std::array other_topics{
    topics::parameter_request, topics::all_parameters_request,        topics::parameter_write,
    topics::set_master,        topics::vehicle_identification_prefix, topics::set_remote,
};

bool is_version(std::string_view topic) {
  return topic.find("version") != std::string_view::npos;
}

// A version of another size ends the process on purpose.
bool ends_the_process(std::string_view topic, const fuzz::Bytes& body) {
  const auto signals = is_version(topic) ? fuzz::read_signal_group(body) : std::nullopt;
  if (!signals) {
    return false;
  }
  std::size_t version_size = 16;
  for (const fuzz::WireSignal& signal : *signals) {
    version_size = signal.name == "version" ? signal.data.size() : version_size;
  }
  return version_size != 16;
}

void deliver(RoutingClient& client, const std::string& topic, const fuzz::Bytes& body) {
  if (!ends_the_process(topic, body)) {
    client.deliver(topic, tamu::com::make_message(7, fuzz::framed(body)));
  }
}

void deliver_from(RoutingClient& client, FuzzedDataProvider& input) {
  if (input.ConsumeIntegralInRange(0, 4) == 0) {
    const std::string topic = input.PickValueInArray(other_topics);
    const std::string bytes = input.ConsumeRandomLengthString(256);
    deliver(client, topic, {bytes.begin(), bytes.end()});
    return;
  }
  const std::string topic = input.PickValueInArray(fuzz::signal_topics);
  const fuzz::Bytes body = fuzz::group_from(input, topic);
  for (auto times = input.ConsumeIntegralInRange(1, 6); times > 0; --times) {
    deliver(client, topic, body);
  }
}

// The usual messages on the bus of any unit.
void deliver_ordinary_messages(RoutingClient& client) {
  for (const std::string topic : fuzz::signal_topics) {
    fuzz::Bytes group;
    for (const std::string_view name : tamu::rt::catalogue_signals(topic)) {
      fuzz::Bytes signal;
      fuzz::append_field(signal, 0x0a, name);
      fuzz::append_field(signal, 0x12, std::string(is_version(topic) ? 16 : 68, '1'));
      signal.insert(signal.end(), {0x19, 0, 0, 0, 0, 0, 0, 0x31, 0x40, 0x20, 3});  // value 17, valid
      fuzz::append_field(group, 0x0a, signal);
    }
    // A VIN is published when it has been received several times.
    for (int times = topic.starts_with(topics::vehicle_identification_prefix) ? 6 : 1; times > 0; --times) {
      deliver(client, topic, group);
    }
  }
}

void run(FuzzedDataProvider& input) {
  const fuzz::Heap heap;
  const auto client = std::make_shared<RoutingClient>();
  const auto config = std::make_unique<tamu::config::Configuration>();
  quil::EnvironmentDaemon daemon(client, config);
  daemon.init();
  daemon.initial_publish();
  deliver_ordinary_messages(*client);
  const std::size_t before = heap.in_use();
  for (int messages = 0; messages < 24 && input.remaining_bytes() > 0; ++messages) {
    deliver_from(*client, input);
  }
  deliver_ordinary_messages(*client);
  heap.require_no_growth(before);
  daemon.stop();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::silence();
  FuzzedDataProvider input(data, size);
  // The memory that a thread keeps is measured, too, and must be new for each input.
  std::thread([&input] { run(input); }).join();
  return 0;
}
