#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <ecu/tamu/logging/logging.h>

namespace {

namespace logging = ecu::tamu::logging;

void line_not_let_through(benchmark::State& state) {
  for ([[maybe_unused]] const auto _ : state) {
    logging::debug("Received data for EcuVar ", "serialnumber", " (from ", state.iterations(), ")");
  }
}
BENCHMARK(line_not_let_through);

void line_to_a_stream(benchmark::State& state) {
  const int original = ::dup(STDERR_FILENO);
  const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  ::dup2(nowhere, STDERR_FILENO);
  logging::set_log_mode(logging::LogMode::standard_error);
  for ([[maybe_unused]] const auto _ : state) {
    logging::notice("Received data for EcuVar ", "serialnumber", " (from ", "rt/system/serialnumber", ")");
  }
  logging::set_log_mode(logging::LogMode::none);
  ::dup2(original, STDERR_FILENO);
  ::close(nowhere);
  ::close(original);
}
BENCHMARK(line_to_a_stream);

}  // namespace
