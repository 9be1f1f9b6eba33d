// Records written to a FIFO and read from it, compared with the same bytes moved by bare write and read.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "support/ports.h"

namespace {

constexpr int records_per_frame = 100;

class CountingConsumer final : public ecu::tamu::ipc::IDataConsumer<ecu::tamu::ipc::IpcSignal> {
 public:
  explicit CountingConsumer(std::int64_t& count) : count_(count) {}
  void consume(const ecu::tamu::ipc::IpcSignal& /*signal*/) override { ++count_; }
  void finished() override {}
  void frame_finished() override {}

 private:
  std::int64_t& count_;
};

void write_and_read_records(benchmark::State& state) {
  const tests::TempDir dir;
  const tests::Fifo fifo(dir, "port");
  std::int64_t count = 0;
  tests::Reader reader(std::make_unique<CountingConsumer>(count));
  if (!reader.open(fifo.path())) {
    return state.SkipWithError("no port");
  }
  const auto record = tests::record(7, std::string(static_cast<std::size_t>(state.range(0)), 'x'));
  for ([[maybe_unused]] const auto _ : state) {
    tests::Writer writer;
    bool written = writer.open(fifo.path());
    for (int i = 0; i < records_per_frame; ++i) {
      written = written && writer.transmit_data(record);
    }
    if (!written) {
      return state.SkipWithError("not written");
    }
    reader.request_stop();
    reader.receive_data();
  }
  state.SetItemsProcessed(count);
}
BENCHMARK(write_and_read_records)->Arg(16)->Arg(256);

void bare_write_and_read(benchmark::State& state) {
  const tests::TempDir dir;
  const tests::Fifo fifo(dir, "port");
  const ecu::tamu::posix::UniqueFd port(::open(fifo.path().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  const std::string record = tests::wire(7, std::string(static_cast<std::size_t>(state.range(0)), 'x'));
  std::string room(std::size_t{64} * 1024, '\0');
  for ([[maybe_unused]] const auto _ : state) {
    for (int i = 0; i < records_per_frame; ++i) {
      benchmark::DoNotOptimize(::write(port.get(), record.data(), record.size()));
    }
    benchmark::DoNotOptimize(::read(port.get(), room.data(), room.size()));
  }
  state.SetItemsProcessed(state.iterations() * records_per_frame);
}
BENCHMARK(bare_write_and_read)->Arg(16)->Arg(256);

}  // namespace
