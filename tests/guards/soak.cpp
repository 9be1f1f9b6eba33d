#include <charconv>
#include <cstdio>

#include "guards/surroundings.h"

// Keeps the daemon busy with all its tasks and with harmful input, and watches the resources that it uses.
// Ends with exit code 1 when these grow, or when the daemon ends or no longer answers.
namespace tests {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

/// The resources that a process uses.
struct Usage {
  long anonymous_kilobytes = 0;
  long pss_kilobytes = 0;
  long descriptors = 0;
  long threads = 0;
};

long entries(const std::string& folder) {
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

Usage usage_of(int pid) {
  const std::string process = "/proc/" + std::to_string(pid), memory = process + "/smaps_rollup";
  return {.anonymous_kilobytes = number_in(memory, "Anonymous"),
          .pss_kilobytes = number_in(memory, "Pss"),
          .descriptors = entries(process + "/fd"),
          .threads = entries(process + "/task")};
}

/// The samples so far. The first third of the run is a warm-up.
class Record {
 public:
  void add(const Usage& usage) {
    (void)std::printf("%6ld kB anonymous %6ld kB pss %4ld descriptors %4ld threads\n",
                      usage.anonymous_kilobytes, usage.pss_kilobytes, usage.descriptors, usage.threads);
    (void)std::fflush(stdout);
    samples_.push_back(usage);
  }

  // Pss is not judged: it also changes when other users of a library come and go.
  [[nodiscard]] bool has_grown() const {
    return grew("anonymous memory (kB)", &Usage::anonymous_kilobytes, slack_kilobytes) ||
           grew("descriptors", &Usage::descriptors, 1) || grew("threads", &Usage::threads, 1);
  }

 private:
  // The granularity of the measurement: a few pages, a connection that is just being set up.
  static constexpr long slack_kilobytes = 64;

  using Member = long Usage::*;

  // Compares the median of the last third, because a short peak is not growth, with the maximum of the first.
  [[nodiscard]] bool grew(const char* what, Member member, long slack) const {
    const auto third = static_cast<std::ptrdiff_t>(samples_.size() / 3);
    const auto less = [member](const Usage& a, const Usage& b) { return a.*member < b.*member; };
    const long before = (*std::max_element(samples_.begin(), samples_.begin() + third, less)).*member;
    std::vector<Usage> last(samples_.end() - third, samples_.end());
    std::nth_element(last.begin(), last.begin() + third / 2, last.end(), less);
    const long after = last[static_cast<std::size_t>(third / 2)].*member;
    if (after <= before + before / 20 + slack) {
      return false;
    }
    std::printf("soak: %s grew from %ld to %ld\n", what, before, after);
    return true;
  }

  std::vector<Usage> samples_;
};

class Soak : Surroundings {
 public:
  int run(seconds duration) {
    if (!answers()) {
      return fail("the daemon does not start");
    }
    const seconds step = std::max(seconds(1), duration / 30);
    const auto end = Clock::now() + duration;
    auto next_sample = Clock::now() + step;
    while (Clock::now() < end) {
      play_a_round();
      if (Clock::now() >= next_sample) {
        restart_broker();
        if (!answers()) {
          return fail("the daemon does not answer");
        }
        record_.add(usage_of(daemon_.pid()));
        next_sample += step;
      }
    }
    daemon_.signal(SIGTERM);
    if (daemon_.wait() != 0) {
      return fail("the daemon does not stop in order");
    }
    return record_.has_grown() ? 1 : 0;
  }

 private:
  int fail(const char* reason) const {
    std::printf("soak: %s\n%s\n", reason, daemon_.output().c_str());
    return 1;
  }

  // One message of each kind: valid, damaged and large.
  void play_a_round() {
    ++round_;
    const std::string number = std::to_string(round_);
    publish_signals(number);
    write_parameter(number);
    far_side.write(parameter_record(0x11, number) + "damaged" + parameter_record(2, number));
    far_side.write(parameter_record(0x12, std::string(round_ * 997 % 30'000, 'p')).substr(9));
    far_side.write_top_version("TV " + number);
    ask(number);
    // The daemon should be busy, not flooded.
    for (const auto& [topic, value] : {std::pair("system/var/topversion", "TV " + number),
                                       std::pair("system/quil/secstore/getmaster", number),
                                       std::pair("system/sysparams", std::string())}) {
      (void)comes(*bus, topic, value, std::chrono::milliseconds(1000));
    }
  }

  void publish_signals(const std::string& number) {
    const std::string version = (number + std::string(16, '.')).substr(0, 16);
    for (const char* topic :
         {"hypervisor", "csp", "tele_kernel", "tele_dtb", "linux_kernel", "update_kernel", "update_dtb"}) {
      bus->publish(std::string("rt/system/version_") + topic,
                   Group().bytes("version", version).message().payload);
    }
    for (const char* address : {"00", "ee", "fe"}) {
      bus->publish(std::string("rt/j1939can/rx/vi_") + address,
                   Group().bytes("data", "1M8GDM9A" + number).value("nof_bytes", 17).message().payload);
    }
    Group properties;
    for (const auto name : {"vehicle_type", "region", "modem_type", "is_gnss", "is_can1", "is_d8"}) {
      properties.value(name, static_cast<double>(round_ % 3));
    }
    bus->publish("rt/system/hw_properties", properties.message().payload);
    bus->publish("rt/system/hw_variant", hardware_variant("R08_B" + number));
    bus->publish("rt/system/rtc_ee", Group().bytes("data", std::string(68, '1')).message().payload);
    bus->publish("rt/system/network_variant", Group().bytes("network_variant", number).message().payload);
    bus->publish("rt/io/kl15", Group().value("kl15", static_cast<double>(round_ % 2)).message().payload);
    bus->publish("rt/system/rtc_ee", "damaged");
    Group wide;
    for (std::size_t i = 0; i < round_ * 31 % 2'000; ++i) {
      wide.bytes("", "");
    }
    bus->publish("rt/system/network_variant",
                 wide.bytes("network_variant", std::string(round_ * 991 % 60'000, 'n')).message().payload);
  }

  // Waits until it has reached the far side, whose next frame is the answer.
  void write_parameter(const std::string& number) {
    ecu::tamu::pb::SystemParameterList list;
    list.add_entry()->set_ota_id(0x11);
    list.mutable_entry(0)->set_value("new " + number);
    far_side.drain();
    bus->publish("system/sysparams/write", framed(list).payload);
    (void)far_side.read_frame(std::chrono::milliseconds(200));
  }

  void ask(const std::string& number) {
    bus->publish("system/quil/request/sysparam", request_for({"17", "40969", "nonsense"}).payload);
    bus->publish("system/quil/request/sysparams", std::string_view());
    bus->publish("system/quil/secstore/setmaster", number);
    bus->publish("system/quil/secstore/setremote", std::string(round_ * 983 % 20'000, 's'));
  }

  bool answers() {
    return is_served([this] { return daemon_.wait(std::chrono::milliseconds(0)).has_value(); });
  }

  std::size_t round_ = 0;
  Daemon daemon_{config(), {"-L", "-l", "EMERG"}};
  Record record_;
};

}  // namespace
}  // namespace tests

int main(int argc, char* argv[]) {
  int minutes = 0;
  if (argc == 2) {
    const std::string_view text = argv[1];
    std::from_chars(text.data(), text.data() + text.size(), minutes);
  }
  if (minutes < 1) {
    (void)std::fputs("soak: usage: soak MINUTES\n", stderr);
    return 1;
  }
  return tests::Soak().run(std::chrono::minutes(minutes));
}
