// A message that goes to seventeen variables, compared with the minimum: parsing its group once and
// serialising seventeen framed variables.

#include <benchmark/benchmark.h>

#include <memory>

#include <ecu/quil/environment_daemon.h>
#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/pb/messages.pb.h>
#include <ecu/tamu/rt/signal_adapter.h>

#include "discarding_client.h"
#include "support/rt_messages.h"

namespace {

using namespace ecu::tamu;

constexpr const char* topic = "rt/system/hw_properties";

com::Message properties() {
  tests::Group group;
  for (const std::string_view signal : rt::catalogue_signals(topic)) {
    if (signal == "region" || signal == "vehicle_type") {
      group.bytes(signal, "TRUCK");
    } else {
      group.value(signal, 1.0);
    }
    group.status(rt::signal_valid);
  }
  return group.message();
}

void hw_properties_baseline(benchmark::State& state) {
  const com::Message message = properties();
  pb::SignalGroup group;
  pb::EcuVariable variable;
  variable.set_value("true");
  variable.set_timestamp(1'000'000'000'000);
  for ([[maybe_unused]] const auto _ : state) {
    std::uint16_t protocol_type = com::pb_protocol_type;
    benchmark::DoNotOptimize(com::unframe(message.payload, group, protocol_type));
    for (std::size_t i = 0; i < rt::catalogue_signals(topic).size(); ++i) {
      benchmark::DoNotOptimize(com::frame(variable, com::pb_protocol_type));
    }
  }
}
BENCHMARK(hw_properties_baseline);

void hw_properties_daemon(benchmark::State& state) {
  com::Message message = properties();
  const auto client = std::make_shared<tests::DiscardingClient>();
  ecu::quil::EnvironmentDaemon daemon(client, std::make_unique<config::Configuration>());
  daemon.init();
  for ([[maybe_unused]] const auto _ : state) {
    ++message.timestamp;
    daemon.message(topic, message);
  }
  daemon.stop();
}
BENCHMARK(hw_properties_daemon);

}  // namespace
