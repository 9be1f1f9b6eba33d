// The cost of system parameters: a frame from the port into the copy, and the answer to a request for all of
// them.

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include <ecu/quil/sys_param_container.h>
#include <ecu/quil/sys_param_req_handler.h>
#include <ecu/tamu/com/topics.h>

#include "discarding_client.h"
#include "support/fake_port.h"
#include "support/rt_messages.h"

namespace {

using namespace ecu::quil;

std::vector<ecu::tamu::ipc::IpcSignal> frame(std::int64_t size) {
  std::vector<ecu::tamu::ipc::IpcSignal> signals;
  for (std::int64_t i = 0; i < size; ++i) {
    signals.push_back(
        SysParamContainer::to_signal({static_cast<std::uint32_t>(0x1000 + i), "parameter value"}));
  }
  return signals;
}

void receive(QueuingPortHandler& port, const std::vector<ecu::tamu::ipc::IpcSignal>& signals) {
  for (const auto& signal : signals) {
    port.consume(signal);
  }
  port.frame_finished();
}

void per_parameter(benchmark::State& state) {
  state.counters["per_parameter"] =
      benchmark::Counter(static_cast<double>(state.iterations() * state.range(0)),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void consume_and_merge(benchmark::State& state) {
  const auto port = std::make_shared<tests::FakePort>();
  const SysParamContainer container(port, {}, SysParamReqHandler::answer_timeout);
  const auto signals = frame(state.range(0));
  for ([[maybe_unused]] const auto _ : state) {
    receive(*port, signals);
  }
  per_parameter(state);
}
BENCHMARK(consume_and_merge)->RangeMultiplier(10)->Range(10, 10'000);

// A frame of one parameter, while the copy holds many.
void merge_one_into_many(benchmark::State& state) {
  const auto port = std::make_shared<tests::FakePort>();
  const SysParamContainer container(port, {}, SysParamReqHandler::answer_timeout);
  receive(*port, frame(state.range(0)));
  const auto one = frame(1);
  for ([[maybe_unused]] const auto _ : state) {
    receive(*port, one);
  }
}
BENCHMARK(merge_one_into_many)->RangeMultiplier(10)->Range(10, 10'000);

void write_of_the_same(benchmark::State& state) {
  const auto port = std::make_shared<tests::FakePort>();
  const auto client = std::make_shared<tests::DiscardingClient>();
  SysParamReqHandler handler(client, port, {});
  receive(*port, frame(state.range(0)));
  std::vector<SysParam> params;
  for (const auto& signal : frame(state.range(0))) {
    params.push_back(to_parameter(signal).second);
  }
  const auto same = to_message(params).value();
  for ([[maybe_unused]] const auto _ : state) {
    handler.message(ecu::tamu::com::topics::parameter_write, same);
  }
  per_parameter(state);
}
BENCHMARK(write_of_the_same)->RangeMultiplier(10)->Range(10, 10'000);

void answer_all_parameters(benchmark::State& state) {
  const auto client = std::make_shared<tests::DiscardingClient>();
  const auto port = std::make_shared<tests::FakePort>();
  SysParamReqHandler handler(client, port, {});
  receive(*port, frame(state.range(0)));
  for ([[maybe_unused]] const auto _ : state) {
    handler.message(ecu::tamu::com::topics::all_parameters_request, {});
  }
  per_parameter(state);
}
BENCHMARK(answer_all_parameters)->RangeMultiplier(10)->Range(10, 10'000);

void answer_one_parameter(benchmark::State& state) {
  const auto client = std::make_shared<tests::DiscardingClient>();
  const auto port = std::make_shared<tests::FakePort>();
  SysParamReqHandler handler(client, port, {});
  receive(*port, frame(1));
  const auto request = tests::framed_by_hand(
      "\x0a\x04"
      "4096");
  for ([[maybe_unused]] const auto _ : state) {
    handler.message(ecu::tamu::com::topics::parameter_request, request);
  }
}
BENCHMARK(answer_one_parameter);

}  // namespace
