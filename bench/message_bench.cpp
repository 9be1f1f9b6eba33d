// The cost of a message inside the daemon: framing, and its whole path through EnvironmentDaemon.

#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include <ecu/quil/environment_daemon.h>
#include <ecu/tamu/com/pb_internal_message_adapter.h>
#include <ecu/tamu/pb/messages.pb.h>

#include "discarding_client.h"
#include "support/rt_messages.h"

namespace {

using namespace ecu::tamu;
using Adapter = com::PbInternalMessageAdapter<pb::EcuVariable>;

pb::EcuVariable variable() {
  pb::EcuVariable body;
  body.set_value("123456-7890");
  body.set_timestamp(1'000'000'000'000);
  return body;
}

void serialise_variable(benchmark::State& state) {
  const pb::EcuVariable body = variable();
  for ([[maybe_unused]] const auto _ : state) {
    benchmark::DoNotOptimize(Adapter().serialize(body));
  }
}
BENCHMARK(serialise_variable);

void deserialise_variable(benchmark::State& state) {
  const com::Message message = Adapter().serialize(variable()).value();
  for ([[maybe_unused]] const auto _ : state) {
    benchmark::DoNotOptimize(Adapter().deserialize(message));
  }
}
BENCHMARK(deserialise_variable);

// Each message has a time stamp of its own, as on the bus, and so is unpacked again.
void daemon_message(benchmark::State& state, const std::string& topic, com::Message message) {
  const auto client = std::make_shared<tests::DiscardingClient>();
  ecu::quil::EnvironmentDaemon daemon(client, std::make_unique<config::Configuration>());
  daemon.init();
  for ([[maybe_unused]] const auto _ : state) {
    ++message.timestamp;
    daemon.message(topic, message);
  }
  state.counters["published"] =
      benchmark::Counter(static_cast<double>(client->published()), benchmark::Counter::kAvgIterations);
}

const std::string serial = std::string(64, '\0') + "\xd2\x02\x96\x49";
BENCHMARK_CAPTURE(daemon_message, rtc_ee, "rt/system/rtc_ee", tests::Group().bytes("data", serial).message());
BENCHMARK_CAPTURE(daemon_message, hw_variant, "rt/system/hw_variant",
                  tests::Group().bytes("variant", "R08_B1").message());
BENCHMARK_CAPTURE(daemon_message, network_variant, "rt/system/network_variant",
                  tests::Group().bytes("network_variant", "TRUCK_HD").message());
BENCHMARK_CAPTURE(daemon_message, vin, "rt/j1939can/rx/vi_00",
                  tests::Group().bytes("data", "1M8GDM9A_KP042788").value("nof_bytes", 17).message());
BENCHMARK_CAPTURE(daemon_message, no_variable, "rt/io/kl15", tests::Group().bytes("kl15", "\x01").message());

}  // namespace
