#include <fcntl.h>
#include <sys/mman.h>

#include <cstdlib>
#include <filesystem>
#include <random>

#include "guards/allocations.h"
#include "guards/surroundings.h"

// Makes one allocation of the daemon fail, at any moment of its life. Afterwards the daemon has ended with a
// line in its log, or works again after the next reconnection. It must never be alive and deaf.
namespace tests {
namespace {

using std::chrono::milliseconds;

class SharedAllocations {
 public:
  SharedAllocations() : path_(dir_.write("allocations", std::string(sizeof(Allocations), '\0'))) {
    const ecu::tamu::posix::UniqueFd file(::open(path_.c_str(), O_RDWR | O_CLOEXEC));
    shared_ = static_cast<Allocations*>(
        ::mmap(nullptr, sizeof(Allocations), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0));
    std::filesystem::create_symlink(FAILING_MALLOC, library_);
  }
  ~SharedAllocations() { ::munmap(shared_, sizeof(Allocations)); }
  SharedAllocations(const SharedAllocations&) = delete;
  SharedAllocations& operator=(const SharedAllocations&) = delete;

  /// The library that counts them, by a path that may stand in LD_PRELOAD: without blanks and colons.
  [[nodiscard]] const std::string& library() const noexcept { return library_; }
  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  [[nodiscard]] std::uint64_t count() const noexcept { return shared_->count; }
  void fail_after(std::uint64_t allocations) { shared_->fail_at = shared_->count + allocations; }
  [[nodiscard]] bool has_failed() const noexcept {
    return shared_->fail_at != 0 && shared_->count >= shared_->fail_at;
  }

 private:
  TempDir dir_;
  std::string path_;
  std::string library_ = dir_.path("library");
  Allocations* shared_;
};

/// The daemon and its surroundings, taken through one phase of its life after another.
class Life : public Surroundings {
 public:
  void start() {
    daemon = std::make_unique<Daemon>(
        config(), std::vector<std::string>{"-L", "-v"},
        std::vector<std::string>{"LD_PRELOAD=" + allocations.library(),
                                 std::string(allocations_variable) + "=" + allocations.path()});
    await([this] { return bus->wait_for(presence_topic, nullptr, milliseconds(50)).has_value(); });
  }
  void take_message() {
    bus->publish("rt/system/hw_variant", hardware_variant("R08_B1"));
    await([this] { return comes(*bus, "system/var/hwvariant", "R08_B1", milliseconds(50)); });
  }
  void take_frame() {
    far_side.write_top_version("TV 1");
    await([this] { return comes(*bus, "system/var/topversion", "TV 1", milliseconds(50)); });
  }
  void take_request() {
    bus->publish("system/quil/request/sysparams", std::string_view());
    await([this] { return bus->wait_for("system/sysparams", nullptr, milliseconds(50)).has_value(); });
  }
  void take_secret() {
    bus->publish("system/quil/secstore/setmaster", "hush");
    await([this] { return comes(*bus, "system/quil/secstore/getmaster", "hush", milliseconds(50)); });
  }
  void reconnect() {
    restart_broker();
    await([this] { return bus->wait_for_text(presence_topic, "online"); });
  }
  void stop() {
    daemon->signal(SIGTERM);
    await([this] { return daemon->wait(milliseconds(50)).has_value(); });
  }

  [[nodiscard]] bool has_ended() const { return daemon->wait(milliseconds(0)).has_value(); }

  bool is_well_again() {
    meet();
    return is_served([this] { return has_ended(); });
  }

  SharedAllocations allocations;
  std::unique_ptr<Daemon> daemon;

 private:
  // Until the phase is complete, or cannot complete because the allocation has failed.
  void await(const std::function<bool()>& done) const {
    const auto end = std::chrono::steady_clock::now() + time_limit;
    while (!done() && !allocations.has_failed() && !has_ended() && std::chrono::steady_clock::now() < end) {
    }
  }
};

struct Phase {
  const char* name;
  void (Life::*run)();
  /// Whether the phase includes a connect, so that the daemon must recover without another loss of the
  /// connection.
  bool connects = false;
};
constexpr std::array phases{
    Phase{"start", &Life::start, true},  Phase{"message", &Life::take_message},
    Phase{"frame", &Life::take_frame},   Phase{"request", &Life::take_request},
    Phase{"secret", &Life::take_secret}, Phase{"reconnection", &Life::reconnect, true},
    Phase{"stop", &Life::stop},
};

/// The number of allocations of each phase when none fails.
std::vector<std::uint64_t> measure() {
  Life life;
  std::vector<std::uint64_t> counts;
  std::uint64_t before = 0;
  for (const Phase& phase : phases) {
    (life.*phase.run)();
    const std::uint64_t now = life.allocations.count();
    counts.push_back(now - before);
    EXPECT_GT(counts.back(), 0U) << phase.name << ": nothing is counted";
    before = now;
    (void)std::printf("%s: %ju allocations\n", phase.name, static_cast<std::uintmax_t>(counts.back()));
  }
  return counts;
}

std::uint64_t number_from(const char* variable, std::uint64_t otherwise) {
  const char* text = std::getenv(variable);
  return text == nullptr ? otherwise : std::stoull(text);
}

/// Whether the last line of its output says what ended the daemon.
bool names_what_failed(const std::string& output) {
  return output.ends_with("\n  what():  std::bad_alloc\n") ||
         output.ends_with("\n  what():  Resource temporarily unavailable\n");  // no memory for a thread
}

void expect_end_or_health(Life& life, const Phase& phase) {
  const bool stops = phase.run == &Life::stop;
  if (stops) {
    EXPECT_TRUE(life.daemon->wait()) << "does not end";
  } else if (!life.has_ended()) {
    if (!phase.connects) {
      life.broker.restart();
    }
    // It may have ended meanwhile.
    EXPECT_TRUE(life.is_well_again() || life.has_ended()) << "alive and deaf";
  }
  const auto status = life.daemon->wait(milliseconds(0));
  if (status && !(stops && *status == 0)) {
    EXPECT_TRUE(names_what_failed(life.daemon->output())) << "ended without a reason";
  }
}

void inject(std::size_t phase, std::uint64_t nth) {
  Life life;
  for (std::size_t i = 0; i < phase; ++i) {
    (life.*phases[i].run)();
  }
  life.allocations.fail_after(nth);
  (life.*phases[phase].run)();
  expect_end_or_health(life, phases[phase]);
  if (testing::Test::HasFailure()) {
    (void)std::printf("%s\n", life.daemon->output().c_str());
  }
}

TEST(InjectionTest, AFailedAllocationEndsTheDaemonOrLosesAMessage) {
  const std::uint64_t seed = number_from("TOLQUIL_INJECT_SEED", std::random_device()());
  const std::uint64_t rounds = number_from("TOLQUIL_INJECT_COUNT", 14);
  (void)std::printf("seed %ju\n", static_cast<std::uintmax_t>(seed));
  std::mt19937_64 random(seed);
  const auto counts = measure();
  for (std::uint64_t round = 0; round < rounds && !HasFailure(); ++round) {
    const std::size_t phase = round % phases.size();
    const std::uint64_t nth = 1 + random() % (counts[phase] + 1);
    (void)std::printf("%s, allocation %ju\n", phases[phase].name, static_cast<std::uintmax_t>(nth));
    (void)std::fflush(stdout);
    SCOPED_TRACE(std::string(phases[phase].name) + ", allocation " + std::to_string(nth));
    inject(phase, nth);
  }
}

}  // namespace
}  // namespace tests
